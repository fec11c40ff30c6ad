// Fuzz target: the two ends of a circuit over a network that loses, repeats and reorders what the input says, beside a
// stranger who sends whatever frames the input says, and a clock that goes as the input says.
//
// A message carries its own number as bytes. What an end delivers is held against what it was given: the n-th delivery is a
// message that came under the number n.
#include <algorithm>
#include <array>
#include <deque>
#include <map>

#include "message/content.h"
#include "message/wire.h"
#include "support.h"
#include "transport/circuit/machine.h"

namespace {

using namespace quorl;
using namespace quorl::fuzz;
using namespace quorl::transport::circuit;
using quorl::transport::Passage;
using State = Machine::State;
namespace wire = message::wire;

constexpr int64_t milliseconds = 1'000'000;
constexpr uint64_t windowBytes = 2500;
constexpr Settings settings{1000 * milliseconds, 8, windowBytes, 12000};
constexpr uint64_t overhead = 256;  // that a message counts beyond its image
constexpr uint64_t largest = 1500;  // bytes of opaque content that this target sends
constexpr size_t largestAsked = 512u << 10;

message::ContentRef contentOf(std::string_view bytes) {
    quorlMsg message = nullptr;
    require(quorlMsg_Create(&message) == QUORL_OK, "no message can be made");
    require(quorlMsg_SetSendSubject(message, "a.b") == QUORL_OK, "a subject cannot be set");
    require(quorlMsg_AddOpaqueEx(message, nullptr, bytes.data(), static_cast<quorl_u32>(bytes.size()), 1) == QUORL_OK,
            "a field cannot be added");
    message::ContentRef content;
    require(message::snapshot(message, &content) == QUORL_OK, "a message has no content");
    quorlMsg_Destroy(message);
    // Some have attributes: those that begin with a bit that half of all bytes have.
    if (!bytes.empty() && (bytes[0] & 1) != 0) {
        const auto* from = reinterpret_cast<const uint8_t*>(bytes.data());
        require(message::withAttributes(content, {from, std::min(bytes.size(), message::attributesMax)}, &content) ==
                    QUORL_OK,
                "attributes cannot be added");
    }
    return content;
}

bool same(const message::ContentRef& a, const message::ContentRef& b) {
    if (!a || !b) return !a && !b;
    return a.sendSubject() == b.sendSubject() && a.replySubject() == b.replySubject() && a.byteSize() == b.byteSize() &&
           std::memcmp(a.bytes(), b.bytes(), a.byteSize()) == 0 && std::ranges::equal(a.attributes(), b.attributes());
}

// Through a message and back, as frames travel.
Frame carried(const Frame& frame, bool* arrived) {
    message::ContentRef wire;
    require(encode(frame, "_INBOX.c.1", &wire) == QUORL_OK, "a frame cannot be written");
    quorlMsg message = nullptr;
    require(message::handOver(wire, &message) == QUORL_OK, "a frame is no message");
    Frame read;
    *arrived = decode(message, &read);
    quorlMsg_Destroy(message);
    return read;
}

// An end, and what is known of it from outside.
class End {
  public:
    explicit End(Machine made) : machine_(std::move(made)), before_(machine_.state()) {}

    Machine& machine() { return machine_; }

    void given(const Frame& frame) {
        if (frame.kind == Kind::data) offered_[frame.sequence].push_back(frame.content);
        // Before anybody talks nothing can be acknowledged.
        if (frame.acknowledged <= sent_ && frame.acknowledged > confirmed_) confirmed_ = frame.acknowledged;
    }
    void accepted() { ++accepted_; }

