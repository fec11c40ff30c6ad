// A mutex that costs one atomic operation when nobody waits, and its scope guard.
//
// Used on the fastest paths; constant-initialized and trivially destroyed, so that it may be a global.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/fence.h"
#include "base/futex.h"
#include "base/guards.h"

namespace quorl {

// Unlocking is a plain store: an atomic operation there would wait until the processor has written all that the thread
// stored under the lock, which takes longest where another thread reads just that. Who has to sleep for the lock pays
// instead, see fence.h.
class QUORL_LOCK Mutex {
  public:
    constexpr Mutex() noexcept = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() noexcept ACQUIRE() {
        if (!try_lock()) [[unlikely]]
            lockContended();
    }
    bool try_lock() noexcept TRY_ACQUIRE(true) {
        uint32_t expected = 0;
        return held_.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed);
    }
    void unlock() noexcept RELEASE() {
        publishHazard<uint32_t>(held_, 0);
        if (sleepers_.load(std::memory_order_seq_cst) != 0) [[unlikely]]
            futexWake(held_);
    }

  private:
    void lockContended() noexcept ACQUIRE();

    std::atomic<uint32_t> held_{0};
    std::atomic<uint32_t> sleepers_{0};  // threads that sleep for the lock, or are about to
};

class QUORL_SCOPED_LOCK [[nodiscard]] Lock {
  public:
    explicit Lock(Mutex& mutex) noexcept ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~Lock() RELEASE() { mutex_.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    Mutex& mutex_;
};

}  // namespace quorl
