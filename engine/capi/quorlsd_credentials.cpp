// Credentials for secure daemons: checked here, kept by libquorl.
#include <cstring>

#include "companion/credentials.h"
#include "companion/status.h"
#include "quorl/quorlsd.h"
#include "secure/parsing/identity.h"

using namespace quorl::secure;
namespace companion = quorl::companion;

namespace {

constexpr size_t longestText = 255;  // bytes of a name or a password of a user

// The length of a text, but no more than limit + 1.
std::string_view bounded(const char* text, size_t limit) noexcept {
    return {text, strnlen(text, limit + 1)};
}

quorl_status report(const Outcome& outcome) noexcept {
    return companion::fail(outcome.status, "%s", outcome.text);
}

quorl_status keep(const Outcome& outcome, const Identity& identity) noexcept {
    if (outcome.status != QUORL_OK) return report(outcome);
    return companion::setIdentity(identity.certificates.text(), identity.key.text());
}

quorl_status refuseUser(const char* text) noexcept {
    return companion::fail(QUORL_INVALID_ARG, "%s", text);
}

}  // namespace

extern "C" {

quorl_status quorlSecureDaemon_SetDaemonCert(const char* daemonName, const char* daemonCert) noexcept {
    if (daemonName == nullptr) daemonName = QUORLSD_ANY_DAEMON;
    if (daemonCert != nullptr) {
        const Outcome outcome = checkCertificates(bounded(daemonCert, longestCredential));
        if (outcome.status != QUORL_OK) return report(outcome);
    }
    return companion::setDaemonCertificates(daemonName, daemonCert);
}

quorl_status quorlSecureDaemon_SetUserCertWithKey(const char* userCertWithKey, const char* password) noexcept {
    if (userCertWithKey == nullptr) return companion::setIdentity(nullptr, nullptr);
    Identity identity;
    const Outcome outcome = readPem(bounded(userCertWithKey, longestCredential), password, &identity);
    return keep(outcome, identity);
}

quorl_status quorlSecureDaemon_SetUserCertWithKeyBin(const void* userCertWithKey, quorl_u32 size,
                                                     const char* password) noexcept {
    if (userCertWithKey == nullptr) return companion::setIdentity(nullptr, nullptr);
    Identity identity;
    const Outcome outcome = readPkcs12(userCertWithKey, size, password, &identity);
    return keep(outcome, identity);
}

quorl_status quorlSecureDaemon_SetUserNameWithPassword(const char* userName, const char* password) noexcept {
    if (userName == nullptr) return companion::setUser(nullptr, nullptr);
    if (password == nullptr) return refuseUser("a user name needs its password");
    if (*userName == '\0') return refuseUser("the user name is empty");
    if (*password == '\0') return refuseUser("the password is empty");
    if (bounded(userName, longestText).size() > longestText)
        return refuseUser("the user name is longer than 255 bytes");
    if (bounded(password, longestText).size() > longestText) return refuseUser("the password is longer than 255 bytes");
    return companion::setUser(userName, password);
}

}  // extern "C"
