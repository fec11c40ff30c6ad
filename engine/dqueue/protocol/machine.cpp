// One member: its election, its worker, and its time as the scheduler.
#include "dqueue/protocol/machine.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>

#include "certified/protocol/subject.h"
#include "dqueue/protocol/scheduler.h"
#include "dqueue/protocol/shared.h"
#include "dqueue/protocol/worker.h"
#include "quorl/quorl.h"

namespace quorl::dqueue {
namespace {

constexpr int64_t pruneEvery = 60 * seconds;
constexpr int64_t forgetAfter = 600 * seconds;
constexpr int64_t longestCompleteTime = int64_t{30} * 86'400 * seconds;

}  // namespace

struct Machine::Impl {
    Impl(const Settings& settings, const Chance& chance) : shared(settings, chance), worker(shared) {}

    Shared shared;
    Worker worker;
    std::unique_ptr<Scheduler> scheduler;
    ftolerance::MemberOutput electionOut;
    uint64_t peersSeen = 0;  // which of their changes
    Term highest;            // that was heard of
    int64_t renewedAt = INT64_MIN / 2;
    Term compared;  // whose limits were
    int64_t pruneAt = INT64_MAX;
    bool started = false;
    bool leaving = false;
    bool aside = false;  // in the election
    bool gone = false;
    bool newerTold = false;

    ftolerance::Now electionNow() const noexcept { return {shared.now.monotonic, shared.now.wall}; }

    // One call: what it does, what it means for this member itself, and what follows from both. Where memory is short what
    // follows is left for the next one.
    template <class F>
    void step(Now now, Output& out, F&& call) {
        shared.now = now;
        shared.out = &out;
        if (gone) return;
        call();
        finish();
    }

    void finish() {
        for (;;) {
            followElection();
            while (!shared.own.empty()) {
                const companion::Message message = std::move(shared.own.front());
                shared.own.pop_front();
                receive(message, true);
            }
            if (scheduler != nullptr) {
                renewIfLate();
                scheduler->pump();
            }
            if (shared.own.empty()) break;
        }
        takeOverIfNobodyElseDoes();
        if (leaving && worker.finished() && (scheduler == nullptr || !scheduler->isAwaited())) {
            goNow();
            shared.out->left = true;
        }
        shared.tellClosed();
    }

    // All that could hear what this member has done leave too, or are gone: it confirms that to the senders itself.
    void takeOverIfNobodyElseDoes() {
        if (!leaving || scheduler != nullptr || worker.connected() || worker.finished()) return;
        bool somebody = false;
        shared.election.peers().each(
            [&](const ftolerance::Peer& peer) { somebody = somebody || ftolerance::isRanked(peer.last.state); });
        if (!somebody) elect([&](ftolerance::Member& member) { member.joinAnew(electionNow(), electionOut); });
    }

    // What it has to say it says where there is memory for it.
    void goNow() noexcept {
        gone = true;
        tried([&] { worker.flush(); });
        if (scheduler != nullptr) endScheduling();
        tried([&] { elect([&](ftolerance::Member& member) { member.leave(electionNow(), electionOut); }); });
    }

    template <class F>
    static void tried(F&& call) noexcept {
        try {
            call();
        } catch (const std::bad_alloc&) {
            // As if it had been lost on the way.
        }
    }

    // Of calls that need no memory themselves: what follows may, and is done later then.
    template <class F>
    quorl_status surely(Now now, Output& out, quorl_status otherwise, F&& call) noexcept {
        quorl_status status = otherwise;
        tried([&] { step(now, out, [&] { status = call(); }); });
        return status;
    }
    template <class F>
    quorl_status change(Now now, Output& out, F&& call) noexcept {
        return surely(now, out, QUORL_OK, [&] {
            call();
            return QUORL_OK;
        });
    }

    // ---- the election

