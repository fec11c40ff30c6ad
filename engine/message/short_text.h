// Short texts held in two words, so that names are measured, compared and copied without a call.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/utf8.h"

// Checkers of memory accesses take reading ahead of a text's end, though inside its page, for a mistake.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QUORL_READ_AHEAD 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define QUORL_READ_AHEAD 0
#endif
#endif
#ifndef QUORL_READ_AHEAD
#define QUORL_READ_AHEAD 1
#endif

namespace quorl::message {

// The high bit of each zero byte of word, of those below the first one exactly: the lowest set bit is right.
constexpr uint64_t zeroBytes(uint64_t word) noexcept {
    constexpr uint64_t ones = 0x0101010101010101u;
    return (word - ones) & ~word & (ones << 7);
}
// The place of the first zero byte, from what zeroBytes gave.
constexpr uint32_t firstZero(uint64_t zeros) noexcept {
    return static_cast<uint32_t>(std::countr_zero(zeros)) / 8;
}
// The bits of a word up to its first zero byte and with it.
constexpr uint64_t upToZero(uint64_t zeros) noexcept {
    return zeros ^ (zeros - 1);
}

// A text of up to fifteen bytes with its terminator.
struct ShortText {
    static constexpr uint32_t wordSize = sizeof(uint64_t);

    uint64_t first;
    uint64_t second;  // of a text of eight bytes or more
    uint64_t mask;    // of the last word: the bits that are the text's and its terminator's
    uint32_t length;

    // False: the text is longer, or stands so near the end of its page that it must be read otherwise.
    [[gnu::always_inline]] bool read(const char* text) noexcept {
#if QUORL_READ_AHEAD
        // A read that stays in the page of the text's first byte meets nothing that is not there.
        constexpr uintptr_t page = 4096;
        constexpr uintptr_t read = uintptr_t{2} * wordSize;
        if (reinterpret_cast<uintptr_t>(text) % page > page - read) return false;
        const char* const from = text;
#else
        char from[2 * wordSize] = {};
        std::memcpy(from, text, strnlen(text, sizeof from));
#endif
        std::memcpy(&first, from, wordSize);
        if (const uint64_t zeros = zeroBytes(first); zeros != 0) {
            second = 0;
            mask = upToZero(zeros);
            length = firstZero(zeros);
            return true;
        }
        std::memcpy(&second, from + wordSize, wordSize);
        const uint64_t zeros = zeroBytes(second);
        if (zeros == 0) return false;
        mask = upToZero(zeros);
        length = wordSize + firstZero(zeros);
        return true;
    }

    [[gnu::always_inline]] bool isAscii() const noexcept {
        return (length < wordSize ? first & mask & utf8::highBits : (first | (second & mask)) & utf8::highBits) == 0;
    }

    // Whether the text at other, followed by fifteen bytes that may be read, is the same.
    [[gnu::always_inline]] bool equals(const uint8_t* other) const noexcept {
        uint64_t word;
        std::memcpy(&word, other, wordSize);
        if (length < wordSize) return ((word ^ first) & mask) == 0;
        if (word != first) return false;
        std::memcpy(&word, other + wordSize, wordSize);
        return ((word ^ second) & mask) == 0;
    }

    // Copies the text and its terminator; overwrites up to sixteen bytes from to on.
    [[gnu::always_inline]] void write(uint8_t* to) const noexcept {
        if (length < wordSize) {
            const uint64_t word = first & mask;
            std::memcpy(to, &word, wordSize);
        } else {
            const uint64_t word = second & mask;
            std::memcpy(to, &first, wordSize);
            std::memcpy(to + wordSize, &word, wordSize);
        }
    }
};

}  // namespace quorl::message
