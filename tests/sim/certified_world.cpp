// The guests: a machine over a simulated disk and network, and a program that sends, or confirms what it is given.
#include "sim/certified_world.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "certified/protocol/subject.h"
#include "companion/access.h"
#include "message/delivery.h"
#include "sim/world.h"

namespace quorl::sim {
namespace {

using certified::Confirmed;
using certified::Event;
using certified::Frame;
using certified::Kind;
using certified::Machine;
using certified::Now;
using certified::Output;
using certified::Write;
using Checked = CertifiedChecker::Message;

enum Work : uint32_t { sendSome, sendLimited, listenAgain, cancelAndListen };

constexpr std::array<std::string_view, 4> subjects = {"t.0", "t.1", "t.2", "t.3"};
constexpr uint32_t mostSenders = 5;
constexpr uint32_t mostListeners = 10;

// ---- what a world is made of, by its seed

struct Composition {
    uint32_t senders = 1;
    uint32_t listeners = 1;
    uint32_t subjects = 1;
    std::vector<CertifiedChecker::Peer> peers;       // senders first
    std::vector<std::vector<std::string>> patterns;  // of listeners
    std::vector<uint32_t> confirming;                // how: see Guest::confirmLater
    uint32_t added = 0;                              // a bit for each listener that senders add at their start
};

std::string nameOfNode(const Composition& composition, uint32_t node) {
    return node < composition.senders ? "sender." + std::to_string(node) : "listener." + std::to_string(node);
}

Composition compose(const Plan& plan) {
    Random random(mix(plan.seed ^ 0x636d));
    Composition made;
    made.senders = static_cast<uint32_t>(random.below(8) == 0 ? random.between(1, mostSenders) : random.between(1, 2));
    made.listeners =
        static_cast<uint32_t>(random.below(8) == 0 ? random.between(1, mostListeners) : random.between(1, 2));
    made.subjects = static_cast<uint32_t>(random.between(1, random.below(4) == 0 ? 4 : 2));
    const bool allDurable = random.coin();
    for (uint32_t node = 0; node < made.senders + made.listeners; ++node) {
        CertifiedChecker::Peer peer;
        peer.lasting = allDurable || node < made.senders || random.below(6) != 0;
        peer.ledger = peer.lasting && (allDurable || random.below(4) != 0);
        peer.process = peer.ledger && random.below(3) == 0;
        peer.old = allDurable || random.below(3) != 0;
        peer.reached = (plan.healed >> node & 1) != 0;
        made.peers.push_back(peer);
    }
    for (uint32_t i = 0; i < made.listeners; ++i) {
        std::vector<std::string> patterns;
        switch (random.below(5)) {
            case 0:
                patterns = {"t.*", "t.>"};  // everything twice
                break;
            case 1:
                patterns = {"t.0"};
                break;
            case 2:
                patterns = {"t.>", "t.1"};
                break;
            default:
                patterns = {"t.>"};
        }
        made.patterns.push_back(std::move(patterns));
        made.confirming.push_back(static_cast<uint32_t>(random.below(4)));
        if (random.below(3) == 0) made.added |= 1u << i;
    }
    return made;
}

// ---- messages

companion::Message messageOf(const Checked& checked, std::string_view subject) {
    quorlMsg handle = nullptr;
    companion::Message message;
    EXPECT_EQ(quorlMsg_Create(&handle), QUORL_OK);
    EXPECT_EQ(quorlMsg_AddU64Ex(handle, "n",
                                uint64_t{checked.sender} << 56 | uint64_t{checked.subject} << 48 | checked.count, 0),
              QUORL_OK);
    message::ContentRef content;
    EXPECT_EQ(message::snapshot(handle, &content), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(handle), QUORL_OK);
    EXPECT_EQ(companion::Access::wrap(content).withSubjects(subject, "", &message), QUORL_OK);
    return message;
}

Checked checkedOf(const companion::Message& message) {
    quorlMsg handle = nullptr;
    quorl_u64 number = UINT64_MAX;
    EXPECT_EQ(message::handOver(companion::Access::content(message), &handle), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetU64Ex(handle, "n", &number, 0), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(handle), QUORL_OK);
    return {static_cast<uint32_t>(number >> 56), static_cast<uint32_t>(number >> 48 & 0xff),
            static_cast<uint32_t>(number)};
}

uint32_t indexOf(std::string_view subject) {
    return static_cast<uint32_t>(std::ranges::find(subjects, subject) - subjects.begin());
}

// "sender.3" and "listener.7" are nodes.
uint32_t nodeOf(std::string_view name) {
    return static_cast<uint32_t>(std::stoul(std::string(name.substr(name.find('.') + 1))));
}

// ---- the ledger on the simulated disk

std::string keyOfMessage(uint32_t subject, uint64_t number) {
    std::string key = "M";
    for (int i = 3; i >= 0; --i) key += static_cast<char>(subject >> 8 * i);
    for (int i = 7; i >= 0; --i) key += static_cast<char>(number >> 8 * i);
    return key;
}

void appendChanges(const Write& write, const Store::Content& content, std::vector<Store::Change>& changes) {
    switch (write.kind) {
        case Write::Kind::putMessage: {
            std::string value(8, '\0');
            for (size_t i = 0; i < 8; ++i) value[i] = static_cast<char>(write.expires >> 8 * i);
            const auto image = write.message.image();
            value.append(reinterpret_cast<const char*>(image.data()), image.size());
            changes.push_back({keyOfMessage(write.subject, write.number), std::move(value), false});
            return;
        }
        case Write::Kind::eraseMessages:
            for (auto at = content.lower_bound(keyOfMessage(write.subject, write.number));
                 at != content.end() && at->first <= keyOfMessage(write.subject, write.last); ++at)
                changes.push_back({at->first, {}, true});
            return;
        case Write::Kind::putState:
            changes.push_back({'K' + write.key, write.value, false});
            return;
        case Write::Kind::eraseState:
            changes.push_back({'K' + write.key, {}, true});
            return;
    }
}

// ---- a guest

class Guest : public Program {
  public:
    Guest(Node& node, const Composition& composition, CertifiedChecker& checker, bool lostPower, CertifiedSeam seam,
          std::vector<uint32_t>& counts)
        : node_(node),
          composition_(composition),
          checker_(checker),
          peer_(composition.peers[node.number()]),
          seam_(std::move(seam)),
          counts_(counts) {
        certified::Settings settings;
        settings.name = nameOfNode(composition, node.number());
        settings.lasting = peer_.lasting;
        if (!peer_.lasting) settings.name += "." + std::to_string(node.starts());
        settings.requestOld = peer_.old;
        settings.ledger = peer_.ledger;
        settings.mayLoseTail = peer_.process;
        settings.cacheBytes = node.random().coin() ? 8u << 20 : 300;
        settings.inFlight = node.random().coin() ? 10'000 : 4;
        settings.earlyMessages = node.random().coin() ? 1024 : 8;
        if (seam_.settings) seam_.settings(settings);
        certified::Chance chance;
        chance.incarnation = node.random()();
        chance.instance = node.random()();
        chance.senderKey = {node.random()(), node.random()()};
        chance.listenerKey = {node.random()(), node.random()()};
        machine_ = std::make_unique<Machine>(settings, chance);
        node_.subscribe(machine_->address(), 0);
        node_.subscribe(certified::everybody, 0);
        if (peer_.ledger) load();
        Output out;
        EXPECT_EQ(machine_->start(!lostPower, now(), out), QUORL_OK);
        carryOut(out);
        if (isSender()) {
            addListeners();
        } else {
            for (const std::string& pattern : patterns()) listen(pattern);
        }
    }

