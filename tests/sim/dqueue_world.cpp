// The guests: members with programs that work on tasks, fail, and forget them; and senders.
#include "sim/dqueue_world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "certified/protocol/frame.h"
#include "certified/protocol/subject.h"
#include "companion/access.h"
#include "message/delivery.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using Checked = QueueChecker::Task;

enum Work : uint32_t { sendSome, sendPlain, leaveQueue, changeTasks, changeWeight, listenAgain };

// What a program does with a task, by its kind.
enum Poison : uint32_t { none, failsOnce, fails, forgotten };

constexpr std::array<std::string_view, 3> subjects = {"t.0", "t.1", "t.2"};
constexpr std::string_view queueName = "the.queue";
constexpr uint32_t mostMembers = 7;

QueueRuns runs;
// How a guest was treated that no machine should treat it; empty: well.
std::string wrong;

// ---- what a world is made of, by its seed

// A world in which nothing fails, nobody changes and no worker is ever full: there the shares are told by the weights.
bool isSteady(const Plan& plan) {
    return Random(mix(plan.seed ^ 0x7374)).below(8) == 0;
}
constexpr uint32_t ample = 1000;  // tasks at once: more than all that are sent there

struct Composition {
    uint32_t members = 1;
    uint32_t senders = 1;
    uint32_t subjects = 1;
    QueueChecker::Terms terms;
    uint64_t backlogMessages = 0;
    uint64_t backlogBytes = 0;
    uint32_t perStream = 10'000;
    Time longestWork = 0;
    bool poison = false;
    std::vector<uint32_t> tasks;
    std::vector<uint32_t> weights;
    std::vector<uint16_t> schedulerWeights;
    std::vector<std::vector<std::string>> patterns;
};

Composition compose(const Plan& plan) {
    Random random(mix(plan.seed ^ 0x6471));
    Composition made;
    made.senders = static_cast<uint32_t>(random.between(1, 2));
    made.members = plan.nodes - made.senders;
    made.subjects = static_cast<uint32_t>(random.between(1, 3));
    QueueChecker::Terms& terms = made.terms;
    terms.members = made.members;
    terms.heartbeat = random.between(260, 600) * millisecond;
    terms.activation = terms.heartbeat * random.between(30, 60) / 10 / 1000 * 1000;
    terms.lossy = plan.rates.loss != 0;
    made.longestWork = random.below(3) == 0 ? 0 : random.between(1, 400) * millisecond;
    if (random.coin()) terms.completeTime = random.between(2, 5) * second;
    if (random.below(3) != 0) terms.reassignments = static_cast<uint32_t>(random.between(3, 5));
    made.poison = terms.completeTime != 0 && terms.reassignments != 0 && random.coin();
    if (random.below(3) == 0) made.backlogMessages = static_cast<uint64_t>(random.between(1, 20));
    if (random.below(4) == 0) made.backlogBytes = static_cast<uint64_t>(random.between(1, 500));
    if (random.below(4) == 0) made.perStream = static_cast<uint32_t>(random.between(2, 20));
    const bool mixed = random.below(4) == 0;
    for (uint32_t member = 0; member < made.members; ++member) {
        made.tasks.push_back(static_cast<uint32_t>(random.coin() ? random.between(1, 3) : random.between(1, 50)));
        if (member != 0 && random.below(10) == 0) made.tasks.back() = 0;
        made.weights.push_back(static_cast<uint32_t>(random.between(1, 5)));
        made.schedulerWeights.push_back(static_cast<uint16_t>(random.between(1, 3)));
        std::vector<std::string> patterns = {"t.>"};
        if (mixed && member != 0) {
            switch (random.below(4)) {
                case 0:
                    patterns = {"t.0"};
                    break;
                case 1:
                    patterns = {"t.*", "t.1"};
                    break;
                case 2:
                    patterns = {};
                    break;
                default:
                    break;
            }
        }
        made.patterns.push_back(std::move(patterns));
    }
    if (!isSteady(plan)) return made;
    terms.completeTime = 0;
    made.poison = false;
    made.backlogMessages = made.backlogBytes = 0;
    made.perStream = 10'000;
    made.longestWork = random.between(100, 2000) * millisecond;
    std::ranges::fill(made.tasks, ample);
    std::ranges::fill(made.patterns, std::vector<std::string>{"t.>"});
    return made;
}

// ---- messages