    template <class F>
    void elect(F&& call) {
        electionOut.clear();
        call(shared.election);
        for (;;) {
            // What the election has decided holds, whether or not it can be told.
            tried([&] {
                for (const ftolerance::Frame& frame : electionOut.frames) {
                    companion::Message message;
                    if (companion::Message::empty(shared.group, &message) != QUORL_OK ||
                        message.withAttributes(ftolerance::encode(frame).span(), &message) != QUORL_OK)
                        throw std::bad_alloc();
                    shared.out->messages.push_back(std::move(message));
                }
                for (const ftolerance::Advisory& advisory : electionOut.advisories) tell(advisory);
            });
            const auto actions = std::move(electionOut.actions);
            electionOut.clear();
            bool deactivated = false;
            for (const ftolerance::Told& told : actions) {
                if (told.action != ftolerance::Action::deactivate) continue;
                if (scheduler != nullptr) endScheduling();
                deactivated = true;
            }
            if (!deactivated) return;
            shared.election.deactivated(electionNow(), electionOut);
            if (!leaving || aside) continue;
            shared.election.stepAside(electionNow(), electionOut);
            aside = true;
        }
    }

    bool elected() const noexcept { return !gone && shared.election.state() == ftolerance::State::active; }

    // It is the scheduler when it is elected, and who leaves is not, once more at the latest with the next step.
    void followElection() {
        if (gone) return;
        if (leaving && scheduler == nullptr && !aside) {
            elect([&](ftolerance::Member& member) { member.stepAside(electionNow(), electionOut); });
            aside = true;
        }
        if (elected() && scheduler == nullptr) beginScheduling();
        const uint64_t changes = shared.election.peers().changes();
        if (changes == peersSeen) return;
        if (scheduler != nullptr) scheduler->membersChanged();
        peersSeen = changes;
    }

    void tell(const ftolerance::Advisory& advisory) {
        switch (advisory.event) {
            case ftolerance::Event::disagreement:
                shared.tell(Event::Kind::disagreement, advisory.about.member).reason = "its intervals are others";
                break;
            case ftolerance::Event::crowded:
                shared.tell(Event::Kind::crowded, advisory.about.member).number = advisory.number;
                break;
            case ftolerance::Event::malformed:
                ++shared.counts.foreign;
                break;
            default:
                break;
        }
    }

    Term nextTerm() const noexcept {
        const auto wall = static_cast<uint64_t>(std::max<int64_t>(shared.now.wall / milliseconds, 0));
        return {std::min(std::max(highest.number + 1, wall), termMost), shared.id};
    }

    void beginScheduling() {
        const Term term = nextTerm();
        auto made = std::make_unique<Scheduler>(shared, term);
        made->start();
        scheduler = std::move(made);
        highest = std::max(highest, term);
        renewedAt = shared.now.monotonic;
    }

    void endScheduling() noexcept {
        scheduler->end();
        scheduler.reset();
    }

    // There was a scheduler on the other side of a partition. Its terms are over when this one's is later, for all to see.
    void renewIfLate() {
        if (highest <= scheduler->term() || shared.now.monotonic - renewedAt < shared.settings.intervals.heartbeat)
            return;
        renewedAt = shared.now.monotonic;
        const Term term = nextTerm();
        if (term <= highest) return;
        highest = term;
        scheduler->renew(term);
    }

    // ---- what comes in

    void receive(const companion::Message& message, bool own) {
        Frame frame;
        const Decoded decoded = decode(message.attributes(), &frame);
        if (decoded != Decoded::frame) {
            ++shared.counts.foreign;
            if (decoded == Decoded::newer && !std::exchange(newerTold, true)) shared.tell(Event::Kind::newerMember);
            return;
        }
        if (!own && frame.member == shared.id) return;  // what it has said to all comes back
        if (!own) shared.election.heard(frame.member, electionNow());
        highest = std::max(highest, frame.term);
        switch (frame.kind) {
            case Kind::beat:
                compare(frame);
                return worker.onBeat(frame);
            case Kind::task:
                return worker.onTask(frame, message);
            case Kind::settled:
                return worker.onSettled(frame);
            case Kind::counted:
                return worker.onCounted(frame);
            case Kind::welcome:
                return worker.onWelcome(frame);
            case Kind::voided:
                return worker.onVoided(frame);
            case Kind::offer:
                if (scheduler != nullptr) scheduler->onOffer(frame);
                return;
            case Kind::report:
                if (scheduler != nullptr) scheduler->onReport(frame);
                return;
        }
    }

