// What members of a queue do with tasks, and what the program is told.
#include "dqueue/protocol/machine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "certified/protocol/frame.h"
#include "dqueue/protocol/test_support.h"

namespace quorl::dqueue {
namespace {

TEST(DqueueMachine, gives_a_task_to_one_worker_and_confirms_it_when_it_is_completed) {
    TestQueue group;
    const size_t first = group.join(settingsOf(2));
    const size_t other = group.join(settingsOf(1));
    group.pass(2 * second);
    EXPECT_TRUE(group.counts(first).scheduler);
    EXPECT_FALSE(group.counts(other).scheduler);
    group.send(1);
    group.pass(second);
    ASSERT_EQ(group.member(first).tasks.size() + group.member(other).tasks.size(), 1u);
    EXPECT_EQ(group.kept(), 1u);
    const size_t worker = group.member(first).tasks.empty() ? other : first;
    const Task task = group.member(worker).tasks.front();
    EXPECT_TRUE(task.certified);
    EXPECT_EQ(task.message.subject(), "t.a");
    EXPECT_EQ(certified::requesterOf(task.message), "sender");
    EXPECT_EQ(group.member(worker).machine->taskOf(task.message), task.number);
    group.complete(worker);
    group.pass(second);
    EXPECT_EQ(group.kept(), 0u);
    EXPECT_EQ(group.counts(worker).unreported, 0u);
    group.call(worker, [&](Machine& machine, Output& out) {
        EXPECT_EQ(machine.complete(task.number, group.now(), out), QUORL_NOT_FOUND);
        EXPECT_EQ(machine.complete(0, group.now(), out), QUORL_NOT_FOUND);
        EXPECT_EQ(machine.giveBack(task.number, group.now(), out), QUORL_NOT_FOUND);
    });
}

TEST(DqueueMachine, shares_tasks_by_weight_while_workers_have_room) {
    TestQueue group;
    const std::vector<uint32_t> weights = {1, 2, 3, 5, 8};
    uint32_t sum = 0;
    for (const uint32_t weight : weights) {
        group.member(group.join(settingsOf(1, weight, 1000))).completes = true;
        sum += weight;
    }
    group.pass(2 * second);
    for (int i = 0; i < 40; ++i) {
        group.send(50);
        group.pass(20 * millisecond);
    }
    group.pass(second);
    for (size_t i = 0; i < weights.size(); ++i) {
        const double share = 2000.0 * weights[i] / sum;
        EXPECT_NEAR(static_cast<double>(group.member(i).given), share, share / 20) << weights[i];
    }
    EXPECT_EQ(group.kept(), 0u);
}

// What was given to members from first on, in proportion to their weights, to within 5 percent.
void expectShares(TestQueue& group, size_t first, const std::vector<uint32_t>& weights,
                  const std::vector<uint64_t>& before) {
    double all = 0;
    double sum = 0;
    for (size_t i = 0; i < weights.size(); ++i) {
        all += static_cast<double>(group.member(first + i).given - before[i]);
        sum += weights[i];
    }
    ASSERT_GT(all, 0);
    for (size_t i = 0; i < weights.size(); ++i) {
        const double share = all * weights[i] / sum;
        EXPECT_NEAR(static_cast<double>(group.member(first + i).given - before[i]), share, share / 20) << weights[i];
    }
}

TEST(DqueueMachine, shares_tasks_by_weight_under_the_next_scheduler_and_as_the_weights_are_now) {
    TestQueue group;
    const size_t scheduler = group.join(settingsOf(2, 1, 0));
    const std::vector<uint32_t> weights = {1, 2, 4};
    for (const uint32_t weight : weights) group.member(group.join(settingsOf(1, weight, 1000))).completes = true;
    const auto given = [&] {
        return std::vector<uint64_t>{group.member(1).given, group.member(2).given, group.member(3).given};
    };
    group.pass(2 * second);
    group.send(350);
    group.pass(second);
    expectShares(group, 1, weights, {0, 0, 0});
    group.member(scheduler).dead = true;
    group.pass(3 * second);
    std::vector<uint64_t> before = given();
    group.send(350);
    group.pass(second);
    expectShares(group, 1, weights, before);
    group.call(
        1, [&](Machine& machine, Output& out) { EXPECT_EQ(machine.setWorkerWeight(4, group.now(), out), QUORL_OK); });
    group.pass(second);
    before = given();
    group.send(900);
    group.pass(second);
    expectShares(group, 1, {4, 2, 4}, before);
}

// Each does all that it holds in the same time, however much that is, and there is always more.
TEST(DqueueMachine, shares_by_capacity_when_all_are_full) {
    TestQueue group;
    const std::vector<uint32_t> weights = {1, 2, 4};
    for (const uint32_t weight : weights) group.join(settingsOf(1, weight, 10 * weight));
    group.pass(2 * second);
    group.send(1000);
    group.pass(100 * millisecond);
    for (int round = 0; round < 10; ++round) {
        for (size_t i = 0; i < weights.size(); ++i) {
            ASSERT_EQ(group.member(i).tasks.size(), size_t{10} * weights[i]) << "all are full";
        }
        for (size_t i = 0; i < weights.size(); ++i) {
            for (size_t left = group.member(i).tasks.size(); left != 0; --left) group.complete(i);
        }
        group.pass(100 * millisecond);
    }
    expectShares(group, 0, weights, {0, 0, 0});
}

TEST(DqueueMachine, makes_the_oldest_of_equal_weight_the_scheduler) {
    TestQueue group;
    const size_t first = group.join(settingsOf(1));
    group.pass(2 * second);
    const size_t next = group.join(settingsOf(1));
    group.pass(2 * second);
    const size_t last = group.join(settingsOf(1));
    group.pass(5 * second);
    EXPECT_TRUE(group.counts(first).scheduler);
    group.member(first).dead = true;
    group.pass(3 * second);
    EXPECT_TRUE(group.counts(next).scheduler);
    EXPECT_FALSE(group.counts(last).scheduler);
    EXPECT_EQ(group.counts(last).schedulerMember, group.member(next).machine->id());
}

TEST(DqueueMachine, prefers_the_greater_weight_and_respects_room) {
    TestQueue group;
    const size_t light = group.join(settingsOf(2, 1, 2));
    const size_t heavy = group.join(settingsOf(1, 10, 3));
    group.pass(2 * second);
    group.send(1);
    EXPECT_EQ(group.member(heavy).tasks.size(), 1u);
    group.send(9);
    EXPECT_EQ(group.member(heavy).tasks.size(), 3u);
    EXPECT_EQ(group.member(light).tasks.size(), 2u);
    group.pass(second);
    EXPECT_EQ(group.counts(light).unassigned, 5u);
    EXPECT_EQ(group.counts(heavy).unassigned, 5u);
    group.call(heavy, [&](Machine& machine, Output& out) {
        EXPECT_EQ(machine.setWorkerTasks(5, group.now(), out), QUORL_OK);
    });
    group.pass(second);
    EXPECT_EQ(group.member(heavy).tasks.size(), 5u);
}

TEST(DqueueMachine, prefers_the_greater_weight_to_the_more_room) {
    TestQueue group;
    const size_t light = group.join(settingsOf(2, 1, 100));
    const size_t heavy = group.join(settingsOf(1, 10, 1));
    group.pass(2 * second);
    group.send(1);
    EXPECT_EQ(group.member(heavy).tasks.size(), 1u);
    group.send(1);
    EXPECT_EQ(group.member(light).tasks.size(), 1u);
}

TEST(DqueueMachine, takes_a_lost_worker_s_tasks_back) {
    TestQueue group;
    const size_t first = group.join(settingsOf(2));
    const size_t other = group.join(settingsOf(1, 5));
    group.pass(2 * second);
    group.send(1);
    ASSERT_EQ(group.member(other).tasks.size(), 1u);
    group.member(other).dead = true;
    group.pass(2 * second);
    ASSERT_EQ(group.member(first).tasks.size(), 1u);
    EXPECT_EQ(group.member(first).tasks.front().reassigned, 1u);
    EXPECT_EQ(group.member(first).told(Event::Kind::workerLost), 1u);
    EXPECT_EQ(group.member(first).told(Event::Kind::taskReassigned), 1u);
}

TEST(DqueueMachine, goes_on_with_the_next_scheduler_and_does_nothing_twice) {
    TestQueue group;
    const size_t first = group.join(settingsOf(3, 1, 1));
    const size_t other = group.join(settingsOf(2, 1, 2));
    const size_t third = group.join(settingsOf(1, 1, 2));
    group.pass(2 * second);
    group.send(6);
    ASSERT_EQ(group.member(other).tasks.size(), 2u);
    ASSERT_EQ(group.member(third).tasks.size(), 2u);
    group.member(first).dead = true;
    group.member(other).completes = group.member(third).completes = true;
    const int64_t from = group.time();
    group.complete(other);  // nobody hears of it yet
    while (!group.counts(other).scheduler && group.time() - from < 10 * second) group.pass(10 * millisecond);
    EXPECT_LE(group.time() - from, 700 * millisecond * 3 / 2);
    group.complete(other);
    group.complete(third);
    group.complete(third);
    group.pass(5 * second);
    EXPECT_EQ(group.kept(), 0u);
    // Six tasks, one of which the first had too.
    EXPECT_EQ(group.member(first).given + group.member(other).given + group.member(third).given, 7u);
    EXPECT_GE(group.member(third).told(Event::Kind::schedulerChanged), 2u);
}

TEST(DqueueMachine, makes_a_task_that_fails_too_often_a_dead_letter_with_its_history) {
    TestQueue group;
    Settings settings = settingsOf(2);
    settings.reassignments = 2;
    const size_t only = group.join(settings);
    group.pass(2 * second);
    group.send(1);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(group.member(only).tasks.size(), 1u);
        group.giveBack(only);
        group.pass(second);
    }
    ASSERT_EQ(group.member(only).letters.size(), 1u);
    const DeadLetter& letter = group.member(only).letters.front();
    EXPECT_EQ(letter.subject, "_QUORL.DEADLETTER.the.queue");
    EXPECT_EQ(letter.reassigned, 3u);
    EXPECT_EQ(letter.history.size(), 3u);
    EXPECT_EQ(letter.history.front().label, "member");
    EXPECT_EQ(letter.message.subject(), "t.a");
    EXPECT_TRUE(group.member(only).tasks.empty());
    EXPECT_EQ(group.kept(), 0u);
    EXPECT_EQ(group.member(only).told(Event::Kind::deadLetter), 1u);
}

TEST(DqueueMachine, gives_a_task_to_another_when_the_complete_time_has_passed) {
    TestQueue group;
    Settings settings = settingsOf(2);
    settings.completeTime = 2 * second;
    const size_t first = group.join(settings);
    settings.schedulerWeight = 1;
    settings.workerWeight = 9;
    const size_t other = group.join(settings);
    group.pass(2 * second);
    group.send(1);
    ASSERT_EQ(group.member(other).tasks.size(), 1u);
    group.pass(3 * second);
    ASSERT_EQ(group.member(first).tasks.size(), 1u);
    group.complete(first);
    group.complete(other);
    group.pass(second);
    EXPECT_EQ(group.counts(first).completedTwice, 1u);
    EXPECT_EQ(group.member(first).told(Event::Kind::completedTwice), 1u);
    EXPECT_EQ(group.kept(), 0u);
}

TEST(DqueueMachine, leaves_tasks_beyond_the_limit_with_their_senders) {
    TestQueue group;
    Settings settings = settingsOf(1);
    settings.backlogMessages = 4;
    const size_t only = group.join(settings);
    group.pass(2 * second);
    group.send(20);
    EXPECT_EQ(group.counts(only).unassigned, 4u);
    EXPECT_EQ(group.member(only).told(Event::Kind::backlogFull), 1u);
    EXPECT_EQ(group.kept(), 20u);
    group.sendPlain();
    EXPECT_EQ(group.counts(only).dropped, 1u);
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(group.member(only).tasks.size(), 1u) << i;
        group.complete(only);
        group.pass(200 * millisecond);
    }
    group.pass(second);
    EXPECT_EQ(group.kept(), 0u);
    EXPECT_GE(group.member(only).told(Event::Kind::backlogCleared), 1u);
}

