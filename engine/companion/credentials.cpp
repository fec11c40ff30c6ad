// What libquorlsd hands to the store of credentials.
#include "companion/credentials.h"

#include <utility>

#include "base/status.h"
#include "secure/credentials.h"

namespace quorl::companion {
namespace {

using secure::Secret;

// A text that may be null. False: no memory.
bool take(const char* text, Secret* secret) noexcept {
    return text == nullptr || secret->assign(text);
}

quorl_status noMemory() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for credentials");
}

}  // namespace

quorl_status setDaemonCertificates(const char* daemonName, const char* pem) noexcept {
    Secret kept;
    if (!take(pem, &kept)) return noMemory();
    return secure::setDaemonCertificates(daemonName, std::move(kept));
}

quorl_status setIdentity(const char* certPem, const char* keyPem) noexcept {
    Secret certificate;
    Secret key;
    if (!take(certPem, &certificate) || !take(keyPem, &key)) return noMemory();
    return secure::setIdentity(std::move(certificate), std::move(key));
}

quorl_status setUser(const char* name, const char* password) noexcept {
    Secret user;
    Secret secret;
    if (!take(name, &user) || !take(password, &secret)) return noMemory();
    return secure::setUser(std::move(user), std::move(secret));
}

}  // namespace quorl::companion
