// The rules of members one by one, with frames handed over by hand.
#include "ftolerance/protocol/member.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace quorl::ftolerance {
namespace {

constexpr int64_t ms = 1'000'000;
constexpr int64_t second = 1000 * ms;
constexpr Intervals intervals{second, 2 * second, 4 * second};

MemberSettings settings(uint16_t weight = 1, uint16_t goal = 1) {
    return {weight, goal, intervals};
}

// A member, and all that came out of it.
class Driven {
  public:
    explicit Driven(uint64_t id, MemberSettings given = settings())
        : machine(id, given, Label("m" + std::to_string(id))) {}

    // Calls change(machine, now, out) and keeps what comes of it.
    template <class F>
    std::vector<Frame> step(int64_t at, F&& change) {
        MemberOutput out;
        change(machine, Now{at, wall + at}, out);
        for (const Told& told : out.actions) {
            actions.push_back(told);
            text += "-PAD"[static_cast<int>(told.action)];
        }
        advisories.insert(advisories.end(), out.advisories.begin(), out.advisories.end());
        return out.frames;
    }
    std::vector<Frame> start(int64_t at) {
        return step(at, [](Member& member, Now now, MemberOutput& out) { member.start(now, out); });
    }
    std::vector<Frame> tick(int64_t at) {
        return step(at, [](Member& member, Now now, MemberOutput& out) { member.tick(now, out); });
    }
    std::vector<Frame> hear(int64_t at, const Frame& frame) {
        return step(at, [&](Member& member, Now now, MemberOutput& out) { member.receive(frame, now, out); });
    }
    std::vector<Frame> returned(int64_t at) {
        return step(at, [](Member& member, Now now, MemberOutput& out) { member.deactivated(now, out); });
    }
    std::vector<Frame> weigh(int64_t at, uint16_t weight) {
        return step(at, [&](Member& member, Now now, MemberOutput& out) { member.setWeight(weight, now, out); });
    }
    std::vector<Frame> leave(int64_t at) {
        return step(at, [](Member& member, Now now, MemberOutput& out) { member.leave(now, out); });
    }
    std::vector<Frame> stepAside(int64_t at) {
        return step(at, [](Member& member, Now now, MemberOutput& out) { member.stepAside(now, out); });
    }
    // Lets time pass; frames go nowhere.
    void pass(int64_t until) {
        while (machine.due() <= until) tick(machine.due());
    }

    size_t told(Event event) const {
        return static_cast<size_t>(std::ranges::count(advisories, event, &Advisory::event));
    }

    Member machine;
    std::vector<Told> actions;
    std::string text;  // of the actions: P, A, D
    std::vector<Advisory> advisories;
    static constexpr int64_t wall = 0;
};

// Members that hear each other at once.
class Group {
  public:
    Driven& add(uint64_t id, MemberSettings given = settings()) {
        members_.push_back(std::make_unique<Driven>(id, given));
        spread(*members_.back(), members_.back()->start(now));
        return *members_.back();
    }
    void spread(const Driven& from, const std::vector<Frame>& frames) {
        for (const Frame& frame : frames) {
            for (const auto& to : members_) {
                if (to.get() != &from && !isGone(*to)) spread(*to, to->hear(now, frame));
            }
        }
    }
    void pass(int64_t time) {
        const int64_t until = now + time;
        for (;;) {
            Driven* next = nullptr;
            for (const auto& one : members_) {
                if (!isGone(*one) && (next == nullptr || one->machine.due() < next->machine.due())) next = one.get();
            }
            if (next == nullptr || next->machine.due() > until) break;
            now = next->machine.due();
            spread(*next, next->tick(now));
        }
        now = until;
    }
    // It neither hears nor says anything any more.
    void kill(const Driven& one) { gone_.push_back(&one); }
    bool isGone(const Driven& one) const { return std::ranges::find(gone_, &one) != gone_.end(); }

    int64_t now = 1000 * second;

