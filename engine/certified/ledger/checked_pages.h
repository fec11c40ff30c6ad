// A file layer for SQLite that keeps a checksum in the last eight bytes of each page of a ledger's file, and reads no page whose
// checksum is another. SQLite leaves these bytes alone, as the file's header tells it to; its log has checksums of its own.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <span>

namespace quorl::certified {

// The name of such a layer over another one; null: no memory. It stays until the process ends.
const char* checkedPages(const char* base) noexcept;

inline constexpr int pageReserve = 8;  // bytes at the end of each page

// Of a page by its number, which counts from 1, without its last bytes.
uint64_t pageChecksum(uint32_t number, std::span<const unsigned char> page) noexcept;
// Whether the last bytes of the page are its checksum.
bool pageIntact(uint32_t number, std::span<const unsigned char> page) noexcept;
// Makes them so.
void sealPage(uint32_t number, std::span<unsigned char> page) noexcept;

// Where the calling thread found a page last that was not intact: its offset in the file.
int64_t damagedPageOffset() noexcept;

}  // namespace quorl::certified
