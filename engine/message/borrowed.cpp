// Keeping and taking back borrowed references.
#include "message/borrowed.h"

#include <new>

#include "message/message.h"
#include "message/pool.h"

namespace quorl::message {
namespace {

void drop(Borrowed::Set& set) noexcept {
    while (set.messages != nullptr) {
        Slot* inner = set.messages;
        set.messages = inner->sibling;
        dropMessage(*inner);
    }
    while (set.blocks != nullptr) {
        Block* block = set.blocks;
        set.blocks = block->next;
        deallocate(block);
    }
}

void retain(Borrowed& borrowed) noexcept {
    if (borrowed.current.messages != nullptr) {
        Slot** last = &borrowed.current.messages;
        while (*last != nullptr) last = &(*last)->sibling;
        *last = borrowed.retained.messages;
        borrowed.retained.messages = borrowed.current.messages;
        borrowed.current.messages = nullptr;
    }
    if (borrowed.current.blocks != nullptr) {
        Block** last = &borrowed.current.blocks;
        while (*last != nullptr) last = &(*last)->next;
        *last = borrowed.retained.blocks;
        borrowed.retained.blocks = borrowed.current.blocks;
        borrowed.current.blocks = nullptr;
    }
}

void dropRetained(Borrowed& borrowed) noexcept {
    drop(borrowed.retained);
    while (borrowed.kept != nullptr) {
        Kept* kept = borrowed.kept;
        borrowed.kept = kept->next;
        if (kept->content != nullptr) kept->content->release();
        deallocate(kept);
    }
}

}  // namespace

Borrowed* borrowedOf(Slot& slot) noexcept {
    if (slot.borrowed == nullptr) {
        void* memory = allocate(sizeof(Borrowed));
        if (memory == nullptr) return nullptr;
        slot.borrowed = new (memory) Borrowed{};
    }
    return slot.borrowed;
}

Block* newBlockFor(Borrowed& borrowed, size_t size) noexcept {
    void* memory = allocate(sizeof(Block) + size);
    if (memory == nullptr) return nullptr;
    auto* block = new (memory) Block{borrowed.current.blocks};
    borrowed.current.blocks = block;
    return block;
}

void** placeFor(Borrowed& borrowed, uint32_t field, uint32_t count) noexcept {
    if (borrowed.byField == nullptr) {
        const size_t size = count * sizeof(void*);
        Block* block = newBlockFor(borrowed, size);
        if (block == nullptr) return nullptr;
        std::memset(block->bytes(), 0, size);
        borrowed.byField = static_cast<void**>(block->bytes());
    }
    return &borrowed.byField[field];
}

Slot* newInner(Borrowed& borrowed, Content* content, const uint8_t* image) noexcept {
    Slot* inner = openSlot(Owner::outer);
    if (inner == nullptr) return nullptr;
    inner->outerContent = content;
    inner->image = image;
    inner->sibling = borrowed.current.messages;
    borrowed.current.messages = inner;
    return inner;
}

bool ChangeOfBorrowed::makeKept(Slot& slot) noexcept {
    if (borrowedOf(slot) == nullptr) return false;
    kept = static_cast<Kept*>(allocate(sizeof(Kept)));
    return kept != nullptr;
}

void ChangeOfBorrowed::takeBack(Slot& slot) noexcept {
    Borrowed& borrowed = *slot.borrowed;
    if (kept != nullptr) {
        if (slot.content != nullptr) slot.content->retain();
        kept->content = slot.content;
        kept->next = borrowed.kept;
        borrowed.kept = kept;
        kept = nullptr;
        retain(borrowed);
        slot.lent = false;
    } else {
        drop(borrowed.current);
    }
    borrowed.byField = nullptr;
    borrowed.printed = nullptr;
}

void openBracket(Slot& slot) noexcept {
    if (slot.brackets++ == 0) slot.lent = false;
}

void closeBracket(Slot& slot) noexcept {
    if (slot.brackets == 0 || --slot.brackets != 0) return;
    if (slot.borrowed != nullptr) dropRetained(*slot.borrowed);
}

void dropBorrowed(Slot& slot) noexcept {
    Borrowed* borrowed = slot.borrowed;
    if (borrowed == nullptr) return;
    slot.borrowed = nullptr;
    drop(borrowed->current);
    dropRetained(*borrowed);
    deallocate(borrowed);
}

}  // namespace quorl::message