  private:
    std::vector<std::unique_ptr<Driven>> members_;
    std::vector<const Driven*> gone_;
};

Frame other(uint64_t id, State state, uint16_t weight = 1, uint64_t sequence = 1) {
    Frame frame;
    frame.state = state;
    frame.member = id;
    frame.sequence = sequence;
    frame.weight = weight;
    frame.joined = state == State::joining ? 0 : 1;
    frame.activation = frame.latest = mayAct(state) ? 7 : 0;
    frame.intervals = intervals;
    return frame;
}

TEST(FtMember, alone_prepares_and_activates_after_the_intervals_of_silence) {
    Driven one(1);
    EXPECT_EQ(one.start(0).size(), 1u);
    one.pass(2 * second - 1);
    EXPECT_EQ(one.text, "");
    one.pass(2 * second);
    EXPECT_EQ(one.text, "P");
    one.pass(4 * second - 1);
    EXPECT_EQ(one.text, "P");
    EXPECT_EQ(one.machine.state(), State::joining);
    one.pass(4 * second);
    EXPECT_EQ(one.text, "PA");
    EXPECT_EQ(one.machine.state(), State::active);
    one.pass(100 * second);
    EXPECT_EQ(one.text, "PA");
}

TEST(FtMember, without_a_preparation_interval_there_are_no_hints) {
    Driven one(1, {1, 1, {second, 0, 4 * second}});
    one.start(0);
    one.pass(100 * second);
    EXPECT_EQ(one.text, "A");
}

TEST(FtMember, sends_a_heartbeat_in_each_interval_and_no_more) {
    Driven one(1);
    size_t frames = one.start(0).size();
    while (one.machine.due() <= 100 * second) frames += one.tick(one.machine.due()).size();
    // The first one, one for each second, and two more when it is active.
    EXPECT_LE(frames, 103u);
    EXPECT_GE(frames, 100u);
}

TEST(FtMember, the_oldest_of_equal_weight_is_active_whatever_its_id) {
    Group group;
    Driven& first = group.add(9);
    group.pass(5 * second);
    Driven& second_ = group.add(1);
    group.pass(20 * second);
    EXPECT_EQ(first.text, "PA");
    EXPECT_EQ(second_.text, "");
    EXPECT_EQ(second_.machine.state(), State::standby);
}

TEST(FtMember, those_that_join_at_once_are_ranked_by_their_ids) {
    Group group;
    Driven& first = group.add(9);
    Driven& second_ = group.add(1);
    group.pass(20 * second);
    EXPECT_EQ(first.machine.state() == State::active, second_.machine.state() != State::active);
    EXPECT_EQ(first.machine.frame().joined + second_.machine.frame().joined, 3u)
        << "the second one heard the first one's place before it took its own";
}

TEST(FtMember, of_those_that_start_together_only_the_highest_ranked_activates) {
    constexpr uint16_t size = 5;
    std::vector<std::unique_ptr<Driven>> members;
    std::vector<Frame> frames;
    const auto all = [&](auto&& step) {
        std::vector<Frame> next;
        for (const auto& each : members) {
            for (const Frame& frame : step(*each)) next.push_back(frame);
        }
        frames = std::move(next);
    };
    const auto deliver = [&](int64_t at) {
        const std::vector<Frame> underWay = std::exchange(frames, {});
        all([&](Driven& to) {
            std::vector<Frame> answers;
            for (const Frame& frame : underWay) {
                for (const Frame& answer : to.hear(at, frame)) answers.push_back(answer);
            }
            return answers;
        });
    };
    for (uint16_t i = 1; i <= size; ++i) members.push_back(std::make_unique<Driven>(i, settings(i)));
    all([](Driven& each) { return each.start(0); });
    deliver(1);
    // All end joining before any of them has heard another do so.
    for (int64_t at = second; at <= 8 * second; at += second / 8) {
        all([&](Driven& each) { return each.tick(at); });
        while (!frames.empty()) deliver(at + ms);
    }
    for (const auto& each : members) EXPECT_EQ(each->text.find('A') != std::string::npos, each->machine.id() == size);
    EXPECT_EQ(members.back()->text, "PA");
    EXPECT_EQ(members.back()->told(Event::tooMany), 0u);
}

TEST(FtMember, a_heavier_one_takes_over_when_it_has_listened_and_the_other_has_stepped_back) {
    Group group;
    Driven& light = group.add(1, settings(1));
    group.pass(10 * second);
    Driven& heavy = group.add(2, settings(2));
    group.pass(4 * second - 1);
    EXPECT_EQ(light.text, "PA") << "a member that listens takes nobody's place";
    group.pass(1);
    EXPECT_EQ(light.text, "PAD");
    EXPECT_EQ(heavy.text, "P") << "the other's program has not returned";
    EXPECT_EQ(heavy.machine.state(), State::claiming);
    EXPECT_EQ(light.machine.state(), State::yielding);
    group.spread(light, light.returned(group.now));
    EXPECT_EQ(heavy.text, "PA");
    EXPECT_EQ(light.machine.state(), State::standby);
    EXPECT_EQ(light.machine.frame().activation, 0u);
    EXPECT_GT(heavy.actions.back().token, light.actions.back().token);
}

TEST(FtMember, a_program_that_does_not_return_from_deactivation_is_waited_for_no_longer_than_the_activation_interval) {
    Group group;
    Driven& light = group.add(1, settings(1));
    group.pass(10 * second);
    Driven& heavy = group.add(2, settings(2));
    group.pass(4 * second);
    ASSERT_EQ(light.text, "PAD");
    group.pass(4 * second - 1);
    EXPECT_EQ(heavy.text, "P");
    group.pass(1);
    EXPECT_EQ(heavy.text, "PA");
    EXPECT_EQ(light.told(Event::slow), 1u);
}

TEST(FtMember, the_wait_for_a_program_ends_when_the_activation_interval_does_and_not_with_a_heartbeat) {
    Group group;
    const Intervals uneven{second, 0, 2500 * ms};
    Driven& light = group.add(1, {1, 1, uneven});
    group.pass(10 * second);
    Driven& heavy = group.add(2, {2, 1, uneven});
    group.pass(2500 * ms);
    ASSERT_EQ(light.text, "AD");
    group.pass(2500 * ms - 1);
    EXPECT_EQ(heavy.text, "");
    group.pass(1);
    EXPECT_EQ(heavy.text, "A");
}

TEST(FtMember, the_next_one_is_hinted_and_takes_the_place_of_one_that_falls_silent) {
    Group group;
    Driven& first = group.add(1);
    group.pass(second);
    Driven& next = group.add(2);
    Driven& last = group.add(3);
    group.pass(20 * second);
    ASSERT_EQ(first.text, "PA");
    const int64_t heard = group.now;  // the heartbeats of all come at whole seconds
    group.kill(first);
    group.pass(2 * second);
    EXPECT_EQ(next.text, "P");
    EXPECT_EQ(last.text, "");
    group.pass(2 * second);
    EXPECT_LE(group.now, heard + 4 * second);
    EXPECT_EQ(next.text, "PA");
    EXPECT_EQ(last.text, "");
    EXPECT_EQ(next.told(Event::lost), 1u);
    EXPECT_GT(next.actions.back().token, first.actions.back().token);
}

TEST(FtMember, a_hint_that_came_to_nothing_comes_again_and_nothing_takes_it_back) {
    Driven one(1);
    one.start(0);
    uint64_t sequence = 0;
    auto silentFor = [&, at = int64_t{0}](int64_t time) mutable {
        one.hear(at, other(2, State::active, 9, ++sequence));
        one.pass(at + time);
        at += time;
    };
    for (int i = 0; i < 8; ++i) silentFor(second);
    EXPECT_EQ(one.text, "");
    silentFor(3 * second);
    EXPECT_EQ(one.text, "P");
    for (int i = 0; i < 8; ++i) silentFor(second);
    EXPECT_EQ(one.text, "P");
    silentFor(3 * second);
    EXPECT_EQ(one.text, "PP");
    silentFor(5 * second);
    EXPECT_EQ(one.text, "PPPA");
}

TEST(FtMember, one_that_leaves_says_so_and_the_next_takes_its_place_at_once_hinted_in_the_same_step) {
    Group group;
    Driven& first = group.add(1);
    group.pass(second);
    Driven& next = group.add(2);
    group.pass(20 * second);
    ASSERT_EQ(first.text, "PA");
    group.spread(first, first.leave(group.now));
    group.kill(first);
    EXPECT_EQ(next.text, "PA");
    EXPECT_EQ(next.told(Event::left), 1u);
    EXPECT_EQ(next.told(Event::lost), 0u);
    EXPECT_EQ(first.text, "PA") << "whoever leaves is told nothing more";
    EXPECT_EQ(first.machine.due(), INT64_MAX);
    EXPECT_EQ(first.machine.state(), State::left);
}

TEST(FtMember, nothing_comes_out_of_one_that_has_left) {
    Driven one(1);
    one.start(0);
    one.pass(5 * second);
    one.leave(5 * second);
    const size_t actions = one.actions.size();
    EXPECT_TRUE(one.leave(6 * second).empty());
    EXPECT_TRUE(one.hear(6 * second, other(2, State::claiming, 9)).empty());
    EXPECT_TRUE(one.weigh(6 * second, 3).empty());
    EXPECT_TRUE(one.tick(7 * second).empty());
    EXPECT_TRUE(one.returned(8 * second).empty());
    EXPECT_EQ(one.actions.size(), actions);
}

// Its thread is not the one that tells actions, so there must be none.
TEST(FtMember, one_that_leaves_after_a_pause_is_told_nothing) {
    Driven one(1);
    one.start(0);
    one.pass(5 * second);
    const std::vector<Frame> frames = one.leave(100 * second);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].state, State::left);
    EXPECT_EQ(one.text, "PA");
    EXPECT_TRUE(one.advisories.empty());
}

