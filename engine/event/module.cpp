// What opening and closing mean for queues, groups, events and timers.
#include "event/module.h"

#include "base/registry.h"
#include "event/group.h"
#include "event/parameters.h"
#include "event/queue.h"
#include "event/timer.h"

namespace quorl::event {
namespace {

// Events first, so that nothing new starts.
void close() noexcept {
    registry::forEachOpen(QUORL_OBJECT_EVENT, [](uint32_t id) { destroyEvent(id, nullptr); });
    registry::forEachOpen(QUORL_OBJECT_QUEUE_GROUP, [](uint32_t id) { destroyGroup(id); });
    registry::forEachOpen(QUORL_OBJECT_QUEUE, [](uint32_t id) { destroyQueue(id, nullptr, nullptr, true); });
}

quorl_status stopTheTimers() noexcept {
    stopTimers();
    return QUORL_OK;
}

}  // namespace

constinit const environment::Module timersModule{
    .parameters = {}, .start = nullptr, .close = nullptr, .stop = stopTheTimers, .forget = nullptr};

constinit const environment::Module module{
    .parameters = parameters::all, .start = createDefaultQueue, .close = close, .stop = nullptr, .forget = nullptr};

}  // namespace quorl::event
