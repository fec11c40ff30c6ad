// Attributes: bytes that a companion library puts beside the fields of a message, where no reader of fields sees them.
//
// Inside the process they stand in the envelope of a content (content.h); between processes in a trailer behind the image,
// which leaves the image as it is:
//
//     'Q' 'A', version, kind, length in 4 bytes, little-endian; so many bytes
//
// docs/reference/wire-format.md says the same in words. A message has a trailer only where the frame around it says so.
#pragma once

#include <cstdint>
#include <span>

#include "message/wire.h"

namespace quorl::message {

using Attributes = std::span<const uint8_t>;

constexpr size_t attributesMax = 2048;  // bytes of the attributes of one message

namespace trailer {

constexpr uint32_t magic = 'Q' | 'A' << 8 | 1 << 16;  // with the version, and 0 for the kind
enum class Kind : uint8_t { companion = 1 };
constexpr size_t headerSize = 8;
constexpr size_t mostBytes = headerSize + attributesMax;

// Bytes of the trailer of a message with that many bytes of attributes; without any it has none.
constexpr size_t sizeFor(size_t attributes) noexcept {
    return attributes == 0 ? 0 : headerSize + attributes;
}

// Writes sizeFor(attributes.size()) bytes. The attributes are not empty and within attributesMax.
inline uint8_t* write(uint8_t* to, Attributes attributes) noexcept {
    wire::store(to, magic | static_cast<uint32_t>(Kind::companion) << 24);
    wire::store(to + 4, static_cast<uint32_t>(attributes.size()));
    std::memcpy(to + headerSize, attributes.data(), attributes.size());
    return to + headerSize + attributes.size();
}

// Reads the trailer at the front of size bytes that anybody may have written; *used gets its length. False: there is none
// that is whole, or one of another version or kind.
inline bool read(const uint8_t* bytes, size_t size, Attributes* attributes, size_t* used) noexcept {
    if (size < headerSize) return false;
    if (wire::load<uint32_t>(bytes) != (magic | static_cast<uint32_t>(Kind::companion) << 24)) return false;
    const auto length = wire::load<uint32_t>(bytes + 4);
    if (length == 0 || length > attributesMax || length > size - headerSize) return false;
    *attributes = {bytes + headerSize, length};
    *used = headerSize + length;
    return true;
}

}  // namespace trailer

}  // namespace quorl::message
