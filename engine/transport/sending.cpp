// Sending, singly, in vectors, and as requests and replies.
#include <array>
#include <memory>
#include <new>
#include <vector>

#include "base/clock.h"
#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "message/traffic.h"
#include "subject/subject.h"
#include "transport/local.h"
#include "transport/transport.h"

namespace quorl::transport {
namespace {

quorl_status noThreadState() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
}

quorl_status noTransport(uint32_t id) noexcept {
    return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", id);
}

// Sends what stays in the process: publishes an advisory, or answers a question to its reply subject.
quorl_status sendHere(Transport& transport, ThreadState& thread, message::ContentRef content) noexcept {
    const std::string_view address = content.replySubject();
    if (address.empty()) return local::publish(thread, std::move(content));
    message::ContentRef reply;
    if (const quorl_status status = local::answer(content.sendSubject(), &reply); status != QUORL_OK) return status;
    if (!reply) return local::publish(thread, std::move(content));
    message::ContentRef addressed;
    if (const quorl_status status = message::withSubjects(reply, address, {}, &addressed); status != QUORL_OK)
        return status;
    Backend& backend = *transport.backend;
    if (subject::isInbox(address)) return backend.deliver(thread, std::move(addressed));
    return local::staysHere(address) ? QUORL_OK : backend.send(thread, std::move(addressed));
}

// Every message of the program goes out here. Under a read guard.
quorl_status sendOut(Transport& transport, ThreadState& thread, message::ContentRef content) noexcept {
    const uint64_t bytes = content.byteSize();
    quorl_status status;
    if (subject::isSystem(content.sendSubject()) && local::staysHere(content.sendSubject())) [[unlikely]]
        status = sendHere(transport, thread, std::move(content));
    else
        status = transport.backend->send(thread, std::move(content));
    if (status == QUORL_OK) thread.part<message::Traffic>().sent(1, bytes);
    return status;
}

// Calls attempt, which sends under a read guard of its own, until it says something else than that there is no room.
// QUORL_TIMEOUT: it still says so at the deadline.
template <class F>
quorl_status untilThereIsRoom(ThreadState& thread, uint32_t id, int64_t deadline, F&& attempt) noexcept {
    uint32_t seen = 0;
    for (bool again = false;; again = true) {
        const quorl_status status = attempt();
        if (status != Backend::noRoom) [[likely]]
            return status;
        if (deadline != forever && monotonicNow() >= deadline)
            return fail(QUORL_TIMEOUT, "the transport had no room for the message within the time limit");
        registry::Pin<Transport> transport(thread, id);
        if (!transport) return noTransport(id);
        // Only what is reported after it was asked for is sure to be seen, so the first time is another attempt.
        if (again) transport->state->awaitRoom(seen, deadline);
        seen = transport->state->roomReports();
    }
}

void link(Transport& transport, Request& request) noexcept REQUIRES(transport.lock) {
    request.next = transport.requests;
    if (request.next != nullptr) request.next->previous = &request;
    transport.requests = &request;
}

void unlink(Transport& transport, Request& request) noexcept {
    Lock lock(transport.lock);
    (request.previous != nullptr ? request.previous->next : transport.requests) = request.next;
    if (request.next != nullptr) request.next->previous = request.previous;
}

}  // namespace

quorl_status send(uint32_t id, quorlMsg message) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return noThreadState();
    return untilThereIsRoom(*thread, id, forever, [&]() noexcept {
        ReadGuard guard(*thread);
        auto* transport = registry::find<Transport>(id);
        if (transport == nullptr) return noTransport(id);
        message::ContentRef content;
        if (const quorl_status status = message::snapshot(message, &content); status != QUORL_OK) return status;
        return sendOut(*transport, *thread, std::move(content));
    });
}

