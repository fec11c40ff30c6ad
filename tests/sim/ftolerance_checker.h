// What is promised of fault-tolerance groups, held against what their programs saw. Knows nothing of the protocol.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "sim/plan.h"

namespace quorl::sim {

// What a group of one plan has in common; drawn from its seed.
struct GroupTerms {
    Time heartbeat = 0;
    Time preparation = 0;
    Time activation = 0;
    Time lostInterval = 0;
    uint16_t goal = 1;
};

enum class Deed : uint8_t { prepare, activate, deactivate, returned };

struct Step {
    Time at = 0;
    Deed deed = Deed::prepare;
    uint64_t token = 0;
};

// A program from its start to its end, as seen from outside.
struct Life {
    uint32_t node = 0;
    bool monitor = false;
    Time from = 0;
    Time until = never;
    Time left = never;
    uint16_t goal = 1;
    std::vector<std::pair<Time, uint16_t>> weights;  // since when
    std::vector<Step> steps;
    std::vector<std::pair<Time, uint32_t>> counts;  // of a monitor
    uint32_t disagreements = 0;                     // told
    bool wentOnAfterPause = false;                  // acted, stood still, and was not stopped by its first step
};
using Lives = std::deque<Life>;

// What was broken until end; empty: nothing. Adds to sides how many sides were looked at after they had come to rest.
std::string brokenPromise(const Plan& plan, const GroupTerms& terms, const Lives& lives, Time end, uint64_t* sides);

}  // namespace quorl::sim