TEST(FtMember, one_that_is_cut_off_for_good_tells_its_program_and_nobody_else) {
    Driven one(1);
    one.start(0);
    one.pass(5 * second);
    const auto abandon = [](Member& member, Now now, MemberOutput& out) { member.abandon(now, out); };
    EXPECT_TRUE(one.step(5 * second, abandon).empty());
    EXPECT_EQ(one.text, "PAD");
    EXPECT_EQ(one.actions.back().cause, Cause::cutOff);
    EXPECT_EQ(one.machine.due(), INT64_MAX);
    one.step(6 * second, abandon);
    EXPECT_EQ(one.text, "PAD");
    Driven standby(1);
    standby.start(0);
    standby.step(second, abandon);
    EXPECT_EQ(standby.text, "");
}

TEST(FtMember, one_that_steps_aside_hands_over_stays_and_is_never_active_again) {
    Group group;
    Driven& first = group.add(1, settings(9));
    group.pass(10 * second);
    Driven& next = group.add(2);
    group.pass(20 * second);
    ASSERT_EQ(first.text, "PA");
    group.spread(first, first.stepAside(group.now));
    EXPECT_EQ(first.text, "PAD");
    EXPECT_EQ(first.actions.back().cause, Cause::rank);
    group.spread(first, first.returned(group.now));
    EXPECT_EQ(next.text, "PA") << "it takes the place at once, whatever its weight";
    EXPECT_TRUE(first.stepAside(group.now).empty()) << "once";
    group.pass(60 * second);
    EXPECT_EQ(first.text, "PAD");
    EXPECT_EQ(next.told(Event::left) + next.told(Event::lost), 0u) << "it is heard";
    EXPECT_EQ(next.machine.peers().size(), 1u);
    // Also when it is alone, or weighs more.
    group.kill(next);
    group.spread(first, first.weigh(group.now, 99));
    group.pass(60 * second);
    EXPECT_EQ(first.text, "PAD");
    EXPECT_EQ(first.machine.state(), State::joining);
    EXPECT_LT(first.machine.due(), INT64_MAX) << "it says that it is there";
    // Until it is asked to.
    const auto joinAnew = [](Member& member, Now now, MemberOutput& out) { member.joinAnew(now, out); };
    group.spread(first, first.step(group.now, joinAnew));
    group.pass(4 * second - 1);
    EXPECT_EQ(first.text, "PADP") << "it listens first";
    EXPECT_TRUE(first.step(group.now, joinAnew).empty()) << "once";
    group.pass(1);
    EXPECT_EQ(first.text, "PADPA");
}

TEST(FtMember, one_that_steps_aside_before_it_was_ranked_takes_no_place) {
    Group group;
    Driven& first = group.add(1, settings(9));
    group.spread(first, first.stepAside(group.now));
    Driven& other_ = group.add(2);
    group.pass(20 * second);
    EXPECT_EQ(first.text, "");
    EXPECT_EQ(other_.text, "PA");
    EXPECT_EQ(other_.machine.frame().joined, 1u);
    EXPECT_EQ(other_.leave(group.now).size(), 1u);
    EXPECT_TRUE(other_.stepAside(group.now).empty());
    EXPECT_EQ(other_.text, "PA");
    EXPECT_EQ(other_.machine.state(), State::left);
}

