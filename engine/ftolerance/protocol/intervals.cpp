// Seconds are checked before they become whole numbers, which NaN and large ones do not.
#include "ftolerance/protocol/intervals.h"

#include <cmath>

namespace quorl::ftolerance {
namespace {

// To the microsecond, as frames carry it. 0 when it is no interval.
int64_t nanosecondsOf(double seconds) noexcept {
    constexpr double longest = static_cast<double>(longestInterval) / 1e9;
    if (!(seconds > 0 && seconds <= longest)) return 0;
    const int64_t interval = std::llround(seconds * 1e6) * 1000;
    return interval < shortestInterval ? 0 : interval;
}

}  // namespace

const char* intervalsFrom(double heartbeat, double preparation, double activation, Intervals* intervals) noexcept {
    const Intervals found{nanosecondsOf(heartbeat), nanosecondsOf(preparation), nanosecondsOf(activation)};
    if (found.heartbeat == 0) return "the heartbeat interval must be from 0.001 seconds to 30 days";
    if (found.activation == 0) return "the activation interval must be from 0.001 seconds to 30 days";
    // Of the two zeros only one is none.
    if (found.preparation == 0 && preparation != 0)
        return "the preparation interval must be 0 for no hints, or from 0.001 seconds to 30 days";
    if (found.heartbeat >= found.activation)
        return "the activation interval must be longer than the heartbeat interval: set it to three heartbeats or more";
    if (!areInOrder(found))
        return "the preparation interval must be longer than the heartbeat interval and shorter than the activation "
               "interval, or 0 for no hints";
    *intervals = found;
    return nullptr;
}

const char* lostIntervalFrom(double lostInterval, int64_t* interval) noexcept {
    const int64_t found = nanosecondsOf(lostInterval);
    if (found == 0) return "the lost interval must be from 0.001 seconds to 30 days";
    *interval = found;
    return nullptr;
}

}  // namespace quorl::ftolerance
