// Asking for cache lines before they are needed.
#pragma once

namespace quorl {

inline void prefetchToRead(const void* address) noexcept {
    __builtin_prefetch(address, 0);
}

// Takes the line away from other processors, so that a later store need not wait for that.
inline void prefetchToWrite(void* address) noexcept {
#if defined(__x86_64__)
    // The compiler emits it only for processors that it is told of; those without it take it for a no-operation.
    asm volatile("prefetchw %0" : : "m"(*static_cast<char*>(address)));
#else
    __builtin_prefetch(address, 1);
#endif
}

}  // namespace quorl
