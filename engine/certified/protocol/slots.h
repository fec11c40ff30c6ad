// What is kept for each number of a growing, mostly contiguous range: a table in chunks, whose empty ones cost a pointer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

namespace quorl::certified {

// T is cheap to make; occupied is whoever owns the table's to say, by take and release.
template <class T>
class Slots {
  public:
    static constexpr uint64_t chunkSize = 16;

    // The slot of that number, or null when it is not taken.
    T* find(uint64_t number) noexcept {
        Chunk* chunk = chunkOf(number);
        if (chunk == nullptr) return nullptr;
        const size_t at = number % chunkSize;
        return (chunk->taken >> at & 1) != 0 ? &chunk->items[at] : nullptr;
    }
    const T* find(uint64_t number) const noexcept { return const_cast<Slots*>(this)->find(number); }

    // Takes the slot of a number, which is not taken, and not below the first that is; a number far ahead of the rest costs a
    // pointer for each chunk between. Throws std::bad_alloc, and has then changed nothing.
    T& take(uint64_t number) {
        const uint64_t index = number / chunkSize;
        if (chunks_.empty()) firstChunk_ = index;
        if (index < firstChunk_) {
            // Only while it is filled from what was stored.
            while (firstChunk_ > index) {
                chunks_.emplace_front();
                --firstChunk_;
            }
        }
        while (index - firstChunk_ >= chunks_.size()) chunks_.emplace_back();
        auto& chunk = chunks_[static_cast<size_t>(index - firstChunk_)];
        if (!chunk) {
            chunk = std::make_unique<Chunk>();
            ++made_;
        }
        chunk->taken = static_cast<uint16_t>(chunk->taken | 1u << (number % chunkSize));
        ++count_;
        return chunk->items[number % chunkSize];
    }

    // Gives a taken slot back.
    void release(uint64_t number) noexcept {
        const uint64_t index = number / chunkSize - firstChunk_;
        auto& chunk = chunks_[static_cast<size_t>(index)];
        chunk->items[number % chunkSize] = T();
        chunk->taken = static_cast<uint16_t>(chunk->taken & ~(1u << (number % chunkSize)));
        --count_;
        if (chunk->taken != 0) return;
        chunk.reset();
        --made_;
        while (!chunks_.empty() && !chunks_.front()) {
            chunks_.pop_front();
            ++firstChunk_;
        }
        while (!chunks_.empty() && !chunks_.back()) chunks_.pop_back();
    }

    uint64_t count() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }
    uint64_t memory() const noexcept { return made_ * sizeof(Chunk) + chunks_.size() * sizeof(void*); }

    // The first taken number that is not below from; 0: there is none.
    uint64_t nextTaken(uint64_t from) const noexcept {
        if (chunks_.empty()) return 0;
        uint64_t index = from / chunkSize;
        uint64_t at = from % chunkSize;
        if (index < firstChunk_) {
            index = firstChunk_;
            at = 0;
        }
        for (; index - firstChunk_ < chunks_.size(); ++index, at = 0) {
            const Chunk* chunk = chunks_[static_cast<size_t>(index - firstChunk_)].get();
            if (chunk == nullptr) continue;
            for (; at < chunkSize; ++at) {
                if ((chunk->taken >> at & 1) != 0) return index * chunkSize + at;
            }
        }
        return 0;
    }

  private:
    struct Chunk {
        std::array<T, chunkSize> items;
        uint16_t taken = 0;
    };

    Chunk* chunkOf(uint64_t number) noexcept {
        const uint64_t index = number / chunkSize;
        if (index < firstChunk_ || index - firstChunk_ >= chunks_.size()) return nullptr;
        return chunks_[static_cast<size_t>(index - firstChunk_)].get();
    }

    std::deque<std::unique_ptr<Chunk>> chunks_;
    uint64_t firstChunk_ = 0;
    uint64_t count_ = 0;
    uint64_t made_ = 0;
};

}  // namespace quorl::certified
