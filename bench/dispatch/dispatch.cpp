// What dispatching costs: of an event of nothing, from a queue and from a group, and a poll that finds none.
#include <string>

#include "support/measure.h"
#include "support/quorl.h"

namespace {

using namespace bench;

void onEvent(quorlEvent, quorlMsg, void* closure) {
    ++*static_cast<uint64_t*>(closure);
}

// Nanoseconds of this thread's time for each call; call dispatches once.
template <class Call>
double each(Call&& call) {
    constexpr int kBatch = 1000;
    const int64_t start = threadNs();
    const int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
    uint64_t calls = 0;
    int64_t now = start;
    for (; now < stop; now = threadNs()) {
        for (int i = 0; i < kBatch; ++i) call();
        calls += kBatch;
    }
    return static_cast<double>(now - start) / static_cast<double>(calls);
}

// A timer of interval 0 always has an event that waits, so that every dispatch runs a callback that has nothing to do.
double ofTimer(bool inGroup) {
    Bus bus;
    Queue queue;
    uint64_t came = 0;
    quorlEvent timer = 0;
    quorlQueueGroup group = 0;
    need(quorlEvent_CreateTimer(&timer, queue.id(), onEvent, 0, &came), "timer");
    need(quorlQueueGroup_Create(&group), "group");
    need(quorlQueueGroup_Add(group, queue.id()), "add");
    uint64_t calls = 0;
    const double cost = each([&] {
        need(inGroup ? quorlQueueGroup_TimedDispatch(group, 0) : quorlQueue_TimedDispatch(queue.id(), 0), "dispatch");
        ++calls;
    });
    if (came != calls) fail("a dispatch ran no callback");
    need(quorlQueueGroup_Destroy(group), "destroy group");
    need(quorlEvent_DestroyEx(timer, nullptr), "destroy timer");
    return cost;
}

// Of messages that were sent before: the dispatch alone, with a callback that does not look at them.
double ofMessage() {
    constexpr uint64_t kBatch = 1024;
    Bus bus;
    Queue queue;
    uint64_t came = 0;
    Listener listener(bus, queue, "bench.dispatch", onEvent, &came);
    const int64_t stop = threadNs() + static_cast<int64_t>(runSeconds() * 1e9);
    int64_t spent = 0;
    uint64_t sent = 0;
    while (threadNs() < stop) {
        for (uint64_t i = 0; i < kBatch; ++i) bus.publish("bench.dispatch", "", 0);
        const int64_t start = threadNs();
        for (uint64_t i = 0; i < kBatch; ++i) need(quorlQueue_TimedDispatch(queue.id(), 0), "dispatch");
        spent += threadNs() - start;
        sent += kBatch;
    }
    if (came != sent) fail("a message did not reach its callback");
    return static_cast<double>(spent) / static_cast<double>(sent);
}

double ofNothing() {
    Bus bus;
    Queue queue;
    return each([&] {
        if (quorlQueue_TimedDispatch(queue.id(), 0) != QUORL_TIMEOUT)
            fail("a dispatch of an empty queue found something");
    });
}

}  // namespace

int main() {
    compare("dispatch", {{"empty_event.ns", Better::lower}}, {"quorl", [] { return std::vector{ofTimer(false)}; }}, {});
    compare("dispatch", {{"empty_event_of_group.ns", Better::lower}},
            {"quorl", [] { return std::vector{ofTimer(true)}; }}, {});
    compare("dispatch", {{"message.ns", Better::lower}}, {"quorl", [] { return std::vector{ofMessage()}; }}, {});
    compare("dispatch", {{"nothing.ns", Better::lower}}, {"quorl", [] { return std::vector{ofNothing()}; }}, {});
}
