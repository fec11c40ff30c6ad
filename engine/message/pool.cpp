// The threads' caches of blocks and slots, and the depot between them.
#include "message/pool.h"

#include <algorithm>
#include <mutex>
#include <new>
#include <utility>

#include "base/forked.h"
#include "base/prefetch.h"
#include "base/trim.h"
#include "message/memory.h"

#if defined(__SANITIZE_ADDRESS__)
#define QUORL_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QUORL_ADDRESS_SANITIZER 1
#endif
#endif
#ifdef QUORL_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace quorl::message::pool {
namespace {

// Whole blocks, the Content included. The smallest takes a message of a few fields, the third and the fourth the ones
// around 1 and 4 KiB, the last 8 KiB and its surroundings. Larger blocks are not kept.
constexpr size_t blockSizes[] = {576, 1344, 2624, 5184, 9536};
constexpr unsigned classes = std::size(blockSizes);
constexpr uint8_t noClass = classes;

// A batch is what a thread hands on at once: enough to make the depot's lock cheap, at most some 40 KiB.
constexpr uint32_t batchSizes[] = {64, 32, 16, 8, 4};
constexpr uint32_t slotBatch = 64;
static_assert(std::size(batchSizes) == classes);

// Batches that the depot keeps of each class, 8 MiB in all; what comes beyond goes back to the system.
constexpr uint32_t depotBatches[] = {64, 48, 48, 48, 40};
static_assert(std::size(depotBatches) == classes);
// Over so many batches coming in, those that nobody came for go back to the system.
constexpr uint32_t trimPeriod = 256;

// A list of free things in two halves, so that a thread at the border between full and empty does not go to the depot
// each time.
template <class Item>
struct Magazine {
    Item* first = nullptr;
    Item* spare = nullptr;  // a full batch, or null
    uint32_t count = 0;     // of first
};

struct ThreadCache {
    Magazine<Content> blocks[classes];
    Magazine<Slot> slots;
    std::atomic<int64_t> messages{0};  // written by its thread alone
    uint8_t startClass = 0;            // of contents that will be added to
    uint8_t startsLeft = 0;            // how many more of them begin there before a smaller one is tried again
    ThreadCache* next = nullptr;       // of the depot's list; depot.mutex
};

struct Shelf {
    Content* first;
    uint32_t count;
    uint32_t least;    // the smallest count of this period
    uint32_t arrived;  // batches in this period
};

struct Depot {
    std::mutex mutex;  // guards everything here but what is atomic
    Shelf shelves[classes];
    Slot* slots;  // batches
    uint32_t chunkCount;
    ThreadCache* caches;
    int64_t messages;  // of threads that have ended, and of those without a cache
};
constinit Depot depot{};

// A thread's cache is found through plain storage, which costs one load; its owner is what makes the thread give it
// back. Both are needed: an object with a destructor is found through a check and a call.
[[gnu::tls_model("initial-exec")]] constinit thread_local ThreadCache* cache = nullptr;
[[gnu::tls_model("initial-exec")]] constinit thread_local bool threadEnds = false;

void poison([[maybe_unused]] Content* block) noexcept {
#ifdef QUORL_ADDRESS_SANITIZER
    __asan_poison_memory_region(reinterpret_cast<char*>(block) + cacheLine, blockSizes[block->sizeClass] - cacheLine);
#endif
}
void unpoison([[maybe_unused]] Content* block) noexcept {
#ifdef QUORL_ADDRESS_SANITIZER
    __asan_unpoison_memory_region(block, blockSizes[block->sizeClass]);
#endif
}

void freeBatch(Content* batch) noexcept {
    while (batch != nullptr) {
        Content* block = batch;
        batch = block->nextOfBatch;
        unpoison(block);
        deallocate(block);
    }
}

void freeBatches(Content* batches, unsigned sizeClass) noexcept {
    size_t freed = 0;
    while (batches != nullptr) {
        Content* batch = batches;
        batches = batch->nextBatch;
        freeBatch(batch);
        freed += batchSizes[sizeClass] * blockSizes[sizeClass];
    }
    if (freed != 0) trim::note(freed);
}

// Takes a batch; what becomes too much is given back to the system outside the lock.
void giveToDepot(unsigned sizeClass, Content* batch) noexcept {
    Content* surplus = nullptr;
    {
        std::lock_guard lock(depot.mutex);
        Shelf& shelf = depot.shelves[sizeClass];
        if (shelf.count >= depotBatches[sizeClass]) {
            batch->nextBatch = nullptr;
            surplus = batch;
        } else {
            batch->nextBatch = shelf.first;
            shelf.first = batch;
            ++shelf.count;
        }
        if (++shelf.arrived >= trimPeriod) {
            for (uint32_t idle = shelf.least / 2; idle > 0; --idle, --shelf.count) {
                Content* unused = shelf.first;
                shelf.first = unused->nextBatch;
                unused->nextBatch = surplus;
                surplus = unused;
            }
            shelf.arrived = 0;
            shelf.least = shelf.count;
        }
    }
    freeBatches(surplus, sizeClass);
}

Content* takeFromDepot(unsigned sizeClass) noexcept {
    std::lock_guard lock(depot.mutex);
    Shelf& shelf = depot.shelves[sizeClass];
    Content* batch = shelf.first;
    if (batch == nullptr) return nullptr;
    shelf.first = batch->nextBatch;
    --shelf.count;
    shelf.least = std::min(shelf.least, shelf.count);
    return batch;
}

void giveSlotsToDepot(Slot* batch) noexcept {
    std::lock_guard lock(depot.mutex);
    batch->nextBatch = depot.slots;
    depot.slots = batch;
}

// Makes a chunk of slots and puts them up in batches. The lock must be held.
bool addChunk() noexcept {
    if (depot.chunkCount == handles::maxChunks) return false;
    void* memory = allocate(sizeof(Slot) * handles::chunkSlots);
    if (memory == nullptr) return false;
    auto* chunk = static_cast<Slot*>(memory);
    const uint32_t base = depot.chunkCount * handles::chunkSlots;
    for (uint32_t i = 0; i < handles::chunkSlots; ++i) {
        Slot* slot = new (&chunk[i]) Slot{};
        slot->next = handles::useStep | (base + i);
    }
    uint32_t first = 0;
    if (base == 0) {
        chunk[0].live.store(~uint64_t{0}, std::memory_order_relaxed);  // no handle: its index would be another
        first = 1;
    }
    for (uint32_t i = first; i < handles::chunkSlots;) {
        Slot* batch = nullptr;
        do {
            chunk[i].nextOfBatch = batch;
            batch = &chunk[i];
        } while (++i % slotBatch != 0);
        batch->nextBatch = depot.slots;
        depot.slots = batch;
    }
    handles::chunks[depot.chunkCount++].store(chunk, std::memory_order_release);
    return true;
}

Slot* takeSlotsFromDepot() noexcept {
    std::lock_guard lock(depot.mutex);
    if (depot.slots == nullptr && !addChunk()) return nullptr;
    Slot* batch = depot.slots;
    depot.slots = batch->nextBatch;
    return batch;
}

void giveBack(ThreadCache* old) noexcept {
    for (unsigned sizeClass = 0; sizeClass < classes; ++sizeClass) {
        const auto& magazine = old->blocks[sizeClass];
        if (magazine.spare != nullptr) giveToDepot(sizeClass, magazine.spare);
        freeBatch(magazine.first);
    }
    if (old->slots.spare != nullptr) giveSlotsToDepot(old->slots.spare);
    if (old->slots.first != nullptr) giveSlotsToDepot(old->slots.first);
    {
        std::lock_guard lock(depot.mutex);
        ThreadCache** link = &depot.caches;
        while (*link != old) link = &(*link)->next;
        *link = old->next;
        depot.messages += old->messages.load(std::memory_order_relaxed);
    }
    old->~ThreadCache();
    deallocate(old);
}

struct CacheOwner {
    bool used = false;
    ~CacheOwner() {
        threadEnds = true;
        if (cache != nullptr) giveBack(std::exchange(cache, nullptr));
    }
};
thread_local CacheOwner owner;

// Null while the thread ends, or when there is no memory: the depot and the system must do then.
[[gnu::noinline]] ThreadCache* makeCache() noexcept {
    if (threadEnds || forked::here()) return nullptr;
    void* memory = allocate(sizeof(ThreadCache));
    if (memory == nullptr) return nullptr;
    owner.used = true;
    cache = new (memory) ThreadCache;
    std::lock_guard lock(depot.mutex);
    cache->next = depot.caches;
    depot.caches = cache;
    return cache;
}

inline ThreadCache* threadCache() noexcept {
    return cache != nullptr ? cache : makeCache();
}

template <class Item>
inline void push(Magazine<Item>& magazine, Item* item) noexcept {
    item->nextOfBatch = magazine.first;
    magazine.first = item;
    ++magazine.count;
}

template <class Item>
inline Item* pop(Magazine<Item>& magazine) noexcept {
    Item* item = magazine.first;
    magazine.first = item->nextOfBatch;
    --magazine.count;
    return item;
}

// The thread's list is empty: its spare batch, one from the depot, or a new block.
[[gnu::noinline]] Content* refill(ThreadCache* mine, unsigned sizeClass) noexcept {
    if (mine != nullptr) {
        auto& magazine = mine->blocks[sizeClass];
        Content* batch = magazine.spare != nullptr ? std::exchange(magazine.spare, nullptr) : takeFromDepot(sizeClass);
        if (batch != nullptr) {
            magazine.first = batch;
            magazine.count = batchSizes[sizeClass];
            return pop(magazine);
        }
    }
    void* memory = allocate(blockSizes[sizeClass]);
    return static_cast<Content*>(memory);
}

// The thread's list is empty: its spare batch, or one from the depot.
[[gnu::noinline]] Slot* refillSlots(ThreadCache* mine) noexcept {
    if (mine != nullptr && mine->slots.spare != nullptr) {
        mine->slots.first = std::exchange(mine->slots.spare, nullptr);
        mine->slots.count = slotBatch;
        return pop(mine->slots);
    }
    if (forked::here()) return nullptr;
    Slot* batch = takeSlotsFromDepot();
    if (batch == nullptr) return nullptr;
    if (mine == nullptr) {
        if (batch->nextOfBatch != nullptr) giveSlotsToDepot(batch->nextOfBatch);
        return batch;
    }
    // A batch from a new chunk or an ended thread may be short; its length does not matter while it is the first.
    mine->slots.first = batch;
    mine->slots.count = 0;
    for (const Slot* slot = batch; slot != nullptr; slot = slot->nextOfBatch) ++mine->slots.count;
    return pop(mine->slots);
}

inline void count(ThreadCache* mine, int messages) noexcept {
    if (mine != nullptr) [[likely]] {
        mine->messages.store(mine->messages.load(std::memory_order_relaxed) + messages, std::memory_order_relaxed);
        return;
    }
    std::lock_guard lock(depot.mutex);
    depot.messages += messages;
}

// What a block holds beside the room: the Content before it, the tails behind it.
constexpr size_t besideRoom = sizeof(Content) + wire::tailsSize;

Field* tableEnd(Content* block, size_t size) noexcept {
    return reinterpret_cast<Field*>(reinterpret_cast<char*>(block) + size - wire::tailsSize);
}

[[gnu::noinline]] Content* acquireLarge(size_t room) noexcept {
    const size_t size = (besideRoom + room + cacheLine - 1) & ~(cacheLine - 1);
    auto* block = static_cast<Content*>(allocate(size));
    if (block == nullptr) return nullptr;
    block->sizeClass = noClass;
    block->top = tableEnd(block, size);
    return block;
}

inline unsigned classFor(size_t room) noexcept {
    unsigned sizeClass = 0;
    while (sizeClass < classes && besideRoom + room > blockSizes[sizeClass]) ++sizeClass;
    return sizeClass;
}

inline Content* acquireBlock(ThreadCache* mine, unsigned sizeClass) noexcept {
    Content* block = mine != nullptr && mine->blocks[sizeClass].first != nullptr ? pop(mine->blocks[sizeClass])
                                                                                 : refill(mine, sizeClass);
    if (block == nullptr) return nullptr;
    if (mine != nullptr && mine->blocks[sizeClass].first != nullptr) {
        // The next block comes from another thread as a rule: its lines are on their way while this one is filled.
        auto* next = reinterpret_cast<char*>(mine->blocks[sizeClass].first);
        prefetchToWrite(next);
        prefetchToWrite(next + cacheLine);
        prefetchToWrite(next + sizeof(Content));
        prefetchToWrite(next + sizeof(Content) + cacheLine);
        prefetchToWrite(next + blockSizes[sizeClass] - cacheLine);
    }
    block->sizeClass = static_cast<uint8_t>(sizeClass);
    block->top = tableEnd(block, blockSizes[sizeClass]);
    unpoison(block);
    return block;
}

}  // namespace

