// By multiplication without carries where the processor has it, which is about as fast as memory; otherwise eight bytes at a time,
// by eight tables.
#include "certified/ledger/checksum.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <array>
#include <bit>
#include <cstring>

namespace quorl::certified {
namespace {

static_assert(std::endian::native == std::endian::little);

constexpr uint64_t polynomial = 0xC96C5795D7870F42;  // reflected

using Table = std::array<uint64_t, 256>;

// tables[k][b]: what byte b contributes when k more bytes follow.
constexpr std::array<Table, 8> makeTables() {
    std::array<Table, 8> tables{};
    for (uint64_t byte = 0; byte < 256; ++byte) {
        uint64_t remainder = byte;
        for (int bit = 0; bit < 8; ++bit) remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? polynomial : 0);
        tables[0][byte] = remainder;
    }
    for (size_t k = 1; k < tables.size(); ++k) {
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint64_t before = tables[k - 1][byte];
            tables[k][byte] = (before >> 8) ^ tables[0][before & 0xff];
        }
    }
    return tables;
}

constexpr std::array<Table, 8> tables = makeTables();

uint64_t addByTables(uint64_t remainder, const unsigned char* at, size_t size) noexcept {
    for (; size >= 8; size -= 8, at += 8) {
        uint64_t word;
        std::memcpy(&word, at, 8);
        word ^= remainder;
        remainder = tables[7][word & 0xff] ^ tables[6][(word >> 8) & 0xff] ^ tables[5][(word >> 16) & 0xff] ^
                    tables[4][(word >> 24) & 0xff] ^ tables[3][(word >> 32) & 0xff] ^ tables[2][(word >> 40) & 0xff] ^
                    tables[1][(word >> 48) & 0xff] ^ tables[0][word >> 56];
    }
    for (; size != 0; --size, ++at) remainder = (remainder >> 8) ^ tables[0][(remainder ^ *at) & 0xff];
    return remainder;
}

#if defined(__x86_64__)

// x to that power modulo the polynomial, whose highest coefficient is the lowest bit.
constexpr uint64_t powerOf(unsigned exponent) {
    uint64_t power = uint64_t{1} << 63;
    for (; exponent != 0; --exponent) power = (power >> 1) ^ ((power & 1) != 0 ? polynomial : 0);
    return power;
}

constexpr size_t leastMultiplied = 64;

// 16 bytes stand for their remainder when so many bits follow them: the earlier half is 64 bits further ahead. A product of two
// reflected factors is one bit short of its place, so the powers are one lower.
template <unsigned bits>
__attribute__((target("pclmul"))) __m128i moved(__m128i sum) noexcept {
    const __m128i by =
        _mm_set_epi64x(static_cast<long long>(powerOf(bits - 1)), static_cast<long long>(powerOf(bits + 63)));
    return _mm_xor_si128(_mm_clmulepi64_si128(sum, by, 0x00), _mm_clmulepi64_si128(sum, by, 0x11));
}

// Of at least 64 bytes.
__attribute__((target("pclmul"))) uint64_t addByMultiplying(uint64_t remainder, const unsigned char* at,
                                                            size_t size) noexcept {
    const auto block = [](const unsigned char* from) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    };
    __m128i sums[4];
    for (size_t i = 0; i < 4; ++i) sums[i] = block(at + 16 * i);
    sums[0] = _mm_xor_si128(sums[0], _mm_cvtsi64_si128(static_cast<long long>(remainder)));
    for (at += 64, size -= 64; size >= 64; at += 64, size -= 64) {
        for (size_t i = 0; i < 4; ++i) sums[i] = _mm_xor_si128(moved<512>(sums[i]), block(at + 16 * i));
    }
    __m128i sum = sums[0];
    for (size_t i = 1; i < 4; ++i) sum = _mm_xor_si128(moved<128>(sum), sums[i]);
    for (; size >= 16; at += 16, size -= 16) sum = _mm_xor_si128(moved<128>(sum), block(at));
    unsigned char last[16];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(last), sum);
    return addByTables(addByTables(0, last, sizeof(last)), at, size);
}

#endif

}  // namespace

void Checksum::add(const void* bytes, size_t size) noexcept {
    const auto* at = static_cast<const unsigned char*>(bytes);
#if defined(__x86_64__)
    if (size >= leastMultiplied && __builtin_cpu_supports("pclmul")) {
        remainder_ = addByMultiplying(remainder_, at, size);
        return;
    }
#endif
    remainder_ = addByTables(remainder_, at, size);
}

}  // namespace quorl::certified
