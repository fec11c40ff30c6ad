// The numbered payload that the transport cases send, and the check that each receiver makes of it.
//
// Word 0 is the sequence number, word 1 a hash of it; above 16 bytes the last word is the complement of the hash and
// what lies between is constant. The receiver checks size, order and both hashes of every message and every byte of
// each 1024th, so that a message that is lost, repeated, reordered, cut or torn cannot pass.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace bench {

inline constexpr uint64_t kHello = UINT64_MAX - 1;  // sent until the receiver hears the sender
inline constexpr uint64_t kEnd = UINT64_MAX;        // sent after the last message

// Spreads neighbouring numbers over all 64 bits.
inline uint64_t hashOf(uint64_t number) {
    number *= 0x9fb21c651e98df25u;
    number ^= number >> 32;
    number *= 0xd1342543de82ef95u;
    return number ^ number >> 29;
}

class Payload {
  public:
    explicit Payload(size_t size) : bytes_(size, kFill) {}  // 16 bytes or more

    const void* numbered(uint64_t number) {
        uint64_t head[2] = {number, hashOf(number)};
        std::memcpy(bytes_.data(), head, sizeof head);
        if (bytes_.size() >= 3 * sizeof number) {
            uint64_t tail = ~head[1];
            std::memcpy(bytes_.data() + bytes_.size() - sizeof tail, &tail, sizeof tail);
        }
        return bytes_.data();
    }
    size_t size() const { return bytes_.size(); }

    static uint64_t numberOf(const void* bytes) { return wordAt(bytes, 0); }

    // Whether bytes are the payload of that size with the number that stands in them.
    static bool intact(const void* bytes, size_t size, size_t expectedSize) {
        if (size != expectedSize) return false;
        uint64_t number = wordAt(bytes, 0);
        uint64_t hash = hashOf(number);
        if (wordAt(bytes, 8) != hash) return false;
        if (size < 24) return true;
        if (wordAt(bytes, size - 8) != ~hash) return false;
        if (number % 1024 != 0) return true;
        for (size_t i = 16; i < size - 8; ++i) {
            if (static_cast<const char*>(bytes)[i] != kFill) return false;
        }
        return true;
    }

  private:
    static constexpr char kFill = 0x35;

    static uint64_t wordAt(const void* bytes, size_t at) {
        uint64_t word;
        std::memcpy(&word, static_cast<const char*>(bytes) + at, sizeof word);
        return word;
    }

    std::vector<char> bytes_;
};

}  // namespace bench
