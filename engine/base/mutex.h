// A mutex of four bytes that costs two atomic operations when nobody waits, and its scope guard.
//
// Used instead of std::mutex on the paths that every message takes; constant-initialized and trivially destroyed, so
// that it may be a global.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/futex.h"

namespace quorl {

class Mutex {
  public:
    constexpr Mutex() noexcept = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() noexcept {
        uint32_t expected = free;
        if (!state_.compare_exchange_strong(expected, held, std::memory_order_acquire, std::memory_order_relaxed))
            [[unlikely]] {
            lockContended();
        }
    }
    bool try_lock() noexcept {
        uint32_t expected = free;
        return state_.compare_exchange_strong(expected, held, std::memory_order_acquire, std::memory_order_relaxed);
    }
    void unlock() noexcept {
        if (state_.exchange(free, std::memory_order_release) == contended) [[unlikely]]
            futexWake(state_);
    }

  private:
    static constexpr uint32_t free = 0;
    static constexpr uint32_t held = 1;
    static constexpr uint32_t contended = 2;  // held, and somebody may sleep

    void lockContended() noexcept;

    std::atomic<uint32_t> state_{free};
};

class [[nodiscard]] Lock {
  public:
    explicit Lock(Mutex& mutex) noexcept : mutex_(mutex) { mutex_.lock(); }
    ~Lock() { mutex_.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    Mutex& mutex_;
};

}  // namespace quorl
