// The allocators of C++ and of messages for a whole program, of which a test can make the n-th call fail.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorltest {

enum class Whose { callers, librarys };

// The allocation after the next allowed ones fails, once: among those of this thread, or of all threads of the library.
void failAllocation(Whose whose, int64_t allowed) noexcept;
// What a library in C is given instead of malloc and realloc: they fail like all others.
void* tryMalloc(size_t size) noexcept;
void* tryRealloc(void* memory, size_t size) noexcept;

// From now on none fails. Whether one has failed.
bool stopFailing() noexcept;

}  // namespace quorltest
