// The system call behind sleeping and waking.
#include "base/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <ctime>

namespace quorl {

bool futexWait(std::atomic<uint32_t>& word, uint32_t expected, int64_t deadline) noexcept {
    static_assert(sizeof word == sizeof(uint32_t) && std::atomic<uint32_t>::is_always_lock_free);
    timespec limit{};
    timespec* limitGiven = nullptr;
    if (deadline != forever) {
        if (deadline < 0) deadline = 0;
        limit.tv_sec = deadline / 1'000'000'000;
        limit.tv_nsec = deadline % 1'000'000'000;
        limitGiven = &limit;
    }
    // The BITSET form takes an absolute time on CLOCK_MONOTONIC.
    const long result = syscall(SYS_futex, &word, FUTEX_WAIT_BITSET | FUTEX_PRIVATE_FLAG, expected, limitGiven, nullptr,
                                FUTEX_BITSET_MATCH_ANY);
    return !(result == -1 && errno == ETIMEDOUT);
}

void futexWake(std::atomic<uint32_t>& word, int count) noexcept {
    syscall(SYS_futex, &word, FUTEX_WAKE | FUTEX_PRIVATE_FLAG, count, nullptr, nullptr, 0);
}

}  // namespace quorl
