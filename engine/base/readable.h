// Asking whether an address that comes from outside can be read, without reading it.
#pragma once

#include <cstddef>

namespace quorl {

// The length of the zero-terminated text at that address, of which at most limit bytes are looked at (then limit);
// unreadable when a byte of it cannot be read. Costs a system call for each page: for what is rare.
constexpr size_t unreadable = static_cast<size_t>(-1);
size_t readableLength(const char* text, size_t limit) noexcept;

}  // namespace quorl