    Time due() const override { return std::min(machine_->due(), confirmAt_); }
    void tick() override {
        if (confirmAt_ <= node_.monotonic()) confirmSome();
        if (machine_->due() > node_.monotonic()) return;
        Output out;
        machine_->tick(now(), out);
        if (machine_->due() <= node_.monotonic()) ADD_FAILURE() << "a tick that leaves itself due would spin";
        carryOut(out);
    }
    void receive(uint32_t tag, const message::ContentRef& content) override {
        companion::Message message = companion::Access::wrap(content);
        if (seam_.hears && !reworked(message, seam_.hears)) return;
        Output out;
        machine_->receive(std::move(message), tag, now(), out);
        carryOut(out);
    }
    void persisted(uint64_t token) override {
        if (--syncing_ == 0) syncPending_ = false;
        stored(token);
    }
    void work(const WorkStep& step) override {
        switch (step.kind) {
            case sendSome:
            case sendLimited:
                for (uint64_t i = 0; i < (step.argument & 0xff); ++i)
                    send(static_cast<uint32_t>(step.argument >> 8) % composition_.subjects, step.kind == sendLimited);
                break;
            case listenAgain:
            case cancelAndListen:
                if (isSender()) break;
                listenAnew(step.kind == cancelAndListen);
                break;
            default:
                break;
        }
    }

