// Reading the system's monotonic clock, and arithmetic on its values that saturates.
#include "base/clock.h"

#include <ctime>

#include "base/futex.h"

namespace quorl {
namespace {

constinit std::atomic<int64_t (*)() noexcept> replacement{nullptr};

}  // namespace

int64_t monotonicNow() noexcept {
    if (auto source = replacement.load(std::memory_order_acquire)) return source();
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

void setMonotonicSource(int64_t (*source)() noexcept) noexcept {
    replacement.store(source, std::memory_order_release);
}

int64_t nanosecondsOf(double seconds) noexcept {
    const double nanoseconds = seconds * 1e9;
    if (nanoseconds >= 9.2e18) return forever;
    return static_cast<int64_t>(nanoseconds);
}

int64_t deadlineAfter(double seconds) noexcept {
    if (seconds < 0) return forever;
    const int64_t distance = nanosecondsOf(seconds);
    const int64_t now = monotonicNow();
    return distance >= forever - now ? forever : now + distance;
}

}  // namespace quorl
