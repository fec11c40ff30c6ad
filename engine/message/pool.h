// Blocks of memory for contents, recycled by size class: each thread keeps a few, and hands full batches on to the
// others through a depot, since a message is often made on one thread and given back on another.
#pragma once

#include <cstddef>
#include <cstdint>

#include "message/content.h"
#include "message/handle.h"

namespace quorl::message::pool {

// A block for a content with room bytes behind it. Only sizeClass and top are set. Null: no memory.
Content* acquire(size_t room) noexcept;
void release(Content* block) noexcept;

// A slot for a handle: its next handle value is in Slot::next. Null: no memory, or no number left.
Slot* acquireSlot() noexcept;
void releaseSlot(Slot* slot) noexcept;

// Messages alive in the process; what one thread adds may be taken off by another.
void countMessage(int64_t change) noexcept;
uint64_t messages() noexcept;

}  // namespace quorl::message::pool
