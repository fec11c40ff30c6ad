// The rules of monitors one by one.
#include "ftolerance/protocol/monitor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace quorl::ftolerance {
namespace {

constexpr int64_t ms = 1'000'000;
constexpr int64_t second = 1000 * ms;

Frame frameOf(uint64_t id, State state, uint64_t sequence) {
    Frame frame;
    frame.state = state;
    frame.member = id;
    frame.sequence = sequence;
    frame.joined = 1;
    frame.activation = frame.latest = mayAct(state) ? 7 : 0;
    frame.intervals = {second, 0, 4 * second};
    return frame;
}

class Driven {
  public:
    explicit Driven(int64_t lostInterval) : machine(lostInterval) {
        MonitorOutput out;
        machine.start({0, 0}, out);
        keep(out);
    }
    void hear(int64_t at, const Frame& frame) {
        pass(at - 1);
        MonitorOutput out;
        machine.receive(frame, {at, 0}, out);
        keep(out);
    }
    void pass(int64_t until) {
        while (machine.due() <= until) tick(machine.due());
    }
    void tick(int64_t at) {
        MonitorOutput out;
        machine.tick({at, 0}, out);
        keep(out);
        EXPECT_GT(machine.due(), at);
    }
    size_t told(Event event) const {
        return static_cast<size_t>(std::ranges::count(advisories, event, &Advisory::event));
    }

    Monitor machine;
    std::vector<uint32_t> counts;
    std::vector<Advisory> advisories;

