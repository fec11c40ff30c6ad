// What the daemon offers, through its own client library: a queue group whose members acknowledge to the reply subject, and a
// JetStream work queue whose consumers pull, and acknowledge each task.
#include <nats/nats.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "dqueue/sides.h"
#include "support/measure.h"

namespace bench::dqueue {
namespace {

// Not one subject for all: the stream of a run stays, takes what is published on its subject, and acknowledges it too.
const char* const groupSubject = "bench.dqueue.group";
const char* const streamSubject = "bench.dqueue.stream";

void need(natsStatus status, const char* what) {
    if (status != NATS_OK) fail(std::string("libnats: ") + what + ": " + natsStatus_GetText(status));
}

natsConnection* connect(const std::string& url) {
    natsConnection* connection = nullptr;
    need(natsConnection_ConnectTo(&connection, url.c_str()), "connect");
    return connection;
}

void awaitWorkers(Run& run) {
    while (run.ready < workers) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// Sends by publish for as long as a run takes, at most window ahead, and waits for the last.
template <class F>
double stream(Run& run, F&& publish) {
    const int64_t start = nowNs();
    const int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
    uint64_t sent = 0;
    for (; sent % 32 != 0 || nowNs() < stop; ++sent) {
        while (sent >= window + run.acknowledged) sched_yield();
        publish();
    }
    const int64_t limit = nowNs() + 30'000'000'000;
    while (run.acknowledged < sent) {
        if (nowNs() > limit) fail("tasks were lost");
        sched_yield();
    }
    const int64_t end = nowNs();
    if (run.acknowledged != sent) fail("tasks were acknowledged twice");
    return static_cast<double>(sent) * 1e9 / static_cast<double>(end - start);
}

// ---- a queue group

void workInGroup(Run& run, int, const std::string& url) {
    natsConnection* connection = connect(url);
    natsSubscription* subscription = nullptr;
    need(natsConnection_QueueSubscribe(
             &subscription, connection, groupSubject, "bench",
             [](natsConnection* on, natsSubscription*, natsMsg* message, void*) {
                 natsConnection_Publish(on, natsMsg_GetReply(message), nullptr, 0);
                 natsMsg_Destroy(message);
             },
             nullptr),
         "subscribe");
    natsSubscription_SetPendingLimits(subscription, -1, -1);
    need(natsConnection_Flush(connection), "flush");
    ++run.ready;
    for (;;) pause();
}

double submitToGroup(Run& run, const std::string& url) {
    awaitWorkers(run);
    natsConnection* connection = connect(url);
    natsInbox* inbox = nullptr;
    need(natsInbox_Create(&inbox), "inbox");
    natsSubscription* subscription = nullptr;
    need(natsConnection_Subscribe(
             &subscription, connection, inbox,
             [](natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
                 ++static_cast<Run*>(closure)->acknowledged;
                 natsMsg_Destroy(message);
             },
             &run),
         "subscribe");
    natsSubscription_SetPendingLimits(subscription, -1, -1);
    need(natsConnection_Flush(connection), "flush");
    static const char payload[size] = {};
    return stream(run, [&] {
        need(natsConnection_PublishRequest(connection, groupSubject, inbox, payload, sizeof payload), "publish");
    });
}

// ---- a work queue

jsCtx* contextOf(natsConnection* connection) {
    jsOptions options;
    need(jsOptions_Init(&options), "options");
    options.PublishAsync.MaxPending = 4096;
    options.PublishAsync.StallWait = 20000;
    jsCtx* context = nullptr;
    need(natsConnection_JetStream(&context, connection, &options), "JetStream");
    return context;
}

void prepareStream(const std::string& url) {
    natsConnection* connection = connect(url);
    jsCtx* context = contextOf(connection);
    jsStreamConfig config;
    need(jsStreamConfig_Init(&config), "configuration");
    const char* subjects[] = {streamSubject};
    config.Name = "TASKS";
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    config.Retention = js_WorkQueuePolicy;
    config.Storage = js_MemoryStorage;
    jsErrCode error{};
    js_DeleteStream(context, "TASKS", nullptr, nullptr);
    need(js_AddStream(nullptr, context, &config, nullptr, &error), "stream");
}

void workOnStream(Run& run, int worker, const std::string& url) {
    natsConnection* connection = connect(url);
    jsCtx* context = contextOf(connection);
    jsSubOptions options;
    need(jsSubOptions_Init(&options), "options");
    options.Config.MaxAckPending = 65536;
    natsSubscription* subscription = nullptr;
    jsErrCode error{};
    need(js_PullSubscribe(&subscription, context, streamSubject, "bench", nullptr, &options, &error), "pull");
    // A request is answered as soon as anything is there, and waits at the server for that longer than any run has nothing to do.
    // One whose time had passed could be answered still, and libnats 3.4 writes what it then gets together with the answer to
    // the next one beyond the end of its list.
    jsFetchRequest request;
    need(jsFetchRequest_Init(&request), "request");
    request.Batch = 256;
    request.NoWait = true;
    request.Expires = 60'000'000'000;
    ++run.ready;
    for (;;) {
        natsMsgList list;
        const natsStatus status = natsSubscription_FetchRequest(&list, subscription, &request);
        if (status == NATS_TIMEOUT || status == NATS_NOT_FOUND) continue;
        need(status, "fetch");
        if (list.Count > request.Batch) fail("libnats: more messages than were asked for");
        for (int i = 0; i < list.Count; ++i) {
            need(natsMsg_Ack(list.Msgs[i], nullptr), "acknowledge");
            ++run.done[worker];
            ++run.acknowledged;
        }
        natsMsgList_Destroy(&list);
    }
}

double submitToStream(Run& run, const std::string& url) {
    awaitWorkers(run);
    natsConnection* connection = connect(url);
    jsCtx* context = contextOf(connection);
    static const char payload[size] = {};
    return stream(run,
                  [&] { need(js_PublishAsync(context, streamSubject, payload, sizeof payload, nullptr), "publish"); });
}

}  // namespace

const Side natsGroupSide{"nats-queue-group", nullptr, workInGroup, submitToGroup};
const Side jetStreamSide{"jetstream-work-queue", prepareStream, workOnStream, submitToStream};

}  // namespace bench::dqueue
