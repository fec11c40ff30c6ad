// The room that a change of a message needs, and the field heads that it writes; for the files that change messages.
#pragma once

#include <utility>

#include "message/message.h"

namespace quorl::message {

// A change of one message: first it gets what memory it needs, then it happens. A content that the change leaves is
// given back at the end, so that the value being written may lie in it.
class Change {
  public:
    explicit Change(Slot& slot) noexcept : slot_(slot) {}
    ~Change() {
        if (fresh_ != nullptr) fresh_->release();
        if (old_ != nullptr) old_->release();
    }
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;

    // Makes sure of bytes of free room in a content that is the slot's alone. False: no memory.
    bool needRoom(size_t bytes) noexcept {
        if (!borrowed_.begin(slot_)) return false;
        return hasRoom(bytes) || moveToRoom(bytes);
    }

    // Whether the content can be changed where it is and has bytes of free room; after begin.
    bool begin() noexcept { return borrowed_.begin(slot_); }
    bool hasRoom(size_t bytes) const noexcept {
        const Content* content = slot_.content;
        return content != nullptr && content->unshared() && !borrowed_.keepsContent() && content->room() >= bytes;
    }

    // The same where only subjects change.
    bool needSubjects() noexcept;

    // Takes a content (counted) that is ready but for what is to be written. False: no memory.
    bool replaceBy(Content* fresh) noexcept {
        fresh_ = fresh;
        return fresh != nullptr && borrowed_.begin(slot_);
    }

    // The content that the change writes to before it is committed: into free room, or where nobody looks meanwhile.
    Content& pending() noexcept { return fresh_ != nullptr ? *fresh_ : *slot_.content; }

    // The change happens. The value that was written may have lain in what is taken back here.
    Content& commit() noexcept {
        borrowed_.commit(slot_);
        if (fresh_ != nullptr) {
            old_ = slot_.content;
            slot_.content = std::exchange(fresh_, nullptr);
        }
        return *slot_.content;
    }

  private:
    bool moveToRoom(size_t bytes) noexcept;

    Slot& slot_;
    ChangeOfBorrowed borrowed_;
    Content* fresh_ = nullptr;  // to become the slot's; counted
    Content* old_ = nullptr;    // was the slot's; counted
};

// The most that a field without its value takes: head, user type, id, name with terminator, two lengths, padding.
constexpr size_t fieldOverhead(uint8_t nameLength) {
    return 2 + 2 + (nameLength == wire::noName ? 0 : nameLength + 1u) + 10 + wire::imageAlignment - 1;
}

// Writes a field's head and name at to; fills what of the field's record belongs to them. Returns the byte behind.
inline uint8_t* putHead(uint8_t* image, uint8_t* to, const Name& name, uint16_t id, uint8_t type,
                        Field& field) noexcept {
    field.head = static_cast<uint32_t>(to - image);
    uint8_t head = type >= userTypeFirst ? wire::headUserType : type;
    if (name.length != wire::noName) head |= wire::headNamed;
    if (id != 0) head |= wire::headHasId;
    *to++ = head;
    if (type >= userTypeFirst) *to++ = type;
    if (id != 0) {
        wire::store(to, id);
        to += sizeof id;
    }
    field.nameOffset = static_cast<uint8_t>(to - image - field.head);
    field.id = id;
    field.type = type;
    field.nameLength = name.length;
    field.tail = name.tail;
    if (name.length != wire::noName) {
        std::memcpy(to, name.text, name.length);
        to += name.length;
        *to++ = 0;
    }
    return to;
}

// Counts a field that has been written behind the last one, up to end.
inline void closeField(Content& content, const uint8_t* end, uint8_t depth) noexcept {
    content.size = static_cast<uint32_t>(end - content.image);
    wire::keepTail(content.top, content.count, content.field(content.count).tail);
    ++content.count;
    if (depth > content.depth) content.depth = depth;
    content.stampHeader();
    if (content.index.load(std::memory_order_relaxed) != nullptr) indexLast(content);
}

// Reports an id that a field of the content has already: QUORL_ID_IN_USE.
quorl_status idInUse(const Content& content, uint32_t index, uint16_t id) noexcept;

}  // namespace quorl::message
