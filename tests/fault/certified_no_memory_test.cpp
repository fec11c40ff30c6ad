// Certified delivery when memory is short: each allocation in each call into a machine fails once, and still every message that
// was accepted is delivered once and in order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <new>
#include <vector>

#include "certified/protocol/test_support.h"
#include "fault/failing_allocator.h"

namespace quorl::certified {
namespace {

// Which allocation of which call into a machine fails.
struct Failure {
    int64_t call = -1;
    int64_t allocation = 0;
    int64_t calls = 0;
    bool failed = false;
    bool wasAsked = false;

    // Runs call; false: it had no memory.
    template <class F>
    bool guard(F&& call) {
        const bool mine = calls++ == this->call;
        if (!mine) {
            call();
            return true;
        }
        wasAsked = true;
        bool fine = true;
        quorltest::failAllocation(quorltest::Whose::callers, allocation);
        try {
            call();
        } catch (const std::bad_alloc&) {
            fine = false;
        }
        failed = quorltest::stopFailing();
        return fine;
    }
};

TEST(CertifiedNoMemory, loses_nothing_whichever_allocation_fails) {
    uint64_t runs = 0;
    uint64_t failures = 0;
    for (int64_t call = 0;; ++call) {
        bool reached = false;
        for (int64_t allocation = 0;; ++allocation) {
            Failure failure;
            failure.call = call;
            failure.allocation = allocation;
            Net net;
            Disk senderDisk;
            Disk listenerDisk;
            Guarding guarding{[&](const std::function<void()>& one) { return failure.guard(one); }};
            net.guarding = &guarding;
            Peer sender(net, named("s"), &senderDisk);
            Peer listener(net, named("l"), &listenerDisk);
            listener.listen("a.*");
            net.pass(3 * second);
            std::vector<uint64_t> accepted;
            int dropped = 0;
            sender.loses = [&](const companion::Message& message) {
                return message.subject() == "a.b" && ++dropped % 3 == 0;
            };
            for (int i = 0; i < 6; ++i) {
                uint64_t number = 0;
                if (sender.send("a.b", i == 5 ? 3600 * second : 0, &number) == QUORL_OK) accepted.push_back(number);
            }
            net.pass(3 * second);
            for (int i = 0; i < 2; ++i) {
                listener.confirmAll();
                net.pass(200 * second);
            }
            // What the ledger could not be told to forget it is told with the next one.
            net.guarding = nullptr;
            uint64_t number = 0;
            if (sender.send("a.b", 0, &number) == QUORL_OK) accepted.push_back(number);
            for (int i = 0; i < 2; ++i) {
                net.pass(100 * second);
                listener.confirmAll();
                net.pass(second);
            }
            failures += failure.failed;
            ++runs;
            // What came before a registration that found no memory was not promised.
            std::vector<uint64_t> came = listener.numbers("a.b");
            const size_t missing = accepted.size() - std::min(accepted.size(), came.size());
            ASSERT_LE(missing, listener.plain()) << call << ", " << allocation;
            ASSERT_TRUE(std::equal(came.rbegin(), came.rend(), accepted.rbegin())) << call << ", " << allocation;
            ASSERT_EQ(sender.machine().counts().messages, 0u) << call << ", " << allocation;
            ASSERT_TRUE(senderDisk.messages.empty()) << call << ", " << allocation;
            reached = failure.wasAsked;
            if (!failure.failed) break;
        }
        if (!reached) break;
    }
    EXPECT_GT(failures, 100u);
    std::printf("%llu runs, %llu failures\n", static_cast<unsigned long long>(runs),
                static_cast<unsigned long long>(failures));
}

}  // namespace
}  // namespace quorl::certified
