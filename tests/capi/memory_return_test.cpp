// Memory of a burst of messages goes back to the system when the burst is over.
#include <unistd.h>

#include <fstream>

#include "support.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QUORL_OWN_ALLOCATOR 1
#endif

namespace quorltest {
namespace {

size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t all = 0;
    size_t resident = 0;
    statm >> all >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

class MemoryReturn : public Open {};

TEST_F(MemoryReturn, followsABurst) {
#ifdef QUORL_OWN_ALLOCATOR
    constexpr int messages = 20'000;  // a sanitizer's allocator keeps what it has: only that nothing breaks is seen
#else
    constexpr int messages = 300'000;
#endif
    [[maybe_unused]] constexpr size_t most = size_t{64}
                                             << 20;  // bytes that may stay of what was nearly half a gigabyte
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    int came = 0;
    quorlEvent listener = 0;
    ASSERT_EQ(quorlEvent_CreateListener(
                  &listener, queue, [](quorlEvent, quorlMsg, void* closure) { ++*static_cast<int*>(closure); },
                  transport, "burst", &came),
              QUORL_OK);
    const std::string payload(900, 'x');
    const auto made = [&] {
        quorlMsg message = newMessage("burst");
        EXPECT_EQ(quorlMsg_AddStringEx(message, "text", payload.c_str(), 0), QUORL_OK);
        return message;
    };
    const size_t before = residentBytes();
    for (int i = 0; i < messages; ++i) {
        quorlMsg message = made();
        ASSERT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
        quorlMsg_Destroy(message);
    }
    const size_t during = residentBytes();
    quorlMsg newest = made();  // stands behind all others, so that the heap's end does not shrink by itself
    while (quorlQueue_TimedDispatch(queue, 0) == QUORL_OK) {
    }
    EXPECT_EQ(came, messages);
#ifndef QUORL_OWN_ALLOCATOR
    EXPECT_GT(during, before + 4 * most);
    // Each dispatch waits in vain for a tenth of a second.
    for (int i = 0; i < 10 * limit && residentBytes() > before + most; ++i) {
        EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0.1), QUORL_TIMEOUT);
    }
    EXPECT_LT(residentBytes(), before + most) << during;
#else
    (void)before;
    (void)during;
#endif
    quorlMsg_Destroy(newest);
}

}  // namespace
}  // namespace quorltest
