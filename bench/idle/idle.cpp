// The processor time of a process that only waits: 1,000 listeners, ten threads blocked in a dispatch; 1,000 circuits.
#include <sys/resource.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/measure.h"
#include "support/quorl.h"

namespace {

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void onMessage(quorlEvent, quorlMsg, void*) {}

// In per cent of one processor, once everything waits.
double idlePercent(std::chrono::duration<double> untilItWaits) {
    using namespace std::chrono_literals;
    constexpr std::chrono::duration<double> kTime = 5s;
    std::this_thread::sleep_for(untilItWaits);
    double before = processorSeconds();
    std::this_thread::sleep_for(kTime);
    return (processorSeconds() - before) / kTime.count() * 100;
}

void listeners() {
    using namespace bench;
    using namespace std::chrono_literals;
    constexpr size_t kListeners = 1000;
    constexpr size_t kDispatchers = 10;

    Bus bus;
    std::vector<std::unique_ptr<Queue>> queues;
    std::vector<std::thread> dispatchers;
    {
        std::vector<Listener> listeners;
        for (size_t i = 0; i < kDispatchers; ++i) queues.push_back(std::make_unique<Queue>());
        for (size_t i = 0; i < kListeners; ++i) {
            std::string subject = "bench.idle." + std::to_string(i);
            listeners.emplace_back(bus, *queues[i % kDispatchers], subject.c_str(), onMessage, nullptr);
        }
        for (auto& queue : queues) {
            dispatchers.emplace_back([id = queue->id()] {
                while (quorlQueue_TimedDispatch(id, -1) == QUORL_OK) continue;
            });
        }
        report("idle", {"cpu_percent", Better::lower}, idlePercent(200ms));
    }
    queues.clear();  // ends the dispatches
    for (std::thread& dispatcher : dispatchers) dispatcher.join();
}

// Both ends of each are in this process.
void circuits(const char* metric, const char* daemon) {
    using namespace bench;
    using namespace std::chrono_literals;
    constexpr int kCircuits = 1000;

    need(quorl_Open(), "open");
    quorlTransport below[2];
    for (quorlTransport& transport : below)
        need(quorlTransport_Create(&transport, nullptr, nullptr, daemon), "transport");
    // A connection of its own.
    need(quorlTransport_SetDescription(below[1], "the other ends"), "describe");
    for (int i = 0; i < kCircuits; ++i) {
        quorlTransport acceptor = 0;
        quorlTransport connector = 0;
        const char* subject = nullptr;
        need(quorlTransport_CreateAcceptVc(&acceptor, &subject, below[0]), "accept");
        need(quorlTransport_CreateConnectVc(&connector, subject, below[1]), "connect");
        need(quorlTransport_WaitForVcConnection(acceptor, 60), "wait");
        need(quorlTransport_WaitForVcConnection(connector, 60), "wait");
    }
    report("idle", {metric, Better::lower}, idlePercent(2s));
    need(quorl_Close(), "close");
}

}  // namespace

int main(int count, char** arguments) {
    listeners();
    circuits("1000_circuits.cpu_percent", nullptr);
    // The address of a daemon, when there is one to measure with.
    if (count > 1) circuits("1000_circuits_over_a_daemon.cpu_percent", arguments[1]);
}