  private:
    void keep(const MonitorOutput& out) {
        counts.insert(counts.end(), out.counts.begin(), out.counts.end());
        advisories.insert(advisories.end(), out.advisories.begin(), out.advisories.end());
    }
};

using Counts = std::vector<uint32_t>;

TEST(FtMonitor, begins_with_the_first_count_that_it_knows) {
    Driven heard(3 * second);
    heard.hear(second, frameOf(1, State::standby, 1));
    EXPECT_EQ(heard.counts, Counts{}) << "a standby says nothing about others";
    heard.hear(2 * second, frameOf(2, State::active, 1));
    EXPECT_EQ(heard.counts, Counts{1});
}

TEST(FtMonitor, says_zero_only_when_it_has_heard_nobody_act_for_the_lost_interval) {
    Driven alone(3 * second);
    alone.pass(3 * second - 1);
    EXPECT_EQ(alone.counts, Counts{});
    alone.pass(3 * second);
    EXPECT_EQ(alone.counts, Counts{0});
    alone.pass(100 * second);
    EXPECT_EQ(alone.counts, Counts{0});
}

TEST(FtMonitor, says_zero_at_that_time_whatever_it_hears_before) {
    Driven one(3 * second);
    one.hear(2900 * ms, frameOf(1, State::standby, 1));
    one.pass(3 * second);
    EXPECT_EQ(one.counts, Counts{0});
}

TEST(FtMonitor, tells_of_weights_that_change) {
    Driven one(3 * second);
    Frame frame = frameOf(1, State::standby, 1);
    one.hear(second, frame);
    frame.sequence = 2;
    frame.weight = 9;
    one.hear(second, frame);
    ASSERT_EQ(one.told(Event::changed), 1u);
    EXPECT_EQ(one.advisories.back().about.weight, 9);
}

TEST(FtMonitor, counts_on_every_change_and_only_then) {
    Driven one(3 * second);
    one.hear(1 * second, frameOf(1, State::active, 1));
    one.hear(1 * second, frameOf(2, State::active, 1));
    one.hear(2 * second, frameOf(1, State::active, 2));
    one.hear(2 * second, frameOf(2, State::yielding, 2));
    EXPECT_EQ(one.counts, (Counts{1, 2})) << "a program that steps back may still act";
    one.hear(3 * second, frameOf(2, State::standby, 3));
    one.hear(3 * second, frameOf(1, State::active, 3));
    one.hear(4 * second, frameOf(1, State::left, 4));
    EXPECT_EQ(one.counts, (Counts{1, 2, 1, 0}));
    EXPECT_EQ(one.told(Event::joined), 2u);
    EXPECT_EQ(one.told(Event::left), 1u);
    EXPECT_EQ(one.told(Event::changed), 2u);
}

TEST(FtMonitor, lets_go_of_members_that_are_silent_for_the_lost_interval) {
    Driven one(3 * second);
    one.hear(second, frameOf(1, State::active, 1));
    one.pass(4 * second - 1);
    EXPECT_EQ(one.counts, Counts{1});
    one.pass(4 * second);
    EXPECT_EQ(one.counts, (Counts{1, 0}));
    EXPECT_EQ(one.told(Event::lost), 1u);
}

TEST(FtMonitor, believes_no_late_frame) {
    Driven one(3 * second);
    one.hear(second, frameOf(1, State::active, 5));
    one.hear(second, frameOf(1, State::standby, 4));
    one.hear(second, frameOf(1, State::standby, 5));
    EXPECT_EQ(one.counts, Counts{1});
    one.hear(second, frameOf(1, State::left, 6));
    one.hear(second, frameOf(1, State::active, 7));
    EXPECT_EQ(one.counts, (Counts{1, 0}));
}

TEST(FtMonitor, says_no_false_zero_after_a_pause) {
    Driven one(3 * second);
    one.hear(second, frameOf(1, State::active, 1));
    one.tick(20 * second);
    EXPECT_EQ(one.counts, Counts{1}) << "the frames of that time wait to be read";
    EXPECT_EQ(one.told(Event::paused), 1u);
    one.pass(23 * second);
    EXPECT_EQ(one.counts, (Counts{1, 0}));

    Driven other(3 * second);
    other.tick(20 * second);
    EXPECT_EQ(other.counts, Counts{});
    other.pass(23 * second);
    EXPECT_EQ(other.counts, Counts{0});
}

TEST(FtMonitor, tells_members_whose_heartbeats_come_too_seldom_for_it) {
    Driven one(second);
    one.hear(0, frameOf(1, State::active, 1));
    EXPECT_EQ(one.told(Event::disagreement), 1u);
}

// One whose heartbeats are further apart than that is lost and heard again with each of them.
TEST(FtMonitor, tells_a_member_that_comes_and_goes_once_until_its_intervals_change) {
    Driven one(second);
    for (uint64_t i = 1; i <= 20; ++i) one.hear(static_cast<int64_t>(i) * 2 * second, frameOf(1, State::active, i));
    EXPECT_GE(one.told(Event::lost), 19u);
    EXPECT_EQ(one.told(Event::disagreement), 1u);
    Frame frame = frameOf(1, State::active, 21);
    frame.intervals.heartbeat = 2 * second;
    one.hear(42 * second, frame);
    EXPECT_EQ(one.told(Event::disagreement), 2u);
    frame.sequence = 22;
    frame.intervals.heartbeat = second / 2;
    one.hear(42 * second, frame);
    frame.sequence = 23;
    frame.intervals.heartbeat = 2 * second;
    one.hear(42 * second, frame);
    EXPECT_EQ(one.told(Event::disagreement), 3u) << "it had agreed meanwhile";
    one.hear(42 * second, frameOf(1, State::left, 24));
    one.hear(42 * second, frameOf(2, State::left, 1));
    EXPECT_EQ(one.told(Event::disagreement), 3u) << "who has left does not matter";
}

TEST(FtMonitor, tells_all_that_the_members_of_a_large_group_do) {
    Driven one(3 * second);
    for (uint64_t id = 1; id <= 200; ++id) one.hear(second, frameOf(id, State::joining, 1));
    for (uint64_t id = 1; id <= 200; ++id) one.hear(second, frameOf(id, State::standby, 2));
    EXPECT_EQ(one.told(Event::joined), 200u);
    EXPECT_EQ(one.told(Event::changed), 200u);
    one.pass(10 * second);
    EXPECT_EQ(one.told(Event::lost), 200u);
    // But not without end.
    for (uint64_t i = 0; i < 5000; ++i)
        one.hear(10 * second, frameOf(1, i % 2 ? State::standby : State::claiming, i + 1));
    EXPECT_LE(one.told(Event::changed), 200u + Monitor::mostChanges);
}

TEST(FtMonitor, keeps_a_bounded_number_of_members) {
    Driven one(3 * second);
    for (uint64_t id = 1; id < 5000; ++id) one.hear(second, frameOf(id, State::active, 1));
    EXPECT_EQ(one.machine.peers().size(), Peers::most);
    EXPECT_EQ(one.counts.back(), Peers::most);
    EXPECT_EQ(one.told(Event::crowded), AdvisoryLimits::most);
    MonitorOutput out;
    one.machine.receive(std::vector<uint8_t>{1}, {second, 0}, out);
    ASSERT_EQ(out.advisories.size(), 1u);
    EXPECT_EQ(out.advisories[0].event, Event::malformed);
}

}  // namespace
}  // namespace quorl::ftolerance
