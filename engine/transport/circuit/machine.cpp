// Handshake, window, acknowledgement, repair, and the watch over the peer.
#include "transport/circuit/machine.h"

#include <algorithm>
#include <utility>

namespace quorl::transport::circuit {
namespace {

constexpr int64_t milliseconds = 1'000'000;

constexpr int64_t firstHandshakePause = 100 * milliseconds;
constexpr int64_t longestHandshakePause = 1000 * milliseconds;
constexpr uint32_t closeTries = 4;
// Longer than a message and a delayed acknowledgement take on most networks; a longer way costs needless repetition, never
// correctness.
constexpr int64_t firstRetransmitPause = 250 * milliseconds;
constexpr int64_t longestRetransmitPause = 2000 * milliseconds;
constexpr size_t repeatedAtOnce = 64;  // messages that one expired timer sends again
// How long an acknowledgement may wait for company, and how much of it.
constexpr int64_t acknowledgeWithin = 20 * milliseconds;
constexpr uint32_t acknowledgeEvery = 32;
constexpr int64_t crowdedPause = 5 * milliseconds;
constexpr uint32_t probesBeforeLoss = 3;
constexpr uint64_t overhead = 256;  // bytes that a message that waits takes beyond its image, roughly

}  // namespace

Machine::Machine(const Settings& settings) noexcept : settings_(settings), state_(State::accepting) {}

Machine::Machine(const Settings& settings, uint64_t session, std::string own, std::string peer, int64_t now) noexcept
    : settings_(settings),
      state_(State::connecting),
      session_(session),
      own_(std::move(own)),
      peer_(std::move(peer)),
      handshakeAt_(now),
      handshakePause_(firstHandshakePause) {}

uint64_t Machine::weightOf(const message::ContentRef& content) noexcept {
    return content.byteSize() + overhead;
}

int64_t Machine::due() const noexcept {
    switch (state_) {
        case State::connecting:
        case State::confirming:
        case State::closing:
            return handshakeAt_;
        case State::up:
        case State::draining:
            return std::min({retransmitAt_, acknowledgeAt_, pingAt_, drainUntil_});
        default:
            return INT64_MAX;
    }
}

void Machine::emit(Kind kind, uint64_t sequence, Output& out) {
    Outgoing outgoing;
    outgoing.frame.kind = kind;
    outgoing.frame.session = session_;
    outgoing.frame.sequence = sequence;
    outgoing.frame.acknowledged = expected_ - 1;
    if (kind == Kind::connect) outgoing.frame.from = own_;
    out.frames.push_back(std::move(outgoing));
    // Every frame acknowledges, but only this one tells of a gap.
    if (talking() && early_.empty()) {
        acknowledgeAt_ = INT64_MAX;
        countSinceAck_ = 0;
        bytesSinceAck_ = 0;
    }
}

void Machine::emitData(const Sent& sent, Output& out) {
    emit(Kind::data, sent.sequence, out);
    out.frames.back().frame.content = sent.content;
}

void Machine::emitAck(Output& out) {
    emit(Kind::ack, early_.empty() ? 0 : 1, out);
    acknowledgeAt_ = INT64_MAX;
    countSinceAck_ = 0;
    bytesSinceAck_ = 0;
}

void Machine::beginTalking(int64_t now, Output& out) {
    state_ = State::up;
    heard_ = now;
    probes_ = 0;
    pingAt_ = now + std::min<int64_t>(settings_.lostAfter / 4, 1000 * milliseconds);
    out.connected = true;
}

void Machine::endTalking(State state, const char* reason, Output& out) {
    out.undelivered = unacknowledged_.size() + waiting_.size();
    if (state == State::lost && state_ != State::draining && state_ != State::closing) {
        out.lost = true;
        reason_ = reason;
        state_ = State::lost;
    } else {
        state_ = State::done;
    }
    unacknowledged_.clear();
    waiting_.clear();
    early_.clear();
    unacknowledgedBytes_ = waitingBytes_ = earlyBytes_ = 0;
}

void Machine::setRetransmission(int64_t now) noexcept {
    retransmitPause_ = firstRetransmitPause;
    retransmitAt_ = unacknowledged_.empty() ? INT64_MAX : now + retransmitPause_;
}

void Machine::pump(int64_t now, Output& out) {
    const bool idle = unacknowledged_.empty();
    while (!waiting_.empty() && unacknowledged_.size() < settings_.windowMessages &&
           (unacknowledged_.empty() || unacknowledgedBytes_ < settings_.windowBytes)) {
        const uint64_t weight = weightOf(waiting_.front());
        unacknowledged_.push_back({lastSequence_ + 1, waiting_.front()});
        waiting_.pop_front();
        ++lastSequence_;
        waitingBytes_ -= weight;
        unacknowledgedBytes_ += weight;
        emitData(unacknowledged_.back(), out);
    }
    if (idle) setRetransmission(now);
}

quorl_status Machine::send(message::ContentRef content, int64_t now, Output& out) {
    if (state_ != State::up) return QUORL_VC_NOT_CONNECTED;
    const uint64_t weight = weightOf(content);
    if (!hasRoom() && waitingBytes_ + weight > settings_.waitingBytes) return QUORL_QUEUE_LIMIT;
    waiting_.push_back(std::move(content));
    waitingBytes_ += weight;
    pump(now, out);
    return QUORL_OK;
}

void Machine::onConnect(Frame& frame, int64_t now, Output& out) {
    if (state_ == State::accepting) {
        session_ = frame.session;
        peer_ = std::move(frame.from);
        state_ = State::confirming;
        heard_ = now;
        handshakePause_ = firstHandshakePause;
    } else if (frame.session != session_ || (state_ != State::confirming && state_ != State::up)) {
        Outgoing refusal;
        refusal.frame.kind = Kind::refuse;
        refusal.frame.session = frame.session;
        refusal.to = std::move(frame.from);
        out.frames.push_back(std::move(refusal));
        return;
    }
    if (state_ == State::confirming) handshakeAt_ = now + handshakePause_;
    emit(Kind::accept, 0, out);
}

void Machine::onAcknowledged(uint64_t upTo, bool gap, int64_t now, Output& out) {
    bool progress = false;
    while (!unacknowledged_.empty() && unacknowledged_.front().sequence <= upTo) {
        unacknowledgedBytes_ -= weightOf(unacknowledged_.front().content);
        unacknowledged_.pop_front();
        progress = true;
    }
    if (progress) setRetransmission(now);
    pump(now, out);
    if (!gap || unacknowledged_.empty()) return;
    const Sent& missing = unacknowledged_.front();
    if (missing.sequence != upTo + 1 || missing.sequence == repaired_) return;
    repaired_ = missing.sequence;
    emitData(missing, out);
}

void Machine::onData(Frame& frame, int64_t now, Output& out) {
    const uint64_t sequence = frame.sequence;
    if (sequence > expected_) {
        // What lies further ahead than any sender may go is not kept; nor is more than two windows.
        if (sequence - expected_ < 2ull * settings_.windowMessages && earlyBytes_ < 2 * settings_.windowBytes) {
            const uint64_t weight = weightOf(frame.content);
            if (early_.try_emplace(sequence, std::move(frame.content)).second) earlyBytes_ += weight;
        }
        emitAck(out);
        return;
    }
    if (sequence < expected_) {
        emitAck(out);
        return;
    }
    // A closed end acknowledges what nobody listens to any more, so that the peer comes to its end too.
    const auto take = [&](message::ContentRef& content) {
        const uint64_t weight = weightOf(content);
        if (state_ == State::up) out.deliveries.push_back(std::move(content));
        ++expected_;
        ++countSinceAck_;
        bytesSinceAck_ += weight;
    };
    take(frame.content);
    bool repairedGap = false;
    for (auto next = early_.begin(); next != early_.end() && next->first == expected_; next = early_.begin()) {
        earlyBytes_ -= weightOf(next->second);
        take(next->second);
        early_.erase(next);
        repairedGap = true;
    }
    if (repairedGap || !early_.empty() || countSinceAck_ >= acknowledgeEvery ||
        bytesSinceAck_ >= settings_.windowBytes / 4) {
        emitAck(out);
    } else {
        acknowledgeAt_ = std::min(acknowledgeAt_, now + acknowledgeWithin);
    }
    leaveIfAllCame(out);
}

void Machine::leaveIfAllCame(Output& out) {
    if (peerClosed_ && expected_ > peerLast_) endTalking(State::lost, "the peer closed the circuit", out);
}

void Machine::onClose(uint64_t last, Output& out) {
    emit(Kind::closed, 0, out);
    if (state_ != State::up) return endTalking(State::lost, "the peer closed the circuit", out);
    peerClosed_ = true;
    peerLast_ = last;
    leaveIfAllCame(out);
}

void Machine::receive(Frame frame, int64_t now, Output& out) {
    if (frame.kind == Kind::connect) {
        // A connecting end is asked by nobody that knows the protocol.
        if (own_.empty()) onConnect(frame, now, out);
        return;
    }
    if (frame.session != session_ || state_ == State::accepting || state_ == State::lost || state_ == State::done)
        return;
    if (state_ == State::connecting) {
        if (frame.kind == Kind::refuse)
            return endTalking(State::lost, "the accepting end refused: it has, or had, another peer", out);
        if (frame.kind != Kind::accept) return;
        beginTalking(now, out);
        return emitAck(out);
    }
    if (state_ == State::confirming) {
        if (frame.kind == Kind::close || frame.kind == Kind::refuse) {
            state_ = State::accepting;
            return;
        }
        beginTalking(now, out);
    }
    heard_ = now;
    probes_ = 0;
    if (frame.kind == Kind::close) return onClose(frame.sequence, out);
    if (state_ == State::closing) {
        if (frame.kind == Kind::closed || frame.kind == Kind::refuse) endTalking(State::done, "", out);
        return;
    }
    if (frame.acknowledged <= lastSequence_) {
        onAcknowledged(frame.acknowledged, frame.kind == Kind::ack && frame.sequence == 1, now, out);
    }
    switch (frame.kind) {
        case Kind::data:
            onData(frame, now, out);
            break;
        case Kind::accept:  // the acknowledgement that answered the first one was lost
        case Kind::ping:
            emitAck(out);
            break;
        case Kind::refuse:
            endTalking(State::lost, "the peer knows of no such circuit any more", out);
            break;
        default:
            break;
    }
    finishDraining(now, out);
}

void Machine::finishDraining(int64_t now, Output& out) {
    if (state_ != State::draining || !unacknowledged_.empty() || !waiting_.empty()) return;
    emit(Kind::close, lastSequence_, out);
    state_ = State::closing;
    handshakes_ = 1;
    handshakePause_ = firstHandshakePause;
    handshakeAt_ = now + handshakePause_;
}

void Machine::tick(int64_t now, Output& out) {
    if (now < due()) return;
    switch (state_) {
        case State::connecting:
        case State::confirming:
        case State::closing:
            if (state_ == State::confirming && now - heard_ >= settings_.lostAfter) {
                state_ = State::accepting;
                return;
            }
            if (state_ == State::closing && ++handshakes_ > closeTries) return endTalking(State::done, "", out);
            handshakeAt_ = now + handshakePause_;
            handshakePause_ = std::min(handshakePause_ * 2, longestHandshakePause);
            if (state_ == State::closing) return emit(Kind::close, lastSequence_, out);
            return emit(state_ == State::connecting ? Kind::connect : Kind::accept, 0, out);
        case State::up:
        case State::draining:
            break;
        default:
            return;
    }
    if (now - heard_ >= settings_.lostAfter && probes_ >= probesBeforeLoss)
        return endTalking(
            State::lost,
            peerClosed_ ? "the peer closed the circuit, and some of its messages are lost" : "the peer is silent", out);
    if (now >= drainUntil_) {
        emit(Kind::close, lastSequence_, out);
        return endTalking(State::done, "", out);
    }
    if (now >= acknowledgeAt_) emitAck(out);
    if (now >= retransmitAt_) {
        retransmitPause_ = std::min(retransmitPause_ * 2, longestRetransmitPause);
        retransmitAt_ = now + retransmitPause_;
        ++probes_;
        repaired_ = 0;
        const size_t count = std::min(unacknowledged_.size(), repeatedAtOnce);
        for (size_t i = 0; i < count; ++i) emitData(unacknowledged_[i], out);
    }
    if (now >= pingAt_) {
        pingAt_ = now + std::min<int64_t>(settings_.lostAfter / 4, 1000 * milliseconds);
        ++probes_;
        emit(Kind::ping, 0, out);
    }
}

void Machine::repeatSoon(int64_t now) noexcept {
    if (talking() && !unacknowledged_.empty()) retransmitAt_ = std::min(retransmitAt_, now + crowdedPause);
}

void Machine::close(int64_t now, Output& out) {
    switch (state_) {
        case State::connecting:
            emit(Kind::close, 0, out);
            return endTalking(State::done, "", out);
        case State::confirming:
            emit(Kind::refuse, 0, out);
            return endTalking(State::done, "", out);
        case State::up:
            state_ = State::draining;
            drainUntil_ = now + settings_.lostAfter;
            return finishDraining(now, out);
        case State::draining:
        case State::closing:
            return;
        default:
            return endTalking(State::done, "", out);
    }
}

void Machine::abandon(const char* reason, Output& out) {
    switch (state_) {
        case State::connecting:
            emit(Kind::close, 0, out);
            break;
        case State::confirming:
            emit(Kind::refuse, 0, out);
            break;
        case State::up:
        case State::draining:
            for (const auto& content : waiting_) emitData({++lastSequence_, content}, out);
            emit(Kind::close, lastSequence_, out);
            break;
        default:
            break;
    }
    fail(reason, out);
}

void Machine::fail(const char* reason, Output& out) {
    if (state_ != State::lost && state_ != State::done) endTalking(State::lost, reason, out);
}

}  // namespace quorl::transport::circuit
