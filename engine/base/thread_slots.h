// Slots that hold one pointer per thread, with destructors that run as a thread ends.
#pragma once

#include "base/thread_state.h"

namespace quorl {

// Slots are numbered from 1, are never given back, and live as long as the process. QUORL_NO_MEMORY: none left.
// destructor may be null.
quorl_status createThreadSlot(uint32_t* slot, void (*destructor)(void*)) noexcept;

uint32_t threadSlotsInUse() noexcept;

// For the end of a thread: calls the destructors of the slots that hold something, again while they fill others.
void runSlotDestructors(ThreadState& state) noexcept;

}  // namespace quorl
