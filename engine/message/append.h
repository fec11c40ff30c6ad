// The quick way to append a field: one with a short name, to a message that has room and has lent nothing. Whatever
// is not as simple goes the general way, which append() of message.h is.
#pragma once

#include "message/message.h"

namespace quorl::message {

// The general way from the handle on, for a value of such a type; length as Field::length.
quorl_status appendGenerally(quorlMsg message, const char* name, uint16_t id, uint8_t type, uint32_t length,
                             const void* data) noexcept;

// Copies a value. One of 16 to 32 bytes goes in two overlapping halves: a call of memcpy costs more.
[[gnu::always_inline]] inline void putData(uint8_t* to, const void* data, uint32_t bytes) noexcept {
    struct Words {
        uint64_t first, second;
    };
    if (!__builtin_constant_p(bytes) && bytes >= sizeof(Words) && bytes <= 2 * sizeof(Words)) {
        const auto* from = static_cast<const uint8_t*>(data);
        const auto head = wire::load<Words>(from);
        const auto rest = wire::load<Words>(from + bytes - sizeof(Words));
        wire::store(to, head);
        wire::store(to + bytes - sizeof(Words), rest);
    } else if (bytes != 0) {
        std::memcpy(to, data, bytes);
    }
}

// A value of bytes bytes at data; length as Field::length. For scalars both are constants.
template <uint8_t type>
[[gnu::always_inline]] inline quorl_status appendValue(quorlMsg message, const char* name, uint16_t id,
                                                       const void* data, uint32_t length, uint32_t bytes) noexcept {
    constexpr TypeInfo info = typeInfo(type);
    constexpr Kind kind = info.kind;
    static_assert(type < userTypeFirst && kind != Kind::message && kind != Kind::strings && kind != Kind::messages);
    const auto generally = [&] { return appendGenerally(message, name, id, type, length, data); };
    // Beside the value: head, id, name, a length, padding, whose zeros are written as a whole word, and the table's entry.
    constexpr size_t overhead = 3 + 2 * ShortText::wordSize + 5 + sizeof(uint64_t) + sizeof(Field);

    Slot* slot = resolve(message);
    if (slot == nullptr || name == nullptr || slot->owner == Owner::outer) return generally();
    Content* content = slot->content;
    if (content == nullptr || slot->borrowed != nullptr || slot->brackets != 0 || !content->unshared())
        return generally();
    ShortText text;
    if (!text.read(name) || !text.isAscii()) return generally();
    if (id != 0 && findId(*content, id) != notFound) return generally();

    // Everything is read before the first byte is written: the compiler must take those bytes for anything.
    uint8_t* const image = content->image;
    const uint32_t head = content->size;
    const uint32_t count = content->count + 1;
    Field* const field = content->top - count;
    const size_t room = static_cast<size_t>(reinterpret_cast<uint8_t*>(field + 1) - (image + head));
    if (room < overhead + bytes || head + size_t{bytes} + 256 > wire::maxSize) return generally();
    const bool indexed = content->index.load(std::memory_order_relaxed) != nullptr;

    const uint32_t tail = wire::tailOf(name, text);
    uint32_t at = head + 1;
    if (id != 0) {
        wire::store(image + at, id);
        at += sizeof id;
    }
    const uint32_t nameOffset = at - head;
    image[head] = static_cast<uint8_t>(type | wire::headNamed | (id != 0 ? wire::headHasId : 0));
    text.write(image + at);
    at += text.length + 1;
    if constexpr (kind != Kind::scalar) {
        at = static_cast<uint32_t>(wire::putLength(image + at, length) - image);
        if constexpr (info.alignment > 1) {
            wire::store(image + at, uint64_t{0});
            at = wire::alignUp(at, info.alignment);
        }
    }
    putData(image + at, data, bytes);
    const uint32_t size = at + bytes;
    *field = {head, at, length, tail, id, type, static_cast<uint8_t>(text.length), static_cast<uint8_t>(nameOffset), 0};
    wire::keepTail(field + count, count - 1, tail);
    content->size = size;
    content->count = count;
    wire::store(image + wire::sizeAt, size | uint64_t{count} << 32);
    if (indexed) indexLast(*content);
    return QUORL_OK;
}

}  // namespace quorl::message
