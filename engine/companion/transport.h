// Plain transports, by their ids, as companion libraries use them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "companion/message.h"

namespace quorl::companion {

// Sends a message with its attributes, also to subjects of the system, and does not wait. noRoom: the way out is full, nothing is
// wrong and nothing was sent; awaitRoom waits, or the message is kept and tried again. Subjects that never leave the process
// (_QUORL.INFO and the like) are advise()'s. QUORL_INVALID_TRANSPORT, QUORL_INVALID_SUBJECT, QUORL_INVALID_SIZE,
// QUORL_DAEMON_NOT_CONNECTED, QUORL_VC_NOT_CONNECTED, QUORL_NO_MEMORY.
inline constexpr quorl_status noRoom = static_cast<quorl_status>(-1);
QUORL_API quorl_status send(uint32_t transport, const Message& message) noexcept;

// How often the transport has reported room after it had none. Asked before a send, for awaitRoom after it. 0: it is gone.
QUORL_API uint32_t roomReports(uint32_t transport) noexcept;

// Waits until room was reported more often than seen, or the deadline on the monotonic clock has come. Not on a host's thread,
// which may be the one that makes the room. QUORL_INVALID_TRANSPORT: it is gone.
QUORL_API quorl_status awaitRoom(uint32_t transport, uint32_t seen, int64_t deadline) noexcept;

// Whether a message may be sent to the subject. Asks nobody. QUORL_INVALID_SUBJECT, QUORL_INVALID_TRANSPORT.
QUORL_API quorl_status checkSubject(uint32_t transport, std::string_view subject) noexcept;

// A subject of the system's that nobody else in the world listens to. QUORL_INVALID_TRANSPORT, QUORL_NO_MEMORY.
QUORL_API quorl_status createInbox(uint32_t transport, std::string* inbox) noexcept;

// What is known of the way of messages to and from others, for protocols that repeat what is lost. Times are of the monotonic
// clock, in nanoseconds.
struct Passage {
    int64_t passed = 0;     // what was sent before then has reached the bus
    int64_t handedOn = 0;   // what had come to the bus for this process before then is in its listeners' queues
    int64_t arriving = 0;   // when bytes of a message to the inbox last came that is not whole yet; 0: never
    int64_t lossAt = 0;     // when messages that were on their way last may have been lost; 0: never
    bool lossless = false;  // nothing is ever lost, and whoever hears what is sent ends with this process
};
QUORL_API quorl_status passage(uint32_t transport, std::string_view inbox, Passage* passage) noexcept;

}  // namespace quorl::companion