quorl_status sendAll(uint32_t id, const quorlMsg* messages, uint32_t count) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return noThreadState();
    std::vector<message::ContentRef> contents;
    {
        ReadGuard guard(*thread);
        auto* transport = registry::find<Transport>(id);
        if (transport == nullptr) return noTransport(id);
        if (count != 0 && messages == nullptr)
            return fail(QUORL_INVALID_ARG, "the array of messages is null, but the count is %u", count);
        try {
            contents.resize(count);
        } catch (const std::bad_alloc&) {
            return fail(QUORL_NO_MEMORY, "no memory for a vector of %u messages", count);
        }
        for (uint32_t i = 0; i < count; ++i) {
            quorl_status status = message::snapshot(messages[i], &contents[i]);
            if (status == QUORL_OK) status = transport->backend->check(contents[i].sendSubject());
            if (status != QUORL_OK) return failWithin(status, "message %u of %u", i + 1, count);
        }
    }
    uint32_t sent = 0;
    return untilThereIsRoom(*thread, id, forever, [&]() noexcept {
        ReadGuard guard(*thread);
        auto* transport = registry::find<Transport>(id);
        if (transport == nullptr) return noTransport(id);
        for (; sent < count; ++sent) {
            const quorl_status status = sendOut(*transport, *thread, contents[sent]);
            if (status != QUORL_OK) return status;
        }
        return QUORL_OK;
    });
}

quorl_status sendReply(uint32_t id, quorlMsg reply, quorlMsg request) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return noThreadState();
    return untilThereIsRoom(*thread, id, forever, [&]() noexcept {
        ReadGuard guard(*thread);
        auto* transport = registry::find<Transport>(id);
        if (transport == nullptr) return noTransport(id);
        message::ContentRef asked;
        message::ContentRef answer;
        if (const quorl_status status = message::snapshot(reply, &answer); status != QUORL_OK) return status;
        if (const quorl_status status = message::snapshot(request, &asked); status != QUORL_OK) return status;
        const std::string_view address = asked.replySubject();
        if (address.empty()) return fail(QUORL_INVALID_SUBJECT, "the request has no reply subject");
        message::ContentRef addressed;
        if (const quorl_status status = message::withSubjects(answer, address, answer.replySubject(), &addressed);
            status != QUORL_OK)
            return status;
        return sendOut(*transport, *thread, std::move(addressed));
    });
}

quorl_status sendRequest(uint32_t id, quorlMsg message, quorlMsg* reply, double timeout) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return noThreadState();
    registry::Pin<Transport> transport(*thread, id);
    if (!transport) return noTransport(id);
    const int64_t deadline = deadlineAfter(timeout);
    Request request(*thread);
    std::array<char, QUORL_SUBJECT_MAX + 1> inbox;
    quorl_status status;
    {
        message::ContentRef asked;
        status = message::snapshot(message, &asked);
        if (status == QUORL_OK) status = transport->backend->check(asked.sendSubject());
        if (status == QUORL_OK) status = createInbox(id, inbox.data(), inbox.size());
        // What the engine itself answers needs no inbox; the request gets one all the same, as every request does.
        if (status == QUORL_OK) status = local::answer(asked.sendSubject(), &request.reply);
    }
    if (status == QUORL_OK) status = message::setReplySubject(message, inbox.data());
    if (status != QUORL_OK) return status;
    if (request.reply) return message::handOver(std::move(request.reply), reply);
    try {
        request.inbox = inbox.data();
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a request");
    }
    {
        Lock lock(transport->lock);
        if (transport->closed) return noTransport(id);
        status = transport->backend->openRequest(request);
        if (status != QUORL_OK) return status;
        link(*transport, request);
    }
    status = untilThereIsRoom(*thread, id, deadline, [&]() noexcept {
        ReadGuard guard(*thread);
        message::ContentRef content;
        if (const quorl_status failed = message::snapshot(message, &content); failed != QUORL_OK) return failed;
        return sendOut(*transport, *thread, std::move(content));
    });
    if (status == QUORL_OK) {
        while (request.state->load(std::memory_order_acquire) == Request::waiting) {
            if (!futexWait(*request.state, Request::waiting, deadline)) break;
        }
    }
    unlink(*transport, request);
    transport->backend->closeRequest(request);
    if (status != QUORL_OK) return status;
    switch (request.state->load(std::memory_order_acquire)) {
        case Request::replied:
            return message::handOver(std::move(request.reply), reply);
        case Request::aborted:
            return transport->backend->whyAborted();
        default:
            return fail(QUORL_TIMEOUT, "no reply came in time");
    }
}

}  // namespace quorl::transport
