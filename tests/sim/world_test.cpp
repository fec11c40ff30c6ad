// The simulated world itself: that it repeats, and that each fault does what its name says.
#include "sim/world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "sim/explore.h"
#include "sim/message.h"

namespace quorl::sim {
namespace {

enum Work : uint32_t { publish, write, writeAndSync };

// What a node's programs told, over all their starts.
struct Diary {
    std::vector<uint64_t> heard;
    std::vector<uint64_t> safe;
    std::vector<Time> ticks;
    uint32_t refusedWrites = 0;
    uint32_t withoutRoom = 0;
};

// Publishes numbers on "to.<other node>" or "all", keeps what it hears, and writes what it is told to.
class Writer : public Program {
  public:
    Writer(Node& node, Diary& diary) : node_(node), diary_(diary) {
        node_.subscribe("to." + std::to_string(node.number()), 7);
        node_.subscribe("all", 8);
        due_ = node.monotonic() + second;
    }
    Time due() const override { return due_; }
    void tick() override {
        EXPECT_GE(node_.monotonic(), due_);
        diary_.ticks.push_back(node_.monotonic());
        due_ += second;
    }
    void receive(uint32_t, const message::ContentRef& content) override { diary_.heard.push_back(numberOf(content)); }
    void persisted(uint64_t token) override { diary_.safe.push_back(token); }
    void work(const WorkStep& step) override {
        const std::string key = std::to_string(step.argument);
        switch (step.kind) {
            case publish:
                if (!node_.publish(numbered(node_.number() == 0 ? "to.1" : "to.0", step.argument)))
                    ++diary_.withoutRoom;
                break;
            case writeAndSync:
            case write:
                if (!node_.put(key, "x")) ++diary_.refusedWrites;
                if (step.kind == writeAndSync) node_.sync(step.argument);
                break;
        }
    }