TEST(DqueueMachine, leaves_tasks_beyond_the_limit_of_bytes_with_their_senders) {
    TestQueue group;
    Settings settings = settingsOf(1, 1, 0);
    const uint64_t size = TestQueue::messageTo("t.a").image().size();
    settings.backlogBytes = 3 * size;
    const size_t only = group.join(settings);
    group.pass(2 * second);
    group.send(20);
    EXPECT_EQ(group.counts(only).unassigned, 3u);
    EXPECT_EQ(group.counts(only).unassignedBytes, 3 * size);
    EXPECT_EQ(group.member(only).told(Event::Kind::backlogFull), 1u);
    group.call(only, [&](Machine& machine, Output& out) {
        EXPECT_EQ(machine.setBacklog(0, 5 * size, group.now(), out), QUORL_OK);
    });
    group.pass(second);
    EXPECT_EQ(group.counts(only).unassigned, 5u) << "a limit that is raised holds at once";
    group.call(only,
               [&](Machine& machine, Output& out) { EXPECT_EQ(machine.setBacklog(0, 0, group.now(), out), QUORL_OK); });
    group.pass(second);
    EXPECT_EQ(group.counts(only).unassigned, 20u);
    EXPECT_EQ(group.member(only).told(Event::Kind::backlogCleared), 2u);
    EXPECT_EQ(group.kept(), 20u);
}

