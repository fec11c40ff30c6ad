// What members of a group say: one kind of frame, the heartbeat, which carries everything that the others have to know.
//
//     const Block block = encode(frame);                     // the attributes of a message to the group's subject
//     if (const char* fault = decode(bytes, &frame)) ...     // why it is none; null: it is one
//
// Anybody may send what is decoded. A frame that is none of this protocol's, or that no member sends, changes nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace quorl::ftolerance {

// The first two bytes of the attributes.
inline constexpr uint8_t companionNumber = 3;
inline constexpr uint8_t protocolVersion = 1;

// The numbers are the protocol's.
enum class State : uint8_t {
    joining = 1,   // listens, and takes no part in the ranking
    standby = 2,   // ranked
    claiming = 3,  // entitled, and waits until somebody steps back
    active = 4,
    yielding = 5,  // has told its program to deactivate, which has not returned yet
    left = 6,      // orderly, and the last frame of this member
};

// Whether a program may be doing what active members do.
constexpr bool mayAct(State state) noexcept {
    return state == State::active || state == State::yielding;
}
// Whether it has a place in the ranking.
constexpr bool isRanked(State state) noexcept {
    return state != State::joining && state != State::left;
}

// Nanoseconds, whole microseconds.
struct Intervals {
    int64_t heartbeat = 0;
    int64_t preparation = 0;  // 0: no hints
    int64_t activation = 0;
    bool operator==(const Intervals&) const = default;
};
inline constexpr int64_t shortestInterval = 1'000'000;                        // 1 ms
inline constexpr int64_t longestInterval = int64_t{30} * 86'400'000'000'000;  // 30 days

// Whether members may have them: shortest <= heartbeat < activation <= longest, and preparation between the two or 0.
bool areInOrder(const Intervals& intervals) noexcept;

// A short text that tells members apart for people; the protocol does not look at it. Printable ASCII.
class Label {
  public:
    static constexpr size_t most = 64;
    Label() noexcept = default;
    // Longer texts are cut, other characters become '?'.
    explicit Label(std::string_view text) noexcept;
    std::string_view text() const noexcept { return {text_.data(), size_}; }
    bool operator==(const Label& other) const noexcept { return text() == other.text(); }

  private:
    std::array<char, most> text_{};
    uint8_t size_ = 0;
};

struct Frame {
    State state = State::joining;
    uint64_t member = 0;      // drawn at random when it was made, not 0
    uint64_t sequence = 0;    // of its frames
    uint16_t weight = 1;      // 1 to 65535
    uint16_t goal = 1;        // 1 to 65535
    uint64_t joined = 0;      // its place in the order of joining; 0: none yet
    uint64_t activation = 0;  // the number of its present activation; 0: it does not act
    uint64_t latest = 0;      // the highest number of an activation that it knows of
    Intervals intervals;
    Label label;
};

// Places and numbers end there.
inline constexpr uint64_t highestJoined = (uint64_t{1} << 62) - 1;
inline constexpr uint64_t highestActivation = (uint64_t{1} << 48) - 1;

// What a program fences with: grows with the activation, and differs between members that came to the same number without
// knowing of each other (but for one case in 65,536).
constexpr uint64_t tokenOf(uint64_t activation, uint64_t member) noexcept {
    return activation == 0 ? 0 : activation << 16 | (member & 0xffff);
}

struct Block {
    static constexpr size_t most = 192;
    std::array<uint8_t, most> bytes{};
    size_t size = 0;
    std::span<const uint8_t> span() const noexcept { return {bytes.data(), size}; }
};

Block encode(const Frame& frame) noexcept;
// Null, or what is wrong with the bytes; static text. What later releases may append is left out.
const char* decode(std::span<const uint8_t> bytes, Frame* frame) noexcept;

}  // namespace quorl::ftolerance
