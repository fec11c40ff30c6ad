// Slots: how they are taken, published, closed and given back.
#include "base/registry.h"

#include <new>

#include "base/mutex.h"
#include "base/reclaimer.h"
#include "base/status.h"

namespace quorl::registry {

constinit std::atomic<Slot*> chunks[chunkCount]{};

namespace {

constexpr uint32_t chunkSize = 1u << chunkBits;
constexpr uint32_t defaultQueueSlot = 1;
constexpr uint32_t generations = 1u << (32 - slotBits);

// Free slots are used again in the order in which they became free, and only once this many are free: an id comes back
// after 2^17 slots times 2^10 generations, which is over 130 million objects later at the earliest.
constexpr uint32_t freeReserve = 1u << 17;

constinit Mutex guard;  // of what follows, of what chunks and slots get, and of a slot's generation and nextFree
constinit uint32_t everUsed GUARDED_BY(guard) = 1;
constinit uint32_t firstFree GUARDED_BY(guard) = 0;
constinit uint32_t lastFree GUARDED_BY(guard) = 0;
constinit uint32_t freeCount GUARDED_BY(guard) = 0;
constinit uint32_t usedCount GUARDED_BY(guard) = 0;
constinit bool isAccepting GUARDED_BY(guard) = false;

Slot* slotMade(uint32_t index) noexcept REQUIRES(guard) {
    auto& chunk = chunks[index >> chunkBits];
    if (chunk.load(std::memory_order_relaxed) == nullptr) {
        auto* made = new (std::nothrow) Slot[chunkSize];
        if (made == nullptr) return nullptr;
        chunk.store(made, std::memory_order_release);
    }
    return slotOf(index);
}

uint32_t takeFree() noexcept REQUIRES(guard) {
    const uint32_t index = firstFree;
    firstFree = slotOf(index)->nextFree;
    if (firstFree == 0) lastFree = 0;
    --freeCount;
    return index;
}

void giveFree(uint32_t index) noexcept REQUIRES(guard) {
    --usedCount;
    if (index == defaultQueueSlot) return;
    Slot* slot = slotOf(index);
    slot->generation = (slot->generation + 1) % generations;
    slot->nextFree = 0;
    if (lastFree != 0) {
        slotOf(lastFree)->nextFree = index;
    } else {
        firstFree = index;
    }
    lastFree = index;
    ++freeCount;
}

}  // namespace

void begin() noexcept {
    Lock lock(guard);
    isAccepting = true;
}

void end() noexcept {
    Lock lock(guard);
    isAccepting = false;
}

bool accepting() noexcept {
    Lock lock(guard);
    return isAccepting;
}

uint32_t reserve() noexcept {
    Lock lock(guard);
    uint32_t index;
    if (freeCount > freeReserve || (everUsed == slotMask && freeCount > 0)) {
        index = takeFree();
    } else {
        if (everUsed == slotMask || slotMade(everUsed + 1) == nullptr) return 0;
        index = ++everUsed;
    }
    ++usedCount;
    return slotOf(index)->generation << slotBits | index;
}

quorl_status noId(const char* kind) noexcept {
    {
        Lock lock(guard);
        if (everUsed != slotMask) return fail(QUORL_NO_MEMORY, "no memory for the id of a %s", kind);
    }
    return fail(QUORL_NO_MEMORY, "no id is free for a %s: %u objects exist; destroy some", kind,
                slotMask - defaultQueueSlot);
}

uint32_t reserveFirst() noexcept {
    Lock lock(guard);
    if (slotMade(defaultQueueSlot) == nullptr) return 0;
    ++usedCount;
    return defaultQueueSlot;
}

void abandon(uint32_t id) noexcept {
    Lock lock(guard);
    giveFree(id & slotMask);
}

bool publish(Record& record, uint32_t id, uint16_t type) noexcept {
    record.id = id;
    record.type = type;
    Lock lock(guard);
    if (!isAccepting) return false;
    Slot* slot = slotOf(id);
    slot->record.store(&record, std::memory_order_release);
    slot->word.store(wordOf(id, type, open), std::memory_order_seq_cst);
    return true;
}

Record* close(uint32_t id, uint16_t type) noexcept {
    Slot* slot = slotOf(id);
    if (slot == nullptr) return nullptr;
    uint64_t expected = wordOf(id, type, open);
    if (!slot->word.compare_exchange_strong(expected, wordOf(id, type, closing), std::memory_order_seq_cst))
        return nullptr;
    return slot->record.load(std::memory_order_acquire);
}

void retire(Record& record) noexcept {
    reclaimer::take(record);
}

void release(Record& record) noexcept {
    Slot* slot = slotOf(record.id);
    Lock lock(guard);
    // The default queue's slot may belong to the one of a later opening by now.
    if (slot->record.load(std::memory_order_relaxed) == &record) {
        slot->word.store(0, std::memory_order_seq_cst);
        slot->record.store(nullptr, std::memory_order_release);
    }
    giveFree(record.id & slotMask);
}

Record* pinSlow(ThreadState& state, uint32_t id, Wanted wanted) noexcept {
    ReadGuard guard(state);
    Slot* slot = slotOf(id);
    Record* record = nullptr;
    if (slot != nullptr && wanted.is(slot->word.load(std::memory_order_seq_cst)))
        record = slot->record.load(std::memory_order_acquire);
    if (record != nullptr) acquireReference(*record);
    return record;
}

void unpinSlow(ThreadState&, Record* record) noexcept {
    releaseReference(*record);
}

void releaseReference(Record& record) noexcept {
    reclaimer::releaseReference(record);
}

void dropChild(Record& parent) noexcept {
    parent.children.fetch_sub(1, std::memory_order_acq_rel);
}

void forEachOpen(void (*visit)(void* closure, uint32_t id, uint16_t type), void* closure) noexcept {
    uint32_t last;
    {
        Lock lock(guard);
        last = everUsed;
    }
    for (uint32_t index = 1; index <= last; ++index) {
        Slot* slot = slotOf(index);
        if (slot == nullptr) continue;
        const uint64_t word = slot->word.load(std::memory_order_seq_cst);
        if (static_cast<uint8_t>(word) == open)
            visit(closure, static_cast<uint32_t>(word >> 32), static_cast<uint16_t>(word >> 8));
    }
}

void forEachOpen(uint16_t type, void (*visit)(uint32_t id)) noexcept {
    struct Wanted {
        uint16_t type;
        void (*visit)(uint32_t id);
    } wanted{type, visit};
    forEachOpen(
        [](void* closure, uint32_t id, uint16_t found) {
            const auto& looked = *static_cast<const Wanted*>(closure);
            if (found == looked.type) looked.visit(id);
        },
        &wanted);
}

uint32_t inUse() noexcept {
    Lock lock(guard);
    return usedCount;
}

}  // namespace quorl::registry
