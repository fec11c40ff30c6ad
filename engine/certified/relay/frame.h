// What a certified transport and its relay agent say to each other: attributes of messages, as certified frames are.
//
// The transport asks on the relay agent's address; what it asks carries the inbox to answer on. Each exchange has a number of its
// own, and within it parts are numbered from 1, so that what is lost is sent again and what comes twice does nothing.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "certified/protocol/frame.h"
#include "certified/protocol/subject.h"
#include "companion/message.h"

namespace quorl::certified {

inline constexpr std::string_view relayPrefix = "_QUORL.CM.RELAY.";

// Of the keys of state in a relay agent's own ledger: what it knows of a client. No machine has it.
inline constexpr char relayClientKey = 'c';

// Apart from the kinds of certified frames, so that none is taken for the other.
enum class RelayKind : uint8_t {
    connect = 64,  // transport: is on the network again; number: of this connection
    take = 65,     // transport: wants what was kept, from number on; rest: ranges of what is to be forgotten
    state = 66,    // transport: part number of its copy; rest: bytes of state
    message =
        67,  // transport: part number of its copy; rest: subject id n, number n, expires f, subject t, reply subject t; and the fields
    end = 68,        // transport: the copy has number parts in front of this one
    connected = 69,  // relay agent: stands in no longer
    item =
        70,  // relay agent: number; last: that of the item before; rest: after n, subject t, attributes; and the fields
    pause = 71,     // relay agent: number: those in front of it were sent; last: 1 when there are more
    got = 72,       // relay agent: has all parts up to number
    standsIn = 73,  // relay agent: has the copy, and speaks for the transport from now on
    failed = 74,    // relay agent: rest: why
};

struct RelayFrame {
    RelayKind kind = RelayKind::connect;
    std::string_view name;   // certified name of the transport
    std::string_view inbox;  // of the transport; empty in answers
    uint64_t exchange = 0;
    uint64_t number = 0;
    uint64_t last = 0;
    std::span<const uint8_t> rest;
};

// Bytes of rest that always fit.
inline constexpr size_t relayRestMost = companion::attributesMax - 3 - (nameMax + 2) - (255 + 2) - 8 - size_t{2} * 10;
// Bytes of an item's subject and attributes that always fit, beside the numbers and the length in front of them.
inline constexpr size_t relayItemMost = companion::attributesMax - 3 - (nameMax + 2) - 1 - 8 - size_t{3} * 10 - 2;

// The rest is added behind. Name and inbox are valid.
void encode(const RelayFrame& frame, FrameWriter& writer) noexcept;
// False: it is none. Names and inboxes are checked; the rest is not.
bool decode(std::span<const uint8_t> attributes, RelayFrame* frame) noexcept;

}  // namespace quorl::certified
