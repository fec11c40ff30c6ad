// Bytes of a companion's frames and stored state: whole numbers in groups of seven bits, the lowest first, and texts with their
// length.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace quorl::companion {

// Writes up to Size bytes. What does not fit is not written, and fits() says so.
template <size_t Size>
class Writer {
  public:
    void byte(uint8_t value) noexcept { raw(&value, 1); }
    void fixed(uint64_t value) noexcept {
        std::array<uint8_t, 8> bytes;
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(value >> 8 * i);
        raw(bytes.data(), bytes.size());
    }
    void number(uint64_t value) noexcept {
        std::array<uint8_t, 10> bytes;
        size_t count = 0;
        for (; value >= 0x80; value >>= 7) bytes[count++] = static_cast<uint8_t>(value | 0x80);
        bytes[count++] = static_cast<uint8_t>(value);
        raw(bytes.data(), count);
    }
    void text(std::string_view text) noexcept {
        number(text.size());
        raw(text.data(), text.size());
    }
    void raw(const void* from, size_t count) noexcept {
        if (count > Size - size_) {
            fits_ = false;
            return;
        }
        if (count != 0) std::memcpy(bytes_.data() + size_, from, count);
        size_ += count;
    }

    bool fits() const noexcept { return fits_; }
    size_t size() const noexcept { return size_; }
    size_t room() const noexcept { return Size - size_; }
    // Goes back to an earlier size.
    void cut(size_t size) noexcept {
        size_ = size;
        fits_ = true;
    }
    std::span<const uint8_t> bytes() const noexcept { return {bytes_.data(), size_}; }
    std::string string() const { return {reinterpret_cast<const char*>(bytes_.data()), size_}; }

  private:
    std::array<uint8_t, Size> bytes_;
    size_t size_ = 0;
    bool fits_ = true;
};

// Reads what anybody may have written. After a failure everything reads as 0, and ok() is false.
class Reader {
  public:
    explicit Reader(std::span<const uint8_t> bytes) noexcept : at_(bytes.data()), end_(at_ + bytes.size()) {}
    explicit Reader(std::string_view bytes) noexcept
        : at_(reinterpret_cast<const uint8_t*>(bytes.data())), end_(at_ + bytes.size()) {}

    uint8_t byte() noexcept {
        if (at_ == end_) return failed();
        return *at_++;
    }
    uint64_t fixed() noexcept {
        if (left() < 8) return failed();
        uint64_t value = 0;
        for (size_t i = 0; i < 8; ++i) value |= static_cast<uint64_t>(at_[i]) << 8 * i;
        at_ += 8;
        return value;
    }
    uint64_t number() noexcept {
        uint64_t value = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            if (at_ == end_) return failed();
            const uint8_t next = *at_++;
            // The tenth byte has room for one bit alone.
            if (shift == 63 && next > 1) return failed();
            value |= static_cast<uint64_t>(next & 0x7f) << shift;
            if (next < 0x80) {
                if (next == 0 && shift != 0) return failed();  // a number has one form
                return value;
            }
        }
        return failed();
    }
    // least to most, both included.
    uint64_t number(uint64_t least, uint64_t most) noexcept {
        const uint64_t value = number();
        return value < least || value > most ? failed() : value;
    }
    std::string_view text() noexcept {
        const uint64_t size = number();
        if (size > left()) {
            failed();
            return {};
        }
        const std::string_view text(reinterpret_cast<const char*>(at_), static_cast<size_t>(size));
        at_ += size;
        return text;
    }

    bool ok() const noexcept { return ok_; }
    size_t left() const noexcept { return static_cast<size_t>(end_ - at_); }
    // Everything was read, and made sense.
    bool done() const noexcept { return ok_ && at_ == end_; }
    uint8_t failed() noexcept {
        ok_ = false;
        at_ = end_;
        return 0;
    }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
    bool ok_ = true;
};

}  // namespace quorl::companion
