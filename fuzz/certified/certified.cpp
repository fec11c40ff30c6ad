// Fuzz target: a certified sender and a certified listener over a network that loses, repeats and reorders what the input
// says, beside a stranger who sends whatever frames the input says, a ledger that fails, and programs that call what they like.
//
// Nothing of it ends the process, leaves a machine due for ever, or makes it keep more than its settings allow. A frame that is
// read is the same when it is written again. What a ledger holds may be anything when a machine starts from it.
#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "certified/protocol/frame.h"
#include "certified/protocol/machine.h"
#include "certified/protocol/subject.h"
#include "support.h"

namespace {

using namespace quorl;
using namespace quorl::certified;
using namespace quorl::fuzz;

constexpr int64_t millisecond = 1'000'000;
constexpr std::array<std::string_view, 4> subjects = {"a.b", "a.c", "_INBOX.1", "x"};
constexpr std::array<std::string_view, 4> patterns = {"a.b", "a.*", ">", "_INBOX.1"};
constexpr std::array<std::string_view, 3> names = {"s", "l", "stranger"};
constexpr size_t largestAsked = 512u << 10;
constexpr uint64_t largestMemory = 256u << 10;

companion::Message emptyTo(std::string_view subject) {
    companion::Message message;
    require(companion::Message::empty(subject, &message) == QUORL_OK, "no message can be made");
    return message;
}

struct Disk {
    std::map<std::string, std::string> state;
    std::map<std::pair<uint32_t, uint64_t>, int64_t> messages;  // when they expire
};

class Run {
  public:
    Run(const uint8_t* data, size_t size) : decide_(data, size) {
        for (size_t i = 0; i < 2; ++i) start(i);
        listen(1, 1, "a.*");
        for (int i = 0; i < 6; ++i) pass(500 * millisecond);
    }

    void run() {
        while (!decide_.empty()) {
            step();
            for (const auto& side : sides_) {
                const Counts counts = side.machine->counts();
                require(counts.memory < largestMemory, "a machine keeps more than it may");
                require(counts.listeners <= 8 && counts.agreements <= 16 && counts.sources <= 8 && counts.streams <= 16,
                        "a machine knows more than it may");
            }
        }
    }

  private:
    struct Side {
        std::unique_ptr<Machine> machine;
        Disk disk;
        std::map<uint32_t, std::string> listeners;
        std::vector<Delivery> deliveries;
        bool full = false;
    };

    static Settings settingsOf(size_t which) {
        Settings settings;
        settings.name = names[which];
        settings.requestOld = true;
        settings.ledger = true;
        settings.mayLoseTail = which == 0;
        settings.pendingBytes = 8192;
        settings.cacheBytes = 200;
        settings.listeners = 4;
        settings.agreements = 16;
        settings.patterns = 4;
        settings.inFlight = 32;
        settings.earlyMessages = 32;
        settings.earlyBytes = 16'384;
        settings.sources = 8;
        settings.streams = 16;
        return settings;
    }
    static Chance chanceOf(size_t which) {
        Chance chance;
        chance.incarnation = 11 + which;
        chance.instance = 21 + which;
        chance.senderKey = {31 + which, 41};
        chance.listenerKey = {51 + which, 61};
        return chance;
    }

    void start(size_t which) {
        Side& side = sides_[which];
        side.machine = std::make_unique<Machine>(settingsOf(which), chanceOf(which));
        for (const auto& [key, value] : side.disk.state)
            require(side.machine->load(key, value) == QUORL_OK, "what was stored is not taken back");
        for (const auto& [at, expires] : side.disk.messages)
            require(side.machine->load({at.first, at.second, 48, expires}) == QUORL_OK,
                    "a message that was stored is not taken back");
        Output out;
        require(side.machine->start(decide_.byte() % 2 == 0, now_, out) == QUORL_OK, "a machine does not start again");
        take(which, out);
        side.deliveries.clear();
        const auto listeners = std::exchange(side.listeners, {});
        for (const auto& [number, pattern] : listeners) listen(which, number, pattern);
    }

