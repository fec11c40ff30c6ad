// What timers cost, and how late they are: 100,000 at a second each, and a few at light load.
#include <sys/resource.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/measure.h"
#include "support/quorl.h"

namespace {

using namespace bench;

constexpr size_t kMany = 100'000;

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A thread that dispatches a queue until it is destroyed.
class Dispatcher {
  public:
    Dispatcher() {
        need(quorlQueue_Create(&queue_), "queue");
        thread_ = std::thread([queue = queue_] {
            while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) continue;
        });
    }
    ~Dispatcher() {
        need(quorlQueue_DestroyEx(queue_, nullptr, nullptr), "destroy queue");
        thread_.join();
    }
    Dispatcher(const Dispatcher&) = delete;
    Dispatcher& operator=(const Dispatcher&) = delete;
    quorlQueue queue() const { return queue_; }

  private:
    quorlQueue queue_ = 0;
    std::thread thread_;
};

// Per cent of one processor, timers' thread and dispatcher together, and how many of the timers' events came.
std::vector<double> costOfMany() {
    using namespace std::chrono_literals;
    Bus bus;
    std::atomic<uint64_t> came{0};
    std::vector<quorlEvent> timers(kMany);
    std::vector<double> figures;
    {
        Dispatcher dispatcher;
        for (size_t i = 0; i < kMany; ++i) {
            need(quorlEvent_CreateTimer(
                     &timers[i], dispatcher.queue(),
                     [](quorlEvent, quorlMsg, void* closure) {
                         static_cast<std::atomic<uint64_t>*>(closure)->fetch_add(1, std::memory_order_relaxed);
                     },
                     1.0, &came),
                 "timer");
            // Due at times spread over the second, as those of a real program are.
            if (i % 1000 == 999) std::this_thread::sleep_for(9ms);
        }
        std::this_thread::sleep_for(1s);
        constexpr auto kTime = 4s;
        const uint64_t before = came.load();
        const int64_t start = nowNs();
        const double used = processorSeconds();
        std::this_thread::sleep_for(kTime);
        const double seconds = static_cast<double>(nowNs() - start) * 1e-9;
        figures = {(processorSeconds() - used) / seconds * 100, static_cast<double>(came.load() - before) / seconds};
        for (const quorlEvent timer : timers) need(quorlEvent_DestroyEx(timer, nullptr), "destroy timer");
    }
    if (figures[1] < 0.95 * kMany) fail("timers did not fire");
    return figures;
}

constexpr int64_t kInterval = 10'000'000;  // nanoseconds

struct Timer {
    int64_t created = 0;  // just before
    std::vector<int64_t> late;

    static void onTimer(quorlEvent, quorlMsg, void* closure) {
        auto& self = *static_cast<Timer*>(closure);
        // Since its interval began anew: none is more than an interval late here.
        self.late.push_back((nowNs() - self.created) % kInterval);
    }
};

// Ten timers of ten milliseconds each: how long after its time the callback of each event runs, in microseconds.
std::vector<double> lateness() {
    using namespace std::chrono_literals;
    constexpr size_t kTimers = 10;
    Bus bus;
    Timer timers[kTimers];
    quorlEvent events[kTimers];
    std::vector<int64_t> late;
    {
        Dispatcher dispatcher;
        for (size_t i = 0; i < kTimers; ++i) {
            Timer& timer = timers[i];
            timer.late.reserve(10'000);
            timer.created = nowNs();
            need(quorlEvent_CreateTimer(&events[i], dispatcher.queue(), Timer::onTimer,
                                        static_cast<double>(kInterval) * 1e-9, &timer),
                 "timer");
            std::this_thread::sleep_for(1100us);
        }
        std::this_thread::sleep_for(2s);
        for (const quorlEvent event : events) need(quorlEvent_DestroyEx(event, nullptr), "destroy timer");
    }
    for (const Timer& timer : timers) late.insert(late.end(), timer.late.begin(), timer.late.end());
    if (late.size() < 1000) fail("timers did not fire");
    return {percentile(late, 0.5) * 1e-3, percentile(late, 0.99) * 1e-3};
}

}  // namespace

int main() {
    const std::vector<double> cost = costOfMany();
    report("timer", {"100000_at_1s.cpu_percent", Better::lower}, cost[0]);
    report("timer", {"100000_at_1s.events_per_s", Better::higher}, cost[1]);
    compare("timer", {{"light.lateness_p50_us", Better::lower}, {"light.lateness_p99_us", Better::lower}},
            {"quorl", lateness}, {});
}
