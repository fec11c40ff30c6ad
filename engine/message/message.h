// Operations on messages behind their handles: what the entry points of the C interface call.
#pragma once

#include <string_view>

#include "base/status.h"
#include "base/utf8.h"
#include "message/borrowed.h"
#include "message/content.h"
#include "message/handle.h"

namespace quorl::message {

// ---- life -------------------------------------------------------------------------------------------------------

// A slot with a live handle, no content and nothing lent; null: no memory.
Slot* openSlot(Owner owner) noexcept;

// A message over content (counted; the message takes it, also on failure; null: empty). QUORL_NO_MEMORY.
quorl_status newMessage(Content* content, Owner owner, uint32_t event, quorlMsg* message) noexcept;

// Ends a message: its handle, what it lent, its content.
void dropMessage(Slot& slot) noexcept;

// ---- attributes of a handle; not of messages inside others --------------------------------------------------------

// What the program has set on a handle; the bytes follow.
struct OwnAttributes {
    uint32_t size;
    Attributes bytes() const noexcept { return {reinterpret_cast<const uint8_t*>(this + 1), size}; }
};

// False: no memory, and nothing is changed. Empty ones take away what is there.
bool setAttributes(Slot& slot, Attributes attributes) noexcept;
// Both kinds, to a slot that has none. False: no memory.
bool copyAttributes(const Slot& from, Slot& to) noexcept;
void dropBoth(Slot& slot) noexcept;
inline void dropAttributes(Slot& slot) noexcept {
    if (slot.received != nullptr || slot.attributes != nullptr) [[unlikely]]
        dropBoth(slot);
}

// ---- reading ----------------------------------------------------------------------------------------------------

// The slot of a handle with the failure reported.
inline quorl_status find(quorlMsg message, Slot** slot) noexcept {
    *slot = resolve(message);
    if (*slot != nullptr) [[likely]]
        return QUORL_OK;
    return fail(QUORL_INVALID_MSG, "message 0x%llx does not exist or has been destroyed",
                static_cast<unsigned long long>(valueOf(message)));
}

// The content of a message that has none of its own: the empty one, or a view made now. Null: no memory.
Content* missingContent(Slot& slot) noexcept;

// The slot and its content for reading; the content of an empty message is a constant one. QUORL_INVALID_MSG,
// QUORL_NO_MEMORY.
inline quorl_status open(quorlMsg message, Slot** slot, Content** content) noexcept {
    if (quorl_status status = find(message, slot); status != QUORL_OK) return status;
    *content = (*slot)->content;
    if (*content != nullptr) [[likely]]
        return QUORL_OK;
    *content = missingContent(**slot);
    return *content != nullptr ? QUORL_OK : fail(QUORL_NO_MEMORY, "no memory to read a message inside a message");
}

// Checks a name given by a caller who looks for a field. That it is UTF-8 is checked when none was found, see below.
inline quorl_status readName(const char* text, Name* name) noexcept {
    if (text == nullptr) return QUORL_OK;
    const size_t length = strnlen(text, QUORL_FIELD_NAME_MAX + 1);
    if (length > QUORL_FIELD_NAME_MAX) {
        return fail(QUORL_INVALID_NAME, "the name \"%.40s...\" is longer than %d bytes", text, QUORL_FIELD_NAME_MAX);
    }
    *name = Name(text, static_cast<uint32_t>(length));
    return QUORL_OK;
}

// Names in messages are UTF-8. text: null for none.
inline quorl_status checkEncoding(const char* text, size_t length) noexcept {
    if (text == nullptr) return QUORL_OK;
    const size_t at = utf8::findInvalid({text, length});
    if (at == std::string_view::npos) [[likely]]
        return QUORL_OK;
    return fail(QUORL_INVALID_NAME, "the name is not UTF-8: byte %zu, 0x%02x, begins no character", at,
                static_cast<unsigned char>(text[at]));
}

// Checks a name given by a caller who may add a field.
inline quorl_status readNewName(const char* text, Name* name) noexcept {
    const quorl_status status = readName(text, name);
    return status == QUORL_OK ? checkEncoding(text, name->length) : status;
}

// The index of the field that name and id ask for: QUORL_OK, QUORL_NOT_FOUND (without a detail text),
// QUORL_ID_CONFLICT.
quorl_status locate(const Content& content, const Name& name, uint16_t id, uint32_t* index) noexcept;

// Fills the public record of a field. QUORL_NO_MEMORY.
quorl_status describe(Slot& slot, Content& content, uint32_t index, quorlMsgField* record) noexcept;

// The handle of the message in a field, the handles of an array of messages, the pointers of an array of strings.
quorl_status innerMessage(Slot& slot, Content& content, uint32_t index, quorlMsg* message) noexcept;
quorl_status innerMessages(Slot& slot, Content& content, uint32_t index, const quorlMsg** messages) noexcept;
quorl_status strings(Slot& slot, Content& content, uint32_t index, const char* const** array) noexcept;

// The message as text; belongs to the slot.
quorl_status print(Slot& slot, Content& content, const char** text) noexcept;

// ---- writing ----------------------------------------------------------------------------------------------------

// A value on its way into a message.
struct Value {
    uint8_t type;
    Kind kind;
    uint8_t depth;    // levels of messages in it
    uint32_t length;  // as Field::length
    uint32_t bytes;   // of the value in the image, behind lengths and padding
    // Kind::strings: const char* const*; Kind::messages: const Image*; otherwise the bytes as they go into the image.
    const void* data;
};

struct Image {
    const uint8_t* bytes;
    uint32_t size;
};

// Refuses what may not be changed: QUORL_INVALID_MSG, QUORL_NOT_PERMITTED.
inline quorl_status findToChange(quorlMsg message, Slot** slot) noexcept {
    if (quorl_status status = find(message, slot); status != QUORL_OK) return status;
    if ((*slot)->owner != Owner::outer) [[likely]]
        return QUORL_OK;
    return fail(QUORL_NOT_PERMITTED, "a message inside a message cannot be changed");
}

// Append a field, replace a field's value or append, remove a field. On failure nothing is changed.
// QUORL_ID_IN_USE, QUORL_ID_CONFLICT, QUORL_INVALID_TYPE, QUORL_INVALID_SIZE, QUORL_INVALID_MSG (too deep),
// QUORL_NO_MEMORY.
quorl_status append(Slot& slot, const Name& name, uint16_t id, const Value& value) noexcept;
quorl_status update(Slot& slot, const Name& name, uint16_t id, const Value& value) noexcept;
quorl_status remove(Slot& slot, uint32_t index) noexcept;

// Sets or, with an empty one, takes away a subject that has been checked. QUORL_NO_MEMORY.
quorl_status setSubject(Slot& slot, std::string_view subject, bool reply) noexcept;

// Removes all fields and both subjects.
quorl_status reset(Slot& slot) noexcept;

}  // namespace quorl::message
