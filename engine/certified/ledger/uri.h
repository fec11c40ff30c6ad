// A path as part of a SQLite URI.
#pragma once

#include <string>

namespace quorl::certified {

inline std::string escapedForUri(const std::string& path) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string uri;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= ' ' || byte >= 0x7f || c == '%' || c == '?' || c == '#') {
            uri += {'%', digits[byte >> 4], digits[byte & 15]};
        } else {
            uri += c;
        }
    }
    return uri;
}

}  // namespace quorl::certified
