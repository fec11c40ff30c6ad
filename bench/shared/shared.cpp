// What sharing costs: a message to one listener, to one that shares a name with nobody else, and to one of four that share it.
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

// Messages a second that are sent and dispatched, on one thread; members 0: one listener that does not share.
std::vector<double> run(size_t members) {
    constexpr uint64_t kBatch = 64;
    Bus bus;
    Queue queue;
    uint64_t came = 0;
    quorlEvent event = 0;
    if (members == 0)
        need(quorlEvent_CreateListener(&event, queue.id(), onMessage, bus.transport(), "bench.shared", &came),
             "listen");
    for (size_t i = 0; i < members; ++i)
        need(quorlEvent_CreateSharedListener(&event, queue.id(), onMessage, bus.transport(), "bench.shared", "crew",
                                             &came),
             "share");
    const char payload[kSize] = {};
    const int64_t start = threadNs();
    const int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
    uint64_t sent = 0;
    int64_t now = start;
    while (now < stop) {
        for (uint64_t i = 0; i < kBatch; ++i) bus.publish("bench.shared", payload, sizeof payload);
        sent += kBatch;
        for (uint64_t i = 0; i < kBatch; ++i) need(quorlQueue_TimedDispatch(queue.id(), 0), "dispatch");
        now = threadNs();
    }
    if (came != sent) fail("a message did not come to one listener");
    return {static_cast<double>(sent) * 1e9 / static_cast<double>(now - start)};
}

}  // namespace

int main() {
    for (const size_t members : {1, 4}) {
        compare("shared", {{std::to_string(members) + "_members.msgs_per_s", Better::higher}},
                {"quorl", [members] { return run(members); }}, {{"quorl, unshared", [] { return run(0); }}});
    }
}
