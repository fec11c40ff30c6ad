// The protocol of one end of a circuit, without input and output: frames, calls and the time go in; frames, messages for
// the program and changes of state come out. Whoever drives it serializes the calls.
//
//     Output out;
//     machine.receive(std::move(frame), now, out);
//     for (Outgoing& o : out.frames) transmit(o.frame, o.to.empty() ? machine.peer() : o.to);
//     for (auto& content : out.deliveries) deliver(content);
//     ... and machine.tick(now, out) when machine.due() has come
//
// Times are nanoseconds of one clock that does not go back. Functions that may throw throw std::bad_alloc; what they were
// doing is then as if a frame had been lost.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "message/delivery.h"
#include "transport/circuit/frame.h"

namespace quorl::transport::circuit {

struct Settings {
    int64_t lostAfter = 10'000'000'000;   // of silence
    uint32_t windowMessages = 256;        // sent and not acknowledged, at most
    uint64_t windowBytes = 4u << 20;      // the same in bytes; one message always fits
    uint64_t waitingBytes = 64ull << 20;  // of messages that wait for the window
};

struct Outgoing {
    Frame frame;
    std::string to;  // empty: the peer
};

struct Output {
    std::vector<Outgoing> frames;
    std::vector<message::ContentRef> deliveries;  // in order
    bool connected = false;                       // the circuit came up
    bool lost = false;                            // it will not come up any more
    uint64_t undelivered = 0;                     // at the end: messages that the peer has not acknowledged

    void clear() noexcept {
        frames.clear();
        deliveries.clear();
        connected = lost = false;
        undelivered = 0;
    }
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
    explicit Machine(const Settings& settings) noexcept;
    // A connecting end: asks peer, and hears under own.
    Machine(const Settings& settings, uint64_t session, std::string own, std::string peer, int64_t now) noexcept;

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
    void tick(int64_t now, Output& out);
    // What was given out last found no room on its way: it will be given out again before it is missed.
    void repeatSoon(int64_t now) noexcept;
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
    };

    static uint64_t weightOf(const message::ContentRef& content) noexcept;
    bool talking() const noexcept { return state_ == State::up || state_ == State::draining; }

    void emit(Kind kind, uint64_t sequence, Output& out);
    void emitData(const Sent& sent, Output& out);
    void emitAck(Output& out);
    void beginTalking(int64_t now, Output& out);
    void endTalking(State state, const char* reason, Output& out);
    void pump(int64_t now, Output& out);
    void finishDraining(int64_t now, Output& out);
    void onConnect(Frame& frame, int64_t now, Output& out);
    void onAcknowledged(uint64_t upTo, bool gap, int64_t now, Output& out);
    void onData(Frame& frame, int64_t now, Output& out);
    void onClose(uint64_t last, Output& out);
    void leaveIfAllCame(Output& out);
    void setRetransmission(int64_t now) noexcept;

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
    uint64_t repaired_ = 0;  // the last sequence that was sent again because of a gap

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
    int64_t handshakeAt_ = 0;     // next try of connect, accept or close
    int64_t handshakePause_ = 0;  // until the one after it
    uint32_t handshakes_ = 0;
    int64_t retransmitAt_ = INT64_MAX;
    int64_t retransmitPause_ = 0;
    int64_t acknowledgeAt_ = INT64_MAX;
    int64_t pingAt_ = INT64_MAX;
    int64_t drainUntil_ = INT64_MAX;
};

}  // namespace quorl::transport::circuit
