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
// On a network that carries fewer bytes a second, a message may be missed before it can have come; then the peer says that it is
// coming in. Nanoseconds for a byte.
constexpr int64_t perByte = 250;
constexpr int64_t shortestLook = 10 * milliseconds;
constexpr size_t repeatedAtOnce = 64;               // messages
constexpr int64_t reordering = 100 * milliseconds;  // by which frames may overtake one another
// How long an acknowledgement may wait for company, and how much of it.
constexpr int64_t acknowledgeWithin = 20 * milliseconds;
constexpr uint32_t acknowledgeEvery = 32;
constexpr int64_t crowdedPause = 5 * milliseconds;
constexpr uint32_t probesBeforeLoss = 3;
constexpr uint64_t overhead = 256;  // bytes that a message that waits takes beyond its image, roughly

}  // namespace

Machine::Machine(const Settings& settings) : settings_(settings), state_(State::accepting) {}

Machine::Machine(const Settings& settings, uint64_t session, std::string own, std::string peer, int64_t now)
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
            return std::min({retransmitAt_, acknowledgeAt_, watchAt_, drainUntil_, crowdedUntil_});
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

void Machine::emitData(Sent& sent, int64_t now, Output& out) {
    sent.sentAt = now;
    emit(Kind::data, sent.sequence, out);
    out.frames.back().frame.content = sent.content;
}

void Machine::repeat(Sent& sent, int64_t now, Output& out) {
    sent.repeated = true;
    emitData(sent, now, out);
}

void Machine::repeatAll(int64_t sentBefore, int64_t now, Output& out) {
    for (Sent& sent : unacknowledged_) {
        if (sent.sentAt < sentBefore && (crowdedFrom_ == 0 || sent.sequence < crowdedFrom_)) repeat(sent, now, out);
    }
    repairUpTo_ = 0;
    setRetransmission(now);
}

void Machine::emitAck(Output& out, Word word, uint64_t ping) {
    if (word == Word::none && !early_.empty()) word = Word::gap;
    emit(Kind::ack, sequenceOf(word, ping), out);
    acknowledgeAt_ = INT64_MAX;
    countSinceAck_ = 0;
    bytesSinceAck_ = 0;
}

void Machine::emitPing(Word word, int64_t now, Output& out) {
    ++pings_;
    pingSentAt_[pings_ % pingSentAt_.size()] = now;
    emit(Kind::ping, sequenceOf(word, pings_), out);
}

void Machine::beginTalking(int64_t now, Output& out) {
    state_ = State::up;
    heard_ = now;
    probes_ = 0;
    setWatch(now);
    out.connected = true;
}

// How often to look after a peer that owes an answer, and at what the way below says.
int64_t Machine::watchPeriod() const noexcept {
    return std::min<int64_t>(settings_.lostAfter / 4, 1000 * milliseconds);
}

// Times to look are rounded to multiples of it.
int64_t Machine::watchGrid() const noexcept {
    return watchPeriod() / 4;
}

// How long the peer may say nothing before it is asked, when nothing is expected of it. On a way that loses nothing only want of
// memory can have cost its last words. The accepting end waits a little longer: to be asked is to hear the peer.
int64_t Machine::quietPeriod() const noexcept {
    const int64_t asked = settings_.lossless ? 6 * settings_.lostAfter : settings_.lostAfter / 4;
    return own_.empty() ? asked + watchPeriod() / 2 : asked;
}

// Circuits look at the same moments, so that many of them wake the thread as often as few.
void Machine::setWatch(int64_t now) noexcept {
    const int64_t period = watchPeriod();
    const int64_t grid = watchGrid();
    const int64_t quietUntil = heard_ + quietPeriod();
    int64_t at = now + period;
    if (quietUntil > now + grid) at = settings_.lossless ? quietUntil : std::min(at, quietUntil);
    watchAt_ = (at + grid / 2) / grid * grid;
}

// Something was sent that the peer answers.
void Machine::probed(int64_t now) noexcept {
    if (probes_++ == 0) askedAt_ = now;
}

// However long nothing was said: the peer is silent from when it was asked, or would have been on any other way.
bool Machine::peerIsSilent(int64_t heardUpTo) const noexcept {
    const int64_t since = std::max(heard_, askedAt_ - settings_.lostAfter / 4);
    return probes_ >= probesBeforeLoss && heardUpTo - since >= settings_.lostAfter;
}

void Machine::watch(int64_t now, const Passage& passage, Output& out) {
    const bool busy = passage.arriving > arriving_ || now - passage.handedOn > 500 * milliseconds;
    arriving_ = passage.arriving;
    setWatch(now);
    if (!busy && unacknowledged_.empty() && now + watchGrid() / 2 - heard_ < quietPeriod()) return;
    probed(now);
    emitPing(busy ? Word::busy : Word::none, now, out);
}

