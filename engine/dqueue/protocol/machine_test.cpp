// Members of a queue that hear each other at once, a sender, and a clock that the test moves.
#include "dqueue/protocol/machine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "certified/protocol/frame.h"
#include "certified/protocol/subject.h"
#include "dqueue/protocol/frame.h"
#include "quorl/quorl.h"

namespace quorl::dqueue {
namespace {

constexpr int64_t millisecond = 1'000'000;
constexpr int64_t second = 1'000'000'000;

Settings settingsOf(uint16_t schedulerWeight, uint32_t weight = 1, uint32_t tasks = 1) {
    Settings settings;
    settings.queue = "the.queue";
    settings.workerWeight = weight;
    settings.workerTasks = tasks;
    settings.schedulerWeight = schedulerWeight;
    settings.intervals = {200 * millisecond, 0, 700 * millisecond};
    settings.label = "member";
    return settings;
}

class Group {
  public:
    struct Member {
        std::unique_ptr<Machine> machine;
        std::map<uint32_t, std::string> ears;
        std::vector<Task> tasks;
        std::vector<Event> events;
        std::vector<DeadLetter> letters;
        uint64_t given = 0;
        bool completes = false;  // at once
        bool left = false;
        bool dead = false;

        size_t told(Event::Kind kind) const {
            return static_cast<size_t>(std::ranges::count(events, kind, &Event::kind));
        }
    };

    Group() {
        certified::Settings settings;
        settings.name = "sender";
        sender_ = std::make_unique<certified::Machine>(settings, certified::Chance{1, 2, {3, 4}, {5, 6}});
        certified::Output out;
        sender_->start(true, now_, out);
        take(out);
        out.clear();
        sender_->addListener("the.queue", "t.>", now_, out);
        take(out);
    }

    size_t join(const Settings& settings, const char* pattern = "t.>") {
        members_.emplace_back();
        const size_t which = members_.size() - 1;
        members_[which].machine = std::make_unique<Machine>(settings, Chance{which + 1, {which, 9}});
        call(which, [&](Machine& machine, Output& out) { machine.start(now_, out); });
        call(which, [&](Machine& machine, Output& out) { machine.createListener(1, pattern, now_, out); });
        return which;
    }
    Member& member(size_t which) { return members_[which]; }
    Counts counts(size_t which) { return members_[which].machine->counts(); }
    uint64_t kept() const { return sender_->counts().messages; }

    template <class F>
    void call(size_t which, F&& step) {
        Output out;
        step(*members_[which].machine, out);
        take(which, out);
        settle();
    }
    void complete(size_t which) {
        const Task task = members_[which].tasks.front();
        members_[which].tasks.erase(members_[which].tasks.begin());
        call(which,
             [&](Machine& machine, Output& out) { EXPECT_EQ(machine.complete(task.number, now_, out), QUORL_OK); });
    }
    void giveBack(size_t which) {
        const Task task = members_[which].tasks.front();
        members_[which].tasks.erase(members_[which].tasks.begin());
        call(which,
             [&](Machine& machine, Output& out) { EXPECT_EQ(machine.giveBack(task.number, now_, out), QUORL_OK); });
    }
    void send(int count, std::string_view subject = "t.a") {
        for (int i = 0; i < count; ++i) {
            certified::Output out;
            EXPECT_EQ(sender_->send(messageTo(subject), 0, now_, out), QUORL_OK);
            take(out);
            settle();
        }
    }
    void sendPlain(std::string_view subject = "t.a") {
        way_.push_back(messageTo(subject));
        settle();
    }
    void hand(const companion::Message& message) {
        way_.push_back(message);
        settle();
    }
    void pass(int64_t time) {
        for (const int64_t end = now_.monotonic + time; now_.monotonic < end;) {
            now_.monotonic += 10 * millisecond;
            now_.wall += 10 * millisecond;
            for (size_t i = 0; i < members_.size(); ++i) {
                if (members_[i].dead || members_[i].machine->due() > now_.monotonic) continue;
                call(i, [&](Machine& machine, Output& out) { machine.tick(now_, out); });
            }
            certified::Output out;
            if (sender_->due() <= now_.monotonic) sender_->tick(now_, out);
            take(out);
            settle();
        }
    }
    int64_t time() const { return now_.monotonic; }
    Now now() const { return now_; }

