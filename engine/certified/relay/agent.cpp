// Answering transports, and standing in for them.
#include "certified/relay/agent.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <tuple>

#include "certified/protocol/subject.h"
#include "companion/module.h"
#include "companion/status.h"
#include "companion/transport.h"

namespace quorl::certified {

using companion::fail;
using companion::Message;

namespace {

constexpr size_t requestsMost = 20'000;   // that wait; what is beyond is as if it were lost
constexpr size_t batch = 128;             // items sent when asked
constexpr size_t atOnce = 256;            // requests handled before it is said how far copies have come
constexpr size_t stateMost = 256u << 20;  // bytes of state in all copies that are being handed over
constexpr std::string_view knowsTooMany = "it knows as many transports as it may";
constexpr size_t clientsMost = 4'000;  // transports that are known
constexpr int sweepEvery = 5'000;      // milliseconds
// After which a copy that was begun is given up: longer than a transport waits.
constexpr int64_t copySilence = 30'000'000'000;
constexpr int64_t nothingForThisLong = 1;  // second

quorl_status report(const Outcome& outcome) noexcept {
    return outcome.ok() ? QUORL_OK
                        : fail(outcome.status, "%s", outcome.text.empty() ? "no memory" : outcome.text.c_str());
}

std::span<const uint8_t> bytesOf(std::string_view text) noexcept {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

}  // namespace

// ---- starting and ending

// What the agent's ledger holds.
class RelayAgent::Loading final : public Loader {
  public:
    explicit Loading(RelayAgent& agent) : agent_(agent) {}
    void state(std::string_view key, std::string_view value) override { states_.emplace_back(key, value); }
    void message(const StoredMessage& message) override { messages_.push_back(message); }
    Outcome verdict() override {
        if (makesSense()) return {};
        return {QUORL_INVALID_FILE,
                "the ledger " + agent_.ledgerPath_ + " is damaged, or not that of a relay agent; it is left as it is"};
    }

  private:
    // Clients first, since items name them.
    bool makesSense() {
        std::map<uint32_t, Client*> byNumber;
        for (const auto& [key, value] : states_) {
            // What a certified transport keeps for itself.
            if (key.front() != relayClientKey && key.front() != Mailbox::key) return false;
            if (key.front() != relayClientKey) continue;
            Reader reader{std::string_view(value)};
            const uint64_t number = reader.number();
            const bool away = reader.byte() != 0;
            const uint64_t count = reader.number();
            const std::string_view name = std::string_view(key).substr(1);
            if (!reader.ok() || number == 0 || number > UINT32_MAX || !validName(name)) return false;
            auto made = std::make_unique<Client>(agent_, static_cast<uint32_t>(number), name, agent_.limit_);
            made->away = away;
            for (uint64_t i = 0; i < count && reader.ok(); ++i) made->patterns.emplace_back(reader.text());
            if (!reader.done()) return false;
            agent_.lastClient_ = std::max(agent_.lastClient_, made->number);
            byNumber[made->number] = made.get();
            agent_.clients_[std::string(name)] = std::move(made);
        }
        const auto of = [&](uint64_t number) {
            const auto found = byNumber.find(static_cast<uint32_t>(number));
            return found == byNumber.end() ? nullptr : found->second;
        };
        for (const auto& [key, value] : states_) {
            if (key.front() != Mailbox::key) continue;
            const std::string_view rest = std::string_view(key).substr(1);
            Reader reader(rest);
            Client* client = of(reader.number());
            if (client == nullptr || !client->mailbox.load(rest.substr(rest.size() - reader.left()), value))
                return false;
        }
        for (const StoredMessage& message : messages_) {
            if (Client* client = of(message.subject); client != nullptr) client->mailbox.load(message);
        }
        return true;
    }

