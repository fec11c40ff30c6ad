// Changes of a transport's state, and who is woken by them.
#include "transport/state.h"

#include "transport/transport.h"

namespace quorl::transport {

// False: it was lost or closed before, and stays so.
bool TransportState::enter(Phase next) noexcept {
    uint32_t before = phase_.load(std::memory_order_relaxed);
    do {
        const auto phase = static_cast<Phase>(before);
        if (phase == Phase::closed || (phase == Phase::lost && next != Phase::closed)) return false;
    } while (!phase_.compare_exchange_weak(before, static_cast<uint32_t>(next), std::memory_order_seq_cst,
                                           std::memory_order_relaxed));
    futexWake(phase_, INT32_MAX);
    return true;
}

TransportState::Phase TransportState::awaitConnected(int64_t deadline) noexcept {
    while (phase() == Phase::pending) {
        if (!futexWait(phase_, static_cast<uint32_t>(Phase::pending), deadline)) break;
    }
    return phase();
}

void TransportState::awaitRoom(uint32_t seen, int64_t deadline) noexcept {
    while (roomReports() == seen) {
        if (!futexWait(roomReports_, seen, deadline)) return;
    }
}

void TransportState::room() noexcept {
    roomReports_.fetch_add(1, std::memory_order_acq_rel);
    futexWake(roomReports_, INT32_MAX);
}

void TransportState::close() noexcept {
    enter(Phase::closed);
    room();
}

void TransportState::connected() noexcept {
    enter(Phase::connected);
}

void TransportState::away(const Away&) noexcept {
    enter(Phase::away);
}

void TransportState::back(const Back&) noexcept {
    if (enter(Phase::connected) && isParent()) wayIsBack(transport_);
}

void TransportState::lost(const Lost&) noexcept {
    if (!enter(Phase::lost)) return;
    room();
    wayIsLost(transport_, isParent());
}

void TransportState::largestMessage(uint32_t bytes) noexcept {
    largest_.store(bytes, std::memory_order_relaxed);
}

}  // namespace quorl::transport
