// What a ledger's file looks like: its tables, the numbers of its messages, and what a new one contains.
// docs/internals/ledger.md describes it in full.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "certified/ledger/outcome.h"

namespace quorl::certified::format {

inline constexpr uint32_t applicationId = 0x514c4447;  // "QLDG"
inline constexpr uint32_t version = 1;
inline constexpr uint32_t pageSize = 4096;

// The tables, in the order in which a new ledger has them.
inline constexpr const char* tables[] = {
    "CREATE TABLE property(key TEXT PRIMARY KEY, value) WITHOUT ROWID",
    "CREATE TABLE state(key BLOB PRIMARY KEY, sum INTEGER, value BLOB) WITHOUT ROWID",
    "CREATE TABLE segment(id INTEGER PRIMARY KEY, subject INTEGER, high INTEGER, text TEXT)",
    "CREATE TABLE message(id INTEGER PRIMARY KEY, expires INTEGER, sum INTEGER, reply TEXT, image BLOB)",
};

// A message's row: its segment in the upper half, the lower half of its number in the lower. A segment stands for a subject and
// the upper half of the numbers.
constexpr int64_t rowOf(uint32_t segment, uint32_t low) noexcept {
    return static_cast<int64_t>((uint64_t{segment} << 32) | low);
}
constexpr uint32_t segmentOfRow(int64_t row) noexcept {
    return static_cast<uint32_t>(static_cast<uint64_t>(row) >> 32);
}
constexpr uint32_t lowOfRow(int64_t row) noexcept {
    return static_cast<uint32_t>(row);
}
inline constexpr uint32_t lastSegment = 0x7fffffff;

// What a message's row says, and its checksum.
struct Record {
    uint32_t subjectNumber = 0;
    uint64_t number = 0;
    int64_t expires = 0;
    std::string_view reply;
    std::string_view image;

    uint64_t checksum() const noexcept;
};

uint64_t stateChecksum(std::string_view key, std::string_view value) noexcept;

// The file of a new ledger of that name.
Outcome newFile(const std::string& name, std::string* content);

// Whether the file begins as that of a ledger that this version can read. QUORL_INVALID_FILE, QUORL_VERSION_MISMATCH,
// QUORL_IO_FAILED.
Outcome checkBeginning(int descriptor, const std::string& path);

}  // namespace quorl::certified::format
