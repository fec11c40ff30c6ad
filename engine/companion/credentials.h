// Credentials for secure daemons, which libquorlsd has checked, for the store of the core.
#pragma once

#include "quorl/quorl.h"

namespace quorl::companion {

// All texts are zero-terminated, copied, and null to take away what is there. QUORL_NOT_INITIALIZED, QUORL_NO_MEMORY, and what
// the store says of the daemon's name.
QUORL_API quorl_status setDaemonCertificates(const char* daemonName, const char* pem) noexcept;
QUORL_API quorl_status setIdentity(const char* certPem, const char* keyPem) noexcept;
QUORL_API quorl_status setUser(const char* name, const char* password) noexcept;

}  // namespace quorl::companion
