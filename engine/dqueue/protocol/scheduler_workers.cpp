// Workers: coming, saying what they hold and have done, and going.
#include <algorithm>
#include <utility>

#include "certified/protocol/frame.h"
#include "dqueue/protocol/scheduler.h"
#include "quorl/quorl.h"

namespace quorl::dqueue {
namespace {

constexpr size_t resentMost = 256;  // hand-outs at once
constexpr size_t overdueMost = 10'000;
// Numbers of one frame that are looked at one by one; workers say more only of what is settled.
constexpr uint64_t numbersMost = 100'000;
constexpr int64_t missedFor = 30 * milliseconds;

// Of what is left for a frame; false: it does not suffice.
bool spares(uint64_t& left, const Range& range) noexcept {
    if (range.last - range.first >= left) return false;
    left -= range.last - range.first + 1;
    return true;
}

// Marks a part as come; true: all have.
bool comes(std::vector<bool>& parts, const Frame& frame) {
    if (parts.size() != frame.parts) return false;
    parts[frame.part] = true;
    return std::ranges::find(parts, false) == parts.end();
}

}  // namespace

WorkerEntry* Scheduler::find(uint64_t member) const noexcept {
    const auto found = workersByMember_.find(member);
    return found == workersByMember_.end() ? nullptr : found->second;
}

bool Scheduler::isMember(uint64_t member) const noexcept {
    if (member == shared_.id) return true;
    bool found = false;
    shared_.election.peers().each([&](const ftolerance::Peer& peer) {
        found = found || (peer.last.member == member && peer.last.state != ftolerance::State::left);
    });
    return found;
}

// The worker that a frame of an attachment is from. Null: nobody that is known to be there, or it is late.
WorkerEntry* Scheduler::meet(const Frame& frame) {
    WorkerEntry* worker = find(frame.member);
    if (worker == nullptr) {
        if (!isMember(frame.member)) {
            ++shared_.counts.foreign;
            return nullptr;
        }
        if (workers_.size() >= membersMost) {
            if (!std::exchange(crowdedTold_, true))
                shared_.tell(Event::Kind::crowded, frame.member).number = workers_.size();
            return nullptr;
        }
        auto made = std::make_unique<WorkerEntry>();
        worker = made.get();
        worker->member = frame.member;
        worker->label = shared_.labelOf(frame.member);
        worker->address = addressOf(shared_.settings.queue, frame.member);
        worker->time = time_;
        makeRoom(workers_, workers_.size() + 1);
        workersByMember_.emplace(frame.member, worker);
        workers_.push_back(std::move(made));
    }
    if (frame.attachment < worker->attachment || frame.attachment == 0) return nullptr;
    if (frame.attachment == worker->attachment) return worker;
    worker->attachment = frame.attachment;
    worker->offered = worker->inventoried = false;
    worker->offer = worker->offerComing = 0;
    worker->inventoryComing = 0;
    worker->offerParts.clear();
    worker->inventoryParts.clear();
    worker->unacknowledged.clear();
    worker->sequence = 0;
    worker->resendAt = INT64_MAX;
    worker->resendPause.reset();
    clearOverdue(*worker);
    return worker;
}

void Scheduler::welcome(const WorkerEntry& worker, uint64_t report) {
    Frame frame = shared_.frameOf(Kind::welcome, term_);
    frame.attachment = worker.attachment;
    frame.sequence = worker.offer;
    frame.report = report;
    frame.flags = worker.inventoried ? flagInventoryTaken : 0;
    shared_.sendTo(worker.member, frame);
}

void Scheduler::sendAnew(uint64_t member, uint64_t attachment) {
    Frame frame = shared_.frameOf(Kind::welcome, term_);
    frame.attachment = attachment;
    frame.flags = flagAnew;
    shared_.sendTo(member, frame);
}

// ---- coming

void Scheduler::onOffer(const Frame& frame) {
    if (frame.term != term_) return;
    WorkerEntry* worker = meet(frame);
    if (worker == nullptr) return;
    if (worker->offered && frame.sequence <= worker->offer) return welcome(*worker, 0);
    if (worker->offerComing > frame.sequence) return;
    if (worker->offerComing != frame.sequence || worker->offerParts.size() != frame.parts) {
        worker->offerComing = frame.sequence;
        worker->offerParts.assign(frame.parts, false);
        worker->offerPatterns.clear();
    }
    if (worker->offerParts[frame.part]) return;
    forEachPattern(frame.list, [&](const OfferedPattern& offered) {
        if (worker->offerPatterns.size() < patternsMost)
            worker->offerPatterns.emplace_back(offered.flags, offered.pattern);
    });
    if (!comes(worker->offerParts, frame)) return;
    // Without memory for it, all parts are to come again.
    worker->offerParts.clear();
    std::vector<std::string> cancelled;
    std::vector<std::string> patterns;
    for (auto& [flags, pattern] : std::exchange(worker->offerPatterns, {}))
        ((flags & patternCancelled) != 0 ? cancelled : patterns).push_back(std::move(pattern));
    std::ranges::sort(patterns);
    patterns.erase(std::unique(patterns.begin(), patterns.end()), patterns.end());
    worker->patterns = std::move(patterns);
    worker->weight = frame.weight;
    worker->tasks = frame.tasks;
    worker->leaving = (frame.flags & flagLeaving) != 0;
    worker->offered = true;
    workersChanged();
    updatePatterns(cancelled);
    worker->offer = frame.sequence;
    if (worker->attached()) attachedNow(*worker);
    welcome(*worker, 0);
}

void Scheduler::onReport(const Frame& frame) {
    if (frame.term != term_) return;
    const bool inventory = (frame.flags & flagInventory) != 0;
    WorkerEntry* worker = inventory ? meet(frame) : find(frame.member);
    if (!inventory && worker != nullptr && worker->attachment != frame.attachment) worker = nullptr;
    if (inventory && worker == nullptr) return;
    if (inventory) return onInventory(frame, *worker);
    if (worker == nullptr && !isMember(frame.member)) {
        ++shared_.counts.foreign;
        return;
    }
    // What is done is done, whatever has become of the worker meanwhile.
    bool answers = false;
    uint64_t left = numbersMost;
    forEachGroup(frame.list, [&](const Group& group) {
        if (group.kind == GroupKind::held || group.kind == GroupKind::count || group.kind == GroupKind::taken) return;
        Stream* stream = shared_.streams.make(group.stream, shared_.now.monotonic);
        if (stream == nullptr) return;
        certified::forEachRange(group.ranges, 0, [&](Range range) {
            if (!spares(left, range)) {
                ++shared_.counts.foreign;
                return;
            }
            for (uint64_t number = range.first; number <= range.last; ++number) {
                if (group.kind == GroupKind::done) {
                    completed(*stream, number, worker);
                    continue;
                }
                answers = worker != nullptr;
                if (worker != nullptr) takeOverdue(*worker, *stream, number);
                const auto found = stream->tasks.find(number);
                // It may have been given to the same worker once more since.
                if (found == stream->tasks.end() || worker == nullptr || found->second->worker != worker ||
                    found->second->handOut != group.reassigned)
                    continue;
                reassign(*found->second, "the worker gives it back", group.kind == GroupKind::failed);
            }
        });
    });
    if (worker == nullptr) return sendAnew(frame.member, frame.attachment);
    if (worker->attached()) acknowledge(frame, *worker);
    if (answers) welcome(*worker, frame.report);
}

void Scheduler::onInventory(const Frame& frame, WorkerEntry& worker) {
    if (!worker.inventoried && worker.inventoryComing <= frame.report &&
        (worker.inventoryComing != frame.report || worker.inventoryParts.size() != frame.parts)) {
        worker.inventoryComing = frame.report;
        worker.inventoryParts.assign(frame.parts, false);
    }
    const bool counts = !worker.inventoried && worker.inventoryComing == frame.report;
    uint64_t left = numbersMost;
    forEachGroup(frame.list, [&](const Group& group) {
        Stream* stream = shared_.streams.make(group.stream, shared_.now.monotonic);
        if (stream == nullptr) return;
        certified::forEachRange(group.ranges, 0, [&](Range range) {
            if (group.kind == GroupKind::done) {
                // Of long ranges only the tasks that there are, and the rest at once.
                std::vector<uint64_t> done;
                for (const auto& [number, task] : stream->tasks) {
                    if (number >= range.first && number <= range.last) done.push_back(number);
                }
                std::ranges::sort(done);
                for (const uint64_t number : done) completed(*stream, number, &worker);
                if (stream->settled.rangeCount() >= Streams::rangesMost) return;
                const uint64_t before = stream->settled.upTo() + stream->settled.beyond();
                stream->settled.add(range);
                if (stream->source == 0 && !stream->name.empty()) unconfirmed_ = true;
                if (stream->settled.upTo() + stream->settled.beyond() == before) return;
                if (spares(left, range)) {
                    for (uint64_t number = range.first; number <= range.last; ++number) stream->fresh.push_back(number);
                }
                markDirty(*stream);
            } else if (group.kind == GroupKind::held && counts && spares(left, range)) {
                for (uint64_t number = range.first; number <= range.last; ++number)
                    heldBy(*stream, number, group.reassigned, worker, frame.report);
            }
        });
    });
    if (!counts || !comes(worker.inventoryParts, frame)) {
        if (worker.inventoried) welcome(worker, 0);
        return;
    }
    // What it does not name it never got.
    std::vector<ScheduledTask*> missing;
    for (ScheduledTask* task = worker.list.first(); task != nullptr; task = task->behind) {
        if (task->listed != frame.report) missing.push_back(task);
    }
    for (auto task = missing.rbegin(); task != missing.rend(); ++task)
        reassign(**task, "the worker did not get it", false);
    worker.inventoried = true;
    workersChanged();
    if (worker.attached()) attachedNow(worker);
    welcome(worker, 0);
}

// A worker says that it has the task, which it may have had from an earlier scheduler.
void Scheduler::heldBy(Stream& stream, uint64_t number, uint32_t reassigned, WorkerEntry& worker, uint64_t inventory) {
    const bool occupies = shared_.settings.completeTime == 0;
    if (stream.settled.contains(number)) return addOverdue(worker, stream, number, occupies);
    const auto found = stream.tasks.find(number);
    ScheduledTask& task = found != stream.tasks.end() ? *found->second : makeTask(stream, number);
    task.reassigned = std::max(task.reassigned, reassigned);
    if (task.state == State::assigned && task.worker != &worker) {
        // Another one was to have it, who has not said that it does, and may never have got it.
        const WorkerEntry& other = *task.worker;
        const bool doubtful =
            !other.inventoried && (other.inventoryComing == 0 || task.listed != other.inventoryComing);
        if (!doubtful) return addOverdue(worker, stream, number, occupies);
    }
    if (task.state != State::assigned || task.worker != &worker) {
        unplace(task);
        place(task, worker);
    }
    task.attachment = worker.attachment;
    task.handOut = 0;
    task.listed = inventory;
}

void Scheduler::attachedNow(WorkerEntry& worker) {
    if (!worker.joined) {
        worker.joined = true;
        shared_.tell(Event::Kind::workerJoined, worker.member).number = worker.tasks;
    }
    lookWhetherSettled();
}

// Whether all that are there have said what they hold, or have had time enough.
void Scheduler::lookWhetherSettled() {
    if (!settling_) return;
    bool all = true;
    const auto look = [&](uint64_t member) {
        const WorkerEntry* worker = find(member);
        all = all && worker != nullptr && worker->attached();
    };
    look(shared_.id);
    shared_.election.peers().each([&](const ftolerance::Peer& peer) {
        if (peer.last.state != ftolerance::State::left) look(peer.last.member);
    });
    if (!all && shared_.now.monotonic < settlingUntil_) return;
    settling_ = false;
    updatePatterns({});
}

void Scheduler::workersChanged() {
    uniform_ = true;
    const WorkerEntry* first = nullptr;
    for (const auto& worker : workers_) {
        if (!worker->attached()) continue;
        if (first == nullptr) first = worker.get();
        uniform_ = uniform_ && worker->patterns == first->patterns;
    }
}

// ---- hand-outs

void Scheduler::setResend(WorkerEntry& worker) noexcept {
    if (worker.unacknowledged.empty()) {
        worker.resendAt = INT64_MAX;
        return;
    }
    if (worker.resendAt != INT64_MAX) return;
    worker.resendAt = shared_.now.monotonic + worker.resendPause.take();
    resendAt_ = std::min(resendAt_, worker.resendAt);
}

// Takes off what has come, and sends again at once what is missing below it.
void Scheduler::acknowledge(const Frame& frame, WorkerEntry& worker) {
    auto& list = worker.unacknowledged;
    if (list.empty() || list.front().sequence > frame.sequence) return;
    const auto isMissing = [&](uint64_t sequence) {
        bool found = false;
        certified::forEachRange(frame.missing, 0, [&](Range range) {
            found = found || (sequence >= range.first && sequence <= range.last);
        });
        return found;
    };
    bool again = false;
    const auto end = std::ranges::upper_bound(list, frame.sequence, {}, &WorkerEntry::HandedOut::sequence);
    const auto came = std::remove_if(list.begin(), end, [&](const WorkerEntry::HandedOut& one) {
        if (frame.missing.empty() || !isMissing(one.sequence)) return true;
        again = again || shared_.now.monotonic - one.at >= missedFor;
        return false;
    });
    const bool progress = came != end;
    list.erase(came, end);
    if (progress) {
        worker.resendPause.reset();
        worker.resendAt = INT64_MAX;
    }
    if (again) worker.resendAt = resendAt_ = shared_.now.monotonic;
    setResend(worker);
}

void Scheduler::resend(WorkerEntry& worker) {
    if (!worker.attached()) {
        worker.resendAt = INT64_MAX;
        return;
    }
    size_t count = 0;
    companion::Writer<listMost> gone;
    uint64_t previous = 0;
    for (auto& one : worker.unacknowledged) {
        if (++count > resentMost) break;
        if (shared_.now.monotonic - one.at < missedFor) continue;
        const bool still = one.task->serial == one.serial && one.task->state == State::assigned &&
                           one.task->worker == &worker && one.task->attachment == worker.attachment;
        if (still && one.task->message) {
            sendTask(*one.task, worker, one.sequence);
            one.at = shared_.now.monotonic;
            continue;
        }
        const size_t before = gone.size();
        gone.number(one.sequence - previous);
        gone.number(0);
        if (!gone.fits()) {
            gone.cut(before);
            break;
        }
        previous = one.sequence;
        one.at = shared_.now.monotonic;
    }
    if (gone.size() != 0) {
        Frame frame = shared_.frameOf(Kind::voided, term_);
        frame.attachment = worker.attachment;
        frame.list = gone.bytes();
        shared_.sendTo(worker.member, frame);
    }
    worker.resendAt = INT64_MAX;
    setResend(worker);
}

// ---- going

void Scheduler::membersChanged() {
    std::vector<WorkerEntry*> gone;
    for (const auto& worker : workers_) {
        if (!isMember(worker->member)) gone.push_back(worker.get());
    }
    for (WorkerEntry* worker : gone) {
        bool left = false;
        shared_.election.peers().each(
            [&](const ftolerance::Peer& peer) { left = left || peer.last.member == worker->member; });
        lose(*worker, left);
    }
    lookWhetherSettled();
}

bool Scheduler::isAwaited() const noexcept {
    bool successor = false;
    bool holds = false;
    shared_.election.peers().each([&](const ftolerance::Peer& peer) {
        if (peer.last.state == ftolerance::State::left) return;
        const WorkerEntry* worker = find(peer.last.member);
        successor = successor || worker == nullptr || !worker->leaving;
        holds = holds || (worker != nullptr && (worker->held != 0 || !worker->overdue.empty()));
    });
    if (successor) return false;
    // They have as long to register as workers have to attach.
    return holds || (unconfirmed_ && shared_.now.monotonic < settlingUntil_);
}

void Scheduler::lose(WorkerEntry& worker, bool left) {
    if (worker.joined) {
        Event& event = shared_.out->events.emplace_back();
        event.kind = left ? Event::Kind::workerLeft : Event::Kind::workerLost;
        event.member = worker.member;
        event.label = worker.label;
        event.number = worker.held;
    }
    // The oldest goes first again.
    std::vector<ScheduledTask*> held;
    for (ScheduledTask* task = worker.list.first(); task != nullptr; task = task->behind) held.push_back(task);
    for (auto task = held.rbegin(); task != held.rend(); ++task)
        reassign(**task, left ? "the worker has left" : "the worker is lost", !left);
    clearOverdue(worker);
    workersByMember_.erase(worker.member);
    std::erase_if(workers_, [&](const auto& one) { return one.get() == &worker; });
    workersChanged();
    updatePatterns({});
}

void Scheduler::clearOverdue(WorkerEntry& worker) noexcept {
    for (const auto& one : worker.overdue) --one.stream->pins;
    worker.overdue.clear();
    worker.occupied = 0;
}

void Scheduler::addOverdue(WorkerEntry& worker, Stream& stream, uint64_t number, bool occupies) {
    const auto same = [&](const WorkerEntry::Overdue& one) { return one.stream == &stream && one.number == number; };
    if (worker.overdue.size() >= overdueMost || std::ranges::any_of(worker.overdue, same)) return;
    worker.overdue.push_back({&stream, number, occupies});
    worker.occupied += occupies;
    ++stream.pins;
}

// Takes it off when it is there.
bool Scheduler::takeOverdue(WorkerEntry& worker, Stream& stream, uint64_t number) noexcept {
    const auto found = std::ranges::find_if(
        worker.overdue, [&](const WorkerEntry::Overdue& one) { return one.stream == &stream && one.number == number; });
    if (found == worker.overdue.end()) return false;
    worker.occupied -= found->occupies;
    --stream.pins;
    worker.overdue.erase(found);
    return true;
}

std::vector<WorkerReview> Scheduler::workers() const {
    std::vector<WorkerReview> found;
    for (const auto& worker : workers_) {
        if (!worker->attached()) continue;
        found.push_back({worker->member, worker->label, worker->weight, worker->tasks, worker->held, worker->handedOut,
                         worker->leaving});
    }
    return found;
}

}  // namespace quorl::dqueue
