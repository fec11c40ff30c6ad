// The engine's view of messages, over their handles and contents.
#include "message/delivery.h"

#include <algorithm>

#include "base/prefetch.h"
#include "base/status.h"
#include "message/message.h"
#include "message/pool.h"
#include "subject/subject.h"

namespace quorl::message {

ContentRef::ContentRef(const ContentRef& other) noexcept : content_(other.content_) {
    if (content_ != nullptr) content_->retain();
}

ContentRef::~ContentRef() {
    if (content_ != nullptr) content_->release();
}

std::string_view ContentRef::sendSubject() const noexcept {
    return content_->sendSubject();
}

std::string_view ContentRef::replySubject() const noexcept {
    return content_->replySubject();
}

quorl_u32 ContentRef::byteSize() const noexcept {
    return content_->size;
}

const void* ContentRef::bytes() const noexcept {
    return content_->image;
}

std::span<const uint8_t> ContentRef::attributes() const noexcept {
    return content_->attributes();
}

void prefetchFar(Content* content) noexcept {
    auto* block = reinterpret_cast<char*>(content);
    prefetchToWrite(block);
    prefetchToRead(block + sizeof(Content));
    prefetchToRead(block + sizeof(Content) + cacheLine);
}

void prefetchNear(Content* content) noexcept {
    prefetchToRead(content->top - 1);
}

quorl_status snapshot(quorlMsg message, ContentRef* content) noexcept {
    Slot* slot;
    if (quorl_status status = find(message, &slot); status != QUORL_OK) return status;
    if (slot->content == nullptr) {
        slot->content = slot->owner == Owner::outer ? missingContent(*slot) : newContent(0);
        if (slot->content == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a message");
    }
    slot->content->retain();
    *content = ContentRef::adopt(slot->content);
    return QUORL_OK;
}

quorl_status setReplySubject(quorlMsg message, std::string_view subject) noexcept {
    Slot* slot;
    const quorl_status status = findToChange(message, &slot);
    return status == QUORL_OK ? setSubject(*slot, subject, true) : status;
}

quorl_status withSubjects(const ContentRef& content, std::string_view sendSubject, std::string_view replySubject,
                          ContentRef* changed) noexcept {
    ContentRef made = ContentRef::adopt(newEnvelopeOver(content.get(), content.attributes()));
    if (!made || !made.get()->setSendSubject(sendSubject) || !made.get()->setReplySubject(replySubject)) {
        return fail(QUORL_NO_MEMORY, "no memory for a message");
    }
    *changed = std::move(made);
    return QUORL_OK;
}

quorl_status withAttributes(const ContentRef& content, std::span<const uint8_t> attributes,
                            ContentRef* changed) noexcept {
    ContentRef made;
    if (attributes.empty()) {
        made = ContentRef::adopt(withoutAttributes(ContentRef(content).release()));
    } else {
        made = ContentRef::adopt(newEnvelopeOver(content.get(), attributes));
        if (made && !made.get()->copySubjects(*content.get())) made = {};
    }
    if (!made) return fail(QUORL_NO_MEMORY, "no memory for the attributes of a message");
    *changed = std::move(made);
    return QUORL_OK;
}

quorl_status contentFromBytes(const void* bytes, size_t size, std::string_view sendSubject,
                              std::string_view replySubject, ContentRef* content,
                              std::span<const uint8_t> attributes) noexcept {
    if (!sendSubject.empty() && !subject::validForSending(sendSubject)) {
        return fail(QUORL_INVALID_SUBJECT, "the subject of a message from outside is malformed");
    }
    if (!replySubject.empty() && !subject::validForSending(replySubject)) {
        return fail(QUORL_INVALID_SUBJECT, "the reply subject of a message from outside is malformed");
    }
    const auto* image = static_cast<const uint8_t*>(bytes);
    if (size >= wire::headerSize && size != wire::load<uint32_t>(image + wire::sizeAt)) {
        return fail(QUORL_CORRUPT_MSG, "corrupt message: its header says %u bytes, %zu are there",
                    wire::load<uint32_t>(image + wire::sizeAt), size);
    }
    Content* made = nullptr;
    const auto limit = static_cast<uint32_t>(std::min<size_t>(size, UINT32_MAX));
    if (quorl_status status = readImage(image, limit, &made); status != QUORL_OK) return status;
    if (!made->setSendSubject(sendSubject) || !made->setReplySubject(replySubject)) {
        made->release();
        return fail(QUORL_NO_MEMORY, "no memory for the subjects of a message");
    }
    ContentRef read = ContentRef::adopt(made);
    if (!attributes.empty()) return withAttributes(read, attributes, content);
    *content = std::move(read);
    return QUORL_OK;
}

namespace {

quorl_status newPlain(ContentRef content, Owner owner, uint32_t event, quorlMsg* message) noexcept {
    Content* plain = content.release();
    if (!plain->attributes().empty()) [[unlikely]]
        plain = withoutAttributes(plain);
    if (plain == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a message");
    return newMessage(plain, owner, event, message);
}

quorl_status newWhole(ContentRef content, Owner owner, uint32_t event, quorlMsg* message) noexcept {
    ContentRef whole;
    if (!content.attributes().empty()) whole = content;
    const quorl_status status = newPlain(std::move(content), owner, event, message);
    if (status == QUORL_OK) resolve(*message)->received = whole.release();
    return status;
}

}  // namespace

quorl_status deliver(ContentRef content, uint32_t event, quorlMsg* message) noexcept {
    return newPlain(std::move(content), Owner::library, event, message);
}

quorl_status handOver(ContentRef content, quorlMsg* message) noexcept {
    return newPlain(std::move(content), Owner::caller, 0, message);
}

quorl_status deliverWhole(ContentRef content, uint32_t event, quorlMsg* message) noexcept {
    return newWhole(std::move(content), Owner::library, event, message);
}

quorl_status handOverWhole(ContentRef content, quorlMsg* message) noexcept {
    return newWhole(std::move(content), Owner::caller, 0, message);
}

quorl_status received(quorlMsg message, ContentRef* content) noexcept {
    Slot* slot;
    if (const quorl_status status = find(message, &slot); status != QUORL_OK) return status;
    Content* whole = slot->owner != Owner::outer ? slot->received : nullptr;
    if (whole != nullptr) whole->retain();
    *content = ContentRef::adopt(whole);
    return QUORL_OK;
}

void finishDelivery(quorlMsg message) noexcept {
    Slot* slot = resolve(message);
    if (slot != nullptr && slot->owner == Owner::library) dropMessage(*slot);
}

void forgetAll() noexcept {
    pool::forgetAll();
}

quorl_u64 liveMessages() noexcept {
    return pool::messages();
}

}  // namespace quorl::message
