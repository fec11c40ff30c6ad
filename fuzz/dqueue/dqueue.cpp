// Fuzz target: three members of a distributed queue and a sender over a network that loses, repeats and reorders what the input
// says, beside a stranger who sends whatever frames and bytes the input says, and programs that call what they like.
//
// Nothing of it ends the process, leaves a machine due for ever, or makes it keep more than it may. A frame that is read is the
// same when it is written again. What programs are given they can complete, once.
#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "certified/protocol/subject.h"
#include "dqueue/protocol/frame.h"
#include "dqueue/protocol/machine.h"
#include "support.h"

namespace {

using namespace quorl;
using namespace quorl::dqueue;
using namespace quorl::fuzz;

constexpr int64_t millisecond = 1'000'000;
constexpr std::array<std::string_view, 3> subjects = {"a.b", "a.c", "x"};
constexpr std::array<std::string_view, 3> patterns = {"a.b", "a.*", ">"};
constexpr size_t members = 3;
constexpr size_t largestAsked = 4u << 20;
constexpr uint64_t largestMemory = 64u << 20;

companion::Message emptyTo(std::string_view subject) {
    companion::Message message;
    require(companion::Message::empty(subject, &message) == QUORL_OK, "no message can be made");
    return message;
}

class Run {
  public:
    Run(const uint8_t* data, size_t size) : decide_(data, size) {
        certified::Settings settings;
        settings.name = "sender";
        settings.pendingBytes = 8192;
        sender_ = std::make_unique<certified::Machine>(settings, certified::Chance{1, 2, {3, 4}, {5, 6}});
        certified::Output out;
        sender_->start(true, now_, out);
        sender_->addListener("q", ">", now_, out);
        take(out);
        for (size_t i = 0; i < members; ++i) start(i);
        for (int i = 0; i < 4; ++i) pass(300 * millisecond);
    }

    void run() {
        while (!decide_.empty()) {
            step();
            for (const auto& side : sides_)
                require(side.machine->counts().memory < largestMemory, "a machine keeps more than it may");
        }
    }

  private:
    struct Side {
        std::unique_ptr<Machine> machine;
        std::map<uint32_t, std::string> ears;
        std::vector<uint32_t> tasks;
    };

    void start(size_t which) {
        Side& side = sides_[which];
        side = Side();
        Settings settings;
        settings.queue = "q";
        settings.workerTasks = 1 + which;
        settings.workerWeight = 3;
        settings.schedulerWeight = static_cast<uint16_t>(1 + which);
        settings.intervals = {100 * millisecond, 0, 300 * millisecond};
        settings.completeTime = which == 0 ? 0 : 500 * millisecond;
        settings.backlogMessages = 8;
        settings.reassignments = 2;
        settings.perStream = 16;
        ++lives_;
        side.machine = std::make_unique<Machine>(settings, Chance{100 + lives_, {7 + which, lives_}});
        Output out;
        side.machine->start(now_, out);
        take(which, out);
        out.clear();
        side.machine->createListener(1, patterns[which % patterns.size()], now_, out);
        take(which, out);
    }

    void step() {
        const uint8_t kind = decide_.byte();
        const size_t which = kind / 16 % members;
        Side& side = sides_[which];
        Output out;
        switch (kind % 16) {
            case 0:
            case 1: {
                certified::Output sent;
                const companion::Message message = emptyTo(subjects[decide_.byte() % subjects.size()]);
                if (kind % 16 == 0) {
                    sender_->send(message, 0, now_, sent);
                    return take(sent);
                }
                return send(message);
            }
            case 2:
            case 3:
            case 4:
                for (uint8_t count = decide_.byte() % 8; count != 0; --count) arrive(0);
                return;
            case 5:
                return arrive(decide_.byte());
            case 6:
                if (!way_.empty()) way_.erase(way_.begin() + decide_.byte() % static_cast<int>(way_.size()));
                return;
            case 7:
                if (!way_.empty() && way_.size() < 256) way_.push_back(way_[decide_.byte() % way_.size()]);
                return;
            case 8:
                return pass(int64_t{decide_.byte()} * 4 * millisecond);
            case 9:
            case 10: {
                if (side.tasks.empty()) {
                    require(side.machine->complete(decide_.byte(), now_, out) == QUORL_NOT_FOUND,
                            "a task that is not held can be completed");
                    return take(which, out);
                }
                const size_t at = decide_.byte() % side.tasks.size();
                const uint32_t task = side.tasks[at];
                side.tasks.erase(side.tasks.begin() + static_cast<long>(at));
                const quorl_status status = decide_.oneIn(4) ? side.machine->giveBack(task, now_, out)
                                                             : side.machine->complete(task, now_, out);
                require(status == QUORL_OK, "a task that is held cannot be completed");
                take(which, out);
                out.clear();
                require(side.machine->complete(task, now_, out) == QUORL_NOT_FOUND, "a task is completed twice");
                return take(which, out);
            }
            case 11:
            case 12:
                return forged(which);
            case 13:
                return raw(which);
            case 14:
                return call(which);
            default:
                return start(which);
        }
    }

