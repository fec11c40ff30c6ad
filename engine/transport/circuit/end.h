// One end of a circuit in this process: its machine on the host of circuits, over the transport below.
//
// What comes in, and what is due, runs on the host's one thread; what goes out goes out on the thread that sends.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "protocol/driver.h"
#include "transport/circuit/machine.h"
#include "transport/router.h"

namespace quorl::transport::circuit {

class End;
using EndRef = std::shared_ptr<End>;

class End final : public protocol::Driver<Machine, Output> {
  public:
    // What threads see that wait for the peer.
    enum Phase : uint32_t { pending = 0, up = 1, lost = 2, closed = 3 };

    // parent: the transport below. address: the inbox of it where this end hears, as the machine knows it.
    End(Machine machine, uint32_t parent, std::string address);

    uint32_t parent() const noexcept { return parent_; }
    const std::string& address() const noexcept { return address_; }
    // The transport of the circuit itself; 0 until it is published.
    uint32_t transport() const noexcept { return transport_.load(std::memory_order_acquire); }
    void published(uint32_t transport) noexcept { transport_.store(transport, std::memory_order_release); }

    // Of what the peer sends.
    Router& router() noexcept { return router_; }

    // Puts the end on the host and lets it hear. Afterwards the host keeps a reference, until the end is done or retired.
    // QUORL_NOT_INITIALIZED, QUORL_NO_MEMORY, QUORL_INVALID_TRANSPORT and others.
    static quorl_status start(const EndRef& end) noexcept;
    // Takes it off the host; it hears nothing any more.
    void retire() noexcept;

    // What the machine says. QUORL_NO_MEMORY.
    quorl_status send(ThreadState& thread, message::ContentRef content) noexcept;
    // The program has closed the circuit.
    void close(ThreadState& thread) noexcept;
    // The transport below is about to go; or has gone.
    void abandon(ThreadState& thread, const char* reason) noexcept;
    void fail(ThreadState& thread, const char* reason) noexcept;

    // Waits while the peer is not there; the phase then.
    Phase awaitPeer(int64_t deadline) noexcept;
    bool isLost() const noexcept { return phase() == lost; }
    // The status, with its detail text, of what needs a peer and has none.
    quorl_status notConnected() noexcept;
    // See Backend.
    bool awaitRoom(int64_t deadline) noexcept;
    Passage passage(ThreadState& thread, int64_t now) noexcept;

    void wake(ThreadState& thread) noexcept override;

  private:
    void transmit(ThreadState& thread, Machine& machine, Output& output) noexcept override REQUIRES(lock_);
    void deliver(ThreadState& thread, News news) noexcept override;

    static void onFrame(quorlEvent, quorlMsg message, void* closure);
    quorl_status hear() noexcept;
    Passage passageBelow(ThreadState& thread, int64_t now) const noexcept;
    bool takesMessages() noexcept;
    void tell(const char* name, const News& news) const noexcept;
    Phase phase() const noexcept { return static_cast<Phase>(phase_.load(std::memory_order_acquire)); }

    const uint32_t parent_;
    const std::string address_;
    std::atomic<uint32_t> listener_{0};  // of the address; 0 until it is made, and when the end is retired
    std::atomic<uint32_t> transport_{0};
    std::atomic<uint32_t> phase_{pending};  // threads that wait for the peer sleep on it
    std::atomic<uint32_t> roomChanges_{0};  // threads that wait for room to send sleep on it
    std::atomic<uint32_t> roomWaiters_{0};
    Router router_;
};

// The host of all ends.
protocol::Host& host() noexcept;

}  // namespace quorl::transport::circuit
