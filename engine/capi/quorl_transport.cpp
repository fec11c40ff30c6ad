// Transports and virtual circuits.
#include <cmath>
#include <cstring>
#include <new>

#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "base/utf8.h"
#include "transport/circuit/circuit.h"
#include "transport/transport.h"

using namespace quorl;
using transport::Transport;

namespace {

constexpr size_t longestDescription = 255;

quorl_status noPlace() noexcept {
    return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
}

// Calls set(Transport&) on the transport of that id, under its lock.
template <class F>
quorl_status change(quorlTransport id, F&& set) UNCHECKED_GUARDS {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    auto* found = registry::find<Transport>(id);
    if (found == nullptr) return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", id);
    Lock lock(found->lock);
    set(*found);
    found->backend->configure(found->settings);
    return QUORL_OK;
}

}  // namespace

extern "C" {

quorl_status quorlTransport_Create(quorlTransport* transport, const char* service, const char* network,
                                   const char* daemon) noexcept {
    if (transport == nullptr) return noPlace();
    return transport::createTransport(transport, service, network, daemon);
}

quorl_status quorlTransport_Destroy(quorlTransport transport) noexcept {
    return transport::destroyTransport(transport);
}

quorl_status quorlTransport_SetDescription(quorlTransport transport, const char* description) noexcept {
    if (description == nullptr || strnlen(description, longestDescription + 1) > longestDescription)
        return fail(QUORL_INVALID_ARG, "the description is null or has more than %zu bytes", longestDescription);
    if (!utf8::validOrPaired(description)) return fail(QUORL_INVALID_ARG, "the description is not UTF-8");
    try {
        std::string copy(description);
        return change(transport, [&](Transport& found) REQUIRES(found.lock) {
            found.description.swap(copy);
            found.backend->describe(found.description);
        });
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a description");
    }
}

quorl_status quorlTransport_RequestReliability(quorlTransport transport, quorl_f64 reliability) noexcept {
    if (!std::isfinite(reliability) || reliability < 0)
        return fail(QUORL_INVALID_TIME_INTERVAL, "%g seconds are not a valid interval: give a finite number from 0",
                    reliability);
    return change(transport, [&](Transport& found) REQUIRES(found.lock) { found.settings.reliability = reliability; });
}

quorl_status quorlTransport_SetBatchMode(quorlTransport transport, quorlTransportBatchMode mode) noexcept {
    if (mode != QUORLTRANSPORT_DEFAULT_BATCH && mode != QUORLTRANSPORT_TIMER_BATCH)
        return fail(QUORL_INVALID_ARG, "batch mode %d does not exist", static_cast<int>(mode));
    return change(transport, [&](Transport& found) REQUIRES(found.lock) { found.settings.batchMode = mode; });
}

quorl_status quorlTransport_SetBatchSize(quorlTransport transport, quorl_u32 numBytes) noexcept {
    return change(transport, [&](Transport& found) REQUIRES(found.lock) { found.settings.batchSize = numBytes; });
}

quorl_status quorlTransport_CreateInbox(quorlTransport transport, char* subject, quorl_u32 limit) noexcept {
    if (subject == nullptr) return noPlace();
    return transport::createInbox(transport, subject, limit);
}

quorl_status quorlTransport_Send(quorlTransport transport, quorlMsg message) noexcept {
    return transport::send(transport, message);
}

quorl_status quorlTransport_Sendv(quorlTransport transport, const quorlMsg* messages, quorl_u32 count) noexcept {
    return transport::sendAll(transport, messages, count);
}

quorl_status quorlTransport_SendRequest(quorlTransport transport, quorlMsg request, quorlMsg* reply,
                                        quorl_f64 timeout) noexcept {
    if (reply == nullptr) return noPlace();
    if (std::isnan(timeout)) return fail(QUORL_INVALID_ARG, "the timeout is not a number");
    return transport::sendRequest(transport, request, reply, timeout);
}

quorl_status quorlTransport_SendReply(quorlTransport transport, quorlMsg reply, quorlMsg request) noexcept {
    return transport::sendReply(transport, reply, request);
}

quorl_status quorlTransport_CreateAcceptVc(quorlTransport* circuit, const char** connectSubject,
                                           quorlTransport parent) noexcept {
    if (circuit == nullptr || connectSubject == nullptr) return noPlace();
    return transport::circuit::createAccept(circuit, connectSubject, parent);
}

quorl_status quorlTransport_CreateConnectVc(quorlTransport* circuit, const char* connectSubject,
                                            quorlTransport parent) noexcept {
    if (circuit == nullptr) return noPlace();
    return transport::circuit::createConnect(circuit, connectSubject, parent);
}

quorl_status quorlTransport_WaitForVcConnection(quorlTransport circuit, quorl_f64 timeout) noexcept {
    if (std::isnan(timeout)) return fail(QUORL_INVALID_ARG, "the timeout is not a number");
    return transport::circuit::waitForConnection(circuit, timeout);
}

}  // extern "C"
