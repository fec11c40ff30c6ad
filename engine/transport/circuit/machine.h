// The protocol of one end of a circuit, without input and output: frames, calls and the time go in; frames, messages for
// the program and changes of state come out. Whoever drives it serializes the calls.
//
//     Output out;
//     machine.receive(std::move(frame), now, out);
//     for (Outgoing& o : out.frames) transmit(o.frame, o.to.empty() ? machine.peer() : o.to);
//     for (auto& content : out.deliveries) deliver(content);
//     ... and machine.tick(now, out) when machine.due() has come
//
// The way below may be slow, and still lose nothing. So time counts, for a message to be missed and for a peer to be silent, only
// as far as the way below says that what was sent by then has passed; and bytes that come in count as hearing the peer. A message
// that is missed all the same is sent again by itself first, and others behind it only as the peer's answers show that they are
// missing too; so does the answer to a ping, of what was sent before the ping.
//
// Times are nanoseconds of one clock that does not go back. Functions that may throw throw std::bad_alloc; what they were
// doing is then as if a frame had been lost.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "message/delivery.h"
#include "transport/circuit/frame.h"
#include "transport/circuit/round_trip.h"
#include "transport/passage.h"

namespace quorl::transport::circuit {

struct Settings {
    int64_t lostAfter = 10'000'000'000;   // of silence
    uint32_t windowMessages = 256;        // sent and not acknowledged, at most
    uint64_t windowBytes = 4u << 20;      // the same in bytes; one message always fits
    uint64_t waitingBytes = 64ull << 20;  // of messages that wait for the window
    bool lossless = false;                // the way below is, see Passage
};

struct Outgoing {
    Frame frame;
    std::string to;  // empty: the peer
};

// What a step has for the program and for whoever keeps the machine.
struct News {
    std::vector<message::ContentRef> deliveries;  // in order
    bool connected = false;                       // the circuit came up
    bool lost = false;                            // it will not come up any more
    bool done = false;                            // nothing remains to be done: the machine may go
    uint64_t undelivered = 0;                     // at the end: messages that the peer has not acknowledged
    const char* reason = "";                      // when lost: why; static text
};

struct Output : News {
    using Rest = News;

    std::vector<Outgoing> frames;

    void clear() noexcept {
        frames.clear();
        static_cast<News&>(*this) = {};
    }
    Rest takeRest() noexcept { return std::exchange(static_cast<News&>(*this), {}); }
};

class Machine {
  public:
    enum class State : uint8_t {
        accepting,   // nobody has asked
        confirming,  // agreed, and not heard since
        connecting,  // asking
        up,
        draining,  // closed by the program while messages are on their way
        closing,   // close sent
        lost,      // no peer any more
        done,      // nothing remains to be done
    };

    // An accepting end.
    explicit Machine(const Settings& settings);
    // A connecting end: asks peer, and hears under own.
    Machine(const Settings& settings, uint64_t session, std::string own, std::string peer, int64_t now);

    State state() const noexcept { return state_; }
    const std::string& peer() const noexcept { return peer_; }
    // Why there is no peer any more; static text.
    const char* reason() const noexcept { return reason_; }
    // When to call tick next; INT64_MAX for never.
    int64_t due() const noexcept;

    // Whether send will take the next message, whatever its size.
    bool hasRoom() const noexcept { return waitingBytes_ <= settings_.waitingBytes / 2; }

    // Takes a message, to be sent now or when the window allows. QUORL_VC_NOT_CONNECTED; QUORL_QUEUE_LIMIT: too many wait
    // already. Neither sets a detail text.
    quorl_status send(message::ContentRef content, int64_t now, Output& out);
    void receive(Frame frame, int64_t now, Output& out);
    // passage: what the transport below knows of the way of messages; that they pass, when nothing is given.
    void tick(int64_t now, const Passage& passage, Output& out);
    void tick(int64_t now, Output& out) { tick(now, Passage::open(now), out); }
    // What was given out last found no room on its way, from this frame on: it will be given out again soon.
    void repeatSoon(const Frame& first, int64_t now) noexcept;
    // When the oldest message was sent that is not acknowledged; now when there is none.
    int64_t confirmedUntil(int64_t now) const noexcept;
    // The program needs the circuit no more: what was sent is still brought home, for as long as a peer may be silent.
    void close(int64_t now, Output& out);
    // The way below is about to go: everything that waits goes out at once, unprotected.
    void abandon(const char* reason, Output& out);
    // The way below is gone.
    void fail(const char* reason, Output& out);

