// Message handles: numbers that name a slot of a table and one of its uses, so that any 64-bit value can be tried.
//
// A handle's low bits are the slot's index, the others count the slot's uses. Slots live in chunks that are never
// freed; a slot holds the one handle value that is alive, so that resolving is three loads and a comparison.
#pragma once

#include <atomic>
#include <cstdint>

#include "message/memory.h"
#include "quorl/quorl.h"

namespace quorl::message {

class Content;
struct Borrowed;
struct OwnAttributes;

// Who may destroy a message.
enum class Owner : uint8_t {
    caller,   // whoever holds the handle
    library,  // the delivery, until the callback destroys or detaches it
    outer,    // the message that it lies in
};

struct alignas(cacheLine) Slot {
    std::atomic<uint64_t> live;  // the handle value while there is one; 0 while the slot is free
    uint64_t next;               // the handle value of the next use
    union {
        Content* content;   // counted; null: no fields and no subjects, or a message inside one that nobody has read
        Slot* nextOfBatch;  // in a free list
    };
    union {
        uint32_t event;         // the id of the one that delivered the message; 0: none
        Content* outerContent;  // Owner::outer: the content that image lies in; kept by the outer message
        Slot* nextBatch;
    };
    union {
        Content* received;     // counted: what was delivered with attributes, as it came; null: nothing was
        const uint8_t* image;  // Owner::outer: its image
    };
    union {
        OwnAttributes* attributes;  // the handle's own; null: none
        Slot* sibling;              // Owner::outer: the next one of the same outer message
    };
    Borrowed* borrowed;  // what was lent and must be taken back; null: nothing
    uint32_t brackets;   // open reference brackets
    Owner owner;
    bool lent;  // in a bracket: pointers into the content were given out since it was last retained
};
static_assert(sizeof(Slot) == cacheLine);

namespace handles {

constexpr unsigned indexBits = 26;  // 67 million messages at once, and 2^38 uses of each slot
constexpr unsigned chunkBits = 10;
constexpr uint64_t indexMask = (uint64_t{1} << indexBits) - 1;
constexpr uint64_t useStep = uint64_t{1} << indexBits;
constexpr uint32_t chunkSlots = 1u << chunkBits;
constexpr uint32_t maxChunks = 1u << (indexBits - chunkBits);

extern std::atomic<Slot*> chunks[maxChunks];

}  // namespace handles

inline uint64_t valueOf(quorlMsg message) noexcept {
    return reinterpret_cast<uintptr_t>(message);
}
inline quorlMsg toHandle(uint64_t value) noexcept {
    return reinterpret_cast<quorlMsg>(static_cast<uintptr_t>(value));  // NOLINT(performance-no-int-to-ptr): no address
}
inline quorlMsg handleOf(const Slot& slot) noexcept {
    return toHandle(slot.live.load(std::memory_order_relaxed));
}

// The slot of a live message, or null. Index 0 is no message's, so that the value 0 is none.
inline Slot* resolve(quorlMsg message) noexcept {
    const uint64_t value = valueOf(message);
    const uint32_t index = static_cast<uint32_t>(value & handles::indexMask);
    Slot* chunk = handles::chunks[index >> handles::chunkBits].load(std::memory_order_acquire);
    if (chunk == nullptr) return nullptr;
    Slot* slot = &chunk[index & (handles::chunkSlots - 1)];
    return slot->live.load(std::memory_order_acquire) == value ? slot : nullptr;
}

}  // namespace quorl::message
