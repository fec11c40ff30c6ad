// Certified delivery when memory is short: each allocation in each call into a machine fails once, and still every message that
// was accepted is delivered once and in order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <utility>
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

// What is written again when a ledger works again, by its keys, and how many messages the machine has then. The allocation fails
// in the word that three sends were refused, or when it is tried.
struct Again {
    std::map<std::string, std::string> state;
    uint64_t messages = 0;
    uint64_t number = 0;
    bool failed = false;
};
Again refuse(bool inRefusal, int64_t allocation) {
    Again again;
    Now now{1000 * second, 1'800'000'000 * second};
    Settings settings = named("s");
    settings.ledger = true;
    Machine machine(settings, Chance{1, 2, {3, 4}, {5, 6}});
    Output out;
    const auto settle = [&] {
        while (out.store.token != 0) {
            const uint64_t token = out.store.token;
            out.clear();
            machine.persisted(token, now, out);
        }
        out.clear();
    };
    machine.start(true, now, out);
    settle();
    machine.addListener("l", "a.b", now, out);
    settle();
    uint64_t refused = 0;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(machine.send(messageTo("a.b"), 0, now, out), QUORL_OK);
        if (refused == 0) refused = out.store.token;
        out.clear();
    }
    const auto step = [&](bool fails, const std::function<void()>& call) {
        bool fine = true;
        if (fails) quorltest::failAllocation(quorltest::Whose::callers, allocation);
        try {
            call();
        } catch (const std::bad_alloc&) {
            fine = false;
        }
        if (fails) again.failed = quorltest::stopFailing();
        return fine;
    };
    const auto told = [&] { machine.storageFailed(refused, QUORL_IO_FAILED, now, out); };
    if (!step(inRefusal, told)) told();
    again.messages = machine.counts().messages;
    bool first = true;
    for (int tries = 0; tries < 20; ++tries) {
        now.monotonic += second;
        out.clear();
        step(!inRefusal && std::exchange(first, false), [&] { machine.tick(now, out); });
        while (out.store.token != 0) {
            const uint64_t token = out.store.token;
            for (const Write& write : out.store.writes) {
                if (write.kind == Write::Kind::putState && write.key != "T") again.state[write.key] = write.value;
            }
            out.clear();
            machine.persisted(token, now, out);
        }
    }
    out.clear();
    EXPECT_EQ(machine.send(messageTo("a.b"), 0, now, out, &again.number), QUORL_OK);
    return again;
}

TEST(CertifiedNoMemory, takes_back_what_was_refused_and_writes_the_rest_again_whichever_allocation_fails) {
    for (const bool inRefusal : {true, false}) {
        const Again all = refuse(inRefusal, INT64_MAX);
        EXPECT_EQ(all.messages, 0u);
        EXPECT_EQ(all.number, 1u);
        EXPECT_FALSE(all.state.empty());
        int failures = 0;
        for (int64_t allocation = 0;; ++allocation) {
            const Again again = refuse(inRefusal, allocation);
            EXPECT_EQ(again.messages, all.messages) << inRefusal << allocation;
            EXPECT_EQ(again.number, all.number) << inRefusal << allocation;
            EXPECT_EQ(again.state, all.state) << inRefusal << allocation;
            if (!again.failed) break;
            ++failures;
        }
        EXPECT_GT(failures, 0);
    }
}

}  // namespace
}  // namespace quorl::certified
