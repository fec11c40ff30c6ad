// Our library over the same daemon: each message is created, filled, sent and destroyed; a dispatcher reads its field.
#include <cstring>
#include <thread>

#include "network/sides.h"
#include "support/quorl.h"

namespace bench::network {
namespace {

// The library open, with a transport to the daemon.
struct Client {
    explicit Client(const std::string& url) {
        need(quorl_Open(), "open");
        need(quorlTransport_Create(&transport, nullptr, nullptr, url.c_str()), "transport");
    }
    ~Client() { need(quorl_Close(), "close"); }
    quorlTransport transport = 0;
};

quorlMsg messageOf(const char* subject, const void* bytes, size_t size) {
    quorlMsg message;
    need(quorlMsg_Create(&message), "create message");
    need(quorlMsg_AddOpaqueEx(message, "payload", bytes, static_cast<quorl_u32>(size), 0), "add field");
    if (subject != nullptr) need(quorlMsg_SetSendSubject(message, subject), "set subject");
    return message;
}

// Waits until the daemon knows of the listeners: a message to itself has come back.
void settle(quorlTransport transport) {
    char inbox[QUORL_SUBJECT_MAX + 1];
    Queue queue;
    quorlEvent listener;
    need(quorlTransport_CreateInbox(transport, inbox, sizeof inbox), "inbox");
    need(quorlEvent_CreateListener(
             &listener, queue.id(), [](quorlEvent, quorlMsg, void*) {}, transport, inbox, nullptr),
         "listener");
    quorlMsg message = messageOf(inbox, "", 0);
    need(quorlTransport_Send(transport, message), "send");
    need(quorlQueue_TimedDispatch(queue.id(), 10), "dispatch");
    need(quorlMsg_Destroy(message), "destroy message");
}

struct Subscriber {
    Receiver& receiver;
    bool over = false;

    static void onMessage(quorlEvent, quorlMsg message, void* closure) {
        auto* self = static_cast<Subscriber*>(closure);
        auto [bytes, size] = payloadOf(message);
        self->over = !self->receiver.on(bytes, size);
    }
};

void subscribe(Run& run, size_t size, const std::string& url) {
    Client client(url);
    Receiver receiver(run.stream, size);
    Subscriber subscriber{receiver};
    quorlEvent listener;
    need(quorlEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, Subscriber::onMessage, client.transport,
                                   "bench.stream", &subscriber),
         "listener");
    settle(client.transport);
    run.ready = true;
    while (!subscriber.over) need(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1), "dispatch");
}

double publish(Run& run, size_t size, const std::string& url) {
    Client client(url);
    return streamRate(run.stream, size, windowOf(size), [&](const void* bytes, size_t length) {
        quorlMsg message = messageOf("bench.stream", bytes, length);
        need(quorlTransport_Send(client.transport, message), "send");
        need(quorlMsg_Destroy(message), "destroy message");
    });
}

void answer(Run& run, size_t, const std::string& url) {
    Client client(url);
    quorlEvent listener;
    need(quorlEvent_CreateListener(
             &listener, QUORL_DEFAULT_QUEUE,
             [](quorlEvent, quorlMsg message, void* closure) {
                 auto [bytes, size] = payloadOf(message);
                 quorlMsg reply = messageOf(nullptr, bytes, size);
                 need(quorlTransport_SendReply(static_cast<const Client*>(closure)->transport, reply, message),
                      "reply");
                 need(quorlMsg_Destroy(reply), "destroy message");
             },
             client.transport, "bench.ask", &client),
         "listener");
    settle(client.transport);
    run.ready = true;
    while (!run.over) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.05);
}

std::vector<double> ask(Run&, size_t size, const std::string& url) {
    Client client(url);
    return roundTrips(size, [&](const void* bytes, size_t length, void* back) {
        quorlMsg request = messageOf("bench.ask", bytes, length);
        quorlMsg reply = nullptr;
        need(quorlTransport_SendRequest(client.transport, request, &reply, 10), "request");
        auto [data, got] = payloadOf(reply);
        std::memcpy(back, data, std::min(got, length));
        need(quorlMsg_Destroy(reply), "destroy message");
        need(quorlMsg_Destroy(request), "destroy message");
        return got;
    });
}

}  // namespace

const Side quorlSide{"quorl", subscribe, publish, answer, ask};

}  // namespace bench::network
