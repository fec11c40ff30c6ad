// Raising, folding, clearing and telling of a queue's alarms.
#include "event/alarm.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <string>
#include <utility>

#include "base/clock.h"
#include "base/environment.h"
#include "base/registry.h"
#include "event/parameters.h"
#include "event/queue.h"
#include "event/timer.h"

namespace quorl::event {
namespace {

using State = Alarm::State;
using RecordKind = AlarmRecord::Kind;

constinit std::atomic<const AlarmSink*> sink{nullptr};

// Whether anybody wants to know of alarms.
bool heard() noexcept {
    const AlarmSink* to = sink.load(std::memory_order_acquire);
    return to != nullptr && to->heard();
}

// Whether the content tells of alarms itself: its own loss is counted, but never told, or telling would have no end.
bool tellsOfAlarms(const message::ContentRef& content) noexcept {
    const AlarmSink* to = sink.load(std::memory_order_acquire);
    return to != nullptr && content && to->made(content);
}

double secondsSince(int64_t began) noexcept {
    return static_cast<double>(monotonicNow() - began) * 1e-9;
}

int64_t interval() noexcept {
    return nanosecondsOf(environment::parameters().of(parameters::advisoryInterval));
}

uint64_t exactlyWaiting(const Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    return queue.entries.backCount() - queue.front.removed.load(std::memory_order_relaxed);
}

// ---- taking notes, under the locks

void note(Queue& queue, AlarmRecord&& record) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    if (!heard()) return;
    try {
        record.limit = queue.back.limit;
        record.waiting = exactlyWaiting(queue);
        queue.back.alarms.records.push_back(std::move(record));
    } catch (const std::bad_alloc&) {
        // Not told.
    }
}

void note(Queue& queue, RecordKind kind, double seconds) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    note(queue, {kind, 0, {}, {}, {}, 0, queue.back.alarms.lost, seconds});
}

void noteLimitBegin(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    Alarms& alarms = queue.back.alarms;
    note(queue, {RecordKind::limitBegin,
                 alarms.firstEvent,
                 std::move(alarms.firstSource),
                 std::move(alarms.first),
                 {},
                 0,
                 alarms.lost,
                 0});
}

void noteSlow(Queue& queue, RecordKind kind, SlowListener& slow) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    try {
        const bool begins = kind == RecordKind::slowBegin;
        note(queue, {kind,
                     slow.event->id,
                     std::string(slow.event->source),
                     begins ? std::move(slow.first) : message::ContentRef(),
                     {},
                     0,
                     slow.lost,
                     begins ? 0 : secondsSince(slow.began)});
    } catch (const std::bad_alloc&) {
        // Not told.
    }
    slow.told = true;
}

void noteSlowEnd(Queue& queue, SlowListener& slow) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    if (!slow.told) noteSlow(queue, RecordKind::slowBegin, slow);
    noteSlow(queue, RecordKind::slowEnd, slow);
}

// ---- raising and clearing, under the locks

// Whether the alarm may be told at once; otherwise it folds.
bool raise(Queue& queue, Alarm& alarm, AlarmChange* change) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    const int64_t now = monotonicNow();
    alarm.began = now;
    if (now - alarm.toldAt >= interval()) {
        alarm.state = State::raised;
        alarm.toldAt = now;
        return true;
    }
    alarm.state = State::folding;
    if (!std::exchange(queue.back.alarms.reminderSet, true)) change->remindAt = alarm.toldAt + interval();
    return false;
}

void tellFoldedLimit(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    queue.back.alarms.limit.state = State::raised;
    queue.back.alarms.limit.toldAt = monotonicNow();
    noteLimitBegin(queue);
    for (SlowListener& slow : queue.back.alarms.slow) noteSlow(queue, RecordKind::slowBegin, slow);
}

void tellFoldedHighwater(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    queue.back.alarms.highwater.state = State::raised;
    queue.back.alarms.highwater.toldAt = monotonicNow();
    note(queue, RecordKind::highwaterBegin, 0);
}

void endLimit(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    Alarms& alarms = queue.back.alarms;
    for (SlowListener& slow : alarms.slow) {
        noteSlowEnd(queue, slow);
        slow.event->back.slow = 0;
    }
    alarms.slow.clear();
    note(queue, RecordKind::limitEnd, secondsSince(alarms.limit.began));
    alarms.limit.state = State::clear;
}

