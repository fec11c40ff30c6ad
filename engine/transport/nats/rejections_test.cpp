#include "transport/nats/rejections.h"

#include <gtest/gtest.h>

namespace quorl::transport::nats {
namespace {

TEST(Rejections, tellTheFirstAndCountTheRest) {
    Rejections rejections;
    Rejections::Notice notice;
    EXPECT_FALSE(rejections.waiting());
    EXPECT_FALSE(rejections.take(&notice));
    EXPECT_TRUE(rejections.note("first", "a.b"));
    EXPECT_FALSE(rejections.note("second", "c"));
    EXPECT_TRUE(rejections.waiting());
    ASSERT_TRUE(rejections.take(&notice));
    EXPECT_EQ(notice.count, 2u);
    EXPECT_STREQ(notice.reason, "first");
    EXPECT_EQ(notice.subject, "a.b");
    EXPECT_FALSE(rejections.take(&notice));
    EXPECT_TRUE(rejections.note("third", "d"));
    ASSERT_TRUE(rejections.take(&notice));
    EXPECT_EQ(notice.count, 1u);
    EXPECT_STREQ(notice.reason, "third");
    EXPECT_EQ(rejections.total(), 3u);
}

TEST(Rejections, showSubjectsThatAreNone) {
    Rejections rejections;
    Rejections::Notice notice;
    rejections.note("none", std::string_view("a..\xc3(\0", 6));
    ASSERT_TRUE(rejections.take(&notice));
    EXPECT_EQ(notice.subject, "a..%C3(%00");
    rejections.note("long", std::string(5000, 'x'));
    ASSERT_TRUE(rejections.take(&notice));
    EXPECT_EQ(notice.subject, std::string(QUORL_SUBJECT_MAX, 'x'));
    rejections.note("right", "\xc3\xbc.x");
    ASSERT_TRUE(rejections.take(&notice));
    EXPECT_EQ(notice.subject, "\xc3\xbc.x");
}

}  // namespace
}  // namespace quorl::transport::nats