    void call(size_t which) {
        Machine& machine = *sides_[which].machine;
        Output out;
        switch (decide_.byte() % 9) {
            case 0:
                machine.setWorkerWeight(decide_.byte(), now_, out);
                break;
            case 1:
                machine.setWorkerTasks(decide_.byte() % 8, now_, out);
                break;
            case 2:
                machine.setCompleteTime(int64_t{decide_.byte()} * 10 * millisecond, now_, out);
                break;
            case 3:
                machine.setBacklog(decide_.byte() % 16, decide_.byte(), now_, out);
                break;
            case 4:
                machine.setReassignments(decide_.byte() % 4, now_, out);
                break;
            case 5:
                machine.createListener(1 + decide_.byte() % 4, patterns[decide_.byte() % patterns.size()], now_, out);
                break;
            case 6:
                // Its tasks go back.
                sides_[which].tasks.clear();
                for (uint32_t number = 1; number <= 4; ++number) {
                    machine.destroyListener(number, decide_.oneIn(2), now_, out);
                    take(which, out);
                    out.clear();
                }
                sides_[which].tasks.clear();
                break;
            case 7:
                if (!decide_.oneIn(4)) return;
                machine.leave(now_, out);
                break;
            default:
                machine.workers();
        }
        take(which, out);
    }

    // A frame of the right form, with values near those that are in use.
    void forged(size_t to) {
        Frame frame;
        frame.kind = static_cast<Kind>(1 + decide_.byte() % kindMax);
        const uint8_t form = decide_.byte();
        frame.member = (form & 1) != 0 ? decide_.eight() : 101 + decide_.byte() % lives_;
        frame.term = known_;
        if ((form & 2) != 0) frame.term.number = decide_.eight() & termMost;
        frame.attachment = (form & 4) != 0 ? decide_.eight() : decide_.byte() % 4;
        frame.sequence = (form & 8) != 0 ? decide_.eight() : decide_.byte();
        frame.report = decide_.byte();
        frame.parts = 1 + decide_.byte() % 3;
        frame.part = decide_.byte() % frame.parts;
        frame.flags = decide_.byte();
        frame.weight = 1 + decide_.byte();
        frame.tasks = decide_.byte();
        frame.reassigned = decide_.byte();
        frame.unassigned = decide_.byte();
        frame.incarnation = (form & 16) != 0 ? decide_.eight() : 1;
        frame.number = (form & 32) != 0 ? decide_.eight() : decide_.byte();
        frame.subject = subjects[decide_.byte() % subjects.size()];
        const auto number = [&] { return (form & 64) != 0 ? decide_.eight() : uint64_t{decide_.byte()}; };
        std::string list;
        if (frame.kind == Kind::offer) {
            ListWriter writer;
            for (uint8_t count = decide_.byte() % 4; count != 0; --count)
                addPattern({static_cast<uint8_t>(decide_.byte() % 2), patterns[decide_.byte() % patterns.size()]},
                           writer);
            list = writer.string();
        } else if (frame.kind == Kind::settled || frame.kind == Kind::counted || frame.kind == Kind::report) {
            GroupLists lists;
            for (uint8_t count = decide_.byte() % 4; count != 0; --count) {
                const uint64_t first = std::max<uint64_t>(number() & (UINT64_MAX >> 1), 1);
                lists.add(static_cast<GroupKind>(1 + decide_.byte() % groupKindMax), decide_.byte() % 4,
                          {decide_.oneIn(2) ? "sender" : "stranger", 1, 1u + decide_.byte() % 3},
                          {first, first + (number() & (UINT64_MAX >> 2))});
            }
            for (const std::string& made : lists.take()) list = made;
        } else if (frame.kind == Kind::voided) {
            list = std::string(1, static_cast<char>(1 + decide_.byte() % 100)) + '\1';
        }
        frame.list = {reinterpret_cast<const uint8_t*>(list.data()), list.size()};
        FrameWriter writer;
        encode(frame, writer);
        hand(to, writer.bytes());
    }