void Machine::endTalking(State state, const char* reason, Output& out) {
    out.undelivered = unacknowledged_.size() + waiting_.size();
    if (state == State::lost && state_ != State::draining && state_ != State::closing) {
        out.lost = true;
        out.reason = reason_ = reason;
        state_ = State::lost;
    } else {
        out.done = true;
        state_ = State::done;
    }
    unacknowledged_.clear();
    waiting_.clear();
    early_.clear();
    unacknowledgedBytes_ = waitingBytes_ = earlyBytes_ = 0;
    crowdedFrom_ = 0;
    crowdedUntil_ = INT64_MAX;
}

// How long the first message that is not acknowledged is waited for.
int64_t Machine::patience() const noexcept {
    return roundTrip_.timeout() + static_cast<int64_t>(weightOf(unacknowledged_.front().content)) * perByte;
}

void Machine::setRetransmission(int64_t now) noexcept {
    retransmitAt_ = missedAt_ = unacknowledged_.empty() ? INT64_MAX : now + patience();
}

int64_t Machine::confirmedUntil(int64_t now) const noexcept {
    return unacknowledged_.empty() ? now : std::min(now, unacknowledged_.front().sentAt);
}

void Machine::pump(int64_t now, Output& out) {
    const bool idle = unacknowledged_.empty();
    while (crowdedFrom_ == 0 && !waiting_.empty() && unacknowledged_.size() < settings_.windowMessages &&
           (unacknowledged_.empty() || unacknowledgedBytes_ < settings_.windowBytes)) {
        const uint64_t weight = weightOf(waiting_.front());
        unacknowledged_.push_back({lastSequence_ + 1, waiting_.front(), now});
        waiting_.pop_front();
        ++lastSequence_;
        waitingBytes_ -= weight;
        unacknowledgedBytes_ += weight;
        emitData(unacknowledged_.back(), now, out);
    }
    if (idle) setRetransmission(now);
}

