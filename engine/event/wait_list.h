// The threads that sleep in a dispatch of one queue or group.
#pragma once

#include <sched.h>

#include <cstdint>

#include "base/futex.h"
#include "event/dispatch_state.h"

namespace quorl::event {

// Values of DispatchState::wake.
enum Wake : uint32_t { asleep = 0, wokenForEvent = 1, wokenBySignal = 2, wokenByClose = 3 };

// On the stack of the thread that sleeps. Guarded by the lock of the list.
struct Waiter {
    DispatchState* thread;
    Waiter* next = nullptr;
    Waiter* previous = nullptr;
    bool listed = false;
};

// Guarded by the lock of its owner. The thread that went to sleep last is woken first: its caches are the warmest.
class WaitList {
  public:
    bool empty() const noexcept { return first_ == nullptr; }

    void add(Waiter& waiter) noexcept {
        waiter.thread->wake.store(asleep, std::memory_order_relaxed);
        waiter.next = first_;
        waiter.previous = nullptr;
        if (first_ != nullptr) first_->previous = &waiter;
        first_ = &waiter;
        waiter.listed = true;
    }

    void remove(Waiter& waiter) noexcept {
        (waiter.previous != nullptr ? waiter.previous->next : first_) = waiter.next;
        if (waiter.next != nullptr) waiter.next->previous = waiter.previous;
        waiter.listed = false;
    }

    // Takes one thread off the list; the caller wakes it with futexWake(thread->wake) once the lock is given up, which is
    // safe although the thread may have woken by itself: its state is never freed. Null when nobody sleeps.
    DispatchState* takeOne(Wake reason) noexcept {
        Waiter* waiter = first_;
        if (waiter == nullptr) return nullptr;
        DispatchState* thread = waiter->thread;
        remove(*waiter);
        if (reason == wokenForEvent) thread->wakerProcessor.store(sched_getcpu(), std::memory_order_relaxed);
        thread->wake.store(reason, std::memory_order_release);
        return thread;
    }

    void wakeAll(Wake reason) noexcept {
        while (DispatchState* thread = takeOne(reason)) futexWake(thread->wake);
    }

  private:
    Waiter* first_ = nullptr;
};

}  // namespace quorl::event