    void listen(size_t which, uint32_t number, std::string_view pattern) {
        Output out;
        if (sides_[which].machine->createListener(number, pattern, now_, out) == QUORL_OK)
            sides_[which].listeners[number] = pattern;
        take(which, out);
    }

    void step() {
        const uint8_t kind = decide_.byte();
        const size_t which = kind / 16 % 2;
        Side& side = sides_[which];
        Output out;
        switch (kind % 16) {
            case 0:
            case 1: {
                const quorl_status status = side.machine->send(emptyTo(subjects[decide_.byte() % subjects.size()]),
                                                               int64_t{decide_.byte()} * millisecond, now_, out);
                require(status == QUORL_OK || status == QUORL_QUEUE_LIMIT || status == QUORL_IO_FAILED ||
                            status == QUORL_NOT_PERMITTED,
                        "sending has a status that it cannot have");
                return take(which, out);
            }
            case 2:
            case 3:
            case 4:
                for (uint8_t count = decide_.byte() % 8; count != 0; --count) arrive(0);
                return;
            case 5:
                return arrive(decide_.byte());
            case 6:
                if (!way_.empty()) way_.erase(way_.begin() + decide_.byte() % static_cast<int>(way_.size()));
                return;
            case 7:
                if (!way_.empty() && way_.size() < 256) way_.push_back(way_[decide_.byte() % way_.size()]);
                return;
            case 8:
                return pass(int64_t{decide_.two()} * millisecond);
            case 9:
                now_.wall += (int64_t{decide_.two()} - 32768) * 10 * millisecond;
                return;
            case 10: {
                if (side.deliveries.empty()) return;
                const size_t at = decide_.byte() % side.deliveries.size();
                const Delivery one = side.deliveries[at];
                side.deliveries.erase(side.deliveries.begin() + static_cast<long>(at));
                const quorl_status status =
                    side.machine->confirm(one.listener, one.stream, one.number + (decide_.oneIn(8) ? 1 : 0),
                                          decide_.oneIn(2) ? Machine::Confirm::now : Machine::Confirm::soon, now_, out);
                require(status == QUORL_OK || status == QUORL_NOT_FOUND || status == QUORL_NOT_PERMITTED,
                        "confirming has a status that it cannot have");
                return take(which, out);
            }
            case 11:
                return forged(which);
            case 12:
                return raw(which);
            case 13:
                return call(which);
            case 14:
                side.full = !side.full;
                return;
            default:
                switch (decide_.byte() % 4) {
                    case 0:
                        side.full = false;
                        return start(which);
                    case 1:
                        return startFromAnything();
                    case 2:
                        return listen(which, 1 + decide_.byte() % 6, patterns[decide_.byte() % patterns.size()]);
                    default: {
                        const uint32_t number = 1 + decide_.byte() % 6;
                        side.listeners.erase(number);
                        side.machine->destroyListener(number, decide_.oneIn(2), now_, out);
                        return take(which, out);
                    }
                }
        }
    }

    void call(size_t which) {
        Machine& machine = *sides_[which].machine;
        const std::string_view name = names[decide_.byte() % names.size()];
        const std::string_view subject = subjects[decide_.byte() % subjects.size()];
        Output out;
        switch (decide_.byte() % 10) {
            case 0:
                machine.allowListener(name, now_, out);
                break;
            case 1:
                machine.disallowListener(name, now_, out);
                break;
            case 2:
                machine.addListener(name, patterns[decide_.byte() % patterns.size()], now_, out);
                break;
            case 3:
                machine.removeListener(name, patterns[decide_.byte() % patterns.size()], now_, out);
                break;
            case 4:
                machine.removeSendState(subject, now_, out);
                break;
            case 5:
                machine.expireMessages(subject, decide_.oneIn(4) ? decide_.eight() : decide_.byte(), now_, out);
                break;
            case 6:
                machine.sendReply(emptyTo(subject), name, int64_t{decide_.byte()} * millisecond, now_, out);
                break;
            case 7:
                machine.setPublisherInactivity(int64_t{decide_.byte()} * 1000 * millisecond, now_, out);
                break;
            case 8:
                machine.review("", [](const Review& review) {
                    require(review.first <= review.last + 1, "a review makes no sense");
                    return false;
                });
                break;
            default:
                machine.fetched({decide_.byte(), decide_.byte()},
                                decide_.oneIn(2) ? emptyTo("a") : companion::Message(), now_, out);
        }
        take(which, out);
    }

