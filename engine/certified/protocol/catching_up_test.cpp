// A listener that comes late gets what was kept for it as fast as the way carries it, not by one question a second.
#include <gtest/gtest.h>

#include "certified/protocol/machine.h"
#include "certified/protocol/test_support.h"

namespace quorl::certified {
namespace {

TEST(CatchingUp, takesNoPauseBetweenQuestionsThatWereAnswered) {
    constexpr uint64_t kept = 5000;
    Net net;
    Peer sender(net, named("s"));
    net.pass(2 * second);
    ASSERT_EQ(sender.step([&](Machine& machine, Output& out) { return machine.addListener("l", "a", net.now, out); }),
              QUORL_OK);
    for (uint64_t i = 0; i < kept; ++i) ASSERT_EQ(sender.send("a"), QUORL_OK);
    Settings late = named("l");
    late.requestOld = true;
    Peer listener(net, late);
    listener.listen("a");
    net.pass(4 * second);
    const auto numbers = listener.numbers("a");
    ASSERT_EQ(numbers.size(), kept);
    for (uint64_t i = 0; i < kept; ++i) ASSERT_EQ(numbers[i], i + 1);
}

}  // namespace
}  // namespace quorl::certified
