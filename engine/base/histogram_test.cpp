#include "base/histogram.h"

#include <gtest/gtest.h>

#include <random>

namespace quorl {
namespace {

constexpr int64_t second = 1'000'000'000;

TEST(Histogram, isEmptyAtFirst) {
    const Histogram histogram;
    EXPECT_EQ(histogram.read(5).count, 0u);
    EXPECT_EQ(histogram.read(5).p99, 0);
}

TEST(Histogram, readsPercentilesToWithinAnEighth) {
    Histogram histogram;
    for (int64_t i = 1; i <= 1000; ++i) histogram.add(second, i * 1000);
    const Histogram::Summary summary = histogram.read(second);
    EXPECT_EQ(summary.count, 1000u);
    EXPECT_EQ(summary.most, 1'000'000);
    const struct {
        int64_t read;
        int64_t exact;
    } rows[] = {{summary.p50, 500'000}, {summary.p90, 900'000}, {summary.p99, 990'000}, {summary.p999, 999'000}};
    for (const auto& row : rows) {
        EXPECT_GE(row.read, row.exact);
        EXPECT_LE(row.read, row.exact + row.exact / 8);
    }
}

TEST(Histogram, takesAnyDuration) {
    Histogram histogram;
    for (const int64_t duration : {INT64_MIN, int64_t{-1}, int64_t{0}, int64_t{1}, int64_t{7}, int64_t{8}, int64_t{15},
                                   int64_t{16}, int64_t{1} << 40, INT64_MAX}) {
        Histogram alone;
        alone.add(0, duration);
        histogram.add(0, duration);
        EXPECT_EQ(alone.read(0).p50, std::max<int64_t>(duration, 0)) << duration;
    }
    EXPECT_EQ(histogram.read(0).count, 10u);
    EXPECT_EQ(histogram.read(0).most, INT64_MAX);
}

TEST(Histogram, forgetsAfterAMinute) {
    Histogram histogram;
    histogram.add(10 * second, 100);
    EXPECT_EQ(histogram.read(29 * second).count, 1u);
    EXPECT_EQ(histogram.read(59 * second).count, 1u);
    EXPECT_EQ(histogram.read(60 * second).count, 0u);
    EXPECT_EQ(histogram.read(6000 * second).count, 0u);
    histogram.add(35 * second, 7);
    EXPECT_EQ(histogram.read(35 * second).count, 2u);
    histogram.add(65 * second, 7);
    EXPECT_EQ(histogram.read(65 * second).count, 2u);
    EXPECT_EQ(histogram.read(65 * second).most, 7);
    histogram.add(6000 * second, 9);
    EXPECT_EQ(histogram.read(6000 * second).count, 1u);
}

}  // namespace
}  // namespace quorl
