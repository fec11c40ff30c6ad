// What a program asks of a certified transport: sending, requests, listening, looking into the ledger.
#include <chrono>
#include <cstring>
#include <new>

#include "certified/listener.h"
#include "certified/node.h"
#include "certified/protocol/subject.h"
#include "certified/time_limit.h"
#include "companion/builder.h"
#include "companion/status.h"
#include "companion/transport.h"

namespace quorl::certified {

using companion::fail;
using companion::Message;
using companion::Type;

namespace {

// Ids of events never have these numbers: the lower bits are a slot, and slot 0 is none.
constexpr uint32_t requestStep = 1u << 22;

constexpr int64_t relayPatience = 10'000'000'000;  // nanoseconds

}  // namespace

// ---- sending

// The message goes out, or is kept until it can; what only the transport refuses is the program's to know.
template <class F>
quorl_status Node::sendBy(const Message& message, F&& change) noexcept {
    if (const quorl_status status = companion::checkSubject(transport_, message.subject()); status != QUORL_OK)
        return status;
    After after;
    const quorl_status status = locked(std::forward<F>(change), after);
    const quorl_status refused = after.sent;
    const quorl_status stored = finish(after, Waits::yes);
    if (status != QUORL_OK) return explain(status);
    if (stored != QUORL_OK) return stored;
    if (after.waitsForRoom) flushAll(INT64_MAX);
    if (refused != QUORL_OK) {
        const std::lock_guard lock(lock_);
        if (machine_.counts().agreements == 0)
            return fail(refused, "the transport refused the message, and no listener is registered");
    }
    ++figures().accepted;
    return QUORL_OK;
}

quorl_status Node::send(quorlMsg handle) noexcept {
    Message message;
    int64_t limit = 0;
    quorl_status status = Message::of(handle, &message);
    if (status == QUORL_OK) status = timeLimitOf(handle, &limit);
    if (status != QUORL_OK) return status;
    uint64_t number = 0;
    status = sendBy(message, [&](Machine& machine, Now now, Output& out) {
        return machine.send(message, limit, now, out, &number, &limit);
    });
    if (status == QUORL_OK) noteSent(handle, name_, number, limit);
    return status;
}

quorl_status Node::sendReply(quorlMsg reply, quorlMsg request) noexcept {
    Message answer;
    Message asked;
    Message whole;
    int64_t limit = 0;
    quorl_status status = Message::of(reply, &answer);
    if (status == QUORL_OK) status = Message::of(request, &asked);
    if (status == QUORL_OK) status = timeLimitOf(reply, &limit);
    if (status != QUORL_OK) return status;
    if (asked.replySubject().empty()) return fail(QUORL_INVALID_SUBJECT, "the request has no reply subject");
    status = answer.withSubjects(asked.replySubject(), answer.replySubject(), &answer);
    if (status != QUORL_OK) return status;
    {
        companion::KeptErrorText kept;
        if (Message::received(request, &whole) != QUORL_OK) whole = {};
    }
    uint64_t number = 0;
    status = sendBy(answer, [&](Machine& machine, Now now, Output& out) {
        return machine.sendReply(answer, whole ? requesterOf(whole) : std::string_view(), limit, now, out, &number,
                                 &limit);
    });
    if (status == QUORL_OK) noteSent(reply, name_, number, limit);
    return status;
}

quorl_status Node::sendRequest(quorlMsg handle, quorlMsg* reply, double timeout) noexcept {
    const int64_t deadline = companion::deadlineAfter(timeout);
    Message message;
    int64_t limit = 0;
    std::string inbox;
    quorl_status status = Message::of(handle, &message);
    if (status == QUORL_OK) status = timeLimitOf(handle, &limit);
    if (status == QUORL_OK) status = companion::createInbox(transport_, &inbox);
    if (status == QUORL_OK) status = message.withSubjects(message.subject(), inbox, &message);
    if (status != QUORL_OK) return status;
    // An answer comes as to any other listener of this transport, certified or not.
    Request request;
    uint32_t number = 0;
    uint32_t ear = 0;
    status = step(
        [&](Machine& machine, Now now, Output& out) {
            if (requests_.size() >= 1000) return QUORL_QUEUE_LIMIT;
            do number = lastRequest_ += requestStep;
            while (number == 0 || requests_.contains(number));
            requests_.emplace(number, &request);
            return machine.createListener(number, inbox, now, out);
        },
        Waits::no);
    if (status == QUORL_OK) status = host().listen(*this, transport_, inbox, &ear);
    if (status == QUORL_OK) {
        try {
            const std::lock_guard lock(lock_);
            ears_.emplace(ear, number);
        } catch (const std::bad_alloc&) {
            status = fail(QUORL_NO_MEMORY, "no memory for a request");
        }
    }
    uint64_t sequence = 0;
    if (status == QUORL_OK)
        status = sendBy(message, [&](Machine& machine, Now now, Output& out) {
            return machine.send(message, limit, now, out, &sequence, &limit);
        });
    if (status == QUORL_OK) noteSent(handle, name_, sequence, limit);
    if (status == QUORL_OK) status = awaitReply(request, number, deadline, reply);
    {
        companion::KeptErrorText kept;
        host().unlisten(ear);
        step(
            [&](Machine& machine, Now now, Output& out) {
                requests_.erase(number);
                ears_.erase(ear);
                machine.destroyListener(number, true, now, out);
                return QUORL_OK;
            },
            Waits::no);
        // A transport that was closed meanwhile takes no step.
        const std::lock_guard lock(lock_);
        requests_.erase(number);
    }
    return status;
}

quorl_status Node::awaitReply(Request& request, uint32_t number, int64_t deadline, quorlMsg* reply) noexcept {
    Message came;
    {
        std::unique_lock lock(lock_);
        while (!request.replied && !request.aborted) {
            if (deadline == INT64_MAX) {
                request.changed.wait(lock);
            } else {
                const int64_t left = deadline - companion::monotonicNow();
                if (left <= 0) return fail(QUORL_TIMEOUT, "no reply came in time");
                request.changed.wait_for(lock, std::chrono::nanoseconds(left));
            }
        }
        if (!request.replied) return fail(QUORL_INTR, "the certified transport was destroyed while the request waited");
        came = request.reply;
    }
    if (!came.attributes().empty()) {
        companion::KeptErrorText kept;
        confirm(number, came, Confirmed::byCallback);
    }
    return came.handOver(reply);
}

// ---- listening

quorl_status Node::listen(uint32_t queue, quorlcmEventCallback callback, const char* pattern, const void* closure,
                          uint32_t* id) noexcept {
    try {
        if (pattern == nullptr || !validPattern({pattern, strnlen(pattern, QUORL_SUBJECT_MAX + 1)}))
            return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" is not a valid subject to listen to", QUORL_SUBJECT_MAX,
                        pattern != nullptr ? pattern : "");
        if (*pattern == '_')
            return fail(QUORL_INVALID_SUBJECT,
                        "\"%s\" is the system's: certified delivery is for subjects of the program", pattern);
        const auto listener = std::make_shared<CmListener>(shared_from_this(), callback, closure);
        uint32_t made = 0;
        quorl_status status = companion::publishEvent(
            listener,
            {.type = Type::certifiedListener, .queue = queue, .closure = closure, .source = pattern, .owner = id_},
            &made);
        if (status != QUORL_OK) return status;
        listener->published(made);
        // In force before senders are asked, so that what they send in the wake of it is heard.
        uint32_t ear = 0;
        status = host().listen(*this, transport_, pattern, &ear);
        if (status == QUORL_OK) {
            status = step(
                [&](Machine& machine, Now now, Output& out) {
                    listeners_.emplace(made, ear);
                    ears_.emplace(ear, made);
                    return machine.createListener(made, pattern, now, out);
                },
                Waits::yes);
        }
        if (status != QUORL_OK) {
            companion::KeptErrorText kept;
            host().unlisten(ear);
            companion::close(Type::certifiedListener, made);
            return status;
        }
        *id = made;
        return QUORL_OK;
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a certified listener");
    }
}

