// The credentials that this process shows to daemons, and what it trusts them by. Filled through libquorlsd, read by
// whoever connects:
//
//     secure::Credentials credentials;
//     if (quorl_status status = secure::lookup("tls://db1.example:4222", &credentials); status != QUORL_OK) return status;
//     if (credentials.caPem.present()) ... credentials.caPem.text() ...
//
// Whoever passes them on to another library cannot wipe that library's copy: it should live no longer than it must.
#pragma once

#include <string_view>

#include "quorl/quorl.h"
#include "secure/secret.h"

namespace quorl::secure {

// A copy of what holds for one daemon at one moment, wiped when it goes. What is not set is not present.
struct Credentials {
    Secret caPem;    // the certificates to trust, PEM
    Secret certPem;  // this program's certificate and then its chain, PEM
    Secret keyPem;   // its private key, PEM, not encrypted; present exactly when certPem is
    Secret user;
    Secret password;  // present exactly when user is
};

inline constexpr std::string_view anyDaemon = "*";
inline constexpr size_t longestDaemonName = 255;

// The credentials for a daemon, by its address: with or without a scheme and a port, letters in either case. A daemon's
// certificate is that of "host:port", else of "host", else of any daemon. QUORL_INVALID_NAME, QUORL_NO_MEMORY.
quorl_status lookup(std::string_view daemonName, Credentials* credentials) noexcept;

// Set a part, or take it away when what is given is not present; what was there is wiped. The caller has checked the
// values, not the name. QUORL_INVALID_NAME, QUORL_NO_MEMORY.
quorl_status setDaemonCertificates(std::string_view daemonName, Secret pem) noexcept;
quorl_status setIdentity(Secret certPem, Secret keyPem) noexcept;
quorl_status setUser(Secret name, Secret password) noexcept;

// Wipes everything.
void forgetCredentials() noexcept;

}  // namespace quorl::secure
