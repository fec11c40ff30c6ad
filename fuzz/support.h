// What the fuzz targets share: how they fail, read decisions from bytes, and watch the memory that is asked for.
#pragma once

#include <sanitizer/allocator_interface.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "quorl/quorl.h"

namespace quorl::fuzz {

// Ends the process, which is what a fuzzer takes for a finding.
inline void require(bool holds, const char* what) {
    if (holds) [[likely]]
        return;
    std::fprintf(stderr, "%s (%s)\n", what, quorl_LastErrorText());
    std::abort();
}

// Decisions, one after the other; zeros when they are used up.
class Decisions {
  public:
    Decisions(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}
    bool empty() const { return at_ == end_; }
    size_t left() const { return static_cast<size_t>(end_ - at_); }
    uint8_t byte() { return empty() ? 0 : *at_++; }
    bool oneIn(uint32_t many) { return byte() % many == many - 1; }
    uint16_t two() {
        const uint8_t low = byte();
        return static_cast<uint16_t>(low | byte() << 8);
    }
    uint64_t eight() {
        uint64_t value = 0;
        for (int i = 0; i < 8; ++i) value |= uint64_t{byte()} << 8 * i;
        return value;
    }
    // Bytes of the input; fewer when it ends.
    std::string_view bytes(size_t count) {
        if (count > left()) count = left();
        const std::string_view taken(reinterpret_cast<const char*>(at_), count);
        at_ += count;
        return taken;
    }
    // Bytes with their number in front.
    std::string_view counted() { return bytes(two()); }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
};

// Bytes in a block of exactly their size, so that one read too many is seen.
class Block {
  public:
    explicit Block(std::string_view text)
        : size_(text.size()), bytes_(static_cast<uint8_t*>(std::malloc(size_ + (size_ == 0)))) {
        require(bytes_ != nullptr, "no memory for the fuzz target");
        if (size_ != 0) std::memcpy(bytes_, text.data(), size_);
    }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() { std::free(bytes_); }
    const uint8_t* data() const { return bytes_; }
    size_t size() const { return size_; }

  private:
    size_t size_;
    uint8_t* bytes_;
};

// The largest block that was asked for since it was last reset. Of this program, which has one thread.
class Asked {
  public:
    static void watch() { __sanitizer_install_malloc_and_free_hooks(onAllocate, onFree); }
    static void reset() { largest() = 0; }
    static size_t most() { return largest(); }

  private:
    static size_t& largest() {
        static size_t bytes = 0;
        return bytes;
    }
    static void onAllocate(const volatile void*, size_t size) {
        if (size > largest()) largest() = size;
    }
    static void onFree(const volatile void*) {}
};

}  // namespace quorl::fuzz
