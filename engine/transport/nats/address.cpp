// Reading the addresses of daemons.
#include "transport/nats/address.h"

#include <algorithm>
#include <charconv>
#include <new>

#include "base/status.h"

namespace quorl::transport::nats {
namespace {

constexpr size_t longestHost = 253;
constexpr size_t longestShown = 80;  // bytes of a wrong address in a text

bool isHostCharacter(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
           c == '_';
}

bool isAddressCharacter(char c) noexcept {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F') || c == ':' || c == '.';
}

bool readPort(std::string_view text, uint16_t* port) noexcept {
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number == 0 || number > 65535) return false;
    *port = static_cast<uint16_t>(number);
    return true;
}

// What is wrong with the text of one server; null when nothing is.
const char* readServer(std::string_view text, bool tls, Server* server) {
    server->tls = tls;
    if (const size_t at = text.find("://"); at != std::string_view::npos) {
        const std::string_view scheme = text.substr(0, at);
        if (scheme != "nats" && scheme != "tls") return "its scheme is neither nats nor tls";
        server->tls = scheme == "tls";
        text.remove_prefix(at + 3);
    }
    std::string_view host;
    std::string_view port;
    if (text.starts_with('[')) {
        const size_t end = text.find(']');
        if (end == std::string_view::npos) return "its bracket is not closed";
        host = text.substr(1, end - 1);
        port = text.substr(end + 1);
        if (host.find(':') == std::string_view::npos || !std::all_of(host.begin(), host.end(), isAddressCharacter))
            return "its brackets do not hold an IPv6 address";
        if (!port.empty()) {
            if (port.front() != ':') return "its host is followed by something other than a port";
            port.remove_prefix(1);
            if (port.empty()) return "its port is not a number from 1 to 65535";
        }
    } else {
        const size_t colon = text.find(':');
        host = text.substr(0, colon);
        if (colon != std::string_view::npos) {
            port = text.substr(colon + 1);
            if (port.empty()) return "its port is not a number from 1 to 65535";
        }
        if (host.empty()) return "it has no host";
        if (host.size() > longestHost || !std::all_of(host.begin(), host.end(), isHostCharacter) ||
            host.front() == '-' || host.front() == '.' || host.find("..") != std::string_view::npos)
            return "its host name is not valid";
    }
    server->host = host;
    server->port = defaultPort;
    if (!port.empty() && !readPort(port, &server->port)) return "its port is not a number from 1 to 65535";
    return nullptr;
}

// Of an address that may hold credentials, though they do not belong there: what stands between the scheme and the last '@', and
// behind '?' and '#', is kept out of the text. A comma may be one of a password's letters.
quorl_status refuseSecrets(std::string_view text, const char* why) noexcept {
    const size_t at = text.rfind('@');
    const size_t tail = text.find_first_of("?#");
    std::string_view scheme;
    std::string_view shown = text;
    if (at != std::string_view::npos) {
        for (const std::string_view known : {"nats://", "tls://"}) {
            if (text.starts_with(known)) scheme = known;
        }
        shown.remove_prefix(at);
        if (tail < at) shown = {};
    }
    const size_t end = shown.find_first_of("?#");
    const bool cut = end != std::string_view::npos;
    if (cut) shown = shown.substr(0, end + 1);
    return fail(QUORL_DAEMON_NOT_FOUND, "\"%.*s%s%.*s%s\" is not a valid daemon address: %s",
                static_cast<int>(scheme.size()), scheme.data(), at != std::string_view::npos ? "..." : "",
                static_cast<int>(std::min(shown.size(), longestShown)), shown.data(), cut ? "..." : "", why);
}

}  // namespace

std::string Server::hostAndPort() const {
    const bool bracketed = host.find(':') != std::string::npos;
    std::string text = bracketed ? "[" + host + "]" : host;
    return text + ":" + std::to_string(port);
}

std::string Server::url() const {
    return (tls ? "tls://" : "nats://") + hostAndPort();
}

quorl_status parseAddress(std::string_view text, std::vector<Server>* servers) noexcept {
    if (text.size() > longestAddress)
        return fail(QUORL_DAEMON_NOT_FOUND, "a daemon address has at most %zu bytes, not %zu", longestAddress,
                    text.size());
    if (text.find('@') != std::string_view::npos) return refuseSecrets(text, "credentials do not belong in it");
    if (text.find_first_of("?#") != std::string_view::npos)
        return refuseSecrets(text, "nothing follows host and port in one");
    try {
        std::vector<Server> found;
        bool tls = false;
        for (size_t at = 0; at <= text.size();) {
            const size_t end = std::min(text.find(',', at), text.size());
            const std::string_view one = text.substr(at, end - at);
            Server server;
            const char* wrong = found.size() == mostServers ? "it follows 32 others, and an address names no more"
                                                            : readServer(one, tls, &server);
            if (wrong != nullptr)
                return fail(QUORL_DAEMON_NOT_FOUND, "\"%.*s\" is not a valid daemon address: %s",
                            static_cast<int>(std::min(one.size(), longestShown)), one.data(), wrong);
            tls = server.tls;
            found.push_back(std::move(server));
            at = end + 1;
        }
        *servers = std::move(found);
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for the address of a daemon");
    }
}

quorl_status checkAddress(std::string_view text) noexcept {
    std::vector<Server> servers;
    return parseAddress(text, &servers);
}

}  // namespace quorl::transport::nats
