// Machines of companion libraries in real time: one thread, on which their times come, what they listen to comes in, and what was
// made durable is told.
//
//     constinit Host host("quorl-certified", "quorl.certified");
//
//     class Node final : public Guest { ... };
//     host.add(node);
//     host.listen(*node, transport, "_QUORL.CM.x", &listener);      // node->received runs on the host's thread
//     host.schedule(*node, due);                                    // node->wake does when due has come
//     host.remove(*node);
//
// driver.h has the usual guest. A host is a constant of its library, starts with its first guest, and is stopped by the
// library's module (module.h), after which it may start again.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string_view>

#include "companion/message.h"

namespace quorl::companion {

class Host;

class Guest {
  public:
    Guest() = default;
    Guest(const Guest&) = delete;
    Guest& operator=(const Guest&) = delete;
    virtual ~Guest() = default;

    // All on the host's thread, no lock of the engine held. A guest that was removed meanwhile may hear one of them still.
    virtual void wake() noexcept = 0;
    virtual void received(uint32_t /*listener*/, Message&&) noexcept {}
    virtual void persisted(uint64_t /*token*/) noexcept {}

  private:
    friend class Host;
    std::shared_ptr<void> seat_;  // set by add
};
using GuestRef = std::shared_ptr<Guest>;

class QUORL_API Host {
  public:
    // threadName: at most 15 bytes. queueName: what the statistics call the queue. Both are constants.
    constexpr Host(const char* threadName, const char* queueName) noexcept
        : threadName_(threadName), queueName_(queueName) {}

    // Makes the guest known, once in its life, and starts the thread if it does not run. From then on the host keeps a
    // reference. QUORL_NOT_INITIALIZED, QUORL_NO_MEMORY, QUORL_INIT_FAILURE.
    quorl_status add(const GuestRef& guest) noexcept;
    // Gives the reference up. Without effect when the guest is gone already, or was never added.
    void remove(Guest& guest) noexcept;

    // Lets the guest's wake run at due, nanoseconds on the monotonic clock, or earlier. A later time than one that is set
    // already costs nothing: the guest is woken at the earlier one, and then sets the later. From any thread.
    void schedule(Guest& guest, int64_t due) noexcept;
    // Lets persisted(token) run. From any thread. False: there was no memory, and nobody tries again.
    bool post(Guest& guest, uint64_t token) noexcept;

    // Listens for the guest on a transport, to subjects of any kind, those of the system included: received gets messages
    // whole, with their attributes, in the order in which they come. The guest was added. Advisories come to no such
    // listener but by naming their second element. QUORL_INVALID_TRANSPORT, QUORL_INVALID_SUBJECT,
    // QUORL_NOT_INITIALIZED, QUORL_NO_MEMORY.
    quorl_status listen(Guest& guest, uint32_t transport, std::string_view subject, uint32_t* listener) noexcept;
    // What was on its way may still come. Without effect on 0.
    void unlisten(uint32_t listener) noexcept;

    uint32_t count() const noexcept;     // guests
    bool isHostThread() const noexcept;  // whether the calling thread is the host's

    // Ends the thread and forgets the guests. The library closes: nobody adds any more.
    void stop() noexcept;

  private:
    struct State;
    State* state() const noexcept { return state_.load(std::memory_order_acquire); }

    const char* const threadName_;
    const char* const queueName_;
    std::atomic<State*> state_{nullptr};  // made with the first guest, and kept
};

// The clock of due: nanoseconds that do not go back. And the time of day in nanoseconds since 1970, for what outlives a process.
QUORL_API int64_t monotonicNow() noexcept;
QUORL_API int64_t wallNow() noexcept;
// The point of the monotonic clock that lies so many seconds from now; INT64_MAX for negative and infinite ones.
QUORL_API int64_t deadlineAfter(double seconds) noexcept;

}  // namespace quorl::companion
