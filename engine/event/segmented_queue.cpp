// How the chunks of a segmented queue are made, passed back and freed.
#include "event/segmented_queue.h"

#include <new>

namespace quorl::event {

bool SegmentedQueue::prepare() noexcept {
    auto* chunk = new (std::nothrow) Chunk;
    if (chunk == nullptr) return false;
    chunk->next.store(nullptr, std::memory_order_relaxed);
    chunk->previous = nullptr;
    backChunk_ = frontChunk_ = chunk;
    return true;
}

SegmentedQueue::~SegmentedQueue() {
    const auto freeAll = [](Chunk* chunk) {
        while (chunk != nullptr) {
            Chunk* next = chunk->next.load(std::memory_order_relaxed);
            delete chunk;
            chunk = next;
        }
    };
    freeAll(frontChunk_);
    freeAll(spare_);
    freeAll(returned_.load(std::memory_order_acquire));
}

void SegmentedQueue::keepSpare(Chunk* chunk) noexcept {
    if (spareCount_ == chunksKept) {
        delete chunk;
        return;
    }
    chunk->next.store(spare_, std::memory_order_relaxed);
    spare_ = chunk;
    ++spareCount_;
}

bool SegmentedQueue::grow() noexcept {
    if (spare_ == nullptr) {
        Chunk* list = returned_.exchange(nullptr, std::memory_order_acquire);
        while (list != nullptr) {
            Chunk* next = list->next.load(std::memory_order_relaxed);
            keepSpare(list);
            list = next;
        }
    }
    Chunk* chunk = spare_;
    if (chunk != nullptr) {
        spare_ = chunk->next.load(std::memory_order_relaxed);
        --spareCount_;
    } else {
        chunk = new (std::nothrow) Chunk;
        if (chunk == nullptr) return false;
    }
    chunk->next.store(nullptr, std::memory_order_relaxed);
    chunk->previous = backChunk_;
    backChunk_->next.store(chunk, std::memory_order_release);
    backChunk_ = chunk;
    backPosition_ = 0;
    return true;
}

void SegmentedQueue::nextChunk() noexcept {
    Chunk* read = frontChunk_;
    frontChunk_ = read->next.load(std::memory_order_acquire);
    frontChunk_->previous = nullptr;
    frontPosition_ = 0;
    Chunk* top = returned_.load(std::memory_order_relaxed);
    // Bounded: what the back does not come to fetch is not hoarded.
    returnedCount_ = top == nullptr ? 1 : returnedCount_ + 1;
    if (returnedCount_ > chunksKept) {
        delete read;
        return;
    }
    do {
        read->next.store(top, std::memory_order_relaxed);
    } while (!returned_.compare_exchange_weak(top, read, std::memory_order_release, std::memory_order_relaxed));
}

bool SegmentedQueue::takeLast(Entry* entry) noexcept {
    if (begin_ == backCount_) return false;
    if (backPosition_ == 0) {
        // There is an entry before this chunk, so that the front has not left the previous one.
        Chunk* empty = backChunk_;
        backChunk_ = empty->previous;
        backChunk_->next.store(nullptr, std::memory_order_relaxed);
        backPosition_ = chunkSize;
        keepSpare(empty);
    }
    *entry = backChunk_->entries[--backPosition_];
    --backCount_;
    end_.store(backCount_, std::memory_order_release);
    knownEnd_ = backCount_;
    return true;
}

void SegmentedQueue::dropChunksAfter(Chunk* chunk) noexcept {
    Chunk* rest = chunk->next.load(std::memory_order_relaxed);
    chunk->next.store(nullptr, std::memory_order_relaxed);
    while (rest != nullptr) {
        Chunk* next = rest->next.load(std::memory_order_relaxed);
        keepSpare(rest);
        rest = next;
    }
}

}  // namespace quorl::event