TEST(DqueueMachine, gives_plain_messages_a_number_to_complete_them_by) {
    TestQueue group;
    const size_t only = group.join(settingsOf(1, 1, 2));
    group.pass(2 * second);
    group.sendPlain();
    group.sendPlain();
    ASSERT_EQ(group.member(only).tasks.size(), 2u);
    for (const Task& task : group.member(only).tasks) {
        EXPECT_FALSE(task.certified);
        EXPECT_NE(task.number, 0u);
        EXPECT_TRUE(task.message.attributes().empty());
        EXPECT_EQ(group.member(only).machine->taskOf(task.message), 0u);
    }
    EXPECT_NE(group.member(only).tasks[0].number, group.member(only).tasks[1].number);
    group.complete(only);
    group.complete(only);
    EXPECT_EQ(group.counts(only).held, 0u);
}

// Anybody can write any sender's name beside a message. Members that could not say such a task's stream to each other would hold
// it for ever.
TEST(DqueueMachine, takes_a_message_of_a_sender_without_a_valid_name_for_a_plain_one) {
    TestQueue group;
    const size_t first = group.join(settingsOf(2));
    const size_t other = group.join(settingsOf(1));
    group.pass(2 * second);
    for (const std::string_view name : {"boss\x80", "a..b", "*", "boss.>"}) {
        certified::Frame data;
        data.name = name;
        data.incarnation = 7;
        data.subjectId = 1;
        data.number = 1;
        certified::FrameWriter written;
        certified::encode(data, written);
        companion::Message message = TestQueue::messageTo("t.a");
        ASSERT_EQ(message.withAttributes(written.bytes(), &message), QUORL_OK);
        group.hand(message);
        group.hand(message);
        group.pass(second);
        for (const size_t which : {first, other}) {
            ASSERT_EQ(group.member(which).tasks.size(), 1u) << name;
            EXPECT_FALSE(group.member(which).tasks[0].certified);
            EXPECT_TRUE(group.member(which).tasks[0].message.attributes().empty());
            group.complete(which);
        }
        group.pass(3 * second);
        EXPECT_EQ(group.counts(first).assigned, 0u) << name;
        EXPECT_EQ(group.counts(other).unreported, 0u) << name;
    }
}

