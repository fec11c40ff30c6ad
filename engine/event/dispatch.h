// Running the callbacks of waiting events, and interrupting the threads that wait for some.
#pragma once

#include <cstdint>

#include "quorl/quorl.h"

namespace quorl::event {

// Both run at most one event, or one batch, on the calling thread. timeout is not NaN.
quorl_status dispatchQueue(uint32_t id, double timeout) noexcept;
quorl_status dispatchGroup(uint32_t id, double timeout) noexcept;

quorl_status setThreadKey(void* key) noexcept;
quorl_status signalDispatchable(uint32_t id) noexcept;

}  // namespace quorl::event