TEST(FtMember, one_that_is_heard_otherwise_is_not_silent) {
    Driven one(1);
    const auto hears = [&](int64_t at, uint64_t member) {
        one.step(at, [&](Member& machine, Now now, MemberOutput&) { machine.heard(member, now); });
    };
    one.start(0);
    one.hear(second / 2, other(2, State::active, 9));
    for (int64_t at = second; at <= 30 * second; at += second) {
        one.pass(at);
        hears(at, 2);
    }
    EXPECT_EQ(one.text, "");
    EXPECT_EQ(one.told(Event::lost), 0u);
    // It is suspected, and then not any more: the next suspicion hints again.
    one.pass(33 * second);
    EXPECT_EQ(one.text, "P");
    hears(33 * second, 2);
    one.pass(34 * second);
    EXPECT_EQ(one.told(Event::lost), 0u);
    one.pass(35 * second);
    EXPECT_EQ(one.text, "PP");
    one.pass(37 * second);
    EXPECT_EQ(one.text, "PPA");
    EXPECT_EQ(one.told(Event::lost), 1u);
}

TEST(FtMember, whoever_is_not_known_or_has_left_is_not_heard_otherwise) {
    Driven one(1);
    const auto hears = [&](int64_t at, uint64_t member) {
        one.step(at, [&](Member& machine, Now now, MemberOutput&) { machine.heard(member, now); });
    };
    one.start(0);
    hears(0, 3);
    EXPECT_EQ(one.machine.peers().size(), 0u);
    one.hear(second, other(2, State::active, 9, 5));
    one.hear(second, other(2, State::left, 9, 6));
    for (int64_t at = second; at <= 10 * second; at += second / 2) {
        one.pass(at);
        hears(at, 2);
    }
    EXPECT_EQ(one.machine.peers().size(), 0u) << "it is forgotten in time";
    EXPECT_EQ(one.text, "PA");
}

TEST(FtMember, a_late_frame_of_one_that_left_does_not_bring_it_back) {
    Driven one(1);
    one.start(0);
    Frame active = other(2, State::active, 9, 5);
    one.hear(second, active);
    Frame left = other(2, State::left, 9, 6);
    one.hear(2 * second, left);
    active.sequence = 4;
    one.hear(2 * second + 1, active);
    active.sequence = 7;
    one.hear(2 * second + 2, active);
    one.pass(4 * second);
    EXPECT_EQ(one.text, "PA");
    // In time it is forgotten.
    one.pass(7 * second);
    EXPECT_EQ(one.machine.peers().size(), 0u);
}

TEST(FtMember, old_and_repeated_frames_change_nothing) {
    Driven one(1);
    one.start(0);
    one.hear(second, other(2, State::standby, 9, 5));
    one.hear(second, other(2, State::active, 9, 5));
    one.hear(second, other(2, State::active, 9, 4));
    one.machine.peers().each([](const Peer& peer) { EXPECT_EQ(peer.last.state, State::standby); });
    one.hear(second, other(2, State::active, 9, 6));
    one.machine.peers().each([](const Peer& peer) { EXPECT_EQ(peer.last.state, State::active); });
}

TEST(FtMember, does_not_activate_beside_one_above_it_that_claims) {
    Driven one(1, settings(5, 2));
    one.start(0);
    for (uint64_t i = 1; i <= 8; ++i) {
        const auto at = static_cast<int64_t>(i) * second;
        Frame above = other(2, State::claiming, 9, i);
        Frame below = other(3, State::active, 1, i);
        above.goal = below.goal = 2;
        one.hear(at, above);
        one.hear(at, below);
        one.pass(at);
    }
    EXPECT_EQ(one.machine.state(), State::claiming) << "the two places are taken";
    EXPECT_EQ(one.text, "P");
}

TEST(FtMember, goes_on_beside_one_above_it_that_takes_long_to_step_back) {
    Driven one(1);
    one.start(0);
    one.pass(5 * second);
    for (uint64_t i = 1; i <= 10; ++i) {
        const auto at = (5 + static_cast<int64_t>(i)) * second;
        one.hear(at, other(2, State::yielding, 9, i));
        one.pass(at);
    }
    EXPECT_EQ(one.text, "PA");
    EXPECT_EQ(one.told(Event::tooMany), 1u);
}

TEST(FtMember, sees_in_whichever_step_that_another_is_silent) {
    Driven one(1);
    one.start(0);
    one.pass(5500 * ms);
    ASSERT_EQ(one.text, "PA");
    one.hear(5500 * ms, other(2, State::active, 9));
    one.returned(5700 * ms);  // its heartbeats fall beside what comes
    ASSERT_EQ(one.text, "PAD");
    const Frame old = other(3, State::standby, 1);
    one.pass(7200 * ms);
    one.hear(7200 * ms, old);
    one.pass(7500 * ms - 1);
    EXPECT_EQ(one.text, "PAD");
    one.hear(7500 * ms, old);
    EXPECT_EQ(one.text, "PADP");
    one.pass(9500 * ms - 1);
    EXPECT_EQ(one.text, "PADP");
    one.hear(9500 * ms, old);
    EXPECT_EQ(one.text, "PADPA");
}