void endHighwater(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    note(queue, RecordKind::highwaterEnd, secondsSince(queue.back.alarms.highwater.began));
    queue.back.alarms.highwater.state = State::clear;
}

// The alarm is over with fewer events waiting.
uint64_t limitClearsBelow(const Queue& queue) noexcept REQUIRES(queue.back.lock) {
    return queue.back.limit.policy != QUORLQUEUE_DISCARD_NONE ? queue.back.limit.maxEvents / 2 + 1u : UINT64_MAX;
}
uint64_t highwaterClearsBelow(const Queue& queue) noexcept REQUIRES(queue.back.lock) {
    return queue.back.limit.policy != QUORLQUEUE_DISCARD_NONE ? UINT64_MAX : queue.back.highWater / 2 + 1;
}

void clearWhatIsOver(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    const uint64_t waiting = exactlyWaiting(queue);
    if (queue.back.alarms.limit.state == State::raised && waiting < limitClearsBelow(queue)) endLimit(queue);
    if (queue.back.alarms.highwater.state == State::raised && waiting < highwaterClearsBelow(queue))
        endHighwater(queue);
    setThresholds(queue);
}

// ---- telling

void tellOne(Queue& queue, const AlarmRecord& record) noexcept {
    const AlarmSink* to = sink.load(std::memory_order_acquire);
    if (to == nullptr) return;
    std::string name;
    try {
        Lock lock(queue.nameLock);
        name = queue.name;
    } catch (const std::bad_alloc&) {
        // Told without the name.
    }
    to->tell({queue.id, name, queue.back.highWater, record});
}

// One thread at a time, so that no end overtakes its begin. An advisory that fills this very queue leaves its record to the
// loop that it was told in.
void tellAll(Queue& queue) noexcept {
    for (bool mine = false;;) {
        AlarmRecord record{};
        {
            Lock lock(queue.back.lock);
            Alarms& alarms = queue.back.alarms;
            if (alarms.telling && !mine) return;
            mine = alarms.telling = !alarms.records.empty();
            if (!mine) return;
            record = std::move(alarms.records.front());
            alarms.records.pop_front();
        }
        tellOne(queue, record);
    }
}

}  // namespace

void setAlarmSink(const AlarmSink* to) noexcept {
    sink.store(to, std::memory_order_release);
}

void lose(Queue& queue, Event& event, message::ContentRef content, uint32_t tag, AlarmChange* change) noexcept {
    Alarms& alarms = queue.back.alarms;
    ++queue.back.dropped;
    if (event.kind == Kind::timer && event.front.endless.load(std::memory_order_relaxed)) {
        try {
            change->starved.push_back(event.id);
        } catch (const std::bad_alloc&) {
            // It stays silent until its interval is set again.
        }
    }
    if (event.kind == Kind::taker && event.dropped != nullptr) {
        try {
            change->dropped.push_back({event.id, tag, content});
        } catch (const std::bad_alloc&) {
            // Whoever pushed it has to find out by himself.
        }
    }
    if (tellsOfAlarms(content)) return;
    if (alarms.limit.state == State::clear) {
        alarms.lost = 0;
        alarms.firstEvent = event.id;
        alarms.first = content;
        try {
            alarms.firstSource = event.source;
        } catch (const std::bad_alloc&) {
            alarms.firstSource.clear();
        }
        if (raise(queue, alarms.limit, change)) {
            noteLimitBegin(queue);
            change->limitBegan = true;
        }
        setThresholds(queue);
    }
    ++alarms.lost;
    if (event.kind == Kind::timer) return;
    if (event.back.slow == 0) {
        try {
            alarms.slow.push_back({&event, false, 0, monotonicNow(), std::move(content)});
        } catch (const std::bad_alloc&) {
            return;  // counted for the queue alone
        }
        event.back.slow = static_cast<uint32_t>(alarms.slow.size());
        if (alarms.limit.state == State::raised) noteSlow(queue, RecordKind::slowBegin, alarms.slow.back());
    }
    ++alarms.slow[event.back.slow - 1].lost;
}

