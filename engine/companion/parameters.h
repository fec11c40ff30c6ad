// The parameters of companion libraries. The core declares them, so that a file of parameters is good for every program.
#pragma once

#include "base/parameters.h"

namespace quorl::companion::parameters {

inline constexpr NumberParameter certifiedPending{"certified.pending", 1024};

// Reassignments of one task before it becomes a dead letter; 0: no limit.
inline constexpr NumberParameter dqueueReassignments{"dqueue.reassignments", 10, 1'000'000};
// Seconds that a member which leaves waits for the tasks that its program holds.
inline constexpr NumberParameter dqueueLeave{"dqueue.leave", 10, 86'400};

inline constexpr const Parameter* all[] = {&certifiedPending, &dqueueReassignments, &dqueueLeave};

}  // namespace quorl::companion::parameters
