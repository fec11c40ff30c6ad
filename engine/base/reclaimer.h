// The thread that completes and frees closed objects once nobody uses them any more.
#pragma once

#include "base/record.h"
#include "quorl/quorl.h"

namespace quorl::reclaimer {

// Starts the thread. QUORL_INIT_FAILURE.
quorl_status start() noexcept;

// Waits until every record that was handed over is complete and, but for those that a reference still holds, freed; then
// ends the thread. The last reference frees such a record later.
void finish() noexcept;

// Takes a closed record over.
void take(Record& record) noexcept;

void releaseReference(Record& record) noexcept;

}  // namespace quorl::reclaimer
