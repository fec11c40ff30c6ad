// The embedded bus: transports of this process with the same service and network see each other.
#pragma once

#include <memory>
#include <string_view>

#include "transport/transport.h"

namespace quorl::transport::embedded {

// A port on the bus of that service and network. Throws std::bad_alloc.
std::unique_ptr<Backend> openPort(std::string_view service, std::string_view network);

}  // namespace quorl::transport::embedded
