// Raising, folding, clearing and telling of a queue's alarms.
#include "event/alarm.h"

#include <algorithm>
#include <new>
#include <string>
#include <utility>

#include "base/clock.h"
#include "base/environment.h"
#include "base/registry.h"
#include "event/queue.h"
#include "event/timer.h"
#include "transport/advisory.h"
#include "transport/listener.h"

namespace quorl::event {
namespace {

using transport::advise;
using transport::Severity;
using State = Alarm::State;
using NoticeKind = Notice::Kind;

const char* nameOf(quorlQueueLimitPolicy policy) noexcept {
    switch (policy) {
        case QUORLQUEUE_DISCARD_FIRST:
            return "discard_first";
        case QUORLQUEUE_DISCARD_LAST:
            return "discard_last";
        case QUORLQUEUE_DISCARD_NEW:
            return "discard_new";
        default:
            return "none";
    }
}

std::string_view patternOf(const Event& event) noexcept {
    if (event.kind == Kind::timer) return {};
    return static_cast<const transport::Listener&>(event).subject;
}

std::string_view subjectOf(const message::ContentRef& content) noexcept {
    return content ? content.sendSubject() : std::string_view();
}

double secondsSince(int64_t began) noexcept {
    return static_cast<double>(monotonicNow() - began) * 1e-9;
}

int64_t interval() noexcept {
    return nanosecondsOf(environment::parameters().advisoryInterval);
}

uint64_t exactlyWaiting(const Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    return queue.ring.backCount() - queue.front.removed.load(std::memory_order_relaxed);
}

// ---- taking notes, under the locks

void note(Queue& queue, Notice&& notice) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    if (!transport::advisoriesHeard()) return;
    try {
        notice.limit = queue.back.limit;
        notice.waiting = exactlyWaiting(queue);
        queue.back.alarms.notices.push_back(std::move(notice));
    } catch (const std::bad_alloc&) {
        // Not told.
    }
}

void note(Queue& queue, NoticeKind kind, double seconds) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    note(queue, {kind, 0, {}, {}, {}, 0, queue.back.alarms.lost, seconds});
}

void noteLimitBegin(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    Alarms& alarms = queue.back.alarms;
    note(queue, {NoticeKind::limitBegin,
                 alarms.firstEvent,
                 std::move(alarms.firstPattern),
                 std::move(alarms.first),
                 {},
                 0,
                 alarms.lost,
                 0});
}

