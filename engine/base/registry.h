// The table of objects: 32-bit ids to records, safe against stale and invented ids.
//
//     ReadGuard guard(*thread);
//     Queue* queue = registry::find<Queue>(id);        // lives until the guard ends
//
//     registry::Pin<Queue> queue(*thread, id);         // lives until the pin ends; may block and run user code meanwhile
#pragma once

#include <atomic>
#include <cstdint>

#include "base/record.h"
#include "base/thread_state.h"

namespace quorl::registry {

// An id is a slot (low 22 bits) and the slot's generation (high 10 bits). Slot 0 is never used; slot 1 is the default
// queue's, whose generation never changes.
inline constexpr uint32_t slotBits = 22;
inline constexpr uint32_t slotMask = (1u << slotBits) - 1;
inline constexpr uint32_t chunkBits = 12;
inline constexpr uint32_t chunkCount = 1u << (slotBits - chunkBits);

enum State : uint8_t { gone = 0, open = 1, closing = 2 };

// Types whose objects are events: they wait in queues, whose entries have nothing but an id.
constexpr bool isEvent(uint16_t type) noexcept {
    return type == QUORL_OBJECT_EVENT || type == QUORL_OBJECT_CM_EVENT || type == QUORL_OBJECT_FT_MEMBER ||
           type == QUORL_OBJECT_FT_MONITOR;
}

struct Slot {
    // id in bits 32 to 63, whether the type is an event's in bit 24, type in bits 8 to 23, state in bits 0 to 7; 0 when free
    std::atomic<uint64_t> word{0};
    std::atomic<Record*> record{nullptr};  // written before the word says open; null when free
    uint32_t generation = 0;               // of the next id; guarded by the registry's lock
    uint32_t nextFree = 0;                 // guarded by the registry's lock
};

extern constinit std::atomic<Slot*> chunks[chunkCount];  // allocated as needed, never freed

inline Slot* slotOf(uint32_t id) noexcept {
    const uint32_t index = id & slotMask;
    Slot* chunk = chunks[index >> chunkBits].load(std::memory_order_acquire);
    return chunk == nullptr ? nullptr : chunk + (index & ((1u << chunkBits) - 1));
}

inline constexpr uint64_t eventBit = uint64_t{1} << 24;

constexpr uint64_t wordOf(uint32_t id, uint16_t type, State state) noexcept {
    return static_cast<uint64_t>(id) << 32 | (isEvent(type) ? eventBit : 0) | static_cast<uint64_t>(type) << 8 | state;
}

// What the word of a slot is compared with: an open object of one type, or any open event.
struct Wanted {
    uint64_t word;
    uint64_t mask;
    bool is(uint64_t found) const noexcept { return (found & mask) == word; }
};
constexpr Wanted openOf(uint32_t id, uint16_t type) noexcept {
    return {wordOf(id, type, open), ~uint64_t{0}};
}
constexpr Wanted openEvent(uint32_t id) noexcept {
    return {static_cast<uint64_t>(id) << 32 | eventBit | open, ~(uint64_t{0xffff} << 8)};
}

// Only under a read guard: the open object of that id and type, or null.
inline Record* find(uint32_t id, uint16_t type) noexcept {
    Slot* slot = slotOf(id);
    if (slot == nullptr || slot->word.load(std::memory_order_seq_cst) != wordOf(id, type, open)) return nullptr;
    return slot->record.load(std::memory_order_acquire);
}
// The same for an event of any type.
inline Record* findEvent(uint32_t id) noexcept {
    Slot* slot = slotOf(id);
    if (slot == nullptr || !openEvent(id).is(slot->word.load(std::memory_order_seq_cst))) return nullptr;
    return slot->record.load(std::memory_order_acquire);
}
template <class T>
T* find(uint32_t id) noexcept {
    return static_cast<T*>(find(id, T::objectType));
}

Record* pinSlow(ThreadState& state, uint32_t id, Wanted wanted) noexcept;
void unpinSlow(ThreadState& state, Record* record) noexcept;

// Pins nest: they end in the reverse order of their beginning.
inline Record* pin(ThreadState& state, uint32_t id, Wanted wanted) noexcept {
    Slot* slot = slotOf(id);
    if (slot == nullptr) return nullptr;
    Record* record = slot->record.load(std::memory_order_acquire);
    if (record == nullptr) return nullptr;
    if (state.pinCount == ThreadState::maxPins) [[unlikely]]
        return pinSlow(state, id, wanted);
    auto& cell = state.pins[state.pinCount];
    publishHazard(cell, record);
    // The second look at the record: the id may be an invented one that came true between the two loads.
    if (wanted.is(slot->word.load(std::memory_order_seq_cst)) && slot->record.load(std::memory_order_acquire) == record)
        [[likely]] {
        ++state.pinCount;
        return record;
    }
    publishHazard<Record*>(cell, nullptr);
    if (state.pinsWatched.load(std::memory_order_seq_cst)) pokeReclaimer();
    return nullptr;
}

inline Record* pin(ThreadState& state, uint32_t id, uint16_t type) noexcept {
    return pin(state, id, openOf(id, type));
}

inline void unpin(ThreadState& state, Record* record) noexcept {
    if (state.pinCount == 0 || state.pins[state.pinCount - 1].load(std::memory_order_relaxed) != record) [[unlikely]] {
        unpinSlow(state, record);
        return;
    }
    publishHazard<Record*>(state.pins[--state.pinCount], nullptr);
    if (state.pinsWatched.load(std::memory_order_seq_cst)) [[unlikely]]
        pokeReclaimer();
}

template <class T>
class [[nodiscard]] Pin {
  public:
    Pin(ThreadState& state, uint32_t id) noexcept
        : state_(state), record_(static_cast<T*>(pin(state, id, T::objectType))) {}
    ~Pin() {
        if (record_ != nullptr) unpin(state_, record_);
    }
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;
    explicit operator bool() const noexcept { return record_ != nullptr; }
    T* operator->() const noexcept { return record_; }
    T& operator*() const noexcept { return *record_; }

