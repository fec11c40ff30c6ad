// What certified senders and listeners say to each other: the attributes of messages.
//
// A data frame stands beside the program's fields, on the program's subject; so does a resent one, on the listener's address.
// The others stand in messages without fields, on the address of a certified name or on the subject of everybody.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "certified/protocol/ranges.h"
#include "companion/codec.h"
#include "companion/message.h"

namespace quorl::certified {

using companion::Reader;
using companion::Writer;

// The first two bytes of the attributes.
inline constexpr uint8_t companionNumber = 1;
inline constexpr uint8_t protocolVersion = 1;

// The numbers are the protocol's. "sender" and "listener" are the two roles; name is always the frame's own origin.
enum class Kind : uint8_t {
    data = 1,        // sender: one message
    resent = 2,      // sender: one message again, for one listener
    announce = 3,    // listener, to everybody: wants these patterns
    hello = 4,       // sender, to everybody: has started; or as an answer: this is the incarnation
    presence = 5,    // to the own name: this instance has it
    subscribe = 6,   // listener: asks to be registered for a subject, or for a pattern
    challenge = 7,   // sender: the token that a listener has to show
    accepted = 8,    // sender: registered
    refused = 9,     // sender: not registered, and will not be
    confirm = 10,    // listener: has these
    ask = 11,        // listener: misses these
    note = 12,       // sender: this much has been sent, and is not confirmed
    gone = 13,       // sender: these will not come
    unknown = 14,    // sender: no such agreement; subscribe again
    cancel = 15,     // listener: needs no more
    cancelled = 16,  // sender: the answer to cancel
    ended = 17,      // sender: the agreement is over
};
inline constexpr uint8_t kindMax = 17;

// Flags of subscribe, accepted, refused, cancel, cancelled.
enum : uint8_t {
    flagPattern = 1,    // subject is a pattern, for subjects to come
    flagOld = 2,        // what was kept for the name before is asked for
    flagResumes = 4,    // the listener was registered before, and number is the first that it has not confirmed
    flagTransient = 8,  // the listener's name ends with its program
};
// Flags of presence; of hello flagSettled.
enum : uint8_t {
    flagAsks = 1,     // whoever else has the name says so
    flagSettled = 2,  // nobody objected to it
    flagLeaves = 4,   // had it, and ends
};

enum class Reason : uint8_t {
    none = 0,
    disallowed = 1,  // by the sender's program
    full = 2,        // too many are registered
    removed = 3,     // by the sender's program
    expired = 4,
    damaged = 5,      // cannot be read any more
    notKept = 6,      // was confirmed, or never kept, for this listener
    refusedSend = 7,  // the number was used up by a send that failed
    silent = 8,       // the listener was not heard for too long
    newSession = 9,   // the listener did not ask for what was kept
    cancelled = 10,   // by the listener
};
inline constexpr uint8_t reasonMax = 10;
const char* textOf(Reason reason) noexcept;

// Which of them a kind has is in frame.cpp; the others are zero. Views look into the attributes.
struct Frame {
    Kind kind = Kind::data;
    std::string_view name;
    uint64_t incarnation = 0;  // of the sender's state; of presence the instance
    uint64_t session = 0;      // of the listener's life, for this sender
    uint64_t token = 0;        // 0: none yet; of presence the instance that is answered
    uint64_t attempt = 0;
    uint8_t flags = 0;
    Reason reason = Reason::none;
    uint32_t subjectId = 0;  // the sender's number for the subject
    uint64_t number = 0;
    uint64_t last = 0;
    int64_t limit = 0;  // nanoseconds, 0: none
    std::string_view subject;
    std::span<const uint8_t> list;  // see the functions below
};

// A part of a confirm's list.
struct Confirmed {
    uint32_t subjectId = 0;
    uint64_t upTo = 0;
    std::span<const uint8_t> ranges;  // behind it, as forEachRange reads them
};
// A part of a note's list.
struct Noted {
    uint32_t subjectId = 0;
    uint64_t from = 0;  // the first that is not confirmed
    uint64_t last = 0;
    std::string_view subject;
};

enum class Decoded : uint8_t { frame, foreign, newer };
// foreign: no frame of this protocol, or one that breaks its rules. newer: of a version that this one does not know.
Decoded decode(std::span<const uint8_t> attributes, Frame* frame) noexcept;

// Bytes of attributes in the making.
using FrameWriter = Writer<companion::attributesMax>;

// Everything but the list, of which parts are added behind. Names and subjects are valid: it always fits.
void encode(const Frame& frame, FrameWriter& writer) noexcept;
// Of data: what stays the same for all messages of a subject, and the rest.
void encodeDataPrefix(const Frame& frame, FrameWriter& writer) noexcept;
void encodeDataRest(uint64_t number, int64_t limit, FrameWriter& writer) noexcept;

// Adds a part to a list; false: it does not fit, and is not there.
bool addPattern(std::string_view pattern, FrameWriter& writer) noexcept;
bool addNoted(const Noted& noted, FrameWriter& writer) noexcept;
// As many of the ranges as fit; false: not even what is up to fits.
bool addConfirmed(uint32_t subjectId, const NumberSet& confirmed, FrameWriter& writer) noexcept;
// previous: the last number of the range that was added before; 0 at first.
bool addRange(Range range, uint64_t previous, FrameWriter& writer) noexcept;

// The message with that frame: no fields, to that subject. Throws std::bad_alloc.
companion::Message messageWith(const FrameWriter& frame, std::string_view subject);

// Lists that decode has checked.
template <class F>
void forEachRange(std::span<const uint8_t> list, uint64_t previous, F&& visit) {
    for (Reader reader(list); reader.left() != 0;) {
        Range range;
        range.first = previous + reader.number();
        range.last = range.first + reader.number();
        previous = range.last;
        visit(range);
    }
}
template <class F>
void forEachPattern(std::span<const uint8_t> list, F&& visit) {
    for (Reader reader(list); reader.left() != 0;) visit(reader.text());
}
Confirmed takeConfirmed(Reader& reader) noexcept;
Noted takeNoted(Reader& reader) noexcept;
template <class F>
void forEachConfirmed(std::span<const uint8_t> list, F&& visit) {
    for (Reader reader(list); reader.left() != 0;) visit(takeConfirmed(reader));
}
template <class F>
void forEachNoted(std::span<const uint8_t> list, F&& visit) {
    for (Reader reader(list); reader.left() != 0;) visit(takeNoted(reader));
}

}  // namespace quorl::certified
