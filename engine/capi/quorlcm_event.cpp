// Certified listeners: not part of this version.
#include "companion/status.h"
#include "quorl/private.h"
#include "quorl/quorlcm.h"

namespace {

quorl_status refuse() noexcept {
    return quorl::companion::fail(QUORL_NOT_PERMITTED, "certified delivery is not part of this version");
}

}  // namespace

extern "C" {

// clang-format off
quorl_status quorlcmEvent_CreateListener(quorlcmEvent*, quorlQueue, quorlcmEventCallback, quorlcmTransport, const char*, const void*) noexcept { return refuse(); }
quorl_status quorlcmEvent_DestroyEx(quorlcmEvent, quorl_bool, quorlcmEventOnComplete) noexcept { return refuse(); }
quorl_status quorlcmEvent_SetExplicitConfirm(quorlcmEvent) noexcept { return refuse(); }
quorl_status quorlcmEvent_ConfirmMsg(quorlcmEvent, quorlMsg) noexcept { return refuse(); }
quorl_status _quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages(quorl_u32) noexcept { return refuse(); }
// clang-format on

}  // extern "C"
