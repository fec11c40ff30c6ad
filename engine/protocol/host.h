// Runs machines without I/O in real time: one thread, on which their times come and what came in for them is handled.
//
// A machine is a protocol as a value: messages, calls and the time go in, and what to store, to send and to deliver comes
// out. Whoever wraps one is a Guest (driver.h has the usual one). A guest hears on a queue of the host's, with listeners
// whose closure is its token:
//
//     constinit Host host("quorl-circuits", "quorl.circuits");
//     host.add(guest, &token);
//     ... a listener on host.queue() whose callback calls host.find(token)
//     host.schedule(*guest, due);       // guest->wake runs on the host's thread when due has come
//     host.remove(token);
//
// A host is made with the program and starts with its first guest. stop ends its thread; it may start again.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

#include "base/mutex.h"
#include "base/thread.h"
#include "base/thread_state.h"
#include "protocol/due_heap.h"
#include "quorl/quorl.h"

namespace quorl::protocol {

class Guest {
  public:
    Guest() = default;
    Guest(const Guest&) = delete;
    Guest& operator=(const Guest&) = delete;
    virtual ~Guest() = default;

    // On the host's thread, no lock held.
    virtual void wake(ThreadState& thread) noexcept = 0;
    virtual void persisted(ThreadState&, uint64_t) noexcept {}

    // Names the guest among all that the host ever had; 0 before it was added.
    uint64_t token() const noexcept { return token_; }

    // The heap's, guarded by the host's lock.
    int64_t heapDue = 0;
    size_t heapPlace = SIZE_MAX;

  private:
    friend class Host;
    uint64_t token_ = 0;                         // set once, by add
    std::atomic<int64_t> scheduled_{INT64_MAX};  // when the host wakes it; written under the host's lock
};
using GuestRef = std::shared_ptr<Guest>;

class Host {
  public:
    // threadName: at most 15 bytes. queueName: what the statistics call the queue.
    constexpr Host(const char* threadName, const char* queueName) noexcept
        : threadName_(threadName), queueName_(queueName) {}

    // Makes the guest known, and starts the thread if it does not run. From then on the host keeps a reference.
    // QUORL_NOT_INITIALIZED, QUORL_NO_MEMORY, QUORL_INIT_FAILURE.
    quorl_status add(const GuestRef& guest) noexcept;
    // Without effect when the guest is gone already. It may be on its way on the host's thread still.
    void remove(uint64_t token) noexcept;

    // Null: there is no such guest any more.
    GuestRef find(uint64_t token) noexcept;
    // The guests for which matches(const Guest&) is true, or none when there is no memory for them. matches takes no lock.
    template <class F>
    std::vector<GuestRef> guests(F&& matches) noexcept {
        return guests(
            [](void* asked, const Guest& guest) { return (*static_cast<std::remove_reference_t<F>*>(asked))(guest); },
            &matches);
    }
    uint32_t count() const noexcept { return count_.load(std::memory_order_relaxed); }
    // Whether the state is that of the host's thread.
    bool isRunner(const ThreadState* thread) const noexcept {
        return thread != nullptr && thread == runner_.load(std::memory_order_relaxed);
    }
    // How often the thread has come round, and how many guests it has woken, ever: what idle guests cost.
    uint64_t turns() const noexcept { return turns_.load(std::memory_order_relaxed); }
    uint64_t woken() const noexcept { return woken_.load(std::memory_order_relaxed); }

    // Of what comes in for the guests; 0 while the thread does not run. No default limit holds for it.
    uint32_t queue() const noexcept { return queue_.load(std::memory_order_acquire); }

    // Lets the guest's wake run at due, nanoseconds on the monotonic clock, or earlier. A later time than one that is set
    // already costs nothing: the guest is woken at the earlier one, and then sets the later. From any thread.
    void schedule(Guest& guest, int64_t due) noexcept;

    // Lets wake of those guests run for which matches(const Guest&) is true, now. matches takes no lock.
    template <class F>
    void wakeAll(F&& matches) noexcept {
        wakeAll(
            [](void* asked, const Guest& guest) { return (*static_cast<std::remove_reference_t<F>*>(asked))(guest); },
            &matches);
    }

    // The place in the queue behind all that waits there now; and whether all that was before a place has been handled, so that
    // nothing follows which had come in by then. On the host's thread.
    uint64_t placeBehindAll(ThreadState& thread) const noexcept { return handled_ + waiting(thread); }
    bool passed(ThreadState& thread, uint64_t place) const noexcept {
        return handled_ >= place || waiting(thread) == 0;
    }

    // Lets persisted(token) of the guest run on the host's thread. From any thread. What finds no memory is tried again
    // by nobody: false.
    bool post(uint64_t guest, uint64_t token) noexcept;

    // Ends the thread and forgets the guests. The library closes: nobody adds a guest any more.
    void stop() noexcept;

  private:
    struct Posted {
        uint64_t guest;
        uint64_t token;
    };
    struct State;

    std::vector<GuestRef> guests(bool (*matches)(void* asked, const Guest& guest), void* asked) noexcept;
    void wakeAll(bool (*matches)(void* asked, const Guest& guest), void* asked) noexcept;
    bool scheduleLocked(Guest& guest, int64_t due) noexcept REQUIRES(lock_);
    quorl_status makeReady() noexcept REQUIRES(lock_);
    void run() noexcept;
    void wakeThread() noexcept;
    // Takes the next guest that is due; null: none is, and *next says when one will be.
    GuestRef takeDue(int64_t now, int64_t* next) noexcept;
    void handlePosted(ThreadState& thread) noexcept;
    // When the next one is due.
    int64_t wakeThoseDue(ThreadState& thread, int64_t now) noexcept;
    void forget(Guest& guest) noexcept REQUIRES(lock_);
    uint32_t waiting(ThreadState& thread) const noexcept;

    const char* const threadName_;
    const char* const queueName_;

    Mutex lock_;
    State* state_ GUARDED_BY(lock_) POINTS_TO_GUARDED_BY(lock_) = nullptr;  // made with the first guest, and kept
    Thread thread_;                   // started under the lock; joined when the library closes
    std::atomic<uint32_t> queue_{0};  // 0 while no thread runs
    std::atomic<uint32_t> count_{0};
    std::atomic<const ThreadState*> runner_{nullptr};  // the thread's, while it runs
    std::atomic<int64_t> sleepsUntil_{
        INT64_MAX};                   // the thread's; written under the lock, never later than the first guest is due
    std::atomic<uint64_t> turns_{0};  // the thread's, like the next two
    std::atomic<uint64_t> woken_{0};
    uint64_t handled_ = 0;  // of what came in
    std::atomic<bool> anyPosted_{false};
    std::atomic<bool> stopping_{false};
    alignas(4) std::atomic<uint32_t> key_{0};  // the thread's key for signals
};

}  // namespace quorl::protocol
