// Who is late, and that little is kept.
#include "transport/nats/latecomers.h"

#include <gtest/gtest.h>

namespace quorl::transport::nats {
namespace {

TEST(Late, isWhatComesBehindALaterSessionOfItsSender) {
    Latecomers latecomers;
    EXPECT_FALSE(latecomers.late({7, 1}));
    EXPECT_FALSE(latecomers.late({7, 2}));
    EXPECT_TRUE(latecomers.late({7, 1}));
    EXPECT_FALSE(latecomers.late({8, 1}));
    EXPECT_FALSE(latecomers.late({7, 2}));
    EXPECT_FALSE(latecomers.late({7, 5}));
    EXPECT_TRUE(latecomers.late({7, 4}));
    EXPECT_FALSE(latecomers.late({7, UINT32_MAX}));
    EXPECT_TRUE(latecomers.late({7, 0}));
    EXPECT_EQ(latecomers.senders(), 1u);
}

TEST(Late, keepsNobodyThatNeverLostAConnectionAndNotTooManyOthers) {
    Latecomers latecomers;
    for (uint64_t sender = 0; sender < 100'000; ++sender) EXPECT_FALSE(latecomers.late({sender, 1}));
    EXPECT_EQ(latecomers.senders(), 0u);
    for (uint64_t sender = 0; sender < 100'000; ++sender) {
        EXPECT_FALSE(latecomers.late({sender, 2}));
        EXPECT_FALSE(latecomers.late({0, 3}));
    }
    EXPECT_EQ(latecomers.senders(), Latecomers::mostSenders);
    EXPECT_TRUE(latecomers.late({0, 2}));
    EXPECT_TRUE(latecomers.late({99'999, 1}));
    EXPECT_FALSE(latecomers.late({1, 1}));  // gave way
}

}  // namespace
}  // namespace quorl::transport::nats