TEST(DqueueMachine, leaves_when_it_has_completed_what_it_holds) {
    TestQueue group;
    const size_t first = group.join(settingsOf(2));
    const size_t other = group.join(settingsOf(1));
    group.pass(2 * second);
    group.send(3);
    ASSERT_EQ(group.member(first).tasks.size(), 1u);
    for (const size_t which : {other, first}) {
        group.call(which, [&](Machine& machine, Output& out) { machine.leave(group.now(), out); });
        group.pass(second);
        EXPECT_FALSE(group.member(which).left);
        group.complete(which);
        group.pass(second);
        EXPECT_TRUE(group.member(which).left);
        EXPECT_TRUE(group.member(which).tasks.empty());
    }
    EXPECT_EQ(group.member(first).told(Event::Kind::workerLeft), 1u);
    EXPECT_EQ(group.kept(), 1u);
}

// Nobody else would hear what the others still complete.
TEST(DqueueMachine, a_scheduler_that_leaves_waits_for_others_that_leave_too_when_nobody_stays) {
    TestQueue group;
    const size_t first = group.join(settingsOf(3));
    const size_t other = group.join(settingsOf(2));
    const size_t third = group.join(settingsOf(1));
    group.pass(2 * second);
    group.send(3);
    for (const size_t which : {first, other, third}) {
        ASSERT_EQ(group.member(which).tasks.size(), 1u);
        group.call(which, [&](Machine& machine, Output& out) { machine.leave(group.now(), out); });
    }
    group.complete(first);
    group.pass(2 * second);
    EXPECT_FALSE(group.member(first).left);
    group.complete(other);
    group.pass(second);
    EXPECT_TRUE(group.member(other).left);
    EXPECT_FALSE(group.member(first).left);
    group.complete(third);
    group.pass(second);
    EXPECT_TRUE(group.member(third).left);
    EXPECT_TRUE(group.member(first).left);
    EXPECT_EQ(group.kept(), 0u);
}

