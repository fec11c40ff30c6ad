// Making and destroying transports, and their inboxes.
#include "transport/transport.h"

#include <sys/random.h>

#include <charconv>
#include <cstring>
#include <new>

#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/queue.h"
#include "transport/backends.h"
#include "transport/parameters.h"

namespace quorl::transport {
namespace {

constinit std::atomic<EndingWatch*> watches{nullptr};  // only ever grows, while the library starts

template <class F>
void forEachWatch(F&& tell) noexcept {
    for (const EndingWatch* watch = watches.load(std::memory_order_acquire); watch != nullptr; watch = watch->next)
        tell(*watch);
}

// Ends all requests that wait on the transport.
void abortAll(Transport& transport) noexcept REQUIRES(transport.lock) {
    for (Request* request = transport.requests; request != nullptr; request = request->next) {
        uint32_t state = Request::waiting;
        if (request->state->compare_exchange_strong(state, Request::aborted, std::memory_order_relaxed))
            futexWake(*request->state);
    }
}

void destroyRecord(Record* record) noexcept {
    delete static_cast<Transport*>(record);
}

// "_INBOX.", 24 hexadecimal digits that no other transport in the world has, and a point.
bool makeInboxPrefix(std::string& prefix) {
    std::array<unsigned char, 12> random;
    size_t have = 0;
    while (have < random.size()) {
        const ssize_t got = getrandom(random.data() + have, random.size() - have, 0);
        if (got <= 0) return false;
        have += static_cast<size_t>(got);
    }
    prefix = "_INBOX.";
    for (const unsigned char byte : random) {
        prefix += "0123456789abcdef"[byte >> 4];
        prefix += "0123456789abcdef"[byte & 15];
    }
    prefix += '.';
    return true;
}

// A daemon's address in the wrong place would make a bus that nobody else is on. What ends with '@' in it may be a password.
quorl_status refuseBusName(quorl_status status, const char* kind, std::string_view name) noexcept {
    if (name.find("://") != std::string_view::npos)
        return fail(status, "the %s name is an address, which belongs in the parameter for the daemon", kind);
    if (const size_t secret = name.rfind('@'); secret != std::string_view::npos) name.remove_prefix(secret + 1);
    return fail(status,
                "\"%.*s\" is not a valid %s name: a name has at most 63 bytes of printable ASCII, without blanks",
                static_cast<int>(std::min<size_t>(name.size(), 80)), name.data(), kind);
}

}  // namespace

quorl_status createTransport(uint32_t* id, const char* service, const char* network, const char* daemon) noexcept {
    if (!environment::isOpen()) return environment::requireOpen();
    const Parameters& defaults = environment::parameters();
    const auto orDefault = [&](const char* given, const TextParameter& parameter) -> std::string_view {
        return given != nullptr ? std::string_view(given) : defaults.of(parameter);
    };
    const std::string_view serviceName = orDefault(service, parameters::service);
    const std::string_view networkName = orDefault(network, parameters::network);
    const std::string_view daemonName = orDefault(daemon, parameters::daemon);
    if (!parameters::validBusName(serviceName)) return refuseBusName(QUORL_SERVICE_NOT_FOUND, "service", serviceName);
    if (!parameters::validBusName(networkName)) return refuseBusName(QUORL_NETWORK_NOT_FOUND, "network", networkName);
    std::unique_ptr<Backend> backend;
    const quorl_status status = openBackend({daemonName, serviceName, networkName}, &backend);
    if (status != QUORL_OK) return status;
    return publishTransport(id, std::move(backend));
}

Transport::~Transport() {
    if (state != nullptr) backend->unobserve(*state);
}

quorl_status publishTransport(uint32_t* id, std::unique_ptr<Backend> backend) noexcept {
    const uint32_t reserved = registry::reserve();
    if (reserved == 0) return registry::noId("transport");
    std::unique_ptr<Transport> transport;
    quorl_status status = QUORL_OK;
    try {
        transport = std::make_unique<Transport>();
        transport->destroy = destroyRecord;
        if (!makeInboxPrefix(transport->inboxPrefix))
            status = fail(QUORL_OS_ERROR, "the system provides no random numbers");
        transport->backend = std::move(backend);
        transport->state = std::make_shared<TransportState>(reserved);
        transport->backend->observe(transport->state);
    } catch (const std::bad_alloc&) {
        status = fail(QUORL_NO_MEMORY, "no memory for a transport");
    }
    if (status == QUORL_OK && !registry::publish(*transport, reserved, QUORL_OBJECT_TRANSPORT))
        status = fail(QUORL_NOT_INITIALIZED, "the library is not open");
    if (status != QUORL_OK) {
        registry::abandon(reserved);
        return status;
    }
    static_cast<void>(transport.release());  // the registry's
    *id = reserved;
    return QUORL_OK;
}

namespace {

quorl_status closeTransport(ThreadState& thread, uint32_t id, std::shared_ptr<Ending>* ending) noexcept {
    ReadGuard guard(thread);
    if (auto* open = registry::find<Transport>(id); open != nullptr && open->state->isParent())
        forEachWatch([&](const EndingWatch& watch) { watch.closes(id); });
    Record* record = registry::close(id, QUORL_OBJECT_TRANSPORT);
    if (record == nullptr) return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", id);
    auto& transport = static_cast<Transport&>(*record);
    {
        Lock lock(transport.lock);
        transport.closed = true;
        for (Listener* listener = transport.listeners; listener != nullptr; listener = listener->next) {
            listener->attached = false;
            stopListening(*listener);
            event::cutOff(*listener);
        }
        transport.listeners = nullptr;
        abortAll(transport);
        transport.backend->close();
    }
    transport.state->close();
    if (transport.state->isParent()) forEachWatch([&](const EndingWatch& watch) { watch.closed(id); });
    transport.backend->closed(thread);
    *ending = transport.backend->ending();
    registry::retire(transport);
    return QUORL_OK;
}

}  // namespace

quorl_status destroyTransport(uint32_t id, bool wait) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    for (const EndingWatch* watch = watches.load(std::memory_order_acquire); watch != nullptr; watch = watch->next) {
        if (watch->announced != nullptr) watch->announced(id);
    }
    std::shared_ptr<Ending> ending;
    const quorl_status status = closeTransport(*thread, id, &ending);
    return status == QUORL_OK && wait && ending != nullptr ? ending->await() : status;
}

