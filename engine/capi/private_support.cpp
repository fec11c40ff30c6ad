// The services for the companion libraries.
#include "base/status.h"
#include "companion/support.h"
#include "secure/credentials.h"
#include "transport/advisory.h"

using namespace quorl;
using secure::Secret;

namespace {

// A text that may be null. False: no memory.
bool take(const char* text, Secret* secret) noexcept {
    return text == nullptr || secret->assign(text);
}

quorl_status noMemory() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for credentials");
}

}  // namespace

extern "C" {

quorl_status _quorlSupport_Fail(quorl_status status, const char* text) noexcept {
    return fail(status, "%s", text == nullptr ? "" : text);
}

void _quorlSupport_Advise(quorlMsg advisory) noexcept {
    transport::adviseOf(advisory);
}

quorl_status _quorlSupport_SetDaemonCertificates(const char* daemonName, const char* pem) noexcept {
    Secret kept;
    if (!take(pem, &kept)) return noMemory();
    return secure::setDaemonCertificates(daemonName, std::move(kept));
}

quorl_status _quorlSupport_SetIdentity(const char* certPem, const char* keyPem) noexcept {
    Secret certificate;
    Secret key;
    if (!take(certPem, &certificate) || !take(keyPem, &key)) return noMemory();
    return secure::setIdentity(std::move(certificate), std::move(key));
}

quorl_status _quorlSupport_SetUser(const char* name, const char* password) noexcept {
    Secret user;
    Secret secret;
    if (!take(name, &user) || !take(password, &secret)) return noMemory();
    return secure::setUser(std::move(user), std::move(secret));
}

}  // extern "C"