Content* acquire(size_t room) noexcept {
    const unsigned sizeClass = classFor(room);
    return sizeClass == classes ? acquireLarge(room) : acquireBlock(threadCache(), sizeClass);
}

Content* acquireToGrow(size_t room) noexcept {
    unsigned sizeClass = classFor(room);
    if (sizeClass == classes) return acquireLarge(room);
    ThreadCache* mine = threadCache();
    if (mine != nullptr && mine->startsLeft > 0) {
        --mine->startsLeft;
        sizeClass = std::max<unsigned>(sizeClass, mine->startClass);
    }
    return acquireBlock(mine, sizeClass);
}

void outgrown(uint8_t sizeClass) noexcept {
    ThreadCache* mine = threadCache();
    if (mine == nullptr || sizeClass >= classes) return;
    constexpr uint8_t period = 64;
    mine->startClass = sizeClass;
    mine->startsLeft = period;
}

void release(Content* block) noexcept {
    const unsigned sizeClass = block->sizeClass;
    ThreadCache* mine = sizeClass == noClass ? nullptr : threadCache();
    if (mine == nullptr) {
        if (sizeClass == noClass) {
            trim::note(static_cast<size_t>(reinterpret_cast<char*>(block->top) - reinterpret_cast<char*>(block)));
        }
        deallocate(block);
        return;
    }
    poison(block);
    auto& magazine = mine->blocks[sizeClass];
    if (magazine.count == batchSizes[sizeClass]) {
        if (magazine.spare != nullptr) giveToDepot(sizeClass, magazine.spare);
        magazine.spare = std::exchange(magazine.first, nullptr);
        magazine.count = 0;
    }
    push(magazine, block);
}