companion::Message messageOf(const Checked& task, std::string_view subject) {
    quorlMsg handle = nullptr;
    companion::Message message;
    EXPECT_EQ(quorlMsg_Create(&handle), QUORL_OK);
    const uint64_t number =
        uint64_t{task.sender} << 56 | uint64_t{task.subject} << 48 | uint64_t{task.kind} << 40 | task.count;
    EXPECT_EQ(quorlMsg_AddU64Ex(handle, "n", number, 0), QUORL_OK);
    message::ContentRef content;
    EXPECT_EQ(message::snapshot(handle, &content), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(handle), QUORL_OK);
    EXPECT_EQ(companion::Access::wrap(content).withSubjects(subject, "", &message), QUORL_OK);
    return message;
}

Checked taskOf(const companion::Message& message) {
    quorlMsg handle = nullptr;
    quorl_u64 number = UINT64_MAX;
    EXPECT_EQ(message::handOver(companion::Access::content(message), &handle), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetU64Ex(handle, "n", &number, 0), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(handle), QUORL_OK);
    return {static_cast<uint32_t>(number >> 56), static_cast<uint32_t>(number >> 48 & 0xff),
            static_cast<uint32_t>(number >> 40 & 0xff), static_cast<uint32_t>(number)};
}

// ---- what all guests of a world share

struct Common {
    const Composition& composition;
    QueueChecker& checker;
    std::function<Time()> now;
    std::map<uint64_t, uint32_t> nodeOf;  // of the members' numbers, ever
};

// ---- a member

class Member : public Program {
  public:
    Member(Node& node, Common& common, QueueSeam seam) : node_(node), common_(common), seam_(std::move(seam)) {
        const Composition& composition = common.composition;
        const uint32_t number = node.number();
        dqueue::Settings settings;
        settings.queue = queueName;
        settings.workerWeight = composition.weights[number];
        settings.workerTasks = composition.tasks[number];
        settings.schedulerWeight = composition.schedulerWeights[number];
        settings.intervals = {composition.terms.heartbeat / 1000 * 1000, 0, composition.terms.activation / 1000 * 1000};
        settings.label = "member " + std::to_string(number);
        settings.completeTime = composition.terms.completeTime;
        settings.backlogMessages = composition.backlogMessages;
        settings.backlogBytes = composition.backlogBytes;
        settings.reassignments = composition.terms.reassignments;
        settings.perStream = composition.perStream;
        if (seam_.settings) seam_.settings(settings);
        EXPECT_EQ(dqueue::check(settings), nullptr);
        dqueue::Chance chance;
        chance.member = node.random()() | 1;
        chance.key = {node.random()(), node.random()()};
        life_ = common.checker.starts(number, common.now());
        common.checker.capacity(life_, settings.workerTasks);
        common.nodeOf[chance.member] = number;
        machine_ = std::make_unique<dqueue::Machine>(settings, chance);
        node_.subscribe(machine_->address(), 0);
        node_.subscribe(machine_->groupSubject(), 0);
        step([&](dqueue::Output& out) { machine_->start(time(), out); });
        for (const std::string& pattern : composition.patterns[number]) listen(pattern);
    }
    ~Member() override {
        if (!gone_) common_.checker.ends(life_, true, common_.now());
    }

