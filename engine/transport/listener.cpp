// How listeners are made, attached to their transport, and detached.
#include "transport/listener.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>

#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"
#include "event/queue.h"
#include "subject/subject.h"
#include "transport/local.h"
#include "transport/transport.h"

namespace quorl::transport {
namespace {

void destroyRecord(Record* record) noexcept {
    auto* listener = static_cast<Listener*>(record);
    if (listener->vectorTag != 0) event::dropVectorTag(*listener->queue, listener->vectorTag);
    if (listener->transport != nullptr) registry::dropChild(*listener->transport);
    registry::dropChild(*listener->queue);
    delete listener;
}

void detachListener(event::Event& event) noexcept {
    auto& listener = static_cast<Listener&>(event);
    Transport& transport = *listener.transport;
    Lock lock(transport.lock);
    listener.detached = true;
    if (!listener.attached) return;
    listener.attached = false;
    stopListening(listener);
    (listener.previous != nullptr ? listener.previous->next : transport.listeners) = listener.next;
    if (listener.next != nullptr) listener.next->previous = listener.previous;
}

// Makes the backend feed the listener.
quorl_status attach(Listener& listener) noexcept {
    Transport& transport = *listener.transport;
    Lock lock(transport.lock);
    if (transport.closed) return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", transport.id);
    if (listener.detached) return fail(QUORL_INVALID_EVENT, "the listener was destroyed while it was being created");
    if (const quorl_status status = startListening(listener); status != QUORL_OK) return status;
    listener.attached = true;
    listener.next = transport.listeners;
    if (listener.next != nullptr) listener.next->previous = &listener;
    transport.listeners = &listener;
    return QUORL_OK;
}

// Whether the subject is an inbox that the transport made, or all those below one.
bool ownInbox(const Transport& transport, std::string_view subject) noexcept {
    if (!subject.starts_with(transport.inboxPrefix)) return false;
    subject.remove_prefix(transport.inboxPrefix.size());
    if (subject.ends_with(".*")) subject.remove_suffix(2);
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(subject.data(), subject.data() + subject.size(), number);
    return error == std::errc() && end == subject.data() + subject.size() && subject.front() != '0' &&
           number <= transport.inboxes.load(std::memory_order_relaxed);
}

// What a listener listens to, and the name under which it shares, if it does.
struct Interest {
    const char* subject;
    std::string_view share;
    bool shared = false;
};

// Takes a subject apart that says under which name it is shared.
Interest interestOf(const ListenerRequest& request) noexcept {
    if (request.share != nullptr)
        return {request.subject, {request.share, strnlen(request.share, longestShareName + 1)}, true};
    if (request.take != nullptr || request.subject == nullptr) return {request.subject, {}};
    if (std::strncmp(request.subject, sharePrefix.data(), sharePrefix.size()) != 0) return {request.subject, {}};
    const char* name = request.subject + sharePrefix.size();
    const char* end = std::strchr(name, '.');
    if (end == nullptr) end = name + std::strlen(name);
    return {*end == '.' ? end + 1 : end, {name, static_cast<size_t>(end - name)}, true};
}

quorl_status checkShare(const Interest& interest) noexcept {
    const std::string_view name = interest.share;
    if (!validShareName(name))
        return fail(
            QUORL_INVALID_NAME,
            "\"%.*s\" is not a valid name to share under: a name has 1 to %zu bytes of printable ASCII, without "
            "blanks, '.', '*' and '>'",
            static_cast<int>(std::min<size_t>(name.size(), 80)), name.data(), longestShareName);
    if (interest.subject == nullptr || !subject::isSystem(interest.subject)) return QUORL_OK;
    return fail(QUORL_INVALID_SUBJECT, "\"%.254s\" cannot be shared: it is the system's, as all that begin with \"_\"",
                interest.subject);
}

quorl_status checkSubject(const Transport& transport, const char* text, bool internal) noexcept {
    if (text == nullptr) return fail(QUORL_INVALID_SUBJECT, "the subject to listen to is null");
    const std::string_view subject(text, strnlen(text, QUORL_SUBJECT_MAX + 1));
    if (!subject::validForListening(subject))
        return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" is not a valid subject: %s", QUORL_SUBJECT_MAX, text,
                    subject::whyMalformed(subject));
    if (internal || !subject::isSystem(subject) || subject.starts_with("_QUORL.")) return QUORL_OK;
    if (ownInbox(transport, subject)) return QUORL_OK;
    return fail(QUORL_INVALID_SUBJECT,
                "\"%s\" is reserved: listen to an inbox on the transport that made it, and begin subjects of your own "
                "without \"_\"",
                text);
}

}  // namespace

