// Sending and asking on plain transports.
#include "companion/transport.h"

#include <array>
#include <new>

#include "base/clock.h"
#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "companion/access.h"
#include "message/traffic.h"
#include "transport/local.h"
#include "transport/transport.h"

namespace quorl::companion {
namespace {

using transport::Transport;

static_assert(noRoom == transport::Backend::noRoom);

// Calls ask(transport) under a read guard.
template <class F>
quorl_status asked(uint32_t id, F&& ask) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    auto* found = registry::find<Transport>(id);
    if (found == nullptr) return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", id);
    return ask(*thread, *found);
}

quorl_status refuseLocal(std::string_view subject) noexcept {
    return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" never leaves the process", static_cast<int>(subject.size()),
                subject.data());
}

}  // namespace

quorl_status send(uint32_t id, const Message& message) noexcept {
    return asked(id, [&](ThreadState& thread, Transport& to) {
        if (transport::local::staysHere(message.subject())) return refuseLocal(message.subject());
        const uint64_t bytes = message.image().size();
        const quorl_status status = to.backend->send(thread, Access::content(message));
        if (status == QUORL_OK) thread.part<message::Traffic>().sent(1, bytes);
        return status;
    });
}

uint32_t roomReports(uint32_t id) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return 0;
    const ReadGuard guard(*thread);
    auto* found = registry::find<Transport>(id);
    return found != nullptr ? found->state->roomReports() : 0;
}

quorl_status awaitRoom(uint32_t id, uint32_t seen, int64_t deadline) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    registry::Pin<Transport> found(*thread, id);
    if (found) found->state->awaitRoom(seen, deadline);
    if (!found || found->state->phase() == transport::TransportState::Phase::closed)
        return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", id);
    return QUORL_OK;
}

quorl_status checkSubject(uint32_t id, std::string_view subject) noexcept {
    return asked(id, [&](ThreadState&, Transport& to) {
        if (transport::local::staysHere(subject)) return refuseLocal(subject);
        return to.backend->check(subject);
    });
}

quorl_status createInbox(uint32_t id, std::string* inbox) noexcept {
    std::array<char, QUORL_SUBJECT_MAX + 1> text;
    const quorl_status status = transport::createInbox(id, text.data(), text.size());
    if (status != QUORL_OK) return status;
    try {
        *inbox = text.data();
        return status;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for an inbox");
    }
}

quorl_status passage(uint32_t id, std::string_view inbox, Passage* passage) noexcept {
    return asked(id, [&](ThreadState&, Transport& of) {
        const transport::Passage known = of.backend->passage(inbox, quorl::monotonicNow());
        *passage = {known.passed, known.handedOn, known.arriving, known.lossAt, known.lossless};
        return QUORL_OK;
    });
}

}  // namespace quorl::companion
