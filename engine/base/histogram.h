// How long things took of late: counts by duration, from which any percentile can be read to within an eighth.
//
// Two windows of half a minute take turns: what is read is what was added during the last 30 to 60 seconds. Constant-initialized
// and trivially destroyed, so that it may be a global. Any thread may add and read at any time; a value that is added while
// the windows turn may be lost.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace quorl {

class Histogram {
  public:
    struct Summary {
        uint64_t count = 0;
        int64_t p50 = 0;  // nanoseconds, as all that follow
        int64_t p90 = 0;
        int64_t p99 = 0;
        int64_t p999 = 0;
        int64_t most = 0;
    };

    constexpr Histogram() noexcept = default;

    // now: the monotonic clock; duration: nanoseconds, a negative one counts as 0.
    void add(int64_t now, int64_t duration) noexcept;
    Summary read(int64_t now) const noexcept;

  private:
    static constexpr int64_t windowLength = 30'000'000'000;  // nanoseconds
    static constexpr uint32_t steps = 8;                     // of each power of two
    static constexpr uint32_t buckets = 61 * steps + steps;

    struct Window {
        std::array<std::atomic<uint32_t>, buckets> counts{};
        std::atomic<int64_t> most{0};
    };

    static uint32_t bucketOf(uint64_t duration) noexcept;
    static int64_t topOf(uint32_t bucket) noexcept;  // the longest duration of the bucket

    std::array<Window, 2> windows_{};
    std::atomic<int64_t> turn_{0};  // number of the present window: the time by its length; its place is the lowest bit
};

}  // namespace quorl
