// The processor time of a process that only waits: 1,000 listeners, ten threads blocked in a dispatch.
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

}  // namespace

int main() {
    using namespace bench;
    using namespace std::chrono_literals;
    constexpr size_t kListeners = 1000;
    constexpr size_t kDispatchers = 10;
    constexpr auto kTime = 5s;

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
        std::this_thread::sleep_for(200ms);  // until all of them wait
        double before = processorSeconds();
        std::this_thread::sleep_for(kTime);
        double used = processorSeconds() - before;
        report("idle", {"cpu_percent", Better::lower}, used / std::chrono::duration<double>(kTime).count() * 100);
    }
    queues.clear();  // ends the dispatches
    for (std::thread& dispatcher : dispatchers) dispatcher.join();
}
