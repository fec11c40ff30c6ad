// Making, limiting, counting and destroying queues.
#include <cmath>
#include <new>

#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/alarm.h"
#include "event/group.h"
#include "event/parameters.h"
#include "event/queue.h"

namespace quorl::event {
namespace {

void completed(Record& record) noexcept {
    auto& queue = static_cast<Queue&>(record);
    if (queue.completion != nullptr) queue.completion(queue.id, const_cast<void*>(queue.completionClosure));
}

void destroyRecord(Record* record) noexcept {
    delete static_cast<Queue*>(record);
}

quorl_status create(uint32_t reserved, uint32_t* id) noexcept {
    if (reserved == 0) return registry::noId("queue");
    auto* queue = new (std::nothrow) Queue;
    if (queue == nullptr || !queue->entries.prepare()) {
        delete queue;
        registry::abandon(reserved);
        return fail(QUORL_NO_MEMORY, "no memory for a queue");
    }
    queue->completed = completed;
    queue->destroy = destroyRecord;
    {
        Lock front(queue->front.lock);
        Lock back(queue->back.lock);
        if (const uint32_t most = environment::parameters().of(parameters::queueLimit); most != 0)
            queue->back.limit = {QUORLQUEUE_DISCARD_FIRST, most, 1};
        queue->back.highWater = environment::parameters().of(parameters::queueHighwater);
        setThresholds(*queue);
    }
    if (!registry::publish(*queue, reserved, QUORL_OBJECT_QUEUE)) {
        delete queue;
        registry::abandon(reserved);
        return fail(QUORL_NOT_INITIALIZED, "the library is not open");
    }
    *id = reserved;
    return QUORL_OK;
}

}  // namespace

quorl_status createQueue(uint32_t* id) noexcept {
    if (!environment::isOpen()) return environment::requireOpen();
    return create(registry::reserve(), id);
}

quorl_status createDefaultQueue() noexcept {
    uint32_t id = 0;
    return create(registry::reserveFirst(), &id);
}

quorl_status destroyQueue(uint32_t id, quorlQueueOnComplete completion, const void* closure, bool internal) noexcept {
    if (id == QUORL_DEFAULT_QUEUE && !internal) {
        if (!environment::isOpen()) return environment::requireOpen();
        return fail(QUORL_NOT_PERMITTED, "the default queue cannot be destroyed: it ends with the library");
    }
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    auto* found = registry::find<Queue>(id);
    if (found == nullptr) return environment::noObject(QUORL_INVALID_QUEUE, "queue", id);
    Queue& queue = *found;
    AlarmChange change;
    {
        // In one step, so that nobody who holds a lock sees a queue that is closed and yet has events.
        Lock front(queue.front.lock);
        Lock back(queue.back.lock);
        if (registry::close(id, QUORL_OBJECT_QUEUE) == nullptr)
            return environment::noObject(QUORL_INVALID_QUEUE, "queue", id);
        queue.completion = completion;
        queue.completionClosure = closure;
        queue.back.closed = true;
        queue.back.sleepers.wakeAll(wokenByClose);
        Entry entry;
        while (queue.entries.take(&entry)) {
            if (entry.content != nullptr) message::ContentRef::adopt(entry.content);
        }
        queue.front.removed.store(queue.entries.backCount(), std::memory_order_release);
        endAlarms(queue, &change);
    }
    if (change.any()) tell(queue, change);
    leaveGroups(queue);
    registry::retire(queue);
    return QUORL_OK;
}

quorl_status setLimit(Queue& queue, const Limit& limit) noexcept {
    switch (limit.policy) {
        case QUORLQUEUE_DISCARD_NONE:
            if (limit.maxEvents != 0 || limit.discardAmount != 0)
                return fail(QUORL_INVALID_ARG, "without a limit both numbers must be 0");
            break;
        case QUORLQUEUE_DISCARD_FIRST:
        case QUORLQUEUE_DISCARD_LAST:
        case QUORLQUEUE_DISCARD_NEW:
            if (limit.maxEvents == 0) return fail(QUORL_INVALID_ARG, "a limit must allow at least 1 event");
            if (limit.discardAmount == 0 || limit.discardAmount > limit.maxEvents)
                return fail(QUORL_INVALID_ARG, "the discard amount %u is not between 1 and the limit %u",
                            limit.discardAmount, limit.maxEvents);
            break;
        default:
            return fail(QUORL_INVALID_ARG, "limit policy %d does not exist", static_cast<int>(limit.policy));
    }
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    AlarmChange change;
    bool cleared;
    {
        Lock front(queue.front.lock);
        Lock back(queue.back.lock);
        queue.back.limit = limit;
        trim(queue, &change);
        setThresholds(queue);
        complete(queue, &change);
        cleared = queue.waiting() < queue.front.clearBelow;
    }
    if (change.any()) tell(queue, change);
    if (cleared) clearAlarms(queue);
    return QUORL_OK;
}

uint32_t countOf(Queue& queue) noexcept {
    Lock front(queue.front.lock);
    return static_cast<uint32_t>(queue.waiting());
}

void figuresOf(Queue& queue, QueueFigures* figures) noexcept {
    Lock front(queue.front.lock);
    Lock back(queue.back.lock);
    *figures = {queue.waiting(),    queue.back.mostWaiting, queue.front.taken,
                queue.back.dropped, queue.back.refused,     queue.back.limit};
}

}  // namespace quorl::event
