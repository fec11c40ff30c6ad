// What the payload of one message of a daemon holds: one image as it is, several messages of one subject, a part of a large
// one, or a probe.
// docs/reference/daemon-wire.md says the same in words.
//
// An entry is one message: the length of its reply subject in a byte, the reply subject, its wire image, whose header says
// how long it is, and in payloads of messages with attributes its trailer. Everything is little-endian.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

#include "message/attributes.h"
#include "message/wire.h"
#include "quorl/quorl.h"

namespace quorl::transport::nats {

inline constexpr uint32_t frameMagic = 'Q' | 'N' << 8 | 1 << 16;  // with the version, and 0 for the kind

// image: the payload is a message's wire image, which has a magic of its own, and there is no reply subject.
// attributed: entries each of which has a trailer (message/attributes.h).
enum class FrameKind : uint8_t { image = 0, entries = 1, part = 2, probe = 3, attributed = 4 };

inline constexpr uint32_t frameHeaderSize = 4;

constexpr uint32_t frameHead(FrameKind kind) noexcept {
    return frameMagic | static_cast<uint32_t>(kind) << 24;
}

// ---- origins: who sent entries, or a part

struct Origin {
    uint64_t sender = 0;   // drawn by the connection that sent it
    uint32_t session = 0;  // how often that connection has been made, from 1; 0: not said
};

// Bytes of the header of entries.
inline constexpr uint32_t entriesHeaderSize = frameHeaderSize + 4 + 8;

inline void writeOrigin(uint8_t* to, const Origin& origin) noexcept {
    message::wire::store(to + frameHeaderSize, origin.session);
    message::wire::store(to + frameHeaderSize + 4, origin.sender);
}

// Of a payload of entries or a part. False: it is too short.
inline bool readOrigin(const uint8_t* bytes, size_t size, Origin* origin) noexcept {
    if (size < entriesHeaderSize) return false;
    origin->session = message::wire::load<uint32_t>(bytes + frameHeaderSize);
    origin->sender = message::wire::load<uint64_t>(bytes + frameHeaderSize + 4);
    return true;
}

// ---- entries

struct Entry {
    std::string_view replySubject;
    const uint8_t* image = nullptr;
    uint32_t size = 0;  // of the image
    message::Attributes attributes;
};

// Bytes of an entry.
constexpr size_t entrySize(size_t replyLength, size_t imageSize, size_t attributes = 0) noexcept {
    return 1 + replyLength + imageSize + message::trailer::sizeFor(attributes);
}

// Reads the entry at the front of size bytes; *used gets its length. trailed: it ends with a trailer. False: there is none
// that is whole.
inline bool readEntry(const uint8_t* bytes, size_t size, Entry* entry, size_t* used, bool trailed = false) noexcept {
    if (size < 1) return false;
    const size_t reply = bytes[0];
    if (reply > QUORL_SUBJECT_MAX || size < 1 + reply + message::wire::headerSize) return false;
    const uint8_t* image = bytes + 1 + reply;
    const auto imageSize = message::wire::load<uint32_t>(image + message::wire::sizeAt);
    if (imageSize < message::wire::headerSize || imageSize > size - 1 - reply) return false;
    entry->replySubject = {reinterpret_cast<const char*>(bytes + 1), reply};
    entry->image = image;
    entry->size = imageSize;
    *used = 1 + reply + imageSize;
    entry->attributes = {};
    if (!trailed) return true;
    size_t trailer;
    if (!message::trailer::read(bytes + *used, size - *used, &entry->attributes, &trailer)) return false;
    *used += trailer;
    return true;
}

// ---- parts

// Of an entry that is too large for one message of the daemon. Parts come in order, without gaps. What stands behind the image
// in the whole is its trailer.
struct Part {
    Origin origin;
    uint64_t number = 0;  // of the entry; a sender uses it once
    uint32_t total = 0;   // bytes of the entry
    uint32_t offset = 0;  // of this part in it
    const uint8_t* data = nullptr;
    uint32_t size = 0;
};

inline constexpr uint32_t partHeaderSize = entriesHeaderSize + 8 + 4 + 4;

inline void writePartHeader(uint8_t* to, const Part& part) noexcept {
    message::wire::store(to, frameHead(FrameKind::part));
    writeOrigin(to, part.origin);
    message::wire::store(to + entriesHeaderSize, part.number);
    message::wire::store(to + entriesHeaderSize + 8, part.total);
    message::wire::store(to + entriesHeaderSize + 12, part.offset);
}

// bytes: the whole payload. False: it is no part that can be right.
inline bool readPart(const uint8_t* bytes, size_t size, Part* part) noexcept {
    if (size <= partHeaderSize) return false;
    readOrigin(bytes, size, &part->origin);
    part->number = message::wire::load<uint64_t>(bytes + entriesHeaderSize);
    part->total = message::wire::load<uint32_t>(bytes + entriesHeaderSize + 8);
    part->offset = message::wire::load<uint32_t>(bytes + entriesHeaderSize + 12);
    part->data = bytes + partHeaderSize;
    part->size = static_cast<uint32_t>(size - partHeaderSize);
    return part->offset <= part->total && part->size <= part->total - part->offset;
}

// ---- probes: what a connection sends to itself, to learn what has arrived at the daemon

inline constexpr uint32_t probeSize = frameHeaderSize + 8;

// ----

// What the payload is; false: nothing of ours.
inline bool readKind(const uint8_t* bytes, size_t size, FrameKind* kind) noexcept {
    if (size < frameHeaderSize) return false;
    const auto head = message::wire::load<uint32_t>(bytes);
    if (head == message::wire::magic) {
        *kind = FrameKind::image;
        return true;
    }
    if ((head & 0xffffffu) != frameMagic) return false;
    *kind = static_cast<FrameKind>(head >> 24);
    return *kind == FrameKind::entries || *kind == FrameKind::part || *kind == FrameKind::probe ||
           *kind == FrameKind::attributed;
}

}  // namespace quorl::transport::nats