    Time due() const override {
        if (gone_) return never;
        Time due = machine_->due();
        for (const Given& given : given_) due = std::min(due, given.until);
        return due;
    }
    void tick() override {
        for (size_t i = 0; i < given_.size() && !gone_;) {
            if (given_[i].until > node_.monotonic()) {
                ++i;
                continue;
            }
            const Given given = given_[i];
            given_.erase(given_.begin() + static_cast<ptrdiff_t>(i));
            finish(given);
            if (!node_.acting()) return;
            i = 0;
        }
        if (gone_ || machine_->due() > node_.monotonic()) return;
        step([&](dqueue::Output& out) { machine_->tick(time(), out); });
        if (!gone_ && node_.acting() && machine_->due() <= node_.monotonic())
            wrong = "a tick that leaves itself due would spin";
    }
    void receive(uint32_t tag, const message::ContentRef& content) override {
        if (gone_) return;
        companion::Message message = companion::Access::wrap(content);
        noteWhoSends(message);
        if (!passes(message, tag != 0)) return;
        step([&](dqueue::Output& out) { machine_->receive(std::move(message), tag, time(), out); });
    }
    void work(const WorkStep& step_) override {
        if (gone_) return;
        switch (step_.kind) {
            case leaveQueue:
                step([&](dqueue::Output& out) { machine_->leave(time(), out); });
                break;
            case changeTasks: {
                const auto tasks = static_cast<uint32_t>(step_.argument);
                common_.checker.capacity(life_, tasks);
                step([&](dqueue::Output& out) { EXPECT_EQ(machine_->setWorkerTasks(tasks, time(), out), QUORL_OK); });
                break;
            }
            case changeWeight:
                step([&](dqueue::Output& out) {
                    EXPECT_EQ(machine_->setWorkerWeight(static_cast<uint32_t>(step_.argument), time(), out), QUORL_OK);
                });
                break;
            case listenAgain: {
                // Whatever goes back may come to the next one.
                for (const uint32_t old : std::vector(listeners_)) {
                    std::erase(listeners_, old);
                    for (const Given& given : given_) {
                        if (given.listener == old) common_.checker.givesBack(life_, given.task, common_.now());
                    }
                    std::erase_if(given_, [&](const Given& given) { return given.listener == old; });
                    step([&](dqueue::Output& out) { machine_->destroyListener(old, false, time(), out); });
                    if (gone_ || !node_.acting()) return;
                }
                for (const std::string& pattern : common_.composition.patterns[node_.number()]) listen(pattern);
                break;
            }
            default:
                break;
        }
    }

    uint32_t life() const { return life_; }
    bool gone() const { return gone_; }
    uint64_t given() const { return givenCount_; }
    dqueue::Counts counts() const { return machine_->counts(); }

  private:
    struct Given {
        Checked task;
        bool kept = false;
        uint32_t number = 0;
        uint32_t listener = 0;
        uint32_t reassigned = 0;
        Time until = never;
    };

    certified::Now time() const { return {node_.monotonic(), node_.wall()}; }

    void listen(const std::string& pattern) {
        if (gone_ || !node_.acting()) return;
        const uint32_t number = ++lastListener_;
        listeners_.push_back(number);  // tasks may come at once
        step([&](dqueue::Output& out) { EXPECT_EQ(machine_->createListener(number, pattern, time(), out), QUORL_OK); });
    }

    void noteWhoSends(const companion::Message& message) {
        const auto attributes = message.attributes();
        dqueue::Frame frame;
        ftolerance::Frame beat;
        uint64_t from = 0;
        if (dqueue::decode(attributes, &frame) == dqueue::Decoded::frame) {
            from = frame.member;
        } else if (!attributes.empty() && attributes.front() == ftolerance::companionNumber &&
                   ftolerance::decode(attributes, &beat) == nullptr) {
            from = beat.member;
        }
        if (const auto found = common_.nodeOf.find(from); found != common_.nodeOf.end())
            common_.checker.hears(life_, found->second, common_.now());
    }

    static bool reworked(companion::Message& message, const std::function<bool(dqueue::Frame&)>& change) {
        dqueue::Frame frame;
        if (dqueue::decode(message.attributes(), &frame) != dqueue::Decoded::frame) return true;
        const companion::Message before = message;
        if (!change(frame)) return false;
        dqueue::FrameWriter writer;
        dqueue::encode(frame, writer);
        EXPECT_EQ(before.withAttributes(writer.bytes(), &message), QUORL_OK);
        return true;
    }
    static bool reworkedCertified(companion::Message& message, const std::function<bool(certified::Frame&)>& change) {
        certified::Frame frame;
        if (certified::decode(message.attributes(), &frame) != certified::Decoded::frame) return true;
        const companion::Message before = message;
        if (!change(frame)) return false;
        certified::FrameWriter writer;
        certified::encode(frame, writer);
        EXPECT_EQ(before.withAttributes(writer.bytes(), &message), QUORL_OK);
        return true;
    }
    bool passes(companion::Message& message, bool ear) {
        if (ear) return !seam_.hearsCertified || reworkedCertified(message, seam_.hearsCertified);
        return !seam_.hears || reworked(message, seam_.hears);
    }

    template <class F>
    void step(F&& call) {
        if (gone_ || !node_.acting()) return;
        dqueue::Output out;
        call(out);
        carryOut(out);
    }

