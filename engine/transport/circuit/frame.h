// What the two ends of a circuit say to each other.
#pragma once

#include <cstdint>
#include <string>

#include "message/delivery.h"

namespace quorl::transport::circuit {

// The numbers stand in messages: they are the protocol's.
enum class Kind : uint8_t {
    connect = 1,  // the connecting end asks; from: where it hears
    accept = 2,   // the accepting end agrees
    refuse = 3,   // the accepting end has another peer, or knows of no such circuit
    data = 4,     // one message of the program
    ack = 5,      // all that is up to acknowledged has come; sequence: see Word
    ping = 6,     // asks for an ack; sequence: see Word
    close = 7,    // there are no messages behind sequence
    closed = 8,   // the answer to close
};

// What an ack or a ping says beside: the lowest byte of its sequence. Others are as none.
enum class Word : uint8_t {
    none = 0,
    gap = 1,     // of an ack: something has come that is behind the next
    resend = 2,  // of an ack: what was on its way may be lost
    busy = 3,    // of a ping: bytes of messages are coming in
};

// The bytes above it are a ping's number, and in an ack that of the ping that it answers; 0: none.
constexpr uint64_t sequenceOf(Word word, uint64_t ping) noexcept {
    return static_cast<uint64_t>(word) | ping << 8;
}
constexpr Word wordOf(uint64_t sequence) noexcept {
    return static_cast<Word>(sequence & 0xff);
}
constexpr uint64_t pingOf(uint64_t sequence) noexcept {
    return sequence >> 8;
}

struct Frame {
    Kind kind = Kind::ping;
    uint64_t session = 0;         // drawn by the connecting end; tells this circuit from all others
    uint64_t sequence = 0;        // of data, from 1; see ack, ping and close
    uint64_t acknowledged = 0;    // the last message that came in order
    std::string from;             // of connect
    message::ContentRef content;  // of data
};

// The frame as a message to that subject. QUORL_NO_MEMORY, QUORL_INVALID_SIZE.
quorl_status encode(const Frame& frame, std::string_view to, message::ContentRef* wire) noexcept;

// Reads a message that anybody may have sent. False: it is no frame, or there was no memory for it.
bool decode(quorlMsg message, Frame* frame) noexcept;

// Bytes that a frame adds to a program's message, attributes included, at most.
inline constexpr uint32_t roomOfFrames = 4096;

}  // namespace quorl::transport::circuit
