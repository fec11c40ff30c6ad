// Frames as bytes.
#include "ftolerance/protocol/frame.h"

#include <algorithm>

#include "companion/codec.h"

namespace quorl::ftolerance {
namespace {

constexpr int64_t microsecond = 1000;

bool isPrintable(char character) noexcept {
    return character >= ' ' && character <= '~';
}

using companion::Reader;
// 3 bytes in front, member and sequence, 8 numbers, the label with its length.
using Writer = companion::Writer<Block::most>;
static_assert(Block::most >= 3 + 2 * 8 + 8 * 10 + 1 + Label::most);

int64_t takeInterval(Reader& reader) noexcept {
    return static_cast<int64_t>(reader.number(0, longestInterval / microsecond)) * microsecond;
}
std::string_view takeLabel(Reader& reader) noexcept {
    const std::string_view text = reader.text();
    if (text.size() > Label::most || !std::ranges::all_of(text, isPrintable)) reader.failed();
    return reader.ok() ? text : std::string_view();
}

}  // namespace

bool areInOrder(const Intervals& intervals) noexcept {
    if (intervals.heartbeat < shortestInterval || intervals.activation > longestInterval) return false;
    if (intervals.heartbeat >= intervals.activation) return false;
    return intervals.preparation == 0 ||
           (intervals.preparation > intervals.heartbeat && intervals.preparation < intervals.activation);
}

Label::Label(std::string_view text) noexcept : size_(static_cast<uint8_t>(std::min(text.size(), most))) {
    for (size_t i = 0; i < size_; ++i) text_[i] = isPrintable(text[i]) ? text[i] : '?';
}

Block encode(const Frame& frame) noexcept {
    Writer writer;
    writer.byte(companionNumber);
    writer.byte(protocolVersion);
    writer.byte(static_cast<uint8_t>(frame.state));
    writer.fixed(frame.member);
    writer.fixed(frame.sequence);
    writer.number(frame.weight);
    writer.number(frame.goal);
    writer.number(frame.joined);
    writer.number(frame.activation);
    writer.number(frame.latest);
    writer.number(static_cast<uint64_t>(frame.intervals.heartbeat / microsecond));
    writer.number(static_cast<uint64_t>(frame.intervals.preparation / microsecond));
    writer.number(static_cast<uint64_t>(frame.intervals.activation / microsecond));
    writer.text(frame.label.text());
    Block block;
    block.size = writer.size();
    std::ranges::copy(writer.bytes(), block.bytes.begin());
    return block;
}

const char* decode(std::span<const uint8_t> bytes, Frame* frame) noexcept {
    Reader reader(bytes);
    if (reader.byte() != companionNumber) return "it is no frame of a fault-tolerance member";
    if (reader.byte() != protocolVersion) return "it is of another version of the protocol";
    Frame read;
    const uint8_t state = reader.byte();
    if (state < static_cast<uint8_t>(State::joining) || state > static_cast<uint8_t>(State::left))
        return "its state is none";
    read.state = static_cast<State>(state);
    read.member = reader.fixed();
    read.sequence = reader.fixed();
    read.weight = static_cast<uint16_t>(reader.number(1, UINT16_MAX));
    read.goal = static_cast<uint16_t>(reader.number(1, UINT16_MAX));
    read.joined = reader.number(0, highestJoined);
    read.activation = reader.number(0, highestActivation);
    read.latest = reader.number(0, highestActivation);
    read.intervals.heartbeat = takeInterval(reader);
    read.intervals.preparation = takeInterval(reader);
    read.intervals.activation = takeInterval(reader);
    read.label = Label(takeLabel(reader));
    if (!reader.ok()) return "it is cut, or a value is out of range";
    if (read.member == 0) return "it names no member";
    if (!areInOrder(read.intervals)) return "its intervals are not in order";
    if (isRanked(read.state) && read.joined == 0) return "its member is ranked without having joined";
    if (mayAct(read.state) != (read.activation != 0)) return "its state and its activation do not agree";
    if (read.activation > read.latest) return "its activation is later than the latest";
    *frame = read;
    return nullptr;
}

}  // namespace quorl::ftolerance