    void carryOut(dqueue::Output& out) {
        if (seam_.tells) seam_.tells(out);
        for (const dqueue::Ear& ear : out.ears) {
            if (!ear.subject.empty()) node_.subscribe(ear.subject, ear.number);
        }
        const bool scheduler = machine_->counts().scheduler;
        if (scheduler != scheduler_) common_.checker.reigns(life_, scheduler, common_.now());
        scheduler_ = scheduler;
        for (const dqueue::DeadLetter& letter : out.deadLetters) {
            certified::Attributes attributes;
            const bool kept = certified::attributesOf(letter.message, &attributes);
            common_.checker.deadLetter(taskOf(letter.message), letter.reassigned, kept, common_.now());
        }
        for (companion::Message& message : out.messages) {
            if (seam_.sends && !reworked(message, seam_.sends)) continue;
            if (seam_.sendsCertified && !reworkedCertified(message, seam_.sendsCertified)) continue;
            if (seam_.sendsElection && !electionPasses(message)) continue;
            if (!node_.acting()) return;
            node_.publish(companion::Access::take(companion::Message(message)));
        }
        if (!node_.acting()) return;
        for (const dqueue::Task& task : out.tasks) give(task);
        const dqueue::Counts counts = machine_->counts();
        runs.highestMemory = std::max(runs.highestMemory, counts.memory);
        if (counts.scheduler) common_.checker.waiting(life_, counts.unassigned, common_.composition.backlogMessages);
        if (!out.left) return;
        gone_ = true;
        common_.checker.ends(life_, false, common_.now());
    }
    bool electionPasses(companion::Message& message) {
        const auto attributes = message.attributes();
        ftolerance::Frame frame;
        if (attributes.empty() || attributes.front() != ftolerance::companionNumber ||
            ftolerance::decode(attributes, &frame) != nullptr)
            return true;
        if (!seam_.sendsElection(frame)) return false;
        EXPECT_EQ(message.withAttributes(ftolerance::encode(frame).span(), &message), QUORL_OK);
        return true;
    }

    void give(const dqueue::Task& task) {
        Given given;
        given.task = taskOf(task.message);
        given.kept = task.certified;
        given.number = task.number;
        given.listener = task.listener;
        given.reassigned = task.reassigned;
        if (task.certified && machine_->taskOf(task.message) != task.number)
            wrong = "a task's message does not name the task";
        if (std::ranges::find(listeners_, task.listener) == listeners_.end())
            wrong = "a task comes to a listener that there is not";
        common_.checker.given(life_, given.task, given.kept, common_.now());
        const Time work = node_.random().between(0, common_.composition.longestWork);
        given.until = given.task.kind == forgotten ? never : node_.monotonic() + work;
        given_.push_back(given);
        ++givenCount_;
        if (seam_.completesEarly) step([&](dqueue::Output& out) { machine_->complete(given.number, time(), out); });
    }

    void finish(const Given& given) {
        const bool gives = given.task.kind == fails || (given.task.kind == failsOnce && given.reassigned == 0);
        const Time now = common_.now();
        // The program has done it, whatever becomes of the call.
        if (gives) {
            common_.checker.givesBack(life_, given.task, now);
        } else {
            common_.checker.completes(life_, given.task, given.kept, now);
        }
        step([&](dqueue::Output& out) {
            const quorl_status status =
                gives ? machine_->giveBack(given.number, time(), out) : machine_->complete(given.number, time(), out);
            if (status != QUORL_OK && !seam_.completesEarly) wrong = "a task that is held cannot be completed";
        });
    }

    Node& node_;
    Common& common_;
    QueueSeam seam_;
    uint32_t life_ = 0;
    std::unique_ptr<dqueue::Machine> machine_;
    std::vector<Given> given_;
    uint64_t givenCount_ = 0;  // ever
    std::vector<uint32_t> listeners_;
    uint32_t lastListener_ = 0;
    bool scheduler_ = false;
    bool gone_ = false;
};

// ---- a sender, which does not end

class Sender : public Program {
  public:
    Sender(Node& node, Common& common) : node_(node), common_(common) {
        number_ = node.number() - common.composition.members;
        certified::Settings settings;
        settings.name = "sender." + std::to_string(number_);
        certified::Chance chance;
        chance.incarnation = node.random()();
        chance.instance = node.random()();
        chance.senderKey = {node.random()(), node.random()()};
        chance.listenerKey = {node.random()(), node.random()()};
        machine_ = std::make_unique<certified::Machine>(settings, chance);
        node_.subscribe(machine_->address(), 0);
        node_.subscribe(certified::everybody, 0);
        step([&](certified::Output& out) { return machine_->start(true, time(), out); });
        step([&](certified::Output& out) { return machine_->addListener(queueName, "t.>", time(), out); });
    }