TEST(FtMember, as_many_as_the_goal_are_active) {
    for (const uint16_t goal : {1, 2, 3, 7}) {
        Group group;
        std::vector<Driven*> members;
        for (uint64_t id = 1; id <= 5; ++id) {
            members.push_back(&group.add(id, settings(1, goal)));
            group.pass(second / 2);
        }
        group.pass(20 * second);
        for (size_t i = 0; i < members.size(); ++i)
            EXPECT_EQ(members[i]->machine.state() == State::active, i < goal) << goal << ' ' << i;
    }
}

TEST(FtMember, a_weight_that_changes_changes_the_rank_at_once) {
    Group group;
    Driven& first = group.add(1, settings(5));
    group.pass(second);
    Driven& next = group.add(2, settings(4));
    group.pass(20 * second);
    ASSERT_EQ(first.text, "PA");
    group.spread(first, first.weigh(group.now, 3));
    EXPECT_EQ(first.text, "PAD");
    group.spread(first, first.returned(group.now));
    EXPECT_EQ(next.text, "PA");
    // Back again, but not within a heartbeat of the deactivation.
    group.spread(first, first.weigh(group.now, 9));
    EXPECT_EQ(next.text, "PA");
    group.pass(second);
    EXPECT_EQ(next.text, "PAD");
    group.spread(next, next.returned(group.now));
    EXPECT_EQ(first.text, "PADPA");
}

TEST(FtMember, a_weight_that_rises_claims_at_once) {
    Driven one(1);
    one.start(0);
    for (uint64_t i = 1; i <= 5; ++i) {
        one.hear(static_cast<int64_t>(i) * second, other(2, State::active, 5, i));
        one.pass(static_cast<int64_t>(i) * second);
    }
    ASSERT_EQ(one.machine.state(), State::standby);
    const std::vector<Frame> frames = one.weigh(5 * second + ms, 9);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].state, State::claiming);
}

TEST(FtMember, a_goal_of_the_highest_ranked_that_changes_counts_at_once) {
    Driven one(1);
    one.start(0);
    uint64_t sequence = 0;
    for (int64_t at = second; at <= 5 * second; at += second) {
        one.hear(at, other(2, State::active, 5, ++sequence));
        one.pass(at);
    }
    Frame more = other(2, State::active, 5, ++sequence);
    more.goal = 2;
    one.hear(5 * second + ms, more);
    EXPECT_EQ(one.machine.state(), State::active);
}

TEST(FtMember, the_goal_of_the_highest_ranked_counts_and_the_disagreement_is_told_once) {
    Group group;
    Driven& first = group.add(1, settings(5, 2));
    group.pass(second);
    Driven& next = group.add(2, settings(4, 1));
    group.pass(20 * second);
    EXPECT_EQ(first.machine.state(), State::active);
    EXPECT_EQ(next.machine.state(), State::active);
    EXPECT_EQ(first.told(Event::disagreement), 1u);
    EXPECT_EQ(next.told(Event::disagreement), 1u);
    group.spread(next, next.weigh(group.now, 9));
    group.pass(second);
    EXPECT_EQ(first.text, "PAD");
}

TEST(FtMember, other_intervals_are_told) {
    Driven one(1);
    one.start(0);
    Frame frame = other(2, State::standby);
    frame.intervals.activation += second;
    one.hear(second, frame);
    frame.sequence = 2;
    one.hear(second, frame);
    EXPECT_EQ(one.told(Event::disagreement), 1u);
    frame.sequence = 3;
    frame.intervals.activation += second;
    one.hear(second, frame);
    EXPECT_EQ(one.told(Event::disagreement), 2u);
    frame.sequence = 4;
    frame.intervals = intervals;
    one.hear(second, frame);
    EXPECT_EQ(one.told(Event::disagreement), 2u);
    frame.sequence = 5;
    frame.intervals.activation += 2 * second;
    one.hear(second, frame);
    EXPECT_EQ(one.told(Event::disagreement), 3u) << "it had agreed meanwhile";
}

TEST(FtMember, a_disagreement_with_one_that_was_lost_meanwhile_is_not_told_again) {
    Driven one(1);
    one.start(0);
    Frame slow = other(2, State::standby);
    slow.intervals = {5 * second, 0, 20 * second};
    for (; slow.sequence <= 20; ++slow.sequence) {
        const int64_t at = static_cast<int64_t>(slow.sequence) * 5 * second;
        one.pass(at - 1);
        one.hear(at, slow);
    }
    EXPECT_GE(one.told(Event::lost), 19u);
    EXPECT_EQ(one.told(Event::disagreement), 1u);
    slow.state = State::left;
    one.hear(101 * second, slow);
    EXPECT_EQ(one.told(Event::disagreement), 1u);
}

TEST(FtMember, an_active_one_that_stood_still_steps_back_in_its_first_step_and_listens_anew) {
    Driven one(1);
    one.start(0);
    one.pass(10 * second);
    ASSERT_EQ(one.text, "PA");
    const std::vector<Frame> frames = one.tick(14 * second);
    EXPECT_EQ(one.text, "PAD");
    EXPECT_EQ(one.actions.back().cause, Cause::paused);
    EXPECT_EQ(one.told(Event::paused), 1u);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].state, State::yielding);
    one.returned(14 * second);
    EXPECT_EQ(one.machine.state(), State::joining);
    one.pass(18 * second - 1);
    EXPECT_EQ(one.text, "PADP");
    one.pass(18 * second);
    EXPECT_EQ(one.text, "PADPA");
    EXPECT_EQ(one.machine.frame().joined, 1u) << "its age stays";
}