void watchEnding(EndingWatch& watch) noexcept {
    for (const EndingWatch* each = watches.load(std::memory_order_relaxed); each != nullptr; each = each->next) {
        if (each == &watch) return;
    }
    watch.next = watches.load(std::memory_order_relaxed);
    watches.store(&watch, std::memory_order_release);
}

void wayIsLost(uint32_t id, bool parent) noexcept {
    if (ThreadState* thread = threadState(); thread != nullptr) {
        ReadGuard guard(*thread);
        if (auto* transport = registry::find<Transport>(id); transport != nullptr) {
            Lock lock(transport->lock);
            abortAll(*transport);
        }
    }
    if (parent) forEachWatch([&](const EndingWatch& watch) { watch.lost(id); });
}

void wayIsBack(uint32_t id) noexcept {
    forEachWatch([&](const EndingWatch& watch) {
        if (watch.back != nullptr) watch.back(id);
    });
}

Passage Backend::passage(std::string_view, int64_t now) noexcept {
    return Passage::open(now);
}

quorl_status Backend::whyAborted() const noexcept {
    return fail(QUORL_INTR, "the transport was closed while the request waited");
}

quorl_status createInbox(uint32_t id, char* subject, uint32_t limit) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    auto* transport = registry::find<Transport>(id);
    if (transport == nullptr) return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", id);
    const uint64_t number = transport->inboxes.fetch_add(1, std::memory_order_relaxed) + 1;
    std::array<char, 20> digits;
    const auto written = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    const size_t count = static_cast<size_t>(written.ptr - digits.data());
    const std::string& prefix = transport->inboxPrefix;
    if (prefix.size() + count + 1 > limit)
        return fail(QUORL_INSUFFICIENT_BUFFER, "the buffer for an inbox needs %zu bytes and has %u",
                    prefix.size() + count + 1, limit);
    std::memcpy(subject, prefix.data(), prefix.size());
    std::memcpy(subject + prefix.size(), digits.data(), count);
    subject[prefix.size() + count] = '\0';
    return QUORL_OK;
}

}  // namespace quorl::transport
