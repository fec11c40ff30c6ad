// Intervals as programs give them, in seconds, as the protocol has them.
#pragma once

#include <cstdint>

#include "ftolerance/protocol/frame.h"

namespace quorl::ftolerance {

// Null, or what is wrong with the numbers, which may be any; static text. preparation: 0 for no hints.
const char* intervalsFrom(double heartbeat, double preparation, double activation, Intervals* intervals) noexcept;
// The same for a monitor's.
const char* lostIntervalFrom(double lostInterval, int64_t* interval) noexcept;

}  // namespace quorl::ftolerance