TEST(FtMember, the_first_step_after_a_pause_may_be_a_frame_or_a_call) {
    for (int which = 0; which < 3; ++which) {
        Driven one(1);
        one.start(0);
        one.pass(10 * second);
        if (which == 0) one.hear(20 * second, other(2, State::standby));
        if (which == 1) one.weigh(20 * second, 5);
        if (which == 2)
            one.step(20 * second, [](Member& member, Now now, MemberOutput& out) {
                member.receive(std::vector<uint8_t>{1, 2, 3}, now, out);
            });
        EXPECT_EQ(one.text, "PAD") << which;
    }
}

TEST(FtMember, an_active_one_that_stood_still_for_less_goes_on) {
    Driven one(1);
    one.start(0);
    one.pass(10 * second);
    one.tick(13500 * ms);
    EXPECT_EQ(one.text, "PA");
    EXPECT_EQ(one.told(Event::paused), 1u);
}

// Its pauses are shorter than two heartbeats, and the others would be gone by then.
TEST(FtMember, of_little_patience_sees_that_it_stood_still_and_not_the_others) {
    const Intervals close{second, 0, 1500 * ms};
    Driven one(1, {1, 1, close});
    one.start(0);
    Frame active = other(2, State::active, 9);
    active.intervals = close;
    one.hear(0, active);
    one.pass(second);
    active.sequence = 2;
    one.hear(second, active);
    one.tick(2600 * ms);
    one.pass(4 * second);
    EXPECT_EQ(one.told(Event::paused), 1u);
    EXPECT_EQ(one.text, "");
    one.pass(4100 * ms);
    EXPECT_EQ(one.text, "A");
}

TEST(FtMember, an_active_one_steps_back_after_the_shortest_activation_interval_that_it_heard_of) {
    Driven one(1);
    one.start(0);
    one.pass(10 * second);
    Frame hasty = other(2, State::standby);
    hasty.intervals = {second, 0, 2500 * ms};
    one.hear(10 * second, hasty);
    one.tick(12600 * ms);
    EXPECT_EQ(one.text, "PAD");
}

TEST(FtMember, a_standby_that_stood_still_takes_nobody_for_silent) {
    Driven one(1);
    one.start(0);
    one.hear(0, other(2, State::active, 9));
    one.pass(second);
    one.tick(20 * second);
    EXPECT_EQ(one.text, "") << "the others' frames wait to be read";
    EXPECT_EQ(one.told(Event::lost), 0u);
    EXPECT_EQ(one.machine.peers().size(), 1u);
    EXPECT_EQ(one.machine.state(), State::joining);
    one.hear(20 * second, other(2, State::active, 9, 2));
    one.pass(23 * second);
    EXPECT_EQ(one.text, "P");
    one.pass(24 * second);
    EXPECT_EQ(one.text, "PA");
}

TEST(FtMember, a_late_step_reads_first_what_has_come) {
    Driven one(1, {1, 1, {second, 0, 3 * second}});
    one.start(0);
    one.pass(2900 * ms);
    one.tick(3500 * ms);
    EXPECT_EQ(one.text, "");
    one.pass(3800 * ms);
    EXPECT_EQ(one.text, "A");
}

TEST(FtMember, a_step_that_is_late_again_within_a_heartbeat_does_not_wait_again) {
    Driven one(1, {1, 1, {second, 0, 3 * second}});
    one.start(0);
    one.pass(2900 * ms);
    one.tick(3500 * ms);
    EXPECT_EQ(one.text, "");
    one.tick(4100 * ms);
    EXPECT_EQ(one.text, "A");
}

TEST(FtMember, after_a_partition_the_lower_one_steps_back_and_knows_that_there_were_too_many) {
    Driven high(1, settings(2));
    Driven low(2, settings(1));
    high.start(0);
    low.start(0);
    high.pass(5 * second);
    low.pass(5 * second);
    ASSERT_EQ(high.text + low.text, "PAPA");
    const uint64_t before = low.machine.token();
    low.hear(5 * second, high.machine.frame());
    EXPECT_EQ(low.text, "PAD");
    EXPECT_EQ(low.actions.back().token, before);
    high.hear(5 * second, other(2, State::active, 1, 50));
    EXPECT_EQ(high.text, "PA");
    EXPECT_EQ(high.told(Event::tooMany), 1u);
}

TEST(FtMember, gets_a_new_token_when_another_had_a_higher_one_meanwhile) {
    Driven one(1, settings(9));
    one.start(0);
    one.pass(10 * second);
    ASSERT_EQ(one.text, "PA");
    const uint64_t old = one.machine.token();
    // The other side of a partition has activated later.
    Frame higher = other(2, State::active, 1, 1);
    higher.activation = higher.latest = (old >> 16) + 7;
    one.hear(10 * second, higher);
    EXPECT_EQ(one.text, "PA") << "it still acts, and has to step back first";
    higher.state = State::standby;
    higher.activation = 0;
    higher.sequence = 2;
    const std::vector<Frame> frames = one.hear(10 * second + 1, higher);
    EXPECT_EQ(one.text, "PADPA");
    EXPECT_EQ(one.actions[2].cause, Cause::token);
    EXPECT_EQ(one.actions[2].token, old);
    EXPECT_GT(one.machine.token() >> 16, higher.latest);
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames.back().activation, one.machine.token() >> 16) << "the others are told at once";
    // Not twice in a heartbeat interval, whatever is claimed.
    higher.latest += 1000;
    higher.sequence = 3;
    one.hear(10 * second + 2, higher);
    EXPECT_EQ(one.text, "PADPA");
}

