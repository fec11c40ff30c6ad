// Queue groups.
#include <cmath>

#include "base/status.h"
#include "event/dispatch.h"
#include "event/group.h"

using namespace quorl;

extern "C" {

quorl_status quorlQueueGroup_Create(quorlQueueGroup* group) noexcept {
    if (group == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
    return event::createGroup(group);
}

quorl_status quorlQueueGroup_Destroy(quorlQueueGroup group) noexcept {
    return event::destroyGroup(group);
}

quorl_status quorlQueueGroup_Add(quorlQueueGroup group, quorlQueue queue) noexcept {
    return event::addToGroup(group, queue);
}

quorl_status quorlQueueGroup_Remove(quorlQueueGroup group, quorlQueue queue) noexcept {
    return event::removeFromGroup(group, queue);
}

quorl_status quorlQueueGroup_TimedDispatch(quorlQueueGroup group, quorl_f64 timeout) noexcept {
    if (std::isnan(timeout)) return fail(QUORL_INVALID_ARG, "the timeout is not a number");
    return event::dispatchGroup(group, timeout);
}

}  // extern "C"
