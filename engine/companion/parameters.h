// The parameters of companion libraries. The core declares them, so that a file of parameters is good for every program.
#pragma once

#include "base/parameters.h"

namespace quorl::companion::parameters {

inline constexpr NumberParameter ledgerHighwaterMegabytes{"certified.ledger.highwater", 0};

inline constexpr const Parameter* all[] = {&ledgerHighwaterMegabytes};

}  // namespace quorl::companion::parameters
