// The life of messages and the reading of their fields.
#include "message/message.h"

#include <new>

#include "message/pool.h"

namespace quorl::message {

constinit std::atomic<Slot*> handles::chunks[handles::maxChunks] = {};

namespace {

// What messages without fields and subjects are read as. Never written, never counted.
struct NoFields {
    Field table[1];
    uint32_t tails[wire::tailsKept];
};
constinit NoFields noFields = {};
constinit Content emptyContent = {
    .references = 1,
    .size = wire::headerSize,
    .image = const_cast<uint8_t*>(emptyImage),
    .top = noFields.table + 1,
    .count = 0,
    .sizeClass = 0,
    .depth = 0,
    .sendLength = 0,
    .replyLength = 0,
    .base = nullptr,
    .index = nullptr,
    .longSend = nullptr,
    .longReply = nullptr,
    .shortSend = {},
    .shortReply = {},
};

void fillScalar(const uint8_t* value, uint8_t type, quorlLocalData* data) noexcept {
    switch (type) {
#define QUORL_SCALAR(TYPE, Name, Native, member)               \
    case QUORLMSG_##TYPE:                                      \
        if constexpr (wireSizeOf<Native> == sizeof(Native)) {  \
            std::memcpy(&data->member, value, sizeof(Native)); \
            return;                                            \
        }                                                      \
        break;
#include "message/types.def"
        default:
            return;
    }
    if (type == QUORLMSG_BOOL) {
        data->boolean = *value != 0 ? QUORL_TRUE : QUORL_FALSE;
    } else {
        data->date.sec = wire::load<int64_t>(value);
        data->date.nsec = wire::load<uint32_t>(value + 8);
    }
}

// Inline in newMessage, which every delivery goes through.
[[gnu::always_inline]] inline Slot* open(Owner owner) noexcept {
    Slot* slot = pool::acquireSlot(owner == Owner::outer ? 0 : 1);
    if (slot == nullptr) return nullptr;
    slot->content = nullptr;
    slot->event = 0;
    slot->received = nullptr;
    slot->attributes = nullptr;
    slot->borrowed = nullptr;
    slot->brackets = 0;
    slot->owner = owner;
    slot->lent = false;
    slot->live.store(slot->next, std::memory_order_release);
    return slot;
}

}  // namespace

Slot* openSlot(Owner owner) noexcept {
    return open(owner);
}

quorl_status newMessage(Content* content, Owner owner, uint32_t event, quorlMsg* message) noexcept {
    Slot* slot = open(owner);
    if (slot == nullptr) {
        if (content != nullptr) content->release();
        return fail(QUORL_NO_MEMORY, "no memory for a message");
    }
    slot->content = content;
    slot->event = event;
    *message = handleOf(*slot);
    return QUORL_OK;
}

void dropMessage(Slot& slot) noexcept {
    slot.next = slot.live.load(std::memory_order_relaxed) + handles::useStep;
    if (slot.next >> handles::indexBits == 0) slot.next += handles::useStep;
    slot.live.store(0, std::memory_order_release);
    if (slot.borrowed != nullptr) dropBorrowed(slot);
    if (slot.owner != Owner::outer) dropAttributes(slot);
    if (slot.content != nullptr) slot.content->release();
    pool::releaseSlot(&slot, slot.owner == Owner::outer ? 0 : -1);
}

namespace {

void replaceOwn(Slot& slot, OwnAttributes* by) noexcept {
    if (slot.attributes != nullptr) deallocate(slot.attributes);
    slot.attributes = by;
}

}  // namespace

void dropBoth(Slot& slot) noexcept {
    if (slot.received != nullptr) slot.received->release();
    slot.received = nullptr;
    replaceOwn(slot, nullptr);
}

bool setAttributes(Slot& slot, Attributes attributes) noexcept {
    OwnAttributes* made = nullptr;
    if (!attributes.empty()) {
        void* memory = allocate(sizeof(OwnAttributes) + attributes.size());
        if (memory == nullptr) return false;
        made = new (memory) OwnAttributes{static_cast<uint32_t>(attributes.size())};
        std::memcpy(made + 1, attributes.data(), attributes.size());
    }
    replaceOwn(slot, made);
    return true;
}

bool copyAttributes(const Slot& from, Slot& to) noexcept {
    if (from.attributes != nullptr && !setAttributes(to, from.attributes->bytes())) return false;
    if (from.received != nullptr) from.received->retain();
    to.received = from.received;
    return true;
}

Content* missingContent(Slot& slot) noexcept {
    if (slot.owner != Owner::outer) return &emptyContent;
    slot.content = newView(slot.outerContent, slot.image);
    return slot.content;
}

quorl_status locate(const Content& content, const Name& name, uint16_t id, uint32_t* index) noexcept {
    const uint32_t found = id != 0 ? findId(content, id) : findName(content, name);
    if (found == notFound) return QUORL_NOT_FOUND;
    if (id != 0 && name.text != nullptr && !sameName(content, content.field(found), name)) {
        const char* other = content.name(content.field(found));
        return fail(QUORL_ID_CONFLICT, "the field with id %u has %s%s%s, not \"%s\"", id,
                    other != nullptr ? "the name \"" : "no name", other != nullptr ? other : "",
                    other != nullptr ? "\"" : "", name.text);
    }
    *index = found;
    return QUORL_OK;
}

quorl_status describe(Slot& slot, Content& content, uint32_t index, quorlMsgField* record) noexcept {
    const Field& field = content.field(index);
    const TypeInfo& info = typeInfo(field.type);
    const uint8_t* value = content.value(field);
    uint32_t size = info.nativeSize;
    uint32_t count = 1;
    // The record is written where it stands, and only when nothing can fail any more.
    switch (info.kind) {
        case Kind::scalar:
            fillScalar(value, field.type, &record->data);
            break;
        case Kind::string:
            size = field.length;
            record->data.str = reinterpret_cast<const char*>(value);
            break;
        case Kind::bytes:
            size = field.length;
            record->data.buf = value;
            break;
        case Kind::numbers:
            count = field.length;
            record->data.array = value;
            break;
        case Kind::message: {
            size = field.length;
            quorlMsg inner;
            if (quorl_status status = innerMessage(slot, content, index, &inner); status != QUORL_OK) return status;
            record->data.msg = inner;
            break;
        }
        case Kind::strings: {
            count = field.length;
            const char* const* array;
            if (quorl_status status = strings(slot, content, index, &array); status != QUORL_OK) return status;
            record->data.array = array;
            break;
        }
        case Kind::messages: {
            count = field.length;
            const quorlMsg* array;
            if (quorl_status status = innerMessages(slot, content, index, &array); status != QUORL_OK) return status;
            record->data.array = array;
            break;
        }
        case Kind::none:
            break;
    }
    noteBorrowed(slot);
    record->name = content.name(field);
    record->size = size;
    record->count = count;
    record->id = field.id;
    record->type = field.type;
    return QUORL_OK;
}

quorl_status innerMessage(Slot& slot, Content& content, uint32_t index, quorlMsg* message) noexcept {
    noteBorrowed(slot);
    Borrowed* borrowed = borrowedOf(slot);
    void** place = borrowed != nullptr ? placeFor(*borrowed, index, content.count) : nullptr;
    if (place == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the handle of an inner message");
    if (*place == nullptr) *place = newInner(*borrowed, &content, content.value(content.field(index)));
    if (*place == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the handle of an inner message");
    *message = handleOf(*static_cast<Slot*>(*place));
    return QUORL_OK;
}

quorl_status innerMessages(Slot& slot, Content& content, uint32_t index, const quorlMsg** messages) noexcept {
    noteBorrowed(slot);
    const Field& field = content.field(index);
    Borrowed* borrowed = borrowedOf(slot);
    void** place = borrowed != nullptr ? placeFor(*borrowed, index, content.count) : nullptr;
    if (place != nullptr && *place == nullptr) {
        // Handles that were made before memory ran out stay in the list of borrowed, unused, until the next change.
        Block* block = newBlockFor(*borrowed, sizeof(quorlMsg) * field.length);
        auto* array = block != nullptr ? static_cast<quorlMsg*>(block->bytes()) : nullptr;
        uint32_t at = field.value;
        for (uint32_t i = 0; array != nullptr && i < field.length; ++i) {
            at = wire::alignUp(at, wire::imageAlignment);
            const uint8_t* image = content.image + at;
            Slot* inner = newInner(*borrowed, &content, image);
            if (inner == nullptr) {
                array = nullptr;
                break;
            }
            array[i] = handleOf(*inner);
            at += wire::load<uint32_t>(image + wire::sizeAt);
        }
        *place = array;
    }
    if (place == nullptr || *place == nullptr) {
        return fail(QUORL_NO_MEMORY, "no memory for the handles of %u inner messages", field.length);
    }
    *messages = static_cast<const quorlMsg*>(*place);
    return QUORL_OK;
}

quorl_status strings(Slot& slot, Content& content, uint32_t index, const char* const** array) noexcept {
    noteBorrowed(slot);
    const Field& field = content.field(index);
    Borrowed* borrowed = borrowedOf(slot);
    void** place = borrowed != nullptr ? placeFor(*borrowed, index, content.count) : nullptr;
    if (place != nullptr && *place == nullptr) {
        if (Block* block = newBlockFor(*borrowed, sizeof(const char*) * field.length)) {
            auto* pointers = static_cast<const char**>(block->bytes());
            const char* text = reinterpret_cast<const char*>(content.value(field));
            for (uint32_t i = 0; i < field.length; ++i) {
                pointers[i] = text;
                text += std::strlen(text) + 1;
            }
            *place = pointers;
        }
    }
    if (place == nullptr || *place == nullptr) {
        return fail(QUORL_NO_MEMORY, "no memory for the pointers of %u strings", field.length);
    }
    *array = static_cast<const char* const*>(*place);
    return QUORL_OK;
}

}  // namespace quorl::message
