// Hosts of companions, over those of the core.
#include "companion/host.h"

#include <ctime>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "base/clock.h"
#include "base/forked.h"
#include "base/registry.h"
#include "base/status.h"
#include "base/thread_state.h"
#include "companion/access.h"
#include "event/event.h"
#include "protocol/host.h"
#include "transport/listener.h"

namespace quorl::companion {
namespace {

// The guest as the core's host knows it. Guest and seat refer to each other until the host gives its reference up.
struct Seat final : protocol::Guest {
    explicit Seat(GuestRef its) : guest(std::move(its)) {}

    GuestRef current() noexcept {
        const std::lock_guard lock(mutex);
        return guest;
    }
    void leave() noexcept {
        GuestRef last;  // its end may take other locks
        const std::lock_guard lock(mutex);
        last.swap(guest);
    }

    void wake(ThreadState&) noexcept override {
        if (const GuestRef its = current()) its->wake();
    }
    void persisted(ThreadState&, uint64_t token) noexcept override {
        if (const GuestRef its = current()) its->persisted(token);
    }

    std::mutex mutex;
    GuestRef guest;  // null from when it was removed
};

Seat& seatIn(const std::shared_ptr<void>& seat) noexcept {
    return *static_cast<Seat*>(seat.get());
}

// The closure of a listener is the guest's token: it names no memory that could be gone.
void takeForGuest(ThreadState&, event::Event& event, message::ContentRef content, uint32_t) {
    auto& host = *static_cast<protocol::Host*>(event.owner);
    const protocol::GuestRef seat = host.find(reinterpret_cast<uintptr_t>(event.arg));
    if (!seat) return;
    if (const GuestRef guest = static_cast<Seat&>(*seat).current())
        guest->received(event.id, Access::wrap(std::move(content)));
}

}  // namespace

struct Host::State {
    State(const char* threadName, const char* queueName) noexcept : host(threadName, queueName) {}
    protocol::Host host;
};

quorl_status Host::add(const GuestRef& guest) noexcept {
    if (threadState() == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    State* mine = state();
    if (mine == nullptr) {
        auto* made = new (std::nothrow) State(threadName_, queueName_);
        if (made == nullptr) return fail(QUORL_NO_MEMORY, "no memory for %s", queueName_);
        if (state_.compare_exchange_strong(mine, made, std::memory_order_acq_rel)) {
            mine = made;
        } else {
            delete made;
        }
    }
    try {
        auto seat = std::make_shared<Seat>(guest);
        guest->seat_ = seat;
        const quorl_status status = mine->host.add(seat);
        if (status != QUORL_OK) seat->leave();
        return status;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for %s", queueName_);
    }
}

void Host::remove(Guest& guest) noexcept {
    const std::shared_ptr<void> seat = guest.seat_;
    State* mine = state();
    if (mine == nullptr || !seat || forked::here()) return;
    mine->host.remove(seatIn(seat).token());
    seatIn(seat).leave();
}

void Host::schedule(Guest& guest, int64_t due) noexcept {
    if (!forked::here() && guest.seat_ && seatIn(guest.seat_).token() != 0)
        state()->host.schedule(seatIn(guest.seat_), due);
}

bool Host::post(Guest& guest, uint64_t token) noexcept {
    return !forked::here() && guest.seat_ && state()->host.post(seatIn(guest.seat_).token(), token);
}

quorl_status Host::listen(Guest& guest, uint32_t transport, std::string_view subject, uint32_t* listener) noexcept {
    State* mine = state();
    if (threadState() == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    if (mine == nullptr || !guest.seat_) return fail(QUORL_INVALID_ARG, "the guest is not on the host");
    try {
        const std::string pattern(subject);
        // NOLINTNEXTLINE(performance-no-int-to-ptr)
        const auto* closure = reinterpret_cast<const void*>(static_cast<uintptr_t>(seatIn(guest.seat_).token()));
        const transport::ListenerRequest request{.queue = mine->host.queue(),
                                                 .transport = transport,
                                                 .subject = pattern.c_str(),
                                                 .closure = closure,
                                                 .callback = nullptr,
                                                 .vectorCallback = nullptr,
                                                 .groupId = nullptr,
                                                 .vector = false,
                                                 .take = takeForGuest,
                                                 .owner = &mine->host};
        return transport::createListener(listener, request);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a listener");
    }
}

void Host::unlisten(uint32_t listener) noexcept {
    if (listener == 0) return;
    KeptErrorText kept;
    event::destroyEvent(listener, nullptr);
}

uint32_t Host::count() const noexcept {
    return state() != nullptr ? state()->host.count() : 0;
}

bool Host::isHostThread() const noexcept {
    return state() != nullptr && state()->host.isRunner(currentThreadState);
}

void Host::stop() noexcept {
    State* mine = state();
    if (mine == nullptr) return;
    const auto all = mine->host.guests([](const protocol::Guest&) { return true; });
    mine->host.stop();
    for (const auto& seat : all) static_cast<Seat&>(*seat).leave();
}

int64_t monotonicNow() noexcept {
    return quorl::monotonicNow();
}

int64_t wallNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

int64_t deadlineAfter(double seconds) noexcept {
    return quorl::deadlineAfter(seconds);
}

}  // namespace quorl::companion
