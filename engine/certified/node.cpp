// Making and closing certified transports, and carrying out the steps of their machines.
#include "certified/node.h"

#include <sys/random.h>

#include <algorithm>
#include <new>

#include "certified/advisories.h"
#include "certified/damage.h"
#include "certified/listener.h"
#include "certified/protocol/subject.h"
#include "companion/module.h"
#include "companion/status.h"
#include "companion/transport.h"

namespace quorl::certified {

using companion::fail;
using companion::Message;
using companion::Type;

namespace {

constexpr int64_t pauseWithoutRoom = 2'000'000;  // nanoseconds
constexpr int64_t pauseWithoutMemory = 10'000'000;
constexpr int64_t lastWords = 2'000'000'000;  // to wait for room when it closes
constexpr size_t backlogMost = 20'000;        // messages that wait for room; what is beyond is as if it were lost

quorl_status noMemory() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for a certified transport");
}

quorl_status report(const Outcome& outcome) noexcept {
    return outcome.ok() ? QUORL_OK : fail(outcome.status, "%s", outcome.reason());
}

bool draw(void* to, size_t size) noexcept {
    auto* bytes = static_cast<unsigned char*>(to);
    for (size_t have = 0; have < size;) {
        const ssize_t got = getrandom(bytes + have, size - have, 0);
        if (got <= 0) return false;
        have += static_cast<size_t>(got);
    }
    return true;
}

bool drawChance(Chance* chance) noexcept {
    return draw(&chance->incarnation, sizeof chance->incarnation) && draw(&chance->instance, sizeof chance->instance) &&
           draw(chance->senderKey.data(), sizeof chance->senderKey) &&
           draw(chance->listenerKey.data(), sizeof chance->listenerKey);
}

}  // namespace

Node::Node(const Wish& wish, const Settings& settings, const Chance& chance)
    : transport_(wish.transport),
      name_(settings.name),
      committer_([this](uint64_t token, const Outcome& outcome) {
          After after;
          ended(token, outcome, after);
          finish(after, Waits::no);
      }),
      syncs_(wish.sync),
      standIn_(wish.standIn),
      machine_(settings, chance),
      offLine_(!wish.relay.empty()) {}

Node::~Node() = default;

// ---- coming

