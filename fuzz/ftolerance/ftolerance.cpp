// Fuzz target: two members and a monitor of a group over a network that loses, repeats and reorders what the input says, beside
// a stranger who sends whatever bytes and frames the input says, and a clock that goes and stands still as the input says.
//
// Whatever comes, actions have their order and their pace, what goes out is a frame, memory is bounded, and when the stranger
// has fallen silent the right one of the two is active.
#include <algorithm>
#include <array>
#include <deque>

#include "ftolerance/protocol/member.h"
#include "ftolerance/protocol/monitor.h"
#include "support.h"

namespace {

using namespace quorl::fuzz;
using namespace quorl::ftolerance;

constexpr int64_t milliseconds = 1'000'000;
constexpr Intervals intervals{100 * milliseconds, 200 * milliseconds, 500 * milliseconds};
constexpr size_t largestAsked = 512u << 10;

bool same(const Frame& one, const Frame& other) {
    return one.state == other.state && one.member == other.member && one.sequence == other.sequence &&
           one.weight == other.weight && one.goal == other.goal && one.joined == other.joined &&
           one.activation == other.activation && one.latest == other.latest && one.intervals == other.intervals &&
           one.label == other.label;
}

// What is known of a member from outside.
struct Outside {
    bool active = false;
    bool hinted = false;
    bool left = false;
    uint64_t token = 0;
    int64_t activatedAt = INT64_MIN;
    int64_t deactivatedAt = INT64_MIN;
    size_t frames = 0;  // since the clock went last by a heartbeat
    int64_t framesFrom = 0;
};

class Run {
  public:
    Run(const uint8_t* data, size_t size)
        : decide_(data, size),
          members_{Member(1, {1, 1, intervals}, Label("one")), Member(2, {2, 1, intervals}, Label("two"))},
          monitor_(300 * milliseconds) {}

    void run() {
        for (size_t i = 0; i < 2; ++i) {
            MemberOutput out;
            members_[i].start(now(), out);
            take(i, out);
        }
        MonitorOutput counted;
        monitor_.start(now(), counted);
        take(counted);
        while (!decide_.empty()) step();
        finish();
    }

  private:
    struct OnItsWay {
        size_t to;  // 2: the monitor
        Frame frame;
    };

    Now now() const { return {now_, wall_}; }

    void step() {
        const uint8_t kind = decide_.byte();
        const size_t which = kind / 16 % 2;
        MemberOutput out;
        switch (kind % 16) {
            case 0:
            case 1:
            case 2:
                return arrive(0);
            case 3:
                return arrive(decide_.byte());
            case 4:
                if (!way_.empty()) way_.erase(way_.begin() + static_cast<long>(decide_.byte() % way_.size()));
                return;
            case 5:
                if (!way_.empty() && way_.size() < 256) way_.push_back(way_[decide_.byte() % way_.size()]);
                return;
            case 6:
            case 7:
                return pass(int64_t{decide_.byte()} * milliseconds);
            case 8:
                // Everybody stands still.
                now_ += int64_t{decide_.two()} * milliseconds;
                return;
            case 9:
                return foreign(which);
            case 10:
            case 11:
            case 12:
                return forged(which);
            case 13:
                weight_[which] = static_cast<uint16_t>(1 + decide_.byte() % 4);
                members_[which].setWeight(weight_[which], now(), out);
                return take(which, out);
            case 14:
                members_[which].deactivated(now(), out);
                return take(which, out);
            default:
                if (decide_.byte() % 4 == 0) {
                    members_[which].leave(now(), out);
                    take(which, out);
                    outside_[which].left = true;
                } else {
                    wall_ = static_cast<int64_t>(decide_.eight());
                }
                return;
        }
    }

    void arrive(size_t at) {
        if (way_.empty()) return;
        at %= way_.size();
        const OnItsWay next = way_[at];
        way_.erase(way_.begin() + static_cast<long>(at));
        hand(next.to, next.frame);
    }
    void hand(size_t to, const Frame& frame) {
        if (to == 2) {
            MonitorOutput out;
            monitor_.receive(frame, now(), out);
            return take(out);
        }
        MemberOutput out;
        members_[to].receive(frame, now(), out);
        take(to, out);
    }

    // Bytes that may be a frame.
    void foreign(size_t to) {
        const quorl::fuzz::Block block(decide_.counted());
        const std::span<const uint8_t> bytes(block.data(), block.size());
        Frame frame;
        if (decode(bytes, &frame) == nullptr) {
            Frame again;
            require(decode(encode(frame).span(), &again) == nullptr && same(frame, again),
                    "a frame that was read cannot be written and read again");
        }
        MemberOutput out;
        members_[to].receive(bytes, now(), out);
        take(to, out);
        MonitorOutput counted;
        monitor_.receive(bytes, now(), counted);
        take(counted);
    }
    // A frame with values of the stranger's choice, some of them near what is expected.
    void forged(size_t to) {
        Frame frame;
        const uint8_t form = decide_.byte();
        frame.state = static_cast<State>(1 + decide_.byte() % 6);
        frame.member = (form & 1) != 0 ? 1 + decide_.byte() % 8 : decide_.eight() | 1;
        frame.sequence = (form & 2) != 0 ? decide_.eight() : sequence_++;
        frame.weight = static_cast<uint16_t>(1 + decide_.byte());
        frame.goal = (form & 4) != 0 ? static_cast<uint16_t>(1 + decide_.two() % 65535) : 1;
        frame.joined = (form & 8) != 0 ? decide_.eight() & highestJoined : 1;
        frame.latest = (form & 16) != 0 ? decide_.eight() & highestActivation : 1;
        frame.activation = mayAct(frame.state) ? frame.latest : 0;
        frame.intervals = (form & 32) != 0 ? Intervals{milliseconds, 0, (2 + decide_.two()) * milliseconds} : intervals;
        Frame read;
        if (decode(encode(frame).span(), &read) != nullptr) return;
        // What is near the end of these numbers stays there.
        if (frame.joined > highestJoined / 2 || frame.latest > highestActivation / 2) exhausted_ = true;
        if (frame.member == 1 || frame.member == 2) impersonated_ = true;
        hand(to, read);
        hand(2, read);
    }