void Node::unlisten(uint32_t number, bool cancel) noexcept {
    companion::KeptErrorText kept;
    uint32_t ear = 0;
    step(
        [&](Machine& machine, Now now, Output& out) {
            if (const auto known = listeners_.find(number); known != listeners_.end()) {
                ear = known->second;
                listeners_.erase(known);
            }
            std::erase_if(ears_, [&](const auto& each) { return each.second == number; });
            machine.destroyListener(number, cancel, now, out);
            return QUORL_OK;
        },
        Waits::yes);
    host().unlisten(ear);
}

quorl_status Node::confirm(uint32_t number, const Message& message, Confirmed how) noexcept {
    const auto when = Machine::Confirm::now;
    bool others = false;
    const quorl_status status = step(
        [&](Machine& machine, Now now, Output& out) {
            uint64_t sequence = 0;
            const StreamId stream = machine.streamOf(message, &sequence);
            if (stream == 0) return QUORL_NOT_FOUND;
            const quorl_status confirmed = machine.confirm(number, stream, sequence, when, now, out);
            others = confirmed == QUORL_NOT_PERMITTED;
            return confirmed;
        },
        how == Confirmed::byProgram || !syncs_ ? Waits::yes : Waits::no);
    if (status == QUORL_OK) ++figures().confirmed;
    return others ? fail(status, "certified listener %u was not given this message", number) : status;
}

// ---- the ledger