quorl_status Node::create(const Wish& wish, uint32_t* id) {
    if (const quorl_status status = useModule(); status != QUORL_OK) return status;
    // Also tells whether there is such a transport, before a file is touched.
    std::string own;
    if (const quorl_status status = companion::createInbox(wish.transport, &own); status != QUORL_OK) return status;
    Settings settings;
    settings.lasting = !wish.name.empty();
    if (!settings.lasting && !wish.ledger.empty())
        return fail(QUORL_INVALID_ARG, "a ledger needs a certified name, and none was given");
    settings.name = settings.lasting ? wish.name : own;
    if (settings.lasting && (!validName(settings.name) || settings.name.front() == '_'))
        return fail(QUORL_INVALID_NAME,
                    "\"%.*s\" is not a valid certified name: it is a subject of at most %zu bytes that has no "
                    "wildcards and does "
                    "not begin with \"_\"",
                    static_cast<int>(std::min(settings.name.size(), nameMax)), settings.name.c_str(), nameMax);
    const bool relayed = !wish.relay.empty();
    if (relayed && (!validName(wish.relay) || wish.relay.front() == '_'))
        return fail(QUORL_INVALID_NAME, "\"%.*s\" is not a valid name of a relay agent",
                    static_cast<int>(std::min(wish.relay.size(), nameMax)), wish.relay.c_str());
    if (relayed && (!settings.lasting || wish.ledger.empty()))
        return fail(QUORL_INVALID_ARG, "a transport with a relay agent needs a certified name and a ledger");
    // What a relay agent or anybody else has kept while the transport was away is wanted.
    settings.requestOld = wish.requestOld || relayed;
    // A stand-in confirms nothing.
    if (wish.standIn != nullptr) settings.inFlight = UINT32_MAX;
    settings.ledger = !wish.ledger.empty();
    settings.mayLoseTail = settings.ledger && !wish.sync;
    settings.pendingBytes = uint64_t{companion::parameters::pendingMegabytes()} << 20;
    Chance chance;
    if (!drawChance(&chance)) return fail(QUORL_OS_ERROR, "the system provides no random numbers");

    const auto node = std::make_shared<Node>(wish, settings, chance);
    if (relayed) {
        node->relay_ = std::make_unique<RelayLink>(static_cast<RelayLink::Owner&>(*node), wish.transport, wish.relay,
                                                   settings.name);
        if (const quorl_status status = node->relay_->open(); status != QUORL_OK) return status;
    }
    if (settings.ledger) {
        const Outcome opened = Ledger::open({.path = wish.ledger,
                                             .name = settings.name,
                                             .durability = wish.sync ? Durability::power : Durability::process},
                                            &node->ledger_);
        if (!opened.ok()) {
            tellDamage(settings.name, wish.ledger, opened);
            return report(opened);
        }
        if (const quorl_status status = node->load(); status != QUORL_OK) return status;
        if (const quorl_status status = node->committer_.start(*node->ledger_); status != QUORL_OK) return status;
    }
    uint32_t made = 0;
    ++figures().transports;
    quorl_status status =
        companion::publish(node, {.type = Type::certifiedTransport, .transport = node->transport_}, &made);
    if (status != QUORL_OK) {
        --figures().transports;
        return status;
    }
    node->id_ = made;
    status = node->start(wish.patterns);
    if (status != QUORL_OK) {
        companion::KeptErrorText kept;
        companion::close(Type::certifiedTransport, made);
        return status;
    }
    *id = made;
    return QUORL_OK;
}

// What the ledger holds, for the machine, which may refuse it. Until then the file is as it was.
quorl_status Node::load() {
    struct Into final : Loader {
        explicit Into(Node& its) : node(its) {}
        void state(std::string_view key, std::string_view value) override {
            relays = relays || key.front() == relayClientKey;
            if (status == QUORL_OK) status = node.machine_.load(key, value);
        }
        void message(const StoredMessage& message) override {
            if (status == QUORL_OK) status = node.machine_.load(message);
        }
        void damaged(const StoredMessage&, const Finding& finding) override { tellFinding(node.name_, finding); }
        Outcome verdict() override {
            const std::string ledger = "the ledger " + node.ledger_->path();
            // It has the relay agent's name and no state of a transport's, and its messages would make no sense.
            if (relays)
                return {QUORL_NOT_FILE_OWNER,
                        ledger + " is that of the relay agent of this name, and no transport's; it is left as it is"};
            if (status == QUORL_OK) status = node.machine_.check();
            switch (status) {
                case QUORL_OK:
                    return {};
                case QUORL_VERSION_MISMATCH:
                    return {status, ledger + " was written by a newer release; open it with that one"};
                case QUORL_ARG_CONFLICT:
                    return {status, ledger + " has the state of another certified name; it is left as it is"};
                default:
                    return {status, ledger +
                                        " is damaged: its state makes no sense; it is left as it is, and "
                                        "quorl-ledger export writes the messages that it has"};
            }
        }
        Node& node;
        quorl_status status = QUORL_OK;
        bool relays = false;
    } into(*this);
    const Outcome outcome = ledger_->load(into);
    if (outcome.ok()) return QUORL_OK;
    const std::string path = ledger_->path();
    ledger_.reset();
    tellDamage(name_, path, outcome);
    return report(outcome);
}