TEST(FtMember, gets_a_new_token_no_sooner_than_a_heartbeat_after_its_activation) {
    Driven one(1);
    one.start(0);
    one.pass(4 * second);
    ASSERT_EQ(one.text, "PA");
    Frame higher = other(2, State::standby);
    higher.latest = (one.machine.token() >> 16) + 7;
    one.hear(4 * second + 1, higher);
    one.pass(5 * second - 1);
    EXPECT_EQ(one.text, "PA") << "whoever claims high tokens does not make it activate more often than heartbeats go";
    one.pass(5 * second);
    EXPECT_EQ(one.text, "PADPA");
}

TEST(FtMember, gets_a_new_token_when_it_hears_of_a_higher_number_and_nothing_else) {
    Driven one(1, settings(9));
    one.start(0);
    one.pass(10 * second);
    Frame higher = other(2, State::standby);
    one.hear(10 * second + ms, higher);
    higher.sequence = 2;
    higher.latest = (one.machine.token() >> 16) + 7;
    one.hear(10 * second + 2 * ms, higher);
    EXPECT_EQ(one.text, "PADPA");
}

TEST(FtMember, gets_a_new_token_above_one_of_the_same_number) {
    Driven one(1, settings(9));
    one.start(0);
    one.pass(10 * second);
    Frame same = other(2, State::active);
    same.activation = same.latest = one.machine.token() >> 16;
    ASSERT_GT(tokenOf(same.activation, 2), one.machine.token());
    one.hear(10 * second, same);
    same.state = State::standby;
    same.activation = 0;
    same.sequence = 2;
    one.hear(10 * second + 1, same);
    EXPECT_EQ(one.text, "PADPA");
    EXPECT_GT(one.machine.token() >> 16, same.latest);
}

// The one that stays active may not hear the frame with the other token.
TEST(FtMember, one_that_steps_back_tells_a_higher_number_than_that_of_another_with_its_own) {
    Driven one(1);
    one.start(0);
    one.pass(10 * second);
    Frame same = other(2, State::active, 9);
    same.activation = same.latest = one.machine.token() >> 16;
    const std::vector<Frame> frames = one.hear(10 * second, same);
    ASSERT_EQ(one.text, "PAD");
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].latest, same.latest + 1);

    Driven late(1);
    late.start(0);
    late.pass(10 * second);
    late.hear(10 * second, other(3, State::claiming, 9));
    ASSERT_EQ(late.text, "PAD");
    ASSERT_EQ(late.machine.frame().latest, same.latest);
    late.hear(10 * second, same);
    EXPECT_EQ(late.machine.frame().latest, same.latest + 1);
}

TEST(FtMember, with_a_goal_above_one_keeps_its_token) {
    Driven one(1, settings(9, 2));
    one.start(0);
    one.pass(10 * second);
    Frame higher = other(2, State::standby);
    higher.goal = 2;
    higher.latest = (one.machine.token() >> 16) + 7;
    one.hear(10 * second, higher);
    one.pass(13 * second);
    EXPECT_EQ(one.text, "PA");
}

TEST(FtMember, gets_no_new_token_when_the_numbers_have_come_to_their_end) {
    Driven one(1, settings(9));
    one.start(0);
    Frame last = other(2, State::standby);
    last.latest = highestActivation;
    one.hear(second, last);
    one.pass(4 * second + second / 2);  // it claims at first
    ASSERT_EQ(one.machine.token(), tokenOf(highestActivation, 1));
    last.state = State::active;
    last.activation = highestActivation;
    last.sequence = 2;
    one.hear(5 * second, last);
    last.state = State::standby;
    last.activation = 0;
    last.sequence = 3;
    one.hear(5 * second, last);
    one.pass(8 * second);
    EXPECT_EQ(one.text, "PA");
}

TEST(FtMember, steps_back_when_a_lower_one_acts_and_does_not_hear_it) {
    Driven one(1, settings(9));
    one.start(0);
    one.pass(10 * second);
    ASSERT_EQ(one.text, "PA");
    uint64_t sequence = 0;
    int64_t at = 10 * second;
    for (; at < 14 * second; at += second) {
        one.hear(at, other(2, State::active, 1, ++sequence));
        one.pass(at + second - 1);
    }
    EXPECT_EQ(one.text, "PA") << "one that hears it has the time to step back";
    one.hear(at, other(2, State::active, 1, ++sequence));
    one.pass(at + second - 1);
    EXPECT_EQ(one.text, "PADP");
    EXPECT_EQ(one.actions[2].cause, Cause::unheard);
    one.returned(at + second);
    one.hear(at + second, other(2, State::active, 1, ++sequence));
    one.pass(at + 2 * second);
    EXPECT_EQ(one.machine.state(), State::claiming);
    // Now it is heard.
    one.hear(at + 2 * second, other(2, State::standby, 1, ++sequence));
    EXPECT_EQ(one.machine.state(), State::active);
}

TEST(FtMember, does_not_activate_while_it_hears_as_many_as_the_goal_active) {
    Driven one(1, settings(9));
    one.start(0);
    uint64_t sequence = 0;
    int64_t at = 0;
    for (int i = 0; i < 20; ++i) {
        one.hear(at, other(2, State::active, 1, ++sequence));
        one.pass(at + second);
        at += second;
    }
    EXPECT_EQ(one.text, "P");
    EXPECT_EQ(one.machine.state(), State::claiming);
    EXPECT_EQ(one.told(Event::unheard), 1u) << "the other does not hear that it is to step back";
}

