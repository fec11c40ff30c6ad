// Our distributed queue: a sender of certified delivery without a ledger, and members that complete a task when its callback has
// returned.
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "dqueue/sides.h"
#include "quorl/quorlcmq.h"
#include "support/quorl.h"

namespace bench::dqueue {
namespace {

const char* const subject = "bench.dqueue.quorl";

struct Worker {
    std::atomic<uint64_t>* done;
};

void onTask(quorlcmEvent, quorlMsg message, void* closure) {
    if (payloadOf(message).second == 0) fail("a task came without its payload");
    static_cast<Worker*>(closure)->done->fetch_add(1, std::memory_order_relaxed);
}

quorlTransport connect(const std::string& url) {
    quorlTransport transport = 0;
    need(quorl_Open(), "open");
    need(quorlTransport_Create(&transport, nullptr, nullptr, url.c_str()), "transport");
    return transport;
}

quorlcmTransport join(quorlTransport transport, const char* queue, quorl_u16 schedulerWeight, double activation) {
    quorlcmTransport member = 0;
    need(quorlcmTransport_CreateDistributedQueueEx(&member, transport, queue, 1, 1024, schedulerWeight,
                                                   activation / 3.5, activation),
         "join");
    return member;
}

void work(Run& run, int worker, const std::string& url) {
    const quorlcmTransport member = join(connect(url), "bench-queue", worker == 0 ? 2 : 1, 1);
    Worker closure{&run.done[worker]};
    quorlcmEvent listener = 0;
    need(quorlcmEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onTask, member, subject, &closure), "listener");
    ++run.ready;
    for (;;) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1);
}

quorlcmTransport newBoss(quorlTransport transport, const char* queue) {
    quorlcmTransport boss = 0;
    need(quorlcmTransport_Create(&boss, transport, "bench-boss", QUORL_FALSE, nullptr, QUORL_FALSE, nullptr), "boss");
    need(quorlcmTransport_AddListener(boss, queue, subject), "add listener");
    return boss;
}

void send(quorlcmTransport boss) {
    static const char payload[size] = {};
    quorlMsg message;
    need(quorlMsg_Create(&message), "create message");
    need(quorlMsg_AddOpaqueEx(message, "payload", payload, sizeof payload, 0), "add field");
    need(quorlMsg_SetSendSubject(message, subject), "set subject");
    need(quorlcmTransport_Send(boss, message), "send");
    need(quorlMsg_Destroy(message), "destroy message");
}

double submit(Run& run, const std::string& url) {
    while (run.ready < workers) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const quorlcmTransport boss = newBoss(connect(url), "bench-queue");
    // The members have their scheduler, and know of each other, when the first tasks are done.
    for (uint64_t i = 0; i < window; ++i) send(boss);
    while (run.all() < window) std::this_thread::sleep_for(std::chrono::milliseconds(1));

    const int64_t start = nowNs();
    const int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
    uint64_t sent = 0;
    for (; sent % 32 != 0 || nowNs() < stop; ++sent) {
        while (sent >= run.all()) sched_yield();
        send(boss);
    }
    while (run.all() < window + sent) sched_yield();
    const double seconds = static_cast<double>(nowNs() - start) / 1e9;
    if (run.all() != window + sent) fail("a task was done twice");
    return static_cast<double>(sent) / seconds;
}

}  // namespace

const Side quorlSide{"quorl", nullptr, work, submit};

void schedule(TakeOver& run, const std::string& url, double activation) {
    const quorlcmTransport member = join(connect(url), "bench-take-over", 2, activation);
    need(quorlcmTransport_SetWorkerTasks(member, 0), "no tasks");
    run.scheduled = true;
    for (;;) pause();
}

void takeOver(TakeOver& run, const std::string& url, double activation) {
    const quorlTransport transport = connect(url);
    std::atomic<uint64_t> done{0};
    Worker closure{&done};
    quorlcmEvent listener = 0;
    const quorlcmTransport member = join(transport, "bench-take-over", 1, activation);
    need(quorlcmEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onTask, member, subject, &closure), "listener");
    const quorlcmTransport boss = newBoss(transport, "bench-take-over");
    const auto dispatchUntil = [&](uint64_t count) {
        while (done < count) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.05);
    };
    send(boss);
    dispatchUntil(1);
    run.settled = true;
    while (run.killed == 0) sched_yield();
    send(boss);
    dispatchUntil(2);
    run.seconds = static_cast<double>(nowNs() - run.killed) / 1e9;
    need(quorl_Close(), "close");
}

}  // namespace bench::dqueue
