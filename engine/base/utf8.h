// What is UTF-8 and what is not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace quorl::utf8 {

// The high bit of each byte of a word: none of them is set in ASCII.
inline constexpr uint64_t highBits = 0x8080808080808080u;

// The length of the sequence at text[at]; 0 when it is none. Overlong forms, surrogates and values above U+10FFFF are
// none.
inline size_t sequenceLength(std::string_view text, size_t at) noexcept {
    const auto byte = [&](size_t i) { return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0u; };
    const auto continues = [&](size_t i) { return (byte(i) & 0xc0) == 0x80; };
    const unsigned first = byte(0);
    if (first < 0x80) return 1;
    if (first >= 0xc2 && first <= 0xdf) return continues(1) ? 2 : 0;
    if ((first & 0xf0) == 0xe0) {
        if (!continues(1) || !continues(2)) return 0;
        if (first == 0xe0 && byte(1) < 0xa0) return 0;
        if (first == 0xed && byte(1) > 0x9f) return 0;
        return 3;
    }
    if (first >= 0xf0 && first <= 0xf4) {
        if (!continues(1) || !continues(2) || !continues(3)) return 0;
        if (first == 0xf0 && byte(1) < 0x90) return 0;
        if (first == 0xf4 && byte(1) > 0x8f) return 0;
        return 4;
    }
    return 0;
}

// Where the first byte stands, from at on, that is not ASCII; the size when all are.
inline size_t skipAscii(std::string_view text, size_t at) noexcept {
    for (uint64_t word; at + sizeof word <= text.size(); at += sizeof word) {
        std::memcpy(&word, text.data() + at, sizeof word);
        if ((word & highBits) != 0) break;
    }
    while (at < text.size() && static_cast<unsigned char>(text[at]) < 0x80) ++at;
    return at;
}

// Where the first byte stands that belongs to no sequence; npos: text is UTF-8.
inline size_t findInvalid(std::string_view text) noexcept {
    for (size_t at = 0; (at = skipAscii(text, at)) < text.size();) {
        const size_t length = sequenceLength(text, at);
        if (length == 0) return at;
        at += length;
    }
    return std::string_view::npos;
}

// The same for a text that a virtual machine may have written: characters above U+FFFF stand there as two surrogates of
// three bytes each.
inline bool validOrPaired(std::string_view text) noexcept {
    const auto surrogate = [&](size_t at, unsigned char first) {
        return at + 3 <= text.size() && text[at] == '\xed' && (text[at + 1] & 0xf0) == first &&
               (text[at + 2] & 0xc0) == 0x80;
    };
    for (size_t at = 0; (at = skipAscii(text, at)) < text.size();) {
        const size_t length = surrogate(at, 0xa0) && surrogate(at + 3, 0xb0) ? 6 : sequenceLength(text, at);
        if (length == 0) return false;
        at += length;
    }
    return true;
}

}  // namespace quorl::utf8
