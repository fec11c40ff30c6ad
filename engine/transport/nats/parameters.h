// The parameters of connections to daemons.
#pragma once

#include <limits>

#include "base/parameters.h"

namespace quorl::transport::nats::parameters {

inline constexpr SecondsParameter connectTimeout{"connect.timeout", 2.0, 0, std::numeric_limits<double>::max()};
inline constexpr NumberParameter reconnectBuffer{"reconnect.buffer", 8u << 20};  // bytes

inline constexpr const Parameter* all[] = {&connectTimeout, &reconnectBuffer};

}  // namespace quorl::transport::nats::parameters