  private:
    ThreadState& state_;
    T* record_;
};

// Lets objects be published. The generations go on where an earlier opening left them.
void begin() noexcept;
// From now on publish refuses.
void end() noexcept;
bool accepting() noexcept;

// Takes a slot for an object to be; the id is the object's from now on. 0 when there is none left or no memory.
uint32_t reserve() noexcept;
// Says why there was none for such an object. QUORL_NO_MEMORY.
quorl_status noId(const char* kind) noexcept;
// The same for the default queue, which always has the first id.
uint32_t reserveFirst() noexcept;
// Gives a reserved id back that was never published.
void abandon(uint32_t id) noexcept;
// Makes the object findable. False when the library closes; the id stays reserved.
bool publish(Record& record, uint32_t id, uint16_t type) noexcept;

// Closes the object to all new users, for exactly one caller: null when there is no such open object. The record stays
// until that caller has retired it.
Record* close(uint32_t id, uint16_t type) noexcept;

// Hands a closed record to the reclaimer, which completes it when its users are gone, frees it and its id.
void retire(Record& record) noexcept;

// A reference that outlives read guards and pins; only under a read guard, on an open object that was found in it.
inline void acquireReference(Record& record) noexcept {
    record.references.fetch_add(1, std::memory_order_relaxed);
}
void releaseReference(Record& record) noexcept;

// A record that points to parent comes or goes.
inline void addChild(Record& parent) noexcept {
    parent.children.fetch_add(1, std::memory_order_relaxed);
}
void dropChild(Record& parent) noexcept;

// Calls visit for the ids of all open objects of a type. Objects may come and go meanwhile.
void forEachOpen(uint16_t type, void (*visit)(uint32_t id)) noexcept;

// The same for the ids of all types, with an argument of the caller's.
void forEachOpen(void (*visit)(void* closure, uint32_t id, uint16_t type), void* closure) noexcept;

// Objects whose ids are in use: open, closing, or waiting to be freed.
uint32_t inUse() noexcept;

// For the reclaimer: the record's id may name another object from now on.
void release(Record& record) noexcept;

}  // namespace quorl::registry