quorl_status Node::hear(std::string_view subject, uint32_t number) noexcept {
    uint32_t ear = 0;
    if (const quorl_status status = host().listen(*this, transport_, subject, &ear); status != QUORL_OK) return status;
    try {
        const std::lock_guard lock(lock_);
        ears_.emplace(ear, number);
        if (relay_ && subject == relay_->inbox()) relayEar_ = ear;
    } catch (const std::bad_alloc&) {
        host().unlisten(ear);
        return noMemory();
    }
    return QUORL_OK;
}

quorl_status Node::start(const std::vector<std::string>& patterns) noexcept {
    quorl_status status = host().add(shared_from_this());
    if (status == QUORL_OK) status = hear(machine_.address(), 0);
    if (status == QUORL_OK) status = hear(everybody, 0);
    if (status == QUORL_OK && relay_) status = hear(relay_->inbox(), 0);
    const bool complete = ledger_ != nullptr && ledger_->complete();
    if (status == QUORL_OK)
        status =
            step([&](Machine& machine, Now now, Output& out) { return machine.start(complete, now, out); }, Waits::yes);
    for (uint32_t i = 0; i < patterns.size() && status == QUORL_OK; ++i) {
        status = hear(patterns[i], i + 1);
        if (status != QUORL_OK) break;
        status = step([&](Machine& machine, Now now,
                          Output& out) { return machine.createListener(i + 1, patterns[i], now, out); },
                      Waits::yes);
    }
    started_ = status == QUORL_OK;
    return status;
}

// ---- going

void Node::closed() noexcept {
    std::map<uint32_t, uint32_t> listeners;
    std::map<uint32_t, uint32_t> ears;
    {
        const std::lock_guard lock(lock_);
        try {
            listeners = listeners_;
        } catch (const std::bad_alloc&) {
            listeners.swap(listeners_);
        }
        for (auto& [number, request] : requests_) {
            request->aborted = true;
            request->changed.notify_all();
        }
    }
    if (relay_) relay_->stop();
    // Each finds its listener here, and what it is told of is what it had.
    for (const auto& [number, ear] : listeners) companion::close(Type::certifiedListener, number);
    After after;
    locked(
        [&](Machine& machine, Now now, Output& out) {
            machine.close(now, out);
            ended_ = true;
            ears.swap(ears_);
            return QUORL_OK;
        },
        after);
    finish(after, Waits::yes);
    flushAll(companion::monotonicNow() + lastWords);
    for (const auto& [ear, number] : ears) host().unlisten(ear);
    host().remove(*this);
    committer_.stop();
    --figures().transports;
}

// The file is closed before the program is told.
void Node::completed() noexcept {
    ledger_.reset();
    complete(id_);
}

void Node::parentClosed() noexcept {
    const std::lock_guard lock(lock_);
    backlog_.clear();
}

void Node::parentBack() noexcept {
    if (!started_) return;  // what it says then it says on the way that is there now
    back_ = true;
    host().schedule(*this, companion::monotonicNow());
}

// ---- steps

// Under the lock.
void Node::carryOut(quorl_status status, After& after) noexcept {
    for (;;) {
        Outcome stored;
        const uint64_t token = out_.store.token;
        if (token != 0) {
            Ledger::Ticket ticket;
            stored = ledger_->submit(std::move(out_.store), &ticket);
            if (stored.ok()) {
                after.stored = {std::move(ticket), token};
            } else {
                after.refused.status = stored.status;
            }
        }
        try {
            for (Message& message : out_.messages) {
                if (backlog_.size() >= backlogMost) break;
                backlog_.push_back(std::move(message));
            }
            after.fetches.insert(after.fetches.end(), out_.fetches.begin(), out_.fetches.end());
            after.events.insert(after.events.end(), std::make_move_iterator(out_.events.begin()),
                                std::make_move_iterator(out_.events.end()));
        } catch (const std::bad_alloc&) {
            // As if frames had been lost, and events are not told.
        }
        flush(after);
        deliver(out_.deliveries);
        if (stored.ok()) break;
        out_.clear();
        try {
            storageText_ = stored.reason();
        } catch (const std::bad_alloc&) {
            storageText_.clear();
        }
        const bool told = tellFailure(token, stored.status);
        after.refused.text = std::move(stored.text);
        if (!told) break;
    }
    int64_t due = machine_.due();
    const int64_t present = companion::monotonicNow();
    if (!backlog_.empty()) due = std::min(due, present + pauseWithoutRoom);
    // A machine that had no memory may be due at once again.
    if (status == QUORL_NO_MEMORY) due = std::max(due, present + pauseWithoutMemory);
    if (untold_ != 0) due = std::min(due, present + pauseWithoutMemory);
    if (due != INT64_MAX && !ended_) host().schedule(*this, due);
}

