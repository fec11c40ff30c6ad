// Certified transports.
#include <cmath>
#include <new>

#include "certified/node.h"
#include "certified/time_limit.h"
#include "companion/status.h"
#include "quorl/private.h"
#include "quorl/quorlcm.h"

using namespace quorl::certified;
using quorl::companion::CertifiedTransport;
using quorl::companion::fail;
using quorl::companion::Hold;
using quorl::companion::Type;

namespace {

// Calls ask(node) with the transport held.
template <class F>
quorl_status with(quorlcmTransport id, F&& ask) noexcept {
    const Hold<CertifiedTransport> held(Type::certifiedTransport, id);
    if (!held) return held.status();
    if (held->isQueue())
        return fail(
            QUORL_NOT_PERMITTED,
            "certified transport %u is a distributed queue, which takes tasks and sends nothing; create a certified "
            "transport of its own for that",
            id);
    return ask(static_cast<Node&>(*held));
}

quorl_status nullPlace() noexcept {
    return fail(QUORL_INVALID_ARG, "the pointer for the result is null");
}

// A text of the program's, which may be null.
std::string_view textOf(const char* text) noexcept {
    return text != nullptr ? std::string_view(text) : std::string_view();
}

}  // namespace

extern "C" {

const char* quorlcm_Version(void) noexcept {
    return quorl_Version();
}

quorl_status quorlcmTransport_Create(quorlcmTransport* cmTransport, quorlTransport transport, const char* cmName,
                                     quorl_bool requestOld, const char* ledgerName, quorl_bool syncLedger,
                                     const char* relayAgent) noexcept {
    if (cmTransport == nullptr) return nullPlace();
    if (cmName != nullptr && *cmName == '\0') return fail(QUORL_INVALID_NAME, "the certified name is empty");
    if (ledgerName != nullptr && *ledgerName == '\0') return fail(QUORL_INVALID_ARG, "the name of the ledger is empty");
    if (relayAgent != nullptr && *relayAgent == '\0')
        return fail(QUORL_INVALID_NAME, "the name of the relay agent is empty");
    try {
        return Node::create({.transport = transport,
                             .name = std::string(textOf(cmName)),
                             .requestOld = requestOld != QUORL_FALSE,
                             .ledger = std::string(textOf(ledgerName)),
                             .sync = syncLedger != QUORL_FALSE,
                             .relay = std::string(textOf(relayAgent))},
                            cmTransport);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a certified transport");
    }
}

quorl_status quorlcmTransport_Destroy(quorlcmTransport cmTransport) noexcept {
    return quorl::companion::close(Type::certifiedTransport, cmTransport);
}

quorl_status quorlcmTransport_DestroyEx(quorlcmTransport cmTransport, quorlcmTransportOnComplete completion,
                                        const void* closure) noexcept {
    {
        const Hold<CertifiedTransport> held(Type::certifiedTransport, cmTransport);
        if (held && held->isQueue()) return held->leave(completion, closure);
    }
    return CertifiedTransport::closeWith(cmTransport, completion, closure);
}

quorl_status quorlcmTransport_Send(quorlcmTransport cmTransport, quorlMsg message) noexcept {
    return with(cmTransport, [&](Node& node) { return node.send(message); });
}

quorl_status quorlcmTransport_SendRequest(quorlcmTransport cmTransport, quorlMsg request, quorlMsg* reply,
                                          quorl_f64 timeout) noexcept {
    if (reply == nullptr) return nullPlace();
    if (std::isnan(timeout)) return fail(QUORL_INVALID_ARG, "the time limit is not a number");
    return with(cmTransport, [&](Node& node) { return node.sendRequest(request, reply, timeout); });
}

quorl_status quorlcmTransport_SendReply(quorlcmTransport cmTransport, quorlMsg reply, quorlMsg request) noexcept {
    return with(cmTransport, [&](Node& node) { return node.sendReply(reply, request); });
}

quorl_status quorlcmTransport_AllowListener(quorlcmTransport cmTransport, const char* cmName) noexcept {
    return with(cmTransport, [&](Node& node) {
        return node.call(
            [&](Machine& machine, Now now, Output& out) { return machine.allowListener(textOf(cmName), now, out); });
    });
}

quorl_status quorlcmTransport_DisallowListener(quorlcmTransport cmTransport, const char* cmName) noexcept {
    return with(cmTransport, [&](Node& node) {
        return node.call(
            [&](Machine& machine, Now now, Output& out) { return machine.disallowListener(textOf(cmName), now, out); });
    });
}

quorl_status quorlcmTransport_AddListener(quorlcmTransport cmTransport, const char* cmName,
                                          const char* subject) noexcept {
    return with(cmTransport, [&](Node& node) {
        return node.call([&](Machine& machine, Now now, Output& out) {
            return machine.addListener(textOf(cmName), textOf(subject), now, out);
        });
    });
}

quorl_status quorlcmTransport_RemoveListener(quorlcmTransport cmTransport, const char* cmName,
                                             const char* subject) noexcept {
    return with(cmTransport, [&](Node& node) {
        return node.call([&](Machine& machine, Now now, Output& out) {
            return machine.removeListener(textOf(cmName), textOf(subject), now, out);
        });
    });
}

quorl_status quorlcmTransport_RemoveSendState(quorlcmTransport cmTransport, const char* subject) noexcept {
    return with(cmTransport, [&](Node& node) {
        return node.call(
            [&](Machine& machine, Now now, Output& out) { return machine.removeSendState(textOf(subject), now, out); });
    });
}

quorl_status quorlcmTransport_ExpireMessages(quorlcmTransport cmTransport, const char* subject,
                                             quorl_u64 sequenceNumber) noexcept {
    return with(cmTransport, [&](Node& node) {
        return node.call([&](Machine& machine, Now now, Output& out) {
            return machine.expireMessages(textOf(subject), sequenceNumber, now, out);
        });
    });
}

quorl_status quorlcmTransport_SyncLedger(quorlcmTransport cmTransport) noexcept {
    return with(cmTransport, [](Node& node) { return node.sync(); });
}

quorl_status quorlcmTransport_ConnectToRelayAgent(quorlcmTransport cmTransport) noexcept {
    return with(cmTransport, [](Node& node) { return node.connect(); });
}

quorl_status quorlcmTransport_DisconnectFromRelayAgent(quorlcmTransport cmTransport) noexcept {
    return with(cmTransport, [](Node& node) { return node.disconnect(); });
}

quorl_status quorlcmTransport_SetDefaultCMTimeLimit(quorlcmTransport cmTransport, quorl_f64 timeLimit) noexcept {
    return with(cmTransport, [&](Node& node) {
        int64_t limit = 0;
        if (const quorl_status status = readTimeLimit(timeLimit, &limit); status != QUORL_OK) return status;
        return node.call([&](Machine& machine, Now, Output&) {
            machine.setDefaultTimeLimit(limit == neverExpires ? 0 : limit);
            return QUORL_OK;
        });
    });
}

quorl_status quorlcmTransport_SetPublisherInactivityDiscardInterval(quorlcmTransport cmTransport,
                                                                    quorl_i32 timeout) noexcept {
    return with(cmTransport, [&](Node& node) {
        if (timeout < 0) return fail(QUORL_INVALID_ARG, "an interval of %d seconds is none; 0 is never", timeout);
        return node.call([&](Machine& machine, Now now, Output& out) {
            machine.setPublisherInactivity(int64_t{timeout} * 1'000'000'000, now, out);
            return QUORL_OK;
        });
    });
}

quorl_status quorlcmTransport_ReviewLedger(quorlcmTransport cmTransport, quorlcmReviewCallback callback,
                                           const char* subject, const void* closure) noexcept {
    if (callback == nullptr) return fail(QUORL_INVALID_CALLBACK, "the callback of the review is null");
    return with(cmTransport, [&](Node& node) { return node.review(subject, callback, closure); });
}

}  // extern "C"