    static companion::Message messageTo(std::string_view subject) {
        companion::Message message;
        EXPECT_EQ(companion::Message::empty(subject, &message), QUORL_OK);
        return message;
    }

  private:
    void settle() {
        while (!way_.empty()) {
            const companion::Message message = std::move(way_.front());
            way_.pop_front();
            const std::string_view subject = message.subject();
            if (subject == sender_->address() || subject == certified::everybody) {
                certified::Output out;
                sender_->receive(message, 0, now_, out);
                take(out);
            }
            for (size_t i = 0; i < members_.size(); ++i) {
                if (members_[i].dead) continue;
                Machine& machine = *members_[i].machine;
                if (subject == machine.address() || subject == machine.groupSubject()) receive(i, message, 0);
                for (const auto& [ear, pattern] : std::map(members_[i].ears)) {
                    if (certified::matches(pattern, subject)) receive(i, message, ear);
                }
            }
        }
    }
    void receive(size_t which, const companion::Message& message, uint32_t ear) {
        Output out;
        members_[which].machine->receive(message, ear, now_, out);
        take(which, out);
    }
    void take(certified::Output& out) {
        for (const auto& message : out.messages) way_.push_back(message);
    }
    void take(size_t which, Output& out) {
        Member& member = members_[which];
        for (const Ear& ear : out.ears) {
            member.ears.erase(ear.number);
            if (!ear.subject.empty()) member.ears[ear.number] = ear.subject;
        }
        for (const auto& letter : out.deadLetters) member.letters.push_back(letter);
        for (const auto& message : out.messages) way_.push_back(message);
        for (const Event& event : out.events) member.events.push_back(event);
        member.left = member.left || out.left;
        const std::vector<Task> tasks = std::move(out.tasks);
        member.given += tasks.size();
        for (const Task& task : tasks) {
            if (!member.completes) {
                member.tasks.push_back(task);
                continue;
            }
            Output next;
            EXPECT_EQ(member.machine->complete(task.number, now_, next), QUORL_OK);
            take(which, next);
        }
    }

    Now now_{1000 * second, 1'800'000'000 * second};
    std::unique_ptr<certified::Machine> sender_;
    std::deque<Member> members_;
    std::deque<companion::Message> way_;
};

TEST(DqueueMachine, gives_a_task_to_one_worker_and_confirms_it_when_it_is_completed) {
    Group group;
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
    Group group;
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

TEST(DqueueMachine, prefers_the_greater_weight_and_respects_room) {
    Group group;
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

TEST(DqueueMachine, takes_a_lost_worker_s_tasks_back) {
    Group group;
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
    Group group;
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
    Group group;
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
    Group group;
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
    Group group;
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

TEST(DqueueMachine, gives_plain_messages_a_number_to_complete_them_by) {
    Group group;
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
    Group group;
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
        companion::Message message = Group::messageTo("t.a");
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
    Group group;
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

TEST(DqueueMachine, counts_what_is_no_frame_and_tells_of_newer_members_once) {
    Group group;
    const size_t only = group.join(settingsOf(1));
    group.pass(2 * second);
    companion::Message message = Group::messageTo(group.member(only).machine->address());
    group.hand(message);
    const std::vector<uint8_t> newer = {2, 2, 1};
    ASSERT_EQ(message.withAttributes(newer, &message), QUORL_OK);
    group.hand(message);
    group.hand(message);
    EXPECT_EQ(group.counts(only).foreign, 3u);
    EXPECT_EQ(group.member(only).told(Event::Kind::newerMember), 1u);
}

TEST(DqueueMachine, tells_of_a_scheduler_with_other_limits) {
    Group group;
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
    Group group;
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
