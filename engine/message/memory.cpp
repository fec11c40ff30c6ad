// The allocator of messages and its seam for tests.
#include "message/memory.h"

#include <atomic>
#include <cstdlib>

namespace quorl::message {
namespace {

constexpr int64_t never = -1;
constinit std::atomic<int64_t> countdown{never};
constinit std::atomic<bool> failed{false};

bool mustFail() noexcept {
    if (countdown.load(std::memory_order_relaxed) < 0) return false;
    if (countdown.fetch_sub(1, std::memory_order_relaxed) != 0) return false;
    failed.store(true, std::memory_order_relaxed);
    return true;
}

}  // namespace

void* allocate(size_t size) noexcept {
    if (mustFail()) return nullptr;
    if (size > SIZE_MAX - cacheLine) return nullptr;
    return std::aligned_alloc(cacheLine, (size + cacheLine - 1) & ~(cacheLine - 1));
}

void deallocate(void* memory) noexcept {
    std::free(memory);
}

void failAllocationAfter(int64_t count) noexcept {
    failed.store(false, std::memory_order_relaxed);
    countdown.store(count < 0 ? never : count, std::memory_order_relaxed);
}

bool allocationHasFailed() noexcept {
    return failed.load(std::memory_order_relaxed);
}

}  // namespace quorl::message