TEST(DqueueMachine, a_scheduler_that_leaves_does_not_wait_for_others_when_somebody_stays) {
    TestQueue group;
    const size_t first = group.join(settingsOf(3));
    const size_t other = group.join(settingsOf(2));
    const size_t stays = group.join(settingsOf(1));
    group.pass(2 * second);
    group.send(3);
    for (const size_t which : {first, other})
        group.call(which, [&](Machine& machine, Output& out) { machine.leave(group.now(), out); });
    group.complete(first);
    group.pass(100 * millisecond);
    EXPECT_TRUE(group.member(first).left);
    group.pass(2 * second);
    EXPECT_TRUE(group.counts(stays).scheduler);
    group.complete(other);
    group.pass(second);
    EXPECT_TRUE(group.member(other).left);
    group.complete(stays);
    group.pass(second);
    EXPECT_EQ(group.kept(), 0u);
}

// The scheduler is gone, in order or not, and nobody stays who would be the next.
TEST(DqueueMachine, those_that_leave_confirm_themselves_what_they_did_when_nobody_else_is_left) {
    for (const bool inOrder : {true, false}) {
        TestQueue group;
        const size_t first = group.join(settingsOf(3));
        const size_t other = group.join(settingsOf(2));
        const size_t third = group.join(settingsOf(1));
        group.pass(2 * second);
        group.send(3);
        for (const size_t which : {other, third}) {
            ASSERT_EQ(group.member(which).tasks.size(), 1u);
            group.call(which, [&](Machine& machine, Output& out) { machine.leave(group.now(), out); });
        }
        if (inOrder) group.call(first, [&](Machine& machine, Output& out) { machine.close(group.now(), out); });
        group.member(first).dead = true;
        group.complete(third);
        group.complete(other);
        EXPECT_FALSE(group.member(third).left);
        group.pass(5 * second);
        EXPECT_TRUE(group.member(other).left) << inOrder;
        EXPECT_TRUE(group.member(third).left) << inOrder;
        EXPECT_EQ(group.kept(), 1u) << "the first one's task";
    }
}

