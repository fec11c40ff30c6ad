// Where every byte that messages allocate comes from, with a seam that lets a test fail the n-th allocation.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorl::message {

// size bytes aligned to a cache line, or null. size is rounded up to whole lines.
void* allocate(size_t size) noexcept;
void deallocate(void* memory) noexcept;

// The allocation after the next count ones fails, once; a negative count lets all pass. For tests, on one thread.
void failAllocationAfter(int64_t count) noexcept;
// Whether the failure that was asked for has happened.
bool allocationHasFailed() noexcept;

constexpr size_t cacheLine = 64;

}  // namespace quorl::message
