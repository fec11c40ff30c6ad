// How a transport is, as its backend reports it, and the threads that wait for that to change.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/futex.h"
#include "transport/observer.h"

namespace quorl::transport {

class TransportState final : public Observer {
  public:
    enum class Phase : uint32_t { pending, connected, away, lost, closed };

    // transport: its id. It may not be published yet.
    explicit TransportState(uint32_t transport) noexcept : transport_(transport) {}

    Phase phase() const noexcept { return static_cast<Phase>(phase_.load(std::memory_order_seq_cst)); }
    // Bytes of the largest message that the backend takes whatever its subjects.
    uint32_t largest() const noexcept { return largest_.load(std::memory_order_relaxed); }

    // Waits while the way has never been there; the phase then. pending: the deadline has come.
    Phase awaitConnected(int64_t deadline) noexcept;

    // How often room was reported, or waiting for it became vain. Whoever asks, is then refused with noRoom, and waits until
    // there were more, has missed none.
    uint32_t roomReports() const noexcept { return roomReports_.load(std::memory_order_acquire); }
    // Waits until there were more than those, or the deadline has come.
    void awaitRoom(uint32_t seen, int64_t deadline) noexcept;

    // Something is about to stand on the transport, and wants to know of its end. Either it finds the phase at lost when it
    // looks afterwards, or it is told.
    void beParent() noexcept { parent_.store(true, std::memory_order_seq_cst); }
    bool isParent() const noexcept { return parent_.load(std::memory_order_seq_cst); }

    // The transport was closed: nobody waits any more.
    void close() noexcept;

    void connected() noexcept override;
    void away(const Away& report) noexcept override;
    // Also tells what stands on the transport.
    void back(const Back& report) noexcept override;
    // Also ends the requests that wait, and tells what stands on the transport.
    void lost(const Lost& report) noexcept override;
    void room() noexcept override;
    void largestMessage(uint32_t bytes) noexcept override;

  private:
    bool enter(Phase next) noexcept;

    const uint32_t transport_;
    std::atomic<uint32_t> phase_{0};  // a Phase; threads that wait for the way sleep on it
    std::atomic<uint32_t> roomReports_{0};
    std::atomic<uint32_t> largest_{0};
    std::atomic<bool> parent_{false};
};

}  // namespace quorl::transport
