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

void tell(const char* name, uint32_t transport, const char* reason, uint64_t undelivered) noexcept {
    advise(Severity::warn, "circuit", name,
           {{"transport", transport}, {"reason", reason}, {"undelivered", undelivered}});
}

}  // namespace

// Tells the program of a circuit that is lost.
class LossAdvisories final : public Observer {
  public:
    void lost(const Lost& report) noexcept override {
        tell("lost", transport.load(std::memory_order_acquire), report.reason, report.undelivered);
    }

    std::atomic<uint32_t> transport{0};  // the circuit's
};

protocol::Host& host() noexcept {
    return circuitsHost;
}

End::End(Machine machine, uint32_t parent, std::string address, uint32_t largest)
    : Driver(circuitsHost, std::move(machine)),
      parent_(parent),
      address_(std::move(address)),
      largest_(largest),
      advisories_(std::make_shared<LossAdvisories>()) {
    observers_.add(advisories_);
    observers_.largestMessage(largest);
}

uint32_t End::transport() const noexcept {
    return advisories_->transport.load(std::memory_order_acquire);
}

void End::published(uint32_t transport) noexcept {
    advisories_->transport.store(transport, std::memory_order_release);
}

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
    // The end may have been done, and have retired, before there was a listener to destroy.
    if (circuitsHost.find(token()) == nullptr) retire();
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
    if (const char* reason = endOfTheParent(thread); reason != nullptr) {
        // What it has brought comes first.
        if (lastFrames_ == 0) lastFrames_ = circuitsHost.placeBehindAll(thread);
        if (circuitsHost.passed(thread, lastFrames_)) return fail(thread, reason);
        circuitsHost.schedule(*this, monotonicNow());
    }
    attend(thread);
}

void End::attend(ThreadState& thread) noexcept {
    const int64_t now = monotonicNow();
    const Passage passage = passageBelow(thread, now);
    step(thread, [&](Machine& machine, Output& out) {
        machine.tick(now, passage, out);
        return QUORL_OK;
    });
}

quorl_status End::send(ThreadState& thread, message::ContentRef content) noexcept {
    return step(thread, [&](Machine& machine, Output& out) {
        const quorl_status status = machine.send(std::move(content), monotonicNow(), out);
        // Whoever makes room after this step sees it.
        if (status == QUORL_QUEUE_LIMIT) refused_.store(true, std::memory_order_relaxed);
        return status;
    });
}

void End::close(ThreadState& thread) noexcept {
    closed_.store(true, std::memory_order_release);
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
        machine.fail(parentIsClosed, output);
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
    if (refused_.load(std::memory_order_relaxed) && takesMessages() && refused_.exchange(false)) observers_.room();
    if (news.connected) observers_.connected();
    if (!news.deliveries.empty()) {
        ReadGuard guard(thread);
        for (auto& content : news.deliveries) router_.route(thread, std::move(content));
    }
    if (news.lost) {
        observers_.lost({news.reason, news.undelivered});
        told_.store(1, std::memory_order_release);
        futexWake(told_, INT32_MAX);
    } else if (news.undelivered != 0) {
        tell("undelivered", transport(), "the program closed the circuit", news.undelivered);
    }
    if (news.done) retire();
}

// ---- what others ask

Passage End::passageBelow(ThreadState& thread, int64_t now) const noexcept {
    ReadGuard guard(thread);
    auto* parent = registry::find<Transport>(parent_);
    return parent != nullptr ? parent->backend->passage(address_, now) : Passage::open(now);
}

// Why there is no way any more through the transport below; null while there may be one.
const char* End::endOfTheParent(ThreadState& thread) noexcept {
    ReadGuard guard(thread);
    auto* parent = registry::find<Transport>(parent_);
    if (parent == nullptr) return parentIsClosed;
    return parent->state->phase() == TransportState::Phase::lost ? "the transport below is lost" : nullptr;
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

// The machine knows that the circuit is lost, and refuses messages, before that is delivered.
void End::settle() noexcept {
    if (!look([](const Machine& machine) { return machine.state() == Machine::State::lost; })) return;
    while (told_.load(std::memory_order_acquire) == 0) futexWait(told_, 0);
}

quorl_status End::notConnected() noexcept {
    if (closed_.load(std::memory_order_acquire)) return quorl::fail(QUORL_VC_NOT_CONNECTED, "the circuit was closed");
    const auto [state, reason] =
        look([](const Machine& machine) { return std::pair(machine.state(), machine.reason()); });
    if (state == Machine::State::lost) return quorl::fail(QUORL_VC_NOT_CONNECTED, "the circuit is lost: %s", reason);
    return quorl::fail(QUORL_VC_NOT_CONNECTED, "the circuit is not connected yet");
}

}  // namespace quorl::transport::circuit
