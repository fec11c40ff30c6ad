// What members of a queue say to each other, as bytes. A frame is the attributes of a message: of a task, beside the fields of the
// task; all others stand in messages without fields. The election's frames are fault tolerance's, see ftolerance/protocol/frame.h.
#pragma once

#include <compare>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "certified/protocol/ranges.h"
#include "companion/codec.h"
#include "companion/message.h"

namespace quorl::dqueue {

using certified::NumberSet;
using certified::Range;
using companion::Reader;

// The first two bytes of the attributes.
inline constexpr uint8_t companionNumber = 2;
inline constexpr uint8_t protocolVersion = 1;

// The numbers are the protocol's.
enum class Kind : uint8_t {
    task = 1,     // scheduler to worker: a task
    beat = 2,     // scheduler to all: who it is, and what waits
    settled = 3,  // scheduler to all: these are completed
    counted = 4,  // scheduler to all: these were reassigned so often, or are its own worker's
    offer = 5,    // worker to scheduler: what it takes
    welcome = 6,  // scheduler to worker: what has come of it
    report = 7,   // worker to scheduler: what it got, completed, holds and gives back
    voided = 8,   // scheduler to worker: these hand-outs will not come
};
inline constexpr uint8_t kindMax = 8;

// Of beat.
enum : uint8_t { flagEnds = 1 };  // its last one
// Of offer.
enum : uint8_t { flagLeaving = 1 };  // takes no more tasks
// Of report.
enum : uint8_t { flagInventory = 1 };  // a part of everything that the worker knows; part and parts say which
// Of welcome.
enum : uint8_t {
    flagAnew = 1,  // the scheduler does not know the worker: it is to attach again
    flagInventoryTaken = 2,
};
// Of task.
enum : uint8_t { flagKept = 1 };  // its sender keeps it until the queue confirms

// One time of being the scheduler. The greatest that a member has heard of counts.
struct Term {
    uint64_t number = 0;                            // 0: none
    uint64_t scheduler = 0;                         // member
    auto operator<=>(const Term&) const = default;  // NOLINT(modernize-use-nullptr): there is none
};
inline constexpr uint64_t termMost = (uint64_t{1} << 62) - 1;

// What a sender sends on one subject while it keeps its state; or the plain messages of one term, without a name.
struct StreamRef {
    std::string_view name;
    uint64_t incarnation = 0;
    uint32_t subjectId = 0;
    bool operator==(const StreamRef&) const = default;
};

// Of the lists of settled, counted and report.
enum class GroupKind : uint8_t {
    done = 1,      // completed, or will never come
    held = 2,      // by the worker that says so
    failed = 3,    // the worker gives it back, since its program could not do it
    released = 4,  // the worker gives it back for another reason
    count = 5,     // has been reassigned so often
    taken = 6,     // by the scheduler's own worker
};
inline constexpr uint8_t groupKindMax = 6;
struct Group {
    GroupKind kind = GroupKind::done;
    uint32_t reassigned =
        0;  // how often; of failed and released the hand-out that is given back, 0: of an earlier attachment
    StreamRef stream;
    std::span<const uint8_t> ranges;  // as certified::forEachRange reads them, from 0
};
// Of offer's list.
enum : uint8_t { patternCancelled = 1 };  // not listened to any more, and the senders are to forget it
struct OfferedPattern {
    uint8_t flags = 0;
    std::string_view pattern;
};

// Which of them a kind has is in frame.cpp; the others are zero. Views look into the attributes.
struct Frame {
    Kind kind = Kind::beat;
    uint64_t member = 0;      // whose frame it is, not 0
    Term term;                // that it belongs to
    uint64_t attachment = 0;  // which of the worker's, in this term
    uint64_t sequence = 0;    // task: of the hand-outs; offer, welcome: version of the offer; report: received up to
    uint64_t report = 0;      // report: its number; welcome: the one that is answered, 0: none
    uint32_t part = 0;        // of offer and report, from 0
    uint32_t parts = 0;
    uint8_t flags = 0;
    uint32_t weight = 0;
    uint32_t tasks = 0;
    uint32_t reassigned = 0;
    uint64_t unassigned = 0;
    uint64_t unassignedBytes = 0;
    int64_t completeTime = 0;
    uint64_t limitMessages = 0;
    uint64_t limitBytes = 0;
    uint64_t limitReassignments = 0;
    uint64_t incarnation = 0;  // of a plain task: its stream's
    uint64_t number = 0;       // of a plain task
    std::string_view subject;
    std::span<const uint8_t> original;  // attributes as the sender sent them; empty: none
    std::span<const uint8_t> missing;   // of report: ranges of hand-outs up to sequence that have not come
    std::span<const uint8_t> list;
};

enum class Decoded : uint8_t { frame, foreign, newer };
// foreign: no frame of this protocol, or one that breaks its rules. newer: of a version that this one does not know.
Decoded decode(std::span<const uint8_t> attributes, Frame* frame) noexcept;

using FrameWriter = companion::Writer<companion::attributesMax>;

// With the list. Names and subjects are valid, and missing is short: it fits.
void encode(const Frame& frame, FrameWriter& writer) noexcept;

// False: it does not fit, and is not there.
inline constexpr size_t listMost = 1500;
using ListWriter = companion::Writer<listMost>;
bool addPattern(const OfferedPattern& pattern, ListWriter& writer) noexcept;

// Groups in the making, in as many lists as they need.
class GroupLists {
  public:
    // Ranges of one kind, count and stream that follow each other become one group as long as they ascend. The names live until
    // take.
    void add(GroupKind kind, uint32_t reassigned, const StreamRef& stream, Range range);
    // One list for each frame; empty when nothing was added.
    std::vector<std::string> take();

  private:
    void end();
    void next();

    bool open_ = false;
    GroupKind kind_ = GroupKind::done;
    uint32_t reassigned_ = 0;
    StreamRef stream_;
    uint64_t previous_ = 0;
    ListWriter ranges_;
    ListWriter list_;
    std::vector<std::string> lists_;
};

// Lists that decode has checked.
Group takeGroup(Reader& reader) noexcept;
template <class F>
void forEachGroup(std::span<const uint8_t> list, F&& visit) {
    for (Reader reader(list); reader.left() != 0;) visit(takeGroup(reader));
}
OfferedPattern takePattern(Reader& reader) noexcept;
template <class F>
void forEachPattern(std::span<const uint8_t> list, F&& visit) {
    for (Reader reader(list); reader.left() != 0;) visit(takePattern(reader));
}

// The message with that frame: no fields, to that subject. Throws std::bad_alloc.
companion::Message messageWith(const FrameWriter& frame, std::string_view subject);

// Subjects of a queue and its members.
std::string groupSubjectOf(std::string_view queue);
std::string addressOf(std::string_view queue, uint64_t member);
std::string deadLetterSubjectOf(std::string_view queue);

}  // namespace quorl::dqueue
