// Events: listeners, vector listeners, timers.
#include "base/status.h"
#include "event/timer.h"
#include "transport/listener.h"

using namespace quorl;

namespace {

quorl_status noPlace() noexcept {
    return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
}

}  // namespace

extern "C" {

quorl_status quorlEvent_CreateListener(quorlEvent* event, quorlQueue queue, quorlEventCallback callback,
                                       quorlTransport transport, const char* subject, const void* closure) noexcept {
    if (event == nullptr) return noPlace();
    return transport::createListener(event, {queue, transport, subject, closure, callback, nullptr, nullptr, false});
}

quorl_status quorlEvent_CreateSharedListener(quorlEvent* event, quorlQueue queue, quorlEventCallback callback,
                                             quorlTransport transport, const char* subject, const char* name,
                                             const void* closure) noexcept {
    if (event == nullptr) return noPlace();
    if (name == nullptr) return fail(QUORL_INVALID_ARG, "the name to share under is null");
    return transport::createListener(event,
                                     {queue, transport, subject, closure, callback, nullptr, nullptr, false, name});
}

quorl_status quorlEvent_CreateGroupVectorListener(quorlEvent* event, quorlQueue queue,
                                                  quorlEventVectorCallback callback, quorlTransport transport,
                                                  const char* subject, const void* closure,
                                                  const void* groupId) noexcept {
    if (event == nullptr) return noPlace();
    return transport::createListener(event, {queue, transport, subject, closure, nullptr, callback, groupId, true});
}

quorl_status quorlEvent_CreateTimer(quorlEvent* event, quorlQueue queue, quorlEventCallback callback,
                                    quorl_f64 interval, const void* closure) noexcept {
    if (event == nullptr) return noPlace();
    return event::createTimer(event, queue, callback, interval, closure);
}

quorl_status quorlEvent_GetTimerInterval(quorlEvent timer, quorl_f64* interval) noexcept {
    if (interval == nullptr) return noPlace();
    return event::timerInterval(timer, interval);
}

quorl_status quorlEvent_ResetTimerInterval(quorlEvent timer, quorl_f64 interval) noexcept {
    return event::resetTimer(timer, interval);
}

quorl_status quorlEvent_DestroyEx(quorlEvent event, quorlEventOnComplete completion) noexcept {
    return event::destroyEvent(event, completion);
}

}  // extern "C"
