// The parameters of circuits.
#pragma once

#include <limits>

#include "base/parameters.h"

namespace quorl::transport::circuit::parameters {

inline constexpr SecondsParameter timeout{"circuit.timeout", 10.0, 0.1, std::numeric_limits<double>::max()};

inline constexpr const Parameter* all[] = {&timeout};

}  // namespace quorl::transport::circuit::parameters
