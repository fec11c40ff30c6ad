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
#include "transport/observer.h"
#include "transport/router.h"

namespace quorl::transport::circuit {

// Why a circuit ends with the transport below it.
inline constexpr const char* parentIsClosed = "the transport below was closed";

class End;
using EndRef = std::shared_ptr<End>;
class LossAdvisories;

class End final : public protocol::Driver<Machine, Output> {
  public:
    // parent: the transport below. address: the inbox of it where this end hears, as the machine knows it. largest: bytes of
    // the largest message that fits into a frame.
    End(Machine machine, uint32_t parent, std::string address, uint32_t largest);

    uint32_t parent() const noexcept { return parent_; }
    const std::string& address() const noexcept { return address_; }
    uint32_t largest() const noexcept { return largest_; }
    // The transport of the circuit itself; 0 until it is published.
    uint32_t transport() const noexcept;
    void published(uint32_t transport) noexcept;

    // Of the circuit: connected when the peer is there, lost when there is none any more.
    Observers& observers() noexcept { return observers_; }
    // Waits, if the circuit is being lost, until those who observe it know. What is asked about the peer and what sending
    // says then agree.
    void settle() noexcept;

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

    // The status, with its detail text, of what needs a peer and has none.
    quorl_status notConnected() noexcept;
    // See Backend.
    Passage passage(ThreadState& thread, int64_t now) noexcept;

    void wake(ThreadState& thread) noexcept override;
    // Does what is due. On any thread.
    void attend(ThreadState& thread) noexcept;

  private:
    void transmit(ThreadState& thread, Machine& machine, Output& output) noexcept override REQUIRES(lock_);
    void deliver(ThreadState& thread, News news) noexcept override;

    static void onFrame(quorlEvent, quorlMsg message, void* closure);
    quorl_status hear() noexcept;
    Passage passageBelow(ThreadState& thread, int64_t now) const noexcept;
    const char* endOfTheParent(ThreadState& thread) noexcept;
    bool takesMessages() noexcept;

    const uint32_t parent_;
    const std::string address_;
    std::atomic<uint32_t> listener_{0};  // of the address; 0 until it is made, and when the end is retired
    const uint32_t largest_;
    uint64_t lastFrames_ = 0;  // of the host's thread: when the transport below is lost, where its last frames stand
    std::atomic<bool> closed_{false};   // by the program
    std::atomic<bool> refused_{false};  // a message, for want of room; no room was reported since
    Observers observers_;
    std::atomic<uint32_t> told_{0};  // whether the loss was; threads that want to know of it sleep on it
    const std::shared_ptr<LossAdvisories> advisories_;
    Router router_;
};

// The host of all ends.
protocol::Host& host() noexcept;

}  // namespace quorl::transport::circuit
