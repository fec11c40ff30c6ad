// What all kinds of events share when they end.
#include "event/event.h"

#include <algorithm>

#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/queue.h"

namespace quorl::event {

quorl_status destroyEvent(uint32_t id, quorlEventOnComplete completion) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    Event* event = closeEvent(id, QUORL_OBJECT_EVENT);
    if (event == nullptr) return environment::noObject(QUORL_INVALID_EVENT, "event", id);
    event->completion = completion;
    if (event->detach != nullptr) event->detach(*event);
    registry::retire(*event);
    return QUORL_OK;
}

const void* closureOf(uint32_t id) noexcept {
    if (id == 0) return nullptr;
    ThreadState* thread = threadState();
    if (thread == nullptr) return nullptr;
    ReadGuard guard(*thread);
    if (const Record* record = findEvent(id)) return record->arg;
    // Destroyed meanwhile: its record lives as long as its callbacks run.
    const auto isIt = [id](const Record* record) {
        return record != nullptr && record->id == id && registry::isEvent(record->type);
    };
    for (uint32_t i = 0; i < thread->pinCount; ++i) {
        const Record* record = thread->pins[i].load(std::memory_order_relaxed);
        if (isIt(record)) return record->arg;
    }
    const auto* dispatching = thread->findPart<DispatchState>();
    const RunningBatch* running = dispatching != nullptr ? dispatching->runningBatch : nullptr;
    for (; running != nullptr; running = running->outer) {
        const auto* const end = running->batch.events.begin() + running->batch.count;
        const auto* const found = std::find_if(running->batch.events.begin(), end, isIt);
        if (found != end) return (*found)->arg;
    }
    return nullptr;
}

void eventCompleted(Record& record) noexcept {
    auto& event = static_cast<Event&>(record);
    if (event.completion != nullptr) event.completion(event.id, const_cast<void*>(event.arg));
}

}  // namespace quorl::event