    Time due() const override { return machine_->due(); }
    void tick() override {
        step([&](certified::Output& out) {
            machine_->tick(time(), out);
            return QUORL_OK;
        });
    }
    void receive(uint32_t, const message::ContentRef& content) override {
        step([&](certified::Output& out) {
            machine_->receive(companion::Access::wrap(content), 0, time(), out);
            return QUORL_OK;
        });
    }
    void work(const WorkStep& step_) override {
        for (uint64_t i = 0; i < (step_.argument & 0xff); ++i) {
            const auto subject = static_cast<uint32_t>(step_.argument >> 8) % common_.composition.subjects;
            uint32_t kind = none;
            if (common_.composition.poison && node_.random().below(20) == 0)
                kind = static_cast<uint32_t>(node_.random().between(failsOnce, forgotten));
            const Checked task{number_, subject, kind, ++sent_};
            const companion::Message message = messageOf(task, subjects[subject]);
            if (step_.kind == sendPlain) {
                node_.publish(companion::Access::take(companion::Message(message)));
                continue;
            }
            uint64_t number = 0;
            const quorl_status status = step([&](certified::Output& out) {
                const quorl_status sent = machine_->send(message, 0, time(), out, &number);
                if (sent == QUORL_OK) {
                    common_.checker.accepted(task, common_.now());
                    bySubject_[{subject, number}] = task;
                }
                return sent;
            });
            EXPECT_EQ(status, QUORL_OK);
        }
    }
    uint64_t kept() const { return machine_->counts().messages; }

  private:
    certified::Now time() const { return {node_.monotonic(), node_.wall()}; }
    template <class F>
    quorl_status step(F&& call) {
        certified::Output out;
        const quorl_status status = call(out);
        for (companion::Message& message : out.messages) node_.publish(companion::Access::take(std::move(message)));
        for (const certified::Event& event : out.events) {
            if (event.kind != certified::Event::Kind::confirmed) continue;
            const auto subject = static_cast<uint32_t>(std::ranges::find(subjects, event.subject) - subjects.begin());
            for (uint64_t number = event.first; number <= event.last; ++number) {
                if (const auto found = bySubject_.find({subject, number}); found != bySubject_.end())
                    common_.checker.confirmed(found->second, common_.now());
            }
        }
        return status;
    }

    Node& node_;
    Common& common_;
    uint32_t number_ = 0;
    uint32_t sent_ = 0;
    std::unique_ptr<certified::Machine> machine_;
    std::map<std::pair<uint32_t, uint64_t>, Checked> bySubject_;
};

}  // namespace

namespace {

// What each worker was given, held against its weight.
std::string unfairShare(const Composition& composition, const std::vector<uint64_t>& given) {
    double all = 0;
    double sum = 0;
    for (uint32_t i = 0; i < composition.members; ++i) {
        all += static_cast<double>(given[i]);
        sum += composition.weights[i];
    }
    ++runs.shared;
    for (uint32_t i = 0; i < composition.members; ++i) {
        const double share = all * composition.weights[i] / sum;
        const double off = std::abs(static_cast<double>(given[i]) - share);
        runs.furthestFromShare = std::max(runs.furthestFromShare, off);
        if (off > std::max(share / 20, 2.0))
            return "member " + std::to_string(i) + " of weight " + std::to_string(composition.weights[i]) +
                   " was given " + std::to_string(given[i]) + " tasks, and its share is " + std::to_string(share);
    }
    return {};
}

}  // namespace

