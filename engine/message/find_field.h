// Finding the field that a caller asks for by handle, name and id.
#pragma once

#include "message/field_faults.h"
#include "message/message.h"

namespace quorl::message {

// A field that was found; the slot has a content then. field null: none.
struct Found {
    Slot* slot;
    const Field* field;

    Content& content() const noexcept { return *slot->content; }
    uint32_t index() const noexcept { return static_cast<uint32_t>(content().top - field - 1); }
    const uint8_t* value() const noexcept { return content().value(*field); }
    explicit operator bool() const noexcept { return field != nullptr; }
};

// On failure the status is QUORL_INVALID_MSG, QUORL_INVALID_NAME, QUORL_NOT_FOUND, QUORL_ID_CONFLICT or
// QUORL_NO_MEMORY; otherwise it is left alone.
Found findField(quorlMsg message, const char* name, uint16_t id, quorl_status* status) noexcept;

// As above for the instance-th field of that name: QUORL_INVALID_INSTANCE for 0.
Found findFieldInstance(quorlMsg message, const char* name, uint32_t instance, quorl_status* status) noexcept;

// As findField, for a field of one type alone: QUORL_CONVERSION_FAILED for others.
inline Found findTyped(quorlMsg message, const char* name, uint16_t id, uint8_t type, quorl_status* status) noexcept {
    const Found found = findField(message, name, id, status);
    if (!found || found.field->type == type) return found;
    *status = noConversion(found.content(), *found.field, type);
    return {};
}

}  // namespace quorl::message
