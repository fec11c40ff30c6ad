// Borrowed references: what a message has lent to its holder, messages inside it, arrays of pointers, its printed form; and the
// reference brackets that keep them, and the content that they point into, over a change.
#pragma once

#include "message/content.h"
#include "message/handle.h"

namespace quorl::message {

// A piece of memory that lives until the message changes; the caller's bytes follow it.
struct alignas(16) Block {
    Block* next;
    void* bytes() noexcept { return this + 1; }
};

// A content that a bracket keeps.
struct Kept {
    Kept* next;
    Content* content;  // counted; null for an empty message, whose printed form may be out
};

struct Borrowed {
    struct Set {
        Slot* messages;  // linked by sibling
        Block* blocks;
    };
    Set current;   // belongs to the content as it is
    Set retained;  // lent in the open bracket, of contents that are no more
    Kept* kept;    // those contents
    // In a block of current: for each field what was made for it (a Slot or a Block), or null. Null before the first.
    void** byField;
    const char* printed;  // in a block of current; null: not asked for yet
};

// The slot's borrowed references, made if need be; null: no memory.
Borrowed* borrowedOf(Slot& slot) noexcept;

// A block of size bytes in borrowed.current; null: no memory.
Block* newBlockFor(Borrowed& borrowed, size_t size) noexcept;

// The place that remembers what was made for a field of a content with count fields; null: no memory.
void** placeFor(Borrowed& borrowed, uint32_t field, uint32_t count) noexcept;

// A handle for an image inside content, which is slot's; null: no memory.
Slot* newInner(Borrowed& borrowed, Content* content, const uint8_t* image) noexcept;

// Says that pointers into the content are given out.
inline void noteBorrowed(Slot& slot) noexcept {
    if (slot.brackets != 0) slot.lent = true;
}

// Around a change of a message's content: first begin, which may need memory and changes nothing, then commit while the
// slot still has the content as it was.
struct ChangeOfBorrowed {
    Kept* kept = nullptr;  // for the content that an open bracket must keep
    bool begin(Slot& slot) noexcept { return slot.brackets == 0 || !slot.lent || keepsContent() || makeKept(slot); }
    // Whether the content must stay as it is, so that a change needs a copy.
    bool keepsContent() const noexcept { return kept != nullptr; }
    void commit(Slot& slot) noexcept {
        if (slot.borrowed != nullptr || kept != nullptr) takeBack(slot);
    }
    ~ChangeOfBorrowed() {
        if (kept != nullptr) deallocate(kept);
    }
    ChangeOfBorrowed() noexcept = default;
    ChangeOfBorrowed(const ChangeOfBorrowed&) = delete;
    ChangeOfBorrowed& operator=(const ChangeOfBorrowed&) = delete;

  private:
    bool makeKept(Slot& slot) noexcept;
    void takeBack(Slot& slot) noexcept;
};

void openBracket(Slot& slot) noexcept;
void closeBracket(Slot& slot) noexcept;

// Frees everything that was lent, whatever brackets are open.
void dropBorrowed(Slot& slot) noexcept;

}  // namespace quorl::message
