// The codec. One table says which fields a kind has; they stand in one order.
#include "dqueue/protocol/frame.h"

#include <array>
#include <new>
#include <utility>

#include "certified/protocol/frame.h"
#include "certified/protocol/subject.h"
#include "dqueue/protocol/machine.h"
#include "quorl/quorl.h"

namespace quorl::dqueue {
namespace {

enum : uint16_t {
    hasAttachment = 1,
    hasSequence = 2,
    hasReport = 4,
    hasParts = 8,
    hasFlags = 16,
    hasCapacity = 32,
    hasReassigned = 64,
    hasBacklog = 128,
    hasLimits = 256,
    hasTask = 512,
    hasMissing = 1024,
    hasPatterns = 2048,
    hasGroups = 4096,
    hasRanges = 8192,
};

constexpr std::array<uint16_t, kindMax + 1> fieldsOf = {
    0,
    hasAttachment | hasSequence | hasFlags | hasReassigned | hasTask,                        // task
    hasFlags | hasBacklog | hasLimits,                                                       // beat
    hasGroups,                                                                               // settled
    hasGroups,                                                                               // counted
    hasAttachment | hasSequence | hasParts | hasFlags | hasCapacity | hasPatterns,           // offer
    hasAttachment | hasSequence | hasReport | hasFlags,                                      // welcome
    hasAttachment | hasSequence | hasReport | hasParts | hasFlags | hasMissing | hasGroups,  // report
    hasAttachment | hasRanges,                                                               // voided
};

constexpr uint32_t partsMost = 10'000;

uint32_t upTo(Reader& reader, uint64_t most) noexcept {
    const uint64_t value = reader.number();
    return value <= most ? static_cast<uint32_t>(value) : reader.failed();
}

std::span<const uint8_t> bytesOf(std::string_view text) noexcept {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}
std::string_view textOf(std::span<const uint8_t> bytes) noexcept {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Ascending, apart, and without 0 and the last number of all.
bool goodRanges(std::span<const uint8_t> list) noexcept {
    uint64_t previous = 0;
    for (Reader reader(list); reader.left() != 0;) {
        const uint64_t gap = reader.number();
        const uint64_t more = reader.number();
        if (!reader.ok() || gap == 0 || gap > UINT64_MAX - previous) return false;
        const uint64_t first = previous + gap;
        if (more >= UINT64_MAX - first) return false;
        previous = first + more;
    }
    return true;
}

bool goodGroups(std::span<const uint8_t> list) noexcept {
    for (Reader reader(list); reader.left() != 0;) {
        const Group group = takeGroup(reader);
        const auto kind = static_cast<uint8_t>(group.kind);
        if (!reader.ok() || kind == 0 || kind > groupKindMax || group.ranges.empty() || !goodRanges(group.ranges))
            return false;
        if (!group.stream.name.empty() && !certified::validName(group.stream.name)) return false;
    }
    return true;
}

bool goodPatterns(std::span<const uint8_t> list) noexcept {
    for (Reader reader(list); reader.left() != 0;) {
        const OfferedPattern pattern = takePattern(reader);
        if (!reader.ok() || pattern.flags > patternCancelled || !certified::validPattern(pattern.pattern)) return false;
    }
    return true;
}

bool goodTask(const Frame& frame) noexcept {
    if (!certified::validSubject(frame.subject)) return false;
    if (frame.original.empty()) return frame.number != 0 && frame.number != UINT64_MAX && (frame.flags & flagKept) == 0;
    certified::Frame data;
    return certified::decode(frame.original, &data) == certified::Decoded::frame &&
           data.kind == certified::Kind::data && certified::validName(data.name) && frame.number == 0 &&
           frame.incarnation == 0;
}

}  // namespace

Group takeGroup(Reader& reader) noexcept {
    Group group;
    group.kind = static_cast<GroupKind>(reader.byte());
    group.reassigned = upTo(reader, UINT32_MAX);
    group.stream.name = reader.text();
    group.stream.incarnation = reader.fixed();
    group.stream.subjectId = upTo(reader, UINT32_MAX);
    group.ranges = bytesOf(reader.text());
    return group;
}

OfferedPattern takePattern(Reader& reader) noexcept {
    OfferedPattern pattern;
    pattern.flags = reader.byte();
    pattern.pattern = reader.text();
    return pattern;
}

Decoded decode(std::span<const uint8_t> attributes, Frame* frame) noexcept {
    Reader reader(attributes);
    if (reader.byte() != companionNumber) return Decoded::foreign;
    const uint8_t version = reader.byte();
    if (!reader.ok() || version == 0) return Decoded::foreign;
    if (version > protocolVersion) return Decoded::newer;
    const uint8_t kind = reader.byte();
    if (kind == 0 || kind > kindMax) return Decoded::foreign;
    Frame read;
    read.kind = static_cast<Kind>(kind);
    read.member = reader.fixed();
    read.term.number = reader.number();
    read.term.scheduler = reader.fixed();
    if (read.member == 0 || read.term.number > termMost) return Decoded::foreign;
    const uint16_t fields = fieldsOf[kind];
    if ((fields & hasAttachment) != 0) read.attachment = reader.number();
    if ((fields & hasSequence) != 0) read.sequence = reader.number();
    if ((fields & hasReport) != 0) read.report = reader.number();
    if ((fields & hasParts) != 0) {
        read.part = upTo(reader, partsMost);
        read.parts = upTo(reader, partsMost);
        if (read.part >= read.parts) return Decoded::foreign;
    }
    if ((fields & hasFlags) != 0) read.flags = reader.byte();
    if ((fields & hasCapacity) != 0) {
        read.weight = upTo(reader, workerWeightMost);
        read.tasks = upTo(reader, workerTasksMost);
        if (read.weight == 0) return Decoded::foreign;
    }
    if ((fields & hasReassigned) != 0) read.reassigned = upTo(reader, UINT32_MAX);
    if ((fields & hasBacklog) != 0) {
        read.unassigned = reader.number();
        read.unassignedBytes = reader.number();
    }
    if ((fields & hasLimits) != 0) {
        const uint64_t time = reader.number();
        if (time > INT64_MAX) return Decoded::foreign;
        read.completeTime = static_cast<int64_t>(time);
        read.limitMessages = reader.number();
        read.limitBytes = reader.number();
        read.limitReassignments = reader.number();
    }
    if ((fields & hasTask) != 0) {
        read.incarnation = reader.fixed();
        read.number = reader.number();
        read.subject = reader.text();
        read.original = bytesOf(reader.text());
    }
    if ((fields & hasMissing) != 0) read.missing = bytesOf(reader.text());
    if (!reader.ok()) return Decoded::foreign;
    read.list = attributes.subspan(attributes.size() - reader.left());
    constexpr uint16_t lists = hasPatterns | hasGroups | hasRanges;
    if ((fields & lists) == 0 && !read.list.empty()) return Decoded::foreign;
    if ((fields & hasPatterns) != 0 && !goodPatterns(read.list)) return Decoded::foreign;
    if ((fields & hasGroups) != 0 && !goodGroups(read.list)) return Decoded::foreign;
    if ((fields & hasRanges) != 0 && (read.list.empty() || !goodRanges(read.list))) return Decoded::foreign;
    if ((fields & hasMissing) != 0 && !goodRanges(read.missing)) return Decoded::foreign;
    if ((fields & hasTask) != 0 && !goodTask(read)) return Decoded::foreign;
    *frame = read;
    return Decoded::frame;
}

void encode(const Frame& frame, FrameWriter& writer) noexcept {
    const uint16_t fields = fieldsOf[static_cast<uint8_t>(frame.kind)];
    writer.byte(companionNumber);
    writer.byte(protocolVersion);
    writer.byte(static_cast<uint8_t>(frame.kind));
    writer.fixed(frame.member);
    writer.number(frame.term.number);
    writer.fixed(frame.term.scheduler);
    if ((fields & hasAttachment) != 0) writer.number(frame.attachment);
    if ((fields & hasSequence) != 0) writer.number(frame.sequence);
    if ((fields & hasReport) != 0) writer.number(frame.report);
    if ((fields & hasParts) != 0) {
        writer.number(frame.part);
        writer.number(frame.parts);
    }
    if ((fields & hasFlags) != 0) writer.byte(frame.flags);
    if ((fields & hasCapacity) != 0) {
        writer.number(frame.weight);
        writer.number(frame.tasks);
    }
    if ((fields & hasReassigned) != 0) writer.number(frame.reassigned);
    if ((fields & hasBacklog) != 0) {
        writer.number(frame.unassigned);
        writer.number(frame.unassignedBytes);
    }
    if ((fields & hasLimits) != 0) {
        writer.number(static_cast<uint64_t>(frame.completeTime));
        writer.number(frame.limitMessages);
        writer.number(frame.limitBytes);
        writer.number(frame.limitReassignments);
    }
    if ((fields & hasTask) != 0) {
        writer.fixed(frame.incarnation);
        writer.number(frame.number);
        writer.text(frame.subject);
        writer.text(textOf(frame.original));
    }
    if ((fields & hasMissing) != 0) writer.text(textOf(frame.missing));
    writer.raw(frame.list.data(), frame.list.size());
}

bool addPattern(const OfferedPattern& pattern, ListWriter& writer) noexcept {
    const size_t before = writer.size();
    writer.byte(pattern.flags);
    writer.text(pattern.pattern);
    if (writer.fits()) return true;
    writer.cut(before);
    return false;
}

void GroupLists::add(GroupKind kind, uint32_t reassigned, const StreamRef& stream, Range range) {
    // Kind, two numbers, the name with its length, the incarnation, and the length of the ranges.
    const auto head = [&] { return 1 + 5 + 2 + stream.name.size() + 8 + 5 + 2; };
    constexpr size_t oneRange = 20;
    if (open_ && (kind != kind_ || reassigned != reassigned_ || !(stream == stream_) || range.first <= previous_))
        end();
    if (open_ && list_.room() < head() + ranges_.size() + oneRange) {
        end();
        next();
    }
    if (!open_) {
        if (list_.room() < head() + oneRange) next();
        open_ = true;
        kind_ = kind;
        reassigned_ = reassigned;
        stream_ = stream;
        previous_ = 0;
    }
    ranges_.number(range.first - previous_);
    ranges_.number(range.last - range.first);
    previous_ = range.last;
}

void GroupLists::end() {
    if (!open_) return;
    open_ = false;
    list_.byte(static_cast<uint8_t>(kind_));
    list_.number(reassigned_);
    list_.text(stream_.name);
    list_.fixed(stream_.incarnation);
    list_.number(stream_.subjectId);
    list_.text(textOf(ranges_.bytes()));
    ranges_.cut(0);
}

void GroupLists::next() {
    if (list_.size() == 0) return;
    lists_.push_back(list_.string());
    list_.cut(0);
}

std::vector<std::string> GroupLists::take() {
    end();
    next();
    return std::exchange(lists_, {});
}

companion::Message messageWith(const FrameWriter& frame, std::string_view subject) {
    companion::Message message;
    if (companion::Message::empty(subject, &message) != QUORL_OK ||
        message.withAttributes(frame.bytes(), &message) != QUORL_OK)
        throw std::bad_alloc();
    return message;
}

std::string groupSubjectOf(std::string_view queue) {
    return "_QUORL.DQ.ALL." + std::string(queue);
}

std::string addressOf(std::string_view queue, uint64_t member) {
    std::string address = "_QUORL.DQ.TO.";
    address += queue;
    address += '.';
    for (int shift = 60; shift >= 0; shift -= 4) address += "0123456789abcdef"[member >> shift & 15];
    return address;
}

std::string deadLetterSubjectOf(std::string_view queue) {
    return "_QUORL.DEADLETTER." + std::string(queue);
}

}  // namespace quorl::dqueue