    const Machine& machine() const { return *machine_; }
    bool isSender() const { return node_.number() < composition_.senders; }

  private:
    struct Pending {
        uint64_t token;
        Checked message;
        bool confirms;
    };
    struct Given {
        uint32_t listeners = 0;
        uint32_t confirmed = 0;
        uint32_t last = 0;  // of the listeners, in the order in which they were made
        bool byLast = false;
        Checked message;
    };
    struct ToConfirm {
        uint32_t listener;
        certified::StreamId stream;
        uint64_t number;
        Checked message;
    };

    Now now() const { return {node_.monotonic(), node_.wall()}; }
    const std::vector<std::string>& patterns() const {
        return composition_.patterns[node_.number() - composition_.senders];
    }

    void load() {
        std::vector<certified::StoredMessage> messages;
        for (const auto& [key, value] : node_.stored()) {
            if (key.front() == 'K') {
                std::string content = value;
                if (seam_.loads && !seam_.loads(std::string_view(key).substr(1), content)) continue;
                EXPECT_EQ(machine_->load(std::string_view(key).substr(1), content), QUORL_OK);
                continue;
            }
            certified::StoredMessage message;
            for (size_t i = 1; i < 5; ++i) message.subject = message.subject << 8 | static_cast<uint8_t>(key[i]);
            for (size_t i = 5; i < 13; ++i) message.number = message.number << 8 | static_cast<uint8_t>(key[i]);
            for (size_t i = 0; i < 8; ++i)
                message.expires |= static_cast<int64_t>(uint64_t{static_cast<uint8_t>(value[i])} << 8 * i);
            message.size = static_cast<uint32_t>(value.size() - 8);
            messages.push_back(message);
        }
        for (const auto& message : messages) EXPECT_EQ(machine_->load(message), QUORL_OK);
    }

    // ---- the sender's program

    void addListeners() {
        for (uint32_t i = 0; i < composition_.listeners; ++i) {
            if ((composition_.added >> i & 1) == 0) continue;
            const uint32_t listener = composition_.senders + i;
            if (!composition_.peers[listener].durable()) continue;
            for (const std::string& pattern : composition_.patterns[i]) {
                Output out;
                if (machine_->addListener(nameOfNode(composition_, listener), pattern, now(), out) != QUORL_OK) return;
                const uint64_t token = out.store.token;
                const bool fine = carryOut(out);
                if (!fine || !node_.acting()) return;
                for (uint32_t subject = 0; subject < composition_.subjects; ++subject) {
                    if (!certified::matches(pattern, subjects[subject])) continue;
                    if (token == 0 || token <= storedUpTo_) {
                        checker_.added(node_.number(), listener, subject);
                    } else {
                        adding_.push_back({token, listener, subject});
                    }
                }
            }
        }
    }

    void send(uint32_t subject, bool limited) {
        const Checked message{node_.number(), subject, counts_[subject]++};
        Output out;
        uint64_t number = 0;
        const int64_t limit = limited ? node_.random().between(1, 3000) * millisecond : 0;
        const quorl_status status = machine_->send(messageOf(message, subjects[subject]), limit, now(), out, &number);
        checker_.sent(message, status == QUORL_OK ? number : 0, limited);
        if (status != QUORL_OK) {
            checker_.refused(message);
            carryOut(out);
            return;
        }
        const uint64_t token = out.store.token;
        if (token != 0) pending_.push_back({token, message, false});
        const bool fine = carryOut(out);
        if (token == 0 && fine && node_.acting()) checker_.accepted(message);
    }

    // ---- the listener's program

    void listen(const std::string& pattern) {
        const uint32_t number = ++listeners_;
        node_.subscribe(pattern, number);
        Output out;
        EXPECT_EQ(machine_->createListener(number, pattern, now(), out), QUORL_OK);
        current_.push_back(number);
        carryOut(out);
    }

