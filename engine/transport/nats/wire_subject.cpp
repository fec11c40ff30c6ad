// Escaping and unescaping subjects.
#include "transport/nats/wire_subject.h"

#include <cstring>

namespace quorl::transport::nats {
namespace {

constexpr char digits[] = "0123456789ABCDEF";

// Blanks and control characters end a word of the daemon's protocol.
bool mustEscape(unsigned char byte) noexcept {
    return byte <= 0x20 || byte == 0x7f || byte == '%';
}

void escape(std::string& to, unsigned char byte) {
    to += '%';
    to += digits[byte >> 4];
    to += digits[byte & 15];
}

// A name of a service or network as one element: points and wildcards are ordinary characters there.
void appendName(std::string& to, std::string_view name) {
    if (name.empty()) {
        to += "default";
        return;
    }
    // The name that reads "default" is not the one that nobody gave.
    const bool escapeFirst = name == "default";
    for (size_t i = 0; i < name.size(); ++i) {
        const auto byte = static_cast<unsigned char>(name[i]);
        if (mustEscape(byte) || byte == '.' || byte == '*' || byte == '>' || (escapeFirst && i == 0)) {
            escape(to, byte);
        } else {
            to += name[i];
        }
    }
}

int valueOf(char digit) noexcept {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

}  // namespace

std::string wirePrefix(std::string_view network, std::string_view service) {
    std::string prefix = "quorl.";
    appendName(prefix, network);
    prefix += '.';
    appendName(prefix, service);
    prefix += '.';
    return prefix;
}

std::string toWire(std::string_view prefix, std::string_view subject) {
    std::string wire;
    wire.reserve(prefix.size() + subject.size() + 16);
    wire += prefix;
    for (size_t i = 0; i < subject.size(); ++i) {
        const auto byte = static_cast<unsigned char>(subject[i]);
        bool escaped = mustEscape(byte);
        if (byte == '*' || byte == '>') {
            const bool first = i == 0 || subject[i - 1] == '.';
            const bool last = i + 1 == subject.size() || subject[i + 1] == '.';
            escaped = !first || !last;  // inside an element it is an ordinary character
        }
        if (escaped) {
            escape(wire, byte);
        } else {
            wire += subject[i];
        }
    }
    return wire;
}

bool fromWire(std::string_view prefix, std::string_view wire, ReadSubject* subject) noexcept {
    if (!wire.starts_with(prefix)) return false;
    wire.remove_prefix(prefix.size());
    if (std::memchr(wire.data(), '%', wire.size()) == nullptr) {
        if (wire.size() > QUORL_SUBJECT_MAX) return false;
        std::memcpy(subject->text.data(), wire.data(), wire.size());
        subject->size = wire.size();
        return true;
    }
    size_t size = 0;
    for (size_t i = 0; i < wire.size(); ++i) {
        if (size == QUORL_SUBJECT_MAX) return false;
        char byte = wire[i];
        if (byte == '%') {
            if (i + 2 >= wire.size()) return false;
            const int high = valueOf(wire[i + 1]);
            const int low = valueOf(wire[i + 2]);
            if (high < 0 || low < 0) return false;
            byte = static_cast<char>(high << 4 | low);
            // A daemon's permissions know subjects as they are spelt: of what is escaped, only what toWire escapes is read,
            // or what is denied under one spelling would come under another.
            if (!mustEscape(static_cast<unsigned char>(byte)) && byte != '*' && byte != '>') return false;
            i += 2;
        }
        subject->text[size++] = byte;
    }
    subject->size = size;
    return true;
}

}  // namespace quorl::transport::nats
