// Putting events into a queue and taking them out, exactly within its limit.
#include "event/queue.h"

#include <algorithm>
#include <new>

#include "base/clock.h"
#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/alarm.h"
#include "event/group.h"

namespace quorl::event {
namespace {

constexpr uint32_t vectorTagBit = 1u << 31;
static_assert(takerTags == vectorTagBit);
// How far a batch looks beyond entries of others.
constexpr uint64_t batchReach = 1024;
// Dead entries of a destroyed event are cleared out when there are few entries, or mostly dead ones.
constexpr uint64_t fewEntries = 4096;
// Those of a timer's earlier epochs when there are that many, and mostly dead ones.
constexpr uint64_t fewDead = 64;

// Each of this many entries is timed, and each that wakes a thread. A power of two.
constexpr uint64_t timedEvery = 64;

constinit Histogram lag;

// Notes the time of the entry that is appended next, if none is being timed.
void startTiming(Queue& queue) noexcept REQUIRES(queue.back.lock) {
    if (queue.timedPosition.load(std::memory_order_acquire) != Queue::untimed) return;
    queue.timedSince = monotonicNow();
    queue.timedPosition.store(queue.entries.backCount(), std::memory_order_release);
}

// The timed entry is reached: at a position from first on it is being taken, before that it died or was dropped.
void endTiming(Queue& queue, uint64_t position, uint64_t first) noexcept REQUIRES(queue.front.lock) {
    if (position >= first) {
        const int64_t now = monotonicNow();
        lag.add(now, now - queue.timedSince);
    }
    queue.timedPosition.store(Queue::untimed, std::memory_order_release);
}

// The entry's event if the entry is still to be delivered. Under a read guard, under either lock of the queue: closeEvent
// takes both, so that an event that is not found has been forgotten too, and its entries count no more.
Event* liveEvent(const Entry& entry) noexcept {
    if (entry.event == 0) return nullptr;
    Event* event = findEvent(entry.event);
    if (event == nullptr || (event->kind == Kind::timer && event->front.epoch != entry.tag)) return nullptr;
    return event;
}

void dropContent(message::Content* content) noexcept {
    message::ContentRef::adopt(content);
}

// Counts an entry that a limit dropped, and that was just taken out of the entries. False: it was dead.
bool drop(Queue& queue, const Entry& entry, AlarmChange* change) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    auto content = message::ContentRef::adopt(entry.content);
    Event* event = liveEvent(entry);
    if (event == nullptr) return false;
    ++event->front.taken;
    if (event->kind == Kind::timer) event->front.waiting.store(false, std::memory_order_relaxed);
    lose(queue, *event, std::move(content), entry.tag, change);
    return true;
}

void dropFirst(Queue& queue, uint64_t amount, AlarmChange* change) noexcept
    REQUIRES(queue.front.lock, queue.back.lock) {
    uint64_t removed = queue.front.removed.load(std::memory_order_relaxed);
    Entry entry;
    while (amount != 0 && queue.entries.take(&entry)) {
        if (!drop(queue, entry, change)) continue;
        --amount;
        queue.front.removed.store(++removed, std::memory_order_release);
    }
}

void dropLast(Queue& queue, uint64_t amount, AlarmChange* change) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    uint64_t removed = queue.front.removed.load(std::memory_order_relaxed);
    Entry entry;
    queue.timedPosition.store(Queue::untimed, std::memory_order_relaxed);
    while (amount != 0 && queue.entries.takeLast(&entry)) {
        if (drop(queue, entry, change)) {
            --amount;  // its place at the end is free: removed stays
        } else {
            // A dead entry was counted as removed when it died, and its place is given back too.
            queue.front.removed.store(--removed, std::memory_order_release);
        }
    }
}

// Makes room by the queue's policy. False: the arriving event is to be dropped.
bool makeRoom(Queue& queue, AlarmChange* change) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    const Limit limit = queue.back.limit;
    const uint64_t waiting = queue.entries.backCount() - queue.front.removed.load(std::memory_order_relaxed);
    if (limit.policy == QUORLQUEUE_DISCARD_NONE || waiting < limit.maxEvents) return true;
    switch (limit.policy) {
        case QUORLQUEUE_DISCARD_FIRST:
            dropFirst(queue, limit.discardAmount, change);
            return true;
        case QUORLQUEUE_DISCARD_LAST:
            dropLast(queue, limit.discardAmount, change);
            return true;
        default:
            return false;
    }
}