    void compare(const Frame& frame) {
        if (frame.member == shared.id || frame.term == compared) return;
        compared = frame.term;
        const Settings& settings = shared.settings;
        const char* differs = nullptr;
        if (frame.completeTime != settings.completeTime) {
            differs = "its complete time is another";
        } else if (frame.limitMessages != settings.backlogMessages || frame.limitBytes != settings.backlogBytes) {
            differs = "its backlog limit is another";
        } else if (frame.limitReassignments != settings.reassignments) {
            differs = "its limit of reassignments is another";
        }
        if (differs != nullptr) shared.tell(Event::Kind::disagreement, frame.member).reason = differs;
    }

    // ---- times

    int64_t due() const noexcept {
        if (gone || !started) return INT64_MAX;
        // What no memory was found for.
        if (!shared.own.empty() || !shared.closing.empty() || (elected() && scheduler == nullptr)) return INT64_MIN;
        int64_t due = std::min({shared.election.due(), worker.due(), pruneAt});
        if (scheduler == nullptr) return due;
        due = std::min(due, scheduler->due());
        if (highest > scheduler->term() && nextTerm() > highest)
            due = std::min(due, renewedAt + shared.settings.intervals.heartbeat);
        return due;
    }

    void tick() {
        if (shared.election.due() <= shared.now.monotonic)
            elect([&](ftolerance::Member& member) { member.tick(electionNow(), electionOut); });
        followElection();
        worker.tick();
        if (scheduler != nullptr) scheduler->tick();
        if (pruneAt > shared.now.monotonic) return;
        pruneAt = shared.now.monotonic + pruneEvery;
        shared.streams.forget(shared.now.monotonic - forgetAfter);
    }
};

Machine::Machine(const Settings& settings, const Chance& chance) : impl_(std::make_unique<Impl>(settings, chance)) {}
Machine::Machine(Machine&&) noexcept = default;
Machine& Machine::operator=(Machine&&) noexcept = default;
Machine::~Machine() = default;

uint64_t Machine::id() const noexcept {
    return impl_->shared.id;
}

const std::string& Machine::address() const noexcept {
    return impl_->shared.address;
}

const std::string& Machine::groupSubject() const noexcept {
    return impl_->shared.group;
}

void Machine::start(Now now, Output& out) {
    impl_->step(now, out, [&] {
        impl_->started = true;
        impl_->pruneAt = now.monotonic + pruneEvery;
        impl_->elect([&](ftolerance::Member& member) { member.start(impl_->electionNow(), impl_->electionOut); });
    });
}

int64_t Machine::due() const noexcept {
    return impl_->due();
}

void Machine::tick(Now now, Output& out) {
    impl_->step(now, out, [&] { impl_->tick(); });
}

void Machine::receive(companion::Message message, uint32_t ear, Now now, Output& out) {
    impl_->step(now, out, [&] {
        if (ear != 0) {
            if (impl_->scheduler != nullptr) impl_->scheduler->onCertified(std::move(message), ear);
            return;
        }
        const auto attributes = message.attributes();
        if (!attributes.empty() && attributes.front() == ftolerance::companionNumber) {
            impl_->elect([&](ftolerance::Member& member) {
                member.receive(attributes, impl_->electionNow(), impl_->electionOut);
            });
            return;
        }
        impl_->receive(message, false);
    });
}

// ---- the worker

quorl_status Machine::createListener(uint32_t number, std::string_view pattern, Now now, Output& out) {
    quorl_status status = QUORL_INVALID_TRANSPORT;
    impl_->step(now, out, [&] { status = impl_->worker.createListener(number, pattern); });
    return status;
}

void Machine::destroyListener(uint32_t number, bool cancel, Now now, Output& out) {
    impl_->change(now, out, [&] { impl_->worker.destroyListener(number, cancel); });
}

quorl_status Machine::complete(uint32_t task, Now now, Output& out) {
    return impl_->surely(now, out, QUORL_NOT_FOUND, [&] { return impl_->worker.complete(task); });
}

quorl_status Machine::giveBack(uint32_t task, Now now, Output& out) {
    return impl_->surely(now, out, QUORL_NOT_FOUND, [&] { return impl_->worker.giveBack(task, GroupKind::failed); });
}

uint32_t Machine::taskOf(const companion::Message& message) const noexcept {
    return impl_->worker.taskOf(message);
}

// ---- while running

quorl_status Machine::setWorkerWeight(uint32_t weight, Now now, Output& out) {
    if (weight == 0 || weight > workerWeightMost) return QUORL_INVALID_ARG;
    return impl_->change(now, out, [&] {
        impl_->shared.settings.workerWeight = weight;
        impl_->worker.offerAnew();
    });
}

quorl_status Machine::setWorkerTasks(uint32_t tasks, Now now, Output& out) {
    if (tasks > workerTasksMost) return QUORL_INVALID_ARG;
    return impl_->change(now, out, [&] {
        impl_->shared.settings.workerTasks = tasks;
        impl_->worker.offerAnew();
    });
}

quorl_status Machine::setCompleteTime(int64_t completeTime, Now now, Output& out) {
    if (completeTime < 0 || completeTime > longestCompleteTime) return QUORL_INVALID_ARG;
    return impl_->change(now, out, [&] { impl_->shared.settings.completeTime = completeTime; });
}

quorl_status Machine::setBacklog(uint64_t messages, uint64_t bytes, Now now, Output& out) {
    return impl_->change(now, out, [&] {
        impl_->shared.settings.backlogMessages = messages;
        impl_->shared.settings.backlogBytes = bytes;
    });
}

quorl_status Machine::setReassignments(uint32_t most, Now now, Output& out) {
    if (most > reassignmentsMost) return QUORL_INVALID_ARG;
    return impl_->change(now, out, [&] { impl_->shared.settings.reassignments = most; });
}

// ---- going

void Machine::leave(Now now, Output& out) {
    if (impl_->gone) out.left = true;
    impl_->change(now, out, [&] {
        if (std::exchange(impl_->leaving, true)) return;
        // A scheduler goes on until it has completed what it holds: then the next one need not take over twice.
        impl_->worker.leave();
    });
}

void Machine::close(Now now, Output& out) {
    impl_->shared.now = now;
    impl_->shared.out = &out;
    if (!impl_->gone) impl_->goNow();
    Impl::tried([&] { impl_->shared.tellClosed(); });
}

Counts Machine::counts() const noexcept {
    Counts counts = impl_->shared.counts;
    counts.members = 1;
    impl_->shared.election.peers().each(
        [&](const ftolerance::Peer& peer) { counts.members += peer.last.state != ftolerance::State::left; });
    counts.memory = impl_->shared.streams.memory();
    impl_->worker.count(counts);
    counts.scheduler = impl_->scheduler != nullptr;
    if (impl_->scheduler != nullptr) impl_->scheduler->count(counts);
    return counts;
}

std::vector<WorkerReview> Machine::workers() const {
    return impl_->scheduler != nullptr ? impl_->scheduler->workers() : std::vector<WorkerReview>();
}

const char* check(const Settings& settings) noexcept {
    if (!certified::validName(settings.queue))
        return "the name of the queue must be a subject without wildcards of at most 200 bytes";
    if (settings.workerWeight == 0 || settings.workerWeight > workerWeightMost)
        return "the worker's weight must be from 1 to 1,000,000";
    if (settings.workerTasks > workerTasksMost) return "the worker's tasks must be from 0 to 1,000,000";
    if (settings.schedulerWeight == 0) return "the scheduler's weight must be from 1 to 65,535";
    if (!ftolerance::areInOrder(settings.intervals))
        return "the activation interval must be longer than the heartbeat interval: set it to three heartbeats or more";
    if (settings.completeTime < 0 || settings.completeTime > longestCompleteTime)
        return "the complete time must be from 0.001 seconds to 30 days, or 0 for no limit";
    if (settings.reassignments > reassignmentsMost) return "the reassignments must be from 0 to 1,000,000";
    if (settings.perStream == 0) return "a stream must be given room for one task at least";
    return nullptr;
}

const char* completeTimeFrom(double time, int64_t* completeTime) noexcept {
    constexpr double longest = static_cast<double>(longestCompleteTime) / 1e9;
    if (time != 0 && !(time >= 0.001 && time <= longest))
        return "the complete time must be from 0.001 seconds to 30 days, or 0 for no limit";
    *completeTime = std::llround(time * 1e6) * 1000;
    return nullptr;
}

}  // namespace quorl::dqueue
