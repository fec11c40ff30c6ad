// The quick way to append a field: one with a name and without an id, to a message that has room and has handed out
// nothing. Whatever is not as simple goes the general way, which append() of message.h is.
#pragma once

#include "message/message.h"

namespace quorl::message {

// The general way from the handle on.
quorl_status appendGenerally(quorlMsg message, const char* name, uint16_t id, const Value& value) noexcept;

// Copies a name and its terminator. Up to 16 bytes go in two overlapping words: a call of memcpy costs more.
[[gnu::always_inline]] inline void putName(uint8_t* to, const uint8_t* name, uint32_t length, uint32_t tail) noexcept {
    if (length >= 8 && length <= 16) {
        wire::store(to, wire::load<uint64_t>(name));
        wire::store(to + length - 8, wire::load<uint64_t>(name + length - 8));
    } else if (length >= 4 && length < 8) {
        wire::store(to, wire::load<uint32_t>(name));
        wire::store(to + length - 4, tail);
    } else {
        std::memcpy(to, name, length);
    }
    to[length] = 0;
}

// A value of bytes bytes at data; length as Field::length. For scalars both are constants.
template <uint8_t type>
[[gnu::always_inline]] inline quorl_status appendValue(quorlMsg message, const char* name, uint16_t id,
                                                       const void* data, uint32_t length, uint32_t bytes) noexcept {
    constexpr TypeInfo info = typeInfo(type);
    constexpr Kind kind = info.kind;
    static_assert(type < userTypeFirst && kind != Kind::message && kind != Kind::strings && kind != Kind::messages);
    const auto generally = [&] { return appendGenerally(message, name, id, {type, kind, 0, length, bytes, data}); };
    // Beside name and value: head, terminator, a length, padding, whose zeros are written as a whole word, and the
    // table's entry.
    constexpr size_t overhead = 2 + 5 + sizeof(uint64_t) + sizeof(Field);

    Slot* slot = resolve(message);
    if (slot == nullptr || name == nullptr || id != 0 || slot->owner == Owner::outer) return generally();
    Content* content = slot->content;
    if (content == nullptr || slot->handouts != nullptr || slot->marks != 0 || !content->unshared()) return generally();
    const size_t nameLength = strnlen(name, QUORL_FIELD_NAME_MAX + 1);
    if (nameLength > QUORL_FIELD_NAME_MAX) return generally();

    // Everything is read before the first byte is written: the compiler must take those bytes for anything.
    uint8_t* const image = content->image;
    const uint32_t head = content->size;
    const uint32_t count = content->count + 1;
    Field* const field = content->top - count;
    const size_t room = static_cast<size_t>(reinterpret_cast<uint8_t*>(field + 1) - (image + head));
    if (room < overhead + nameLength + bytes || head + size_t{bytes} + 256 > wire::maxSize) return generally();
    const bool indexed = content->index.load(std::memory_order_relaxed) != nullptr;

    const auto* text = reinterpret_cast<const uint8_t*>(name);
    const uint32_t tail = wire::tailOf(text, static_cast<uint32_t>(nameLength));
    image[head] = type | wire::headNamed;
    putName(image + head + 1, text, static_cast<uint32_t>(nameLength), tail);
    uint32_t at = head + 2 + static_cast<uint32_t>(nameLength);
    if constexpr (kind != Kind::scalar) {
        at = static_cast<uint32_t>(wire::putLength(image + at, length) - image);
        if constexpr (info.alignment > 1) {
            wire::store(image + at, uint64_t{0});
            at = wire::alignUp(at, info.alignment);
        }
    }
    if (bytes != 0) std::memcpy(image + at, data, bytes);
    const uint32_t size = at + bytes;
    *field = {head, at, length, tail, 0, type, static_cast<uint8_t>(nameLength), 1, 0};
    content->size = size;
    content->count = count;
    wire::store(image + wire::sizeAt, size | uint64_t{count} << 32);
    if (indexed) indexLast(*content);
    return QUORL_OK;
}

}  // namespace quorl::message
