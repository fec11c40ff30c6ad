// Credentials for secure daemons: not part of this version.
#include "base/support.h"
#include "quorl/quorlsd.h"

namespace {

quorl_status refuse() noexcept {
    return _quorlSupport_Fail(QUORL_NOT_PERMITTED, "secure daemons are not part of this version");
}

}  // namespace

extern "C" {

// clang-format off
quorl_status quorlSecureDaemon_SetDaemonCert(const char*, const char*) { return refuse(); }
quorl_status quorlSecureDaemon_SetUserCertWithKey(const char*, const char*) { return refuse(); }
quorl_status quorlSecureDaemon_SetUserCertWithKeyBin(const void*, quorl_u32, const char*) { return refuse(); }
quorl_status quorlSecureDaemon_SetUserNameWithPassword(const char*, const char*) { return refuse(); }
// clang-format on

}  // extern "C"
