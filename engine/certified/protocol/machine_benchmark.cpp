// What a message costs in the machine of its sender and in that of its listener, storage and network left out.
#include "certified/protocol/machine.h"

#include <benchmark/benchmark.h>

#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "certified/protocol/subject.h"

namespace quorl::certified {
namespace {

struct Side {
    std::unique_ptr<Machine> machine;
    Output out;
};

// A sender and a listener that are registered with each other, over nothing.
class Pair {
  public:
    explicit Pair(bool ledger) {
        make(sender_, "sender", 1, ledger);
        make(listener_, "listener", 2, ledger);
        listener_.machine->createListener(1, "a.b", now_, listener_.out);
        take(listener_);
        companion::Message::empty("a.b", &message_);
        for (int i = 0; i < 300; ++i) {
            pass();
            if (i == 150) send();
        }
        confirmAll();
        for (int i = 0; i < 300; ++i) pass();
    }

    void send() {
        sender_.out.clear();
        sender_.machine->send(message_, 0, now_, sender_.out);
        take(sender_);
    }
    void receiveAlone() {
        listener_.out.clear();
        listener_.machine->receive(std::move(onTheWay_.front()), 1, now_, listener_.out);
        onTheWay_.pop_front();
        const News news = listener_.out.takeRest();
        for (const Delivery& delivery : news.deliveries) {
            listener_.out.clear();
            listener_.machine->confirm(1, delivery.stream, delivery.number, Machine::Confirm::soon, now_,
                                       listener_.out);
            take(listener_);
        }
    }
    void settle() {
        while (!onTheWay_.empty()) {
            companion::Message message = std::move(onTheWay_.front());
            onTheWay_.pop_front();
            for (Side* side : {&sender_, &listener_}) {
                if (message.subject() == side->machine->address() || message.subject() == everybody) {
                    side->out.clear();
                    side->machine->receive(message, 0, now_, side->out);
                    take(*side);
                }
            }
            if (message.subject() != "a.b") continue;
            listener_.out.clear();
            listener_.machine->receive(message, 1, now_, listener_.out);
            take(listener_);
        }
    }
    void pass() {
        now_.monotonic += 10'000'000;
        now_.wall += 10'000'000;
        for (Side* side : {&sender_, &listener_}) {
            side->out.clear();
            side->machine->tick(now_, side->out);
            take(*side);
        }
        settle();
    }
    void confirmAll() {
        for (const Delivery& delivery : std::exchange(deliveries_, {})) {
            listener_.out.clear();
            listener_.machine->confirm(1, delivery.stream, delivery.number, Machine::Confirm::soon, now_,
                                       listener_.out);
            take(listener_);
        }
        settle();
    }
    Counts kept() const { return sender_.machine->counts(); }

  private:
    static void make(Side& side, const char* name, uint64_t chance, bool ledger) {
        Settings settings;
        settings.name = name;
        settings.lasting = false;
        settings.ledger = ledger;
        settings.pendingBytes = 0;
        Chance drawn;
        drawn.incarnation = chance;
        drawn.instance = chance;
        drawn.senderKey = {chance, chance};
        drawn.listenerKey = {chance, chance};
        side.machine = std::make_unique<Machine>(settings, drawn);
        side.machine->start(true, {}, side.out);
        if (side.out.store.token != 0) {
            const uint64_t token = side.out.store.token;
            side.out.clear();
            side.machine->persisted(token, {}, side.out);
        }
    }
    void take(Side& side) {
        for (auto& message : side.out.messages) onTheWay_.push_back(std::move(message));
        for (auto& delivery : side.out.deliveries) deliveries_.push_back(std::move(delivery));
        const uint64_t token = side.out.store.token;
        side.out.clear();
        if (token == 0) return;
        side.machine->persisted(token, now_, side.out);
        take(side);
    }

    Now now_{1'000'000'000, 1'800'000'000'000'000'000};
    Side sender_;
    Side listener_;
    companion::Message message_;
    std::deque<companion::Message> onTheWay_;
    std::vector<Delivery> deliveries_;
};

void bothSides(benchmark::State& state) {
    Pair pair(state.range(0) != 0);
    for (auto _ : state) {
        pair.send();
        pair.receiveAlone();
        pair.settle();
    }
    state.counters["kept"] = static_cast<double>(pair.kept().messages);
}
BENCHMARK(bothSides)->Arg(0)->Arg(1)->ArgName("ledger");

// Messages that nobody confirms.
void sendAlone(benchmark::State& state) {
    auto pair = std::make_unique<Pair>(true);
    int64_t count = 0;
    for (auto _ : state) {
        pair->send();
        if (++count % 1'000'000 == 0) {
            state.PauseTiming();
            pair = std::make_unique<Pair>(true);
            state.ResumeTiming();
        }
    }
    const Counts kept = pair->kept();
    state.counters["bytes_per_message"] =
        static_cast<double>(kept.memory) / static_cast<double>(std::max<uint64_t>(kept.messages, 1));
}
BENCHMARK(sendAlone)->Iterations(900'000);

}  // namespace
}  // namespace quorl::certified

BENCHMARK_MAIN();
