// What the certified functions on messages keep with a handle: the time limit that the program has set, and the name of the sender
// as a text, which the program was given.
#pragma once

#include <cstdint>

#include "quorl/quorl.h"

namespace quorl::certified {

inline constexpr int64_t neverExpires = INT64_MAX;

// Nanoseconds as a machine takes them: 0 when none was set. QUORL_INVALID_MSG.
quorl_status timeLimitOf(quorlMsg handle, int64_t* limit) noexcept;

// Seconds to nanoseconds; 0 and infinite are neverExpires. QUORL_INVALID_ARG.
quorl_status readTimeLimit(double seconds, int64_t* limit) noexcept;

// For quorlMsg_SetCMTimeLimit and the three getters.
quorl_status setTimeLimit(quorlMsg handle, double seconds) noexcept;
quorl_status getTimeLimit(quorlMsg handle, double* seconds) noexcept;
quorl_status getSender(quorlMsg handle, const char** sender) noexcept;
quorl_status getSequence(quorlMsg handle, uint64_t* sequence) noexcept;

}  // namespace quorl::certified