    // A frame of the right form, with values near those that are in use.
    void forged(size_t to) {
        Frame frame;
        frame.kind = static_cast<Kind>(1 + decide_.byte() % kindMax);
        frame.name = names[decide_.byte() % names.size()];
        const uint8_t form = decide_.byte();
        const Frame& known = known_[to];
        frame.incarnation = (form & 1) != 0 ? decide_.eight() : known.incarnation;
        frame.session = (form & 2) != 0 ? decide_.eight() : known.session;
        frame.token = (form & 4) != 0 ? decide_.eight() : known.token;
        frame.attempt = decide_.byte();
        frame.flags = decide_.byte();
        frame.reason = static_cast<Reason>(decide_.byte() % (reasonMax + 1));
        frame.subjectId = (form & 8) != 0 ? static_cast<uint32_t>(decide_.eight()) : 1 + decide_.byte() % 4;
        frame.number = (form & 16) != 0 ? decide_.eight() : decide_.byte();
        frame.last = (form & 32) != 0 ? decide_.eight() : decide_.byte();
        frame.limit = static_cast<int64_t>(decide_.byte());
        frame.subject = (frame.flags & flagPattern) != 0 ? patterns[decide_.byte() % patterns.size()]
                                                         : subjects[decide_.byte() % subjects.size()];
        FrameWriter writer;
        encode(frame, writer);
        const auto number = [&] { return (form & 64) != 0 ? decide_.eight() : uint64_t{decide_.byte()}; };
        for (uint8_t count = decide_.byte() % 8; count != 0; --count) {
            if (frame.kind == Kind::announce) addPattern(patterns[decide_.byte() % patterns.size()], writer);
            if (frame.kind == Kind::note)
                addNoted({decide_.byte() % 5u, number(), number(), subjects[decide_.byte() % subjects.size()]}, writer);
            if (frame.kind == Kind::confirm) {
                NumberSet set(number());
                const uint64_t first = number();
                if (first < UINT64_MAX - 300) set.add({first + 1, first + 1 + decide_.byte()});
                addConfirmed(decide_.byte() % 5u, set, writer);
            }
            if (frame.kind == Kind::ask || frame.kind == Kind::gone) {
                writer.number(number());
                writer.number(number());
            }
        }
        hand(to, writer.bytes());
    }

    // Bytes that may be a frame.
    void raw(size_t to) {
        std::string bytes(decide_.counted());
        if (decide_.byte() % 2 == 0 && bytes.size() > 1) {
            bytes[0] = companionNumber;
            bytes[1] = protocolVersion;
        }
        const Block block(bytes);
        hand(to, {block.data(), block.size()});
    }

    void hand(size_t to, std::span<const uint8_t> attributes) {
        Frame frame;
        if (decode(attributes, &frame) == Decoded::frame) {
            FrameWriter again;
            if (frame.kind == Kind::data) {
                encodeDataPrefix(frame, again);
                encodeDataRest(frame.number, frame.limit, again);
            } else {
                encode(frame, again);
            }
            require(std::ranges::equal(again.bytes(), attributes), "a frame differs when it is written again");
        }
        const bool direct = decide_.oneIn(2);
        companion::Message message = emptyTo(direct ? std::string_view(sides_[to].machine->address())
                                                    : subjects[decide_.byte() % subjects.size()]);
        if (message.withAttributes(attributes, &message) != QUORL_OK) return;
        deliver(to, message);
    }

