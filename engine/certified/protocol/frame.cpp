// The codec. One table says which fields a kind has; they stand in one order.
#include "certified/protocol/frame.h"

#include <array>
#include <new>

#include "certified/protocol/subject.h"
#include "quorl/quorl.h"

namespace quorl::certified {
namespace {

enum : uint16_t {
    hasIncarnation = 1,
    hasSession = 2,
    hasToken = 4,
    hasAttempt = 8,
    hasFlags = 16,
    hasReason = 32,
    hasSubjectId = 64,
    hasNumber = 128,
    hasLast = 256,
    hasLimit = 512,
    hasSubject = 1024,
    hasPatterns = 2048,
    hasConfirmed = 4096,
    hasNoted = 8192,
    hasRanges = 16384,
};
constexpr uint16_t lists = hasPatterns | hasConfirmed | hasNoted | hasRanges;
constexpr uint16_t toListener = hasIncarnation | hasSession;
constexpr uint16_t toSender = hasIncarnation | hasSession | hasToken;

constexpr std::array<uint16_t, kindMax + 1> fieldsOf = {
    0,
    hasIncarnation | hasSubjectId | hasNumber | hasLimit,                                  // data
    toListener | hasSubjectId | hasNumber | hasLimit | hasSubject,                         // resent
    hasPatterns,                                                                           // announce
    hasIncarnation | hasFlags,                                                             // hello
    hasIncarnation | hasToken | hasNumber | hasFlags,                                      // presence
    toSender | hasAttempt | hasFlags | hasSubjectId | hasNumber | hasSubject,              // subscribe
    toListener | hasToken,                                                                 // challenge
    toListener | hasAttempt | hasFlags | hasSubjectId | hasNumber | hasLast | hasSubject,  // accepted
    toListener | hasAttempt | hasFlags | hasReason | hasSubject,                           // refused
    toSender | hasConfirmed,                                                               // confirm
    toSender | hasSubjectId | hasRanges,                                                   // ask
    toListener | hasNoted,                                                                 // note
    toListener | hasReason | hasSubjectId | hasRanges,                                     // gone
    toListener | hasSubjectId,                                                             // unknown
    toSender | hasAttempt | hasFlags | hasSubject,                                         // cancel
    toListener | hasAttempt | hasFlags | hasSubject,                                       // cancelled
    toListener | hasAttempt | hasReason | hasSubjectId,                                    // ended
};
// What stands in front of a confirm's ranges, so that a reader knows where they end.
constexpr size_t rangesMax = 1800;

uint32_t subjectIdFrom(Reader& reader) noexcept {
    const uint64_t id = reader.number();
    return id <= UINT32_MAX ? static_cast<uint32_t>(id) : reader.failed();
}

// Ranges ascend and do not touch what is before them. 0 is no number.
bool goodRanges(std::span<const uint8_t> list, uint64_t previous) noexcept {
    for (Reader reader(list); reader.left() != 0;) {
        const uint64_t gap = reader.number();
        const uint64_t more = reader.number();
        if (!reader.ok() || gap == 0 || gap > UINT64_MAX - previous) return false;
        const uint64_t first = previous + gap;
        // The last number of all is none, so that one more can be counted.
        if (more >= UINT64_MAX - first) return false;
        previous = first + more;
    }
    return true;
}

bool goodList(uint16_t fields, std::span<const uint8_t> list) noexcept {
    if ((fields & hasRanges) != 0) return !list.empty() && goodRanges(list, 0);
    for (Reader reader(list); reader.left() != 0;) {
        if ((fields & hasPatterns) != 0) {
            const std::string_view pattern = reader.text();
            if (!reader.ok() || !validPattern(pattern)) return false;
        } else if ((fields & hasConfirmed) != 0) {
            const Confirmed part = takeConfirmed(reader);
            if (!reader.ok() || part.upTo == UINT64_MAX || !goodRanges(part.ranges, part.upTo)) return false;
        } else {
            const Noted part = takeNoted(reader);
            if (!reader.ok() || part.from == 0 || part.last == UINT64_MAX || !validSubject(part.subject)) return false;
        }
    }
    return true;
}

bool validSubjectOf(const Frame& frame) noexcept {
    return (frame.flags & flagPattern) != 0 ? validPattern(frame.subject) : validSubject(frame.subject);
}

}  // namespace

const char* textOf(Reason reason) noexcept {
    switch (reason) {
        case Reason::none:
            return "the sender does not say why";
        case Reason::disallowed:
            return "the sender does not allow the listener";
        case Reason::full:
            return "too many listeners are registered with the sender";
        case Reason::removed:
            return "the sender has removed it";
        case Reason::expired:
            return "the time limit has passed";
        case Reason::damaged:
            return "the ledger cannot be read there";
        case Reason::notKept:
            return "it was not kept for the listener";
        case Reason::refusedSend:
            return "the send failed";
        case Reason::silent:
            return "the listener was not heard for too long";
        case Reason::newSession:
            return "the listener did not ask for what was kept";
        case Reason::cancelled:
            return "the listener has cancelled";
    }
    return "the sender does not say why";
}

Confirmed takeConfirmed(Reader& reader) noexcept {
    Confirmed part;
    part.subjectId = subjectIdFrom(reader);
    part.upTo = reader.number();
    const std::string_view ranges = reader.text();
    part.ranges = {reinterpret_cast<const uint8_t*>(ranges.data()), ranges.size()};
    return part;
}

Noted takeNoted(Reader& reader) noexcept {
    Noted part;
    part.subjectId = subjectIdFrom(reader);
    part.from = reader.number();
    part.last = reader.number();
    part.subject = reader.text();
    return part;
}

Decoded decode(std::span<const uint8_t> attributes, Frame* frame) noexcept {
    Reader reader(attributes);
    if (reader.byte() != companionNumber) return Decoded::foreign;
    const uint8_t version = reader.byte();
    if (!reader.ok() || version == 0) return Decoded::foreign;
    if (version > protocolVersion) return Decoded::newer;
    const uint8_t kind = reader.byte();
    if (kind == 0 || kind > kindMax) return Decoded::foreign;
    *frame = {};
    frame->kind = static_cast<Kind>(kind);
    const uint16_t fields = fieldsOf[kind];
    frame->name = reader.text();
    if ((fields & hasIncarnation) != 0) frame->incarnation = reader.fixed();
    if ((fields & hasSubjectId) != 0) frame->subjectId = subjectIdFrom(reader);
    if ((fields & hasSession) != 0) frame->session = reader.fixed();
    if ((fields & hasToken) != 0) frame->token = reader.fixed();
    if ((fields & hasAttempt) != 0) frame->attempt = reader.number();
    if ((fields & hasFlags) != 0) frame->flags = reader.byte();
    if ((fields & hasReason) != 0) {
        const uint8_t reason = reader.byte();
        if (reason > reasonMax) return Decoded::foreign;
        frame->reason = static_cast<Reason>(reason);
    }
    if ((fields & hasNumber) != 0) frame->number = reader.number();
    if ((fields & hasLast) != 0) frame->last = reader.number();
    if ((fields & hasLimit) != 0) {
        const uint64_t limit = reader.number();
        if (limit > INT64_MAX) return Decoded::foreign;
        frame->limit = static_cast<int64_t>(limit);
    }
    if ((fields & hasSubject) != 0) frame->subject = reader.text();
    if ((fields & lists) != 0) {
        if (!reader.ok()) return Decoded::foreign;
        frame->list = attributes.last(reader.left());
        if (!goodList(fields, frame->list)) return Decoded::foreign;
    } else if (!reader.done()) {
        return Decoded::foreign;
    }
    // The name of data is looked up, and checked when it is new.
    if (frame->kind != Kind::data ? !validName(frame->name) : frame->name.empty() || frame->name.size() > nameMax)
        return Decoded::foreign;
    if ((fields & hasSubject) != 0 && !validSubjectOf(*frame)) return Decoded::foreign;
    // The last number of all is none, so that one more can be counted.
    if (frame->number == UINT64_MAX || frame->last == UINT64_MAX) return Decoded::foreign;
    if ((frame->kind == Kind::data || frame->kind == Kind::resent || frame->kind == Kind::accepted) &&
        frame->number == 0)
        return Decoded::foreign;
    return Decoded::frame;
}

void encodeDataPrefix(const Frame& frame, FrameWriter& writer) noexcept {
    writer.byte(companionNumber);
    writer.byte(protocolVersion);
    writer.byte(static_cast<uint8_t>(frame.kind));
    writer.text(frame.name);
    const uint16_t fields = fieldsOf[static_cast<uint8_t>(frame.kind)];
    if ((fields & hasIncarnation) != 0) writer.fixed(frame.incarnation);
    if ((fields & hasSubjectId) != 0) writer.number(frame.subjectId);
}

void encodeDataRest(uint64_t number, int64_t limit, FrameWriter& writer) noexcept {
    writer.number(number);
    writer.number(static_cast<uint64_t>(limit));
}

void encode(const Frame& frame, FrameWriter& writer) noexcept {
    encodeDataPrefix(frame, writer);
    const uint16_t fields = fieldsOf[static_cast<uint8_t>(frame.kind)];
    if ((fields & hasSession) != 0) writer.fixed(frame.session);
    if ((fields & hasToken) != 0) writer.fixed(frame.token);
    if ((fields & hasAttempt) != 0) writer.number(frame.attempt);
    if ((fields & hasFlags) != 0) writer.byte(frame.flags);
    if ((fields & hasReason) != 0) writer.byte(static_cast<uint8_t>(frame.reason));
    if ((fields & hasNumber) != 0) writer.number(frame.number);
    if ((fields & hasLast) != 0) writer.number(frame.last);
    if ((fields & hasLimit) != 0) writer.number(static_cast<uint64_t>(frame.limit));
    if ((fields & hasSubject) != 0) writer.text(frame.subject);
    writer.raw(frame.list.data(), frame.list.size());
}

bool addPattern(std::string_view pattern, FrameWriter& writer) noexcept {
    const size_t before = writer.size();
    writer.text(pattern);
    if (writer.fits()) return true;
    writer.cut(before);
    return false;
}

bool addNoted(const Noted& noted, FrameWriter& writer) noexcept {
    const size_t before = writer.size();
    writer.number(noted.subjectId);
    writer.number(noted.from);
    writer.number(noted.last);
    writer.text(noted.subject);
    if (writer.fits()) return true;
    writer.cut(before);
    return false;
}

bool addRange(Range range, uint64_t previous, FrameWriter& writer) noexcept {
    const size_t before = writer.size();
    writer.number(range.first - previous);
    writer.number(range.last - range.first);
    if (writer.fits()) return true;
    writer.cut(before);
    return false;
}

bool addConfirmed(uint32_t subjectId, const NumberSet& confirmed, FrameWriter& writer) noexcept {
    constexpr size_t head = 5 + 10 + 2;
    const size_t before = writer.size();
    writer.number(subjectId);
    writer.number(confirmed.upTo());
    Writer<rangesMax> ranges;
    uint64_t previous = confirmed.upTo();
    for (const auto& [first, last] : confirmed.ranges()) {
        const size_t size = ranges.size();
        ranges.number(first - previous);
        ranges.number(last - first);
        if (!ranges.fits() || ranges.size() + head > companion::attributesMax - before) {
            ranges.cut(size);
            break;
        }
        previous = last;
    }
    const auto bytes = ranges.bytes();
    writer.text({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    if (writer.fits()) return true;
    writer.cut(before);
    return false;
}

companion::Message messageWith(const FrameWriter& frame, std::string_view subject) {
    companion::Message message;
    if (companion::Message::empty(subject, &message) != QUORL_OK ||
        message.withAttributes(frame.bytes(), &message) != QUORL_OK)
        throw std::bad_alloc();
    return message;
}

}  // namespace quorl::certified