// Under the lock. False: there was no memory for it. It is told before anything else then, or the machine would take for stored
// what is not.
bool Node::tellFailure(uint64_t token, quorl_status status) noexcept {
    try {
        machine_.storageFailed(token, status, now(), out_);
        untold_ = 0;
        return true;
    } catch (const std::bad_alloc&) {
        if (untold_ == 0 || token < untold_) {
            untold_ = token;
            untoldStatus_ = status;
        }
        return false;
    }
}

// Under the lock: sends what there is room for.
void Node::flush(After& after) noexcept {
    // As if it were lost: who needs it asks when the network is there again.
    if (offLine_) backlog_.clear();
    after.waitsForRoom = false;
    while (!backlog_.empty()) {
        const quorl_status status = companion::send(transport_, backlog_.front());
        if (status == companion::noRoom) {
            after.waitsForRoom = true;
            return;
        }
        if (status != QUORL_OK && after.sent == QUORL_OK) after.sent = status;
        backlog_.pop_front();
    }
}

// Waits for room, for as long as messages wait for some. Not on the host's thread.
void Node::flushAll(int64_t deadline) noexcept {
    for (;;) {
        const uint32_t seen = companion::roomReports(transport_);
        {
            After after;
            const std::lock_guard lock(lock_);
            flush(after);
            if (backlog_.empty()) return;
        }
        if (companion::monotonicNow() >= deadline || companion::awaitRoom(transport_, seen, deadline) != QUORL_OK)
            return;
    }
}

// Under the lock, so that queues have the order of the steps.
void Node::deliver(std::vector<Delivery>& deliveries) noexcept {
    if (deliveries.empty()) return;
    companion::KeptErrorText kept;
    for (Delivery& delivery : deliveries) {
        if (standIn_ != nullptr) {
            if (delivery.stream != 0) standIn_->delivered(delivery.message);
        } else if (const auto request = requests_.find(delivery.listener); request != requests_.end()) {
            if (request->second->replied) continue;
            request->second->reply = std::move(delivery.message);
            request->second->replied = true;
            request->second->changed.notify_all();
        } else if (companion::post(Type::certifiedListener, delivery.listener, delivery.message) == QUORL_OK) {
            ++figures().delivered;
        }
    }
}

std::string Node::storageText() noexcept {
    try {
        const std::lock_guard lock(lock_);
        return storageText_;
    } catch (const std::bad_alloc&) {
        return {};
    }
}

quorl_status Node::finish(After& after, Waits waits) noexcept {
    quorl_status status = after.refused.ok() ? QUORL_OK : report(after.refused);
    for (;;) {
        for (const Event& event : std::exchange(after.events, {})) {
            if (event.kind == Event::Kind::storageFailed) {
                tell(event, id_, name_, storageText());
            } else {
                tell(event, id_, name_);
            }
        }
        if (const Pending stored = std::exchange(after.stored, {}); stored.token != 0) {
            if (waits == Waits::no && committer_.add(stored)) {
                // Told later.
            } else {
                const Outcome outcome = ledger_->wait(stored.ticket);
                ended(stored.token, outcome, after);
                if (!outcome.ok() && status == QUORL_OK) status = report(outcome);
            }
            waits = Waits::no;
        }
        if (after.fetches.empty()) {
            if (after.stored.token == 0 && after.events.empty()) return status;
            continue;
        }
        for (const Fetch& fetch : std::exchange(after.fetches, {})) {
            Message message;
            if (ledger_ != nullptr) ledger_->read(fetch.subject, fetch.number, &message);
            locked(
                [&](Machine& machine, Now now, Output& out) {
                    machine.fetched(fetch, message, now, out);
                    return QUORL_OK;
                },
                after, true);
        }
    }
}

