// The one store of credentials of the process.
#include "secure/credentials.h"

#include <algorithm>
#include <map>
#include <memory>
#include <new>
#include <string>

#include "base/forked.h"
#include "base/mutex.h"
#include "base/status.h"

namespace quorl::secure {
namespace {

struct Store {
    std::map<std::string, Secret, std::less<>> daemons;  // by normalized name
    Secret certPem;
    Secret keyPem;
    Secret user;
    Secret password;
};

constinit Mutex storeLock;
constinit Store* store GUARDED_BY(storeLock) POINTS_TO_GUARDED_BY(storeLock) = nullptr;  // made on first use

Store& madeStore() REQUIRES(storeLock) {
    if (store == nullptr) store = new Store;
    return *store;
}

// Of ":65535", which may stand behind the longest name of a host.
constexpr size_t longestPort = 6;

char lower(char letter) noexcept {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

// The name without a scheme, in small letters. further: bytes that it may be longer than one that is set.
quorl_status normalize(std::string_view name, size_t further, std::string* normalized) {
    if (const size_t scheme = name.find("://"); scheme != std::string_view::npos) name.remove_prefix(scheme + 3);
    const bool printable =
        std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c < 0x7f && c != ','; });
    if (name.empty() || name.size() > longestDaemonName + further || !printable)
        return fail(QUORL_INVALID_NAME,
                    "a daemon's name is 1 to %zu bytes of printable ASCII without blanks and commas",
                    longestDaemonName);
    normalized->resize(name.size());
    std::transform(name.begin(), name.end(), normalized->begin(), lower);
    return QUORL_OK;
}

// "host" of "host:port"; an address of IPv6 keeps its brackets.
std::string_view withoutPort(std::string_view name) noexcept {
    const size_t colon = name.rfind(':');
    if (colon == std::string_view::npos) return name;
    const size_t bracket = name.rfind(']');
    if (bracket == std::string_view::npos ? name.find(':') != colon : bracket > colon) return name;
    return name.substr(0, colon);
}

bool copy(const Secret& from, Secret* to) noexcept {
    if (from.present()) return to->assign(from.view());
    to->wipe();
    return true;
}

quorl_status noMemory() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for credentials");
}

}  // namespace

quorl_status lookup(std::string_view daemonName, Credentials* credentials) noexcept {
    std::string name;
    try {
        if (const quorl_status status = normalize(daemonName, longestPort, &name); status != QUORL_OK) return status;
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
    Credentials found;
    {
        Lock lock(storeLock);
        if (store == nullptr) {
            *credentials = Credentials();
            return QUORL_OK;
        }
        auto daemon = store->daemons.find(name);
        if (daemon == store->daemons.end()) daemon = store->daemons.find(withoutPort(name));
        if (daemon == store->daemons.end()) daemon = store->daemons.find(anyDaemon);
        if (daemon != store->daemons.end() && !copy(daemon->second, &found.caPem)) return noMemory();
        if (!copy(store->certPem, &found.certPem) || !copy(store->keyPem, &found.keyPem) ||
            !copy(store->user, &found.user) || !copy(store->password, &found.password))
            return noMemory();
    }
    *credentials = std::move(found);
    return QUORL_OK;
}

quorl_status setDaemonCertificates(std::string_view daemonName, Secret pem) noexcept {
    try {
        if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
        std::string name;
        if (const quorl_status status = normalize(daemonName, 0, &name); status != QUORL_OK) return status;
        Lock lock(storeLock);
        if (pem.present()) {
            madeStore().daemons[name] = std::move(pem);
        } else if (store != nullptr) {
            store->daemons.erase(name);
        }
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
}

quorl_status setIdentity(Secret certPem, Secret keyPem) noexcept {
    try {
        if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
        Lock lock(storeLock);
        Store& made = madeStore();
        made.certPem = std::move(certPem);
        made.keyPem = std::move(keyPem);
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
}

quorl_status setUser(Secret name, Secret password) noexcept {
    try {
        if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
        Lock lock(storeLock);
        Store& made = madeStore();
        made.user = std::move(name);
        made.password = std::move(password);
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return noMemory();
    }
}

void forgetCredentials() noexcept {
    Lock lock(storeLock);
    delete store;
    store = nullptr;
}

}  // namespace quorl::secure
