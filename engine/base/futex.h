// Sleeping on a 32-bit word until another thread changes it and wakes the sleepers.
#pragma once

#include <atomic>
#include <cstdint>

namespace quorl {

// A point on the monotonic clock that never comes, in nanoseconds.
inline constexpr int64_t forever = INT64_MAX;

// Sleeps while word is expected; may return early without a reason, so that callers test again. False: the deadline
// (nanoseconds on the monotonic clock, or forever) has passed.
bool futexWait(std::atomic<uint32_t>& word, uint32_t expected, int64_t deadline = forever) noexcept;

// Wakes up to count sleepers. The word is only named, never read: it may be gone already.
void futexWake(std::atomic<uint32_t>& word, int count = 1) noexcept;

// Tells the processor that this thread spins.
inline void spinPause() noexcept {
#if defined(__x86_64__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

}  // namespace quorl