    void listenAnew(bool cancel) {
        if (cancel) checker_.cancels(node_.number());
        // Those that go earlier leave it to the last one.
        for (const auto& [which, given] : waiting_) {
            if (given.byLast) checker_.confirms(node_.number(), given.message);
        }
        const std::vector<uint32_t> old = std::exchange(current_, {});
        for (const uint32_t number : old) {
            Output out;
            machine_->destroyListener(number, cancel, now(), out);
            carryOut(out);
        }
        toConfirm_.clear();
        waiting_.clear();
        checker_.listensAnew(node_.number());
        for (const std::string& pattern : patterns()) listen(pattern);
    }

    // Of a message that several listeners are given, the program is told once, and confirms when all have it.
    void delivered(const certified::Delivery& delivery) {
        const Checked message = checkedOf(delivery.message);
        const bool certified = delivery.stream != 0;
        if (certified) {
            uint64_t number = 0;
            if (machine_->streamOf(delivery.message, &number) != delivery.stream || number != delivery.number)
                ADD_FAILURE() << "a delivered message does not name its stream";
            Given& given = waiting_[{delivery.stream, delivery.number}];
            if (given.listeners++ == 0) checker_.delivered(node_.number(), message, delivery.number, true);
            given.message = message;
            given.last = std::max(given.last, delivery.listener);
            for (const ToConfirm& other : toConfirm_) {
                if (other.listener == delivery.listener && other.stream == delivery.stream &&
                    other.number == delivery.number)
                    checker_.delivered(node_.number(), message, delivery.number, true);
            }
            if (seam_.confirmsTwice) confirm({delivery.listener, delivery.stream, delivery.number, message}, false);
            toConfirm_.push_back({delivery.listener, delivery.stream, delivery.number, message});
        } else {
            checker_.delivered(node_.number(), message, delivery.number, false);
        }
    }

    void confirm(const ToConfirm& one, bool counts) {
        const bool atOnce = composition_.confirming[node_.number() - composition_.senders] % 2 == 0;
        Output out;
        if (counts) {
            Given& given = waiting_[{one.stream, one.number}];
            given.byLast = given.byLast || one.listener == given.last;
            if (++given.confirmed >= given.listeners) {
                waiting_.erase({one.stream, one.number});
                checker_.confirms(node_.number(), one.message);
            }
        }
        const bool last = counts && !waiting_.contains({one.stream, one.number});
        const quorl_status status = machine_->confirm(
            one.listener, one.stream, one.number, atOnce ? Machine::Confirm::now : Machine::Confirm::soon, now(), out);
        if (status == QUORL_OK && atOnce && last) {
            if (out.store.token != 0) pending_.push_back({out.store.token, one.message, true});
        }
        carryOut(out);
    }

    void confirmSome() {
        confirmAt_ = never;
        if (toConfirm_.empty()) return;
        // Some, out of their turn.
        std::vector<ToConfirm> chosen;
        const bool later = composition_.confirming[node_.number() - composition_.senders] >= 2;
        if (!later) {
            chosen.assign(toConfirm_.begin(), toConfirm_.end());
            toConfirm_.clear();
        } else {
            for (uint64_t count = node_.random().below(toConfirm_.size()) + 1; count != 0; --count) {
                const auto at = toConfirm_.begin() + static_cast<ptrdiff_t>(node_.random().below(toConfirm_.size()));
                chosen.push_back(*at);
                toConfirm_.erase(at);
            }
        }
        for (const ToConfirm& one : chosen) {
            if (!node_.acting()) return;
            confirm(one, true);
        }
        expectConfirming();
    }
    void expectConfirming() {
        if (toConfirm_.empty() || confirmAt_ != never) return;
        const bool later = composition_.confirming[node_.number() - composition_.senders] >= 2;
        confirmAt_ = node_.monotonic() + (later ? node_.random().between(0, 300) * millisecond : 0);
    }

    // ---- what the machine gives out

