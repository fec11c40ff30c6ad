// What the rest of the engine knows of messages: a shared, unchangeable content that queues and transports carry, and
// the handles that callbacks are given. Fields and formats are not here.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "quorl/quorl.h"

namespace quorl::message {

class Content;  // one message's subjects and wire image; never changes while it is shared

// Counts a reference to a Content. May be moved and copied between threads.
class ContentRef {
  public:
    ContentRef() noexcept = default;
    ContentRef(const ContentRef& other) noexcept;
    ContentRef(ContentRef&& other) noexcept : content_(std::exchange(other.content_, nullptr)) {}
    ContentRef& operator=(ContentRef other) noexcept {
        std::swap(content_, other.content_);
        return *this;
    }
    ~ContentRef();

    explicit operator bool() const noexcept { return content_ != nullptr; }
    std::string_view sendSubject() const noexcept;   // empty when there is none; zero-terminated
    std::string_view replySubject() const noexcept;  // empty when there is none; zero-terminated
    quorl_u32 byteSize() const noexcept;             // bytes of the wire image

    const void* bytes() const noexcept;                    // the wire image
    std::span<const uint8_t> attributes() const noexcept;  // beside the fields (message/attributes.h); empty: none

    // Gives the reference out as a plain pointer, and takes it back; for queues that link contents themselves.
    Content* get() const noexcept { return content_; }
    Content* release() noexcept { return std::exchange(content_, nullptr); }
    static ContentRef adopt(Content* content) noexcept {
        ContentRef ref;
        ref.content_ = content;
        return ref;
    }

  private:
    Content* content_ = nullptr;
};

// The message's content as it is now. Nothing is copied: message and content share until the message is changed.
// QUORL_INVALID_MSG, QUORL_NO_MEMORY.
quorl_status snapshot(quorlMsg message, ContentRef* content) noexcept;

// Sets the message's reply subject, which is valid. QUORL_INVALID_MSG, QUORL_NOT_PERMITTED, QUORL_NO_MEMORY.
quorl_status setReplySubject(quorlMsg message, std::string_view subject) noexcept;

// A content made from a wire image and subjects that came from outside; the image is validated and copied.
// size is the whole image's: neither less nor more than its header says. An empty subject means none. Attributes are within
// attributesMax. QUORL_CORRUPT_MSG, QUORL_INVALID_SUBJECT, QUORL_NO_MEMORY.
quorl_status contentFromBytes(const void* bytes, size_t size, std::string_view sendSubject,
                              std::string_view replySubject, ContentRef* content,
                              std::span<const uint8_t> attributes = {}) noexcept;

// The same message with other attributes, within attributesMax; without any when they are empty. QUORL_NO_MEMORY.
quorl_status withAttributes(const ContentRef& content, std::span<const uint8_t> attributes,
                            ContentRef* changed) noexcept;

// The same message with other subjects, which the caller has checked; an empty one takes it away. The fields are
// shared, and the attributes stay. QUORL_NO_MEMORY.
quorl_status withSubjects(const ContentRef& content, std::string_view sendSubject, std::string_view replySubject,
                          ContentRef* changed) noexcept;

// A handle over content for a callback: the library's until it is detached or the callback destroys it. event is the id
// of the one that delivers it: a message may outlive its event, and asks for the event's closure by the id. Attributes stay
// behind.
quorl_status deliver(ContentRef content, uint32_t event, quorlMsg* message) noexcept;

// A handle over content that belongs to the caller from the start: a reply. Attributes stay behind.
quorl_status handOver(ContentRef content, quorlMsg* message) noexcept;

// The same two with the attributes, which received gives back, from the handle and from its copies.
quorl_status deliverWhole(ContentRef content, uint32_t event, quorlMsg* message) noexcept;
quorl_status handOverWhole(ContentRef content, quorlMsg* message) noexcept;
// What was delivered whole, as it came. Empty: nothing was. QUORL_INVALID_MSG.
quorl_status received(quorlMsg message, ContentRef* content) noexcept;

// After the callback: destroys the message unless it was detached. A handle that is gone already is left alone.
void finishDelivery(quorlMsg message) noexcept;

// For a content that will be delivered soon: asks for its memory, first far ahead, then for what that shows when it is
// next.
void prefetchFar(Content* content) noexcept;
void prefetchNear(Content* content) noexcept;

// In a process that was forked while the library was open: no message exists any more, and none can be made. Memory stays
// as it is, since others share it.
void forgetAll() noexcept;

// Messages alive in this process, sub-message handles not counted; for statistics and tests.
quorl_u64 liveMessages() noexcept;

}  // namespace quorl::message
