// How a failure is reported inside the engine: a status, and a detail text kept for the calling thread.
#pragma once

#include "quorl/quorl.h"

namespace quorl {

// Sets the calling thread's detail text and returns status. The text is cut at 511 bytes. Never allocates, never
// throws.
[[gnu::format(printf, 2, 3)]] quorl_status fail(quorl_status status, const char* format, ...) noexcept;

// Puts the words of an outer level before the text that is there: "open transport: connect ...: refused".
[[gnu::format(printf, 2, 3)]] quorl_status failWithin(quorl_status status, const char* format, ...) noexcept;

// The calling thread's detail text; never null.
const char* lastErrorText() noexcept;

}  // namespace quorl
