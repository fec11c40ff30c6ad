// Frames as bytes: whole numbers in groups of seven bits, the lowest first, each in its shortest form.
#include "ftolerance/protocol/frame.h"

#include <algorithm>
#include <cstring>

namespace quorl::ftolerance {
namespace {

constexpr int64_t microsecond = 1000;

bool isPrintable(char character) noexcept {
    return character >= ' ' && character <= '~';
}

class Writer {
  public:
    explicit Writer(Block* block) noexcept : block_(*block) {}
    void byte(uint8_t value) noexcept { block_.bytes[block_.size++] = value; }
    void fixed(uint64_t value) noexcept {
        for (int i = 0; i < 8; ++i) byte(static_cast<uint8_t>(value >> 8 * i));
    }
    void number(uint64_t value) noexcept {
        for (; value >= 0x80; value >>= 7) byte(static_cast<uint8_t>(value | 0x80));
        byte(static_cast<uint8_t>(value));
    }
    void text(std::string_view text) noexcept {
        byte(static_cast<uint8_t>(text.size()));
        for (const char character : text) byte(static_cast<uint8_t>(character));
    }

  private:
    Block& block_;
};
// 3 bytes in front, member and sequence, 8 numbers, the label with its length.
static_assert(Block::most >= 3 + 2 * 8 + 8 * 10 + 1 + Label::most);

// After a failure everything reads as 0.
class Reader {
  public:
    explicit Reader(std::span<const uint8_t> bytes) noexcept : rest_(bytes) {}
    bool ok() const noexcept { return ok_; }

    uint8_t byte() noexcept {
        if (rest_.empty()) return failed();
        const uint8_t value = rest_.front();
        rest_ = rest_.subspan(1);
        return value;
    }
    uint64_t fixed() noexcept {
        uint64_t value = 0;
        for (int i = 0; i < 8; ++i) value |= uint64_t{byte()} << 8 * i;
        return ok_ ? value : 0;
    }
    uint64_t number() noexcept {
        uint64_t value = 0;
        for (uint32_t shift = 0; shift < 64; shift += 7) {
            const uint8_t next = byte();
            if (shift == 63 && next > 1) return failed();
            value |= uint64_t{next & 0x7fu} << shift;
            if (next < 0x80) return next == 0 && shift != 0 ? failed() : value;
        }
        return failed();
    }
    // least to most, both included.
    uint64_t number(uint64_t least, uint64_t most) noexcept {
        const uint64_t value = number();
        return value < least || value > most ? failed() : value;
    }
    int64_t interval() noexcept { return static_cast<int64_t>(number(0, longestInterval / microsecond)) * microsecond; }
    std::string_view text(size_t most) noexcept {
        const size_t size = byte();
        if (size > most || size > rest_.size()) {
            failed();
            return {};
        }
        const std::string_view text(reinterpret_cast<const char*>(rest_.data()), size);
        rest_ = rest_.subspan(size);
        if (!std::ranges::all_of(text, isPrintable)) failed();
        return ok_ ? text : std::string_view();
    }

  private:
    uint8_t failed() noexcept {
        ok_ = false;
        rest_ = {};
        return 0;
    }

    std::span<const uint8_t> rest_;
    bool ok_ = true;
};

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
    Block block;
    Writer writer(&block);
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
    read.intervals.heartbeat = reader.interval();
    read.intervals.preparation = reader.interval();
    read.intervals.activation = reader.interval();
    read.label = Label(reader.text(Label::most));
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