TEST(DqueueMachine, the_last_one_waits_for_senders_to_register) {
    TestQueue group;
    const size_t first = group.join(settingsOf(3));
    const size_t other = group.join(settingsOf(2));
    group.pass(2 * second);
    group.send(2);
    ASSERT_EQ(group.member(other).tasks.size(), 1u);
    group.call(other, [&](Machine& machine, Output& out) { machine.leave(group.now(), out); });
    group.call(first, [&](Machine& machine, Output& out) { machine.close(group.now(), out); });
    group.member(first).dead = true;
    group.slowDownSender(true);
    group.complete(other);
    while (!group.counts(other).scheduler) group.pass(10 * millisecond);
    group.pass(200 * millisecond);
    EXPECT_FALSE(group.member(other).left);
    group.slowDownSender(false);
    group.pass(second);
    EXPECT_TRUE(group.member(other).left);
    EXPECT_EQ(group.kept(), 1u) << "the first one's task";
}

TEST(DqueueMachine, one_that_was_closed_has_left_at_once) {
    TestQueue group;
    const size_t only = group.join(settingsOf(1));
    group.pass(2 * second);
    group.send(1);
    ASSERT_EQ(group.member(only).tasks.size(), 1u);
    group.call(only, [&](Machine& machine, Output& out) { machine.close(group.now(), out); });
    EXPECT_FALSE(group.member(only).left);
    group.call(only, [&](Machine& machine, Output& out) { machine.leave(group.now(), out); });
    EXPECT_TRUE(group.member(only).left);
}

TEST(DqueueMachine, counts_what_is_no_frame_and_tells_of_newer_members_once) {
    TestQueue group;
    const size_t only = group.join(settingsOf(1));
    group.pass(2 * second);
    companion::Message message = TestQueue::messageTo(group.member(only).machine->address());
    group.hand(message);
    const std::vector<uint8_t> newer = {2, 2, 1};
    ASSERT_EQ(message.withAttributes(newer, &message), QUORL_OK);
    group.hand(message);
    group.hand(message);
    EXPECT_EQ(group.counts(only).foreign, 3u);
    EXPECT_EQ(group.member(only).told(Event::Kind::newerMember), 1u);
}

