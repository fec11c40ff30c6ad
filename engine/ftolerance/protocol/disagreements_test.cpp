// What was told is known.
#include "ftolerance/protocol/disagreements.h"

#include <gtest/gtest.h>

namespace quorl::ftolerance {
namespace {

Frame frameOf(uint64_t member, uint16_t goal) {
    Frame frame;
    frame.member = member;
    frame.goal = goal;
    return frame;
}

TEST(FtDisagreements, are_news_once_for_each_member_and_what_it_has) {
    Disagreements told;
    EXPECT_TRUE(told.isNews(frameOf(1, 2)));
    EXPECT_FALSE(told.isNews(frameOf(1, 2)));
    EXPECT_TRUE(told.isNews(frameOf(2, 2)));
    EXPECT_TRUE(told.isNews(frameOf(1, 3)));
    EXPECT_TRUE(told.isNews(frameOf(1, 2)));
    told.forget(1);
    EXPECT_TRUE(told.isNews(frameOf(1, 2)));
    EXPECT_FALSE(told.isNews(frameOf(2, 2)));
}

TEST(FtDisagreements, of_more_members_than_are_kept_are_forgotten) {
    Disagreements told;
    for (uint64_t member = 1; member <= Disagreements::most; ++member) EXPECT_TRUE(told.isNews(frameOf(member, 2)));
    EXPECT_FALSE(told.isNews(frameOf(1, 2)));
    EXPECT_TRUE(told.isNews(frameOf(Disagreements::most + 1, 2)));
    EXPECT_TRUE(told.isNews(frameOf(1, 2)));
}

}  // namespace
}  // namespace quorl::ftolerance
