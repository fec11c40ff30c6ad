// The table that finds fields by name and by id in a content with many of them.
#pragma once

#include <cstdint>

#include "message/content.h"

namespace quorl::message {

// Two open-addressed tables of the same capacity, one by name and one by id, behind this head. A cell is a field's
// number plus 1, with bits of its hash so that most probes need no look at the field; 0 is free.
struct FieldIndex {
    uint32_t mask;    // capacity - 1; the capacity is a power of two
    uint32_t fields;  // how many are in it
    // The instance that was found last and its field's number, in the upper and the lower half: instances are asked for
    // one after the other, and each search goes on where the last one ended. 0: none yet.
    std::atomic<uint64_t> lastInstance;
    uint64_t* names() noexcept { return reinterpret_cast<uint64_t*>(this + 1); }
    uint64_t* ids() noexcept { return names() + mask + 1; }
    const uint64_t* names() const noexcept { return reinterpret_cast<const uint64_t*>(this + 1); }
    const uint64_t* ids() const noexcept { return names() + mask + 1; }
};

}  // namespace quorl::message
