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
    if (size > maxSize) return bad("the size is above the limit", sizeAt);
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

namespace {

// The high bit of each zero byte of word, of those below it exactly: the lowest set bit is right.
constexpr uint64_t zeroBytes(uint64_t word) noexcept {
    constexpr uint64_t ones = 0x0101010101010101u;
    return (word - ones) & ~word & (ones << 7);
}

}  // namespace

template <bool checked>
bool Walk<checked>::length(uint32_t& at, uint32_t* value) noexcept {
    if (checked && at >= size_) return bad("a length is cut short", at);
    *value = image_[at];
    if (*value >= 0x80) [[unlikely]]
        return longLength(at, value);
    ++at;
    return true;
}

template <bool checked>
[[gnu::noinline]] bool Walk<checked>::longLength(uint32_t& at, uint32_t* value) noexcept {
    const uint32_t start = at;
    uint32_t result = 0;
    uint32_t byte;
    for (uint32_t shift = 0;; shift += 7) {
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
    const uint32_t room = std::min<uint32_t>(size_ - at, QUORL_FIELD_NAME_MAX + 1);
    uint32_t done = 0;
    for (; room - done >= 8; done += 8) {
        if (const uint64_t zeros = zeroBytes(load<uint64_t>(image_ + at + done)); zeros != 0) {
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
[[gnu::noinline]] bool Walk<checked>::anyHead(uint32_t at, Head& head) noexcept {
    const uint32_t start = at;
    const uint8_t first = image_[at++];
    head.type = first & headTypeMask;
    if (head.type == headUserType) {
        if (checked && at >= size_) return bad("a field's head is cut short", at);
        head.type = image_[at++];
        if (checked && head.type < userTypeFirst) return bad("a user type has a built-in type's code", at - 1);
    }
    head.id = 0;
    if (first & headHasId) {
        if (checked && size_ - at < 2) return bad("a field's head is cut short", at);
        head.id = load<uint16_t>(image_ + at);
        if (checked && head.id == 0) return bad("an id is 0", at);
        at += 2;
    }
    head.nameOffset = at - start;
    head.nameLength = noName;
    if (first & headNamed) {
        if (!nameLength(at, &head.nameLength)) return false;
        at += head.nameLength + 1;
    }
    head.end = at;
    return true;
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

// Reads what nearly every field is: one with a name of up to fifteen bytes, no id, and a number, or at most 127 bytes or
// numbers. False: it is another one, or has a fault; read() will tell. In one piece and without calls but memchr, since
// the time that it takes is the time to read a message.
template <bool checked>
[[gnu::always_inline]] inline bool Walk<checked>::readSimple(uint32_t at, Field& field, uint32_t& end) noexcept {
    const uint8_t* const image = image_;
    const uint32_t size = size_;
    constexpr uint32_t words = 2 * sizeof(uint64_t);
    if (at + words >= size) return false;
    const uint8_t first = image[at];
    if ((first & (headNamed | headHasId)) != headNamed) return false;
    uint32_t nameLength = 0;
    uint64_t zeros = zeroBytes(load<uint64_t>(image + at + 1));
    if (zeros == 0) {
        zeros = zeroBytes(load<uint64_t>(image + at + 9));
        if (zeros == 0) return false;
        nameLength = 8;
    }
    nameLength += static_cast<uint32_t>(std::countr_zero(zeros)) / 8;
    const uint8_t type = first & headTypeMask;
    const TypeInfo info = typeInfo(type);
    uint32_t value = at + 2 + nameLength;
    uint32_t length = 1;
    if (info.kind != Kind::scalar) {
        if (info.kind != Kind::numbers && info.kind != Kind::string && info.kind != Kind::bytes) return false;
        if (value >= size) return false;
        length = image[value++];
        if (length >= 0x80) return false;
        for (; value % info.alignment != 0; ++value) {
            if (checked && (value >= size || image[value] != 0)) return false;
        }
    }
    const uint32_t bytes = length * info.wireSize;
    if (checked) {
        if (value > size || bytes > size - value) return false;
        if (type == QUORLMSG_BOOL && image[value] > 1) return false;
        if (type == QUORLMSG_DATETIME && load<uint32_t>(image + value + 8) > 999'999'999) return false;
        if (type == QUORLMSG_STRING &&
            (bytes == 0 || std::memchr(image + value, 0, bytes) != image + value + bytes - 1)) {
            return false;
        }
    }
    field = {at, value, length, tailOf(image + at + 1, nameLength), 0, type, static_cast<uint8_t>(nameLength), 1, 0};
    end = value + bytes;
    return true;
}

template <bool checked>
bool Walk<checked>::read(uint32_t at, Field& field, uint32_t& end) noexcept {
    const uint8_t* const image = image_;
    const uint32_t size = size_;
    const uint32_t start = at;
    if (checked && at >= size) return bad("a field is missing", at);
    Head head;
    if (!anyHead(at, head)) return false;
    at = head.end;
    const uint8_t type = static_cast<uint8_t>(head.type);
    const uint32_t tail = head.nameLength == noName ? 0 : tailOf(image + start + head.nameOffset, head.nameLength);
    const auto found = [&](uint32_t value, uint32_t length, uint32_t behind, uint8_t depth) {
        field = {start,
                 value,
                 length,
                 tail,
                 static_cast<uint16_t>(head.id),
                 type,
                 static_cast<uint8_t>(head.nameLength),
                 static_cast<uint8_t>(head.nameOffset),
                 depth};
        end = behind;
        return true;
    };

    const TypeInfo& info = typeInfo(type);
    uint32_t length = 0;
    uint8_t depth = 0;
    switch (info.kind) {
        case Kind::scalar:
            if (checked) {
                if (size - at < info.wireSize) return bad("a value is cut short", at);
                if (type == QUORLMSG_BOOL && image[at] > 1) return bad("a boolean is neither 0 nor 1", at);
                if (type == QUORLMSG_DATETIME && load<uint32_t>(image + at + 8) > 999'999'999) {
                    return bad("a date-time's nanoseconds are above 999999999", at + 8);
                }
            }
            return found(at, 1, at + info.wireSize, 0);
        case Kind::string:
            if (!this->length(at, &length)) return false;
            if (checked) {
                if (length == 0) return bad("a string has no terminator", at);
                if (length > size - at) return bad("a value is cut short", at);
                if (std::memchr(image + at, 0, length) != image + at + length - 1) {
                    return bad("a string's terminator is not at its end", at);
                }
            }
            return found(at, length, at + length, 0);
        case Kind::bytes:
            if (!this->length(at, &length)) return false;
            if (checked && length > size - at) return bad("a value is cut short", at);
            return found(at, length, at + length, 0);
        case Kind::numbers:
            if (!this->length(at, &length) || !padding(at, info.alignment)) return false;
            if (checked && length > (size - at) / info.wireSize) return bad("an array is cut short", at);
            return found(at, length, at + length * info.wireSize, 0);
        case Kind::strings: {
            uint32_t bytes;
            if (!this->length(at, &length) || !this->length(at, &bytes)) return false;
            if (checked) {
                if (bytes > size - at) return bad("an array is cut short", at);
                const uint8_t* from = image + at;
                if (bytes != 0 && from[bytes - 1] != 0) return bad("a string has no terminator", at + bytes - 1);
                if (std::count(from, from + bytes, 0) != static_cast<ptrdiff_t>(length)) {
                    return bad("an array holds another number of strings", at);
                }
            }
            return found(at, length, at + bytes, 0);
        }
        case Kind::message:
            if (!padding(at, info.alignment) || !inner(at, &length, &depth)) return false;
            return found(at, length, at + length, depth);
        case Kind::messages: {
            if (!this->length(at, &length) || !padding(at, info.alignment)) return false;
            const uint32_t value = at;
            for (uint32_t i = 0; i < length; ++i) {
                uint32_t bytes;
                if (!padding(at, info.alignment) || !inner(at, &bytes, &depth)) return false;
                at += bytes;
            }
            return found(value, length, at, depth);
        }
        case Kind::none:
            break;
    }
    return bad("a type code is reserved", start);
}

template <bool checked>
bool Walk<checked>::whole(uint32_t count, Field* top, uint8_t* depth) noexcept {
    constexpr uint32_t fewIds = 16;  // that many are compared with each other as they come
    uint16_t ids[fewIds];
    uint32_t idCount = 0;
    uint32_t at = headerSize;
    uint8_t deepest = 0;
    Field scratch;
    const auto wrong = [&](uint32_t index) {
        if (fault_->level == level_) fault_->field = index;
        return false;
    };
    for (uint32_t index = 0; index < count; ++index) {
        Field& field = top != nullptr ? *--top : scratch;
        if (readSimple(at, field, at)) continue;
        if (!read(at, field, at)) return wrong(index);
        if (!checked) continue;
        deepest = std::max(deepest, field.depth);
        if (field.id != 0) {
            if (idCount < fewIds) {
                if (std::find(ids, ids + idCount, field.id) != ids + idCount) {
                    bad("two fields have the same id", field.head);
                    return wrong(index);
                }
                ids[idCount] = field.id;
            }
            ++idCount;
        }
    }
    if (!checked) return true;
    *depth = deepest;
    if (at != size_) {
        bad("bytes are left over behind the last field", at);
        return wrong(count == 0 ? 0 : count - 1);
    }
    return idCount <= fewIds || uniqueIds(count);
}

// Apart from whole, so that nested messages do not pile up its table on the stack.
template <bool checked>
[[gnu::noinline]] bool Walk<checked>::uniqueIds(uint32_t count) noexcept {
    uint64_t seen[0x10000 / 64] = {};
    Walk<false> walk(image_, size_, base_, level_, fault_);
    uint32_t at = headerSize;
    Field field;
    for (uint32_t index = 0; index < count; ++index) {
        walk.read(at, field, at);
        if (field.id == 0) continue;
        const uint64_t bit = uint64_t{1} << (field.id % 64);
        if (seen[field.id / 64] & bit) {
            bad("two fields have the same id", field.head);
            fault_->field = index;
            return false;
        }
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
        walk.read(at, field, at);
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
