// What all kinds of events share when they end.
#include "event/event.h"

#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/queue.h"

namespace quorl::event {

quorl_status destroyEvent(uint32_t id, quorlEventOnComplete completion) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    Section section(*thread);
    Event* event = closeEvent(id);
    if (event == nullptr) return environment::noObject(QUORL_INVALID_EVENT, "event", id);
    event->completion = completion;
    if (event->detach != nullptr) event->detach(*event);
    registry::retire(*event);
    return QUORL_OK;
}

void eventCompleted(Record& record) noexcept {
    auto& event = static_cast<Event&>(record);
    if (event.completion != nullptr) event.completion(event.id, const_cast<void*>(event.arg));
}

}  // namespace quorl::event
