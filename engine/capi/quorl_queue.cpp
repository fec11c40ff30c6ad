// Queues.
#include <cmath>
#include <cstring>
#include <new>

#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "base/utf8.h"
#include "event/dispatch.h"
#include "event/queue.h"

using namespace quorl;
using event::Queue;

namespace {

constexpr size_t longestName = 255;

quorl_status noPlace() noexcept {
    return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
}

// Calls use(Queue&) on the queue of that id.
template <class F>
quorl_status with(quorlQueue id, F&& use) {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    auto* queue = registry::find<Queue>(id);
    if (queue == nullptr) return environment::noObject(QUORL_INVALID_QUEUE, "queue", id);
    return use(*queue);
}

}  // namespace

extern "C" {

quorl_status quorlQueue_Create(quorlQueue* queue) noexcept {
    if (queue == nullptr) return noPlace();
    return event::createQueue(queue);
}

quorl_status quorlQueue_DestroyEx(quorlQueue queue, quorlQueueOnComplete completion, const void* closure) noexcept {
    return event::destroyQueue(queue, completion, closure, false);
}

quorl_status quorlQueue_SetName(quorlQueue queue, const char* name) noexcept {
    if (name == nullptr || strnlen(name, longestName + 1) > longestName)
        return fail(QUORL_INVALID_ARG, "the queue's name is null or has more than %zu bytes", longestName);
    if (!utf8::validOrPaired(name)) return fail(QUORL_INVALID_NAME, "the queue's name is not UTF-8");
    return with(queue, [&](Queue& found) {
        try {
            std::string copy(name);
            Lock lock(found.nameLock);
            found.name.swap(copy);
            return QUORL_OK;
        } catch (const std::bad_alloc&) {
            return fail(QUORL_NO_MEMORY, "no memory for a queue's name");
        }
    });
}

quorl_status quorlQueue_GetName(quorlQueue queue, const char** name) noexcept {
    if (name == nullptr) return noPlace();
    return with(queue, [&](Queue& found) {
        Lock lock(found.nameLock);
        *name = found.name.c_str();
        return QUORL_OK;
    });
}

quorl_status quorlQueue_GetCount(quorlQueue queue, quorl_u32* count) noexcept {
    if (count == nullptr) return noPlace();
    return with(queue, [&](Queue& found) {
        *count = event::countOf(found);
        return QUORL_OK;
    });
}

quorl_status quorlQueue_TimedDispatch(quorlQueue queue, quorl_f64 timeout) noexcept {
    if (std::isnan(timeout)) return fail(QUORL_INVALID_ARG, "the timeout is not a number");
    return event::dispatchQueue(queue, timeout);
}

quorl_status quorlQueue_SetPriority(quorlQueue queue, quorl_u32 priority) noexcept {
    return with(queue, [&](Queue& found) {
        found.priority.store(priority, std::memory_order_relaxed);
        return QUORL_OK;
    });
}

quorl_status quorlQueue_GetPriority(quorlQueue queue, quorl_u32* priority) noexcept {
    if (priority == nullptr) return noPlace();
    return with(queue, [&](Queue& found) {
        *priority = found.priority.load(std::memory_order_relaxed);
        return QUORL_OK;
    });
}

quorl_status quorlQueue_SetLimitPolicy(quorlQueue queue, quorlQueueLimitPolicy policy, quorl_u32 maxEvents,
                                       quorl_u32 discardAmount) noexcept {
    return with(queue, [&](Queue& found) { return event::setLimit(found, {policy, maxEvents, discardAmount}); });
}

quorl_status quorlQueue_GetLimitPolicy(quorlQueue queue, quorlQueueLimitPolicy* policy, quorl_u32* maxEvents,
                                       quorl_u32* discardAmount) noexcept {
    if (policy == nullptr || maxEvents == nullptr || discardAmount == nullptr) return noPlace();
    return with(queue, [&](Queue& found) {
        Lock lock(found.back.lock);
        *policy = found.back.limit.policy;
        *maxEvents = found.back.limit.maxEvents;
        *discardAmount = found.back.limit.discardAmount;
        return QUORL_OK;
    });
}

}  // extern "C"
