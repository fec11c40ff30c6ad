// Tasks: the backlog, who gets which, and what becomes of them.
#include <algorithm>
#include <limits>
#include <new>

#include "certified/protocol/subject.h"
#include "dqueue/protocol/scheduler.h"
#include "quorl/quorl.h"

namespace quorl::dqueue {
namespace {

constexpr size_t historyMost = 20;

}  // namespace

ScheduledTask& Scheduler::makeTask(Stream& stream, uint64_t number) {
    if (free_.empty()) {
        makeRoom(free_, places_.size() + 1);
        free_.push_back(&places_.emplace_back());
    }
    ScheduledTask& task = *free_.back();
    stream.tasks.emplace(number, &task);
    free_.pop_back();
    task.stream = &stream;
    task.number = number;
    task.serial = ++lastSerial_;
    task.state = State::awaited;
    const auto counted = stream.counted.find(number);
    if (counted != stream.counted.end()) task.reassigned = counted->second;
    return task;
}

void Scheduler::dropTask(ScheduledTask& task) {
    unplace(task);
    task.stream->tasks.erase(task.number);
    taskBytes_ -= task.size;
    task = ScheduledTask();
    free_.push_back(&task);
}

void Scheduler::unplace(ScheduledTask& task) noexcept {
    switch (task.state) {
        case State::waiting:
            backlog_.remove(task);
            --unassigned_;
            unassignedBytes_ -= task.size;
            break;
        case State::parked:
            std::erase(task.stream->parked, &task);
            if (task.stream->parked.empty()) std::erase(parkedStreams_, task.stream);
            --unassigned_;
            unassignedBytes_ -= task.size;
            break;
        case State::assigned:
            task.worker->list.remove(task);
            due_.remove(task);
            --task.worker->held;
            --assigned_;
            task.worker = nullptr;
            break;
        case State::none:
        case State::awaited:
            break;
    }
    task.state = State::awaited;
}

void Scheduler::enqueue(ScheduledTask& task, bool first) {
    task.state = State::waiting;
    if (first) {
        backlog_.prepend(task);
    } else {
        backlog_.append(task);
    }
    ++unassigned_;
    unassignedBytes_ += task.size;
}

// Nobody who has room takes it: those behind it are not to wait for that.
void Scheduler::park(ScheduledTask& task) {
    Stream& stream = *task.stream;
    makeRoom(stream.parked, stream.parked.size() + 1);
    if (stream.parked.empty()) parkedStreams_.push_back(&stream);
    stream.parked.push_back(&task);
    backlog_.remove(task);
    task.state = State::parked;
}

void Scheduler::unpark() {
    const auto taken = [&](std::string_view subject) {
        return std::ranges::any_of(workers_,
                                   [&](const auto& worker) { return worker->hasRoom() && takes(*worker, subject); });
    };
    for (size_t i = 0; i < parkedStreams_.size();) {
        Stream& stream = *parkedStreams_[i];
        // Plain messages of all subjects are one stream.
        const bool mixed = stream.name.empty();
        const bool whole = !mixed && taken(stream.subject);
        auto& parked = stream.parked;
        for (size_t left = parked.size(); left != 0 && (mixed || whole); --left) {
            ScheduledTask& task = *parked[left - 1];
            if (!whole && !taken(task.message.subject())) continue;
            task.state = State::waiting;
            backlog_.prepend(task);
            parked[left - 1] = nullptr;
        }
        std::erase(parked, nullptr);
        if (parked.empty()) {
            parkedStreams_.erase(parkedStreams_.begin() + static_cast<ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
}

void Scheduler::settle(Stream& stream, uint64_t number) {
    makeRoom(stream.fresh, stream.fresh.size() + 1);
    markDirty(stream);
    stream.settled.add({number, number});
    ++shared_.counts.settled;
    stream.counted.erase(number);
    stream.fresh.push_back(number);
}

void Scheduler::completed(Stream& stream, uint64_t number, WorkerEntry* by) {
    const bool wasOverdue = by != nullptr && takeOverdue(*by, stream, number);
    if (stream.source == 0 && !stream.name.empty()) unconfirmed_ = true;
    const auto found = stream.tasks.find(number);
    if (found == stream.tasks.end()) {
        if (!stream.settled.contains(number)) return settle(stream, number);
        if (wasOverdue) {
            ++shared_.counts.completedTwice;
            Event& event = shared_.tell(Event::Kind::completedTwice, by->member);
            event.sender = stream.name;
            event.subject = stream.subject;
            event.number = number;
        }
        // It is said again for who did not hear it.
        stream.fresh.push_back(number);
        return markDirty(stream);
    }
    ScheduledTask& task = *found->second;
    if (task.state == State::assigned && task.worker != by)
        addOverdue(*task.worker, stream, number, shared_.settings.completeTime == 0);
    // Who reported it goes on until it is settled, so that comes last.
    confirm(stream, number, stream.listener);
    settle(stream, number);
    dropTask(task);
}

// The task is a worker's; it goes to another one. counts: it is not the first one's fault alone that it was not done.
void Scheduler::reassign(ScheduledTask& task, const char* reason, bool counts) {
    const WorkerEntry& worker = *task.worker;
    const bool plain = task.stream->name.empty();
    // What can fail, before anything is changed.
    if (counts) {
        Attempt attempt{worker.member, worker.label, shared_.now.wall, reason};
        if (!task.history) task.history = std::make_unique<std::vector<Attempt>>();
        makeRoom(*task.history, historyMost);
        makeRoom(counting_, counting_.size() + 1);
        if (task.history->size() >= historyMost) task.history->erase(task.history->begin());
        task.history->push_back(std::move(attempt));
        task.avoid = worker.member;
        ++task.reassigned;
        ++shared_.counts.reassigned;
        noteCount(task);
    }
    unplace(task);
    if (task.message) enqueue(task, true);
    if (counts) tellTask(Event::Kind::taskReassigned, task, &worker, reason);
    if (task.message) {
        if (counts && shared_.settings.reassignments != 0 && task.reassigned > shared_.settings.reassignments)
            deadLetter(task);
    } else if (plain) {
        // An earlier scheduler gave it out: nobody has it any more.
        settle(*task.stream, task.number);
        ++shared_.counts.dropped;
        dropTask(task);
    }
}

void Scheduler::deadLetter(ScheduledTask& task) {
    Stream& stream = *task.stream;
    DeadLetter letter;
    letter.subject = deadLetterSubjectOf(shared_.settings.queue);
    letter.message = task.message;
    letter.reassigned = task.reassigned;
    makeRoom(shared_.out->deadLetters, shared_.out->deadLetters.size() + 1);
    confirm(stream, task.number, stream.listener);
    settle(stream, task.number);
    if (task.history) letter.history = std::move(*task.history);
    shared_.out->deadLetters.push_back(std::move(letter));
    ++shared_.counts.deadLetters;
    try {
        tellTask(Event::Kind::deadLetter, task, nullptr, "it was reassigned too often");
    } catch (const std::bad_alloc&) {
        // The letter tells it.
    }
    dropTask(task);
}

// ---- giving out

bool Scheduler::takes(const WorkerEntry& worker, std::string_view subject) const noexcept {
    return uniform_ || std::ranges::any_of(worker.patterns, [&](const std::string& pattern) {
               return certified::matches(pattern, subject);
           });
}

// The one whose tasks so far, divided by its weight, are fewest. One that a task was taken from comes last for it, and one that
// may be stuck comes last for all.
WorkerEntry* Scheduler::best(const ScheduledTask& task, bool* anyRoom) noexcept {
    WorkerEntry* found = nullptr;
    const auto goesBefore = [&](const WorkerEntry& one, const WorkerEntry& other) {
        const bool avoidOne = one.member == task.avoid;
        const bool avoidOther = other.member == task.avoid;
        if (avoidOne != avoidOther) return avoidOther;
        if (one.overdue.empty() != other.overdue.empty()) return one.overdue.empty();
        if (one.time != other.time) return one.time < other.time;
        if (one.weight != other.weight) return one.weight > other.weight;
        if (one.room() != other.room()) return one.room() > other.room();
        return one.member < other.member;
    };
    for (const auto& worker : workers_) {
        if (!worker->hasRoom()) continue;
        *anyRoom = true;
        if (!takes(*worker, task.message.subject())) continue;
        // Who had no room, or nothing to do, for long does not get everything now.
        const double least = time_ - static_cast<double>(worker->tasks) / worker->weight;
        if (worker->time < least) worker->time = least;
        if (found == nullptr || goesBefore(*worker, *found)) found = worker.get();
    }
    return found;
}

void Scheduler::assign() {
    if (settling_) return;
    if (!parkedStreams_.empty()) unpark();
    while (!backlog_.empty()) {
        ScheduledTask& task = *backlog_.first();
        bool anyRoom = false;
        WorkerEntry* worker = best(task, &anyRoom);
        if (worker != nullptr) {
            handOut(task, *worker);
        } else if (anyRoom) {
            park(task);
        } else {
            return;
        }
    }
}

void Scheduler::place(ScheduledTask& task, WorkerEntry& worker) noexcept {
    task.state = State::assigned;
    task.worker = &worker;
    task.attachment = worker.attachment;
    task.handOut = 0;
    task.assignedAt = shared_.now.monotonic;
    worker.list.append(task);
    due_.append(task);
    ++worker.held;
    ++assigned_;
}

void Scheduler::handOut(ScheduledTask& task, WorkerEntry& worker) {
    worker.unacknowledged.push_back({worker.sequence + 1, &task, task.serial, shared_.now.monotonic});
    try {
        sendTask(task, worker, worker.sequence + 1);
    } catch (...) {
        worker.unacknowledged.pop_back();
        throw;
    }
    ++worker.sequence;
    unplace(task);
    place(task, worker);
    task.handOut = static_cast<uint32_t>(worker.sequence);
    time_ = std::max(time_, worker.time);
    worker.time += 1.0 / worker.weight;
    ++worker.handedOut;
    ++shared_.counts.handedOut;
    setResend(worker);
    if (worker.member != shared_.id || shared_.election.peers().size() == 0) return;
    // When it ends this process, the others are to know that it was tried.
    anyTaken_ = true;
    taken_.add(GroupKind::taken, task.reassigned, task.stream->ref(), {task.number, task.number});
}

void Scheduler::sendTask(const ScheduledTask& task, const WorkerEntry& worker, uint64_t sequence) {
    Frame frame = shared_.frameOf(Kind::task, term_);
    frame.attachment = worker.attachment;
    frame.sequence = sequence;
    frame.reassigned = task.reassigned;
    frame.subject = task.message.subject();
    frame.original = task.message.attributes();
    frame.flags = task.kept ? flagKept : 0;
    if (task.stream->name.empty()) {
        frame.original = {};
        frame.incarnation = task.stream->incarnation;
        frame.number = task.number;
    }
    FrameWriter writer;
    encode(frame, writer);
    companion::Message message;
    if (task.message.withSubjects(worker.address, task.message.replySubject(), &message) != QUORL_OK ||
        message.withAttributes(writer.bytes(), &message) != QUORL_OK)
        throw std::bad_alloc();
    if (worker.member == shared_.id) {
        shared_.own.push_back(std::move(message));
    } else {
        shared_.out->messages.push_back(std::move(message));
    }
}

}  // namespace quorl::dqueue