std::string runQueue(const Plan& plan, const QueueSeamOf& seamOf) {
    wrong.clear();
    const Composition composition = compose(plan);
    QueueChecker checker(composition.terms);
    World* running = nullptr;
    Common common{composition, checker, [&] { return running != nullptr ? running->now() : 0; }, {}};
    std::vector<Member*> members(composition.members, nullptr);
    std::vector<Sender*> senders(composition.senders, nullptr);
    World world(plan, [&](Node& node) -> std::unique_ptr<Program> {
        if (node.number() < composition.members) {
            auto member = std::make_unique<Member>(node, common, seamOf ? seamOf(node.number()) : QueueSeam());
            members[node.number()] = member.get();
            ++runs.lives;
            return member;
        }
        auto sender = std::make_unique<Sender>(node, common);
        senders[node.number() - composition.members] = sender.get();
        return sender;
    });
    running = &world;
    for (const FaultStep& fault : plan.faults) {
        if (fault.fault == Fault::cut || fault.fault == Fault::split || fault.fault == Fault::isolate ||
            fault.fault == Fault::pause || fault.fault == Fault::noRoom)
            checker.cutOff(fault.at, std::min(fault.at + fault.lasts, plan.healedAt));
    }
    const auto reached = [&](uint32_t node) { return (plan.healed >> node & 1) != 0; };
    const auto standing = [&] {
        std::set<uint32_t> lives;
        for (uint32_t i = 0; i < composition.members; ++i) {
            const auto* member = static_cast<const Member*>(world.node(i).program());
            if (reached(i) && member != nullptr && !member->gone()) lives.insert(member->life());
        }
        return lives;
    };
    const auto unreported = [&] {
        uint64_t count = 0;
        for (uint32_t i = 0; i < composition.members; ++i) {
            const auto* member = static_cast<const Member*>(world.node(i).program());
            if (reached(i) && member != nullptr && !member->gone()) count += member->counts().unreported;
        }
        return count;
    };
    const auto done = [&] {
        if (!checker.broken().empty() || !wrong.empty()) return true;
        if (world.now() < plan.healedAt + composition.terms.activation * 4 + 2 * second || !checker.satisfied())
            return false;
        for (uint32_t i = 0; i < composition.senders; ++i) {
            if (senders[i]->kept() != 0) return false;
        }
        // One that leaves at this very moment has a successor soon.
        uint32_t schedulers = 0;
        for (uint32_t i = 0; i < composition.members; ++i) {
            const auto* member = static_cast<const Member*>(world.node(i).program());
            schedulers += reached(i) && member != nullptr && !member->gone() && member->counts().scheduler;
        }
        return schedulers == 1 && unreported() == 0;
    };
    const bool quiet = world.run(plan.healedAt + 1500 * second, done);
    std::string broken = !wrong.empty() ? wrong : checker.broken();
    if (broken.empty()) {
        checker.finish(standing(), world.now());
        broken = checker.broken();
    }
    if (broken.empty() && !quiet)
        broken =
            unreported() != 0 ? "a worker goes on reporting what is completed" : "a sender keeps what is completed";
    if (broken.empty() && isSteady(plan)) {
        std::vector<uint64_t> given;
        for (const Member* member : members) given.push_back(member->given());
        broken = unfairShare(composition, given);
    }
    if (broken.empty()) {
        // Nothing stays that would grow.
        for (uint32_t i = 0; i < composition.members; ++i) {
            const auto* member = static_cast<const Member*>(world.node(i).program());
            if (member == nullptr || member->gone()) continue;
            if (member->counts().memory > 200'000)
                broken = "a member keeps " + std::to_string(member->counts().memory) + " bytes when all is done";
        }
    }
    const QueueTotals& totals = checker.totals();
    static_cast<QueueTotals&>(runs).accepted += totals.accepted;
    runs.completed += totals.completed;
    runs.deadLetters += totals.deadLetters;
    runs.lost += totals.lost;
    runs.givenAgain += totals.givenAgain;
    runs.twiceExpired += totals.twiceExpired;
    runs.twiceCrashed += totals.twiceCrashed;
    runs.twiceCutOff += totals.twiceCutOff;
    runs.twiceUnexplained += totals.twiceUnexplained;
    runs.reigns += totals.reigns;
    runs.plain += totals.plain;
    runs.events += world.events();
    ++runs.runs;
    return broken;
}

Plan drawQueue(uint64_t seed) {
    Random random(seed);
    Plan plan;
    plan.seed = seed;
    Random shape(mix(seed ^ 0x6471));
    const auto senders = static_cast<uint32_t>(shape.between(1, 2));
    const auto members =
        static_cast<uint32_t>(random.below(8) == 0 ? random.between(1, mostMembers) : random.between(1, 4));
    plan.nodes = members + senders;
    plan.rates = drawRates(random);
    // A quarter lost is a partition most of the time.
    if (random.coin()) plan.rates.loss = 0;
    plan.rates.loss = std::min(plan.rates.loss, 150'000u);
    plan.rates.longest = std::min(plan.rates.longest, plan.rates.shortest + 80 * millisecond);
    constexpr auto bit = [](Fault fault) { return 1u << static_cast<uint32_t>(fault); };
    FaultChoice choice{.most = 8, .span = 14 * second, .longest = 8 * second};
    choice.kinds = bit(Fault::cut) | bit(Fault::split) | bit(Fault::isolate) | bit(Fault::pause) | bit(Fault::kill) |
                   bit(Fault::powerLoss) | bit(Fault::killAt) | bit(Fault::wallClock) | bit(Fault::noRoom);
    // Where nothing but crashes happens, little is explained.
    if (random.coin()) choice.kinds = bit(Fault::kill) | bit(Fault::killAt);
    if (random.below(6) != 0) plan.faults = drawFaults(random, plan.nodes, choice);
    for (FaultStep& fault : plan.faults) {
        const bool ends = fault.fault == Fault::kill || fault.fault == Fault::powerLoss || fault.fault == Fault::killAt;
        if (ends) fault.node %= members;
        if (fault.fault == Fault::killAt) {
            fault.amount *= 4;
            fault.lasts = std::max<Time>(fault.lasts, 0);
        }
    }
    plan.healedAt = random.between(2, 16) * second;
    if (random.below(3) == 0) {
        const uint64_t side = random();
        const Time at = random.between(0, plan.healedAt);
        const Time lasts = random.between(1, 10) * second;
        for (uint32_t one = 0; one < plan.nodes; ++one) {
            for (uint32_t other = one + 1; other < plan.nodes; ++other) {
                if (((side >> one ^ side >> other) & 1) != 0)
                    plan.faults.push_back({at, Fault::split, one, other, lasts, 0});
            }
        }
        plan.healedAt = std::max(plan.healedAt, at + lasts);
    }
    if (random.below(5) == 0) {
        // The senders, and the first member, are always among the healthy.
        plan.healed = random() | 1;
        for (uint32_t node = members; node < plan.nodes; ++node) plan.healed |= uint64_t{1} << node;
    }
    const uint64_t works = random.between(2, 14);
    if (isSteady(plan)) {
        plan.rates.loss = 0;
        plan.faults.clear();
        plan.healed = ~uint64_t{0};
        // They have elected one scheduler by then.
        plan.healedAt = 16 * second;
        for (uint64_t i = 0; i < works; ++i) {
            const auto node = members + static_cast<uint32_t>(random.below(senders));
            const uint64_t argument = random.below(3) << 8 | static_cast<uint64_t>(random.between(1, 30));
            plan.work.push_back({random.between(10 * second, 15 * second), node, sendSome, argument});
        }
        return plan;
    }
    for (uint64_t i = 0; i < works; ++i) {
        const auto node = members + static_cast<uint32_t>(random.below(senders));
        const uint64_t argument = random.below(3) << 8 | static_cast<uint64_t>(random.between(1, 30));
        plan.work.push_back(
            {random.between(0, 14 * second), node, random.below(8) == 0 ? sendPlain : sendSome, argument});
    }
    const uint64_t changes = random.below(4);
    for (uint64_t i = 0; i < changes; ++i) {
        const auto node = static_cast<uint32_t>(random.below(members));
        const Time at = random.between(0, 14 * second);
        switch (random.below(4)) {
            case 0:
                if (node != 0) plan.work.push_back({at, node, leaveQueue, 0});
                break;
            case 1:
                plan.work.push_back({at, node, changeTasks, static_cast<uint64_t>(random.between(node == 0, 20))});
                break;
            case 2:
                plan.work.push_back({at, node, changeWeight, static_cast<uint64_t>(random.between(1, 9))});
                break;
            default:
                plan.work.push_back({at, node, listenAgain, 0});
                break;
        }
    }
    return plan;
}

std::string nameOfQueueWork(const WorkStep& step) {
    switch (step.kind) {
        case sendSome:
            return "send " + std::to_string(step.argument & 0xff);
        case sendPlain:
            return "send plain " + std::to_string(step.argument & 0xff);
        case leaveQueue:
            return "leave";
        case changeTasks:
            return "tasks";
        case changeWeight:
            return "weight";
        default:
            return "listen again";
    }
}

const QueueRuns& queueRuns() {
    return runs;
}

}  // namespace quorl::sim
