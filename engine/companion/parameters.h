// The parameters of companion libraries. The core declares them, so that a file of parameters is good for every program.
#pragma once

#include "base/parameters.h"

namespace quorl::companion::parameters {

inline constexpr NumberParameter certifiedPending{"certified.pending", 1024};

inline constexpr const Parameter* all[] = {&certifiedPending};

}  // namespace quorl::companion::parameters
