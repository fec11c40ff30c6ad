// Giving memory back to the system after a burst. The C library keeps what is freed below memory that is in use, so that
// a program that once kept much in memory would stay as large as it was then.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorl::trim {

// So much must have been freed since the last time, and no more than that in a second, before the C library is asked: it
// looks at all of its free memory then, which takes milliseconds.
inline constexpr uint64_t worthwhile = uint64_t{32} << 20;  // bytes
inline constexpr int64_t quiet = 1'000'000'000;             // nanoseconds

// Notes memory that was freed in large pieces; wakes the reclaimer's thread when it becomes worthwhile.
void note(size_t bytes) noexcept;

// For the reclaimer's thread, whenever it is awake: gives memory back when it is time. Returns when to look again.
int64_t look(int64_t now) noexcept;

}  // namespace quorl::trim