  private:
    struct Sent {
        uint64_t sequence;
        message::ContentRef content;
        int64_t sentAt;         // last
        bool repeated = false;  // sent more than once
    };

    static uint64_t weightOf(const message::ContentRef& content) noexcept;
    bool talking() const noexcept { return state_ == State::up || state_ == State::draining; }

    void emit(Kind kind, uint64_t sequence, Output& out);
    void emitData(Sent& sent, int64_t now, Output& out);
    void repeat(Sent& sent, int64_t now, Output& out);
    void repeatAll(int64_t sentBefore, int64_t now, Output& out);
    void sendCrowded(int64_t now, Output& out);
    void goOnRepairing(uint64_t upTo, int64_t now, Output& out);
    void emitAck(Output& out, Word word = Word::none, uint64_t ping = 0);
    void emitPing(Word word, int64_t now, Output& out);
    void beginTalking(int64_t now, Output& out);
    void endTalking(State state, const char* reason, Output& out);
    void pump(int64_t now, Output& out);
    void finishDraining(int64_t now, Output& out);
    void onConnect(Frame& frame, int64_t now, Output& out);
    void onAcknowledged(uint64_t upTo, int64_t now, Output& out);
    void onGap(uint64_t upTo, int64_t now, Output& out);
    void onBusy(int64_t now) noexcept;
    void onAnswered(uint64_t ping, bool gap, int64_t now, Output& out);
    void onMissed(int64_t now, int64_t passed, Output& out);
    void onData(Frame& frame, int64_t now, Output& out);
    void onClose(uint64_t last, Output& out);
    void leaveIfAllCame(Output& out);
    void setRetransmission(int64_t now) noexcept;
    int64_t patience() const noexcept;
    int64_t watchPeriod() const noexcept;
    int64_t watchGrid() const noexcept;
    int64_t quietPeriod() const noexcept;
    void setWatch(int64_t now) noexcept;
    void probed(int64_t now) noexcept;
    bool peerIsSilent(int64_t heardUpTo) const noexcept;
    void watch(int64_t now, const Passage& passage, Output& out);

    Settings settings_;
    State state_;
    const char* reason_ = "";
    uint64_t session_ = 0;
    std::string own_;
    std::string peer_;

    // Sending.
    uint64_t lastSequence_ = 0;
    std::deque<Sent> unacknowledged_;
    uint64_t unacknowledgedBytes_ = 0;
    std::deque<message::ContentRef> waiting_;
    uint64_t waitingBytes_ = 0;
    uint64_t repaired_ = 0;      // the last sequence that was sent again because of a gap
    uint64_t repairUpTo_ = 0;    // the last one that was on its way when one was missed; 0: none is
    uint64_t repeatedUpTo_ = 0;  // of those, the last one that was sent again
    size_t repeatNext_ = 0;      // how many are sent again when the peer has that one
    uint64_t crowdedFrom_ = 0;   // the first one that found no room on its way; 0: none
    int64_t crowdedUntil_ = INT64_MAX;
    RoundTrip roundTrip_;

    // Receiving.
    uint64_t expected_ = 1;
    std::map<uint64_t, message::ContentRef> early_;
    uint64_t earlyBytes_ = 0;
    uint32_t countSinceAck_ = 0;
    uint64_t bytesSinceAck_ = 0;
    bool peerClosed_ = false;
    uint64_t peerLast_ = 0;  // when peerClosed_: its last message

    // Times.
    int64_t heard_ = 0;           // when the peer was last heard
    uint32_t probes_ = 0;         // sent by timers since then: silence counts only when it is an answer
    int64_t askedAt_ = 0;         // when the first of them was sent
    int64_t handshakeAt_ = 0;     // next try of connect, accept or close
    int64_t handshakePause_ = 0;  // until the one after it
    uint32_t handshakes_ = 0;
    int64_t missedAt_ = INT64_MAX;      // when the first message is, by the clock of the way below
    int64_t retransmitAt_ = INT64_MAX;  // when to look at that
    int64_t acknowledgeAt_ = INT64_MAX;
    int64_t watchAt_ = INT64_MAX;           // when to look after the peer and the way below
    uint64_t pings_ = 0;                    // sent so far
    std::array<int64_t, 64> pingSentAt_{};  // of the last ones, by their numbers; 0: answered
    int64_t lossSeen_ = 0;                  // of the transport below, the last one that was dealt with
    int64_t arriving_ = 0;                  // when bytes of a message last came that was not whole
    int64_t drainUntil_ = INT64_MAX;
};

}  // namespace quorl::transport::circuit