// What remains to do for a push when the back lock is given up.
struct AfterPush {
    DispatchState* sleeper = nullptr;
    std::array<Group*, 8> groups;
    uint32_t groupCount = 0;
    bool manyGroups = false;
};

// Room is there.
void place(Queue& queue, Event& event, uint32_t tag, message::Content* content, AfterPush* after) noexcept
    REQUIRES(queue.back.lock) {
    ++event.back.pushed;
    const Entry entry{event.id, tag, content};
    if (queue.entries.backCount() % timedEvery == 0 || !queue.back.sleepers.empty()) [[unlikely]]
        startTiming(queue);
    // Threads of a group look at the end while they decide to sleep, without the back lock.
    if (queue.back.grouped) [[unlikely]] {
        queue.entries.append<std::memory_order_seq_cst>(entry);
    } else {
        queue.entries.append<std::memory_order_release>(entry);
    }
    if (!queue.back.sleepers.empty()) after->sleeper = queue.back.sleepers.takeOne(wokenForEvent);
    if (queue.back.grouped) [[unlikely]] {
        for (Group* group : queue.back.groups) {
            if (after->groupCount == after->groups.size()) {
                after->manyGroups = true;
                break;
            }
            after->groups[after->groupCount++] = group;
        }
    }
}

// From the end of the list to its beginning: groups that leave meanwhile only move others towards the beginning, and those
// that join look for themselves.
void wakeManyGroups(Queue& queue) noexcept {
    size_t left = SIZE_MAX;
    while (left != 0) {
        std::array<Group*, 16> some;
        size_t count = 0;
        {
            Lock lock(queue.back.lock);
            left = std::min(left, queue.back.groups.size());
            while (left != 0 && count < some.size()) some[count++] = queue.back.groups[--left];
        }
        for (size_t i = 0; i < count; ++i) wakeOne(*some[i]);
    }
}

void finish(Queue& queue, const AfterPush& after) noexcept {
    if (after.sleeper != nullptr) futexWake(after.sleeper->wake);
    if (after.manyGroups) [[unlikely]] {
        wakeManyGroups(queue);
        return;
    }
    for (uint32_t i = 0; i < after.groupCount; ++i) wakeOne(*after.groups[i]);
}

// Whether the event may be put into the queue.
bool admits(Queue& queue, Event& event, uint32_t tag) noexcept REQUIRES(queue.back.lock) {
    if (queue.back.closed || event.back.closed) return false;
    return event.kind != Kind::timer ||
           (event.front.epoch == tag && !event.front.waiting.load(std::memory_order_relaxed));
}

// Of an entry.
uint32_t tagOf(const Event& event, uint32_t pushed) noexcept {
    return event.kind >= Kind::timer ? pushed : event.vectorTag;
}

// There was no memory for an entry.
void tellRefused(Event& event, message::ContentRef content, uint32_t tag) noexcept {
    if (event.kind == Kind::taker && event.dropped != nullptr) event.dropped(event, std::move(content), tag);
}

// The slow road of push: the queue may be full, or beyond its mark.
bool pushSlowly(Queue& queue, Event& event, uint32_t tag, message::ContentRef&& content) noexcept {
    AlarmChange change;
    AfterPush after;
    bool admitted;
    bool refused = false;
    message::ContentRef unplaced;
    {
        Lock front(queue.front.lock);
        Lock backLock(queue.back.lock);
        admitted = admits(queue, event, tag);
        if (admitted) {
            if (!makeRoom(queue, &change)) {
                lose(queue, event, std::move(content), tag, &change);
            } else if (!queue.entries.reserve()) {
                ++queue.back.refused;
                refused = true;
                unplaced = std::move(content);
            } else {
                if (event.kind == Kind::timer) event.front.waiting.store(true, std::memory_order_relaxed);
                place(queue, event, tagOf(event, tag), content.release(), &after);
                lookAtHighWater(queue, &change);
            }
            queue.back.removedSeen = queue.front.removed.load(std::memory_order_relaxed);
            const uint64_t waiting = queue.entries.backCount() - queue.back.removedSeen;
            if (waiting > queue.back.mostWaiting) {
                queue.back.mostWaiting = waiting;
                queue.back.countAt = std::min(queue.back.mostWaiting, queue.back.lookAt);
            }
            complete(queue, &change);
        }
    }
    finish(queue, after);
    if (change.any()) tell(queue, change);
    if (refused) [[unlikely]]
        tellRefused(event, std::move(unplaced), tag);
    return admitted;
}

}  // namespace

