// Finding the field that a caller asks for by handle, name and id.
#pragma once

#include "message/message.h"

namespace quorl::message {

// A field that was found.
struct Found {
    Slot* slot;
    Content* content;
    uint32_t index;

    const Field& field() const noexcept { return content->field(index); }
    const uint8_t* value() const noexcept { return content->value(field()); }
};

// QUORL_INVALID_MSG, QUORL_INVALID_NAME, QUORL_NOT_FOUND, QUORL_ID_CONFLICT, QUORL_NO_MEMORY.
inline quorl_status seek(quorlMsg message, const char* name, uint16_t id, Found* found) noexcept {
    Name checked;
    if (quorl_status status = open(message, &found->slot, &found->content); status != QUORL_OK) return status;
    if (quorl_status status = readName(name, &checked); status != QUORL_OK) return status;
    const quorl_status status = locate(*found->content, checked, id, &found->index);
    return status == QUORL_NOT_FOUND ? missing(name, id) : status;
}

inline quorl_status noConversion(const Field& field, uint8_t wanted) noexcept {
    return fail(QUORL_CONVERSION_FAILED, "the field's value, of type %s, is no value of type %s", typeName(field.type),
                typeName(wanted));
}

// As above, for a field of one type alone: QUORL_CONVERSION_FAILED for others.
inline quorl_status seek(quorlMsg message, const char* name, uint16_t id, uint8_t type, Found* found) noexcept {
    if (quorl_status status = seek(message, name, id, found); status != QUORL_OK) return status;
    return found->field().type == type ? QUORL_OK : noConversion(found->field(), type);
}

}  // namespace quorl::message
