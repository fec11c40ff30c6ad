// Counting durations, and reading percentiles.
#include "base/histogram.h"

#include <algorithm>
#include <bit>

namespace quorl {

// The highest bit of the duration and the three bits behind it.
uint32_t Histogram::bucketOf(uint64_t duration) noexcept {
    if (duration < steps) return static_cast<uint32_t>(duration);
    const auto shift = static_cast<uint32_t>(std::bit_width(duration)) - 4;
    return (shift + 1) * steps + static_cast<uint32_t>((duration >> shift) & (steps - 1));
}

int64_t Histogram::topOf(uint32_t bucket) noexcept {
    if (bucket < steps) return bucket;
    const uint32_t shift = bucket / steps - 1;
    const uint64_t first = (uint64_t{steps} + bucket % steps) << shift;
    return static_cast<int64_t>(first + (uint64_t{1} << shift) - 1);
}

void Histogram::add(int64_t now, int64_t duration) noexcept {
    const int64_t turn = now / windowLength;
    Window& window = windows_[turn & 1];
    int64_t seen = turn_.load(std::memory_order_relaxed);
    if (seen != turn && seen < turn && turn_.compare_exchange_strong(seen, turn, std::memory_order_relaxed)) {
        for (auto& count : window.counts) count.store(0, std::memory_order_relaxed);
        window.most.store(0, std::memory_order_relaxed);
        if (seen != turn - 1) {
            Window& older = windows_[(turn + 1) & 1];
            for (auto& count : older.counts) count.store(0, std::memory_order_relaxed);
            older.most.store(0, std::memory_order_relaxed);
        }
    }
    duration = std::max<int64_t>(duration, 0);
    window.counts[bucketOf(static_cast<uint64_t>(duration))].fetch_add(1, std::memory_order_relaxed);
    int64_t most = window.most.load(std::memory_order_relaxed);
    while (most < duration && !window.most.compare_exchange_weak(most, duration, std::memory_order_relaxed)) {
    }
}

Histogram::Summary Histogram::read(int64_t now) const noexcept {
    Summary summary;
    const int64_t turn = now / windowLength;
    const int64_t last = turn_.load(std::memory_order_relaxed);
    std::array<uint64_t, buckets> counts{};
    for (const int64_t each : {turn, turn - 1}) {
        if (each != last && each != last - 1) continue;
        const Window& window = windows_[each & 1];
        for (uint32_t i = 0; i < buckets; ++i) {
            const uint64_t count = window.counts[i].load(std::memory_order_relaxed);
            counts[i] += count;
            summary.count += count;
        }
        summary.most = std::max(summary.most, window.most.load(std::memory_order_relaxed));
    }
    if (summary.count == 0) return summary;
    const auto percentile = [&](uint64_t perThousand) {
        // The smallest value that at least that part of all does not exceed.
        uint64_t left = (summary.count * perThousand + 999) / 1000;
        for (uint32_t i = 0; i < buckets; ++i) {
            if (counts[i] >= left) return std::min(topOf(i), summary.most);
            left -= counts[i];
        }
        return summary.most;
    };
    summary.p50 = percentile(500);
    summary.p90 = percentile(900);
    summary.p99 = percentile(990);
    summary.p999 = percentile(999);
    return summary;
}

}  // namespace quorl