bool recycles(const Content& block) noexcept {
    return block.sizeClass != noClass;
}

Slot* acquireSlot(int messages) noexcept {
    ThreadCache* mine = threadCache();
    Slot* slot = mine != nullptr && mine->slots.first != nullptr ? pop(mine->slots) : refillSlots(mine);
    if (slot != nullptr) count(mine, messages);
    return slot;
}

void releaseSlot(Slot* slot, int messages) noexcept {
    ThreadCache* mine = threadCache();
    count(mine, messages);
    if (mine == nullptr) {
        slot->nextOfBatch = nullptr;
        giveSlotsToDepot(slot);
        return;
    }
    if (mine->slots.count >= slotBatch) {
        if (mine->slots.spare != nullptr) giveSlotsToDepot(mine->slots.spare);
        mine->slots.spare = std::exchange(mine->slots.first, nullptr);
        mine->slots.count = 0;
    }
    push(mine->slots, slot);
}

void forgetAll() noexcept {
    cache = nullptr;
    for (auto& chunk : handles::chunks) {
        if (chunk.load(std::memory_order_relaxed) == nullptr) break;
        chunk.store(nullptr, std::memory_order_relaxed);
    }
}

uint64_t messages() noexcept {
    std::lock_guard lock(depot.mutex);
    int64_t sum = depot.messages;
    for (const ThreadCache* each = depot.caches; each != nullptr; each = each->next) {
        sum += each->messages.load(std::memory_order_relaxed);
    }
    return sum > 0 ? static_cast<uint64_t>(sum) : 0;
}

}  // namespace quorl::message::pool