    // False: the ledger does not take it.
    bool carryOut(Output& out) {
        if (seam_.tells) seam_.tells(out);
        bool fine = true;
        const certified::News news = out.takeRest();
        if (out.store.token != 0) {
            if (seam_.stores) seam_.stores(out.store);
            lastToken_ = out.store.token;
            fine = write(out.store);
            if (!fine && !node_.acting()) return false;
        }
        transmit(out.messages);
        for (const Event& event : news.events) {
            if (node_.acting()) told(event);
        }
        for (const auto& delivery : news.deliveries) {
            if (node_.acting()) delivered(delivery);
        }
        if (!isSender()) expectConfirming();
        if (out.store.token != 0 && fine && storedNow_ != 0) stored(std::exchange(storedNow_, 0));
        if (!fine) {
            Output after;
            for (const Pending& one : pending_) {
                if (one.token >= out.store.token && !one.confirms) checker_.refused(one.message);
            }
            std::erase_if(pending_, [&](const Pending& one) { return one.token >= out.store.token; });
            machine_->storageFailed(out.store.token, QUORL_IO_FAILED, now(), after);
            carryOut(after);
        }
        for (const certified::Fetch& fetch : out.fetches) {
            if (!node_.acting()) return fine;
            Output after;
            machine_->fetched(fetch, read(fetch), now(), after);
            carryOut(after);
        }
        return fine;
    }

    bool write(const certified::Transaction& store) {
        std::vector<Store::Change> changes;
        for (const Write& one : store.writes) appendChanges(one, node_.stored(), changes);
        if (!node_.write(std::move(changes))) return false;
        if (seam_.promisesEarly) {
            storedNow_ = store.token;
        } else if (peer_.process && !store.sync && !syncPending_) {
            storedNow_ = store.token;
        } else {
            ++syncing_;
            syncPending_ = true;
            node_.sync(store.token);
        }
        return true;
    }

    companion::Message read(const certified::Fetch& fetch) const {
        companion::Message message;
        const auto found = node_.stored().find(keyOfMessage(fetch.subject, fetch.number));
        if (found == node_.stored().end()) return message;
        const auto* bytes = reinterpret_cast<const uint8_t*>(found->second.data());
        std::vector<uint64_t> aligned(found->second.size() / 8 + 1);
        std::memcpy(aligned.data(), bytes + 8, found->second.size() - 8);
        EXPECT_EQ(companion::Message::fromImage(
                      {reinterpret_cast<const uint8_t*>(aligned.data()), found->second.size() - 8}, "t", "", &message),
                  QUORL_OK);
        return message;
    }

    void stored(uint64_t token) {
        storedUpTo_ = token;
        while (!adding_.empty() && adding_.front().token <= token) {
            checker_.added(node_.number(), adding_.front().listener, adding_.front().subject);
            adding_.pop_front();
        }
        while (!pending_.empty() && pending_.front().token <= token) {
            const Pending one = pending_.front();
            pending_.pop_front();
            if (one.confirms) {
                checker_.confirmedForGood(node_.number(), one.message);
            } else {
                checker_.accepted(one.message);
            }
        }
        while (!toldWhenStored_.empty() && toldWhenStored_.front().first <= token) {
            const Event event = std::move(toldWhenStored_.front().second);
            toldWhenStored_.pop_front();
            checker_.confirmedTo(node_.number(), nodeOf(event.name), indexOf(event.subject), event.first, event.last);
        }
        Output out;
        machine_->persisted(token, now(), out);
        carryOut(out);
    }

    void told(const Event& event) {
        const uint32_t self = node_.number();
        switch (event.kind) {
            case Event::Kind::confirmed:
                if (lastToken_ <= storedUpTo_) {
                    checker_.confirmedTo(self, nodeOf(event.name), indexOf(event.subject), event.first, event.last);
                } else {
                    toldWhenStored_.emplace_back(lastToken_, event);
                }
                break;
            case Event::Kind::undelivered:
                checker_.givenUp(self, nodeOf(event.name), indexOf(event.subject), event.first, event.last,
                                 event.reason);
                break;
            case Event::Kind::registered:
                checker_.registered(self, nodeOf(event.name), indexOf(event.subject));
                break;
            case Event::Kind::listening:
                checker_.listening(self, nodeOf(event.name), indexOf(event.subject), event.first);
                break;
            case Event::Kind::stopped:
                checker_.stopped(self, nodeOf(event.name), indexOf(event.subject));
                break;
            case Event::Kind::skipped:
                checker_.skipped(self, nodeOf(event.name), indexOf(event.subject), event.first, event.last);
                break;
            case Event::Kind::nameTaken:
                ADD_FAILURE() << "a name is taken that nobody else has";
                break;
            default:
                break;
        }
    }

