// Certified listeners.
#include "companion/certified.h"
#include "companion/status.h"
#include "quorl/private.h"
#include "quorl/quorlcm.h"

using quorl::companion::CertifiedListener;
using quorl::companion::CertifiedTransport;
using quorl::companion::fail;
using quorl::companion::Hold;
using quorl::companion::Type;

namespace {

template <class F>
quorl_status with(quorlcmEvent id, F&& ask) noexcept {
    const Hold<CertifiedListener> listener(Type::certifiedListener, id);
    return listener ? ask(*listener) : listener.status();
}

}  // namespace

extern "C" {

quorl_status quorlcmEvent_CreateListener(quorlcmEvent* listener, quorlQueue queue, quorlcmEventCallback callback,
                                         quorlcmTransport cmTransport, const char* subject,
                                         const void* closure) noexcept {
    if (listener == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
    if (callback == nullptr) return fail(QUORL_INVALID_CALLBACK, "the callback of the certified listener is null");
    const Hold<CertifiedTransport> transport(Type::certifiedTransport, cmTransport);
    return transport ? transport->listen(queue, callback, subject, closure, listener) : transport.status();
}

quorl_status quorlcmEvent_DestroyEx(quorlcmEvent listener, quorl_bool cancelAgreements,
                                    quorlcmEventOnComplete completion) noexcept {
    return CertifiedListener::closeWith(listener, cancelAgreements != QUORL_FALSE, completion);
}

quorl_status quorlcmEvent_SetExplicitConfirm(quorlcmEvent listener) noexcept {
    return with(listener, [](CertifiedListener& its) {
        its.setExplicitConfirm();
        return QUORL_OK;
    });
}

quorl_status quorlcmEvent_ConfirmMsg(quorlcmEvent listener, quorlMsg message) noexcept {
    return with(listener, [&](CertifiedListener& its) { return its.confirm(message); });
}

// Only the tasks of distributed queues are ever completed; a plain certified listener has none.
quorl_status _quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages(quorl_u32 listener) noexcept {
    return with(listener, [](CertifiedListener& its) {
        its.setExplicitComplete();
        return QUORL_OK;
    });
}

}  // extern "C"
