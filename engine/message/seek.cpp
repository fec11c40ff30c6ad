// Finding the field that a caller asks for.
#include "message/seek.h"

#include "message/field_index.h"

namespace quorl::message {
namespace {

Found at(Slot* slot, const Content& content, uint32_t index) noexcept {
    return {slot, &content.field(index)};
}

}  // namespace

Found seek(quorlMsg message, const char* name, uint16_t id, quorl_status* status) noexcept {
    Slot* slot;
    Content* content;
    Name checked;
    // The quick way is that of nearly every call: a name, no id, few fields.
    slot = resolve(message);
    if (slot != nullptr && name != nullptr && id == 0 && slot->content != nullptr) [[likely]] {
        content = slot->content;
        const size_t length = strnlen(name, QUORL_FIELD_NAME_MAX + 1);
        if (length <= QUORL_FIELD_NAME_MAX) [[likely]] {
            checked = Name(name, static_cast<uint32_t>(length));
            if (content->count > fewFields) {
                const uint32_t index = findName(*content, checked);
                if (index != notFound) return at(slot, *content, index);
            } else {
                const Field* const last = content->top - content->count;
                for (const Field* field = content->top; field != last;) {
                    --field;
                    if (field->tail == checked.tail && sameName(*content, *field, checked)) return {slot, field};
                }
            }
            *status = missing(name, id);
            return {};
        }
    }
    *status = open(message, &slot, &content);
    if (*status != QUORL_OK) return {};
    *status = readName(name, &checked);
    if (*status != QUORL_OK) return {};
    uint32_t index;
    *status = locate(*content, checked, id, &index);
    if (*status == QUORL_OK) return at(slot, *content, index);
    if (*status == QUORL_NOT_FOUND) *status = missing(name, id);
    return {};
}

Found seekInstance(quorlMsg message, const char* name, uint32_t instance, quorl_status* status) noexcept {
    Slot* slot;
    Content* content;
    Name checked;
    *status = open(message, &slot, &content);
    if (*status != QUORL_OK) return {};
    *status = readName(name, &checked);
    if (*status != QUORL_OK) return {};
    if (instance == 0) {
        *status = fail(QUORL_INVALID_INSTANCE, "instances are counted from 1");
        return {};
    }
    uint32_t index = findName(*content, checked);
    for (uint32_t left = instance - 1; index != notFound && left > 0; --left) {
        index = findNameFrom(*content, checked, index + 1);
    }
    if (index != notFound) return at(slot, *content, index);
    *status = fail(QUORL_NOT_FOUND, "no instance %u of the name \"%s\"", instance, name != nullptr ? name : "");
    return {};
}

}  // namespace quorl::message
