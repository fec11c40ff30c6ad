// The member's rules. Each step notices a pause first, then takes in what came, then lets go of who is silent, and last decides
// what this member is and tells the others.
#include "ftolerance/protocol/member.h"

#include <algorithm>

namespace quorl::ftolerance {
namespace {

// Changes of state go out at once, but a hostile member that makes many of them cannot make this one send as many.
constexpr uint32_t extraFrames = 8;

constexpr int64_t millisecond = 1'000'000;

// Of those of equal weight the one that joined first, and of those that joined at once, anyone as long as all agree.
bool ranksAbove(const Frame& one, const Frame& other) noexcept {
    if (one.weight != other.weight) return one.weight > other.weight;
    if (one.joined != other.joined) return one.joined < other.joined;
    return one.member < other.member;
}

bool isNewer(uint64_t one, uint64_t other) noexcept {
    return static_cast<int64_t>(one - other) > 0;
}

}  // namespace

Member::Member(uint64_t id, const MemberSettings& settings, const Label& label) noexcept
    : limits_(settings.intervals.activation) {
    self_.member = id;
    self_.weight = settings.weight;
    self_.goal = settings.goal;
    self_.intervals = settings.intervals;
    self_.label = label;
}

int64_t Member::suspectAfter() const noexcept {
    return self_.intervals.preparation != 0 ? self_.intervals.preparation : self_.intervals.activation;
}

// Steps are never further apart than heartbeats. Less than half of what may be missed would be noise, and a pause must not
// look like silence of the others.
int64_t Member::pauseAfter() const noexcept {
    const Intervals& intervals = self_.intervals;
    return std::min(2 * intervals.heartbeat, intervals.heartbeat + (intervals.activation - intervals.heartbeat) / 2);
}

State Member::state() const noexcept {
    if (left_) return State::left;
    if (active_) return State::active;
    if (acting_) return State::yielding;
    if (joining_) return State::joining;
    return claiming_ ? State::claiming : State::standby;
}

Frame Member::frame() const noexcept {
    Frame frame = self_;
    frame.state = state();
    frame.latest = latest_;
    if (!mayAct(frame.state)) frame.activation = 0;
    return frame;
}

int64_t Member::due() const noexcept {
    if (left_) return INT64_MAX;
    int64_t due = heartbeatAt_;
    const auto earlier = [&](int64_t time) {
        if (time > stepped_) due = std::min(due, time);
    };
    if (const Peer* peer = peers_.quietest(); peer != nullptr) due = std::min(due, peer->heard + suspectAfter());
    if (const Peer* peer = peers_.quietestSuspect(); peer != nullptr)
        due = std::min(due, peer->heard + self_.intervals.activation);
    if (joining_ && !aside_) {
        due = std::min(due, joinedFrom_ + self_.intervals.activation);
        if (self_.intervals.preparation != 0) earlier(joinedFrom_ + self_.intervals.preparation);
    }
    if (acting_) due = std::min(due, actingUntil_);
    if (!active_) {
        earlier(holdUntil_);
        earlier(settleUntil_);
    }
    return due;
}

void Member::tell(Event event, const Frame& about, uint64_t number, int64_t now, MemberOutput& out,
                  const char* reason) noexcept {
    limits_.tell({event, about, number, 0, reason}, now, out.advisories);
}

void Member::send(int64_t now, MemberOutput& out) {
    ++self_.sequence;
    const Frame frame = this->frame();
    out.frames.push_back(frame);
    announced_ = frame.state;
    announcedWeight_ = frame.weight;
    announcedActivation_ = frame.activation;
    sent_ = now;
    heartbeatAt_ = now + self_.intervals.heartbeat;
}

// So that nothing fails in the middle of a step.
void Member::makeRoom(MemberOutput& out) {
    out.actions.reserve(out.actions.size() + 4);
    out.frames.reserve(out.frames.size() + 2);
    out.advisories.reserve(out.advisories.size() + size_t{events} * 2);
}

// Looks whether the process stood still.
void Member::step(Now now, MemberOutput& out) {
    makeRoom(out);
    const int64_t length = now.monotonic - stepped_;
    const int64_t late = now.monotonic - due();
    stepped_ = now.monotonic;
    if (length > pauseAfter()) return onPause(length, now.monotonic, out);
    // A short pause, or a busy machine: what has come meanwhile is read first, but not for ever.
    if (late < self_.intervals.heartbeat / 64 || now.monotonic - readFirstAt_ < self_.intervals.heartbeat) return;
    readFirstAt_ = now.monotonic;
    holdUntil_ = std::max(holdUntil_, now.monotonic + std::min(late, self_.intervals.heartbeat / 4));
}

// What the others have sent meanwhile waits still, so that nobody is silent yet. Those who had not heard of this one for their
// interval may have put another in its place.
void Member::onPause(int64_t length, int64_t now, MemberOutput& out) {
    int64_t patience = self_.intervals.activation;
    peers_.each([&](const Peer& peer) { patience = std::min(patience, peer.last.intervals.activation); });
    peers_.hearAllAnew(now);
    stirred_ = true;
    tell(Event::paused, {}, static_cast<uint64_t>(length), now, out);
    if (active_ && now - sent_ < patience) return;
    if (active_) deactivate(Cause::paused, now, out);
    join(now);
}

void Member::join(int64_t now) noexcept {
    joining_ = true;
    claiming_ = false;
    joinedFrom_ = now;
}

void Member::start(Now now, MemberOutput& out) {
    stepped_ = readFirstAt_ = now.monotonic;
    step(now, out);
    join(now.monotonic);
    extra_ = extraFrames;
    send(now.monotonic, out);
}

void Member::receive(std::span<const uint8_t> bytes, Now now, MemberOutput& out) {
    Frame frame;
    const char* fault = decode(bytes, &frame);
    if (fault == nullptr) return receive(frame, now, out);
    if (left_) return;
    step(now, out);
    tell(Event::malformed, {}, 0, now.monotonic, out, fault);
    finish(false, now, out);
}

void Member::receive(const Frame& frame, Now now, MemberOutput& out) {
    if (left_) return;
    step(now, out);
    if (frame.member == self_.member) {
        // One's own frames come back. After a stranger's the own ones would count as old.
        if (isNewer(frame.sequence, self_.sequence)) {
            self_.sequence = frame.sequence;
            tell(Event::impostor, frame, 0, now.monotonic, out);
        }
        return finish(false, now, out);
    }
    Peer* peer = peers_.find(frame.member);
    if (peer == nullptr && peers_.full()) {
        tell(Event::crowded, frame, peers_.size(), now.monotonic, out);
        return finish(false, now, out);
    }
    if (peer == nullptr || (isNewer(frame.sequence, peer->last.sequence) && peer->last.state != State::left))
        onNews(peer, frame, now.monotonic, out);
    finish(false, now, out);
}

void Member::onNews(Peer* peer, const Frame& frame, int64_t now, MemberOutput& out) {
    const auto disagrees = [&](const Frame& one, const Frame& other) {
        return one.goal != other.goal || one.intervals != other.intervals;
    };
    const bool isNew = peer == nullptr;
    const bool left = frame.state == State::left;
    const bool newTerms = isNew || disagrees(frame, peer->last);
    if (isNew) {
        peers_.add(frame, now);
        stirred_ = true;
        if (!left) tell(Event::joined, frame, 0, now, out);
    } else {
        const Frame& last = peer->last;
        stirred_ = stirred_ || peer->suspected || last.state != frame.state || last.weight != frame.weight ||
                   last.joined != frame.joined || last.goal != frame.goal;
        peers_.heard(*peer, frame, now);
        if (left) tell(Event::left, frame, 0, now, out);
    }
    if (left || (newTerms && !disagrees(frame, self_))) {
        disagreements_.forget(frame.member);
    } else if (newTerms && disagreements_.isNews(frame)) {
        tell(Event::disagreement, frame, 0, now, out);
    }
    stirred_ = stirred_ || frame.latest > latest_;
    latest_ = std::max(latest_, frame.latest);
    others_ = std::max(others_, tokenOf(frame.activation, frame.member));
    // Of two tokens of one number that of the one that stepped back may be the higher one, and the other may never hear the frame
    // that says so: it hears of a higher number.
    if (frame.activation != 0 && frame.activation == self_.activation) {
        tied_ = true;
        if (!active_) latest_ = std::max(latest_, std::min(self_.activation + 1, highestActivation));
    }
    latestJoined_ = std::max(latestJoined_, frame.joined);
}

void Member::heard(uint64_t member, Now now) noexcept {
    Peer* peer = peers_.find(member);
    if (peer == nullptr || peer->last.state == State::left) return;
    stirred_ = stirred_ || peer->suspected;
    peers_.hearAgain(*peer, now.monotonic);
}

void Member::tick(Now now, MemberOutput& out) {
    if (left_ || now.monotonic < due()) return;
    step(now, out);
    finish(true, now, out);
}

void Member::setWeight(uint16_t weight, Now now, MemberOutput& out) {
    if (left_) return;
    step(now, out);
    self_.weight = weight;
    stirred_ = true;
    finish(false, now, out);
}

void Member::deactivated(Now now, MemberOutput& out) {
    if (left_) return;
    step(now, out);
    acting_ = false;
    stirred_ = true;
    finish(false, now, out);
}

void Member::stepAside(Now now, MemberOutput& out) {
    if (left_ || aside_) return;
    step(now, out);
    if (active_) deactivate(Cause::rank, now.monotonic, out);
    aside_ = true;
    join(now.monotonic);
    stirred_ = true;
    finish(false, now, out);
}

void Member::joinAnew(Now now, MemberOutput& out) {
    if (left_ || !aside_) return;
    step(now, out);
    aside_ = false;
    join(now.monotonic);
    stirred_ = true;
    finish(false, now, out);
}

// Not a step: the program is told nothing more, not even that the process stood still.
void Member::leave(Now now, MemberOutput& out) {
    if (left_) return;
    makeRoom(out);
    left_ = true;
    send(now.monotonic, out);
}

void Member::abandon(Now now, MemberOutput& out) {
    if (left_) return;
    step(now, out);
    if (active_) deactivate(Cause::cutOff, now.monotonic, out);
    left_ = true;
}

void Member::expire(int64_t now, MemberOutput& out) {
    if (self_.intervals.preparation != 0) {
        for (Peer* peer = peers_.quietest(); peer != nullptr && now - peer->heard >= self_.intervals.preparation;
             peer = peers_.quietest()) {
            peers_.suspect(*peer);
            stirred_ = true;
        }
    }
    const auto quietest = [&] {
        return self_.intervals.preparation != 0 ? peers_.quietestSuspect() : peers_.quietest();
    };
    for (Peer* peer = quietest(); peer != nullptr && now - peer->heard >= self_.intervals.activation;
         peer = quietest()) {
        if (peer->last.state != State::left) tell(Event::lost, peer->last, 0, now, out);
        peers_.remove(*peer);
        stirred_ = true;
    }
}

// timesCame: tick was called, so a time has come.
void Member::finish(bool timesCame, Now now, MemberOutput& out) {
    const int64_t time = now.monotonic;
    expire(time, out);
    if (acting_ && time >= actingUntil_) {
        acting_ = false;
        stirred_ = true;
        tell(Event::slow, {}, static_cast<uint64_t>(self_.intervals.activation), time, out);
    }
    const bool beats = time >= heartbeatAt_;
    if (beats) extra_ = extraFrames;
    if (timesCame || stirred_ || beats) decide(now, out);
    stirred_ = false;
    if (beats) return send(time, out);
    const Frame frame = this->frame();
    const bool announced =
        frame.state == announced_ && frame.weight == announcedWeight_ && frame.activation == announcedActivation_;
    if (announced || extra_ == 0) return;
    --extra_;
    send(time, out);
}

Member::Standing Member::standing() const noexcept {
    Frame self = self_;
    // Who joins has no place yet, and will come last among its equals.
    if (joining_ && self.joined == 0) self.joined = UINT64_MAX;
    Standing found{self_.goal};
    const Frame* highest = joining_ ? nullptr : &self;
    peers_.each([&](const Peer& peer) {
        const Frame& other = peer.last;
        const bool above = ranksAbove(other, self);
        found.company = found.company || other.state != State::left;
        // They will be ranked when this one is: that is worth a thought for hints alone.
        if (other.state == State::joining && joining_ && other.joined == 0) {
            const bool first = other.weight != self.weight ? other.weight > self.weight : other.member < self.member;
            if (first && !peer.suspected) ++found.betterHeard;
        }
        if (!isRanked(other.state)) return;
        if (highest == nullptr || ranksAbove(other, *highest)) highest = &other;
        const bool claims = other.state == State::claiming;
        if (mayAct(other.state)) {
            ++found.acting;
            if (found.worstActing == nullptr || ranksAbove(*found.worstActing, other)) found.worstActing = &other;
        }
        if (mayAct(other.state) || (claims && above)) ++found.ahead;
        if (!above) {
            found.lowerActive = found.lowerActive || other.state == State::active;
            return;
        }
        ++found.better;
        if (!peer.suspected) ++found.betterHeard;
        if (claims || other.state == State::active) ++found.betterActing;
    });
    if (highest != nullptr) found.goal = highest->goal;
    return found;
}

void Member::decide(Now now, MemberOutput& out) {
    const int64_t time = now.monotonic;
    if (joining_ && !aside_ && time - joinedFrom_ >= self_.intervals.activation) {
        joining_ = false;
        if (self_.joined == 0) self_.joined = std::min(latestJoined_ + 1, highestJoined);
        latestJoined_ = std::max(latestJoined_, self_.joined);
        settleUntil_ = time + self_.intervals.heartbeat / 4;
    }
    const Standing others = standing();
    // Whoever has started together with this one ends joining now, too, and may not have said so yet. Of one that has to step back
    // first all hear.
    if (time < settleUntil_ && (!others.company || others.ahead >= others.goal)) settleUntil_ = time;
    if (active_ && others.betterActing >= others.goal) deactivate(Cause::rank, time, out);
    const bool tooMany = active_ && others.acting + 1 > others.goal;
    if (tooMany && !tooMany_) {
        tooManyFrom_ = time;
        tell(Event::tooMany, *others.worstActing, others.acting + 1, time, out);
    }
    tooMany_ = tooMany;
    // Whoever heard this one would have stepped back by now. Too few for a moment are better than too many for ever.
    if (tooMany && others.lowerActive && time - tooManyFrom_ >= self_.intervals.activation)
        deactivate(Cause::unheard, time, out);
    // Two sides of a partition have met. A guard that has seen the other side's token would refuse this one's for ever.
    const bool outranked = self_.activation < highestActivation && (latest_ > self_.activation || others_ > token());
    if (active_ && outranked && others.goal == 1 && others.acting == 0 && time >= holdUntil_) renew(now, out);

    const bool entitled = !active_ && !joining_ && others.better < others.goal;
    const bool held = acting_ || time < holdUntil_;
    if (entitled && !held && time >= settleUntil_ && others.ahead < others.goal) {
        activate(now, out);
    } else {
        const bool claims = entitled && !held;
        if (claims && !claiming_) {
            claimingFrom_ = time;
            unheardTold_ = false;
        }
        claiming_ = claims;
    }
    if (!active_ && !aside_) {
        const bool heardLongEnough = !joining_ || time - joinedFrom_ >= self_.intervals.preparation;
        if (claiming_ || (others.betterHeard < others.goal && heardLongEnough)) {
            hint(time, out);
        } else {
            prepared_ = false;
        }
    }
    if (claiming_ && !unheardTold_ && time - claimingFrom_ >= self_.intervals.activation &&
        others.worstActing != nullptr) {
        unheardTold_ = true;
        tell(Event::unheard, *others.worstActing, static_cast<uint64_t>(time - claimingFrom_), time, out);
    }
}

void Member::hint(int64_t now, MemberOutput& out) {
    if (self_.intervals.preparation == 0 || prepared_ || now < hintHoldUntil_) return;
    prepared_ = true;
    hintHoldUntil_ = now + self_.intervals.heartbeat;
    out.actions.push_back({Action::prepare, Cause::rank, 0});
}

void Member::activate(Now now, MemberOutput& out) {
    if (self_.intervals.preparation != 0 && !prepared_) out.actions.push_back({Action::prepare, Cause::rank, 0});
    const auto wall = static_cast<uint64_t>(std::max<int64_t>(now.wall / millisecond, 0));
    latest_ = std::min(std::max(latest_ + 1, wall), highestActivation);
    self_.activation = latest_;
    tied_ = false;
    active_ = true;
    claiming_ = false;
    prepared_ = false;
    holdUntil_ = now.monotonic + self_.intervals.heartbeat;
    out.actions.push_back({Action::activate, Cause::rank, token()});
}

// Nobody waits for this one to step back, so it need not be inactive in between.
void Member::renew(Now now, MemberOutput& out) {
    out.actions.push_back({Action::deactivate, Cause::token, token()});
    activate(now, out);
}

void Member::deactivate(Cause cause, int64_t now, MemberOutput& out) {
    out.actions.push_back({Action::deactivate, cause, token()});
    if (tied_) latest_ = std::max(latest_, std::min(self_.activation + 1, highestActivation));
    active_ = false;
    acting_ = true;
    actingUntil_ = now + self_.intervals.activation;
    holdUntil_ = now + self_.intervals.heartbeat;
}

}  // namespace quorl::ftolerance
