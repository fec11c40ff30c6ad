#include "ftolerance/protocol/intervals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace quorl::ftolerance {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(FtIntervals, are_taken_to_the_microsecond) {
    Intervals intervals;
    ASSERT_EQ(intervalsFrom(0.5000004, 1.5, 4, &intervals), nullptr);
    EXPECT_EQ(intervals, (Intervals{500'000'000, 1'500'000'000, 4'000'000'000}));
    ASSERT_EQ(intervalsFrom(0.001, 0, 0.002, &intervals), nullptr);
    EXPECT_EQ(intervals, (Intervals{1'000'000, 0, 2'000'000}));
    ASSERT_EQ(intervalsFrom(1, -0.0, 30 * 86400, &intervals), nullptr);
    EXPECT_EQ(intervals.activation, longestInterval);
    int64_t lost = 0;
    ASSERT_EQ(lostIntervalFrom(2.5, &lost), nullptr);
    EXPECT_EQ(lost, 2'500'000'000);
}

TEST(FtIntervals, of_any_other_kind_are_refused_and_change_nothing) {
    const double nan = std::nan("");
    const double wrong[][3] = {
        {0, 2, 3},
        {-1, 2, 3},
        {nan, 2, 3},
        {infinity, 2, 3},
        {0.0004, 2, 3},
        {1e300, 2, 3},
        {1, 2, 0},
        {1, 2, -3},
        {1, 2, nan},
        {1, 2, infinity},
        {1, 2, 30 * 86401.0},
        {1, 2, 1e300},
        {1, -2, 3},
        {1, nan, 3},
        {1, infinity, 3},
        {1, 1e-9, 3},
        {1, 1e300, 3},
        {1, 1, 3},
        {1, 0.5, 3},
        {1, 3, 3},
        {1, 4, 3},
        {3, 0, 3},
        {4, 0, 3},
        {1, 0, 1.0000001},
        {-nan, nan, nan},
        {0, 0, 0},
    };
    for (const auto& one : wrong) {
        Intervals intervals{1, 2, 3};
        EXPECT_NE(intervalsFrom(one[0], one[1], one[2], &intervals), nullptr)
            << one[0] << ' ' << one[1] << ' ' << one[2];
        EXPECT_EQ(intervals, (Intervals{1, 2, 3}));
    }
    for (const double one : {0.0, -1.0, nan, infinity, -infinity, 0.0004, 1e300}) {
        int64_t lost = 7;
        EXPECT_NE(lostIntervalFrom(one, &lost), nullptr) << one;
        EXPECT_EQ(lost, 7);
    }
}

}  // namespace
}  // namespace quorl::ftolerance
