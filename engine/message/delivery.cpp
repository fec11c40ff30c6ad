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
    ContentRef made = ContentRef::adopt(newEnvelopeOver(content.get()));
    if (!made || !made.get()->setSendSubject(sendSubject) || !made.get()->setReplySubject(replySubject)) {
        return fail(QUORL_NO_MEMORY, "no memory for a message");
    }
    *changed = std::move(made);
    return QUORL_OK;
}

quorl_status contentFromBytes(const void* bytes, size_t size, std::string_view sendSubject,
                              std::string_view replySubject, ContentRef* content) noexcept {
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
    *content = ContentRef::adopt(made);
    return QUORL_OK;
}

quorl_status deliver(ContentRef content, uint32_t event, quorlMsg* message) noexcept {
    return newMessage(content.release(), Owner::library, event, message);
}

quorl_status handOver(ContentRef content, quorlMsg* message) noexcept {
    return newMessage(content.release(), Owner::caller, 0, message);
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
