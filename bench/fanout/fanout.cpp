// What a further listener of a subject costs: one message to 1, 10 and 100 listeners of one queue.
#include <string>
#include <vector>

#include "support/measure.h"
#include "support/quorl.h"

namespace {

using namespace bench;

constexpr size_t kSize = 256;  // bytes of a message's field

void onMessage(quorlEvent, quorlMsg, void* closure) {
    ++*static_cast<uint64_t*>(closure);
}

// Nanoseconds of one message to so many listeners: sending it, and all of it with the callbacks. On one thread.
std::vector<double> run(size_t listeners) {
    constexpr uint64_t kBatch = 64;
    Bus bus;
    Queue queue;
    uint64_t came = 0;
    std::vector<Listener> all;
    for (size_t i = 0; i < listeners; ++i) all.emplace_back(bus, queue, "bench.fanout", onMessage, &came);
    const char payload[kSize] = {};
    const int64_t start = threadNs();
    const int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
    int64_t sending = 0;
    uint64_t sent = 0;
    int64_t now = start;
    while (now < stop) {
        for (uint64_t i = 0; i < kBatch; ++i) bus.publish("bench.fanout", payload, sizeof payload);
        sending += threadNs() - now;
        sent += kBatch;
        for (uint64_t i = 0; i < kBatch * listeners; ++i) need(quorlQueue_TimedDispatch(queue.id(), 0), "dispatch");
        now = threadNs();
    }
    if (came != sent * listeners) fail("a message did not reach all of its listeners");
    const auto each = [&](int64_t time) { return static_cast<double>(time) / static_cast<double>(sent); };
    return {each(sending), each(now - start)};
}

}  // namespace

int main() {
    // Each round measures one listener too, so that what the machine does meanwhile meets both.
    for (const size_t listeners : {10, 100}) {
        const std::string name = std::to_string(listeners) + "_listeners.";
        compare("fanout",
                {{name + "further.send.ns", Better::lower}, {name + "further.send_and_dispatch.ns", Better::lower}},
                {"quorl",
                 [listeners] {
                     const std::vector<double> one = run(1);
                     std::vector<double> many = run(listeners);
                     for (size_t i = 0; i < many.size(); ++i) {
                         many[i] = (many[i] - one[i]) / static_cast<double>(listeners - 1);
                     }
                     return many;
                 }},
                {});
    }
    compare("fanout", {{"1_listener.send.ns", Better::lower}, {"1_listener.send_and_dispatch.ns", Better::lower}},
            {"quorl", [] { return run(1); }}, {});
}