    // A machine that starts from what makes no sense refuses, or works.
    void startFromAnything() {
        Machine machine(settingsOf(2), chanceOf(2));
        Output out;
        for (uint8_t count = decide_.byte() % 8; count != 0; --count) {
            std::string key(decide_.bytes(1 + decide_.byte() % 12));
            if (machine.load(key, decide_.counted()) != QUORL_OK) return;
        }
        for (uint8_t count = decide_.byte() % 4; count != 0; --count) {
            if (machine.load({decide_.byte(), decide_.oneIn(2) ? decide_.eight() : decide_.byte(), 10, 0}) != QUORL_OK)
                return;
        }
        if (machine.start(decide_.oneIn(2), now_, out) != QUORL_OK) return;
        out.clear();
        machine.tick({now_.monotonic + 10'000 * millisecond, now_.wall}, out);
    }

    void arrive(size_t at) {
        if (way_.empty()) return;
        at %= way_.size();
        const companion::Message message = std::move(way_[at]);
        way_.erase(way_.begin() + static_cast<long>(at));
        for (size_t i = 0; i < 2; ++i) deliver(i, message);
    }
    void deliver(size_t to, const companion::Message& message) {
        const auto give = [&](uint32_t listener) {
            Output out;
            sides_[to].machine->receive(message, listener, now_, out);
            take(to, out);
        };
        if (message.subject() == sides_[to].machine->address() || message.subject() == everybody) give(0);
        const auto listeners = sides_[to].listeners;
        for (const auto& [number, pattern] : listeners) {
            if (matches(pattern, message.subject())) give(number);
        }
    }

    void pass(int64_t time) {
        now_.monotonic += time;
        now_.wall += time;
        for (size_t i = 0; i < 2; ++i) {
            Output out;
            sides_[i].machine->tick(now_, out);
            require(sides_[i].machine->due() > now_.monotonic, "a tick leaves itself due");
            take(i, out);
        }
        for (int count = 32; count != 0; --count) arrive(0);
    }

    void take(size_t from, Output& out) {
        Side& side = sides_[from];
        for (auto& message : out.messages) {
            // What goes out is what a stranger can overhear.
            Frame frame;
            require(message.attributes().empty() || decode(message.attributes(), &frame) == Decoded::frame,
                    "a machine writes what it does not read");
            if (frame.incarnation != 0) {
                Frame& known = known_[1 - from];
                known.incarnation = frame.kind == Kind::presence ? known.incarnation : frame.incarnation;
                if (frame.session != 0) known.session = frame.session;
                if (frame.token != 0) known.token = frame.token;
            }
            if (way_.size() < 1024) way_.push_back(std::move(message));
        }
        for (auto& delivery : out.deliveries) {
            if (delivery.stream != 0 && side.deliveries.size() < 1000) side.deliveries.push_back(delivery);
        }
        const std::vector<Fetch> fetches = std::move(out.fetches);
        const uint64_t token = out.store.token;
        Output after;
        if (token != 0 && side.full) {
            side.machine->storageFailed(token, QUORL_IO_FAILED, now_, after);
            take(from, after);
        } else if (token != 0) {
            for (const Write& write : out.store.writes) {
                require(write.kind == Write::Kind::putMessage || write.kind == Write::Kind::eraseMessages ||
                            (!write.key.empty() && write.key.size() <= 300),
                        "a key is too long");
                if (write.kind == Write::Kind::putState) side.disk.state[write.key] = write.value;
                if (write.kind == Write::Kind::eraseState) side.disk.state.erase(write.key);
                if (write.kind == Write::Kind::putMessage)
                    side.disk.messages[{write.subject, write.number}] = write.expires;
                if (write.kind == Write::Kind::eraseMessages)
                    side.disk.messages.erase(side.disk.messages.lower_bound({write.subject, write.number}),
                                             side.disk.messages.upper_bound({write.subject, write.last}));
            }
            side.machine->persisted(token, now_, after);
            take(from, after);
        }
        for (const Fetch& fetch : fetches) {
            Output answer;
            side.machine->fetched(fetch, emptyTo("a"), now_, answer);
            take(from, answer);
        }
    }

    Decisions decide_;
    std::array<Side, 2> sides_;
    std::array<Frame, 2> known_{};  // what a stranger knows to say to each
    std::deque<companion::Message> way_;
    Now now_{1'000'000 * millisecond, 1'800'000'000'000 * millisecond};
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
