// From payloads to listeners' queues.
#include "transport/nats/subscription.h"

#include <algorithm>
#include <array>
#include <new>

#include "base/clock.h"
#include "event/queue.h"
#include "subject/subject.h"
#include "transport/nats/wire_subject.h"

namespace quorl::transport::nats {

Subscription::Subscription(Intake& intake, std::string_view pattern)
    : intake_(intake), pattern_(pattern), system_(subject::isSystem(pattern)), inboxes_(subject::isInbox(pattern)) {}

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
    if (!fromWire(intake_.prefix, wireSubject, &subject) || !subject::validForSending(subject.view()) ||
        !readKind(payload, size, &kind) || kind == FrameKind::mark) {
        intake_.malformed.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    // A wildcard of the program does not reach the system's subjects.
    if (!system_ && subject::isSystem(subject.view())) return;
    if (kind == FrameKind::image) {
        take(subject.view(), payload, size, true);
        return;
    }
    if (kind == FrameKind::entries) {
        take(subject.view(), payload + frameHeaderSize, size - frameHeaderSize, false);
        return;
    }
    Part part;
    std::vector<uint8_t> whole;
    if (!readPart(payload, size, &part)) {
        intake_.malformed.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if (intake_.assembler.take(this, part, monotonicNow(), &whole))
        take(subject.view(), whole.data(), whole.size(), false);
}

void Subscription::take(std::string_view subject, const uint8_t* bytes, size_t size, bool image) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    Section section(*thread);
    std::array<Listener*, 16> few;
    std::vector<Listener*> many;
    Listener* const* listeners = few.data();
    size_t count = 0;
    if (!inboxes_) {
        // Copied, since queues' locks are not taken under this one. The section keeps the listeners.
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
        Entry entry{{}, bytes, static_cast<uint32_t>(size)};
        size_t used = size;
        message::ContentRef content;
        if ((!image && !readEntry(bytes, size, &entry, &used)) ||
            message::contentFromBytes(entry.image, entry.size, subject, entry.replySubject, &content) != QUORL_OK) {
            intake_.malformed.fetch_add(1, std::memory_order_relaxed);
            return;
        }
        bytes += used;
        size -= used;
        deliver(*thread, std::move(content), listeners, count);
    }
}

quorl_status Subscription::deliver(ThreadState& thread, message::ContentRef content, Listener* const* listeners,
                                   size_t count) noexcept {
    if (inboxes_) return intake_.inboxes.route(thread, std::move(content));
    for (size_t i = 0; i + 1 < count; ++i) event::push(*listeners[i], content);
    event::push(*listeners[count - 1], std::move(content));
    return QUORL_OK;
}

}  // namespace quorl::transport::nats
