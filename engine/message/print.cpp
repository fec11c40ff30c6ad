// The printed form of a message: {name=value, name[3]={...}}. docs/reference/message.md defines it.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <new>
#include <type_traits>
#include <utility>

#include "message/message.h"

namespace quorl::message {
namespace {

constexpr uint32_t previewBytes = 16;  // of opaque values and user types

// Text that grows in memory shaped as a Block, so that it can be lent as it is. After a failure it takes no more.
class Text {
  public:
    Text() noexcept = default;
    ~Text() {
        if (block_ != nullptr) deallocate(block_);
    }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    void put(std::string_view piece) noexcept {
        if (!makeRoom(piece.size())) return;
        std::memcpy(end(), piece.data(), piece.size());
        size_ += piece.size();
    }
    void put(char piece) noexcept {
        if (makeRoom(1)) bytes()[size_++] = piece;
    }
    template <class Number>
    void number(Number value) noexcept {
        constexpr size_t most = 32;  // the longest is a double's shortest form, 24 characters
        if (makeRoom(most)) size_ = static_cast<size_t>(std::to_chars(end(), end() + most, value).ptr - bytes());
    }
    // At least digits digits, zeros before.
    void padded(uint64_t value, int digits) noexcept {
        for (uint64_t limit = 10; digits > 1; --digits, limit *= 10) {
            if (value < limit) put('0');
        }
        number(value);
    }
    void hex(uint8_t byte) noexcept {
        constexpr char digits[] = "0123456789abcdef";
        put(digits[byte >> 4]);
        put(digits[byte & 15]);
    }

    // The finished text as a block of its own, or null: no memory.
    Block* take() noexcept {
        put('\0');
        return failed_ ? nullptr : std::exchange(block_, nullptr);
    }

  private:
    char* bytes() noexcept { return static_cast<char*>(block_->bytes()); }
    char* end() noexcept { return bytes() + size_; }
    bool makeRoom(size_t more) noexcept {
        if (failed_) return false;
        if (block_ != nullptr && capacity_ - size_ >= more) return true;
        const size_t capacity = std::max<size_t>(2 * capacity_, size_ + more + 256);
        void* memory = allocate(sizeof(Block) + capacity);
        if (memory == nullptr) {
            failed_ = true;
            return false;
        }
        auto* larger = new (memory) Block{nullptr};
        if (block_ != nullptr) {
            std::memcpy(larger->bytes(), block_->bytes(), size_);
            deallocate(block_);
        }
        block_ = larger;
        capacity_ = capacity;
        return true;
    }