Queue::~Queue() {
    Entry entry;
    while (entries.take(&entry)) {
        if (entry.content != nullptr) dropContent(entry.content);
    }
}

bool push(Event& event, message::ContentRef&& content, uint32_t tag) noexcept {
    Queue& queue = *event.queue;
    AfterPush after;
    queue.back.lock.lock();
    if (queue.entries.backCount() - queue.back.removedSeen >= queue.back.countAt) [[unlikely]] {
        queue.back.removedSeen = queue.front.removed.load(std::memory_order_acquire);
        const uint64_t waiting = queue.entries.backCount() - queue.back.removedSeen;
        if (waiting >= queue.back.lookAt) {
            queue.back.lock.unlock();
            return pushSlowly(queue, event, tag, std::move(content));
        }
        if (waiting >= queue.back.mostWaiting) {
            queue.back.mostWaiting = waiting + 1;
            queue.back.countAt = std::min(queue.back.mostWaiting, queue.back.lookAt);
        }
    }
    if (!admits(queue, event, tag)) [[unlikely]] {
        queue.back.lock.unlock();
        return false;
    }
    if (!queue.entries.reserve()) [[unlikely]] {
        ++queue.back.refused;
        queue.back.lock.unlock();
        tellRefused(event, std::move(content), tag);
        return true;
    }
    if (event.kind == Kind::timer) event.front.waiting.store(true, std::memory_order_relaxed);
    place(queue, event, tagOf(event, tag), content.release(), &after);
    queue.back.lock.unlock();
    if (after.sleeper != nullptr || after.groupCount != 0) [[unlikely]]
        finish(queue, after);
    return true;
}

bool takeFirst(Queue& queue, ThreadState& thread, Taken* taken, Batch* batch) noexcept {
    Entry entry;
    Event* event;
    for (;;) {
        if (!queue.entries.take(&entry)) return false;
        if (entry.event == 0) continue;
        // The pin keeps the record. An event that is not open any more has been forgotten, see closeEvent: the entry is
        // dead and counted.
        event = static_cast<Event*>(registry::pin(thread, entry.event, registry::openEvent(entry.event)));
        if (event != nullptr) [[likely]] {
            if (event->kind != Kind::timer || event->front.epoch == entry.tag) [[likely]]
                break;
            registry::unpin(thread, event);
        }
        if (entry.content != nullptr) dropContent(entry.content);
    }
    // What comes next was written by another processor.
    if (message::Content* far = queue.entries.ahead(3)) message::prefetchFar(far);
    if (message::Content* near = queue.entries.ahead(0)) message::prefetchNear(near);
    // And other events may be in nobody's cache.
    if (const uint32_t far = queue.entries.eventAhead(5); far != 0 && far != entry.event)
        prefetchToRead(registry::slotOf(far));
    if (const uint32_t near = queue.entries.eventAhead(2); near != 0 && near != entry.event) {
        if (Record* record = registry::slotOf(near)->record.load(std::memory_order_relaxed))
            prefetchToTake(*static_cast<Event*>(record));
    }
    ++event->front.taken;
    ++queue.front.taken;
    uint64_t removed = queue.front.removed.load(std::memory_order_relaxed) + 1;
    if (event->kind == Kind::timer) event->front.waiting.store(false, std::memory_order_relaxed);
    taken->event = event;
    taken->content = entry.content;
    taken->tag = entry.tag;
    if (event->kind == Kind::vectorListener) {
        ReadGuard guard(thread);
        registry::acquireReference(*event);
        batch->count = 1;
        batch->events[0] = event;
        batch->contents[0] = entry.content;
        uint64_t skipped = 0;
        queue.entries.forEach(UINT64_MAX, [&](Entry& next) {
            if (batch->count == QUORL_VECTOR_MAX || skipped == batchReach) return false;
            if (next.tag != entry.tag || next.event == 0) {
                ++skipped;
                return true;
            }
            Event* other = liveEvent(next);
            if (other == nullptr) return true;
            if (other != batch->events[batch->count - 1]) registry::acquireReference(*other);
            batch->events[batch->count] = other;
            message::prefetchFar(next.content);
            batch->contents[batch->count++] = next.content;
            next = Entry{};
            ++other->front.taken;
            ++removed;
            return true;
        });
        queue.front.taken += batch->count - 1;
    }
    queue.front.removed.store(removed, std::memory_order_release);
    // What a batch took out of its turn is near enough to what came first.
    const uint64_t reached = queue.entries.begin() + (event->kind == Kind::vectorListener ? batch->count - 1 : 0);
    if (const uint64_t timed = queue.timedPosition.load(std::memory_order_acquire); timed < reached) [[unlikely]]
        endTiming(queue, timed, queue.entries.begin() - 1);
    if (queue.front.clearBelow != 0) [[unlikely]]
        taken->cleared = queue.waiting() < queue.front.clearBelow;
    return true;
}