    void raw(size_t to) {
        std::string bytes(decide_.counted());
        if (decide_.byte() % 2 == 0 && bytes.size() > 1) {
            bytes[0] = static_cast<char>(1 + decide_.byte() % 3);
            bytes[1] = protocolVersion;
        }
        const Block block(bytes);
        hand(to, {block.data(), block.size()});
    }

    void hand(size_t to, std::span<const uint8_t> attributes) {
        Frame frame;
        if (decode(attributes, &frame) == Decoded::frame) {
            FrameWriter again;
            encode(frame, again);
            require(std::ranges::equal(again.bytes(), attributes), "a frame differs when it is written again");
        }
        companion::Message message = emptyTo(sides_[to].machine->address());
        if (message.withAttributes(attributes, &message) != QUORL_OK) return;
        deliver(to, message);
    }

    void arrive(size_t at) {
        if (way_.empty()) return;
        at %= way_.size();
        const companion::Message message = std::move(way_[at]);
        way_.erase(way_.begin() + static_cast<long>(at));
        if (message.subject() == sender_->address() || message.subject() == certified::everybody) {
            certified::Output out;
            sender_->receive(message, 0, now_, out);
            take(out);
        }
        for (size_t i = 0; i < members; ++i) deliver(i, message);
    }

    void deliver(size_t to, const companion::Message& message) {
        Side& side = sides_[to];
        const std::string_view subject = message.subject();
        if (subject == side.machine->address() || subject == side.machine->groupSubject()) receive(to, message, 0);
        for (const auto& [number, pattern] : std::map(side.ears)) {
            if (certified::matches(pattern, subject)) receive(to, message, number);
        }
    }
    void receive(size_t to, const companion::Message& message, uint32_t ear) {
        Output out;
        sides_[to].machine->receive(message, ear, now_, out);
        take(to, out);
    }

    void pass(int64_t time) {
        const int64_t end = now_.monotonic + time;
        while (now_.monotonic < end) {
            const int64_t by = std::min<int64_t>(end - now_.monotonic, 50 * millisecond);
            now_.monotonic += by;
            now_.wall += by;
            for (size_t i = 0; i < members; ++i) {
                Machine& machine = *sides_[i].machine;
                if (machine.due() > now_.monotonic) continue;
                Output out;
                machine.tick(now_, out);
                require(machine.due() > now_.monotonic, "a tick leaves a machine due");
                take(i, out);
            }
            certified::Output out;
            if (sender_->due() <= now_.monotonic) sender_->tick(now_, out);
            take(out);
            for (int i = 0; i < 64 && !way_.empty(); ++i) arrive(0);
        }
    }

    void send(const companion::Message& message) {
        Frame frame;
        if (decode(message.attributes(), &frame) == Decoded::frame) known_ = std::max(known_, frame.term);
        if (way_.size() < 1024) way_.push_back(message);
    }
    void take(certified::Output& out) {
        for (const auto& message : out.messages) send(message);
    }
    void take(size_t which, Output& out) {
        Side& side = sides_[which];
        for (const Ear& ear : out.ears) {
            if (ear.subject.empty()) {
                side.ears.erase(ear.number);
            } else {
                require(side.ears.emplace(ear.number, ear.subject).second, "an ear's number is used twice");
            }
        }
        for (const auto& message : out.messages) send(message);
        for (const Task& task : out.tasks) {
            require(task.number != 0 && std::ranges::find(side.tasks, task.number) == side.tasks.end(),
                    "a task has the number of another");
            side.tasks.push_back(task.number);
        }
        for (const DeadLetter& letter : out.deadLetters)
            require(letter.message && letter.reassigned > 0, "a dead letter makes no sense");
    }

    Decisions decide_;
    std::array<Side, members> sides_;
    std::unique_ptr<certified::Machine> sender_;
    std::deque<companion::Message> way_;
    Now now_{1000 * millisecond, 1'800'000'000'000 * millisecond};
    Term known_;
    uint64_t lives_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Asked::watch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Asked::reset();
    Run(data, size).run();
    require(Asked::most() <= largestAsked + 8 * size, "a size that was only announced was asked for");
    return 0;
}
