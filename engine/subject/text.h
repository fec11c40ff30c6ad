// Text as the keys of the trie's tables: how it is hashed, and how it is kept.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace quorl::subject {

// Multiplies eight bytes at a time; the last eight may overlap those before. Not meant to resist an attacker: what
// stands in the tables was chosen by this process.
inline uint64_t hashOf(std::string_view text) noexcept {
    constexpr uint64_t kFactor = 0x9e3779b97f4a7c15u;
    uint64_t hash = text.size() * kFactor;
    auto mix = [&](uint64_t word) {
        hash = (hash ^ word) * kFactor;
        hash ^= hash >> 29;
    };
    auto load = [&]<class W>(W word, size_t at) {
        std::memcpy(&word, text.data() + at, sizeof word);
        return static_cast<uint64_t>(word);
    };
    size_t size = text.size();
    if (size >= 8) {
        for (size_t at = 0; at + 8 < size; at += 8) mix(load(uint64_t{}, at));
        mix(load(uint64_t{}, size - 8));
    } else if (size >= 4) {
        mix(load(uint32_t{}, 0) << 32 | load(uint32_t{}, size - 4));
    } else if (size != 0) {
        mix(load(uint8_t{}, 0) << 16 | load(uint8_t{}, size / 2) << 8 | load(uint8_t{}, size - 1));
    }
    return hash;
}

// Text that stays within the object while it is no longer than Capacity, so that comparing it costs no second cache
// line.
template <size_t Capacity>
class InlineText {
  public:
    static_assert(Capacity >= sizeof(char*));

    InlineText() noexcept = default;
    explicit InlineText(std::string_view text) : size_(static_cast<uint32_t>(text.size())) {
        char* place = inline_.data();
        if (text.size() > Capacity) {
            place = std::make_unique<char[]>(text.size()).release();
            std::memcpy(inline_.data(), &place, sizeof place);
        }
        std::memcpy(place, text.data(), text.size());
    }
    InlineText(InlineText&& other) noexcept : size_(std::exchange(other.size_, 0)), inline_(other.inline_) {}
    InlineText& operator=(InlineText other) noexcept {
        std::swap(size_, other.size_);
        std::swap(inline_, other.inline_);
        return *this;
    }
    ~InlineText() {
        if (size_ > Capacity) std::unique_ptr<char[]>{outside()};
    }

    std::string_view view() const noexcept { return {size_ > Capacity ? outside() : inline_.data(), size_}; }

  private:
    char* outside() const noexcept {
        char* place;
        std::memcpy(&place, inline_.data(), sizeof place);
        return place;
    }

    uint32_t size_ = 0;
    std::array<char, Capacity> inline_{};  // the text, or when it does not fit the address of an array that is owned
};

}  // namespace quorl::subject