Histogram::Summary dispatchLag() noexcept {
    return lag.read(monotonicNow());
}

void trim(Queue& queue, AlarmChange* change) noexcept {
    const Limit limit = queue.back.limit;
    const uint64_t waiting = queue.entries.backCount() - queue.front.removed.load(std::memory_order_relaxed);
    if (limit.policy == QUORLQUEUE_DISCARD_NONE || waiting <= limit.maxEvents) return;
    if (limit.policy == QUORLQUEUE_DISCARD_FIRST) {
        dropFirst(queue, waiting - limit.maxEvents, change);
    } else {
        dropLast(queue, waiting - limit.maxEvents, change);
    }
}

namespace {

// How many entries of the segmented queue are to be skipped.
uint64_t deadEntries(const Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    return queue.front.removed.load(std::memory_order_relaxed) - queue.entries.begin();
}

// Under a read guard.
void dropDead(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock) {
    queue.timedPosition.store(Queue::untimed, std::memory_order_relaxed);
    queue.entries.filter([](const Entry& entry) {
        if (liveEvent(entry) != nullptr) return true;
        if (entry.content != nullptr) dropContent(entry.content);
        return false;
    });
}

}  // namespace

Event* closeEvent(uint32_t id, uint16_t type) noexcept {
    auto* event = static_cast<Event*>(registry::find(id, type));
    if (event == nullptr) return nullptr;
    Queue& queue = *event->queue;
    bool cleared = false;
    AlarmChange change;
    {
        Lock front(queue.front.lock);
        Lock back(queue.back.lock);
        if (registry::close(id, type) == nullptr) return nullptr;
        event->back.closed = true;
        endSlow(queue, *event, &change);
        const uint64_t dead = event->back.pushed - event->front.taken;
        if (dead != 0 && !queue.back.closed) {
            event->front.taken += dead;
            queue.front.removed.store(queue.front.removed.load(std::memory_order_relaxed) + dead,
                                      std::memory_order_release);
            cleared = queue.waiting() < queue.front.clearBelow;
            const uint64_t entries = queue.entries.backCount() - queue.entries.begin();
            if (entries <= fewEntries || deadEntries(queue) >= entries / 2) dropDead(queue);
        }
    }
    if (change.any()) tell(queue, change);
    if (cleared) clearAlarms(queue);
    return event;
}

void cutOff(Event& event) noexcept {
    Queue& queue = *event.queue;
    Lock front(queue.front.lock);
    Lock back(queue.back.lock);
    event.back.closed = true;
}

void startNewEpoch(Event& event) noexcept {
    Queue& queue = *event.queue;
    Lock front(queue.front.lock);
    Lock back(queue.back.lock);
    ++event.front.epoch;
    event.front.waiting.store(false, std::memory_order_relaxed);
    const uint64_t dead = event.back.pushed - event.front.taken;
    event.front.taken += dead;
    if (dead == 0 || queue.back.closed) return;
    queue.front.removed.store(queue.front.removed.load(std::memory_order_relaxed) + dead, std::memory_order_release);
    // Otherwise a timer of interval 0 that is set again and again would fill the queue.
    const uint64_t entries = queue.entries.backCount() - queue.entries.begin();
    if (deadEntries(queue) >= std::max(fewDead, entries / 2)) dropDead(queue);
}

uint32_t vectorTagFor(Queue& queue, quorlEventVectorCallback callback, const void* groupId) noexcept {
    Lock lock(queue.back.lock);
    for (auto& kind : queue.back.batchKinds) {
        if (kind.callback == callback && kind.groupId == groupId) {
            ++kind.listeners;
            return kind.tag;
        }
    }
    try {
        const uint32_t tag = ++queue.back.lastTag | vectorTagBit;
        queue.back.batchKinds.push_back({callback, groupId, tag, 1});
        return tag;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

void dropVectorTag(Queue& queue, uint32_t tag) noexcept {
    Lock lock(queue.back.lock);
    auto& kinds = queue.back.batchKinds;
    for (auto kind = kinds.begin(); kind != kinds.end(); ++kind) {
        if (kind->tag != tag) continue;
        if (--kind->listeners == 0) kinds.erase(kind);
        return;
    }
}

}  // namespace quorl::event
