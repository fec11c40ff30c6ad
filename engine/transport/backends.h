// What can carry the messages of a transport, by the scheme of its daemon's address.
#pragma once

#include <memory>
#include <string_view>

#include "transport/transport.h"

namespace quorl::transport {

// All three are checked texts; the daemon's address is empty for the bus of this process.
struct Destination {
    std::string_view daemon;
    std::string_view service;
    std::string_view network;
};

// Opens the way. QUORL_NO_MEMORY, and what the backend says.
quorl_status openBackend(const Destination& to, std::unique_ptr<Backend>* backend) noexcept;

}  // namespace quorl::transport