quorl_status Node::sync() noexcept {
    if (ledger_ == nullptr) return QUORL_OK;
    // What waits for a ledger that took nothing is not in it yet.
    const quorl_status status =
        call([](Machine& machine, Now now, Output& out) { return machine.retryStorage(now, out); });
    if (status != QUORL_OK) return status;
    const Outcome outcome = ledger_->sync();
    return outcome.ok() ? QUORL_OK : fail(outcome.status, "%s", outcome.reason());
}

// ---- the relay agent

quorl_status Node::connect() noexcept {
    if (!relay_)
        return fail(QUORL_NOT_PERMITTED, "certified transport %u was created without a relay agent", id_.load());
    const std::lock_guard one(relayLock_);
    {
        const std::lock_guard lock(lock_);
        if (!offLine_) return QUORL_OK;
    }
    const quorl_status status = relay_->connect(companion::monotonicNow() + relayPatience);
    return status == QUORL_OK ? goOnLine() : status;
}

quorl_status Node::goOnLine() noexcept {
    const quorl_status status = step(
        [&](Machine& machine, Now now, Output& out) {
            offLine_ = false;
            machine.backOnLine(now, out);
            return QUORL_OK;
        },
        Waits::no);
    return status == QUORL_OK ? relay_->startTaking() : status;
}

quorl_status Node::disconnect() noexcept {
    if (!relay_)
        return fail(QUORL_NOT_PERMITTED, "certified transport %u was created without a relay agent", id_.load());
    const std::lock_guard one(relayLock_);
    {
        const std::lock_guard lock(lock_);
        if (offLine_) return QUORL_OK;
    }
    relay_->stopTaking();
    RelayCopy copy;
    quorl_status status = copyFor(copy);
    if (status == QUORL_OK) status = relay_->handOver(copy, relayPatience);
    if (status != QUORL_OK) {
        companion::KeptErrorText kept;
        goOnLine();
    }
    return status;
}

// From here on the transport hears and sends nothing, so that the copy stays true.
quorl_status Node::copyFor(RelayCopy& copy) noexcept {
    return step(
        [&](Machine& machine, Now now, Output& out) {
            offLine_ = true;
            machine.copy(now, out);
            copy.state = out.store.writes;
            std::erase_if(copy.state, [](const Write& write) { return write.kind != Write::Kind::putState; });
            copy.patterns = machine.patterns();
            machine.forEachMessage([&](const StoredMessage& message) { copy.messages.push_back(message); });
            return QUORL_OK;
        },
        Waits::yes);
}

void Node::take(const Message& message, uint64_t after) noexcept {
    step(
        [&](Machine& machine, Now now, Output& out) {
            if (!offLine_) machine.kept(message, after, now, out);
            return QUORL_OK;
        },
        Waits::no);
}

bool Node::isStored(const Message& message) noexcept {
    const std::lock_guard lock(lock_);
    return machine_.isStored(message);
}

bool Node::image(const StoredMessage& message, Message* read) noexcept {
    return ledger_->read(message.subject, message.number, read).ok();
}

// The messages are made under the lock, and the program is called without it.
quorl_status Node::review(const char* pattern, quorlcmReviewCallback callback, const void* closure) noexcept {
    if (pattern != nullptr && !validPattern({pattern, strnlen(pattern, QUORL_SUBJECT_MAX + 1)}))
        return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" is not a valid subject", QUORL_SUBJECT_MAX, pattern);
    std::vector<Message> found;
    quorl_status status = QUORL_OK;
    try {
        const std::lock_guard lock(lock_);
        machine_.review(pattern != nullptr ? pattern : "", [&](const Review& review) {
            std::vector<Message> listeners;
            for (const Review::Listener& each : review.listeners) {
                companion::Builder one;
                one.text("name", each.name)
                    .u64("confirmed_up_to", each.confirmed)
                    .u64("unconfirmed", each.unconfirmed)
                    .f64("heard", static_cast<double>(each.heard) / 1e9)
                    .boolean("registered", each.registered);
                status = one.message("", &listeners.emplace_back());
                if (status != QUORL_OK) return true;
            }
            companion::Builder summary;
            summary.text("subject", review.subject)
                .u64("first", review.first)
                .u64("last", review.last)
                .u64("messages", review.messages)
                .u64("bytes", review.bytes)
                .messages("listeners", listeners);
            status = summary.message(review.subject, &found.emplace_back());
            return status != QUORL_OK;
        });
    } catch (const std::bad_alloc&) {
        status = QUORL_NO_MEMORY;
    }
    if (status != QUORL_OK) return fail(QUORL_NO_MEMORY, "no memory to review the ledger");
    for (const Message& summary : found) {
        quorlMsg handle = nullptr;
        if (status = summary.lend(&handle); status != QUORL_OK) return status;
        void* const stop = callback(id_, summary.subject().data(), handle, const_cast<void*>(closure));
        Message::takeBack(handle);
        if (stop != nullptr) break;
    }
    return QUORL_OK;
}

}  // namespace quorl::certified