    // After each call.
    void look(const Output& out, bool abandoned) {
        for (const message::ContentRef& content : out.deliveries) {
            const auto at = offered_.find(++delivered_);
            require(at != offered_.end(), "a message is delivered that did not come under its number");
            bool found = false;
            for (const message::ContentRef& offer : at->second) found = found || offer.get() == content.get();
            require(found, "another message is delivered than the one that came under its number");
        }
        for (const Outgoing& outgoing : out.frames) {
            const Frame& frame = outgoing.frame;
            if (!outgoing.to.empty()) {
                require(frame.kind == Kind::refuse, "a frame of a circuit goes to a stranger");
                continue;
            }
            require(frame.acknowledged <= offered(), "more is acknowledged than was there");
            require(frame.acknowledged >= acknowledged_, "an acknowledgement is taken back");
            acknowledged_ = frame.acknowledged;
            if (frame.kind != Kind::data) continue;
            require(frame.sequence != 0 && frame.sequence <= sent_ + 1, "messages are numbered with a gap");
            if (frame.sequence > sent_) sent_ = frame.sequence;
            require(abandoned || frame.sequence <= confirmed_ + settings.windowMessages, "the window is not kept");
        }
        require(sent_ <= accepted_, "more messages go out than were given");
        require(out.undelivered <= accepted_, "more messages are undelivered than were given");
        connected_ += out.connected;
        lost_ += out.lost;
        require(connected_ <= 1 && lost_ <= 1, "a circuit comes up, or is lost, twice");
        const State state = machine_.state();
        require(!out.lost || state == State::lost, "a circuit is lost and goes on");
        require(state == before_ || follows(before_, state), "a state follows that does not follow");
        before_ = state;
        const bool ended = state == State::lost || state == State::done;
        require(!ended || machine_.due() == INT64_MAX, "a circuit that has ended waits for a time");
    }

    // What the machine holds of the messages that it was given and that nobody else has. elsewhere: how often this target
    // holds contents itself.
    void lookAtMemory(const std::map<message::Content*, uint32_t>& elsewhere) {
        std::map<message::Content*, uint32_t> ours;
        for (const auto& [sequence, contents] : offered_) {
            for (const message::ContentRef& content : contents) ++ours[content.get()];
        }
        uint64_t held = 0;
        uint64_t bytes = 0;
        for (const auto& [content, references] : ours) {
            const auto at = elsewhere.find(content);
            if (content->references.load() == references + (at != elsewhere.end() ? at->second : 0)) continue;
            ++held;
            bytes += content->size + overhead;
        }
        require(held <= 2 * settings.windowMessages, "more messages are kept ahead of their turn than may be");
        require(bytes <= 2 * windowBytes + largest + 2 * overhead,
                "more bytes are kept ahead of their turn than may be");
        if (before_ == State::lost || before_ == State::done)
            require(held == 0, "a circuit that has ended keeps messages");
    }

    uint64_t delivered() const { return delivered_; }
    uint64_t sent() const { return sent_; }
    uint64_t acceptedInAll() const { return accepted_; }
    State state() const { return machine_.state(); }

  private:
    // Numbers without a gap from 1 on that were offered, at most.
    uint64_t offered() const {
        uint64_t number = 0;
        for (const auto& [sequence, contents] : offered_) {
            if (sequence == 0) continue;
            if (sequence != number + 1) break;
            ++number;
        }
        return number;
    }
    static bool follows(State before, State after) {
        switch (before) {
            case State::accepting:
                return after == State::confirming || after == State::lost || after == State::done;
            case State::confirming:
                return after == State::accepting || after == State::up || after == State::lost || after == State::done;
            case State::connecting:
                return after == State::up || after == State::lost || after == State::done;
            case State::up:
                return after == State::draining || after == State::closing || after == State::lost;
            case State::draining:
                return after == State::closing || after == State::done;
            case State::closing:
            case State::lost:
                return after == State::done;
            default:
                return false;
        }
    }

    Machine machine_;
    State before_;
    std::map<uint64_t, std::vector<message::ContentRef>> offered_;
    uint64_t accepted_ = 0;
    uint64_t sent_ = 0;       // highest number of a message that went out
    uint64_t confirmed_ = 0;  // of those, what the other side may be thought to have
    uint64_t acknowledged_ = 0;
    uint64_t delivered_ = 0;
    int connected_ = 0;
    int lost_ = 0;
};

class Run {
  public:
    Run(const uint8_t* data, size_t size)
        : decide_(data, size),
          ends_{End(Machine(settings)), End(Machine(settings, session, "_INBOX.c.1", "_INBOX.a.1", 0))} {}

    void run() {
        while (!decide_.empty()) {
            const size_t sender = strangers_;
            step();
            if (strangers_ != sender) {
                honest_ = false;
                lookAtMemory();
            }
            for (End& end : ends_) require(end.state() <= State::done, "a state is none");
        }
        finish();
        lookAtMemory();
    }

