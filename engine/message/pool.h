// Blocks of memory for contents, recycled by size class: each thread keeps a few, and hands full batches on to the
// others through a depot, since a message is often made on one thread and given back on another.
#pragma once

#include <cstddef>
#include <cstdint>

#include "message/content.h"
#include "message/handle.h"

namespace quorl::message::pool {

// A block for a content with room bytes for its image and its table. Only sizeClass and top are set. Null: no memory.
Content* acquire(size_t room) noexcept;
void release(Content* block) noexcept;
// Whether the block is of a size that is kept when it is given back.
bool recycles(const Content& block) noexcept;

// The same for a content that will be added to: a thread whose messages outgrow their first blocks gets larger ones.
Content* acquireToGrow(size_t room) noexcept;
// Says that a content has had to move to a block of that class.
void outgrown(uint8_t sizeClass) noexcept;

// A slot for a handle: its next handle value is in Slot::next. Null: no memory, or no number left. messages is what the
// slot adds to the number of messages alive: 1 or -1, or 0 for those inside others.
Slot* acquireSlot(int messages) noexcept;
void releaseSlot(Slot* slot, int messages) noexcept;

// In a process that was forked while the library was open: no handle names a message any more, and nothing is given out.
void forgetAll() noexcept;

// Messages alive in the process.
uint64_t messages() noexcept;

}  // namespace quorl::message::pool