void Node::ended(uint64_t token, const Outcome& outcome, After& after) noexcept {
    locked(
        [&](Machine& machine, Now now, Output& out) {
            if (outcome.ok()) {
                machine.persisted(token, now, out);
                return QUORL_OK;
            }
            try {
                storageText_ = outcome.reason();
            } catch (const std::bad_alloc&) {
                storageText_.clear();
            }
            return tellFailure(token, outcome.status) ? QUORL_OK : QUORL_NO_MEMORY;
        },
        after, true);
}

void Node::wake() noexcept {
    const companion::Hold<Node> held(Type::certifiedTransport, id_);
    if (!held) return;
    if (back_.exchange(false)) {
        const quorl_status status = step(
            [this](Machine& machine, Now now, Output& out) {
                if (!offLine_) machine.backOnLine(now, out);
                return QUORL_OK;
            },
            Waits::no);
        if (status == QUORL_NO_MEMORY) {
            back_ = true;
            host().schedule(*this, companion::monotonicNow() + pauseWithoutMemory);
        }
    }
    step(
        [](Machine& machine, Now now, Output& out) {
            machine.tick(now, out);
            return QUORL_OK;
        },
        Waits::no);
}

void Node::received(uint32_t ear, Message&& message) noexcept {
    const companion::Hold<Node> held(Type::certifiedTransport, id_);
    if (!held) return;
    bool relayed = false;
    step(
        [&](Machine& machine, Now now, Output& out) {
            const auto known = ears_.find(ear);
            relayed = known != ears_.end() && ear == relayEar_;
            if (known == ears_.end() || relayed || offLine_) return QUORL_OK;
            if (standIn_ != nullptr && known->second == 0 && machine.believes(message)) standIn_->heard(message);
            machine.receive(std::move(message), known->second, now, out);
            return QUORL_OK;
        },
        Waits::no);
    if (relayed) relay_->received(message);
}

// ---- what a status of the machine means

quorl_status Node::explain(quorl_status status) noexcept {
    switch (status) {
        case QUORL_INVALID_TRANSPORT:
            return fail(status, "certified transport %u does not exist or has been destroyed", id_.load());
        case QUORL_INVALID_SUBJECT:
            return fail(status,
                        "the subject is missing, malformed or the system's, or has a wildcard where none may be");
        case QUORL_INVALID_NAME:
            return fail(status, "a certified name is a subject without wildcards of at most %zu bytes", nameMax);
        case QUORL_QUEUE_LIMIT:
            return fail(status,
                        "the certified transport \"%s\" keeps as much as it may for listeners that have not confirmed "
                        "(parameter certified.pending)",
                        name_.c_str());
        case QUORL_NOT_PERMITTED:
            return fail(status, "another program has the certified name \"%s\"", name_.c_str());
        case QUORL_NOT_FOUND:
            return fail(status, "the certified transport \"%s\" knows of no such listener, subject or message",
                        name_.c_str());
        case QUORL_NO_MEMORY:
            return noMemory();
        default:
            break;
    }
    const std::lock_guard lock(lock_);
    if (storageText_.empty()) return fail(status, "the certified transport \"%s\" cannot do this", name_.c_str());
    return fail(status, "the ledger takes nothing at present: %s", storageText_.c_str());
}

}  // namespace quorl::certified