  private:
    static constexpr uint64_t session = 0x1122334455667788;
    struct OnItsWay {
        size_t to;
        Frame frame;
    };

    void step() {
        const uint8_t kind = decide_.byte();
        const size_t which = kind / 16 % 2;
        End& end = ends_[which];
        Output out;
        switch (kind % 16) {
            case 0:
            case 1:
            case 2: {
                const message::ContentRef content = contentOf(decide_.bytes(decide_.two() % largest));
                const quorl_status status = end.machine().send(content, now_, out);
                require(status == QUORL_OK || status == QUORL_VC_NOT_CONNECTED || status == QUORL_QUEUE_LIMIT,
                        "sending has a status that it cannot have");
                require((status == QUORL_VC_NOT_CONNECTED) == (end.state() != State::up),
                        "a circuit that is up does not take messages, or one that is not does");
                if (status == QUORL_OK) end.accepted();
                return take(which, out);
            }
            case 3:
            case 4:
            case 5:
            case 6:
                return arrive(decide_.byte());
            case 7:
                // Out of turn.
                return arrive(decide_.byte() % 2 == 0 ? way_.size() - 1 : way_.size() / 2);
            case 8:
                if (!way_.empty()) way_.erase(way_.begin() + static_cast<long>(decide_.byte() % way_.size()));
                return;
            case 9:
                if (!way_.empty() && way_.size() < 256) way_.push_back(way_[decide_.byte() % way_.size()]);
                return;
            case 10:
            case 11:
                return pass(int64_t{decide_.two()} * 100'000);
            case 12:
                return forged(which);
            case 13:
                return foreign(which);
            case 14:
                return crowd(end);
            default:
                switch (decide_.byte() % 8) {
                    case 0:
                        end.machine().abandon("the way below was closed", out);
                        return take(which, out, true);
                    case 1:
                        end.machine().fail("the way below is gone", out);
                        return take(which, out);
                    case 2:
                    case 3:
                        end.machine().close(now_, out);
                        return take(which, out);
                    default:
                        return pass(50 * milliseconds);
                }
        }
    }

    // Some of what an end gave out found no room.
    void crowd(End& end) {
        Frame frame;
        frame.kind = end.sent() != 0 ? Kind::data : Kind::ack;
        if (end.sent() != 0) frame.sequence = 1 + decide_.byte() % end.sent();
        end.machine().repeatSoon(frame, now_);
    }

    void lookAtMemory() {
        std::map<message::Content*, uint32_t> onTheWay;
        for (const OnItsWay& one : way_) {
            if (one.frame.content) ++onTheWay[one.frame.content.get()];
        }
        for (End& end : ends_) end.lookAtMemory(onTheWay);
    }

    void arrive(size_t at) {
        if (way_.empty()) return;
        at %= way_.size();
        OnItsWay next = std::move(way_[at]);
        way_.erase(way_.begin() + static_cast<long>(at));
        hand(next.to, std::move(next.frame));
    }
    void hand(size_t to, Frame frame) {
        End& end = ends_[to];
        end.given(frame);
        Output out;
        end.machine().receive(std::move(frame), now_, out);
        take(to, out);
    }

    // A frame of the right form with values of the stranger's choice, some of them near what is expected.
    void forged(size_t to) {
        Frame frame;
        frame.kind = static_cast<Kind>(1 + decide_.byte() % 8);
        const uint8_t form = decide_.byte();
        frame.session = (form & 1) != 0 ? decide_.eight() : session;
        frame.sequence = (form & 2) != 0 ? decide_.eight() : ends_[to].delivered() + decide_.byte() % 32;
        frame.acknowledged = (form & 4) != 0 ? decide_.eight() : decide_.byte() % 32;
        if (frame.kind == Kind::connect) frame.from = (form & 8) != 0 ? "_INBOX.s.9" : "_INBOX.c.1";
        if (frame.kind == Kind::data) frame.content = contentOf(decide_.bytes(decide_.two() % largest));
        ++strangers_;
        hand(to, std::move(frame));
    }
    // A message that may be a frame.
    void foreign(size_t to) {
        const std::string_view bytes = decide_.counted();
        std::string image(bytes);
        if (image.size() >= wire::headerSize) {
            auto* at = reinterpret_cast<uint8_t*>(image.data());
            wire::store(at, wire::magic);
            wire::store(at + wire::sizeAt, static_cast<uint32_t>(image.size()));
        }
        const Block block(image);
        message::ContentRef content;
        if (message::contentFromBytes(block.data(), block.size(), "_INBOX.a.1", "", &content) != QUORL_OK) return;
        quorlMsg message = nullptr;
        require(message::handOver(content, &message) == QUORL_OK, "a content is no message");
        Frame frame;
        const bool read = decode(message, &frame);
        quorlMsg_Destroy(message);
        if (!read) return;
        if (frame.content && frame.content.byteSize() > largest) return;
        ++strangers_;
        hand(to, std::move(frame));
    }

    void pass(int64_t time) {
        now_ += time;
        tick();
    }
    void tick() {
        for (size_t i = 0; i < 2; ++i) {
            if (ends_[i].machine().due() > now_) continue;
            Output out;
            ends_[i].machine().tick(now_, passage(), out);
            require(ends_[i].machine().due() > now_, "a tick leaves itself due");
            take(i, out);
        }
    }

    // Any, that the way below may tell.
    Passage passage() {
        Passage passage = Passage::open(now_);
        const uint8_t form = decide_.empty() ? 0 : decide_.byte();
        if ((form & 1) != 0) passage.passed -= int64_t{decide_.two()} * milliseconds;
        if ((form & 2) != 0) passage.handedOn -= int64_t{decide_.two()} * milliseconds;
        if ((form & 4) != 0) passage.arriving = now_ - int64_t{decide_.byte()} * milliseconds;
        if ((form & 8) != 0) passage.lossAt = now_ - int64_t{decide_.byte()} * milliseconds;
        return passage;
    }

    void take(size_t from, Output& out, bool abandoned = false) {
        ends_[from].look(out, abandoned);
        for (Outgoing& outgoing : out.frames) {
            bool arrived = false;
            Frame frame = carried(outgoing.frame, &arrived);
            require(arrived, "a frame is not what was written");
            require(frame.kind == outgoing.frame.kind && frame.session == outgoing.frame.session &&
                        frame.sequence == outgoing.frame.sequence &&
                        frame.acknowledged == outgoing.frame.acknowledged && frame.from == outgoing.frame.from &&
                        same(frame.content, outgoing.frame.content),
                    "a frame differs from what was written");
            const std::string& to = outgoing.to.empty() ? ends_[from].machine().peer() : outgoing.to;
            if (to != "_INBOX.a.1" && to != "_INBOX.c.1") continue;
            if (way_.size() < 1024) way_.push_back({to == "_INBOX.c.1" ? size_t{1} : size_t{0}, std::move(frame)});
        }
    }

    // From now on the weather is good: what two honest ends have taken over arrives, or they have given up.
    void finish() {
        for (int steps = honest_ ? 3000 : 300; steps != 0; --steps) {
            if (!way_.empty()) {
                arrive(0);
                continue;
            }
            if (ends_[0].delivered() == ends_[1].acceptedInAll() && ends_[1].delivered() == ends_[0].acceptedInAll())
                break;
            const int64_t next = std::min(ends_[0].machine().due(), ends_[1].machine().due());
            if (next == INT64_MAX) break;
            now_ = std::max(now_, next);
            tick();
        }
        way_.clear();
        if (!honest_) return;
        for (size_t i = 0; i < 2; ++i) {
            require(ends_[i].delivered() <= ends_[1 - i].acceptedInAll(), "more messages come than were sent");
            if (ends_[0].state() == State::up && ends_[1].state() == State::up)
                require(ends_[i].delivered() == ends_[1 - i].acceptedInAll(),
                        "a message does not come in good weather");
        }
    }

    Decisions decide_;
    std::array<End, 2> ends_;
    std::deque<OnItsWay> way_;
    int64_t now_ = 0;
    size_t strangers_ = 0;  // frames of others
    bool honest_ = true;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Asked::watch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Asked::reset();
    Run(data, size).run();
    require(Asked::most() <= largestAsked + 8 * size, "a size that was only announced was asked for");
    return 0;
}
