// Messages of the border, over contents and handles.
#include "companion/message.h"

#include <algorithm>

#include "base/status.h"
#include "companion/access.h"
#include "message/message.h"
#include "subject/subject.h"

namespace quorl::companion {
namespace {

using message::ContentRef;

static_assert(attributesMax == message::attributesMax);

quorl_status checkSubject(std::string_view subject, const char* kind) noexcept {
    if (subject.empty() || subject::validForSending(subject)) return QUORL_OK;
    const char* why = subject::whyMalformed(subject);
    return fail(QUORL_INVALID_SUBJECT, "\"%.*s\" is not a valid %s subject: %s",
                static_cast<int>(std::min<size_t>(subject.size(), QUORL_SUBJECT_MAX)), subject.data(), kind,
                why != nullptr ? why : "it has a wildcard");
}

quorl_status checkSubjects(std::string_view subject, std::string_view reply) noexcept {
    const quorl_status status = checkSubject(subject, "send");
    return status == QUORL_OK ? checkSubject(reply, "reply") : status;
}

quorl_status checkSize(std::span<const uint8_t> attributes) noexcept {
    if (attributes.size() <= attributesMax) return QUORL_OK;
    return fail(QUORL_INVALID_SIZE, "%zu bytes of attributes are more than a message carries (%zu)", attributes.size(),
                attributesMax);
}

}  // namespace

Message::Message(const Message& other) noexcept : content_(other.content_) {
    if (content_ != nullptr) content_->retain();
}

Message::~Message() {
    if (content_ != nullptr) content_->release();
}

std::string_view Message::subject() const noexcept {
    return content_->sendSubject();
}

std::string_view Message::replySubject() const noexcept {
    return content_->replySubject();
}

std::span<const uint8_t> Message::image() const noexcept {
    return {content_->image, content_->size};
}

std::span<const uint8_t> Message::attributes() const noexcept {
    return content_->attributes();
}

quorl_status Message::fromImage(std::span<const uint8_t> image, std::string_view subject, std::string_view replySubject,
                                Message* made) noexcept {
    if (const quorl_status status = checkSubjects(subject, replySubject); status != QUORL_OK) return status;
    ContentRef content;
    const quorl_status status = message::contentFromBytes(image.data(), image.size(), subject, replySubject, &content);
    if (status == QUORL_OK) *made = Access::wrap(std::move(content));
    return status;
}

quorl_status Message::empty(std::string_view subject, Message* made) noexcept {
    return fromImage({message::emptyImage, message::wire::headerSize}, subject, {}, made);
}

quorl_status Message::withSubjects(std::string_view subject, std::string_view replySubject,
                                   Message* changed) const noexcept {
    if (const quorl_status status = checkSubjects(subject, replySubject); status != QUORL_OK) return status;
    ContentRef content;
    const quorl_status status = message::withSubjects(Access::content(*this), subject, replySubject, &content);
    if (status == QUORL_OK) *changed = Access::wrap(std::move(content));
    return status;
}

quorl_status Message::withAttributes(std::span<const uint8_t> attributes, Message* changed) const noexcept {
    if (const quorl_status status = checkSize(attributes); status != QUORL_OK) return status;
    ContentRef content;
    const quorl_status status = message::withAttributes(Access::content(*this), attributes, &content);
    if (status == QUORL_OK) *changed = Access::wrap(std::move(content));
    return status;
}

quorl_status Message::of(quorlMsg handle, Message* message) noexcept {
    ContentRef content;
    const quorl_status status = message::snapshot(handle, &content);
    if (status == QUORL_OK) *message = Access::wrap(std::move(content));
    return status;
}

quorl_status Message::received(quorlMsg handle, Message* message) noexcept {
    ContentRef content;
    if (const quorl_status status = message::received(handle, &content); status != QUORL_OK) return status;
    if (!content) return fail(QUORL_NOT_FOUND, "the message has no attributes");
    *message = Access::wrap(std::move(content));
    return QUORL_OK;
}

quorl_status Message::handOver(quorlMsg* handle) const noexcept {
    return message::handOverWhole(Access::content(*this), handle);
}

quorl_status Message::lend(quorlMsg* handle) const noexcept {
    return message::deliverWhole(Access::content(*this), 0, handle);
}

void Message::takeBack(quorlMsg handle) noexcept {
    message::finishDelivery(handle);
}

quorl_status handleAttributes(quorlMsg handle, std::span<const uint8_t>* attributes) noexcept {
    message::Slot* slot;
    if (const quorl_status status = message::find(handle, &slot); status != QUORL_OK) return status;
    const bool none = slot->owner == message::Owner::outer || slot->attributes == nullptr;
    *attributes = none ? std::span<const uint8_t>() : slot->attributes->bytes();
    return QUORL_OK;
}

quorl_status setHandleAttributes(quorlMsg handle, std::span<const uint8_t> attributes) noexcept {
    message::Slot* slot;
    if (const quorl_status status = message::findToChange(handle, &slot); status != QUORL_OK) return status;
    if (const quorl_status status = checkSize(attributes); status != QUORL_OK) return status;
    return message::setAttributes(*slot, attributes)
               ? QUORL_OK
               : fail(QUORL_NO_MEMORY, "no memory for the attributes of a message");
}

}  // namespace quorl::companion
