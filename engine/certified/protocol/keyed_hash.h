// SipHash-2-4 (Aumasson, Bernstein: SipHash: a fast short-input PRF, 2012): what one who knows the key alone can compute.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <string_view>

namespace quorl::certified {

inline uint64_t keyedHash(const std::array<uint64_t, 2>& key, std::string_view text) noexcept {
    uint64_t v0 = key[0] ^ 0x736f6d6570736575u;
    uint64_t v1 = key[1] ^ 0x646f72616e646f6du;
    uint64_t v2 = key[0] ^ 0x6c7967656e657261u;
    uint64_t v3 = key[1] ^ 0x7465646279746573u;
    const auto rounds = [&](int count) {
        for (; count != 0; --count) {
            v0 += v1;
            v2 += v3;
            v1 = std::rotl(v1, 13) ^ v0;
            v3 = std::rotl(v3, 16) ^ v2;
            v0 = std::rotl(v0, 32);
            v2 += v1;
            v0 += v3;
            v1 = std::rotl(v1, 17) ^ v2;
            v3 = std::rotl(v3, 21) ^ v0;
            v2 = std::rotl(v2, 32);
        }
    };
    const auto mix = [&](uint64_t word) {
        v3 ^= word;
        rounds(2);
        v0 ^= word;
    };
    uint64_t word = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        word |= static_cast<uint64_t>(static_cast<uint8_t>(text[i])) << 8 * (i % 8);
        if (i % 8 != 7) continue;
        mix(word);
        word = 0;
    }
    mix(word | static_cast<uint64_t>(text.size()) << 56);
    v2 ^= 0xff;
    rounds(4);
    return v0 ^ v1 ^ v2 ^ v3;
}

}  // namespace quorl::certified
