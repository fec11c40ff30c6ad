// The monitor's rules.
#include "ftolerance/protocol/monitor.h"

#include <algorithm>

namespace quorl::ftolerance {

Monitor::Monitor(int64_t lostInterval) noexcept : lostInterval_(lostInterval), limits_(lostInterval, mostChanges) {}

void Monitor::tell(Event event, const Frame& about, uint64_t number, int64_t now, MonitorOutput& out,
                   const char* reason) noexcept {
    limits_.tell({event, about, number, 0, reason}, now, out.advisories);
}

// Steps are a quarter of the interval apart at most. What came during a pause waits still, so that nobody is silent yet.
void Monitor::step(int64_t now, MonitorOutput& out) {
    out.counts.reserve(out.counts.size() + 2);
    const Peer* quietest = peers_.quietest();
    const size_t mayBeLost = quietest != nullptr && now - quietest->heard >= lostInterval_ ? peers_.size() : 0;
    out.advisories.reserve(out.advisories.size() + size_t{events} * 2 + mayBeLost);
    const int64_t length = now - stepped_;
    stepped_ = now;
    if (length <= lostInterval_ / 2) return;
    peers_.hearAllAnew(now);
    listensFrom_ = now;
    tell(Event::paused, {}, static_cast<uint64_t>(length), now, out);
}

void Monitor::start(Now now, MonitorOutput& out) {
    stepped_ = listensFrom_ = now.monotonic;
    finish(now.monotonic, out);
}

void Monitor::receive(std::span<const uint8_t> bytes, Now now, MonitorOutput& out) {
    Frame frame;
    const char* fault = decode(bytes, &frame);
    if (fault == nullptr) return receive(frame, now, out);
    step(now.monotonic, out);
    tell(Event::malformed, {}, 0, now.monotonic, out, fault);
    finish(now.monotonic, out);
}

void Monitor::receive(const Frame& frame, Now now, MonitorOutput& out) {
    step(now.monotonic, out);
    take(frame, now.monotonic, out);
    finish(now.monotonic, out);
}

void Monitor::take(const Frame& frame, int64_t now, MonitorOutput& out) {
    Peer* peer = peers_.find(frame.member);
    const bool left = frame.state == State::left;
    const bool newTerms = peer == nullptr || peer->last.intervals != frame.intervals;
    if (peer != nullptr) {
        const Frame last = peer->last;
        if (last.state == State::left || static_cast<int64_t>(frame.sequence - last.sequence) <= 0) return;
        active_ -= mayAct(last.state);
        peers_.heard(*peer, frame, now);
        if (left) {
            tell(Event::left, frame, 0, now, out);
        } else if (frame.state != last.state || frame.weight != last.weight) {
            tell(Event::changed, frame, 0, now, out);
        }
    } else if (peers_.full()) {
        return tell(Event::crowded, frame, peers_.size(), now, out);
    } else {
        peers_.add(frame, now);
        if (!left) tell(Event::joined, frame, 0, now, out);
    }
    if (left || (newTerms && frame.intervals.heartbeat < lostInterval_)) {
        disagreements_.forget(frame.member);
    } else if (newTerms && disagreements_.isNews(frame)) {
        tell(Event::disagreement, frame, 0, now, out);
    }
    active_ += mayAct(frame.state);
}

void Monitor::tick(Now now, MonitorOutput& out) {
    if (now.monotonic < due_) return;
    step(now.monotonic, out);
    finish(now.monotonic, out);
}

void Monitor::finish(int64_t now, MonitorOutput& out) {
    for (Peer* peer = peers_.quietest(); peer != nullptr && now - peer->heard >= lostInterval_;
         peer = peers_.quietest()) {
        if (peer->last.state != State::left) tell(Event::lost, peer->last, 0, now, out);
        active_ -= mayAct(peer->last.state);
        peers_.remove(*peer);
    }
    if (knows_ ? active_ != told_ : active_ != 0 || now - listensFrom_ >= lostInterval_) {
        knows_ = true;
        told_ = active_;
        out.counts.push_back(active_);
    }
    due_ = now + std::max<int64_t>(lostInterval_ / 4, 1);
    if (const Peer* peer = peers_.quietest(); peer != nullptr) due_ = std::min(due_, peer->heard + lostInterval_);
    if (!knows_) due_ = std::min(due_, listensFrom_ + lostInterval_);
}

}  // namespace quorl::ftolerance
