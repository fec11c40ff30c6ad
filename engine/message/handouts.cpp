// Keeping and taking back what messages hand out.
#include "message/handouts.h"

#include <new>

#include "message/message.h"
#include "message/pool.h"

namespace quorl::message {
namespace {

void drop(Handouts::Set& set) noexcept {
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

void retain(Handouts& handouts) noexcept {
    if (handouts.current.messages != nullptr) {
        Slot** last = &handouts.current.messages;
        while (*last != nullptr) last = &(*last)->sibling;
        *last = handouts.retained.messages;
        handouts.retained.messages = handouts.current.messages;
        handouts.current.messages = nullptr;
    }
    if (handouts.current.blocks != nullptr) {
        Block** last = &handouts.current.blocks;
        while (*last != nullptr) last = &(*last)->next;
        *last = handouts.retained.blocks;
        handouts.retained.blocks = handouts.current.blocks;
        handouts.current.blocks = nullptr;
    }
}

void dropRetained(Handouts& handouts) noexcept {
    drop(handouts.retained);
    while (handouts.kept != nullptr) {
        Kept* kept = handouts.kept;
        handouts.kept = kept->next;
        if (kept->content != nullptr) kept->content->release();
        deallocate(kept);
    }
}

}  // namespace

Handouts* handoutsOf(Slot& slot) noexcept {
    if (slot.handouts == nullptr) {
        void* memory = allocate(sizeof(Handouts));
        if (memory == nullptr) return nullptr;
        slot.handouts = new (memory) Handouts{};
    }
    return slot.handouts;
}

Block* newBlockFor(Handouts& handouts, size_t size) noexcept {
    void* memory = allocate(sizeof(Block) + size);
    if (memory == nullptr) return nullptr;
    auto* block = new (memory) Block{handouts.current.blocks};
    handouts.current.blocks = block;
    return block;
}

void** placeFor(Handouts& handouts, uint32_t field, uint32_t count) noexcept {
    if (handouts.byField == nullptr) {
        const size_t size = count * sizeof(void*);
        Block* block = newBlockFor(handouts, size);
        if (block == nullptr) return nullptr;
        std::memset(block->bytes(), 0, size);
        handouts.byField = static_cast<void**>(block->bytes());
    }
    return &handouts.byField[field];
}

Slot* newInner(Handouts& handouts, Content* content, const uint8_t* image) noexcept {
    Slot* inner = openSlot(Owner::outer);
    if (inner == nullptr) return nullptr;
    inner->outerContent = content;
    inner->image = image;
    inner->sibling = handouts.current.messages;
    handouts.current.messages = inner;
    return inner;
}

bool ChangeOfHandouts::makeKept(Slot& slot) noexcept {
    if (handoutsOf(slot) == nullptr) return false;
    kept = static_cast<Kept*>(allocate(sizeof(Kept)));
    return kept != nullptr;
}

void ChangeOfHandouts::takeBack(Slot& slot) noexcept {
    Handouts& handouts = *slot.handouts;
    if (kept != nullptr) {
        if (slot.content != nullptr) slot.content->retain();
        kept->content = slot.content;
        kept->next = handouts.kept;
        handouts.kept = kept;
        kept = nullptr;
        retain(handouts);
        slot.handedOut = false;
    } else {
        drop(handouts.current);
    }
    handouts.byField = nullptr;
    handouts.printed = nullptr;
}

void openBracket(Slot& slot) noexcept {
    if (slot.marks++ == 0) slot.handedOut = false;
}

void closeBracket(Slot& slot) noexcept {
    if (slot.marks == 0 || --slot.marks != 0) return;
    if (slot.handouts != nullptr) dropRetained(*slot.handouts);
}

void dropHandouts(Slot& slot) noexcept {
    Handouts* handouts = slot.handouts;
    if (handouts == nullptr) return;
    slot.handouts = nullptr;
    drop(handouts->current);
    dropRetained(*handouts);
    deallocate(handouts);
}

}  // namespace quorl::message
