// Making circuits, waiting for them, and ending them with the transport below.
#include "transport/circuit/circuit.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "subject/subject.h"
#include "transport/circuit/backend.h"
#include "transport/circuit/end.h"
#include "transport/circuit/parameters.h"
#include "transport/transport.h"

namespace quorl::transport::circuit {
namespace {

// A circuit.timeout beyond it means for ever; sums of times do not wrap.
constexpr int64_t longestSilence = int64_t{365} * 86'400 * 1'000'000'000;

// Draws what tells a circuit from all others in the world.
bool drawSession(uint64_t* session) noexcept {
    return getrandom(session, sizeof *session, 0) == static_cast<ssize_t>(sizeof *session);
}

EndRef endOf(protocol::GuestRef guest) noexcept {
    return std::static_pointer_cast<End>(std::move(guest));
}

// The ends over any of the transports. Throws std::bad_alloc.
std::vector<EndRef> endsOver(std::vector<uint32_t> transports) {
    std::ranges::sort(transports);
    std::vector<EndRef> found;
    for (auto& guest : host().guests([&](const protocol::Guest& guest) {
             return std::ranges::binary_search(transports, static_cast<const End&>(guest).parent());
         }))
        found.push_back(endOf(std::move(guest)));
    return found;
}

// All ends, the youngest first: those of circuits that run over others come before them.
std::vector<protocol::GuestRef> allEnds() noexcept {
    std::vector<protocol::GuestRef> all = host().guests([](const protocol::Guest&) { return true; });
    std::ranges::sort(all, std::ranges::greater(), [](const auto& guest) { return guest->token(); });
    return all;
}

// What is known of a transport that is to carry a circuit, and knows so.
struct Below {
    bool lossless = false;
    uint32_t largest = 0;  // bytes of a message of the circuit's that fits into one of it
};
Below standOn(ThreadState& thread, uint32_t id, std::string_view inbox) noexcept {
    ReadGuard guard(thread);
    auto* transport = registry::find<Transport>(id);
    if (transport == nullptr) return {};
    transport->state->beParent();
    const uint32_t largest = transport->state->largest();
    return {transport->backend->passage(inbox, monotonicNow()).lossless,
            largest > roomOfFrames ? largest - roomOfFrames : 0};
}

bool isLost(ThreadState& thread, uint32_t id) noexcept {
    ReadGuard guard(thread);
    auto* transport = registry::find<Transport>(id);
    return transport != nullptr && transport->state->phase() == TransportState::Phase::lost;
}

bool isOver(const protocol::Guest& guest, uint32_t parent) noexcept {
    return static_cast<const End&>(guest).parent() == parent;
}

// peer: null for an accepting end.
quorl_status create(uint32_t* id, uint32_t parent, const char* peer, EndRef* made) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    try {
        std::array<char, QUORL_SUBJECT_MAX + 1> inbox;
        if (const quorl_status status = createInbox(parent, inbox.data(), inbox.size()); status != QUORL_OK)
            return status;
        const std::string address = inbox.data();
        Settings settings;
        settings.lostAfter = std::min(nanosecondsOf(environment::parameters().of(parameters::timeout)), longestSilence);
        const Below below = standOn(*thread, parent, address);
        settings.lossless = below.lossless;
        uint64_t session = 0;
        if (peer != nullptr && !drawSession(&session))
            return fail(QUORL_OS_ERROR, "the system provides no random numbers");
        const auto end = std::make_shared<End>(
            peer != nullptr ? Machine(settings, session, address, peer, monotonicNow()) : Machine(settings), parent,
            address, below.largest);
        auto backend = std::make_unique<CircuitBackend>(end);
        if (const quorl_status status = End::start(end); status != QUORL_OK) return status;
        uint32_t published = 0;
        if (const quorl_status status = publishTransport(&published, std::move(backend)); status != QUORL_OK) {
            end->retire();
            return status;
        }
        end->published(published);
        if (peer != nullptr) end->attend(*thread);
        // The transport below may have been lost before the end was there to be told.
        if (isLost(*thread, parent)) host().schedule(*end, monotonicNow());
        *id = published;
        *made = end;
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a circuit");
    }
}

}  // namespace

quorl_status createAccept(uint32_t* id, const char** subject, uint32_t parent) noexcept {
    EndRef end;
    const quorl_status status = create(id, parent, nullptr, &end);
    if (status == QUORL_OK) *subject = end->address().c_str();
    return status;
}

quorl_status createConnect(uint32_t* id, const char* subject, uint32_t parent) noexcept {
    if (subject == nullptr) return fail(QUORL_INVALID_SUBJECT, "no subject to connect to");
    const std::string_view text(subject, strnlen(subject, QUORL_SUBJECT_MAX + 1));
    if (!subject::isInbox(text) || !subject::validForSending(text))
        return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" is not the subject of an accepting end", QUORL_SUBJECT_MAX,
                    subject);
    EndRef end;
    return create(id, parent, subject, &end);
}

quorl_status waitForConnection(uint32_t id, double timeout) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    registry::Pin<Transport> transport(*thread, id);
    if (!transport) return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", id);
    auto* backend = dynamic_cast<CircuitBackend*>(transport->backend.get());
    if (backend == nullptr) return fail(QUORL_INVALID_TRANSPORT, "transport %u is not a circuit", id);
    const int64_t deadline = deadlineAfter(timeout);
    transport->state->awaitConnected(deadline);
    backend->end().settle();
    switch (transport->state->phase()) {
        case TransportState::Phase::connected:
            return QUORL_OK;
        case TransportState::Phase::lost:
            return backend->end().notConnected();
        case TransportState::Phase::closed:
            return fail(QUORL_INTR, "the circuit was closed while a thread waited for it");
        default:
            return fail(QUORL_TIMEOUT, "the circuit was not connected in time");
    }
}

// From the top down, so that what waits in a circuit finds its way through those below it.
void parentCloses(uint32_t parent) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr || host().count() == 0) return;
    std::vector<EndRef> over;
    try {
        for (std::vector<uint32_t> transports{parent}; !transports.empty();) {
            const std::vector<EndRef> next = endsOver(transports);
            over.insert(over.end(), next.begin(), next.end());
            transports.clear();
            for (const EndRef& end : next) transports.push_back(end->transport());
        }
    } catch (const std::bad_alloc&) {
        // Those that were not found cannot say good-bye.
    }
    for (auto end = over.rbegin(); end != over.rend(); ++end) (*end)->abandon(*thread, parentIsClosed);
}

void parentClosed(uint32_t parent) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr || host().count() == 0) return;
    try {
        for (const EndRef& end : endsOver({parent})) end->fail(*thread, parentIsClosed);
    } catch (const std::bad_alloc&) {
        // They find it themselves.
    }
    parentLost(parent);
}

// Whoever reports the loss may be inside a step of an end above, which it sends for: the ends look for themselves, on the
// host's thread.
void parentLost(uint32_t parent) noexcept {
    if (host().count() == 0) return;
    host().wakeAll([parent](const protocol::Guest& guest) { return isOver(guest, parent); });
}

void stop() noexcept {
    if (ThreadState* thread = threadState(); thread != nullptr) {
        for (const protocol::GuestRef& guest : allEnds()) {
            auto& end = static_cast<End&>(*guest);
            end.abandon(*thread, "the library was closed");
            end.retire();
        }
    }
    host().stop();
}

}  // namespace quorl::transport::circuit