bool validShareName(std::string_view name) noexcept {
    return !name.empty() && name.size() <= longestShareName && std::all_of(name.begin(), name.end(), [](char byte) {
        return byte > ' ' && byte < '\x7f' && byte != '.' && byte != '*' && byte != '>';
    });
}

quorl_status startListening(Listener& listener) noexcept {
    return local::hearsThisProcessAlone(listener.subject) ? local::listen(listener)
                                                          : listener.transport->backend->listen(listener);
}

void stopListening(Listener& listener) noexcept {
    if (local::hearsThisProcessAlone(listener.subject)) {
        local::unlisten(listener);
    } else {
        listener.transport->backend->unlisten(listener);
    }
}

quorl_status createListener(uint32_t* id, const ListenerRequest& request) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    auto* queue = registry::find<event::Queue>(request.queue);
    if (queue == nullptr) return environment::noObject(QUORL_INVALID_QUEUE, "queue", request.queue);
    if (request.callback == nullptr && request.vectorCallback == nullptr && request.take == nullptr)
        return fail(QUORL_INVALID_CALLBACK, "the callback of the listener is null");
    auto* transport = registry::find<Transport>(request.transport);
    if (transport == nullptr) return environment::noObject(QUORL_INVALID_TRANSPORT, "transport", request.transport);
    const Interest interest = interestOf(request);
    if (interest.shared) {
        if (const quorl_status status = checkShare(interest); status != QUORL_OK) return status;
    }
    if (const quorl_status status = checkSubject(*transport, interest.subject, request.take != nullptr);
        status != QUORL_OK)
        return status;

    Listener* listener = nullptr;
    try {
        auto made = std::make_unique<Listener>();
        made->subject = interest.subject;
        if (interest.shared) made->share = std::make_shared<Share>(std::string(interest.share));
        listener = made.release();
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a listener");
    }
    listener->arg = request.closure;
    listener->kind = request.vector ? event::Kind::vectorListener : event::Kind::listener;
    if (request.take != nullptr) {
        listener->kind = event::Kind::taker;
        listener->take = request.take;
        listener->owner = request.owner;
    } else {
        listener->callback = request.callback;
        listener->vectorCallback = request.vectorCallback;
        listener->groupId = request.groupId;
    }
    listener->source = listener->subject;
    listener->queue = queue;
    listener->transport = transport;
    listener->detach = detachListener;
    listener->completed = event::eventCompleted;
    listener->destroy = destroyRecord;
    registry::addChild(*queue);
    registry::addChild(*transport);
    if (request.vector) {
        listener->vectorTag = event::vectorTagFor(*queue, request.vectorCallback, request.groupId);
        if (listener->vectorTag == 0) {
            destroyRecord(listener);
            return fail(QUORL_NO_MEMORY, "no memory for a vector listener");
        }
    }
    const uint32_t reserved = registry::reserve();
    if (reserved == 0) {
        destroyRecord(listener);
        return registry::noId("listener");
    }
    // Published first: what comes to a listener whose id names nothing yet would be lost.
    if (!registry::publish(*listener, reserved, QUORL_OBJECT_EVENT)) {
        registry::abandon(reserved);
        destroyRecord(listener);
        return fail(QUORL_NOT_INITIALIZED, "the library is not open");
    }
    if (const quorl_status status = attach(*listener); status != QUORL_OK) {
        if (event::closeEvent(reserved, QUORL_OBJECT_EVENT) != nullptr) registry::retire(*listener);
        return status;
    }
    *id = reserved;
    return QUORL_OK;
}

}  // namespace quorl::transport
