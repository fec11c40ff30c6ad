// Parts of the statistics.
#include "transport/statistics.h"

#include <gtest/gtest.h>

namespace quorl::transport::statistics {
namespace {

int asked = 0;

// A module's own code may ask for what it is asked for.
void fillAndAsk(message::Builder& message) noexcept {
    if (++asked != 1) return;
    message::Builder inner;
    fill(inner);
    message.u32("inner_status", inner.status());
}
constinit Part part{fillAndAsk};

TEST(Statistics, ask_each_part_once_and_hold_no_lock_meanwhile) {
    add(part);
    add(part);
    message::Builder message;
    fill(message);
    EXPECT_EQ(message.status(), QUORL_OK);
    EXPECT_EQ(asked, 2);
}

}  // namespace
}  // namespace quorl::transport::statistics
