// The syntax check and the plain matcher of subjects.
#include "subject/subject.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/utf8.h"
#include "quorl/quorl.h"

namespace quorl::subject {
namespace {

constexpr uint64_t kOnes = 0x0101010101010101u;
constexpr uint64_t kHighBits = kOnes * 0x80;

// The high bit of each byte of word that equals byte. Exact only for words of ASCII bytes: none of the sums carries
// then.
uint64_t equalBytes(uint64_t word, unsigned char byte) {
    return ~((word ^ (kOnes * byte)) + kOnes * 0x7f) & kHighBits;
}

template <class Word>
uint64_t load(const char* at) {
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// Whether a word of the text makes it other than plain ASCII, or leaves that open: a byte above 0x7f, a wildcard, a zero
// byte, two dots in a row. The first byte in memory is the lowest of the word: moved up one byte, a dot meets its
// successor; lastWasDot is the dot before the word, as the lowest high bit.
bool spoils(uint64_t word, uint64_t lastWasDot) {
    uint64_t dots = equalBytes(word, '.');
    return ((word & kHighBits) | equalBytes(word, 0) | equalBytes(word, '*') | equalBytes(word, '>') |
            (dots & ((dots << 8) | lastWasDot))) != 0;
}

// Whether text, which is not empty, is plain: eight bytes at a time, and false for whatever is not ASCII, so that a false
// answer says nothing. Nearly every subject that is ever sent takes this path.
bool plainAscii(std::string_view text) {
    if (text.front() == '.' || text.back() == '.') return false;
    const char* bytes = text.data();
    const size_t size = text.size();
    if (size >= 8) {
        uint64_t lastWasDot = 0;
        size_t at = 0;
        for (; at + 8 <= size; at += 8) {
            uint64_t word = load<uint64_t>(bytes + at);
            if (spoils(word, lastWasDot)) return false;
            lastWasDot = equalBytes(word, '.') >> 56;
        }
        // The last eight bytes, which overlap those before.
        return at == size || !spoils(load<uint64_t>(bytes + size - 8), 0);
    }
    // Fewer: from pieces that may overlap, the rest filled with what is harmless.
    uint64_t word = (kOnes * 'x') << (8 * size);
    if (size >= 4) {
        word |= load<uint32_t>(bytes) | load<uint32_t>(bytes + size - 4) << (8 * (size - 4));
    } else {
        word |= load<uint8_t>(bytes) | load<uint8_t>(bytes + size / 2) << (8 * (size / 2)) |
                load<uint8_t>(bytes + size - 1) << (8 * (size - 1));
    }
    return !spoils(word, 0);
}

// Takes the first element off the front of rest, and its separator.
std::string_view takeElement(std::string_view& rest) {
    size_t dot = rest.find('.');
    std::string_view element = rest.substr(0, dot);
    rest.remove_prefix(dot == std::string_view::npos ? rest.size() : dot + 1);
    return element;
}

// What is wrong with text; null: nothing, and *form says what it is.
const char* read(std::string_view text, Form* form) noexcept {
    if (text.empty()) return "it is empty";
    if (text.size() > QUORL_SUBJECT_MAX) return "it is longer than 254 bytes";
    *form = Form::plain;
    if (plainAscii(text)) return nullptr;

    size_t elementStart = 0;
    for (size_t at = 0; at < text.size();) {
        const bool first = at == elementStart;
        const bool last = at + 1 == text.size();
        switch (text[at]) {
            case '\0':
                return "it contains a zero byte";
            case '.':
                if (first || last) return "an element of it is empty";
                elementStart = ++at;
                break;
            case '*':
                if (!first || (!last && text[at + 1] != '.')) return "a wildcard must be a whole element";
                *form = Form::pattern;
                ++at;
                break;
            case '>':
                if (!first || (!last && text[at + 1] != '.')) return "a wildcard must be a whole element";
                if (!last) return "\">\" must be the last element";
                *form = Form::pattern;
                ++at;
                break;
            default: {
                const size_t length = utf8::sequenceLength(text, at);
                if (length == 0) return "it is not UTF-8";
                at += length;
            }
        }
    }
    return nullptr;
}

}  // namespace

static_assert(QUORL_SUBJECT_MAX == 254, "a text above names it");

Form formOf(std::string_view text) noexcept {
    Form form = Form::malformed;
    return read(text, &form) == nullptr ? form : Form::malformed;
}

const char* whyMalformed(std::string_view text) noexcept {
    Form form;
    return read(text, &form);
}

bool matches(std::string_view pattern, std::string_view subject) noexcept {
    while (!pattern.empty() && !subject.empty()) {
        std::string_view wanted = takeElement(pattern);
        if (wanted == ">") return true;
        std::string_view element = takeElement(subject);
        if (wanted != "*" && wanted != element) return false;
    }
    return pattern.empty() && subject.empty();
}

}  // namespace quorl::subject
