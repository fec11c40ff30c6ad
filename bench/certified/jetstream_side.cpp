// JetStream with file storage, through the daemon's own client library: published without waiting, at most 4096 on their way
// to being acknowledged. The server stores; the other process has nothing to do.
#include <nats/nats.h>

#include <chrono>

#include "certified/sides.h"
#include "support/payload.h"

namespace bench::certified {
namespace {

void need(natsStatus status, const char* what) {
    if (status != NATS_OK) fail(std::string("libnats: ") + what + ": " + natsStatus_GetText(status));
}

void subscribe(network::Run& run, size_t, const std::string&) {
    run.ready = true;
}

double publish(network::Run&, size_t size, const std::string& url) {
    natsConnection* connection = nullptr;
    need(natsConnection_ConnectTo(&connection, url.c_str()), "connect");
    static std::atomic<uint64_t> refused{0};
    jsOptions options;
    need(jsOptions_Init(&options), "options");
    options.PublishAsync.MaxPending = 4096;
    options.PublishAsync.StallWait = 20000;
    options.PublishAsync.ErrHandler = [](jsCtx*, jsPubAckErr*, void*) { ++refused; };
    jsCtx* context = nullptr;
    need(natsConnection_JetStream(&context, connection, &options), "JetStream");
    jsStreamConfig config;
    need(jsStreamConfig_Init(&config), "configuration");
    const char* subjects[] = {"bench.certified"};
    config.Name = "BENCH";
    config.Subjects = subjects;
    config.SubjectsLen = 1;
    config.Storage = js_FileStorage;
    jsErrCode error{};
    js_DeleteStream(context, "BENCH", nullptr, nullptr);
    need(js_AddStream(nullptr, context, &config, nullptr, &error), "stream");

    Payload payload(size);
    const int64_t start = nowNs();
    const int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
    uint64_t number = 0;
    for (; number % 32 != 0 || nowNs() < stop; ++number)
        need(js_PublishAsync(context, "bench.certified", payload.numbered(number), static_cast<int>(size), nullptr),
             "publish");
    jsPubOptions wait;
    need(jsPubOptions_Init(&wait), "options");
    wait.MaxWait = 20000;
    need(js_PublishAsyncComplete(context, &wait), "complete");
    const double seconds = static_cast<double>(nowNs() - start) / 1e9;

    jsStreamInfo* info = nullptr;
    need(js_GetStreamInfo(&info, context, "BENCH", nullptr, &error), "stream");
    if (info->State.Msgs != number || refused != 0) fail("JetStream does not hold what was published");
    jsStreamInfo_Destroy(info);
    js_DeleteStream(context, "BENCH", nullptr, nullptr);
    jsCtx_Destroy(context);
    natsConnection_Destroy(connection);
    return static_cast<double>(number) / seconds;
}

}  // namespace

const network::Side jetStreamSide{"jetstream-async", subscribe, publish, nullptr, nullptr};

}  // namespace bench::certified
