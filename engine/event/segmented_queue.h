// The sequence of entries of a queue: chunks that are written at the back and read at the front, each side under a lock
// of its own, so that senders and dispatchers meet only in the memory of the entries.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "message/delivery.h"

namespace quorl::event {

struct Entry {
    uint32_t event;  // id; 0 when the entry was taken out of its turn
    uint32_t tag;    // of timers the epoch, of vector listeners the batch (high bit set), otherwise 0
    message::Content* content;
};

class SegmentedQueue {
  public:
    SegmentedQueue() noexcept = default;
    ~SegmentedQueue();
    SegmentedQueue(const SegmentedQueue&) = delete;
    SegmentedQueue& operator=(const SegmentedQueue&) = delete;

    // Before first use. False: no memory.
    bool prepare() noexcept;

    // ---- under the back lock

    // Makes room for one entry more. False: no memory.
    bool reserve() noexcept { return backPosition_ < chunkSize || grow(); }
    // After reserve. Order is that of the new end: release, or seq_cst.
    template <std::memory_order order>
    void append(const Entry& entry) noexcept {
        backChunk_->entries[backPosition_++] = entry;
        ++backCount_;
        end_.store(backCount_, order);
    }
    uint64_t backCount() const noexcept { return backCount_; }

    // ---- under no lock

    // Entries ever appended.
    uint64_t end(std::memory_order order = std::memory_order_acquire) const noexcept { return end_.load(order); }

    // ---- under the front lock

    // Takes the first entry. False: there is none.
    bool take(Entry* entry) noexcept {
        if (begin_ == knownEnd_) {
            knownEnd_ = end_.load(std::memory_order_acquire);
            if (begin_ == knownEnd_) return false;
        }
        if (frontPosition_ == chunkSize) [[unlikely]]
            nextChunk();
        const Entry* place = &frontChunk_->entries[frontPosition_++];
        *entry = *place;
        ++begin_;
        return true;
    }
    // The content of the entry that lies ahead others behind the first, as far as that is known without asking the senders'
    // side; null when it is not. For prefetching.
    message::Content* ahead(uint32_t ahead) const noexcept {
        const uint32_t position = frontPosition_ + ahead;
        return knownEnd_ - begin_ > ahead && position < chunkSize ? frontChunk_->entries[position].content : nullptr;
    }
    // The same for its event; 0 when it is not known.
    uint32_t eventAhead(uint32_t ahead) const noexcept {
        const uint32_t position = frontPosition_ + ahead;
        return knownEnd_ - begin_ > ahead && position < chunkSize ? frontChunk_->entries[position].event : 0;
    }
    // Entries ever taken.
    uint64_t begin() const noexcept { return begin_; }

    // Calls visit(Entry&) for up to limit entries from the front on, until it answers false.
    template <class F>
    void forEach(uint64_t limit, F&& visit) {
        knownEnd_ = end_.load(std::memory_order_acquire);
        Chunk* chunk = frontChunk_;
        uint32_t position = frontPosition_;
        for (uint64_t i = begin_; i != knownEnd_ && limit != 0; ++i, --limit) {
            if (position == chunkSize) {
                chunk = chunk->next.load(std::memory_order_acquire);
                position = 0;
            }
            if (!visit(chunk->entries[position++])) return;
        }
    }

    // ---- under both locks

    // Takes the last entry. False: there is none.
    bool takeLast(Entry* entry) noexcept;

    // Keeps the entries for which keep(const Entry&) is true, in their order, and takes the others away.
    template <class F>
    void filter(F&& keep) {
        Chunk* from = frontChunk_;
        Chunk* to = frontChunk_;
        uint32_t fromPosition = frontPosition_;
        uint32_t toPosition = frontPosition_;
        uint64_t kept = 0;
        for (uint64_t i = begin_; i != backCount_; ++i) {
            if (fromPosition == chunkSize) {
                from = from->next.load(std::memory_order_relaxed);
                fromPosition = 0;
            }
            const Entry entry = from->entries[fromPosition++];
            if (!keep(entry)) continue;
            if (toPosition == chunkSize) {
                to = to->next.load(std::memory_order_relaxed);
                toPosition = 0;
            }
            to->entries[toPosition++] = entry;
            ++kept;
        }
        dropChunksAfter(to);
        backChunk_ = to;
        backPosition_ = toPosition;
        // The counts go on: whoever compares the end with one that it saw must not take new entries for old ones.
        begin_ = backCount_ - kept;
        knownEnd_ = backCount_;
    }

  private:
    static constexpr uint32_t chunkSize = 254;  // a chunk fills a page but for a few bytes
    static constexpr uint32_t chunksKept = 64;  // spare chunks of one queue: 256 KiB

    struct Chunk {
        std::array<Entry, chunkSize> entries;
        std::atomic<Chunk*> next;  // written under the back lock before an entry in the next chunk counts
        Chunk* previous;           // null for the front chunk; guarded by both locks together, set before publication
    };

    bool grow() noexcept;
    void nextChunk() noexcept;
    void dropChunksAfter(Chunk* chunk) noexcept;
    void keepSpare(Chunk* chunk) noexcept;

    // Guarded by the back lock.
    alignas(128) Chunk* backChunk_ = nullptr;
    uint32_t backPosition_ = 0;
    uint32_t spareCount_ = 0;
    uint64_t backCount_ = 0;
    Chunk* spare_ = nullptr;

    // Written under the back lock, read by anyone.
    alignas(128) std::atomic<uint64_t> end_{0};

    // Guarded by the front lock.
    alignas(128) Chunk* frontChunk_ = nullptr;
    uint32_t frontPosition_ = 0;
    uint32_t returnedCount_ = 0;  // since returned_ was seen empty
    uint64_t begin_ = 0;
    uint64_t knownEnd_ = 0;

    // Chunks that were read, linked by next; pushed at the front, taken all at once at the back.
    alignas(128) std::atomic<Chunk*> returned_{nullptr};
};

}  // namespace quorl::event
