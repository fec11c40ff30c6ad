// Asymmetric fence: a thread that publishes "I use this" with a plain store, where the rare thread that must see all
// of these stores pays for the ordering instead.
//
// The frequent side:  publishHazard(cell, value); then reads with seq_cst loads whether it may go on.
// The rare side:      forbids with a seq_cst store; heavyFence(); then reads the cells.
// Either the rare side sees the store, or the frequent side sees that it may not go on.
#pragma once

#include <atomic>

namespace quorl {

#if defined(__SANITIZE_THREAD__)
#define QUORL_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QUORL_TSAN 1
#endif
#endif

namespace fence {

// Whether the kernel offers the barrier that runs on all threads of the process. Becomes true at most once, when the first
// thread is registered.
extern constinit std::atomic<bool> processWide;

// Finds out what the kernel offers. Called under a lock by the registration of the first thread.
void prepare() noexcept;

}  // namespace fence

template <class T>
inline void publishHazard(std::atomic<T>& cell, T value) noexcept {
#ifndef QUORL_TSAN
    if (fence::processWide.load(std::memory_order_relaxed)) [[likely]] {
        cell.store(value, std::memory_order_release);
        std::atomic_signal_fence(std::memory_order_seq_cst);
        return;
    }
#endif
    cell.store(value, std::memory_order_seq_cst);
}

void heavyFence() noexcept;

}  // namespace quorl
