// Members of a queue that hear each other at once, a sender, and a clock that the test moves.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "certified/protocol/subject.h"
#include "dqueue/protocol/frame.h"
#include "dqueue/protocol/machine.h"
#include "quorl/quorl.h"

namespace quorl::dqueue {

inline constexpr int64_t millisecond = 1'000'000;
inline constexpr int64_t second = 1'000'000'000;

inline Settings settingsOf(uint16_t schedulerWeight, uint32_t weight = 1, uint32_t tasks = 1) {
    Settings settings;
    settings.queue = "the.queue";
    settings.workerWeight = weight;
    settings.workerTasks = tasks;
    settings.schedulerWeight = schedulerWeight;
    settings.intervals = {200 * millisecond, 0, 700 * millisecond};
    settings.label = "member";
    return settings;
}

class TestQueue {
  public:
    struct Member {
        std::unique_ptr<Machine> machine;
        std::map<uint32_t, std::string> ears;
        std::vector<Task> tasks;
        std::vector<Event> events;
        std::vector<DeadLetter> letters;
        std::vector<Task> done;
        uint64_t given = 0;
        bool completes = false;  // at once
        bool left = false;
        bool dead = false;

        size_t told(Event::Kind kind) const {
            return static_cast<size_t>(std::ranges::count(events, kind, &Event::kind));
        }
    };

    TestQueue() {
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
        // What fails is tried once more, as a program does.
        do
            members_[which].machine =
                std::make_unique<Machine>(settings, Chance{100 - which, {which, 9}});  // the oldest has the highest
        while (!call(which, [&](Machine& machine, Output& out) { machine.start(now_, out); }));
        for (uint32_t number = 1;
             !call(which, [&](Machine&machine,
                              Output&out) { EXPECT_EQ(machine.createListener(number, pattern, now_, out), QUORL_OK); });
             ++number)
            call(which, [&](Machine& machine, Output& out) { machine.destroyListener(number, false, now_, out); });
        return which;
    }
    Member& member(size_t which) { return members_[which]; }
    Counts counts(size_t which) { return members_[which].machine->counts(); }
    uint64_t kept() const { return sender_->counts().messages; }

    // False: it threw.
    template <class F>
    bool call(size_t which, F&& step) {
        Output out;
        const bool fine = guarded([&] { step(*members_[which].machine, out); });
        take(which, out);
        settle();
        return fine;
    }
    void complete(size_t which) {
        const Task task = members_[which].tasks.front();
        members_[which].tasks.erase(members_[which].tasks.begin());
        quorl_status status = QUORL_NO_MEMORY;
        call(which, [&](Machine& machine, Output& out) { status = machine.complete(task.number, now_, out); });
        EXPECT_EQ(status, QUORL_OK);
        members_[which].done.push_back(task);
    }
    // The same of a task that it may not hold any more.
    void tryToComplete(size_t which) {
        const Task task = members_[which].tasks.front();
        members_[which].tasks.erase(members_[which].tasks.begin());
        quorl_status status = QUORL_NO_MEMORY;
        call(which, [&](Machine& machine, Output& out) { status = machine.complete(task.number, now_, out); });
        EXPECT_TRUE(status == QUORL_OK || status == QUORL_NOT_FOUND);
        if (status == QUORL_OK) members_[which].done.push_back(task);
    }
    void giveBack(size_t which) {
        const Task task = members_[which].tasks.front();
        members_[which].tasks.erase(members_[which].tasks.begin());
        quorl_status status = QUORL_NO_MEMORY;
        call(which, [&](Machine& machine, Output& out) { status = machine.giveBack(task.number, now_, out); });
        EXPECT_EQ(status, QUORL_OK);
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
    // The same, from one time at which something is due to the next.
    void skip(int64_t time) {
        const int64_t end = now_.monotonic + time;
        for (;;) {
            int64_t next = std::min(end, sender_->due());
            for (const Member& member : members_) {
                if (!member.dead) next = std::min(next, member.machine->due());
            }
            if (next > now_.monotonic) now_.wall += next - now_.monotonic;
            now_.monotonic = std::max(next, now_.monotonic);
            bool any = sender_->due() <= now_.monotonic;
            certified::Output out;
            if (any) sender_->tick(now_, out);
            take(out);
            for (size_t i = 0; i < members_.size(); ++i) {
                if (members_[i].dead || members_[i].machine->due() > now_.monotonic) continue;
                any = true;
                call(i, [&](Machine& machine, Output& answer) { machine.tick(now_, answer); });
            }
            settle();
            if (!any && now_.monotonic >= end) return;
        }
    }
    // What is said to the sender comes when it is slow no more.
    void slowDownSender(bool slow) {
        senderIsSlow_ = slow;
        if (slow) return;
        for (; !late_.empty(); late_.pop_front()) way_.push_back(late_.front());
        settle();
    }
    int64_t time() const { return now_.monotonic; }
    Now now() const { return now_; }
    // That of the last beat.
    Term term() const { return term_; }

    static companion::Message messageTo(std::string_view subject) {
        companion::Message message;
        EXPECT_EQ(companion::Message::empty(subject, &message), QUORL_OK);
        return message;
    }

    // Runs each call into a member's machine; false: it threw. Without it they are just called.
    std::function<bool(const std::function<void()>&)> guard;

  private:
    bool guarded(const std::function<void()>& step) {
        if (guard) return guard(step);
        step();
        return true;
    }
    void settle() {
        while (!way_.empty()) {
            const companion::Message message = std::move(way_.front());
            way_.pop_front();
            const std::string_view subject = message.subject();
            if (subject == sender_->address() || subject == certified::everybody) {
                if (senderIsSlow_) {
                    late_.push_back(message);
                    continue;
                }
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
        guarded([&] { members_[which].machine->receive(message, ear, now_, out); });
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
        for (const auto& message : out.messages) {
            Frame frame;
            if (decode(message.attributes(), &frame) == Decoded::frame && frame.kind == Kind::beat) term_ = frame.term;
            way_.push_back(message);
        }
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
            quorl_status status = QUORL_NO_MEMORY;
            guarded([&] { status = member.machine->complete(task.number, now_, next); });
            EXPECT_EQ(status, QUORL_OK);
            member.done.push_back(task);
            take(which, next);
        }
    }

    Now now_{1000 * second, 1'800'000'000 * second};
    std::unique_ptr<certified::Machine> sender_;
    std::deque<Member> members_;
    std::deque<companion::Message> way_;
    std::deque<companion::Message> late_;
    bool senderIsSlow_ = false;
    Term term_;
};

}  // namespace quorl::dqueue