void noteSlow(Queue& queue, NoticeKind kind, SlowListener& slow) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    try {
        const bool begins = kind == NoticeKind::slowBegin;
        note(queue, {kind,
                     slow.event->id,
                     std::string(patternOf(*slow.event)),
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
    if (!slow.told) noteSlow(queue, NoticeKind::slowBegin, slow);
    noteSlow(queue, NoticeKind::slowEnd, slow);
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
    for (SlowListener& slow : queue.back.alarms.slow) noteSlow(queue, NoticeKind::slowBegin, slow);
}

void tellFoldedHighwater(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    queue.back.alarms.highwater.state = State::raised;
    queue.back.alarms.highwater.toldAt = monotonicNow();
    note(queue, NoticeKind::highwaterBegin, 0);
}

void endLimit(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    Alarms& alarms = queue.back.alarms;
    for (SlowListener& slow : alarms.slow) {
        noteSlowEnd(queue, slow);
        slow.event->back.slow = 0;
    }
    alarms.slow.clear();
    note(queue, NoticeKind::limitEnd, secondsSince(alarms.limit.began));
    alarms.limit.state = State::clear;
}

void endHighwater(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    note(queue, NoticeKind::highwaterEnd, secondsSince(queue.back.alarms.highwater.began));
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

void tellOne(Queue& queue, const Notice& notice) noexcept {
    std::string name;
    try {
        Lock lock(queue.nameLock);
        name = queue.name;
    } catch (const std::bad_alloc&) {
        // Told without the name.
    }
    switch (notice.kind) {
        case NoticeKind::limitBegin:
            advise(Severity::warn, "queue", "limit_begin",
                   {{"queue", queue.id},
                    {"name", name},
                    {"policy", nameOf(notice.limit.policy)},
                    {"max_events", notice.limit.maxEvents},
                    {"waiting", notice.waiting},
                    {"lost", notice.lost},
                    {"event", notice.event},
                    {"pattern", notice.pattern},
                    {"subject", subjectOf(notice.first)},
                    {"first", notice.first}});
            return;
        case NoticeKind::limitEnd:
            advise(Severity::info, "queue", "limit_end",
                   {{"queue", queue.id},
                    {"name", name},
                    {"waiting", notice.waiting},
                    {"lost", notice.lost},
                    {"seconds", notice.seconds}});
            return;
        case NoticeKind::slowBegin:
            advise(Severity::warn, "listener", "slow_begin",
                   {{"listener", notice.event},
                    {"pattern", notice.pattern},
                    {"queue", queue.id},
                    {"name", name},
                    {"subject", subjectOf(notice.first)},
                    {"first", notice.first}});
            return;
        case NoticeKind::slowEnd:
            advise(Severity::info, "listener", "slow_end",
                   {{"listener", notice.event},
                    {"pattern", notice.pattern},
                    {"queue", queue.id},
                    {"name", name},
                    {"lost", notice.lost},
                    {"seconds", notice.seconds}});
            return;
        case NoticeKind::highwaterBegin:
            advise(Severity::warn, "queue", "highwater_begin",
                   {{"queue", queue.id}, {"name", name}, {"waiting", notice.waiting}, {"mark", queue.back.highWater}});
            return;
        case NoticeKind::highwaterEnd:
            advise(Severity::info, "queue", "highwater_end",
                   {{"queue", queue.id},
                    {"name", name},
                    {"waiting", notice.waiting},
                    {"mark", queue.back.highWater},
                    {"seconds", notice.seconds}});
            return;
    }
}

// One thread at a time, so that no end overtakes its begin. An advisory that fills this very queue leaves its notice to the
// loop that it was told in.
void tellAll(Queue& queue) noexcept {
    for (bool mine = false;;) {
        Notice notice{};
        {
            Lock lock(queue.back.lock);
            Alarms& alarms = queue.back.alarms;
            if (alarms.telling && !mine) return;
            mine = alarms.telling = !alarms.notices.empty();
            if (!mine) return;
            notice = std::move(alarms.notices.front());
            alarms.notices.pop_front();
        }
        tellOne(queue, notice);
    }
}

}  // namespace

void lose(Queue& queue, Event& event, message::ContentRef content, AlarmChange* change) noexcept {
    Alarms& alarms = queue.back.alarms;
    ++queue.back.dropped;
    if (event.kind == Kind::timer && event.front.endless.load(std::memory_order_relaxed)) {
        try {
            change->starved.push_back(event.id);
        } catch (const std::bad_alloc&) {
            // It stays silent until its interval is set again.
        }
    }
    if (transport::isAdvisory(content)) return;
    if (alarms.limit.state == State::clear) {
        alarms.lost = 0;
        alarms.firstEvent = event.id;
        alarms.first = content;
        try {
            alarms.firstPattern = patternOf(event);
        } catch (const std::bad_alloc&) {
            alarms.firstPattern.clear();
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
        if (alarms.limit.state == State::raised) noteSlow(queue, NoticeKind::slowBegin, alarms.slow.back());
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

void lookAtMark(Queue& queue, AlarmChange* change) noexcept {
    Alarm& alarm = queue.back.alarms.highwater;
    if (queue.back.highWater == 0 || alarm.state != State::clear || queue.back.limit.policy != QUORLQUEUE_DISCARD_NONE)
        return;
    if (exactlyWaiting(queue) < queue.back.highWater) return;
    if (raise(queue, alarm, change)) note(queue, NoticeKind::highwaterBegin, 0);
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
    change->notices = !alarms.notices.empty();
    if (!change->limitBegan) return;
    for (auto notice = alarms.notices.rbegin(); notice != alarms.notices.rend(); ++notice) {
        if (notice->kind != NoticeKind::limitBegin) continue;
        notice->waiting = exactlyWaiting(queue);
        notice->lost = alarms.lost;
        notice->limit = queue.back.limit;
        return;
    }
}

void tell(Queue& queue, const AlarmChange& change) noexcept {
    if (change.notices) tellAll(queue);
    for (const uint32_t timer : change.starved) fireSoon(timer);
    if (change.remindAt != 0 && !remindAt(queue.id, change.remindAt)) remindOfAlarms(queue.id, true);
}

void clearAlarms(Queue& queue) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    Section section(*thread);
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
