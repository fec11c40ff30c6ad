// Element by element. What a peer sends is checked here too, so nothing is assumed about it.
#include "certified/protocol/subject.h"

#include <cstdint>

#include "quorl/quorl.h"

namespace quorl::certified {
namespace {

// Whether the bytes are UTF-8 without a zero byte, surrogates and overlong forms.
bool isText(std::string_view text) noexcept {
    for (size_t i = 0; i < text.size();) {
        const auto first = static_cast<uint8_t>(text[i]);
        if (first == 0) return false;
        if (first < 0x80) {
            ++i;
            continue;
        }
        const size_t more = first >= 0xc2 && first < 0xe0   ? 1
                            : (first & 0xf0) == 0xe0        ? 2
                            : first >= 0xf0 && first < 0xf5 ? 3
                                                            : 0;
        if (more == 0 || text.size() - i <= more) return false;
        uint32_t point = first & (0x3fu >> more);
        for (size_t k = 1; k <= more; ++k) {
            const auto next = static_cast<uint8_t>(text[i + k]);
            if ((next & 0xc0) != 0x80) return false;
            point = point << 6 | (next & 0x3fu);
        }
        if (more == 2 && (point < 0x800 || (point >= 0xd800 && point < 0xe000))) return false;
        if (more == 3 && (point < 0x10000 || point > 0x10ffff)) return false;
        i += more + 1;
    }
    return true;
}

// The first element, which is taken off rest.
std::string_view takeElement(std::string_view& rest) noexcept {
    const size_t end = rest.find('.');
    const std::string_view element = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    return element;
}

bool wellFormed(std::string_view text, bool wildcards) noexcept {
    if (text.empty() || text.size() > QUORL_SUBJECT_MAX || text.back() == '.' || !isText(text)) return false;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view element = takeElement(rest);
        if (element.empty()) return false;
        const bool star = element.find('*') != std::string_view::npos;
        const bool tail = element.find('>') != std::string_view::npos;
        if (!star && !tail) continue;
        if (!wildcards || element.size() != 1 || (tail && !rest.empty())) return false;
    }
    return true;
}

}  // namespace

bool validSubject(std::string_view subject) noexcept {
    return wellFormed(subject, false);
}

bool validPattern(std::string_view pattern) noexcept {
    return wellFormed(pattern, true);
}

bool validName(std::string_view name) noexcept {
    return name.size() <= nameMax && wellFormed(name, false);
}

bool hasWildcard(std::string_view pattern) noexcept {
    return pattern.find('*') != std::string_view::npos || pattern.find('>') != std::string_view::npos;
}

bool matches(std::string_view pattern, std::string_view subject) noexcept {
    while (!pattern.empty() && !subject.empty()) {
        const std::string_view wanted = takeElement(pattern);
        if (wanted == ">") return true;
        const std::string_view element = takeElement(subject);
        if (wanted != "*" && wanted != element) return false;
    }
    return pattern.empty() && subject.empty();
}

std::string addressOf(std::string_view name) {
    std::string address(addressPrefix);
    address += name;
    return address;
}

}  // namespace quorl::certified
