// The decoder of the fields of an image, checked and unchecked.
#include "message/wire.h"

#include <algorithm>
#include <array>

#include "base/status.h"
#include "base/utf8.h"
#include "message/memory.h"

namespace quorl::message::wire {

namespace {

constexpr const char* idUnderTwoNames = "an id stands under two names";

bool badHeader(const char* what, uint32_t at, uint32_t level, Fault* fault) noexcept {
    *fault = {what, at, 0, level};
    return false;
}

}  // namespace

bool checkHeader(const Header& header, uint32_t limit, uint32_t base, uint32_t level, Fault* fault) noexcept {
    const auto bad = [&](const char* what, uint32_t at) { return badHeader(what, base + at, level, fault); };
    if (header.magic != magic) {
        if ((header.magic & 0xffff) != (magic & 0xffff)) return bad("no message begins here", 0);
        return bad("unknown format version", 2);
    }
    if (header.size < headerSize) return bad("the size is smaller than the header", sizeAt);
    if (header.size > maxSize) return bad("the size is above the limit", sizeAt);
    if (header.size > limit) return bad("the size reaches past the end", sizeAt);
    if (header.count > (header.size - headerSize) / minFieldSize) {
        return bad("more fields than bytes for them", countAt);
    }
    return true;
}

bool checkHeader(const uint8_t* image, uint32_t limit, uint32_t base, uint32_t level, Fault* fault) noexcept {
    if (limit < headerSize) return badHeader("the header is cut short", base, level, fault);
    return checkHeader(load<Header>(image), limit, base, level, fault);
}

quorl_status report(const Fault& fault) noexcept {
    if (fault.status != QUORL_CORRUPT_MSG) return fail(fault.status, "read a message: %s", fault.what);
    if (fault.level == 0) {
        return fail(QUORL_CORRUPT_MSG, "corrupt message: %s, byte %u, field %u", fault.what, fault.at, fault.field);
    }
    return fail(QUORL_CORRUPT_MSG, "corrupt message: %s, byte %u, field %u of a message at level %u", fault.what,
                fault.at, fault.field, fault.level);
}

namespace {

// Whether the only zero among bytes is the last one. Short texts are looked through here: a call of memchr costs more.
[[gnu::always_inline]] inline bool endsWithOnlyZero(const uint8_t* text, uint32_t bytes) noexcept {
    if (bytes == 0 || text[bytes - 1] != 0) return false;
    constexpr uint32_t word = sizeof(uint64_t);
    const uint32_t length = bytes - 1;
    if (length >= word && length <= 8 * word) {
        for (uint32_t i = 0; i <= length - word; i += word) {
            if (zeroBytes(load<uint64_t>(text + i)) != 0) return false;
        }
        return zeroBytes(load<uint64_t>(text + length - word)) == 0;
    }
    return std::memchr(text, 0, bytes) == text + length;
}

// What the quick reader does with a type.
enum class Simple : uint8_t {
    scalar,
    boolean,
    dateTime,
    string,
    bytes,
    numbers,
    no,  // leaves it to the other one
};

struct SimpleInfo {
    Simple kind;
    uint8_t size;     // of a scalar
    uint8_t shift;    // of an element's size
    uint8_t padding;  // the most zeros before the value: its alignment less one
};

constexpr std::array<SimpleInfo, headTypeMask + 1> simpleTable = [] {
    std::array<SimpleInfo, headTypeMask + 1> table{};
    for (unsigned type = 0; type < table.size(); ++type) {
        const TypeInfo& info = typeInfo(static_cast<uint8_t>(type));
        SimpleInfo& row = table[type];
        row.kind = Simple::no;
        row.size = info.wireSize;
        row.shift = static_cast<uint8_t>(std::bit_width(info.wireSize) - 1);
        row.padding = static_cast<uint8_t>(info.alignment - 1);
        if (info.kind == Kind::scalar) row.kind = Simple::scalar;
        if (info.kind == Kind::string) row.kind = Simple::string;
        if (info.kind == Kind::bytes) row.kind = Simple::bytes;
        if (info.kind == Kind::numbers) row.kind = Simple::numbers;
        if (type == QUORLMSG_BOOL) row.kind = Simple::boolean;
        if (type == QUORLMSG_DATETIME) row.kind = Simple::dateTime;
    }
    return table;
}();

}  // namespace

template <bool checked>
bool Decoder<checked>::length(uint32_t& at, uint32_t* value) noexcept {
    if (checked && at >= size_) return bad("a length is cut short", at);
    *value = image_[at];
    if (*value >= 0x80) [[unlikely]]
        return longLength(at, value);
    ++at;
    return true;
}

template <bool checked>
[[gnu::noinline]] bool Decoder<checked>::longLength(uint32_t& at, uint32_t* value) noexcept {
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
bool Decoder<checked>::padding(uint32_t& at, uint32_t alignment) noexcept {
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
bool Decoder<checked>::nameLength(uint32_t at, uint32_t* length) noexcept {
    const uint32_t room = std::min<uint32_t>(size_ - at, QUORL_FIELD_NAME_MAX + 1);
    uint32_t done = 0;
    for (; room - done >= 8; done += 8) {
        if (const uint64_t zeros = zeroBytes(load<uint64_t>(image_ + at + done)); zeros != 0) {
            *length = done + firstZero(zeros);
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
[[gnu::noinline]] bool Decoder<checked>::anyHead(uint32_t at, Head& head) noexcept {
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
        if (checked) {
            const size_t bad = utf8::findInvalid({reinterpret_cast<const char*>(image_ + at), head.nameLength});
            if (bad != std::string_view::npos) {
                return this->bad("a name is not UTF-8", at + static_cast<uint32_t>(bad));
            }
        }
        at += head.nameLength + 1;
    }
    head.end = at;
    return true;
}

template <bool checked>
bool Decoder<checked>::inner(uint32_t at, uint32_t* size, uint8_t* depth) noexcept {
    if (checked) {
        if (level_ >= QUORL_MSG_MAX_DEPTH) return bad("messages are nested too deeply", at);
        if (!checkHeader(image_ + at, size_ - at, base_ + at, level_ + 1, fault_)) return false;
    }
    *size = load<uint32_t>(image_ + at + sizeAt);
    if (!checked) return true;
    Decoder<checked> decoder(image_ + at, *size, base_ + at, level_ + 1, fault_);
    uint8_t below = 0;
    if (!decoder.whole(load<uint32_t>(image_ + at + countAt), nullptr, &below)) return false;
    *depth = std::max(*depth, static_cast<uint8_t>(below + 1));
    return true;
}

// Reads what nearly every field is: one with a name of up to fifteen bytes, no id, and a number, or at most 127 bytes or
// numbers. 0: it is another one, or has a fault; read() will tell. In one piece and, but for long texts, without calls,
// since the time that it takes is the time to read a message.
template <bool checked>
[[gnu::always_inline]] inline uint32_t Decoder<checked>::readSimple(uint32_t at, Field& field) const noexcept {
    const uint8_t* const image = image_;
    const uint32_t size = size_;
    constexpr uint32_t word = sizeof(uint64_t);
    if (at + 2 * word >= size) return 0;  // the words of the name can be read, and no scalar begins behind the end
    const uint32_t type = image[at] ^ headNamed;
    if (type >= simpleTable.size()) return 0;
    const SimpleInfo& info = simpleTable[type];
    const Simple kind = info.kind;
    const uint64_t name = load<uint64_t>(image + at + 1);
    uint64_t zeros = zeroBytes(name);
    uint32_t nameLength = 0;
    if (zeros == 0) {
        zeros = zeroBytes(load<uint64_t>(image + at + 1 + word));
        if (zeros == 0) return 0;
        nameLength = word;
    }
    if (checked) {
        // Names that are not ASCII are looked at by the other one.
        const uint64_t last = nameLength == 0 ? name : load<uint64_t>(image + at + 1 + word);
        const uint64_t bytes = (last & upToZero(zeros)) | (nameLength == 0 ? 0 : name);
        if ((bytes & utf8::highBits) != 0) return 0;
    }
    nameLength += firstZero(zeros);
    uint32_t value = at + 2 + nameLength;
    const uint32_t tail =
        nameLength >= 4 ? load<uint32_t>(image + value - 5) : static_cast<uint32_t>(name & upToZero(zeros));
    if (kind < Simple::string) {
        const uint32_t bytes = info.size;
        if (checked) {
            if (bytes > size - value) return 0;
            if (kind != Simple::scalar) {
                if (kind == Simple::boolean && image[value] > 1) return 0;
                if (kind == Simple::dateTime && load<uint32_t>(image + value + 8) > 999'999'999) return 0;
            }
        }
        field = {at, value, 1, tail, 0, static_cast<uint8_t>(type), static_cast<uint8_t>(nameLength), 1, 0};
        return value + bytes;
    }
    if (value + 1 + word > size || kind == Simple::no) return 0;
    const uint32_t length = image[value++];
    if (length >= 0x80) return 0;
    uint32_t bytes = length;
    if (kind == Simple::numbers) {
        const uint32_t over = -value & info.padding;
        if (checked && (load<uint64_t>(image + value) & ((uint64_t{1} << over * 8) - 1)) != 0) return 0;
        value += over;
        bytes <<= info.shift;
    }
    if (checked) {
        if (bytes > size - value) return 0;
        if (kind == Simple::string && !endsWithOnlyZero(image + value, bytes)) return 0;
    }
    field = {at, value, length, tail, 0, static_cast<uint8_t>(type), static_cast<uint8_t>(nameLength), 1, 0};
    return value + bytes;
}

template <bool checked>
uint32_t Decoder<checked>::read(uint32_t at, Field& field) noexcept {
    const uint8_t* const image = image_;
    const uint32_t size = size_;
    const uint32_t start = at;
    const auto none = [&](const char* what, uint32_t where) -> uint32_t { return bad(what, where); };
    if (checked && at >= size) return none("a field is missing", at);
    Head head;
    if (!anyHead(at, head)) return 0;
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
        return behind;
    };

    const TypeInfo& info = typeInfo(type);
    uint32_t length = 0;
    uint8_t depth = 0;
    switch (info.kind) {
        case Kind::scalar:
            if (checked) {
                if (size - at < info.wireSize) return none("a value is cut short", at);
                if (type == QUORLMSG_BOOL && image[at] > 1) return none("a boolean is neither 0 nor 1", at);
                if (type == QUORLMSG_DATETIME && load<uint32_t>(image + at + 8) > 999'999'999) {
                    return none("a date-time's nanoseconds are above 999999999", at + 8);
                }
            }
            return found(at, 1, at + info.wireSize, 0);
        case Kind::string:
            if (!this->length(at, &length)) return 0;
            if (checked) {
                if (length == 0) return none("a string has no terminator", at);
                if (length > size - at) return none("a value is cut short", at);
                if (std::memchr(image + at, 0, length) != image + at + length - 1) {
                    return none("a string's terminator is not at its end", at);
                }
            }
            return found(at, length, at + length, 0);
        case Kind::bytes:
            if (!this->length(at, &length)) return 0;
            if (checked && length > size - at) return none("a value is cut short", at);
            return found(at, length, at + length, 0);
        case Kind::numbers:
            if (!this->length(at, &length) || !padding(at, info.alignment)) return 0;
            if (checked && length > (size - at) / info.wireSize) return none("an array is cut short", at);
            return found(at, length, at + length * info.wireSize, 0);
        case Kind::strings: {
            uint32_t bytes;
            if (!this->length(at, &length) || !this->length(at, &bytes)) return 0;
            if (checked) {
                if (bytes > size - at) return none("an array is cut short", at);
                const uint8_t* from = image + at;
                if (bytes != 0 && from[bytes - 1] != 0) return none("a string has no terminator", at + bytes - 1);
                if (std::count(from, from + bytes, 0) != static_cast<ptrdiff_t>(length)) {
                    return none("an array holds another number of strings", at);
                }
            }
            return found(at, length, at + bytes, 0);
        }
        case Kind::message:
            if (!padding(at, info.alignment) || !inner(at, &length, &depth)) return 0;
            return found(at, length, at + length, depth);
        case Kind::messages: {
            if (!this->length(at, &length) || !padding(at, info.alignment)) return 0;
            const uint32_t value = at;
            for (uint32_t i = 0; i < length; ++i) {
                uint32_t bytes;
                if (!padding(at, info.alignment) || !inner(at, &bytes, &depth)) return 0;
                at += bytes;
            }
            return found(value, length, at, depth);
        }
        case Kind::none:
            break;
    }
    return none("a type code is reserved", start);
}

// Reads a field that is not simple and counts what it holds. The fault, if there is one, is complete.
template <bool checked>
[[gnu::noinline]] uint32_t Decoder<checked>::readOther(uint32_t at, uint32_t index, Field& field, Seen& seen) noexcept {
    const uint32_t end = read(at, field);
    if (!checked) return end;
    const auto wrong = [&] {
        if (fault_->level == level_) fault_->field = index;
        return 0;
    };
    if (end == 0) return wrong();
    seen.depth = std::max(seen.depth, field.depth);
    if (field.id == 0) return end;
    if (seen.idCount < Seen::fewIds) {
        const auto* last = seen.ids + seen.idCount;
        const auto* same = std::find(static_cast<const uint16_t*>(seen.ids), last, field.id);
        if (same != last) {
            if (sameNames(seen.heads[same - seen.ids], field.head)) return end;
            bad(idUnderTwoNames, field.head);
            return wrong();
        }
        seen.ids[seen.idCount] = field.id;
        seen.heads[seen.idCount] = field.head;
    }
    ++seen.idCount;
    return end;
}

template <bool checked>
template <bool keep>
[[gnu::always_inline]] inline uint32_t Decoder<checked>::readAll(uint32_t count, Field* top, Seen& seen) noexcept {
    uint32_t at = headerSize;
    Field scratch;
    for (uint32_t index = 0; index < count; ++index) {
        Field& field = keep ? top[-1 - static_cast<ptrdiff_t>(index)] : scratch;
        uint32_t end = readSimple(at, field);
        if (end == 0) [[unlikely]] {
            end = readOther(at, index, field, seen);
            if (end == 0) return 0;
        }
        if (keep) keepTail(top, index, field.tail);
        at = end;
    }
    return at;
}

template <bool checked>
bool Decoder<checked>::whole(uint32_t count, Field* top, uint8_t* depth) noexcept {
    Seen seen;
    const uint32_t end = top != nullptr ? readAll<true>(count, top, seen) : readAll<false>(count, top, seen);
    if (!checked) return true;
    if (end == 0) return false;
    *depth = seen.depth;
    if (end != size_) {
        bad("bytes are left over behind the last field", end);
        if (count != 0) fault_->field = count - 1;
        return false;
    }
    return seen.idCount <= Seen::fewIds || oneNameForEachId(count);
}

// Whether the fields whose heads are at those offsets, and have been checked, have the same name, or both none.
template <bool checked>
bool Decoder<checked>::sameNames(uint32_t one, uint32_t other) noexcept {
    Decoder<false> decoder(image_, size_, base_, level_, fault_);
    Decoder<false>::Head a;
    Decoder<false>::Head b;
    decoder.anyHead(one, a);
    decoder.anyHead(other, b);
    if (a.nameLength != b.nameLength) return false;
    return a.nameLength == noName ||
           std::memcmp(image_ + one + a.nameOffset, image_ + other + b.nameOffset, a.nameLength) == 0;
}

// Apart from whole, so that nested messages do not pile up its table on the stack.
template <bool checked>
[[gnu::noinline]] bool Decoder<checked>::oneNameForEachId(uint32_t count) noexcept {
    uint64_t seen[0x10000 / 64] = {};
    Decoder<false> decoder(image_, size_, base_, level_, fault_);
    uint32_t at = headerSize;
    Field field;
    for (uint32_t index = 0; index < count; ++index) {
        at = decoder.read(at, field);
        if (field.id == 0) continue;
        const uint64_t bit = uint64_t{1} << (field.id % 64);
        if (seen[field.id / 64] & bit) return compareNamesOfIds(count);
        seen[field.id / 64] |= bit;
    }
    return true;
}

// For an image in which an id stands more than once.
template <bool checked>
[[gnu::noinline]] bool Decoder<checked>::compareNamesOfIds(uint32_t count) noexcept {
    constexpr size_t size = 0x10000 * sizeof(uint32_t);
    auto* heads = static_cast<uint32_t*>(allocate(size));  // of the first field with each id; 0: none yet
    if (heads == nullptr) {
        bad("no memory to compare the names of its ids", 0);
        fault_->status = QUORL_NO_MEMORY;
        return false;
    }
    std::memset(heads, 0, size);
    Decoder<false> decoder(image_, size_, base_, level_, fault_);
    uint32_t at = headerSize;
    Field field;
    bool good = true;
    for (uint32_t index = 0; good && index < count; ++index) {
        at = decoder.read(at, field);
        if (field.id == 0) continue;
        if (heads[field.id] == 0) {
            heads[field.id] = field.head;
        } else if (!sameNames(heads[field.id], field.head)) {
            bad(idUnderTwoNames, field.head);
            fault_->field = index;
            good = false;
        }
    }
    deallocate(heads);
    return good;
}

template class Decoder<true>;
template class Decoder<false>;

uint8_t depthOf(const uint8_t* image) noexcept {
    uint8_t depth = 0;
    Fault none;
    Decoder<false> decoder(image, load<uint32_t>(image + sizeAt), 0, 0, &none);
    const uint32_t count = load<uint32_t>(image + countAt);
    uint32_t at = headerSize;
    Field field;
    for (uint32_t index = 0; index < count; ++index) {
        at = decoder.read(at, field);
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
