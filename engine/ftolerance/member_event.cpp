// Actions travel to the program's queue as numbers: the action, and which one of the member's it is.
#include "ftolerance/member_event.h"

#include <algorithm>
#include <new>
#include <utility>

#include "companion/status.h"
#include "companion/transport.h"

namespace quorl::ftolerance {
namespace {

constexpr int64_t pauseWithoutRoom = 2'000'000;  // nanoseconds
constexpr int64_t waitForRoom = 2'000'000'000;   // at most, for the last frame
constexpr uint32_t actionBits = 2;
constexpr uint32_t numbers = uint32_t{1} << (31 - actionBits);  // tags are below 2^31

thread_local LastTold lastToldHere;

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
    const uint32_t number = delivery.tag >> actionBits;
    const Waiting told = takeWaiting(number);
    if (action == QUORLFT_ACTIVATE) token_ = told.token;
    if (action == QUORLFT_DEACTIVATE) stopping_ = number;
    lastToldHere = {delivery.event, action, told.serial, told.token};
    callback_(delivery.event, who_.group.c_str(), static_cast<quorlftAction>(action),
              const_cast<void*>(delivery.closure));
    if (action == QUORLFT_DEACTIVATE && !defers_) done(number);
}

void MemberEvent::dropped(const companion::Message&, uint32_t tag) noexcept {
    takeWaiting(tag >> actionBits);
}

bool MemberEvent::lastTold(LastTold* told) noexcept {
    *told = lastToldHere;
    return told->member != 0;
}

void MemberEvent::returned() noexcept {
    if (const uint32_t number = stopping_.load(); number != 0) done(number);
}

void MemberEvent::done(uint32_t deactivation) noexcept {
    returned_ = deactivation;
    host().schedule(*this, companion::monotonicNow());
}

// Threads that dispatch side by side come in any order. What had no memory to wait in has neither serial nor token.
MemberEvent::Waiting MemberEvent::takeWaiting(uint32_t number) noexcept {
    const std::lock_guard lock(waitingLock_);
    const auto found =
        std::find_if(waiting_.begin(), waiting_.end(), [number](const Waiting& each) { return each.number == number; });
    if (found == waiting_.end()) return {number, 0, 0};
    const Waiting taken = *found;
    waiting_.erase(found);
    return taken;
}

// Also when the program's queue was destroyed: one that cannot be told to act must not take the place of one that can.
void MemberEvent::leave() noexcept {
    step([](Member& machine, MemberOutput& out) {
        machine.leave(now(), out);
        return QUORL_OK;
    });
}

void MemberEvent::closed() noexcept {
    const companion::KeptErrorText kept;
    leave();
    if (!host().isHostThread()) sendLastFrame(companion::monotonicNow() + waitForRoom);
    host().unlisten(listener_.exchange(0));
    host().remove(*this);
}

// The others wait for a good-bye that does not come as for one that has died.
void MemberEvent::sendLastFrame(int64_t deadline) noexcept {
    for (;;) {
        const uint32_t seen = companion::roomReports(transport_);
        bool waits = false;
        step([](Member&, MemberOutput&) { return QUORL_OK; });
        look([&](const Member&) { waits = unsent_.has_value(); });
        if (!waits || companion::monotonicNow() >= deadline) return;
        if (companion::awaitRoom(transport_, seen, deadline) != QUORL_OK) return;
    }
}

void MemberEvent::wake() noexcept {
    step([&](Member& machine, MemberOutput& out) {
        if (const uint32_t weight = weight_.load(); weight != 0) {
            machine.setWeight(static_cast<uint16_t>(weight), now(), out);
            uint32_t set = weight;
            weight_.compare_exchange_strong(set, 0);
        }
        const uint32_t returned = returned_.load();
        if (returned != 0 && returned == deactivation_) machine.deactivated(now(), out);
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

// A program that sends faster than the daemon takes it leaves no room for most of the time, and would be taken for dead: the
// newest frame is tried again soon. What finds no daemon is as if it had been lost, and the next heartbeat says the same. A
// transport that is gone does not come back.
void MemberEvent::transmit(Member& machine, MemberOutput& output) noexcept {
    const companion::KeptErrorText kept;
    bool gone = false;
    const auto send = [&](const Frame& frame) {
        const quorl_status status = sendFrame(transport_, subject_, frame);
        gone = status == QUORL_INVALID_TRANSPORT;
        return status != companion::noRoom;
    };
    if (output.frames.empty() && unsent_ && send(*unsent_)) unsent_.reset();
    for (const Frame& frame : output.frames) {
        unsent_.reset();
        if (!send(frame)) unsent_ = frame;
    }
    if (unsent_) host().schedule(*this, companion::monotonicNow() + pauseWithoutRoom);
    if (!gone) return;
    try {
        machine.abandon(now(), output);
    } catch (const std::bad_alloc&) {
        // The next heartbeat finds it gone again.
    }
}

void MemberEvent::deliver(MemberNews news) noexcept {
    const companion::KeptErrorText kept;
    bool heard = true;
    for (const Advisory& advisory : news.advisories) tell(who_, advisory);
    for (const Told& told : news.actions) {
        tell(who_, told);
        heard &= companion::post(companion::Type::member, who_.id, {}, nextTag(told)) != QUORL_INVALID_QUEUE;
    }
    if (!heard) leave();
}

uint32_t MemberEvent::nextTag(const Told& told) noexcept {
    actions_ = actions_ % (numbers - 1) + 1;
    if (told.action == Action::deactivate) deactivation_ = actions_;
    const std::lock_guard lock(waitingLock_);
    try {
        waiting_.push_back({actions_, ++serial_, told.token});
    } catch (const std::bad_alloc&) {
        // The action matters more than what may be asked about it.
    }
    return static_cast<uint32_t>(told.action) | actions_ << actionBits;
}

}  // namespace quorl::ftolerance