    void pass(int64_t time) {
        const int64_t until = now_ + time;
        for (;;) {
            const int64_t next = std::min({members_[0].due(), members_[1].due(), monitor_.due()});
            if (next > until) break;
            now_ = std::max(now_, next);
            tick();
        }
        now_ = until;
    }
    void tick() {
        for (size_t i = 0; i < 2; ++i) {
            MemberOutput out;
            members_[i].tick(now(), out);
            require(members_[i].due() > now_, "a tick leaves itself due");
            take(i, out);
        }
        MonitorOutput out;
        monitor_.tick(now(), out);
        require(monitor_.due() > now_, "a tick of the monitor leaves itself due");
        take(out);
    }

    void take(size_t from, const MemberOutput& out) {
        Outside& outside = outside_[from];
        const Member& member = members_[from];
        require(!outside.left || (out.actions.empty() && out.frames.empty()), "one that has left goes on");
        for (const Told& told : out.actions) {
            switch (told.action) {
                case Action::prepare:
                    require(!outside.active, "an active member is hinted");
                    outside.hinted = true;
                    break;
                case Action::activate:
                    require(!outside.active && outside.hinted, "an activation is out of order");
                    require(told.token > outside.token || exhausted_, "a token does not grow");
                    require(outside.deactivatedAt == INT64_MIN || now_ - outside.deactivatedAt >= intervals.heartbeat,
                            "it flaps faster than heartbeats");
                    require(outside.activatedAt == INT64_MIN || now_ - outside.activatedAt >= intervals.heartbeat,
                            "it is activated faster than heartbeats");
                    outside.activatedAt = now_;
                    require(told.token == member.token() && told.token != 0, "an activation has another token");
                    outside.token = told.token;
                    outside.active = true;
                    break;
                case Action::deactivate:
                    require(outside.active && told.token == outside.token, "a deactivation is out of order");
                    outside.active = outside.hinted = false;
                    // One that only gets a new token is active again at once.
                    if (told.cause != Cause::token) outside.deactivatedAt = now_;
                    break;
            }
        }
        require(outside.left || member.state() == State::left || outside.active == (member.state() == State::active),
                "its state is not what its program was told");
        require(member.peers().size() <= Peers::most, "more members are kept than may be");
        require(out.advisories.size() <= size_t{events} * AdvisoryLimits::most, "too many advisories come at once");
        if (now_ - outside.framesFrom >= intervals.heartbeat) {
            outside.frames = 0;
            outside.framesFrom = now_;
        }
        outside.frames += out.frames.size();
        // Two heartbeats may fall into such a time, with the frames of each, and the last one when it leaves.
        require(outside.frames <= 20, "it sends more than it may");
        for (const Frame& frame : out.frames) {
            Frame read;
            require(decode(encode(frame).span(), &read) == nullptr && same(frame, read), "what goes out is no frame");
            for (const size_t to : {size_t{0}, size_t{1}, size_t{2}}) {
                if (way_.size() < 1024) way_.push_back({to, frame});
            }
        }
    }
    void take(const MonitorOutput& out) {
        for (const uint32_t count : out.counts) {
            require(!counted_ || count != count_, "a count is told twice");
            require(count <= Peers::most, "more are counted than are kept");
            counted_ = true;
            count_ = count;
        }
    }

    // The stranger is silent, and the weather is good.
    void finish() {
        for (int i = 0; i < 150; ++i) {
            while (!way_.empty()) arrive(0);
            for (size_t which = 0; which < 2; ++which) {
                MemberOutput out;
                if (members_[which].state() == State::yielding) members_[which].deactivated(now(), out);
                take(which, out);
            }
            while (!way_.empty()) arrive(0);
            pass(20 * milliseconds);
        }
        size_t members = 0;
        size_t active = 0;
        for (size_t i = 0; i < 2; ++i) {
            members += !outside_[i].left;
            active += !outside_[i].left && outside_[i].active;
        }
        require(active == (members == 0 ? 0 : 1), "not exactly one is active in good weather");
        if (members == 2 && weight_[0] != weight_[1])
            require(outside_[0].active == (weight_[0] > weight_[1]), "the lower one is active in good weather");
        require(counted_ && (count_ == active || impersonated_), "the monitor counts others than there are");
    }

    Decisions decide_;
    std::array<Member, 2> members_;
    Monitor monitor_;
    std::array<Outside, 2> outside_;
    std::array<uint16_t, 2> weight_{1, 2};
    std::deque<OnItsWay> way_;
    int64_t now_ = 1'000'000 * milliseconds;
    int64_t wall_ = 0;
    uint64_t sequence_ = 1;
    bool exhausted_ = false;
    bool impersonated_ = false;
    bool counted_ = false;
    uint32_t count_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Asked::watch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Asked::reset();
    Run(data, size).run();
    require(Asked::most() <= largestAsked, "a size that was only announced was asked for");
    return 0;
}