    // Passes a frame by the seam, and writes it anew. False: it is gone.
    static bool reworked(companion::Message& message, const std::function<bool(Frame&)>& seam) {
        Frame frame;
        if (message.attributes().empty() || decode(message.attributes(), &frame) != certified::Decoded::frame)
            return true;
        if (!seam(frame)) return false;
        certified::FrameWriter writer;
        if (frame.kind == Kind::data) {
            encodeDataPrefix(frame, writer);
            certified::encodeDataRest(frame.number, frame.limit, writer);
        } else {
            encode(frame, writer);
        }
        const companion::Message kept = message;  // the frame looks into it
        EXPECT_EQ(kept.withAttributes(writer.bytes(), &message), QUORL_OK);
        return true;
    }

    void transmit(std::vector<companion::Message>& messages) {
        for (auto& message : messages) {
            const auto attributes = message.attributes();
            if (attributes.size() > 3 && attributes[2] == static_cast<uint8_t>(Kind::resent)) {
                Frame frame;
                if (decode(attributes, &frame) == certified::Decoded::frame)
                    checker_.sendsAgain(node_.number(),
                                        nodeOf(message.subject().substr(certified::addressPrefix.size())),
                                        indexOf(frame.subject), frame.number);
            }
            if (seam_.sends && !reworked(message, seam_.sends)) continue;
            node_.publish(companion::Access::take(std::move(message)));
        }
    }

    struct Adding {
        uint64_t token;
        uint32_t listener;
        uint32_t subject;
    };