    RelayAgent& agent_;
    std::vector<std::pair<std::string, std::string>> states_;
    std::vector<StoredMessage> messages_;
};

RelayAgent::RelayAgent(const Wish& wish)
    : transport_(wish.transport),
      name_(wish.name),
      ledgerPath_(wish.ledger),
      sync_(wish.sync),
      limit_(uint64_t{companion::parameters::pendingMegabytes()} << 20),
      committer_([this](uint64_t token, const Outcome& outcome) {
          const std::lock_guard lock(lock_);
          ended(token, outcome);
      }) {}

quorl_status RelayAgent::run(const Wish& wish, int stop, void (*ready)()) {
    if (const quorl_status status = useModule(); status != QUORL_OK) return status;
    if (!validName(wish.name) || wish.name.front() == '_')
        return fail(QUORL_INVALID_NAME, "\"%.*s\" is not a valid name of a relay agent",
                    static_cast<int>(std::min(wish.name.size(), nameMax)), wish.name.c_str());
    const auto agent = std::make_shared<RelayAgent>(wish);
    quorl_status status = agent->open();
    if (status == QUORL_OK) status = agent->start(ready);
    if (status == QUORL_OK) agent->serve(stop);
    agent->end();
    return status;
}

quorl_status RelayAgent::open() {
    Outcome outcome = Ledger::open(
        {.path = ledgerPath_, .name = name_, .durability = sync_ ? Durability::power : Durability::process}, &ledger_);
    Loading loading(*this);
    if (outcome.ok()) outcome = ledger_->load(loading);
    return outcome.ok() ? committer_.start(*ledger_) : report(outcome);
}

quorl_status RelayAgent::start(void (*ready)()) {
    wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_ < 0) return fail(QUORL_OS_ERROR, "no eventfd: %s", strerror(errno));
    if (const quorl_status status = companion::checkSubject(transport_, std::string(relayPrefix) + name_);
        status != QUORL_OK)
        return status;
    for (auto& [name, client] : clients_) {
        if (!client->away) {
            // A copy that was not complete when the agent ended.
            removeCopy(*client);
            continue;
        }
        if (const quorl_status status = standIn(*client); status != QUORL_OK) return status;
    }
    if (const quorl_status status = host().add(shared_from_this()); status != QUORL_OK) return status;
    uint32_t ear = 0;
    const quorl_status status = host().listen(*this, transport_, std::string(relayPrefix) + name_, &ear);
    if (status == QUORL_OK && ready != nullptr) ready();
    return status;
}

void RelayAgent::serve(int stop) {
    bool waits = false;  // a request does
    for (;;) {
        std::array<pollfd, 2> ends{{{stop, POLLIN, 0}, {wake_, POLLIN, 0}}};
        if (poll(ends.data(), ends.size(), waits ? 0 : sweepEvery) < 0 && errno != EINTR) return;
        if (ends[0].revents != 0) return;
        uint64_t count = 0;
        static_cast<void>(!read(wake_, &count, sizeof count));
        waits = false;
        for (size_t handled = 0;; ++handled) {
            Message message;
            {
                const std::lock_guard lock(lock_);
                waits = !requests_.empty() && handled == atOnce;
                if (!requests_.empty() && !waits) {
                    message = std::move(requests_.front());
                    requests_.pop_front();
                }
            }
            if (!message) break;
            try {
                handle(message);
            } catch (const std::bad_alloc&) {
                // As if it had been lost.
            }
        }
        for (auto& [name, client] : clients_) {
            if (!client->ackDue) continue;
            client->ackDue = false;
            RelayFrame got;
            got.kind = RelayKind::got;
            got.name = client->name;
            got.exchange = client->exchange;
            got.number = client->got;
            answer(got, client->inbox);
        }
        sweep();
    }
}

void RelayAgent::dropCopy(Client& client) {
    stateBytes_ -= client.state.size();
    client.state = {};
    const bool begun = client.copies();
    client.copy.reset();
    client.exchange = 0;
    if (begun && !client.away) removeCopy(client);
}

void RelayAgent::sweep() {
    const int64_t now = companion::monotonicNow();
    for (auto& [name, client] : clients_) {
        if (client->copies() && !client->away && now - client->partAt > copySilence) dropCopy(*client);
    }
}

// What is only known, and has nothing here, is forgotten.
bool RelayAgent::makeRoom() {
    if (clients_.size() < clientsMost) return true;
    std::unique_lock lock(lock_);
    const auto found = std::ranges::find_if(clients_, [](const auto& each) {
        const Client& client = *each.second;
        return !client.away && !client.copies() && client.mailbox.items().empty();
    });
    if (found == clients_.end()) return false;
    Transaction transaction;
    Write write;
    write.kind = Write::Kind::eraseState;
    write.key = relayClientKey + found->first;
    transaction.writes.push_back(std::move(write));
    clients_.erase(found);
    submit(std::move(transaction), false, lock);
    return true;
}

void RelayAgent::end() {
    {
        const std::lock_guard lock(lock_);
        ended_ = true;
    }
    for (auto& [name, client] : clients_) standDown(*client);
    host().remove(*this);
    committer_.stop();
    ledger_.reset();
    if (wake_ >= 0) close(wake_);
    wake_ = -1;
}

void RelayAgent::received(uint32_t, Message&& message) noexcept {
    try {
        const std::lock_guard lock(lock_);
        if (ended_ || requests_.size() >= requestsMost) return;
        requests_.push_back(std::move(message));
        const uint64_t one = 1;
        static_cast<void>(!write(wake_, &one, sizeof one));
    } catch (const std::bad_alloc&) {
    }
}

// ---- the ledger

Outcome RelayAgent::submit(Transaction transaction, bool wait, std::unique_lock<std::mutex>& lock) {
    if (transaction.writes.empty()) return {};
    transaction.token = ++lastToken_;
    transaction.afterFailure = failed_;
    Ledger::Ticket ticket;
    Outcome outcome = ledger_->submit(std::move(transaction), &ticket);
    if (!outcome.ok()) return outcome;
    failed_ = false;
    const Pending pending{ticket, lastToken_};
    if (!wait && committer_.add(pending)) return outcome;
    lock.unlock();
    Outcome stored = ledger_->wait(ticket);
    lock.lock();
    failed_ = failed_ || !stored.ok();
    return stored;
}

Outcome RelayAgent::storeClient(const Client& client) {
    Transaction transaction;
    Write write;
    write.kind = Write::Kind::putState;
    write.key = relayClientKey + client.name;
    Writer<32> head;
    head.number(client.number);
    head.byte(client.away ? 1 : 0);
    head.number(client.patterns.size());
    write.value = head.string();
    for (const std::string& pattern : client.patterns) {
        Writer<300> text;
        text.text(pattern);
        write.value += text.string();
    }
    transaction.writes.push_back(std::move(write));
    transaction.sync = true;
    std::unique_lock lock(lock_);
    return submit(std::move(transaction), true, lock);
}

// ---- requests

RelayAgent::Client* RelayAgent::client(std::string_view name, bool make) {
    const auto found = clients_.find(name);
    if (found != clients_.end()) return found->second.get();
    if (!make || !makeRoom()) return nullptr;
    auto made = std::make_unique<Client>(*this, lastClient_ + 1, name, limit_);
    Client& client = *made;
    const std::lock_guard lock(lock_);
    clients_.emplace(std::string(name), std::move(made));
    ++lastClient_;
    return &client;
}

void RelayAgent::answer(const RelayFrame& frame, std::string_view inbox, const Message* fields) const {
    FrameWriter writer;
    encode(frame, writer);
    Message message;
    quorl_status status = fields != nullptr ? fields->withSubjects(inbox, fields->replySubject(), &message)
                                            : Message::empty(inbox, &message);
    if (status == QUORL_OK) status = message.withAttributes(writer.bytes(), &message);
    if (status != QUORL_OK) return;
    const int64_t deadline = companion::deadlineAfter(nothingForThisLong);
    for (;;) {
        const uint32_t seen = companion::roomReports(transport_);
        if (companion::send(transport_, message) != companion::noRoom) return;
        if (companion::awaitRoom(transport_, seen, deadline) != QUORL_OK || companion::monotonicNow() >= deadline)
            return;
    }
}

void RelayAgent::handle(const Message& message) {
    RelayFrame frame;
    // Answers go to inboxes: nobody is made to send to a program's subjects.
    if (!decode(message.attributes(), &frame) || !frame.inbox.starts_with("_INBOX.")) return;
    const bool begins = frame.kind == RelayKind::connect || frame.kind == RelayKind::state;
    Client* its = client(frame.name, begins);
    if (its == nullptr && begins) {
        RelayFrame full;
        full.kind = RelayKind::failed;
        full.name = frame.name;
        full.exchange = frame.exchange;
        full.rest = bytesOf(knowsTooMany);
        return answer(full, frame.inbox);
    }
    if (its == nullptr) return;
    switch (frame.kind) {
        case RelayKind::connect:
            return onConnect(*its, frame);
        case RelayKind::take:
            return onTake(*its, frame);
        case RelayKind::state:
        case RelayKind::message:
            return onPart(*its, frame, message);
        case RelayKind::end:
            return onEnd(*its, frame);
        default:
            return;
    }
}

void RelayAgent::onConnect(Client& client, const RelayFrame& frame) {
    RelayFrame reply;
    reply.name = client.name;
    reply.exchange = frame.exchange;
    const bool known = client.away;
    dropCopy(client);
    client.away = false;
    if (known) {
        // Stored before the copy goes: an agent that starts again must not miss what it does not need.
        const Outcome stored = storeClient(client);
        if (!stored.ok()) {
            client.away = true;
            reply.kind = RelayKind::failed;
            reply.rest = bytesOf(stored.text);
            return answer(reply, frame.inbox);
        }
        standDown(client);
        removeCopy(client);
    }
    {
        const std::lock_guard lock(lock_);
        client.mailbox.accept();
    }
    reply.kind = RelayKind::connected;
    answer(reply, frame.inbox);
}

void RelayAgent::onTake(Client& client, const RelayFrame& frame) {
    struct One {
        uint64_t number;
        uint64_t before;
        Mailbox::Item item;
    };
    std::vector<One> found;
    uint64_t next = frame.number;
    bool more = false;
    {
        std::unique_lock lock(lock_);
        Transaction transaction;
        uint64_t previous = 0;
        for (Reader rest(frame.rest); rest.left() != 0;) {
            const uint64_t first = previous + rest.number();
            const uint64_t last = first + rest.number();
            if (!rest.ok() || first <= previous || last < first) break;
            client.mailbox.forget(first, last, &transaction);
            previous = last;
        }
        submit(std::move(transaction), false, lock);
        const auto& items = client.mailbox.items();
        auto at = items.lower_bound(frame.number);
        uint64_t before = 0;
        if (frame.number != 0) {
            for (; at != items.end() && found.size() < batch; ++at) {
                found.push_back({at->first, before, at->second});
                before = at->first;
                next = at->first + 1;
            }
            more = at != items.end();
        }
    }
    if (frame.number == 0) return;
    RelayFrame reply;
    reply.name = client.name;
    reply.exchange = frame.exchange;
    for (const One& one : found) {
        Message image;
        if (const Outcome read = ledger_->read(client.number, one.number, &image); !read.ok()) {
            if (read.status == QUORL_NO_MEMORY) return;
            // The transport asks again, and is given what is left.
            std::unique_lock lock(lock_);
            Transaction transaction;
            client.mailbox.giveUp(one.number, &transaction);
            submit(std::move(transaction), false, lock);
            return;
        }
        reply.kind = RelayKind::item;
        reply.number = one.number;
        reply.last = one.before;
        FrameWriter rest;
        rest.number(one.item.after);
        rest.text(one.item.subject);
        rest.raw(one.item.attributes.data(), one.item.attributes.size());
        reply.rest = rest.bytes();
        answer(reply, frame.inbox, &image);
    }
    reply.kind = RelayKind::pause;
    reply.number = next;
    reply.last = more ? 1 : 0;
    reply.rest = {};
    answer(reply, frame.inbox);
}

// ---- copies

void RelayAgent::removeCopy(const Client& client) const {
    const std::string path = pathOf(client);
    for (const char* of : {"", "-wal", "-steps"}) unlink((path + of).c_str());
}

Outcome RelayAgent::addToCopy(Client& client, Transaction transaction) {
    transaction.token = ++client.copyToken;
    Ledger::Ticket ticket;
    return client.copy->submit(std::move(transaction), &ticket);
}

// All state is here: the copy is a ledger like any other.
Outcome RelayAgent::beginCopy(Client& client) {
    removeCopy(client);
    client.copyToken = 0;
    client.patterns.clear();
    Outcome outcome = Ledger::open(
        {.path = pathOf(client), .name = client.name, .durability = sync_ ? Durability::power : Durability::process},
        &client.copy);
    Loader none;
    if (outcome.ok()) outcome = client.copy->load(none);
    Transaction transaction;
    for (Reader reader{std::string_view(client.state)}; reader.left() != 0 && outcome.ok();) {
        const std::string_view key = reader.text();
        const std::string_view value = reader.text();
        if (!reader.ok() || key.size() < 2) return {QUORL_INVALID_FILE, "the copy makes no sense"};
        if (key.front() == 'P') {
            if (!validPattern(key.substr(1))) return {QUORL_INVALID_FILE, "the copy makes no sense"};
            client.patterns.emplace_back(key.substr(1));
            continue;
        }
        Write write;
        write.kind = Write::Kind::putState;
        write.key = key.substr(1);
        write.value = value;
        transaction.writes.push_back(std::move(write));
    }
    if (outcome.ok() && !transaction.writes.empty()) outcome = addToCopy(client, std::move(transaction));
    stateBytes_ -= client.state.size();
    client.state = {};
    return outcome;
}

void RelayAgent::giveUpCopy(Client& client, const RelayFrame& frame, const std::string& why) {
    dropCopy(client);
    RelayFrame reply;
    reply.kind = RelayKind::failed;
    reply.name = client.name;
    reply.exchange = frame.exchange;
    reply.rest = bytesOf(std::string_view(why).substr(0, relayRestMost));
    answer(reply, frame.inbox);
}

void RelayAgent::onPart(Client& client, const RelayFrame& frame, const Message& message) {
    if (client.exchange != frame.exchange) {
        client.inbox = frame.inbox;
        if (frame.number != 1) {
            // Of a copy whose beginning was lost with an earlier run of this agent: it begins anew.
            RelayFrame nothing;
            nothing.kind = RelayKind::got;
            nothing.name = client.name;
            nothing.exchange = frame.exchange;
            return answer(nothing, frame.inbox);
        }
        dropCopy(client);
        if (client.away) {
            // Stored before the new copy is begun: an agent that starts again must not stand in from a part of it.
            client.away = false;
            const Outcome stored = storeClient(client);
            if (!stored.ok()) {
                client.away = true;
                return giveUpCopy(client, frame, stored.text);
            }
            standDown(client);
        }
        client.exchange = frame.exchange;
        client.got = 0;
        client.copyToken = 0;
    }
    client.ackDue = true;
    client.partAt = companion::monotonicNow();
    if (frame.number != client.got + 1 || client.away) return;
    Outcome outcome;
    if (frame.kind == RelayKind::state) {
        if (client.copy) return;
        if (stateBytes_ > stateMost) return giveUpCopy(client, frame, "it has more state than a relay agent takes");
        client.state.append(reinterpret_cast<const char*>(frame.rest.data()), frame.rest.size());
        stateBytes_ += frame.rest.size();
    } else {
        Reader rest(frame.rest);
        const uint64_t subject = rest.number();
        const uint64_t number = rest.number();
        const uint64_t expires = rest.fixed();
        const std::string_view text = rest.text();
        const std::string_view reply = rest.text();
        if (!rest.done() || subject > UINT32_MAX || expires > INT64_MAX || number == 0 || number == UINT64_MAX) return;
        if (!client.copy) outcome = beginCopy(client);
        if (outcome.ok() && subject != 0) {
            Write write;
            write.kind = Write::Kind::putMessage;
            write.subject = static_cast<uint32_t>(subject);
            write.number = number;
            write.expires = static_cast<int64_t>(expires);
            if (message.withSubjects(text, reply, &write.message) != QUORL_OK) return;
            Transaction transaction;
            transaction.writes.push_back(std::move(write));
            outcome = addToCopy(client, std::move(transaction));
        }
    }
    if (!outcome.ok()) return giveUpCopy(client, frame, outcome.text);
    ++client.got;
}

void RelayAgent::onEnd(Client& client, const RelayFrame& frame) {
    if (client.exchange != frame.exchange) {
        RelayFrame nothing;
        nothing.kind = RelayKind::got;
        nothing.name = client.name;
        nothing.exchange = frame.exchange;
        return answer(nothing, frame.inbox);
    }
    client.ackDue = true;
    if (client.got != frame.number) return;
    if (!client.away) {
        Outcome outcome;
        if (!client.copy) outcome = beginCopy(client);
        if (outcome.ok()) outcome = client.copy->sync();
        client.copy.reset();
        if (outcome.ok()) {
            client.away = true;
            outcome = storeClient(client);
            client.away = outcome.ok();
        }
        if (!outcome.ok()) return giveUpCopy(client, frame, outcome.text);
        if (const quorl_status status = standIn(client); status != QUORL_OK) {
            client.away = false;
            const std::string why = quorl::companion::KeptErrorText().saved();
            storeClient(client);
            return giveUpCopy(client, frame, why);
        }
    }
    RelayFrame reply;
    reply.kind = RelayKind::standsIn;
    reply.name = client.name;
    reply.exchange = frame.exchange;
    answer(reply, frame.inbox);
}

// ---- standing in

quorl_status RelayAgent::standIn(Client& client) {
    return Node::create({.transport = transport_,
                         .name = client.name,
                         .requestOld = true,
                         .ledger = pathOf(client),
                         .sync = sync_,
                         .standIn = &client,
                         .patterns = client.patterns},
                        &client.standIn);
}

void RelayAgent::standDown(Client& client) {
    if (client.standIn == 0) return;
    struct Completion {
        std::mutex lock;
        std::condition_variable changed;
        bool done = false;
    } completion;
    const auto completed = [](uint32_t, void* closure) {
        auto& its = *static_cast<Completion*>(closure);
        const std::lock_guard lock(its.lock);
        its.done = true;
        its.changed.notify_all();
    };
    if (Node::closeWith(client.standIn, completed, &completion) == QUORL_OK) {
        std::unique_lock lock(completion.lock);
        completion.changed.wait(lock, [&] { return completion.done; });
    }
    client.standIn = 0;
}

void RelayAgent::keep(Client& client, const Message& message) noexcept {
    uint64_t item = 0;
    std::unique_lock lock(lock_);
    try {
        Transaction transaction;
        if (!client.mailbox.add(message, &transaction, &item)) return;
        unstored_.insert_or_assign(lastToken_ + 1, std::pair(client.name, item));
        const uint64_t token = lastToken_ + 1;
        const Outcome outcome = submit(std::move(transaction), false, lock);
        if (!outcome.ok()) ended(token, outcome);
    } catch (const std::bad_alloc&) {
        if (!lock.owns_lock()) lock.lock();
        client.mailbox.drop(item);
        client.mailbox.refuse();
    }
}

// Under the lock.
void RelayAgent::ended(uint64_t token, const Outcome& outcome) noexcept {
    if (outcome.ok()) {
        unstored_.erase(unstored_.begin(), unstored_.upper_bound(token));
        return;
    }
    failed_ = true;
    if (const auto found = unstored_.find(token); found != unstored_.end()) {
        if (const auto client = clients_.find(found->second.first); client != clients_.end())
            client->second->mailbox.drop(found->second.second);
        unstored_.erase(found);
    }
    // What is not on the disk would be missing after a restart: nothing that comes later is kept either.
    for (auto& [name, client] : clients_) client->mailbox.refuse();
}

}  // namespace quorl::certified
