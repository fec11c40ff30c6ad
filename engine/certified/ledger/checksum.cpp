// Eight bytes at a time, by eight tables.
#include "certified/ledger/checksum.h"

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

}  // namespace

void Checksum::add(const void* bytes, size_t size) noexcept {
    const auto* at = static_cast<const unsigned char*>(bytes);
    uint64_t remainder = remainder_;
    for (; size >= 8; size -= 8, at += 8) {
        uint64_t word;
        std::memcpy(&word, at, 8);
        word ^= remainder;
        remainder = tables[7][word & 0xff] ^ tables[6][(word >> 8) & 0xff] ^ tables[5][(word >> 16) & 0xff] ^
                    tables[4][(word >> 24) & 0xff] ^ tables[3][(word >> 32) & 0xff] ^ tables[2][(word >> 40) & 0xff] ^
                    tables[1][(word >> 48) & 0xff] ^ tables[0][word >> 56];
    }
    for (; size != 0; --size, ++at) remainder = (remainder >> 8) ^ tables[0][(remainder ^ *at) & 0xff];
    remainder_ = remainder;
}

}  // namespace quorl::certified
