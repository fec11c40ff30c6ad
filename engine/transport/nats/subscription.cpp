// From payloads to listeners' queues.
#include "transport/nats/subscription.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <new>

#include "base/clock.h"
#include "event/queue.h"
#include "subject/subject.h"
#include "transport/local.h"
#include "transport/nats/wire_subject.h"

namespace quorl::transport::nats {

void Inbound::reject(const char* reason, std::string_view subject) noexcept {
    if (!rejections.note(reason, subject) || wakeEvent < 0) return;
    const uint64_t one = 1;
    static_cast<void>(!::write(wakeEvent, &one, sizeof one));
}

Subscription::Subscription(Inbound& inbound, std::string_view pattern, std::string_view share)
    : inbound_(inbound),
      pattern_(pattern),
      share_(std::string(share)),
      system_(subject::isSystem(pattern)),
      inboxes_(subject::isInbox(pattern)) {}

void Subscription::add(Listener& listener) {
    Lock lock(lock_);
    listeners_.push_back(&listener);
}

bool Subscription::remove(Listener& listener) noexcept {
    Lock lock(lock_);
    std::erase(listeners_, &listener);
    return listeners_.empty();
}

void Subscription::received(std::string_view wireSubject, const uint8_t* payload, size_t size) noexcept {
    ReadSubject subject;
    FrameKind kind;
    const bool ours = fromWire(inbound_.prefix, wireSubject, &subject);
    // A wildcard of the program does not reach the system's subjects: what engines of other processes send there, probes above
    // all, is nothing to check either.
    if (ours && !system_ && subject::isSystem(subject.view())) return;
    if (!ours || !subject::validForSending(subject.view())) {
        inbound_.reject("its subject is none that a transport sends to", wireSubject);
        return;
    }
    if (local::staysHere(subject.view())) {
        inbound_.reject("it claims to be an advisory or a question, which never leave their process", subject.view());
        return;
    }
    if (!readKind(payload, size, &kind) || kind == FrameKind::probe) {
        inbound_.reject("it does not begin as a message does", subject.view());
        return;
    }
    if (kind == FrameKind::image) {
        take(subject.view(), payload, size, Form::image);
        return;
    }
    Origin origin;
    if (!readOrigin(payload, size, &origin)) {
        inbound_.reject("it ends in the middle of its header", subject.view());
        return;
    }
    if (isLate(origin)) {
        inbound_.reject("it came behind what its sender sent later: the sender had lost its connection",
                        subject.view());
        return;
    }
    if (kind == FrameKind::entries || kind == FrameKind::attributed) {
        take(subject.view(), payload + entriesHeaderSize, size - entriesHeaderSize,
             kind == FrameKind::attributed ? Form::attributed : Form::entries);
        return;
    }
    Part part;
    Assembler::Whole whole;
    if (!readPart(payload, size, &part)) {
        inbound_.reject("it is a part that lies outside of its message", subject.view());
        return;
    }
    if (!share_.name.empty()) {
        // The daemon gives each part to any member of the group. Told once for each message, by whoever got its first.
        if (part.offset == 0)
            inbound_.reject("it came in parts, which listeners that share a name do not take", subject.view());
        return;
    }
    const uint64_t dropped = inbound_.assembler.dropped();
    const bool complete = inbound_.assembler.take(this, subject.view(), part, monotonicNow(), &whole);
    // Subjects of such messages are not kept: what is told is the one of the part that showed it.
    for (uint64_t i = inbound_.assembler.dropped(); i > dropped; --i)
        inbound_.reject("its parts did not fit together, came too late or were too much", subject.view());
    if (complete) take(subject.view(), whole->data(), whole->size(), formOfWhole(*whole));
}

// What stands behind the image of one entry is its trailer.
Subscription::Form Subscription::formOfWhole(const std::vector<uint8_t>& bytes) noexcept {
    Entry entry;
    size_t used;
    return readEntry(bytes.data(), bytes.size(), &entry, &used) && used < bytes.size() ? Form::attributed
                                                                                       : Form::entries;
}

// Without memory nobody is late: the order is worth less than the message.
bool Subscription::isLate(const Origin& origin) noexcept {
    try {
        return inbound_.latecomers.late(origin);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void Subscription::take(std::string_view subject, const uint8_t* bytes, size_t size, Form form) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    ReadGuard guard(*thread);
    std::array<Listener*, 16> few;
    std::vector<Listener*> many;
    Listener* const* listeners = few.data();
    size_t count = 0;
    if (!inboxes_) {
        // Copied, since queues' locks are not taken under this one. The read guard keeps the listeners.
        Lock lock(lock_);
        count = listeners_.size();
        if (count <= few.size()) {
            std::copy(listeners_.begin(), listeners_.end(), few.begin());
        } else {
            try {
                many = listeners_;
            } catch (const std::bad_alloc&) {
                return;
            }
            listeners = many.data();
        }
        if (count == 0) return;
    }
    while (size != 0) {
        Entry entry{{}, bytes, static_cast<uint32_t>(size), {}};
        size_t used = size;
        message::ContentRef content;
        const bool trailed = form == Form::attributed;
        if (form != Form::image && !readEntry(bytes, size, &entry, &used, trailed)) {
            inbound_.reject(trailed ? "an entry has no trailer that is whole, of a version that is known"
                                    : "it ends in the middle of an entry",
                            subject);
            return;
        }
        if (!entry.replySubject.empty() && local::staysHere(entry.replySubject)) {
            // A reply to it would be an advisory of this process that a stranger has worded.
            inbound_.reject("it wants a reply on a subject that never leaves a process", subject);
            bytes += used;
            size -= used;
            continue;
        }
        const quorl_status status =
            message::contentFromBytes(entry.image, entry.size, subject, entry.replySubject, &content, entry.attributes);
        if (status != QUORL_OK) {
            inbound_.reject(status == QUORL_NO_MEMORY ? "there was no memory for it" : "it is damaged", subject);
            return;
        }
        bytes += used;
        size -= used;
        inbound_.messages += 1;
        inbound_.bytes += used;
        deliver(*thread, std::move(content), listeners, count);
    }
}

quorl_status Subscription::deliver(ThreadState& thread, message::ContentRef content, Listener* const* listeners,
                                   size_t count) noexcept {
    if (inboxes_) return inbound_.inboxes.route(thread, std::move(content));
    if (!share_.name.empty()) {
        pushToOne(share_, listeners, count, std::move(content));
        return QUORL_OK;
    }
    for (size_t i = 0; i + 1 < count; ++i) event::push(*listeners[i], content);
    event::push(*listeners[count - 1], std::move(content));
    return QUORL_OK;
}

}  // namespace quorl::transport::nats
