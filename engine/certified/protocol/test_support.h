// Machines that hear each other at once, with ledgers in memory and a clock that the test moves.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "certified/protocol/frame.h"
#include "certified/protocol/machine.h"
#include "certified/protocol/subject.h"
#include "quorl/quorl.h"

namespace quorl::certified {

inline constexpr int64_t millisecond = 1'000'000;
inline constexpr int64_t second = 1'000'000'000;

inline companion::Message messageTo(std::string_view subject, std::string_view reply = {}) {
    companion::Message message;
    EXPECT_EQ(companion::Message::empty(subject, &message), QUORL_OK);
    if (!reply.empty()) {
        EXPECT_EQ(message.withSubjects(subject, reply, &message), QUORL_OK);
    }
    return message;
}

// What a ledger holds.
struct Disk {
    std::map<std::string, std::string> state;
    std::map<std::pair<uint32_t, uint64_t>, std::pair<companion::Message, int64_t>> messages;
};

// Runs each call into a machine; false: it threw.
struct Guarding {
    std::function<bool(const std::function<void()>&)> run;
};

class Net;

// One machine, and the program behind it.
class Peer {
  public:
    Peer(Net& net, Settings settings, Disk* disk = nullptr, bool complete = true);

    Machine& machine() { return *machine_; }
    // Statuses are the machine's; what a step gives out is carried out.
    quorl_status send(std::string_view subject, int64_t limit = 0, uint64_t* number = nullptr);
    uint32_t listen(std::string_view pattern);
    void destroy(uint32_t listener, bool cancel);
    quorl_status confirm(size_t delivery, Machine::Confirm when = Machine::Confirm::now);
    void confirmAll();
    template <class F>
    auto step(F&& call) {
        Output out;
        decltype(call(*machine_, out)) result{};
        if (!guarded([&] { result = call(*machine_, out); })) result = {};
        carryOut(out);
        return result;
    }
    // False: the call had no memory.
    bool guarded(const std::function<void()>& call);

    // The events of that kind so far.
    std::vector<Event> told(Event::Kind kind) const {
        std::vector<Event> found;
        for (const Event& event : events) {
            if (event.kind == kind) found.push_back(event);
        }
        return found;
    }
    // The numbers of the certified messages on a subject, in the order of their delivery.
    std::vector<uint64_t> numbers(std::string_view subject) const {
        std::vector<uint64_t> found;
        for (const Delivery& delivery : deliveries) {
            if (delivery.stream != 0 && delivery.message.subject() == subject) found.push_back(delivery.number);
        }
        return found;
    }
    size_t plain() const {
        size_t count = 0;
        for (const Delivery& delivery : deliveries) count += delivery.stream == 0;
        return count;
    }

    std::vector<Delivery> deliveries;
    std::vector<Event> events;
    bool full = false;   // the ledger takes nothing
    bool holds = false;  // it takes everything, and does not say so
    bool deaf = false;
    size_t syncs = 0;                                      // transactions that had to be safe from a power failure
    std::function<bool(const companion::Message&)> loses;  // true: what it sends is lost

  private:
    friend class Net;
    void carryOut(Output& out);
    void hear(const companion::Message& message);

