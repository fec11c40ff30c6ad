// Fault-tolerance members and monitors: not part of this version.
#include "companion/status.h"
#include "quorl/quorlft.h"

namespace {

quorl_status refuse() noexcept {
    return quorl::companion::fail(QUORL_NOT_PERMITTED, "fault tolerance is not part of this version");
}

}  // namespace

extern "C" {

const char* quorlft_Version(void) noexcept {
    return quorl_Version();
}

// clang-format off
quorl_status quorlftMember_Create(quorlftMember*, quorlQueue, quorlftMemberCallback, quorlTransport, const char*, quorl_u16, quorl_u16, quorl_f64, quorl_f64, quorl_f64, const void*) noexcept { return refuse(); }
quorl_status quorlftMember_Destroy(quorlftMember) noexcept { return refuse(); }
quorl_status quorlftMember_SetWeight(quorlftMember, quorl_u16) noexcept { return refuse(); }
quorl_status quorlftMonitor_Create(quorlftMonitor*, quorlQueue, quorlftMonitorCallback, quorlTransport, const char*, quorl_f64, const void*) noexcept { return refuse(); }
quorl_status quorlftMonitor_Destroy(quorlftMonitor) noexcept { return refuse(); }
// clang-format on

}  // extern "C"