// What found no room, once more; no more at once than a queue of the way below may be expected to have room for.
void Machine::sendCrowded(int64_t now, Output& out) {
    const uint64_t from = std::exchange(crowdedFrom_, 0);
    crowdedUntil_ = INT64_MAX;
    size_t count = 0;
    for (Sent& sent : unacknowledged_) {
        if (sent.sequence < from) continue;
        if (++count > repeatedAtOnce) {
            crowdedFrom_ = sent.sequence;
            crowdedUntil_ = now + crowdedPause;
            break;
        }
        emitData(sent, now, out);
    }
    if (retransmitAt_ != INT64_MAX) setRetransmission(now);
    pump(now, out);
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

void Machine::onAcknowledged(uint64_t upTo, int64_t now, Output& out) {
    bool progress = false;
    bool measurable = true;
    int64_t sentAt = now;
    while (!unacknowledged_.empty() && unacknowledged_.front().sequence <= upTo) {
        const Sent& sent = unacknowledged_.front();
        unacknowledgedBytes_ -= weightOf(sent.content);
        measurable = measurable && !sent.repeated;
        sentAt = sent.sentAt;
        unacknowledged_.pop_front();
        progress = true;
    }
    if (progress) {
        if (measurable) roundTrip_.sample(now - sentAt);
        if (state_ == State::draining) drainUntil_ = now + settings_.lostAfter;
        setRetransmission(now);
        if (crowdedFrom_ != 0 && crowdedFrom_ <= upTo) crowdedFrom_ = upTo + 1;
    }
    pump(now, out);
    if (progress && repairUpTo_ != 0) goOnRepairing(upTo, now, out);
}

// Some of what was on its way was missed. If the peer has exactly what was repeated, those behind are missing too, and go twice
// as many at a time; if it has more, what was thought lost was only late.
void Machine::goOnRepairing(uint64_t upTo, int64_t now, Output& out) {
    if (upTo < repeatedUpTo_) return;
    if (upTo > repeatedUpTo_ || upTo >= repairUpTo_) {
        repairUpTo_ = 0;
        return;
    }
    size_t count = 0;
    for (Sent& sent : unacknowledged_) {
        if (count == repeatNext_ || sent.sequence > repairUpTo_ || (crowdedFrom_ != 0 && sent.sequence >= crowdedFrom_))
            break;
        repeat(sent, now, out);
        repeatedUpTo_ = sent.sequence;
        ++count;
    }
    repeatNext_ = std::min(2 * repeatNext_, repeatedAtOnce);
}

void Machine::onGap(uint64_t upTo, int64_t now, Output& out) {
    if (unacknowledged_.empty()) return;
    Sent& missing = unacknowledged_.front();
    if (missing.sequence != upTo + 1 || missing.sequence == repaired_) return;
    repaired_ = missing.sequence;
    repeat(missing, now, out);
    setRetransmission(now);
}

// The peer had the ping, but not what was sent before it, and is not acknowledged now; if there is a gap, it may have some of it.
void Machine::onAnswered(uint64_t ping, bool gap, int64_t now, Output& out) {
    if (ping == 0 || ping > pings_ || pings_ - ping >= pingSentAt_.size()) return;
    const int64_t sentAt = std::exchange(pingSentAt_[ping % pingSentAt_.size()], 0);
    if (sentAt == 0) return;
    roundTrip_.sample(now - sentAt);
    size_t count = gap ? 1 : repeatedAtOnce;
    bool any = false;
    for (Sent& sent : unacknowledged_) {
        if (count-- == 0 || sent.sentAt + reordering >= sentAt || (crowdedFrom_ != 0 && sent.sequence >= crowdedFrom_))
            break;
        repeat(sent, now, out);
        any = true;
    }
    if (any) setRetransmission(now);
}

// The peer is taking in what takes long to come.
void Machine::onBusy(int64_t now) noexcept {
    if (!unacknowledged_.empty()) retransmitAt_ = missedAt_ = std::max(missedAt_, now + patience());
    if (state_ == State::draining) drainUntil_ = now + settings_.lostAfter;
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
        onAcknowledged(frame.acknowledged, now, out);
        if (frame.kind == Kind::ack) {
            const Word word = wordOf(frame.sequence);
            if (word == Word::gap) onGap(frame.acknowledged, now, out);
            if (word == Word::resend) repeatAll(now, now, out);
            onAnswered(pingOf(frame.sequence), word == Word::gap, now, out);
        }
    }
    switch (frame.kind) {
        case Kind::data:
            onData(frame, now, out);
            break;
        case Kind::ping:
            if (wordOf(frame.sequence) == Word::busy) onBusy(now);
            emitAck(out, Word::none, pingOf(frame.sequence));
            break;
        case Kind::accept:  // the acknowledgement that answered the first one was lost
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

void Machine::tick(int64_t now, const Passage& passage, Output& out) {
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
    if (passage.arriving > heard_) {
        heard_ = passage.arriving;
        probes_ = 0;
    }
    if (peerIsSilent(std::min(now, passage.handedOn)))
        return endTalking(
            State::lost,
            peerClosed_ ? "the peer closed the circuit, and some of its messages are lost" : "the peer is silent", out);
    if (now >= drainUntil_) {
        emit(Kind::close, lastSequence_, out);
        return endTalking(State::done, "", out);
    }
    if (passage.lossAt > lossSeen_) {
        lossSeen_ = passage.lossAt;
        repeatAll(passage.lossAt, now, out);
        emitAck(out, Word::resend);
    }
    if (now >= acknowledgeAt_) emitAck(out);
    if (now >= crowdedUntil_) sendCrowded(now, out);
    if (now >= retransmitAt_) onMissed(now, passage.passed, out);
    if (now >= watchAt_) watch(now, passage, out);
}

// The first message that is not acknowledged is due, if what was sent so far has passed the way below.
void Machine::onMissed(int64_t now, int64_t passed, Output& out) {
    if (passed < missedAt_) {
        retransmitAt_ = now + std::clamp(missedAt_ - passed, shortestLook, 1000 * milliseconds);
        return;
    }
    Sent& first = unacknowledged_.front();
    probed(now);
    repaired_ = 0;
    repairUpTo_ = lastSequence_;
    repeatedUpTo_ = first.sequence;
    repeatNext_ = 2;
    roundTrip_.backOff();
    if (crowdedFrom_ == 0 || first.sequence < crowdedFrom_) repeat(first, now, out);
    setRetransmission(now);
}

void Machine::repeatSoon(const Frame& first, int64_t now) noexcept {
    if (!talking()) return;
    if (first.kind == Kind::data && (crowdedFrom_ == 0 || first.sequence < crowdedFrom_)) crowdedFrom_ = first.sequence;
    if (crowdedFrom_ != 0) crowdedUntil_ = now + crowdedPause;
    acknowledgeAt_ = std::min(acknowledgeAt_, now + crowdedPause);
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
            for (Sent& sent : unacknowledged_) {
                if (crowdedFrom_ != 0 && sent.sequence >= crowdedFrom_) emitData(sent, sent.sentAt, out);
            }
            for (const auto& content : waiting_) {
                Sent last{++lastSequence_, content, 0};
                emitData(last, 0, out);
            }
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
