// What the parts of a member share: its settings and streams, and the step at hand.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dqueue/protocol/frame.h"
#include "dqueue/protocol/machine.h"
#include "dqueue/protocol/streams.h"
#include "ftolerance/protocol/member.h"

namespace quorl::dqueue {

inline constexpr int64_t milliseconds = 1'000'000;
inline constexpr int64_t seconds = 1'000'000'000;

// A pause that doubles up to a limit.
class Pause {
  public:
    constexpr Pause(int64_t first, int64_t longest) noexcept : first_(first), longest_(longest), next_(first) {}
    int64_t take() noexcept {
        const int64_t taken = next_;
        next_ = next_ > longest_ / 2 ? longest_ : 2 * next_;
        return taken;
    }
    void reset() noexcept { next_ = first_; }

  private:
    int64_t first_;
    int64_t longest_;
    int64_t next_;
};

// Room for so many in all, so that adding them cannot fail later. It grows as by push_back, not one by one.
template <class T>
void makeRoom(std::vector<T>& list, size_t size) {
    if (size > list.capacity()) list.reserve(std::max(size, 2 * list.capacity()));
}

struct Shared {
    Shared(const Settings& given, const Chance& drawn)
        : settings(given),
          chance(drawn),
          id(drawn.member),
          address(addressOf(given.queue, drawn.member)),
          group(groupSubjectOf(given.queue)),
          election(drawn.member, {given.schedulerWeight, 1, given.intervals}, ftolerance::Label(given.label)) {}

    void sendToAll(const Frame& frame) { out->messages.push_back(made(frame, group)); }
    // What is for this member itself is handled before the step ends.
    void sendTo(uint64_t member, const Frame& frame) {
        if (member == id) {
            own.push_back(made(frame, address));
        } else {
            out->messages.push_back(made(frame, addressOf(settings.queue, member)));
        }
    }
    // Closing one finds its room here, also without memory.
    uint32_t openEar(std::string subject) {
        makeRoom(closing, closing.size() + openEars + 1);
        const uint32_t number = lastEar + 1;
        out->ears.push_back({number, std::move(subject)});
        ++openEars;
        return lastEar = number;
    }
    void closeEar(uint32_t ear) noexcept {
        closing.push_back(ear);
        --openEars;
    }
    // Ears that were closed, to the driver.
    void tellClosed() {
        while (!closing.empty()) {
            out->ears.push_back({closing.front(), {}});
            closing.erase(closing.begin());
        }
    }
    Frame frameOf(Kind kind, const Term& term) const noexcept {
        Frame frame;
        frame.kind = kind;
        frame.member = id;
        frame.term = term;
        return frame;
    }

    Event& tell(Event::Kind kind, uint64_t member = 0) {
        Event& event = out->events.emplace_back();
        event.kind = kind;
        event.member = member;
        event.label = labelOf(member);
        return event;
    }
    std::string labelOf(uint64_t member) const {
        if (member == id) return std::string(election.frame().label.text());
        std::string label;
        election.peers().each([&](const ftolerance::Peer& peer) {
            if (peer.last.member == member) label = peer.last.label.text();
        });
        return label;
    }

    Settings settings;
    Chance chance;
    uint64_t id;
    std::string address;
    std::string group;
    ftolerance::Member election;
    Streams streams;
    Counts counts;
    Now now;
    Output* out = nullptr;
    std::deque<companion::Message> own;  // to itself
    uint32_t lastEar = 0;
    size_t openEars = 0;
    std::vector<uint32_t> closing;  // ears that the driver is to be told of

  private:
    static companion::Message made(const Frame& frame, std::string_view subject) {
        FrameWriter writer;
        encode(frame, writer);
        return dqueue::messageWith(writer, subject);
    }
};

}  // namespace quorl::dqueue