// A frame of 1,500 bytes can name tens of millions of numbers, which nobody has completed.
TEST(DqueueMachine, does_not_look_at_more_numbers_of_a_frame_than_a_worker_can_mean) {
    TestQueue group;
    const size_t scheduler = group.join(settingsOf(2));
    const size_t worker = group.join(settingsOf(1));
    group.pass(2 * second);
    const Term term = group.term();
    ASSERT_NE(term.number, 0u);
    ListWriter ranges;
    while (ranges.size() < 1'400) {
        ranges.number(2);
        ranges.number(99'998);
    }
    ListWriter list;
    list.byte(static_cast<uint8_t>(GroupKind::done));
    list.number(0);
    list.text("somebody");
    list.fixed(7);
    list.number(1);
    list.text(ranges.string());
    ASSERT_TRUE(list.fits());
    const std::string bytes = list.string();
    Frame report;
    report.kind = Kind::report;
    report.member = group.member(worker).machine->id();
    report.term = term;
    report.attachment = 1;
    report.report = 1;
    report.parts = 1;
    report.list = {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
    for (const uint8_t flags : {uint8_t{0}, uint8_t{flagInventory}}) {
        report.flags = flags;
        FrameWriter writer;
        encode(report, writer);
        const uint64_t before = group.counts(scheduler).memory;
        group.hand(messageWith(writer, group.member(scheduler).machine->address()));
        EXPECT_LT(group.counts(scheduler).memory - before, 4'000'000u);
    }
    EXPECT_LE(group.counts(scheduler).settled, 100'000u);
    EXPECT_GT(group.counts(scheduler).foreign, 0u);
}

TEST(DqueueMachine, tells_of_a_scheduler_with_other_limits) {
    TestQueue group;
    group.join(settingsOf(2));
    Settings settings = settingsOf(1);
    settings.completeTime = second;
    const size_t other = group.join(settings);
    group.pass(2 * second);
    EXPECT_EQ(group.member(other).told(Event::Kind::disagreement), 1u);
}

TEST(DqueueMachine, refuses_settings_that_make_no_sense) {
    EXPECT_EQ(check(settingsOf(1)), nullptr);
    const auto refused = [](auto change) {
        Settings settings = settingsOf(1);
        change(settings);
        return check(settings) != nullptr;
    };
    EXPECT_TRUE(refused([](Settings& settings) { settings.queue = ""; }));
    EXPECT_TRUE(refused([](Settings& settings) { settings.queue = "a.*"; }));
    EXPECT_TRUE(refused([](Settings& settings) { settings.workerWeight = 0; }));
    EXPECT_TRUE(refused([](Settings& settings) { settings.workerWeight = workerWeightMost + 1; }));
    EXPECT_TRUE(refused([](Settings& settings) { settings.workerTasks = workerTasksMost + 1; }));
    EXPECT_FALSE(refused([](Settings& settings) { settings.workerTasks = 0; }));
    EXPECT_TRUE(refused([](Settings& settings) { settings.schedulerWeight = 0; }));
    EXPECT_TRUE(refused([](Settings& settings) { settings.intervals.activation = settings.intervals.heartbeat; }));
    EXPECT_TRUE(refused([](Settings& settings) { settings.completeTime = -1; }));
    EXPECT_TRUE(refused([](Settings& settings) { settings.perStream = 0; }));
    int64_t time = 7;
    EXPECT_EQ(completeTimeFrom(0, &time), nullptr);
    EXPECT_EQ(time, 0);
    EXPECT_EQ(completeTimeFrom(1.5, &time), nullptr);
    EXPECT_EQ(time, 1500 * millisecond);
    for (const double wrong : {-1.0, 1e-9, 1e300, std::nan(""), static_cast<double>(INFINITY)})
        EXPECT_NE(completeTimeFrom(wrong, &time), nullptr) << wrong;
    EXPECT_EQ(time, 1500 * millisecond);
}

TEST(DqueueMachine, refuses_arguments_out_of_range) {
    TestQueue group;
    const size_t only = group.join(settingsOf(1));
    group.call(only, [&](Machine& machine, Output& out) {
        const Now now = group.now();
        EXPECT_EQ(machine.setWorkerWeight(0, now, out), QUORL_INVALID_ARG);
        EXPECT_EQ(machine.setWorkerWeight(workerWeightMost + 1, now, out), QUORL_INVALID_ARG);
        EXPECT_EQ(machine.setWorkerTasks(workerTasksMost + 1, now, out), QUORL_INVALID_ARG);
        EXPECT_EQ(machine.setCompleteTime(-1, now, out), QUORL_INVALID_ARG);
        EXPECT_EQ(machine.setReassignments(reassignmentsMost + 1, now, out), QUORL_INVALID_ARG);
        EXPECT_EQ(machine.createListener(2, "a..b", now, out), QUORL_INVALID_SUBJECT);
        EXPECT_EQ(machine.createListener(0, "a", now, out), QUORL_INVALID_ARG);
        EXPECT_EQ(machine.createListener(1, "a", now, out), QUORL_INVALID_ARG);
        for (uint32_t number = 2; number <= 64; ++number)
            EXPECT_EQ(machine.createListener(number, "a." + std::to_string(number), now, out), QUORL_OK);
        EXPECT_EQ(machine.createListener(65, "a", now, out), QUORL_QUEUE_LIMIT);
    });
}

}  // namespace
}  // namespace quorl::dqueue
