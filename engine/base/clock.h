// The monotonic clock, behind a seam that tests may replace.
#pragma once

#include <atomic>
#include <cstdint>

namespace quorl {

// Nanoseconds since an arbitrary point; never goes back.
int64_t monotonicNow() noexcept;

// Replaces the source of monotonicNow for this process; null puts the system's clock back. For tests. Waits that are in
// progress keep the system's clock.
void setMonotonicSource(int64_t (*source)() noexcept) noexcept;

// The point that lies seconds after now. Negative or beyond the clock's reach: forever. NaN is the caller's to refuse.
int64_t deadlineAfter(double seconds) noexcept;

// Seconds, not negative, as nanoseconds; saturates.
int64_t nanosecondsOf(double seconds) noexcept;

}  // namespace quorl
