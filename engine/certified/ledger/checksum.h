// CRC-64/XZ, the checksum of what a ledger keeps: polynomial 0x42F0E1EBA9EA3693 reflected, all ones before and inverted after.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>

namespace quorl::certified {

class Checksum {
  public:
    void add(const void* bytes, size_t size) noexcept;
    // An integer as its bytes, the lowest first.
    template <std::unsigned_integral T>
    void add(T number) noexcept {
        unsigned char bytes[sizeof(T)];
        for (size_t i = 0; i < sizeof(T); ++i) bytes[i] = static_cast<unsigned char>(number >> (8 * i));
        add(bytes, sizeof(T));
    }
    // Its length in 4 bytes, then the bytes themselves, so that no byte can move from one value to the next unnoticed.
    void add(std::string_view value) noexcept {
        add(static_cast<uint32_t>(value.size()));
        add(value.data(), value.size());
    }
    uint64_t value() const noexcept { return ~remainder_; }

  private:
    uint64_t remainder_ = ~uint64_t{0};
};

}  // namespace quorl::certified