    Net& net_;
    Disk* disk_;
    std::unique_ptr<Machine> machine_;
    std::map<uint32_t, std::string> listeners_;
    uint32_t lastListener_ = 0;
};

class Net {
  public:
    Now now{1000 * second, 1'800'000'000 * second};

    // Lets that much time pass, and everything happen that is due.
    void pass(int64_t time) {
        const int64_t end = now.monotonic + time;
        settle();
        for (;;) {
            int64_t next = end;
            for (Peer* peer : peers) next = std::min(next, std::max(peer->machine_->due(), now.monotonic));
            now.wall += next - now.monotonic;
            now.monotonic = next;
            bool any = false;
            for (size_t i = 0; i < peers.size(); ++i) {
                if (peers[i]->machine_->due() > now.monotonic) continue;
                Output out;
                peers[i]->guarded([&] { peers[i]->machine_->tick(now, out); });
                peers[i]->carryOut(out);
                any = true;
            }
            settle();
            if (!any && now.monotonic == end) return;
        }
    }
    // What is on its way arrives.
    void settle() {
        while (!onTheWay.empty()) {
            const companion::Message message = std::move(onTheWay.front());
            onTheWay.pop_front();
            for (size_t i = 0; i < peers.size(); ++i) peers[i]->hear(message);
        }
    }
    // The program ends, as if it were killed.
    void remove(Peer& peer) { std::erase(peers, &peer); }

    Guarding* guarding = nullptr;
    std::vector<Peer*> peers;
    std::deque<companion::Message> onTheWay;
    uint64_t chance = 1;
};

inline bool Peer::guarded(const std::function<void()>& call) {
    if (net_.guarding != nullptr) return net_.guarding->run(call);
    call();
    return true;
}

inline Peer::Peer(Net& net, Settings settings, Disk* disk, bool complete) : net_(net), disk_(disk) {
    settings.ledger = disk != nullptr;
    Chance chance;
    chance.incarnation = ++net.chance;
    chance.instance = ++net.chance;
    chance.senderKey = {++net.chance, 7};
    chance.listenerKey = {++net.chance, 9};
    machine_ = std::make_unique<Machine>(settings, chance);
    net.peers.push_back(this);
    if (disk != nullptr) {
        for (const auto& [key, value] : disk->state) EXPECT_EQ(machine_->load(key, value), QUORL_OK);
        for (const auto& [which, kept] : disk->messages) {
            EXPECT_EQ(machine_->load(
                          {which.first, which.second, static_cast<uint32_t>(kept.first.image().size()), kept.second}),
                      QUORL_OK);
        }
    }
    Output out;
    EXPECT_EQ(machine_->start(complete, net.now, out), QUORL_OK);
    carryOut(out);
}

inline void Peer::carryOut(Output& out) {
    News news = out.takeRest();
    const uint64_t token = out.store.token;
    if (token != 0 && out.store.sync) ++syncs;
    if (token != 0 && !full) {
        for (const Write& write : out.store.writes) {
            if (write.kind == Write::Kind::putState) disk_->state[write.key] = write.value;
            if (write.kind == Write::Kind::eraseState) disk_->state.erase(write.key);
            if (write.kind == Write::Kind::putMessage)
                disk_->messages[{write.subject, write.number}] = {write.message, write.expires};
            if (write.kind == Write::Kind::eraseMessages)
                disk_->messages.erase(disk_->messages.lower_bound({write.subject, write.number}),
                                      disk_->messages.upper_bound({write.subject, write.last}));
        }
    }
    for (auto& message : out.messages) {
        if (!loses || !loses(message)) net_.onTheWay.push_back(message);
    }
    const std::vector<Fetch> fetches = std::move(out.fetches);
    for (auto& delivery : news.deliveries) deliveries.push_back(std::move(delivery));
    for (auto& event : news.events) events.push_back(std::move(event));
    if (token != 0 && !holds) {
        Output after;
        guarded([&] {
            if (full) {
                machine_->storageFailed(token, QUORL_IO_FAILED, net_.now, after);
            } else {
                machine_->persisted(token, net_.now, after);
            }
        });
        carryOut(after);
    }
    for (const Fetch& fetch : fetches) {
        Output after;
        const auto found = disk_->messages.find({fetch.subject, fetch.number});
        const companion::Message image = found != disk_->messages.end() ? found->second.first : companion::Message();
        guarded([&] { machine_->fetched(fetch, image, net_.now, after); });
        carryOut(after);
    }
}

inline void Peer::hear(const companion::Message& message) {
    if (deaf) return;
    const auto hand = [&](uint32_t listener) {
        Output out;
        guarded([&] { machine_->receive(message, listener, net_.now, out); });
        carryOut(out);
    };
    if (message.subject() == machine_->address() || message.subject() == everybody) hand(0);
    const auto listeners = listeners_;
    for (const auto& [number, pattern] : listeners) {
        if (matches(pattern, message.subject())) hand(number);
    }
}

inline quorl_status Peer::send(std::string_view subject, int64_t limit, uint64_t* number) {
    const companion::Message message = messageTo(subject);
    quorl_status status = QUORL_NO_MEMORY;
    step([&](Machine& machine, Output& out) {
        status = machine.send(message, limit, net_.now, out, number);
        return 0;
    });
    return status;
}

inline uint32_t Peer::listen(std::string_view pattern) {
    const uint32_t number = ++lastListener_;
    listeners_[number] = pattern;
    const auto create = [&] {
        return step([&](Machine& machine, Output& out) {
            return machine.createListener(number, pattern, net_.now, out) == QUORL_OK;
        });
    };
    // Once more where the first call had no memory.
    EXPECT_TRUE(create() || create());
    return number;
}

inline void Peer::destroy(uint32_t listener, bool cancel) {
    listeners_.erase(listener);
    step([&](Machine& machine, Output& out) {
        machine.destroyListener(listener, cancel, net_.now, out);
        return 0;
    });
}

inline quorl_status Peer::confirm(size_t delivery, Machine::Confirm when) {
    const Delivery one = deliveries[delivery];
    return step([&](Machine& machine, Output& out) {
        return machine.confirm(one.listener, one.stream, one.number, when, net_.now, out);
    });
}

inline void Peer::confirmAll() {
    for (size_t i = 0; i < deliveries.size(); ++i) {
        if (deliveries[i].stream != 0) confirm(i, Machine::Confirm::soon);
    }
}

inline Settings named(std::string_view name) {
    Settings settings;
    settings.name = name;
    settings.requestOld = true;
    return settings;
}

}  // namespace quorl::certified