void endSlow(Queue& queue, Event& event, AlarmChange* change) noexcept {
    if (event.back.slow == 0) return;
    auto& slow = queue.back.alarms.slow;
    SlowListener& place = slow[event.back.slow - 1];
    noteSlowEnd(queue, place);
    if (&place != &slow.back()) {
        place = std::move(slow.back());
        place.event->back.slow = event.back.slow;
    }
    slow.pop_back();
    event.back.slow = 0;
    complete(queue, change);
}

void endAlarms(Queue& queue, AlarmChange* change) noexcept {
    Alarms& alarms = queue.back.alarms;
    if (alarms.limit.state == State::folding) tellFoldedLimit(queue);
    if (alarms.limit.state == State::raised) endLimit(queue);
    if (alarms.highwater.state == State::folding) tellFoldedHighwater(queue);
    if (alarms.highwater.state == State::raised) endHighwater(queue);
    setThresholds(queue);
    complete(queue, change);
}

void lookAtHighWater(Queue& queue, AlarmChange* change) noexcept {
    Alarm& alarm = queue.back.alarms.highwater;
    if (queue.back.highWater == 0 || alarm.state != State::clear || queue.back.limit.policy != QUORLQUEUE_DISCARD_NONE)
        return;
    if (exactlyWaiting(queue) < queue.back.highWater) return;
    if (raise(queue, alarm, change)) note(queue, RecordKind::highwaterBegin, 0);
    setThresholds(queue);
}

void setThresholds(Queue& queue) noexcept {
    queue.back.lookAt = UINT64_MAX;
    if (queue.back.limit.policy != QUORLQUEUE_DISCARD_NONE) {
        queue.back.lookAt = queue.back.limit.maxEvents;
    } else if (queue.back.highWater != 0 && queue.back.alarms.highwater.state == State::clear) {
        queue.back.lookAt = queue.back.highWater - 1;
    }
    queue.back.countAt = std::min(queue.back.mostWaiting, queue.back.lookAt);
    queue.front.clearBelow = 0;
    if (queue.back.alarms.limit.state == State::raised) queue.front.clearBelow = limitClearsBelow(queue);
    if (queue.back.alarms.highwater.state == State::raised)
        queue.front.clearBelow = std::max(queue.front.clearBelow, highwaterClearsBelow(queue));
}

void complete(Queue& queue, AlarmChange* change) noexcept {
    Alarms& alarms = queue.back.alarms;
    change->records = !alarms.records.empty();
    if (!change->limitBegan) return;
    for (auto record = alarms.records.rbegin(); record != alarms.records.rend(); ++record) {
        if (record->kind != RecordKind::limitBegin) continue;
        record->waiting = exactlyWaiting(queue);
        record->lost = alarms.lost;
        record->limit = queue.back.limit;
        return;
    }
}

void tell(Queue& queue, const AlarmChange& change) noexcept {
    if (change.records) tellAll(queue);
    for (const uint32_t timer : change.starved) fireSoon(timer);
    for (const AlarmChange::DroppedEntry& each : change.dropped) {
        if (Event* event = findEvent(each.event)) event->dropped(*event, each.content, each.tag);
    }
    if (change.remindAt != 0 && !remindAt(queue.id, change.remindAt)) remindOfAlarms(queue.id, true);
}

void clearAlarms(Queue& queue) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    ReadGuard guard(*thread);
    {
        Lock front(queue.front.lock);
        Lock back(queue.back.lock);
        clearWhatIsOver(queue);
    }
    tellAll(queue);
}

void remindOfAlarms(uint32_t id, bool all) noexcept {
    auto* queue = registry::find<Queue>(id);
    if (queue == nullptr) return;
    AlarmChange change;
    {
        Lock front(queue->front.lock);
        Lock back(queue->back.lock);
        Alarms& alarms = queue->back.alarms;
        alarms.reminderSet = false;
        const int64_t now = monotonicNow();
        int64_t next = forever;
        const auto due = [&](const Alarm& alarm) {
            if (alarm.state != State::folding) return false;
            if (all || now - alarm.toldAt >= interval()) return true;
            next = std::min(next, alarm.toldAt + interval());
            return false;
        };
        if (due(alarms.limit)) tellFoldedLimit(*queue);
        if (due(alarms.highwater)) tellFoldedHighwater(*queue);
        clearWhatIsOver(*queue);
        if (next != forever) {
            alarms.reminderSet = true;
            change.remindAt = next;
        }
        complete(*queue, &change);
    }
    tell(*queue, change);
}

}  // namespace quorl::event
