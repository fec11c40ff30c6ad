// The walk over the fields of an image, checked and unchecked.
#include "message/wire.h"

#include <algorithm>

#include "base/status.h"

namespace quorl::message::wire {

bool checkHeader(const uint8_t* image, uint32_t limit, uint32_t base, uint32_t level, Fault* fault) noexcept {
    auto bad = [&](const char* what, uint32_t at) {
        *fault = {what, base + at, 0, level};
        return false;
    };
    if (limit < headerSize) return bad("the header is cut short", 0);
    uint32_t word = load<uint32_t>(image);
    if ((word & 0xffff) != (magic & 0xffff)) return bad("no message begins here", 0);
    if (word != magic) return bad("unknown format version", 2);
    uint32_t size = load<uint32_t>(image + sizeAt);
    if (size < headerSize) return bad("the size is smaller than the header", sizeAt);
    if (size > QUORL_MSG_MAX_SIZE) return bad("the size is above the limit", sizeAt);
    if (size > limit) return bad("the size reaches past the end", sizeAt);
    if (load<uint32_t>(image + countAt) > (size - headerSize) / minFieldSize) {
        return bad("more fields than bytes for them", countAt);
    }
    return true;
}

quorl_status report(const Fault& fault) noexcept {
    if (fault.level == 0) {
        return fail(QUORL_CORRUPT_MSG, "corrupt message: %s, byte %u, field %u", fault.what, fault.at, fault.field);
    }
    return fail(QUORL_CORRUPT_MSG, "corrupt message: %s, byte %u, field %u of a message at level %u", fault.what,
                fault.at, fault.field, fault.level);
}

template <bool checked>
bool Walk<checked>::length(uint32_t& at, uint32_t* value) noexcept {
    if (checked && at >= size_) return bad("a length is cut short", at);
    uint32_t byte = image_[at++];
    if (byte < 0x80) [[likely]] {
        *value = byte;
        return true;
    }
    uint32_t start = at - 1;
    uint32_t result = byte & 0x7f;
    for (uint32_t shift = 7;; shift += 7) {
        if (checked && at >= size_) return bad("a length is cut short", start);
        byte = image_[at++];
        if (checked && shift == 28 && byte > 0x0f) return bad("a length does not fit 32 bits", start);
        result |= (byte & 0x7f) << shift;
        if (byte < 0x80) break;
    }
    if (checked && byte == 0) return bad("a length is written longer than needed", start);
    *value = result;
    return true;
}

template <bool checked>
bool Walk<checked>::padding(uint32_t& at, uint32_t alignment) noexcept {
    uint32_t to = alignUp(at, alignment);
    if (checked && to > size_) return bad("padding is cut short", at);
    if (checked) {
        for (; at < to; ++at) {
            if (image_[at] != 0) return bad("padding is not zero", at);
        }
    }
    at = to;
    return true;
}

// The length of the name that starts at at. Eight bytes at a time: names are short, and a call of memchr costs more
// than the search.
template <bool checked>
bool Walk<checked>::nameLength(uint32_t at, uint32_t* length) noexcept {
    constexpr uint64_t ones = 0x0101010101010101u;
    uint32_t room = std::min<uint32_t>(size_ - at, QUORL_FIELD_NAME_MAX + 1);
    uint32_t done = 0;
    for (; room - done >= 8; done += 8) {
        uint64_t word = load<uint64_t>(image_ + at + done);
        uint64_t zeros = (word - ones) & ~word & (ones << 7);
        if (zeros != 0) {
            *length = done + static_cast<uint32_t>(std::countr_zero(zeros)) / 8;
            return true;
        }
    }
    for (; done < room; ++done) {
        if (image_[at + done] == 0) {
            *length = done;
            return true;
        }
    }
    return bad("a name has no end", at);
}

template <bool checked>
bool Walk<checked>::inner(uint32_t at, uint32_t* size, uint8_t* depth) noexcept {
    if (checked) {
        if (level_ >= QUORL_MSG_MAX_DEPTH) return bad("messages are nested too deeply", at);
        if (!checkHeader(image_ + at, size_ - at, base_ + at, level_ + 1, fault_)) return false;
    }
    *size = load<uint32_t>(image_ + at + sizeAt);
    if (!checked) return true;
    Walk<checked> walk(image_ + at, *size, base_ + at, level_ + 1, fault_);
    uint8_t below = 0;
    if (!walk.whole(load<uint32_t>(image_ + at + countAt), nullptr, &below)) return false;
    *depth = std::max(*depth, static_cast<uint8_t>(below + 1));
    return true;
}

template <bool checked>
inline bool Walk<checked>::read(uint32_t at, uint32_t index, Field& field, uint32_t& end) noexcept {
    index_ = index;
    field.head = at;
    field.length = 1;
    field.depth = 0;
    if (checked && at >= size_) return bad("a field is missing", at);
    const uint8_t head = image_[at++];
    field.type = head & headTypeMask;
    if (field.type == headUserType) {
        if (checked && at >= size_) return bad("a field's head is cut short", at);
        field.type = image_[at++];
        if (checked && field.type < userTypeFirst) return bad("a user type has a built-in type's code", at - 1);
    }
    field.id = 0;
    if (head & headHasId) {
        if (checked && size_ - at < 2) return bad("a field's head is cut short", at);
        field.id = load<uint16_t>(image_ + at);
        if (checked && field.id == 0) return bad("an id is 0", at);
        at += 2;
    }
    field.nameOffset = static_cast<uint8_t>(at - field.head);
    field.nameLength = noName;
    field.tail = 0;
    if (head & headNamed) {
        uint32_t bytes;
        if (!nameLength(at, &bytes)) return false;
        field.nameLength = static_cast<uint8_t>(bytes);
        field.tail = tailOf(image_ + at, bytes);
        at += bytes + 1;
    }

    const TypeInfo& info = typeInfo(field.type);
    switch (info.kind) {
        case Kind::scalar:
            field.value = at;
            if (checked) {
                if (size_ - at < info.wireSize) return bad("a value is cut short", at);
                if (field.type == QUORLMSG_BOOL && image_[at] > 1) return bad("a boolean is neither 0 nor 1", at);
                if (field.type == QUORLMSG_DATETIME && load<uint32_t>(image_ + at + 8) > 999'999'999) {
                    return bad("a date-time's nanoseconds are above 999999999", at + 8);
                }
            }
            end = at + info.wireSize;
            return true;
        case Kind::string:
            if (!length(at, &field.length)) return false;
            field.value = at;
            if (checked) {
                if (field.length == 0) return bad("a string has no terminator", at);
                if (field.length > size_ - at) return bad("a value is cut short", at);
                if (std::memchr(image_ + at, 0, field.length) != image_ + at + field.length - 1) {
                    return bad("a string's terminator is not at its end", at);
                }
            }
            end = at + field.length;
            return true;
        case Kind::bytes:
            if (!length(at, &field.length)) return false;
            field.value = at;
            if (checked && field.length > size_ - at) return bad("a value is cut short", at);
            end = at + field.length;
            return true;
        case Kind::numbers:
            if (!length(at, &field.length) || !padding(at, info.alignment)) return false;
            field.value = at;
            if (checked && field.length > (size_ - at) / info.wireSize) return bad("an array is cut short", at);
            end = at + field.length * info.wireSize;
            return true;
        case Kind::strings: {
            uint32_t bytes;
            if (!length(at, &field.length) || !length(at, &bytes)) return false;
            field.value = at;
            if (checked) {
                if (bytes > size_ - at) return bad("an array is cut short", at);
                const uint8_t* from = image_ + at;
                if (bytes != 0 && from[bytes - 1] != 0) return bad("a string has no terminator", at + bytes - 1);
                if (std::count(from, from + bytes, 0) != static_cast<ptrdiff_t>(field.length)) {
                    return bad("an array holds another number of strings", at);
                }
            }
            end = at + bytes;
            return true;
        }
        case Kind::message:
            if (!padding(at, info.alignment)) return false;
            field.value = at;
            if (!inner(at, &field.length, &field.depth)) return false;
            end = at + field.length;
            return true;
        case Kind::messages:
            if (!length(at, &field.length) || !padding(at, info.alignment)) return false;
            field.value = at;
            for (uint32_t i = 0; i < field.length; ++i) {
                uint32_t size;
                if (!padding(at, info.alignment) || !inner(at, &size, &field.depth)) return false;
                at += size;
            }
            end = at;
            return true;
        case Kind::none:
            break;
    }
    return bad("a type code is reserved", field.head);
}

template <bool checked>
bool Walk<checked>::whole(uint32_t count, Field* top, uint8_t* depth) noexcept {
    constexpr uint32_t fewIds = 16;  // that many are compared with each other as they come
    uint16_t ids[fewIds];
    uint32_t idCount = 0;
    uint32_t at = headerSize;
    Field scratch;
    for (uint32_t index = 0; index < count; ++index) {
        Field& field = top != nullptr ? *--top : scratch;
        if (!read(at, index, field, at)) return false;
        *depth = std::max(*depth, field.depth);
        if (checked && field.id != 0) {
            if (idCount < fewIds) {
                if (std::find(ids, ids + idCount, field.id) != ids + idCount) {
                    return bad("two fields have the same id", field.head);
                }
                ids[idCount] = field.id;
            }
            ++idCount;
        }
    }
    if (!checked) return true;
    if (at != size_) return bad("bytes are left over behind the last field", at);
    return idCount <= fewIds || uniqueIds(count);
}

// Apart from whole, so that nested messages do not pile up its table on the stack.
template <bool checked>
[[gnu::noinline]] bool Walk<checked>::uniqueIds(uint32_t count) noexcept {
    uint64_t seen[0x10000 / 64] = {};
    Walk<false> walk(image_, size_, base_, level_, fault_);
    uint32_t at = headerSize;
    Field field;
    for (index_ = 0; index_ < count; ++index_) {
        walk.read(at, index_, field, at);
        if (field.id == 0) continue;
        const uint64_t bit = uint64_t{1} << (field.id % 64);
        if (seen[field.id / 64] & bit) return bad("two fields have the same id", field.head);
        seen[field.id / 64] |= bit;
    }
    return true;
}

template class Walk<true>;
template class Walk<false>;

uint8_t depthOf(const uint8_t* image) noexcept {
    uint8_t depth = 0;
    Fault none;
    Walk<false> walk(image, load<uint32_t>(image + sizeAt), 0, 0, &none);
    const uint32_t count = load<uint32_t>(image + countAt);
    uint32_t at = headerSize;
    Field field;
    for (uint32_t index = 0; index < count; ++index) {
        walk.read(at, index, field, at);
        if (typeInfo(field.type).kind != Kind::message && typeInfo(field.type).kind != Kind::messages) continue;
        uint32_t inner = field.value;
        for (uint32_t i = 0; i < field.length && inner < at; ++i) {
            inner = alignUp(inner, imageAlignment);
            depth = std::max(depth, static_cast<uint8_t>(depthOf(image + inner) + 1));
            inner += load<uint32_t>(image + inner + sizeAt);
            if (typeInfo(field.type).kind == Kind::message) break;
        }
    }
    return depth;
}

}  // namespace quorl::message::wire
