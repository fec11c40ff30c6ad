// Finding the field that a caller asks for.
#include "message/find_field.h"

namespace quorl::message {
namespace {

Found at(Slot* slot, const Content& content, uint32_t index) noexcept {
    return {slot, &content.field(index)};
}

// The search with all its answers.
[[gnu::noinline]] Found findGenerally(quorlMsg message, const char* name, uint16_t id, quorl_status* status) noexcept {
    Slot* slot;
    Content* content;
    Name checked;
    *status = open(message, &slot, &content);
    if (*status != QUORL_OK) return {};
    *status = readName(name, &checked);
    if (*status != QUORL_OK) return {};
    uint32_t index;
    *status = locate(*content, checked, id, &index);
    if (*status == QUORL_OK) return at(slot, *content, index);
    // No field has such a name: whoever asks for one learns that it is none.
    if (const quorl_status invalid = checkEncoding(name, checked.length); invalid != QUORL_OK) {
        *status = invalid;
    } else if (*status == QUORL_NOT_FOUND) {
        *status = missing(name, id);
    }
    return {};
}

}  // namespace

Found findField(quorlMsg message, const char* name, uint16_t id, quorl_status* status) noexcept {
    // The quick way is that of nearly every call: a short name and no id, and a message with few fields.
    Slot* slot = resolve(message);
    if (slot == nullptr || name == nullptr || id != 0) return findGenerally(message, name, id, status);
    const Content* content = slot->content;
    if (content == nullptr || content->count > fewFields) return findGenerally(message, name, id, status);
    ShortText text;
    if (!text.read(name)) return findGenerally(message, name, id, status);
    const uint32_t tail = wire::tailOf(name, text);
    const Field* const top = content->top;
    uint32_t candidates = sameTails(top, tail) & ((1u << content->count) - 1);
    for (; candidates != 0; candidates &= candidates - 1) {
        const Field* field = top - 1 - std::countr_zero(candidates);
        // Behind an image there is always more in the block than a short text is long.
        if (text.equals(content->image + field->name()) && field->nameLength != wire::noName) return {slot, field};
    }
    return findGenerally(message, name, id, status);
}

Found findFieldInstance(quorlMsg message, const char* name, uint32_t instance, quorl_status* status) noexcept {
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
    const uint32_t index = findInstance(*content, checked, instance);
    if (index != notFound) return at(slot, *content, index);
    *status = checkEncoding(name, checked.length);
    if (*status != QUORL_OK) return {};
    *status = name != nullptr ? fail(QUORL_NOT_FOUND, "there is no instance %u of the name \"%s\"", instance, name)
                              : fail(QUORL_NOT_FOUND, "there is no instance %u of the fields without a name", instance);
    return {};
}

}  // namespace quorl::message
