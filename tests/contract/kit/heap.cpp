// The bridge's allocations, counted and refused on demand.
#include "kit/heap.h"

#include <pthread.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "kit/journal.h"

namespace contract {

namespace {
thread_local bool inside = false;

// No row asks for so much: a negative length that was taken for a size is refused as a real heap would.
constexpr size_t largest = size_t{1} << 30;

// A pattern behind each block, which stays as it is unless somebody writes past the block's end.
#ifdef __SANITIZE_ADDRESS__
constexpr size_t guard_size = 0;
#else
constexpr size_t guard_size = 16;
#endif
constexpr unsigned char guard_byte = 0xC3;

bool guard_is_whole(const void* block, size_t size) {
    const unsigned char* const guard = static_cast<const unsigned char*>(block) + size;
    return std::all_of(guard, guard + guard_size, [](unsigned char byte) { return byte == guard_byte; });
}

void report_overrun(size_t size) {
    violation("a block of " + std::to_string(size) + " bytes was written to past its end");
}
}  // namespace

bool inside_bridge() {
    return inside;
}
void set_inside_bridge(bool now) {
    inside = now;
}

Heap& heap() {
    // Never destroyed: threads of the bridge's making may give blocks back while the process ends.
    static Heap* the_heap = new Heap;
    return *the_heap;
}

void Heap::begin() {
    std::lock_guard<std::mutex> lock(mutex_);
    call_start_ = next_;
    asked_ = 0;
    fail_at_ = armed_;
    armed_ = 0;
    wiped_ = std::exchange(armed_wiped_, false);
}

void Heap::fail(int nth) {
    std::lock_guard<std::mutex> lock(mutex_);
    armed_ = nth;
}

int Heap::asked() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return asked_;
}

std::vector<size_t> Heap::left() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::pair<long, size_t>> found;
    for (const auto& [block, about] : blocks_) {
        if (about.serial >= call_start_) found.emplace_back(about.serial, about.size);
    }
    std::sort(found.begin(), found.end());
    std::vector<size_t> sizes;
    for (const auto& [serial, size] : found) sizes.push_back(size);
    return sizes;
}

size_t Heap::held() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return blocks_.size();
}

std::vector<size_t> Heap::held_sizes() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::pair<long, size_t>> found;
    for (const auto& [block, about] : blocks_) found.emplace_back(about.serial, about.size);
    std::sort(found.begin(), found.end());
    std::vector<size_t> sizes;
    for (const auto& [serial, size] : found) sizes.push_back(size);
    return sizes;
}

void Heap::check() const {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [block, about] : blocks_) {
        if (!guard_is_whole(block, about.size)) report_overrun(about.size);
    }
}

void* Heap::allocate(size_t size, bool zeroed) {
    bool refused = size > largest;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (inside) {
            ++asked_;
            refused = refused || asked_ == fail_at_;
        }
    }
    void* block = nullptr;
    if (!refused) {
        // Fresh blocks are filled with a pattern, so that a buffer that ought to be zeroed and is not shows.
        block = std::malloc(std::max<size_t>(size + guard_size, 1));
        std::memset(block, zeroed ? 0 : 0xA5, size);
        std::memset(static_cast<char*>(block) + size, guard_byte, guard_size);
        std::lock_guard<std::mutex> lock(mutex_);
        blocks_[block] = {size, next_++};
    }
    journal().add(LineKind::heap, "alloc(" + std::to_string(size) + ")" + (refused ? " refused" : ""));
    return block;
}

void Heap::release(void* block) {
    if (block == nullptr) return;
    size_t size = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = blocks_.find(block);
        if (found == blocks_.end()) {
            block = nullptr;
        } else {
            size = found->second.size;
            blocks_.erase(found);
        }
    }
    if (block == nullptr) {
        violation("a block is freed that the bridge does not hold");
        return;
    }
    if (!guard_is_whole(block, size)) report_overrun(size);
    const char* const content = static_cast<const char*>(block);
    if (wiped_ && !std::all_of(content, content + size, [](char byte) { return byte == 0; })) {
        violation("a block of " + std::to_string(size) + " bytes is freed with its content");
    }
    journal().add(LineKind::heap, "free(" + std::to_string(size) + ")");
    std::free(block);
}

void* Heap::resize(void* block, size_t size) {
    if (block == nullptr) return allocate(size, false);
    size_t old = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = blocks_.find(block);
        if (found != blocks_.end()) old = found->second.size;
    }
    void* fresh = allocate(size, false);
    if (fresh != nullptr) {
        std::memcpy(fresh, block, std::min(old, size));
        release(block);
    }
    return fresh;
}

}  // namespace contract

extern "C" {

void* bridge_malloc(size_t size) {
    return contract::heap().allocate(size, false);
}

void* bridge_calloc(size_t count, size_t size) {
    if (size != 0 && count > SIZE_MAX / size) return contract::heap().allocate(SIZE_MAX, true);
    return contract::heap().allocate(count * size, true);
}

void* bridge_realloc(void* block, size_t size) {
    return contract::heap().resize(block, size);
}

void bridge_free(void* block) {
    contract::heap().release(block);
}

int bridge_pthread_mutex_lock(pthread_mutex_t* mutex) {
    const int result = pthread_mutex_lock(mutex);
    contract::journal().add(contract::LineKind::call, "pthread_mutex_lock");
    return result;
}

int bridge_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    contract::journal().add(contract::LineKind::call, "pthread_mutex_unlock");
    return pthread_mutex_unlock(mutex);
}
}
