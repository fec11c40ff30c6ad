// What members tell of frames that are not as they should be: each advisory about a fault of the protocol, with its fields.
#include <string>

#include "companion/message.h"
#include "companion/transport.h"
#include "ftolerance/protocol/frame.h"
#include "ftolerance_support.h"

namespace quorltest {
namespace {

using quorl::companion::Message;
using quorl::ftolerance::encode;
using quorl::ftolerance::Frame;
using quorl::ftolerance::State;

constexpr int64_t milliseconds = 1'000'000;

class Stranger : public Group {
  protected:
    void say(std::span<const uint8_t> bytes) {
        Message message;
        ASSERT_EQ(Message::empty("_QUORL.FT.plant.archive", &message), QUORL_OK);
        ASSERT_EQ(message.withAttributes(bytes, &message), QUORL_OK);
        ASSERT_EQ(quorl::companion::send(transport, message), QUORL_OK);
    }
    void say(const Frame& frame) { say(encode(frame).span()); }

    static Frame frameOf(uint64_t member, State state) {
        Frame frame;
        frame.state = state;
        frame.member = member;
        frame.sequence = 1;
        frame.joined = 1;
        frame.activation = frame.latest = state == State::active ? 1 : 0;
        frame.intervals = {200 * milliseconds, 500 * milliseconds, 1000 * milliseconds};
        frame.label = quorl::ftolerance::Label("stranger");
        return frame;
    }
};

TEST_F(Stranger, every_fault_is_told_with_what_it_is_about) {
    listenToAdvisories();
    Watcher& watcher = newWatcher();
    ASSERT_EQ(watch(watcher), QUORL_OK);
    Program& one = newProgram();
    ASSERT_EQ(join(one, 2), QUORL_OK);
    const uint64_t own = std::stoull(await("INFO.ft.joined").texts.at("peer"), nullptr, 16);
    ASSERT_EQ(quorlftMonitor_Destroy(watcher.id), QUORL_OK);
    ASSERT_TRUE(until(one, "PA"));

    say(std::vector<uint8_t>{quorl::ftolerance::companionNumber, quorl::ftolerance::protocolVersion + 1});
    const Told malformed = await("WARN.ft.malformed");
    EXPECT_EQ(malformed.texts.at("reason"), "it is of another version of the protocol");
    EXPECT_EQ(malformed.texts.at("group"), "plant.archive");

    Frame forged = frameOf(own, State::standby);
    forged.sequence = uint64_t{1} << 40;
    say(forged);
    EXPECT_EQ(await("WARN.ft.impostor").texts.at("label"), "stranger");

    Frame active = frameOf(77, State::active);
    active.goal = 3;
    say(active);
    const Told tooMany = await("WARN.ft.too_many");
    EXPECT_EQ(tooMany.members, 2u);
    EXPECT_EQ(tooMany.seconds, 0);
    EXPECT_EQ(tooMany.texts.at("peer"), "000000000000004d");
    EXPECT_EQ(tooMany.texts.at("state"), "active");
    EXPECT_EQ(tooMany.token, quorl::ftolerance::tokenOf(1, 77));
    EXPECT_EQ(await("WARN.ft.disagreement").texts.at("label"), "stranger");
    EXPECT_EQ(await("WARN.ft.lost").texts.at("peer"), "000000000000004d");

    for (uint64_t member = 1000; member < 1000 + 1100; ++member) say(frameOf(member, State::joining));
    EXPECT_EQ(await("WARN.ft.crowded").members, 1024u);
    EXPECT_EQ(story.look([&] { return one.actions; }), "PA");
}

TEST_F(Stranger, one_that_does_not_step_back_is_told) {
    listenToAdvisories();
    Program& one = newProgram();
    ASSERT_EQ(join(one, 2), QUORL_OK);
    Frame active = frameOf(77, State::active);
    Told unheard;
    const auto told = [&] {
        for (const Told& each : advisories) {
            if (each.name == "WARN.ft.unheard") unheard = each;
        }
        return !unheard.name.empty();
    };
    do {
        say(active);
        ++active.sequence;
    } while (!story.within(heartbeat / 2, told) && static_cast<double>(active.sequence) * heartbeat / 2 < limit);
    EXPECT_EQ(unheard.texts.at("peer"), "000000000000004d");
    EXPECT_GE(unheard.seconds, activation);
    EXPECT_EQ(unheard.members, 0u);
}

TEST_F(Stranger, a_program_that_does_not_return_from_a_deactivation_is_told) {
    listenToAdvisories();
    Program& light = newProgram();
    Program& heavy = newProgram();
    ASSERT_EQ(join(light, 1), QUORL_OK);
    ASSERT_TRUE(until(light, "PA"));
    queue = newQueue();
    dispatch(queue);
    quorlTransport other = newTransport();
    listen(queue, other, "_QUORL.WARN.ft.slow", onAdvisory, this);
    light.holds = true;
    ASSERT_EQ(join(heavy, 2), QUORL_OK);
    EXPECT_TRUE(until(heavy, "PA"));
    const Told slow = await("WARN.ft.slow");
    EXPECT_EQ(slow.seconds, activation);
    EXPECT_EQ(slow.texts.at("group"), "plant.archive");
    story.change([&] { released = true; });
}

}  // namespace
}  // namespace quorltest
