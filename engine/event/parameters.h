// The parameters of queues and dispatch.
#pragma once

#include "base/parameters.h"

namespace quorl::event::parameters {

inline constexpr NumberParameter queueLimit{"queue.limit", 0};                // events; 0 for none
inline constexpr NumberParameter queueHighwater{"queue.highwater", 100'000};  // events; 0 for none
inline constexpr NumberParameter dispatchSpin{"dispatch.spin", 20, 1000};     // microseconds
inline constexpr SecondsParameter advisoryInterval{"advisory.interval", 1.0, 0, 86400};

inline constexpr const Parameter* all[] = {&queueLimit, &queueHighwater, &dispatchSpin, &advisoryInterval};

}  // namespace quorl::event::parameters
