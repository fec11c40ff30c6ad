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
    ack = 5,      // all that is up to acknowledged has come; sequence 1: and something behind it, but not the next
    ping = 6,     // asks for an ack
    close = 7,    // there are no messages behind sequence
    closed = 8,   // the answer to close
};

struct Frame {
    Kind kind = Kind::ping;
    uint64_t session = 0;         // drawn by the connecting end; tells this circuit from all others
    uint64_t sequence = 0;        // of data, from 1; see close and ack
    uint64_t acknowledged = 0;    // the last message that came in order
    std::string from;             // of connect
    message::ContentRef content;  // of data
};

// The frame as a message to that subject. QUORL_NO_MEMORY, QUORL_INVALID_SIZE.
quorl_status encode(const Frame& frame, std::string_view to, message::ContentRef* wire) noexcept;

// Reads a message that anybody may have sent. False: it is no frame, or there was no memory for it.
bool decode(quorlMsg message, Frame* frame) noexcept;

// Bytes of a program's message beyond which it does not fit into a frame.
inline constexpr uint32_t largestContent = QUORL_MSG_MAX_SIZE - 1024;

}  // namespace quorl::transport::circuit
