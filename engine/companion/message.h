// Messages as companion libraries see them: counted, never changed, with attributes beside the fields.
//
//     Message data;
//     Message::of(handle, &data);                      // what the program sends
//     data.withAttributes(frame, &data);               // the fields are shared, not copied
//
// Attributes are bytes of a companion's. No reader of fields sees them, listeners of the program hear the message without
// them, and every kind of transport carries them. Their first byte names the companion and the second the version of what
// follows, so that each tells its own from others'.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>

#include "quorl/quorl.h"

namespace quorl::message {
class Content;
class ContentRef;
}  // namespace quorl::message

namespace quorl::companion {

// Bytes of the attributes of one message.
inline constexpr size_t attributesMax = 2048;

// A counted reference to a message, or none. It may be copied, moved and read by any number of threads; one object is one
// thread's at a time. What it gives out lives as long as the object, or a copy of it, does.
class QUORL_API Message {
  public:
    Message() noexcept = default;
    Message(const Message& other) noexcept;
    Message(Message&& other) noexcept : content_(std::exchange(other.content_, nullptr)) {}
    Message& operator=(Message other) noexcept {
        std::swap(content_, other.content_);
        return *this;
    }
    ~Message();

    explicit operator bool() const noexcept { return content_ != nullptr; }

    // Of a message, not of none. Subjects are zero-terminated, and empty where there is none.
    std::string_view subject() const noexcept;
    std::string_view replySubject() const noexcept;
    std::span<const uint8_t> image() const noexcept;       // docs/reference/wire-format.md; aligned to 8 bytes
    std::span<const uint8_t> attributes() const noexcept;  // empty: none

    // A message made from an image that may come from anywhere, which is checked and copied. An empty subject is none.
    // QUORL_CORRUPT_MSG, QUORL_INVALID_SUBJECT, QUORL_NO_MEMORY.
    static quorl_status fromImage(std::span<const uint8_t> image, std::string_view subject,
                                  std::string_view replySubject, Message* made) noexcept;
    // One without fields. QUORL_INVALID_SUBJECT, QUORL_NO_MEMORY.
    static quorl_status empty(std::string_view subject, Message* made) noexcept;

    // The same fields with other subjects, or other attributes; the rest stays. Each may change the object itself.
    // QUORL_INVALID_SUBJECT, QUORL_INVALID_SIZE, QUORL_NO_MEMORY.
    quorl_status withSubjects(std::string_view subject, std::string_view replySubject, Message* changed) const noexcept;
    quorl_status withAttributes(std::span<const uint8_t> attributes, Message* changed) const noexcept;

    // ---- messages of the program, by their handles

    // What the handle holds now, without attributes. QUORL_INVALID_MSG, QUORL_NO_MEMORY.
    static quorl_status of(quorlMsg handle, Message* message) noexcept;
    // What a companion's event delivered under the handle, or under the one that it is a copy of: as it came, with its
    // attributes, whatever the program has changed since. QUORL_INVALID_MSG; QUORL_NOT_FOUND: it was not delivered so.
    static quorl_status received(quorlMsg handle, Message* message) noexcept;
    // A handle over the message, which the program is to destroy. Its received() is this message. QUORL_NO_MEMORY.
    quorl_status handOver(quorlMsg* handle) const noexcept;
    // The same for one callback: the handle is the library's until takeBack, unless the program detaches or destroys it.
    quorl_status lend(quorlMsg* handle) const noexcept;
    static void takeBack(quorlMsg handle) noexcept;

  private:
    friend struct Access;
    message::Content* content_ = nullptr;
};

// Attributes that the program sets on a handle before it sends, through a function of the companion's: a limit of time,
// say. They belong to the handle, survive changes of its fields and go with its copies; a reset takes them away. No send
// carries them: the companion reads them and puts what it likes into a message.
// The span lives until the attributes are set again or the message is destroyed; empty: none. QUORL_INVALID_MSG.
QUORL_API quorl_status handleAttributes(quorlMsg handle, std::span<const uint8_t>* attributes) noexcept;
// Empty takes them away. QUORL_INVALID_MSG, QUORL_NOT_PERMITTED (a message inside a message), QUORL_INVALID_SIZE,
// QUORL_NO_MEMORY.
QUORL_API quorl_status setHandleAttributes(quorlMsg handle, std::span<const uint8_t> attributes) noexcept;

}  // namespace quorl::companion
