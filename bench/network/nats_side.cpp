// The daemon's own client library, used as its documentation does: payloads published and received as they are.
#include <nats/nats.h>

#include <cstring>
#include <thread>

#include "network/sides.h"
#include "support/measure.h"

namespace bench::network {
namespace {

void need(natsStatus status, const char* what) {
    if (status != NATS_OK) fail(std::string("libnats: ") + what + ": " + natsStatus_GetText(status));
}

// asap: each publish is written at once, which is the better setting for requests; otherwise a thread gathers them.
natsConnection* dial(const std::string& url, bool asap) {
    natsOptions* options = nullptr;
    natsConnection* connection = nullptr;
    need(natsOptions_Create(&options), "options");
    need(natsOptions_SetURL(options, url.c_str()), "address");
    need(natsOptions_SetSendAsap(options, asap), "send at once");
    need(natsConnection_Connect(&connection, options), "connect");
    natsOptions_Destroy(options);
    return connection;
}

struct Subscriber {
    Receiver& receiver;
    std::atomic<bool> over{false};

    static void onMessage(natsConnection*, natsSubscription*, natsMsg* message, void* closure) {
        auto* self = static_cast<Subscriber*>(closure);
        if (!self->over &&
            !self->receiver.on(natsMsg_GetData(message), static_cast<size_t>(natsMsg_GetDataLength(message))))
            self->over = true;
        natsMsg_Destroy(message);
    }
};

void subscribe(Run& run, size_t size, const std::string& url) {
    natsConnection* connection = dial(url, false);
    Receiver receiver(run.stream, size);
    Subscriber subscriber{receiver};
    natsSubscription* subscription = nullptr;
    need(natsConnection_Subscribe(&subscription, connection, "bench.stream", Subscriber::onMessage, &subscriber),
         "subscribe");
    need(natsSubscription_SetPendingLimits(subscription, -1, -1), "limits");
    need(natsConnection_Flush(connection), "flush");
    run.ready = true;
    while (!subscriber.over) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

double publish(Run& run, size_t size, const std::string& url) {
    natsConnection* connection = dial(url, false);
    return streamRate(run.stream, size, windowOf(size), [&](const void* bytes, size_t length) {
        need(natsConnection_Publish(connection, "bench.stream", bytes, static_cast<int>(length)), "publish");
    });
}

void answer(Run& run, size_t, const std::string& url) {
    natsConnection* connection = dial(url, true);
    natsSubscription* subscription = nullptr;
    need(natsConnection_Subscribe(
             &subscription, connection, "bench.ask",
             [](natsConnection* from, natsSubscription*, natsMsg* message, void*) {
                 need(natsConnection_Publish(from, natsMsg_GetReply(message), natsMsg_GetData(message),
                                             natsMsg_GetDataLength(message)),
                      "reply");
                 natsMsg_Destroy(message);
             },
             nullptr),
         "subscribe");
    need(natsConnection_Flush(connection), "flush");
    run.ready = true;
    while (!run.over) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::vector<double> ask(Run&, size_t size, const std::string& url) {
    natsConnection* connection = dial(url, true);
    return roundTrips(size, [&](const void* bytes, size_t length, void* back) {
        natsMsg* reply = nullptr;
        need(natsConnection_Request(&reply, connection, "bench.ask", bytes, static_cast<int>(length), 10000),
             "request");
        const auto got = static_cast<size_t>(natsMsg_GetDataLength(reply));
        std::memcpy(back, natsMsg_GetData(reply), std::min(got, length));
        natsMsg_Destroy(reply);
        return got;
    });
}

}  // namespace

const Side natsSide{"libnats", subscribe, publish, answer, ask};

}  // namespace bench::network