TEST(FtMember, activation_numbers_exceed_all_that_was_heard_of_and_the_wall_clock) {
    Driven one(1);
    one.start(0);
    Frame frame = other(2, State::standby);
    frame.latest = 1'000'000;
    one.hear(second, frame);
    one.hear(second, other(2, State::left, 1, 2));
    one.pass(5 * second);
    EXPECT_EQ(one.actions.back().token, tokenOf(1'000'001, 1));
    EXPECT_EQ(one.machine.frame().latest, 1'000'001u);

    Member late(3, settings(), {});
    MemberOutput out;
    late.start({0, 1'800'000'000 * second}, out);
    for (int64_t at = second; at <= 4 * second; at += second) late.tick({at, 1'800'000'000 * second}, out);
    EXPECT_EQ(late.token(), tokenOf(1'800'000'000'000, 3));
    // A clock before 1970 is as good as none.
    Member early(3, settings(), {});
    early.start({0, -5 * second}, out);
    for (int64_t at = second; at <= 4 * second; at += second) early.tick({at, -5 * second}, out);
    EXPECT_EQ(early.token(), tokenOf(1, 3));
}

TEST(FtMember, one_that_hears_its_own_name_from_a_stranger_says_so_and_goes_on_being_heard) {
    Driven one(1);
    const Frame own = one.start(0).front();
    one.hear(0, own);
    EXPECT_EQ(one.told(Event::impostor), 0u);
    Frame forged = other(1, State::left, 1, UINT64_MAX);
    one.hear(second / 2, forged);
    EXPECT_EQ(one.told(Event::impostor), 0u) << "so far behind that it counts as old";
    forged.sequence = uint64_t{1} << 62;
    one.hear(second / 2, forged);
    EXPECT_EQ(one.told(Event::impostor), 1u);
    const std::vector<Frame> next = one.tick(second);
    ASSERT_EQ(next.size(), 1u);
    EXPECT_EQ(next[0].sequence, forged.sequence + 1);
    EXPECT_NE(next[0].state, State::left);
}

TEST(FtMember, sends_eight_frames_beside_its_heartbeats_at_most) {
    Driven one(1);
    one.start(0);
    one.pass(5 * second);
    uint16_t weight = 1;
    for (int64_t at : {5 * second, 6 * second}) {
        one.tick(at);
        size_t frames = 0;
        for (int i = 0; i < 40; ++i) frames += one.weigh(at, ++weight).size();
        EXPECT_EQ(frames, 8u);
    }
    EXPECT_EQ(one.tick(7 * second).front().weight, weight);
}

TEST(FtMember, is_hinted_no_more_often_than_heartbeats_go) {
    Driven one(1, settings(5));
    one.start(0);
    uint64_t sequence = 0;
    for (int64_t at = second; at <= 5 * second; at += second) {
        one.hear(at, other(2, State::active, 9, ++sequence));
        one.pass(at);
    }
    ASSERT_EQ(one.text, "");
    for (int i = 0; i < 50; ++i) {
        one.hear(5 * second, other(3, State::active, 1, ++sequence));
        one.hear(5 * second, other(2, State::joining, 9, ++sequence));
        one.hear(5 * second, other(2, State::standby, 9, ++sequence));
    }
    EXPECT_EQ(one.text, "P");
}

TEST(FtMember, invented_members_cost_bounded_memory_frames_and_advisories) {
    Driven one(1);
    one.start(0);
    one.pass(5 * second);
    size_t frames = 0;
    for (uint64_t id = 2; id < 5000; ++id) frames += one.hear(5 * second, other(id, State::claiming, 9)).size();
    EXPECT_EQ(one.machine.peers().size(), Peers::most);
    EXPECT_LE(frames, 8u);
    EXPECT_EQ(one.told(Event::crowded), AdvisoryLimits::most);
    EXPECT_EQ(one.told(Event::joined), AdvisoryLimits::most);
    // A hostile member that changes its mind with each frame.
    for (uint64_t i = 2; i < 5000; ++i) {
        frames += one.hear(5 * second, other(2, i % 2 == 0 ? State::claiming : State::joining, 9, i)).size();
        frames += one.returned(5 * second).size();
    }
    EXPECT_LE(frames, 16u);
    EXPECT_LE(one.actions.size(), 8u);
    EXPECT_LE(one.advisories.size(), events * AdvisoryLimits::most);
    one.pass(20 * second);
    EXPECT_EQ(one.machine.peers().size(), 0u);
    EXPECT_EQ(one.machine.state(), State::active);
}

TEST(FtMember, what_was_suppressed_is_counted_in_the_next_advisory) {
    Driven one(1);
    one.start(0);
    const auto malformed = [&](int64_t at) {
        one.step(at, [](Member& member, Now now, MemberOutput& out) {
            member.receive(std::vector<uint8_t>{9, 9}, now, out);
        });
    };
    for (int i = 0; i < 20; ++i) malformed(second);
    EXPECT_EQ(one.told(Event::malformed), AdvisoryLimits::most);
    one.pass(5 * second);
    malformed(5 * second + 1);
    EXPECT_EQ(one.advisories.back().event, Event::malformed);
    EXPECT_EQ(one.advisories.back().suppressed, 20u - AdvisoryLimits::most);
    EXPECT_STREQ(one.advisories.back().reason, "it is no frame of a fault-tolerance member");
}

TEST(FtMember, a_group_of_a_hundred_wakes_a_member_no_more_often_than_its_heartbeats) {
    Driven one(1);
    one.start(0);
    for (int64_t at = 0; at < 60 * second; at += second) {
        uint64_t ticks = 0;
        for (uint64_t id = 2; id <= 100; ++id) {
            const int64_t time = at + static_cast<int64_t>(id) * 5 * ms;
            while (one.machine.due() <= time) {
                one.tick(one.machine.due());
                ++ticks;
            }
            one.hear(time, other(id, State::standby, 2, static_cast<uint64_t>(at) + 1));
        }
        EXPECT_LE(ticks, 4u);
    }
}

}  // namespace
}  // namespace quorl::ftolerance