    Block* block_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
    bool failed_ = false;
};

// The length of the UTF-8 character at text, printable and at most size bytes; 0 for anything else.
uint32_t characterLength(const uint8_t* text, uint32_t size) noexcept {
    const uint8_t first = text[0];
    if (first < 0x80) return first >= 0x20 && first != 0x7f ? 1 : 0;
    const uint32_t length = first >= 0xc2 && first < 0xe0   ? 2
                            : first >= 0xe0 && first < 0xf0 ? 3
                            : first >= 0xf0 && first < 0xf5 ? 4
                                                            : 0;
    if (length == 0 || length > size) return 0;
    uint32_t code = first & (0xffu >> (length + 1));
    for (uint32_t i = 1; i < length; ++i) {
        if ((text[i] & 0xc0) != 0x80) return 0;
        code = code << 6 | (text[i] & 0x3f);
    }
    constexpr uint32_t smallest[] = {0, 0, 0xa0, 0x800, 0x10000};  // 0x80 to 0x9f are control characters
    if (code < smallest[length] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) return 0;
    return length;
}

// Text as it is, with what cannot be printed, and what would be misread, escaped.
void escaped(Text& to, const uint8_t* text, uint32_t size, std::string_view special) noexcept {
    for (uint32_t at = 0; at < size;) {
        const char byte = static_cast<char>(text[at]);
        if (const uint32_t length = characterLength(text + at, size - at); length != 0) {
            if (special.find(byte) != special.npos) to.put('\\');
            to.put({reinterpret_cast<const char*>(text + at), length});
            at += length;
            continue;
        }
        switch (byte) {
            case '\n':
                to.put("\\n");
                break;
            case '\r':
                to.put("\\r");
                break;
            case '\t':
                to.put("\\t");
                break;
            default:
                to.put("\\x");
                to.hex(text[at]);
        }
        ++at;
    }
}

void quoted(Text& to, const uint8_t* text, uint32_t size) noexcept {
    to.put('"');
    escaped(to, text, size, "\"\\");
    to.put('"');
}

void floating(Text& to, auto value) noexcept {
    if (std::isnan(value)) {
        to.put("nan");
    } else if (std::isinf(value)) {
        to.put(value < 0 ? "-inf" : "inf");
    } else {
        to.number(value);
    }
}

// The proleptic Gregorian calendar, with a year 0 before the year 1, as ISO 8601 has it. Years that need more than four
// digits, or a minus, carry a sign.
void dateTime(Text& to, int64_t seconds, uint32_t nanoseconds) noexcept {
    constexpr int64_t secondsPerDay = 86'400;
    int64_t days = seconds / secondsPerDay;
    int64_t second = seconds % secondsPerDay;
    if (second < 0) {
        second += secondsPerDay;
        --days;
    }
    // Years begin in March here, so that the leap day is a year's last. An era is 400 years.
    constexpr int64_t daysPerEra = 146'097;
    days += 719'468;  // from 0000-03-01 to 1970-01-01
    const int64_t era = (days >= 0 ? days : days - (daysPerEra - 1)) / daysPerEra;
    const int64_t dayOfEra = days - era * daysPerEra;
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1'460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t marchMonth = (5 * dayOfYear + 2) / 153;
    const int64_t day = dayOfYear - (153 * marchMonth + 2) / 5 + 1;
    const int64_t month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
    const int64_t year = yearOfEra + era * 400 + (month <= 2);

    if (year < 0) to.put('-');
    if (year > 9'999) to.put('+');
    to.padded(static_cast<uint64_t>(year < 0 ? -year : year), 4);
    to.put('-');
    to.padded(static_cast<uint64_t>(month), 2);
    to.put('-');
    to.padded(static_cast<uint64_t>(day), 2);
    to.put('T');
    to.padded(static_cast<uint64_t>(second / 3'600), 2);
    to.put(':');
    to.padded(static_cast<uint64_t>(second / 60 % 60), 2);
    to.put(':');
    to.padded(static_cast<uint64_t>(second % 60), 2);
    to.put('.');
    to.padded(nanoseconds, 9);
    to.put('Z');
}

template <class Number>
void number(Text& to, Number value) noexcept {
    if constexpr (std::is_floating_point_v<Number>) {
        floating(to, value);
    } else if constexpr (sizeof(Number) == 1) {
        to.number(static_cast<int>(value));
    } else {
        to.number(value);
    }
}

template <class Number>
void numbers(Text& to, const uint8_t* from, uint32_t count) noexcept {
    for (uint32_t i = 0; i < count; ++i) {
        if (i != 0) to.put(", ");
        number(to, wire::load<Number>(from + i * sizeof(Number)));
    }
}

void scalar(Text& to, const uint8_t* from, uint8_t type) noexcept {
    switch (type) {
        case QUORLMSG_BOOL:
            return to.put(*from != 0 ? "true" : "false");
        case QUORLMSG_IPPORT16:
            return to.number(from[0] << 8 | from[1]);
        case QUORLMSG_IPADDR32:
            for (int i = 0; i < 4; ++i) {
                if (i != 0) to.put('.');
                to.number(int{from[i]});
            }
            return;
        case QUORLMSG_DATETIME:
            return dateTime(to, wire::load<int64_t>(from), wire::load<uint32_t>(from + 8));
        default:
            break;
    }
    switch (type) {
#define QUORL_SCALAR(TYPE, Name, Native, member)                                          \
    case QUORLMSG_##TYPE:                                                                 \
        if constexpr (std::is_arithmetic_v<Native>) number(to, wire::load<Native>(from)); \
        return;
#include "message/types.def"
        default:
            return;
    }
}

void array(Text& to, const uint8_t* from, uint8_t type, uint32_t count) noexcept {
    switch (type) {
#define QUORL_NUMBERS(TYPE, Name, Native) \
    case QUORLMSG_##TYPE:                 \
        return numbers<Native>(to, from, count);
#include "message/types.def"
        default:
            return;
    }
}

void preview(Text& to, const uint8_t* bytes, uint32_t size, uint8_t type) noexcept {
    to.put('[');
    if (type >= userTypeFirst) {
        to.put("type ");
        to.number(int{type});
        to.put(", ");
    }
    to.number(size);
    to.put(size == 1 ? " byte" : " bytes");
    if (size != 0) to.put(": ");
    for (uint32_t i = 0; i < size && i < previewBytes; ++i) to.hex(bytes[i]);
    if (size > previewBytes) to.put("...");
    to.put(']');
}

void message(Text& to, const uint8_t* image) noexcept;

void value(Text& to, const uint8_t* image, const Field& field) noexcept {
    const uint8_t* from = image + field.value;
    switch (typeInfo(field.type).kind) {
        case Kind::scalar:
            return scalar(to, from, field.type);
        case Kind::string:
            return quoted(to, from, field.length - 1);
        case Kind::bytes:
            return field.type == QUORLMSG_XML ? quoted(to, from, field.length)
                                              : preview(to, from, field.length, field.type);
        case Kind::message:
            return message(to, from);
        case Kind::numbers:
            to.put('{');
            array(to, from, field.type, field.length);
            return to.put('}');
        case Kind::strings:
            to.put('{');
            for (uint32_t i = 0; i < field.length; ++i) {
                if (i != 0) to.put(", ");
                const auto length = static_cast<uint32_t>(std::strlen(reinterpret_cast<const char*>(from)));
                quoted(to, from, length);
                from += length + 1;
            }
            return to.put('}');
        case Kind::messages: {
            to.put('{');
            uint32_t at = field.value;
            for (uint32_t i = 0; i < field.length; ++i) {
                if (i != 0) to.put(", ");
                at = wire::alignUp(at, wire::imageAlignment);
                message(to, image + at);
                at += wire::load<uint32_t>(image + at + wire::sizeAt);
            }
            return to.put('}');
        }
        case Kind::none:
            return;
    }
}

void message(Text& to, const uint8_t* image) noexcept {
    wire::Fault none;
    wire::Decoder<false> decoder(image, wire::load<uint32_t>(image + wire::sizeAt), 0, 0, &none);
    const uint32_t count = wire::load<uint32_t>(image + wire::countAt);
    uint32_t at = wire::headerSize;
    to.put('{');
    for (uint32_t i = 0; i < count; ++i) {
        Field field;
        at = decoder.read(at, field);
        if (i != 0) to.put(", ");
        if (field.nameLength == wire::noName) {
            to.put('#');
            to.number(field.id);
        } else if (field.nameLength == 0) {
            to.put("\"\"");
        } else {
            escaped(to, image + field.name(), field.nameLength, "\\=,[]{}\"#");
        }
        const Kind kind = typeInfo(field.type).kind;
        if (kind == Kind::numbers || kind == Kind::strings || kind == Kind::messages) {
            to.put('[');
            to.number(field.length);
            to.put(']');
        }
        to.put('=');
        value(to, image, field);
    }
    to.put('}');
}

}  // namespace

quorl_status print(Slot& slot, Content& content, const char** string) noexcept {
    Borrowed* borrowed = borrowedOf(slot);
    if (borrowed != nullptr && borrowed->printed == nullptr) {
        Text text;
        message(text, content.image);
        if (Block* block = text.take()) {
            block->next = borrowed->current.blocks;
            borrowed->current.blocks = block;
            borrowed->printed = static_cast<const char*>(block->bytes());
        }
    }
    if (borrowed == nullptr || borrowed->printed == nullptr) {
        return fail(QUORL_NO_MEMORY, "no memory for the printed form");
    }
    noteBorrowed(slot);
    *string = borrowed->printed;
    return QUORL_OK;
}

}  // namespace quorl::message
