// The detail texts of failures that concern one field: which field it is, the type found, and the type asked for.
#pragma once

#include "message/content.h"

namespace quorl::message {

// No field has that id, or that name when the id is 0. Returns QUORL_NOT_FOUND. Cheap: searches that fail are nothing
// unusual.
quorl_status missing(const char* name, uint16_t id) noexcept;

// The field's value is none of the type wanted. Returns QUORL_CONVERSION_FAILED. Cheap as well.
quorl_status noConversion(const Content& content, const Field& field, uint8_t wanted) noexcept;

// Puts the field that was to be added or changed before the detail text that is there. Returns status.
quorl_status inField(quorl_status status, const char* name, uint16_t id) noexcept;

// A type for a text: "I32", "USER200", "UNKNOWN77".
struct TypeText {
    char text[24];
    explicit TypeText(uint8_t type) noexcept;
};

}  // namespace quorl::message
