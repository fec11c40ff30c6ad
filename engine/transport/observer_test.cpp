// Who observes a way hears all of it in order, and a transport's state follows.
#include "transport/observer.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "transport/state.h"

namespace quorl::transport {
namespace {

class Recorder final : public Observer {
  public:
    void connected() noexcept override { words += "connected "; }
    void away(const Away& report) noexcept override { words += "away:" + std::string(report.reason) + " "; }
    void back(const Back&) noexcept override { words += "back "; }
    void lost(const Lost& report) noexcept override { words += "lost:" + std::string(report.reason) + " "; }
    void room() noexcept override { words += "room "; }
    void largestMessage(uint32_t bytes) noexcept override { words += std::to_string(bytes) + " "; }

    std::string words;
};

TEST(ObserversTest, hand_each_report_to_all_in_order) {
    Observers observers;
    const auto first = std::make_shared<Recorder>();
    const auto second = std::make_shared<Recorder>();
    observers.add(first);
    observers.add(second);
    observers.largestMessage(7);
    observers.connected();
    observers.room();
    observers.away({"pulled", 3});
    observers.back({});
    observers.lost({"cut", 1});
    EXPECT_EQ(first->words, "7 connected room away:pulled back lost:cut ");
    EXPECT_EQ(second->words, first->words);
}

TEST(ObserversTest, report_only_what_can_follow) {
    Observers observers;
    const auto recorder = std::make_shared<Recorder>();
    observers.add(recorder);
    observers.away({"never there", 0});
    observers.back({});
    observers.connected();
    observers.connected();
    observers.back({});
    observers.lost({"first", 0});
    observers.lost({"second", 0});
    observers.connected();
    observers.away({});
    EXPECT_EQ(recorder->words, "connected lost:first ");
    EXPECT_TRUE(observers.isLost());
}

TEST(ObserversTest, tell_who_comes_later_how_the_way_is) {
    Observers observers;
    const auto at = [&] {
        const auto recorder = std::make_shared<Recorder>();
        observers.add(recorder);
        observers.remove(*recorder);
        return recorder->words;
    };
    EXPECT_EQ(at(), "");
    observers.largestMessage(9);
    observers.connected();
    EXPECT_EQ(at(), "9 connected ");
    observers.away({"x", 0});
    EXPECT_EQ(at(), "9 connected away: ");
    observers.back({});
    EXPECT_EQ(at(), "9 connected ");
    observers.lost({"gone", 0});
    EXPECT_EQ(at(), "9 lost:gone ");
}

TEST(ObserversTest, leave_alone_who_was_removed) {
    Observers observers;
    const auto stays = std::make_shared<Recorder>();
    const auto leaves = std::make_shared<Recorder>();
    observers.add(leaves);
    observers.add(stays);
    observers.remove(*leaves);
    observers.connected();
    observers.room();
    EXPECT_EQ(leaves->words, "");
    EXPECT_EQ(stays->words, "connected room ");
    EXPECT_EQ(leaves.use_count(), 1);
}

TEST(TransportStateTest, wakes_who_waits_for_the_way) {
    for (const auto phase : {TransportState::Phase::connected, TransportState::Phase::closed}) {
        TransportState state(0);
        EXPECT_EQ(state.awaitConnected(monotonicNow()), TransportState::Phase::pending);
        std::thread waiter([&] { EXPECT_EQ(state.awaitConnected(forever), phase); });
        if (phase == TransportState::Phase::connected) state.connected();
        if (phase == TransportState::Phase::closed) state.close();
        waiter.join();
    }
}

TEST(TransportStateTest, wakes_who_waits_for_room_whatever_ends_the_waiting) {
    for (const int way : {0, 1}) {
        TransportState state(0);
        const uint32_t seen = state.roomReports();
        state.awaitRoom(seen, monotonicNow());
        EXPECT_EQ(state.roomReports(), seen) << "only the deadline has come";
        std::thread waiter([&] { state.awaitRoom(seen, forever); });
        if (way == 0) state.room();
        if (way == 1) state.close();
        waiter.join();
        EXPECT_NE(state.roomReports(), seen);
        state.awaitRoom(seen, forever);  // it has been reported meanwhile
    }
}

TEST(TransportStateTest, ends_closed_and_stays_so) {
    TransportState state(0);
    state.connected();
    state.away({});
    EXPECT_EQ(state.phase(), TransportState::Phase::away);
    state.back({});
    EXPECT_EQ(state.phase(), TransportState::Phase::connected);
    state.close();
    state.away({});
    state.lost({"late", 0});
    EXPECT_EQ(state.phase(), TransportState::Phase::closed);
}

}  // namespace
}  // namespace quorl::transport
