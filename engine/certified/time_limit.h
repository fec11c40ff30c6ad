// What the certified functions on messages keep with a handle: the time limit that the program has set, the number that a send
// has given the message, and the name of the sender as a text, which the program was given.
#pragma once

#include <cstdint>
#include <string_view>

#include "quorl/quorl.h"

namespace quorl::certified {

inline constexpr int64_t neverExpires = INT64_MAX;

// Nanoseconds as a machine takes them: 0 when none was set. QUORL_INVALID_MSG.
quorl_status timeLimitOf(quorlMsg handle, int64_t* limit) noexcept;

// Seconds to nanoseconds; 0 and infinite are neverExpires. QUORL_INVALID_ARG.
quorl_status readTimeLimit(double seconds, int64_t* limit) noexcept;

// What a send has given the message, for the getters; number 0: it was not certified. limit: as a machine takes it.
void noteSent(quorlMsg handle, std::string_view sender, uint64_t number, int64_t limit) noexcept;

// For quorlMsg_SetCMTimeLimit and the three getters.
quorl_status setTimeLimit(quorlMsg handle, double seconds) noexcept;
quorl_status getTimeLimit(quorlMsg handle, double* seconds) noexcept;
quorl_status getSender(quorlMsg handle, const char** sender) noexcept;
quorl_status getSequence(quorlMsg handle, uint64_t* sequence) noexcept;

}  // namespace quorl::certified
