// What a task costs in the machines of a queue: one scheduler, four workers and a sender over nothing.
#include "dqueue/protocol/machine.h"

#include <benchmark/benchmark.h>

#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "certified/protocol/subject.h"

namespace quorl::dqueue {
namespace {

class Bench {
  public:
    explicit Bench(uint32_t workers) {
        certified::Settings settings;
        settings.name = "sender";
        settings.pendingBytes = 0;
        sender_ = std::make_unique<certified::Machine>(settings, certified::Chance{1, 1, {1, 1}, {1, 1}});
        sender_->start(true, now_, senderOut_);
        takeFromSender();
        sender_->addListener("the.queue", "a.b", now_, senderOut_);
        takeFromSender();
        for (uint32_t i = 0; i <= workers; ++i) {
            Settings member;
            member.queue = "the.queue";
            member.workerTasks = i == 0 ? 0 : 1000;
            member.schedulerWeight = i == 0 ? 2 : 1;
            member.intervals = {1'000'000'000, 0, 3'000'000'000};
            auto made = std::make_unique<Member>();
            made->machine = std::make_unique<Machine>(member, Chance{i + 1, {i + 1, 7}});
            made->machine->start(now_, made->out);
            take(*made);
            made->machine->createListener(1, "a.b", now_, made->out);
            take(*made);
            members_.push_back(std::move(made));
        }
        companion::Message::empty("a.b", &message_);
        for (int i = 0; i < 600; ++i) pass();
    }

    void send() {
        senderOut_.clear();
        sender_->send(message_, 0, now_, senderOut_);
        takeFromSender();
        settle();
    }
    void pass() {
        now_.monotonic += 10'000'000;
        now_.wall += 10'000'000;
        senderOut_.clear();
        sender_->tick(now_, senderOut_);
        takeFromSender();
        for (auto& member : members_) {
            member->out.clear();
            member->machine->tick(now_, member->out);
            take(*member);
        }
        settle();
    }
    void settle() {
        while (!onTheWay_.empty()) {
            const companion::Message message = std::move(onTheWay_.front());
            onTheWay_.pop_front();
            const std::string_view subject = message.subject();
            if (subject == sender_->address() || subject == certified::everybody) {
                senderOut_.clear();
                sender_->receive(message, 0, now_, senderOut_);
                takeFromSender();
            }
            for (auto& member : members_) {
                if (subject == member->machine->address() || subject == member->machine->groupSubject())
                    receive(*member, message, 0);
                for (const Ear& ear : member->ears) {
                    if (ear.subject == subject) {
                        receive(*member, message, ear.number);
                        break;
                    }
                }
            }
        }
    }
    uint64_t completed() const { return completed_; }
    uint64_t kept() const { return sender_->counts().messages; }

  private:
    struct Member {
        std::unique_ptr<Machine> machine;
        Output out;
        std::vector<Ear> ears;
    };

    void receive(Member& member, const companion::Message& message, uint32_t ear) {
        member.out.clear();
        member.machine->receive(message, ear, now_, member.out);
        take(member);
    }
    void takeFromSender() {
        for (auto& message : senderOut_.messages) onTheWay_.push_back(std::move(message));
        senderOut_.clear();
    }
    void take(Member& member) {
        for (const Ear& ear : member.out.ears) {
            if (!ear.subject.empty()) member.ears.push_back(ear);
        }
        for (auto& message : member.out.messages) onTheWay_.push_back(std::move(message));
        const News news = member.out.takeRest();
        for (const Task& task : news.tasks) {
            member.out.clear();
            member.machine->complete(task.number, now_, member.out);
            ++completed_;
            take(member);
        }
        member.out.clear();
    }

    Now now_{1'000'000'000, 1'800'000'000'000'000'000};
    std::unique_ptr<certified::Machine> sender_;
    certified::Output senderOut_;
    std::vector<std::unique_ptr<Member>> members_;
    companion::Message message_;
    std::deque<companion::Message> onTheWay_;
    uint64_t completed_ = 0;
};

void tasks(benchmark::State& state) {
    Bench bench(static_cast<uint32_t>(state.range(0)));
    uint64_t sent = 0;
    for (auto _ : state) {
        bench.send();
        if (++sent % 200 == 0) bench.pass();
    }
    for (int i = 0; i < 300; ++i) bench.pass();
    state.counters["completed"] = static_cast<double>(bench.completed());
    state.counters["sent"] = static_cast<double>(sent);
    state.counters["kept"] = static_cast<double>(bench.kept());
}
BENCHMARK(tasks)->Arg(1)->Arg(4)->Arg(32)->ArgName("workers");

}  // namespace
}  // namespace quorl::dqueue

BENCHMARK_MAIN();
