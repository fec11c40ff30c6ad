// What a daemon says, as it can stand in a text for people.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace quorl::transport::nats {

// At most so many bytes of what was said; those that are no printable ASCII as "%" and two digits. Throws std::bad_alloc.
inline std::string readable(std::string_view said, size_t most) {
    std::string text;
    for (const char c : said.substr(0, most)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f) {
            text += c;
        } else {
            text += '%';
            text += "0123456789ABCDEF"[byte >> 4];
            text += "0123456789ABCDEF"[byte & 15];
        }
    }
    if (said.size() > most) text += "...";
    return text;
}

}  // namespace quorl::transport::nats
