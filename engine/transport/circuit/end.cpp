// What an end does with what its machine gives out, and where it hears.
#include "transport/circuit/end.h"

#include <utility>

#include "base/clock.h"
#include "base/futex.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/event.h"
#include "transport/advisory.h"
#include "transport/circuit/frame.h"
#include "transport/transport.h"

namespace quorl::transport::circuit {
namespace {

constinit protocol::Host circuitsHost("quorl-circuits", "quorl.circuits");

// Whether a send ends at once, well or not.
bool takes(const Machine& machine) noexcept {
    return machine.state() != Machine::State::up || machine.hasRoom();
}

// Ends the waiting requests of a circuit that has no peer any more.
void abortRequests(uint32_t id, ThreadState& thread) noexcept {
    ReadGuard guard(thread);
    auto* transport = registry::find<Transport>(id);
    if (transport == nullptr) return;
    Lock lock(transport->lock);
    abortAll(*transport);
}

}  // namespace

protocol::Host& host() noexcept {
    return circuitsHost;
}

End::End(Machine machine, uint32_t parent, std::string address)
    : Driver(circuitsHost, std::move(machine)), parent_(parent), address_(std::move(address)) {}

// ---- coming and going

quorl_status End::start(const EndRef& end) noexcept {
    if (const quorl_status status = circuitsHost.add(end); status != QUORL_OK) return status;
    const quorl_status status = end->hear();
    if (status != QUORL_OK) end->retire();
    return status;
}

quorl_status End::hear() noexcept {
    // The closure is the token itself: it names no memory that could be gone.
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    const auto* closure = reinterpret_cast<const void*>(static_cast<uintptr_t>(token()));
    const ListenerRequest request{.queue = circuitsHost.queue(),
                                  .transport = parent_,
                                  .subject = address_.c_str(),
                                  .closure = closure,
                                  .callback = onFrame,
                                  .vectorCallback = nullptr,
                                  .groupId = nullptr,
                                  .vector = false};
    uint32_t listener = 0;
    const quorl_status status = createListener(&listener, request);
    listener_.store(listener, std::memory_order_release);
    return status;
}

void End::retire() noexcept {
    circuitsHost.remove(token());
    if (const uint32_t listener = listener_.exchange(0, std::memory_order_acq_rel); listener != 0) {
        KeptErrorText kept;
        event::destroyEvent(listener, nullptr);
    }
}

// ---- steps

void End::onFrame(quorlEvent, quorlMsg message, void* closure) {
    const protocol::GuestRef guest = circuitsHost.find(reinterpret_cast<uintptr_t>(closure));
    Frame frame;
    if (!guest || !decode(message, &frame)) return;
    static_cast<End&>(*guest).step(*threadState(), [&](Machine& machine, Output& out) {
        machine.receive(std::move(frame), monotonicNow(), out);
        return QUORL_OK;
    });
}

void End::wake(ThreadState& thread) noexcept {
    const int64_t now = monotonicNow();
    const Passage passage = passageBelow(thread, now);
    step(thread, [&](Machine& machine, Output& out) {
        machine.tick(now, passage, out);
        return QUORL_OK;
    });
}

quorl_status End::send(ThreadState& thread, message::ContentRef content) noexcept {
    return step(thread,
                [&](Machine& machine, Output& out) { return machine.send(std::move(content), monotonicNow(), out); });
}

void End::close(ThreadState& thread) noexcept {
    phase_.store(closed, std::memory_order_release);
    futexWake(phase_, INT32_MAX);
    step(thread, [](Machine& machine, Output& out) {
        machine.close(monotonicNow(), out);
        return QUORL_OK;
    });
}

void End::abandon(ThreadState& thread, const char* reason) noexcept {
    step(thread, [reason](Machine& machine, Output& out) {
        machine.abandon(reason, out);
        return QUORL_OK;
    });
}

void End::fail(ThreadState& thread, const char* reason) noexcept {
    step(thread, [reason](Machine& machine, Output& out) {
        machine.fail(reason, out);
        return QUORL_OK;
    });
}

// What does not get out is a lost frame.
void End::transmit(ThreadState& thread, Machine& machine, Output& output) noexcept {
    if (output.frames.empty()) return;
    KeptErrorText kept;
    ReadGuard guard(thread);
    auto* parent = registry::find<Transport>(parent_);
    if (parent == nullptr) {
        machine.fail("the transport below was closed", output);
        return;
    }
    bool crowded = false;
    for (Outgoing& outgoing : output.frames) {
        // Room is not waited for: this may be the thread that makes the room.
        if (!crowded) {
            message::ContentRef wire;
            const std::string& to = outgoing.to.empty() ? machine.peer() : outgoing.to;
            if (encode(outgoing.frame, to, &wire) != QUORL_OK) continue;
            crowded = parent->backend->send(thread, std::move(wire)) == Backend::noRoom;
        }
        if (crowded) machine.repeatSoon(outgoing.frame, monotonicNow());
    }
}

void End::deliver(ThreadState& thread, News news) noexcept {
    if (roomWaiters_.load(std::memory_order_seq_cst) != 0 && takesMessages()) {
        roomChanges_.fetch_add(1, std::memory_order_release);
        futexWake(roomChanges_, INT32_MAX);
    }
    uint32_t expected = pending;
    if (news.connected && phase_.compare_exchange_strong(expected, up)) futexWake(phase_, INT32_MAX);
    if (!news.deliveries.empty()) {
        ReadGuard guard(thread);
        for (auto& content : news.deliveries) router_.route(thread, std::move(content));
    }
    if (news.lost) {
        for (uint32_t from : {pending, up}) phase_.compare_exchange_strong(from, lost);
        futexWake(phase_, INT32_MAX);
        if (const uint32_t id = transport(); id != 0) abortRequests(id, thread);
        tell("lost", news);
    } else if (news.undelivered != 0) {
        news.reason = "the program closed the circuit";
        tell("undelivered", news);
    }
    if (news.done) retire();
}

void End::tell(const char* name, const News& news) const noexcept {
    advise(Severity::warn, "circuit", name,
           {{"transport", transport()}, {"reason", news.reason}, {"undelivered", news.undelivered}});
}

// ---- what others ask

Passage End::passageBelow(ThreadState& thread, int64_t now) const noexcept {
    ReadGuard guard(thread);
    auto* parent = registry::find<Transport>(parent_);
    return parent != nullptr ? parent->backend->passage(address_, now) : Passage::open(now);
}

// A circuit loses nothing; what the peer has not acknowledged is on its way. What comes in is whole, but for what the way below
// puts together.
Passage End::passage(ThreadState& thread, int64_t now) noexcept {
    Passage passage = Passage::open(now);
    passage.arriving = passageBelow(thread, now).arriving;
    passage.passed = look([&](const Machine& machine) { return machine.confirmedUntil(now); });
    return passage;
}

bool End::takesMessages() noexcept {
    return look([](const Machine& machine) { return takes(machine); });
}

bool End::awaitRoom(int64_t deadline) noexcept {
    roomWaiters_.fetch_add(1, std::memory_order_seq_cst);
    for (;;) {
        const uint32_t seen = roomChanges_.load(std::memory_order_acquire);
        if (takesMessages() || !futexWait(roomChanges_, seen, deadline)) break;
    }
    roomWaiters_.fetch_sub(1, std::memory_order_relaxed);
    return phase() != closed;
}

End::Phase End::awaitPeer(int64_t deadline) noexcept {
    while (phase() == pending) {
        if (!futexWait(phase_, pending, deadline)) break;
    }
    // The machine may know that the circuit is lost, and refuse messages, before that is delivered.
    const Phase now = phase();
    return now == up && look([](const Machine& machine) { return machine.state() >= Machine::State::lost; }) ? lost
                                                                                                             : now;
}

quorl_status End::notConnected() noexcept {
    switch (phase()) {
        case pending:
            return quorl::fail(QUORL_VC_NOT_CONNECTED, "the circuit is not connected yet");
        case closed:
            return quorl::fail(QUORL_VC_NOT_CONNECTED, "the circuit was closed");
        default:
            break;
    }
    const char* reason = look([](const Machine& machine) { return machine.reason(); });
    return quorl::fail(QUORL_VC_NOT_CONNECTED, "the circuit is lost: %s", reason);
}

}  // namespace quorl::transport::circuit
