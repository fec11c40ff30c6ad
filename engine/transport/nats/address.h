// Addresses of daemons as programs write them: "nats://host:4222,tls://other:4223", or short "host:port".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/quorl.h"

namespace quorl::transport::nats {

inline constexpr uint16_t defaultPort = 4222;
inline constexpr size_t mostServers = 32;
inline constexpr size_t longestAddress = 1023;  // bytes of the whole list

struct Server {
    bool tls = false;
    std::string host;  // a name, an IPv4 address, or an IPv6 address without its brackets
    uint16_t port = defaultPort;

    std::string hostAndPort() const;
    std::string url() const;  // with the scheme

    bool operator==(const Server&) const = default;
};

// The servers of one daemon, in the order in which they are tried: those of a cluster. A server without a scheme has that of
// the one before it, the first one "nats". QUORL_DAEMON_NOT_FOUND with the reason as detail; QUORL_NO_MEMORY.
quorl_status parseAddress(std::string_view text, std::vector<Server>* servers) noexcept;

// The same without the servers.
quorl_status checkAddress(std::string_view text) noexcept;

}  // namespace quorl::transport::nats