    Node& node_;
    const Composition& composition_;
    CertifiedChecker& checker_;
    const CertifiedChecker::Peer peer_;
    const CertifiedSeam seam_;
    std::vector<uint32_t>& counts_;  // of messages of the node, in all its lives, by subject
    std::unique_ptr<Machine> machine_;
    uint32_t listeners_ = 0;
    std::vector<uint32_t> current_;
    std::deque<Pending> pending_;
    std::deque<Adding> adding_;
    std::deque<std::pair<uint64_t, Event>> toldWhenStored_;
    std::vector<ToConfirm> toConfirm_;
    std::map<std::pair<certified::StreamId, uint64_t>, Given> waiting_;  // given to listeners, and not confirmed by all
    Time confirmAt_ = never;
    uint64_t lastToken_ = 0;
    uint64_t storedUpTo_ = 0;
    uint64_t storedNow_ = 0;
    uint32_t syncing_ = 0;
    bool syncPending_ = false;
};

CertifiedRuns runs;

void addUp(const CertifiedTotals& totals) {
    runs.accepted += totals.accepted;
    runs.confirmed += totals.confirmed;
    runs.lost += totals.lost;
    runs.duplicated += totals.duplicated;
    runs.recovered += totals.recovered;
    runs.plain += totals.plain;
    runs.expired += totals.expired;
}

}  // namespace

std::string runCertified(const Plan& plan, const CertifiedSeamOf& seamOf) {
    const Composition composition = compose(plan);
    CertifiedChecker checker(composition.peers);
    std::vector<std::vector<uint32_t>> counts(plan.nodes, std::vector<uint32_t>(subjects.size()));
    std::vector<Time> started(plan.nodes, -1);
    World* inside = nullptr;
    const auto kindOf = [](const message::ContentRef& content) -> uint32_t {
        const auto attributes = companion::Access::wrap(content).attributes();
        return attributes.size() > 2 ? attributes[2] : 0;
    };
    const auto start = [&](Node& node) {
        const uint32_t number = node.number();
        const Time now = inside != nullptr ? inside->now() : 0;
        const bool lostPower = std::ranges::any_of(plan.faults, [&](const FaultStep& fault) {
            return fault.fault == Fault::powerLoss && fault.node == number && fault.at > started[number] &&
                   fault.at <= now;
        });
        started[number] = now;
        runs.kills += node.starts() > 1;
        checker.starts(number, lostPower);
        CertifiedSeam seam;
        if (seamOf) seam = seamOf(number < composition.senders);
        return std::make_unique<Guest>(node, composition, checker, lostPower, std::move(seam), counts[number]);
    };
    World world(plan, start, kindOf);
    inside = &world;
    world.run(plan.healedAt, [&] { return !checker.broken().empty(); });
    const auto kept = [&]() -> std::string {
        for (uint32_t node = 0; node < plan.nodes; ++node) {
            auto* guest = static_cast<Guest*>(world.node(node).program());
            if (guest == nullptr) return "a node is down";
            const certified::Counts now = guest->machine().counts();
            runs.highestMemory = std::max(runs.highestMemory, now.memory);
            // What is for a listener that never comes back stays.
            if (guest->isSender() && now.messages != 0 && plan.healed == ~uint64_t{0} &&
                std::ranges::all_of(composition.peers, &CertifiedChecker::Peer::durable))
                return "sender " + std::to_string(node) + " keeps " + std::to_string(now.messages) +
                       " messages that everybody has confirmed";
        }
        return "";
    };
    uint64_t looks = 0;
    if (checker.broken().empty()) {
        world.run(plan.healedAt + 150 * second, [&] {
            return !checker.broken().empty() ||
                   (checker.satisfied() && ++looks % 16 == 0 && kept().empty() && checker.untold().empty());
        });
        // What is late, and what would come twice.
        if (checker.broken().empty()) world.run(world.now() + second, [&] { return !checker.broken().empty(); });
        if (checker.broken().empty()) checker.finish();
    }
    std::string broken = checker.broken();
    if (broken.empty()) broken = kept();
    if (broken.empty() && plan.healed == ~uint64_t{0} &&
        std::ranges::all_of(composition.peers, &CertifiedChecker::Peer::durable)) {
        for (uint32_t node = 0; node < composition.senders; ++node) {
            for (const auto& [key, value] : world.node(node).stored()) {
                if (key.front() == 'M') broken = "the ledger of sender " + std::to_string(node) + " keeps a message";
            }
        }
    }
    ++runs.runs;
    runs.events += world.events();
    addUp(checker.totals());
    return broken;
}

namespace {

void drawWork(Random& random, const Composition& composition, Time from, Time to, Plan& plan) {
    const uint64_t sends = random.between(1, 12);
    for (uint64_t i = 0; i < sends; ++i) {
        WorkStep step;
        step.at = random.between(from, to);
        step.node = static_cast<uint32_t>(random.below(composition.senders));
        step.kind = random.below(8) == 0 ? sendLimited : sendSome;
        step.argument = random.below(4) << 8 | static_cast<uint64_t>(random.between(1, random.below(4) == 0 ? 20 : 3));
        plan.work.push_back(step);
    }
    for (uint64_t i = random.below(3); i != 0; --i) {
        WorkStep step;
        step.at = random.between(from, to);
        step.node = composition.senders + static_cast<uint32_t>(random.below(composition.listeners));
        step.kind = random.coin() ? listenAgain : cancelAndListen;
        plan.work.push_back(step);
    }
}

}  // namespace

Plan drawCertified(uint64_t seed) {
    Plan plan;
    plan.seed = seed;
    const Composition composition = compose(plan);
    plan.nodes = composition.senders + composition.listeners;
    Random random(seed);
    plan.rates = drawRates(random);
    FaultChoice choice;
    choice.span = 6 * second;
    choice.longest = 3 * second;
    plan.faults = drawFaults(random, plan.nodes, choice);
    drawWork(random, composition, 0, 6 * second, plan);
    plan.healedAt = 8 * second;
    if (random.coin()) {
        // Frames of one kind are lost, or late by long; now and then by longer than any pause.
        Time span = 6 * second;
        if (random.below(8) == 0) {
            plan.healedAt = 45 * second;
            drawWork(random, composition, span, 40 * second, plan);
            span = 40 * second;
            choice.span = span;
            const auto later = drawFaults(random, plan.nodes, choice);
            plan.faults.insert(plan.faults.end(), later.begin(), later.end());
        }
        const auto selective = drawSelective(random, plan.nodes, certified::kindMax, span, plan.healedAt);
        plan.faults.insert(plan.faults.end(), selective.begin(), selective.end());
    }
    std::ranges::stable_sort(plan.faults, {}, &FaultStep::at);
    std::ranges::stable_sort(plan.work, {}, &WorkStep::at);
    if (random.below(8) == 0) {
        // One of them is not heard of again.
        plan.healed = ~(uint64_t{1} << random.below(plan.nodes));
    }
    return plan;
}

std::string nameOfCertifiedWork(const WorkStep& step) {
    switch (step.kind) {
        case sendSome:
            return "send";
        case sendLimited:
            return "send for a time";
        case listenAgain:
            return "listen again";
        default:
            return "cancel, listen";
    }
}

const CertifiedRuns& certifiedRuns() {
    return runs;
}

}  // namespace quorl::sim
