// The protocol of one member of a group, without input and output: frames, calls and the time go in; frames, actions for the
// program and advisories come out. Whoever drives it serializes the calls. docs/internals/fault-tolerance.md is the protocol.
//
//     Member member(random, settings, Label("host/4711"));
//     member.start(now, out);
//     for (const Frame& frame : out.frames) send(encode(frame));  // to all others, the group's monitors included
//     ... advisories, then the actions, in order; member.deactivated(now, out) when the program returns from a deactivation
//     ... member.receive(frame, now, out) for whatever comes, and member.tick(now, out) when member.due() has come
//
// A function that throws std::bad_alloc has done nothing; what it was to do is then as if a frame had been lost.
#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "ftolerance/protocol/disagreements.h"
#include "ftolerance/protocol/frame.h"
#include "ftolerance/protocol/output.h"
#include "ftolerance/protocol/peers.h"

namespace quorl::ftolerance {

struct MemberSettings {
    uint16_t weight = 1;  // not 0
    uint16_t goal = 1;    // not 0
    Intervals intervals;  // in order
};

struct MemberNews {
    std::vector<Told> actions;
    std::vector<Advisory> advisories;
};

struct MemberOutput : MemberNews {
    using Rest = MemberNews;

    std::vector<Frame> frames;

    void clear() noexcept {
        frames.clear();
        actions.clear();
        advisories.clear();
    }
    // Mostly there is nothing, and the room for it stays.
    Rest takeRest() noexcept {
        if (actions.empty() && advisories.empty()) return {};
        return std::exchange(static_cast<MemberNews&>(*this), {});
    }
};

class Member {
  public:
    // id: random, not 0.
    Member(uint64_t id, const MemberSettings& settings, const Label& label) noexcept;

    void start(Now now, MemberOutput& out);
    void receive(const Frame& frame, Now now, MemberOutput& out);
    // The same for bytes that anybody may have sent.
    void receive(std::span<const uint8_t> bytes, Now now, MemberOutput& out);
    // The member was heard otherwise than by its frames, and so is not silent. Without effect when it is not known.
    void heard(uint64_t member, Now now) noexcept;
    void tick(Now now, MemberOutput& out);
    // weight: not 0.
    void setWeight(uint16_t weight, Now now, MemberOutput& out);
    // The program has returned from the deactivation that it was told last.
    void deactivated(Now now, MemberOutput& out);
    // The member stays, and is heard, but it is active no more and takes no part in the ranking, until it joins anew.
    void stepAside(Now now, MemberOutput& out);
    // After stepAside: takes part again, as soon as it has listened for its activation interval.
    void joinAnew(Now now, MemberOutput& out);
    // The member goes, and says so. Afterwards nothing comes out any more.
    void leave(Now now, MemberOutput& out);

    // There is no way to the others any more, and never will be: the member goes without a word, but not without telling its
    // program to deactivate.
    void abandon(Now now, MemberOutput& out);

    // When to call tick next; INT64_MAX: never.
    int64_t due() const noexcept;

    uint64_t id() const noexcept { return self_.member; }
    // As the others are told.
    State state() const noexcept;
    // Of the present activation; 0: there is none.
    uint64_t token() const noexcept { return tokenOf(self_.activation, self_.member); }
    // What the next frame says, and the others' newest ones.
    Frame frame() const noexcept;
    const Peers& peers() const noexcept { return peers_; }

  private:
    // The others that are ranked, counted as the rules want them.
    struct Standing {
        uint32_t goal;              // of the highest ranked of all
        uint32_t better = 0;        // ranked above this one
        uint32_t betterHeard = 0;   // of these, not suspected
        uint32_t betterActing = 0;  // of these, active or claiming
        uint32_t acting = 0;        // that may act
        uint32_t ahead = 0;         // that may act, or claim and are better
        bool company = false;       // there is another, ranked or joining
        bool lowerActive = false;   // one that is not above this one is active
        const Frame* worstActing = nullptr;
    };

    static void makeRoom(MemberOutput& out);
    void step(Now now, MemberOutput& out);
    void finish(bool timesCame, Now now, MemberOutput& out);
    void onPause(int64_t length, int64_t now, MemberOutput& out);
    void onNews(Peer* peer, const Frame& frame, int64_t now, MemberOutput& out);
    void expire(int64_t now, MemberOutput& out);
    Standing standing() const noexcept;
    void decide(Now now, MemberOutput& out);
    void activate(Now now, MemberOutput& out);
    void renew(Now now, MemberOutput& out);
    void deactivate(Cause cause, int64_t now, MemberOutput& out);
    void join(int64_t now) noexcept;
    void hint(int64_t now, MemberOutput& out);
    void send(int64_t now, MemberOutput& out);
    void tell(Event event, const Frame& about, uint64_t number, int64_t now, MemberOutput& out,
              const char* reason = "") noexcept;
    int64_t suspectAfter() const noexcept;
    int64_t pauseAfter() const noexcept;

    Frame self_;  // state, sequence and latest are filled in when it goes out
    AdvisoryLimits limits_;
    Peers peers_;
    Disagreements disagreements_;
    bool left_ = false;
    bool joining_ = true;
    bool aside_ = false;
    bool active_ = false;
    bool acting_ = false;  // deactivated, and the program has not returned
    bool claiming_ = false;
    bool prepared_ = false;  // hinted since it was last active, and the reason for it goes on
    bool stirred_ = false;   // something has come in that may change the ranking
    uint64_t latest_ = 0;    // highest number of an activation
    uint64_t others_ = 0;    // highest token of another's
    bool tied_ = false;      // another has activated with the number of the present activation
    uint64_t latestJoined_ = 0;

    int64_t stepped_ = 0;  // time of the last step
    int64_t sent_ = 0;     // of the last frame
    int64_t heartbeatAt_ = INT64_MAX;
    int64_t joinedFrom_ = 0;  // since when it listens, while it is joining
    int64_t actingUntil_ = 0;
    int64_t holdUntil_ = INT64_MIN;      // no activation before
    int64_t settleUntil_ = INT64_MIN;    // no activation before, but claims
    int64_t readFirstAt_ = 0;            // when a late step last held it back
    int64_t hintHoldUntil_ = INT64_MIN;  // no hint before
    int64_t claimingFrom_ = 0;
    bool unheardTold_ = false;
    bool tooMany_ = false;  // more than the goal act, and this one is among them
    int64_t tooManyFrom_ = 0;
    State announced_ = State::joining;
    uint16_t announcedWeight_ = 0;
    uint64_t announcedActivation_ = 0;
    uint32_t extra_ = 0;  // frames beside heartbeats that may go out until the next heartbeat
};

}  // namespace quorl::ftolerance
