// Certified transports: not part of this version.
#include "companion/status.h"
#include "quorl/private.h"
#include "quorl/quorlcm.h"

namespace {

quorl_status refuse() noexcept {
    return quorl::companion::fail(QUORL_NOT_PERMITTED, "certified delivery is not part of this version");
}

}  // namespace

extern "C" {

const char* quorlcm_Version(void) noexcept {
    return quorl_Version();
}

// clang-format off
quorl_status quorlcmTransport_Create(quorlcmTransport*, quorlTransport, const char*, quorl_bool, const char*, quorl_bool, const char*) noexcept { return refuse(); }
quorl_status quorlcmTransport_Destroy(quorlcmTransport) noexcept { return refuse(); }
quorl_status quorlcmTransport_DestroyEx(quorlcmTransport, quorlcmTransportOnComplete, const void*) noexcept { return refuse(); }
quorl_status quorlcmTransport_Send(quorlcmTransport, quorlMsg) noexcept { return refuse(); }
quorl_status quorlcmTransport_SendRequest(quorlcmTransport, quorlMsg, quorlMsg*, quorl_f64) noexcept { return refuse(); }
quorl_status quorlcmTransport_SendReply(quorlcmTransport, quorlMsg, quorlMsg) noexcept { return refuse(); }
quorl_status quorlcmTransport_AllowListener(quorlcmTransport, const char*) noexcept { return refuse(); }
quorl_status quorlcmTransport_DisallowListener(quorlcmTransport, const char*) noexcept { return refuse(); }
quorl_status quorlcmTransport_AddListener(quorlcmTransport, const char*, const char*) noexcept { return refuse(); }
quorl_status quorlcmTransport_RemoveListener(quorlcmTransport, const char*, const char*) noexcept { return refuse(); }
quorl_status quorlcmTransport_RemoveSendState(quorlcmTransport, const char*) noexcept { return refuse(); }
quorl_status quorlcmTransport_ExpireMessages(quorlcmTransport, const char*, quorl_u64) noexcept { return refuse(); }
quorl_status quorlcmTransport_SyncLedger(quorlcmTransport) noexcept { return refuse(); }
quorl_status quorlcmTransport_ConnectToRelayAgent(quorlcmTransport) noexcept { return refuse(); }
quorl_status quorlcmTransport_DisconnectFromRelayAgent(quorlcmTransport) noexcept { return refuse(); }
quorl_status quorlcmTransport_SetDefaultCMTimeLimit(quorlcmTransport, quorl_f64) noexcept { return refuse(); }
quorl_status quorlcmTransport_SetPublisherInactivityDiscardInterval(quorlcmTransport, quorl_i32) noexcept { return refuse(); }
quorl_status quorlcmTransport_ReviewLedger(quorlcmTransport, quorlcmReviewCallback, const char*, const void*) noexcept { return refuse(); }
// clang-format on

}  // extern "C"