  private:
    Node& node_;
    Diary& diary_;
    Time due_;
};

struct Trial {
    explicit Trial(const Plan& plan)
        : diaries(plan.nodes),
          world(
              plan, [this](Node& node) { return std::make_unique<Writer>(node, diaries[node.number()]); },
              [](const message::ContentRef& content) { return static_cast<uint32_t>(numberOf(content) % 10); }) {}
    std::vector<Diary> diaries;
    World world;
};

Plan quiet(uint64_t seed = 1) {
    Plan plan;
    plan.seed = seed;
    plan.healedAt = 100 * second;
    return plan;
}

void publishEvery(Plan& plan, Time pause, uint32_t count, uint32_t node = 0) {
    for (uint32_t i = 0; i < count; ++i) plan.work.push_back({pause * (i + 1), node, publish, i});
}

std::vector<uint64_t> upTo(uint64_t count) {
    std::vector<uint64_t> numbers;
    for (uint64_t i = 0; i < count; ++i) numbers.push_back(i);
    return numbers;
}

TEST(World, repeats_a_plan_to_the_last_event_and_no_other) {
    Random random(4711);
    Plan plan = quiet(4711);
    plan.nodes = 3;
    plan.rates = {
        .loss = 100'000, .duplication = 100'000, .shortest = millisecond, .longest = 80 * millisecond, .drift = 500};
    plan.faults = drawFaults(random, 3, {.most = 30});
    publishEvery(plan, 20 * millisecond, 200);
    const auto traceOf = [](const Plan& of) {
        Trial run(of);
        run.world.run(20 * second);
        return std::pair(run.world.trace(), run.world.events());
    };
    const auto first = traceOf(plan);
    EXPECT_EQ(traceOf(plan), first);
    plan.seed = 4712;
    EXPECT_NE(traceOf(plan), first);
}

TEST(World, without_faults_brings_each_message_once_and_in_order) {
    Plan plan = quiet();
    plan.rates.longest = 50 * millisecond;
    plan.rates.inOrder = true;
    publishEvery(plan, millisecond, 300);
    Trial run(plan);
    run.world.run(10 * second);
    EXPECT_EQ(run.diaries[1].heard, upTo(300));
    EXPECT_TRUE(run.diaries[0].heard.empty());
}

TEST(World, loses_duplicates_and_reorders_as_the_rates_say) {
    Plan plan = quiet();
    plan.rates = {.loss = 300'000, .duplication = 0, .shortest = millisecond, .longest = 2 * millisecond};
    publishEvery(plan, 10 * millisecond, 1000);
    const auto heard = [&] {
        Trial run(plan);
        run.world.run(20 * second);
        return run.diaries[1].heard;
    };
    const size_t survivors = heard().size();
    EXPECT_GT(survivors, 600u);
    EXPECT_LT(survivors, 800u);
    plan.rates = {.loss = 0, .duplication = 300'000, .shortest = millisecond, .longest = 2 * millisecond};
    EXPECT_GT(heard().size(), 1200u);
    plan.rates = {.loss = 0, .duplication = 0, .shortest = millisecond, .longest = 100 * millisecond};
    auto mixed = heard();
    EXPECT_NE(mixed, upTo(1000));
    std::ranges::sort(mixed);
    EXPECT_EQ(mixed, upTo(1000));
}

TEST(World, cuts_one_way_or_both_for_a_time_and_heals_for_good) {
    for (const Fault fault : {Fault::cut, Fault::split, Fault::isolate}) {
        Plan plan = quiet();
        publishEvery(plan, 10 * millisecond, 100, 0);
        publishEvery(plan, 10 * millisecond, 100, 1);
        plan.faults.push_back(
            {.at = 205 * millisecond, .fault = fault, .node = 0, .peer = 1, .lasts = 300 * millisecond});
        Trial run(plan);
        run.world.run(10 * second);
        EXPECT_EQ(run.diaries[1].heard.size(), 70u);
        EXPECT_EQ(run.diaries[0].heard.size(), fault == Fault::cut ? 100u : 70u);
        plan.healedAt = 405 * millisecond;
        Trial healed(plan);
        healed.world.run(10 * second);
        EXPECT_EQ(healed.diaries[1].heard.size(), 80u);
    }
}

TEST(World, loses_messages_of_one_class_or_holds_them_back_while_the_others_get_through) {
    Plan plan = quiet();
    publishEvery(plan, 10 * millisecond, 100);
    std::vector<uint64_t> without7 = upTo(100);
    std::erase_if(without7, [](uint64_t number) { return number % 10 == 7 && number < 40; });
    plan.faults.push_back(
        {.at = 0, .fault = Fault::lose, .node = 0, .peer = 1, .lasts = 405 * millisecond, .amount = 7});
    {
        Trial run(plan);
        run.world.run(10 * second);
        EXPECT_EQ(run.diaries[1].heard, without7);
    }
    // To all, and back behind what was sent when it was over.
    plan.faults[0].fault = Fault::hold;
    plan.faults[0].peer = 0;
    for (const bool inOrder : {false, true}) {
        plan.rates.inOrder = inOrder;
        Trial run(plan);
        run.world.run(395 * millisecond);
        EXPECT_EQ(run.diaries[1].heard.size(), 35u);
        run.world.run(10 * second);
        EXPECT_EQ(run.diaries[1].heard.size(), 100u);
    }
    plan.faults[0].node = plan.faults[0].peer = 1;
    Trial other(plan);
    other.world.run(10 * second);
    EXPECT_EQ(other.diaries[1].heard, upTo(100));
}

TEST(World, after_the_healing_leaves_the_others_cut_off) {
    Plan plan = quiet();
    plan.healedAt = 505 * millisecond;
    plan.healed = 1;  // the first alone
    publishEvery(plan, 10 * millisecond, 100);
    Trial run(plan);
    run.world.run(10 * second);
    EXPECT_EQ(run.diaries[1].heard.size(), 50u);
}

TEST(World, a_paused_node_handles_what_came_when_it_goes_on) {
    Plan plan = quiet();
    publishEvery(plan, 10 * millisecond, 100);
    plan.faults.push_back({.at = 0, .fault = Fault::pause, .node = 1, .lasts = 5 * second});
    Trial run(plan);
    run.world.run(4 * second);
    EXPECT_TRUE(run.diaries[1].heard.empty());
    EXPECT_TRUE(run.diaries[1].ticks.empty());
    run.world.run(6 * second);
    EXPECT_EQ(run.diaries[1].heard, upTo(100));
    EXPECT_FALSE(run.diaries[1].ticks.empty());
}

TEST(World, a_killed_program_keeps_what_it_wrote_and_a_power_loss_what_was_synced_and_a_first_part_of_the_rest) {
    bool lostSome = false;
    bool keptSome = false;
    for (uint64_t seed = 1; seed <= 40; ++seed) {
        for (const Fault fault : {Fault::kill, Fault::powerLoss}) {
            Plan plan = quiet(seed);
            for (uint32_t i = 0; i < 10; ++i)
                plan.work.push_back({millisecond * (i + 1), 0, i == 4 ? writeAndSync : write, i});
            plan.faults.push_back({.at = 20 * millisecond, .fault = fault, .node = 0, .lasts = second});
            Trial run(plan);
            run.world.run(500 * millisecond);
            EXPECT_EQ(run.world.node(0).program(), nullptr);
            run.world.run(2 * second);
            EXPECT_NE(run.world.node(0).program(), nullptr);
            EXPECT_EQ(run.world.node(0).starts(), 2u);
            EXPECT_EQ(run.diaries[0].safe, std::vector<uint64_t>{4});
            const auto& stored = run.world.node(0).stored();
            if (fault == Fault::kill) {
                EXPECT_EQ(stored.size(), 10u);
                continue;
            }
            ASSERT_GE(stored.size(), 5u);
            for (size_t i = 0; i < stored.size(); ++i) EXPECT_TRUE(stored.contains(std::to_string(i)));
            lostSome |= stored.size() < 10;
            keptSome |= stored.size() > 5;
        }
    }
    EXPECT_TRUE(lostSome);
    EXPECT_TRUE(keptSome);
}

TEST(World, a_program_that_dies_at_its_third_write_has_written_two) {
    Plan plan = quiet();
    for (uint32_t i = 0; i < 10; ++i) plan.work.push_back({millisecond * (i + 1), 0, write, i});
    plan.faults.push_back({.at = 0, .fault = Fault::killAt, .node = 0, .lasts = 2500 * microsecond, .amount = 3});
    Trial run(plan);
    run.world.run(second);
    // The third was its end, and two more came while it was down.
    EXPECT_EQ(run.world.node(0).starts(), 2u);
    EXPECT_EQ(run.world.node(0).stored().size(), 7u);
}

TEST(World, after_the_healing_no_program_dies_of_a_fault_from_before) {
    Plan plan = quiet();
    plan.healedAt = 4500 * microsecond;
    for (uint32_t i = 0; i < 10; ++i) plan.work.push_back({millisecond * (i + 1), 0, write, i});
    plan.faults.push_back({.at = 0, .fault = Fault::killAt, .node = 0, .lasts = second, .amount = 6});
    Trial run(plan);
    run.world.run(2 * second);
    EXPECT_EQ(run.world.node(0).starts(), 1u);
    EXPECT_EQ(run.world.node(0).stored().size(), 10u);
}

TEST(World, a_full_disk_refuses_writes) {
    Plan plan = quiet();
    for (uint32_t i = 0; i < 10; ++i) plan.work.push_back({millisecond * (i + 1), 0, write, i});
    plan.faults.push_back({.at = 3500 * microsecond, .fault = Fault::diskFull, .node = 0, .lasts = 4 * millisecond});
    Trial run(plan);
    run.world.run(second);
    EXPECT_EQ(run.diaries[0].refusedWrites, 4u);
    EXPECT_EQ(run.world.node(0).stored().size(), 6u);
}

TEST(World, without_room_a_send_is_refused_and_sends_nothing) {
    Plan plan = quiet();
    publishEvery(plan, 10 * millisecond, 10);
    plan.faults.push_back({.at = 35 * millisecond, .fault = Fault::noRoom, .node = 0, .lasts = 40 * millisecond});
    Trial run(plan);
    run.world.run(second);
    EXPECT_EQ(run.diaries[0].withoutRoom, 4u);
    EXPECT_EQ(run.diaries[1].heard, (std::vector<uint64_t>{0, 1, 2, 7, 8, 9}));
}

// A machine that was without power counts from its start, and knows the time of day all the same.
TEST(World, a_power_loss_starts_the_monotonic_clock_anew_and_a_kill_does_not) {
    bool wentBack = false;
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        for (const Fault fault : {Fault::kill, Fault::powerLoss}) {
            Plan plan = quiet(seed);
            plan.faults.push_back({.at = 50 * second, .fault = fault, .node = 0, .lasts = second});
            Trial run(plan);
            run.world.run(40 * second);
            const Time monotonic = run.world.node(0).monotonic() - run.world.now();
            const Time wall = run.world.node(0).wall() - run.world.now();
            run.world.run(90 * second);
            EXPECT_EQ(run.world.node(0).starts(), 2u);
            EXPECT_EQ(run.world.node(0).wall() - run.world.now(), wall);
            if (fault == Fault::powerLoss) {
                wentBack |= run.world.node(0).monotonic() < monotonic + 40 * second;
            } else {
                EXPECT_EQ(run.world.node(0).monotonic() - run.world.now(), monotonic);
            }
            EXPECT_GT(run.diaries[0].ticks.size(), 80u) << "its timers go on by the new clock";
        }
    }
    EXPECT_TRUE(wentBack);
}

TEST(World, syncs_take_their_time_and_come_in_order) {
    Plan plan = quiet();
    for (uint32_t i = 0; i < 100; ++i) plan.work.push_back({millisecond * (i + 1), 0, writeAndSync, i});
    Trial run(plan);
    run.world.run(second);
    EXPECT_EQ(run.diaries[0].safe, upTo(100));
}

TEST(World, clocks_drift_apart_and_a_wall_clock_jumps_without_the_other) {
    Plan plan = quiet(3);
    plan.nodes = 8;
    plan.rates.drift = 2000;
    plan.healedAt = 2000 * second;
    plan.faults.push_back({.at = second, .fault = Fault::wallClock, .node = 0, .amount = -3600 * second});
    Trial run(plan);
    std::vector<Time> monotonic;
    std::vector<Time> wall;
    for (uint32_t i = 0; i < plan.nodes; ++i) {
        monotonic.push_back(run.world.node(i).monotonic());
        wall.push_back(run.world.node(i).wall());
    }
    run.world.run(1000 * second);
    const Time passed = run.world.now();
    std::map<Time, int> rates;
    for (uint32_t i = 0; i < plan.nodes; ++i) {
        const Time elapsed = run.world.node(i).monotonic() - monotonic[i];
        EXPECT_LE(std::abs(elapsed - passed), passed / 500);
        ++rates[elapsed];
        const Time jump = i == 0 ? -3600 * second : 0;
        EXPECT_LE(std::abs(run.world.node(i).wall() - wall[i] - jump - passed), passed / 500);
        // A timer of a second came once in each of the node's seconds, and never early.
        EXPECT_EQ(static_cast<Time>(run.diaries[i].ticks.size()), elapsed / second);
    }
    EXPECT_GT(rates.size(), 4u);
}

// A planted fault: a program that cannot stand the loss of the message with number 5.
TEST(Explore, shrinks_a_failure_to_what_it_needs) {
    Exploration exploration;
    exploration.draw = [](uint64_t seed) {
        Random random(seed);
        Plan plan = quiet(seed);
        plan.rates = drawRates(random);
        plan.rates.loss = 0;
        plan.faults = drawFaults(random, 2, {.most = 20, .span = 2 * second});
        publishEvery(plan, 50 * millisecond, 40);
        return plan;
    };
    exploration.run = [](const Plan& plan) -> std::string {
        Trial run(plan);
        run.world.run(plan.healedAt);
        bool published = false;
        for (const WorkStep& step : plan.work) published |= step.argument == 5;
        const auto& heard = run.diaries[1].heard;
        return !published || std::ranges::find(heard, 5u) != heard.end() ? "" : "5 is missing";
    };
    exploration.nameOfWork = [](const WorkStep&) { return std::string("publish"); };
    exploration.plans = 2000;
    const Explored explored = explore(exploration);
    ASSERT_TRUE(explored.failed());
    EXPECT_EQ(explored.broken, "5 is missing");
    EXPECT_EQ(explored.shrunk.faults.size(), 1u) << explored.report;
    EXPECT_EQ(explored.shrunk.work.size(), 1u) << explored.report;
    EXPECT_EQ(explored.shrunk.rates.duplication, 0u);
    EXPECT_NE(explored.report.find("QUORL_SEED=" + std::to_string(explored.failedSeed)), std::string::npos);
    EXPECT_NE(explored.report.find("publish"), std::string::npos);
    // The seed alone brings it back.
    EXPECT_EQ(exploration.run(exploration.draw(explored.failedSeed)), "5 is missing");
}

}  // namespace
}  // namespace quorl::sim
