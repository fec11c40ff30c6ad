// Bytes that are overwritten before their memory is given back: passwords, keys, and what is kept beside them.
#pragma once

#include <cstddef>
#include <string_view>
#include <utility>

namespace quorl::secure {

// Pages of its own, left out of core dumps, and kept out of the swap space where the system allows that. Always followed
// by a zero byte that size does not count.
class Secret {
  public:
    Secret() noexcept = default;
    Secret(Secret&& other) noexcept
        : bytes_(std::exchange(other.bytes_, nullptr)), size_(std::exchange(other.size_, 0)) {}
    Secret& operator=(Secret&& other) noexcept {
        if (this != &other) {
            wipe();
            bytes_ = std::exchange(other.bytes_, nullptr);
            size_ = std::exchange(other.size_, 0);
        }
        return *this;
    }
    ~Secret() { wipe(); }

    // Replaces what is there by a copy of text; an empty text is a value too. False: no memory, and nothing is changed.
    [[nodiscard]] bool assign(std::string_view text) noexcept;

    // Overwrites and forgets.
    void wipe() noexcept;

    bool present() const noexcept { return bytes_ != nullptr; }
    size_t size() const noexcept { return size_; }
    const char* text() const noexcept { return bytes_; }  // null when nothing is there
    std::string_view view() const noexcept { return {bytes_ != nullptr ? bytes_ : "", size_}; }

  private:
    char* bytes_ = nullptr;
    size_t size_ = 0;
};

}  // namespace quorl::secure
