// Actions travel to the program's queue as numbers: the action, and of a deactivation which one it is.
#include "ftolerance/member_event.h"

#include <new>
#include <utility>

#include "companion/status.h"
#include "companion/transport.h"

namespace quorl::ftolerance {
namespace {

constexpr uint32_t actionBits = 2;
constexpr uint32_t serials = uint32_t{1} << (31 - actionBits);  // tags are below 2^31

}  // namespace

MemberEvent::MemberEvent(Member machine, uint32_t transport, std::string group, std::string subject,
                         quorlftMemberCallback callback)
    : Driver(ftolerance::host(), std::move(machine)),
      transport_(transport),
      subject_(std::move(subject)),
      callback_(callback),
      who_{"member", 0, std::move(group)} {}

// The machine starts before anything comes in for it.
quorl_status MemberEvent::start(const std::shared_ptr<MemberEvent>& self, uint32_t id) noexcept {
    self->who_.id = id;
    quorl_status status = self->host().add(self);
    if (status != QUORL_OK) return status;
    status = self->step([](Member& machine, MemberOutput& out) {
        machine.start(now(), out);
        return QUORL_OK;
    });
    if (status != QUORL_OK) return companion::fail(status, "no memory for a member");
    uint32_t listener = 0;
    status = self->host().listen(*self, self->transport_, self->subject_, &listener);
    self->listener_ = listener;
    return status;
}

void MemberEvent::setWeight(uint16_t weight) noexcept {
    weight_ = weight;
    host().schedule(*this, companion::monotonicNow());
}

void MemberEvent::run(const companion::Delivery& delivery) noexcept {
    const uint32_t action = delivery.tag & ((1u << actionBits) - 1);
    callback_(delivery.event, who_.group.c_str(), static_cast<quorlftAction>(action),
              const_cast<void*>(delivery.closure));
    if (action != QUORLFT_DEACTIVATE) return;
    returned_ = delivery.tag >> actionBits;
    host().schedule(*this, companion::monotonicNow());
}

void MemberEvent::closed() noexcept {
    const companion::KeptErrorText kept;
    step([](Member& machine, MemberOutput& out) {
        machine.leave(now(), out);
        return QUORL_OK;
    });
    host().unlisten(listener_.exchange(0));
    host().remove(*this);
}

void MemberEvent::wake() noexcept {
    step([&](Member& machine, MemberOutput& out) {
        if (const uint32_t weight = weight_.load(); weight != 0) {
            machine.setWeight(static_cast<uint16_t>(weight), now(), out);
            uint32_t set = weight;
            weight_.compare_exchange_strong(set, 0);
        }
        const uint32_t returned = returned_.load();
        if (returned != 0 && returned == deactivations_) machine.deactivated(now(), out);
        if (uint32_t seen = returned; seen != 0) returned_.compare_exchange_strong(seen, 0);
        machine.tick(now(), out);
        return QUORL_OK;
    });
}

void MemberEvent::received(uint32_t, companion::Message&& message) noexcept {
    step([&](Member& machine, MemberOutput& out) {
        machine.receive(message.attributes(), now(), out);
        return QUORL_OK;
    });
}

// What finds no room, or no daemon, is as if it had been lost: the next heartbeat says the same. A transport that is gone does
// not come back.
void MemberEvent::transmit(Member& machine, MemberOutput& output) noexcept {
    const companion::KeptErrorText kept;
    bool gone = false;
    for (const Frame& frame : output.frames) gone = sendFrame(transport_, subject_, frame) == QUORL_INVALID_TRANSPORT;
    if (!gone) return;
    try {
        machine.abandon(now(), output);
    } catch (const std::bad_alloc&) {
        // The next heartbeat finds it gone again.
    }
}

void MemberEvent::deliver(MemberNews news) noexcept {
    const companion::KeptErrorText kept;
    for (const Advisory& advisory : news.advisories) tell(who_, advisory);
    for (const Told& told : news.actions) {
        tell(who_, told);
        uint32_t tag = static_cast<uint32_t>(told.action);
        if (told.action == Action::deactivate) {
            deactivations_ = deactivations_ % (serials - 1) + 1;
            tag |= deactivations_ << actionBits;
        }
        companion::post(companion::Type::member, who_.id, {}, tag);
    }
}

}  // namespace quorl::ftolerance
