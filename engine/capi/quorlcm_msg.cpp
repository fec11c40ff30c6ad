// The certified attributes of messages, which no message carries in this version.
#include "companion/status.h"
#include "quorl/quorlcm.h"

namespace {

quorl_status absent() noexcept {
    return quorl::companion::fail(QUORL_NOT_FOUND, "the message was not sent by certified delivery");
}

}  // namespace

extern "C" {

// clang-format off
quorl_status quorlMsg_GetCMSender(quorlMsg, const char**) noexcept { return absent(); }
quorl_status quorlMsg_GetCMSequence(quorlMsg, quorl_u64*) noexcept { return absent(); }
quorl_status quorlMsg_GetCMTimeLimit(quorlMsg, quorl_f64*) noexcept { return absent(); }
// clang-format on

quorl_status quorlMsg_SetCMTimeLimit(quorlMsg, quorl_f64) noexcept {
    return quorl::companion::fail(QUORL_NOT_PERMITTED, "certified delivery is not part of this version");
}

}  // extern "C"
