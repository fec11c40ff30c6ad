// Whether this process is the child of a fork that happened while the library was open. Of the library's threads none is
// there, and its locks may be held for ever: every call is refused before it takes one.
#pragma once

#include <atomic>

namespace quorl::forked {

inline constinit std::atomic<bool> flag{false};  // written as the child begins, by its only thread

// For what is not on the fast paths: there, what a call needs is missing in the child (thread states, handles).
// fail() answers QUORL_NOT_PERMITTED then, whatever it is given.
inline bool here() noexcept {
    return flag.load(std::memory_order_relaxed);
}

}  // namespace quorl::forked
