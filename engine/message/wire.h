// The wire image of a message, byte by byte: its header, its field heads, and the decoder of its fields.
// docs/reference/wire-format.md says the same in words.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "message/short_text.h"
#include "message/types.h"
#include "quorl/quorl.h"

namespace quorl::message::wire {

static_assert(std::endian::native == std::endian::little, "images are read in place: little-endian machines only");

// Header: magic and format version in one word, bytes of the whole image, fields. Little-endian like everything else.
constexpr uint32_t headerSize = 12;
constexpr uint32_t sizeAt = 4;
constexpr uint32_t countAt = 8;
constexpr uint32_t version = 1;
constexpr uint32_t magic = 'Q' | 'M' << 8 | version << 16;

// The first byte of a field: the type in six bits and two flags. A user type stands in a byte of its own behind it.
constexpr uint8_t headTypeMask = 0x3f;
constexpr uint8_t headUserType = 0x3f;
constexpr uint8_t headNamed = 0x40;
constexpr uint8_t headHasId = 0x80;

constexpr uint32_t maxSize = QUORL_MSG_MAX_SIZE;
constexpr uint32_t minFieldSize = 2;  // a bool, or empty bytes, without name and id
constexpr uint8_t noName = 0xff;      // the name length of a field without a name
constexpr uint32_t imageAlignment = 8;

template <class T>
T load(const uint8_t* from) noexcept {
    T value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <class T>
void store(uint8_t* to, T value) noexcept {
    std::memcpy(to, &value, sizeof value);
}

constexpr uint32_t alignUp(uint32_t offset, uint32_t alignment) noexcept {
    return (offset + alignment - 1) & ~(alignment - 1);
}

// Lengths: seven bits a byte, the lowest first, the high bit set in all but the last; never longer than needed.
constexpr uint32_t lengthSize(uint32_t value) noexcept {
    return value < 1u << 7 ? 1 : value < 1u << 14 ? 2 : value < 1u << 21 ? 3 : value < 1u << 28 ? 4 : 5;
}

inline uint8_t* putLength(uint8_t* to, uint32_t value) noexcept {
    while (value >= 0x80) {
        *to++ = static_cast<uint8_t>(value | 0x80);
        value >>= 7;
    }
    *to++ = static_cast<uint8_t>(value);
    return to;
}

// A field as it lies in an image: what a content's table keeps of it. Offsets count from the image's first byte.
struct Field {
    uint32_t head;       // of its first byte
    uint32_t value;      // of its value, behind lengths and padding
    uint32_t length;     // bytes of a text or of bytes, a message's size, elements of an array; 1 for a scalar
    uint32_t tail;       // tailOf its name, which a search compares first
    uint16_t id;         // 0: none
    uint8_t type;        // QUORLMSG_...
    uint8_t nameLength;  // noName: none
    uint8_t nameOffset;  // of the name behind head
    uint8_t depth;       // levels of messages inside this field; 0 when it holds none

    uint32_t name() const noexcept { return head + nameOffset; }
    // Of the byte behind the name: where lengths, padding and the value begin.
    uint32_t nameEnd() const noexcept { return name() + (nameLength == noName ? 0 : nameLength + 1u); }
};

// The last bytes of a name, up to four, in one word: names tend to differ at their ends.
inline uint32_t tailOf(const void* name, uint32_t length) noexcept {
    const auto* bytes = static_cast<const uint8_t*>(name);
    if (length >= 4) return load<uint32_t>(bytes + length - 4);
    uint32_t tail = 0;
    for (uint32_t i = 0; i < length; ++i) tail |= uint32_t{bytes[i]} << 8 * i;
    return tail;
}
inline uint32_t tailOf(const void* name, const ShortText& text) noexcept {
    if (text.length >= 4) return load<uint32_t>(static_cast<const uint8_t*>(name) + text.length - 4);
    return static_cast<uint32_t>(text.first & text.mask);
}

// A table of fields ends where its first field ends; behind that stand the tails of the first few names once more, side by
// side, so that a search compares them all at once.
constexpr uint32_t tailsKept = 16;
constexpr size_t tailsSize = tailsKept * sizeof(uint32_t);

inline void keepTail(Field* top, uint32_t index, uint32_t tail) noexcept {
    if (index < tailsKept) reinterpret_cast<uint32_t*>(top)[index] = tail;
}

// What is wrong with an image, and where.
struct Fault {
    const char* what = nullptr;
    uint32_t at = 0;     // byte offset in the outermost image
    uint32_t field = 0;  // index in the message that the fault is in
    uint32_t level = 0;  // of that message; 0 for the outermost
    quorl_status status = QUORL_CORRUPT_MSG;
};

// What the decoder of a message has seen but does not keep field by field.
struct Seen {
    static constexpr uint32_t fewIds = 16;  // that many are compared with each other as they come
    uint16_t ids[fewIds];
    uint32_t heads[fewIds];  // of the first field with each of them
    uint32_t idCount = 0;
    uint8_t depth = 0;
};

// Decodes the fields of an image. The checked decoder believes nothing and stops at the first fault. The other one is for
// images that have been checked: it reads the same without a test, and steps over messages inside without a look.
template <bool checked>
class Decoder {
    template <bool>
    friend class Decoder;

  public:
    // base: what the image's offset in the outermost image is; level: how many messages it is inside of.
    Decoder(const uint8_t* image, uint32_t size, uint32_t base, uint32_t level, Fault* fault) noexcept
        : image_(image), size_(size), base_(base), level_(level), fault_(fault) {}

    // Reads the field at offset at. Returns the offset of the byte behind it, or 0: there is a fault, whose field is the
    // caller's to set.
    uint32_t read(uint32_t at, Field& field) noexcept;

    // Reads all fields of an image whose header is good. When top is not null, the fields go to top[-1], top[-2]..., and
    // their tails behind top. depth: the levels of messages inside; left 0 by the unchecked decoder.
    bool whole(uint32_t count, Field* top, uint8_t* depth) noexcept;

  private:
    // What stands before a field's lengths and value.
    struct Head {
        uint32_t type;
        uint32_t id;
        uint32_t nameOffset;
        uint32_t nameLength;  // noName: none
        uint32_t end;         // of the byte behind the name
    };

    [[gnu::cold, gnu::noinline]] bool bad(const char* what, uint32_t at) noexcept {
        *fault_ = {what, base_ + at, 0, level_};
        return false;
    }
    [[gnu::always_inline]] uint32_t readSimple(uint32_t at, Field& field) const noexcept;
    template <bool keep>
    uint32_t readAll(uint32_t count, Field* top, Seen& seen) noexcept;
    uint32_t readOther(uint32_t at, uint32_t index, Field& field, Seen& seen) noexcept;
    bool anyHead(uint32_t at, Head& head) noexcept;
    bool length(uint32_t& at, uint32_t* value) noexcept;
    bool longLength(uint32_t& at, uint32_t* value) noexcept;
    bool padding(uint32_t& at, uint32_t alignment) noexcept;
    bool nameLength(uint32_t at, uint32_t* length) noexcept;
    bool inner(uint32_t at, uint32_t* size, uint8_t* depth) noexcept;
    bool sameNames(uint32_t one, uint32_t other) noexcept;
    bool oneNameForEachId(uint32_t count) noexcept;
    bool compareNamesOfIds(uint32_t count) noexcept;

    const uint8_t* image_;
    uint32_t size_;
    uint32_t base_;
    uint32_t level_;
    Fault* fault_;
};

extern template class Decoder<true>;
extern template class Decoder<false>;

// A header's words, read once.
struct Header {
    uint32_t magic;
    uint32_t size;
    uint32_t count;
};
static_assert(sizeof(Header) == headerSize);

// Checks a header; limit: the bytes that are there to be read from its first one on.
bool checkHeader(const Header& header, uint32_t limit, uint32_t base, uint32_t level, Fault* fault) noexcept;
bool checkHeader(const uint8_t* image, uint32_t limit, uint32_t base, uint32_t level, Fault* fault) noexcept;

// The levels of messages inside an image that has been checked.
uint8_t depthOf(const uint8_t* image) noexcept;

// Sets the calling thread's detail text from a fault and returns QUORL_CORRUPT_MSG.
quorl_status report(const Fault& fault) noexcept;

}  // namespace quorl::message::wire
