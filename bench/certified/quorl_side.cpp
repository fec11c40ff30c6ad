// Our certified delivery at the level that survives the end of a process: a sender with a ledger, and a listener that
// confirms each message when its callback has returned. The run is over when the ledger holds nothing unconfirmed.
#include "quorl/quorlcm.h"

#include <chrono>
#include <thread>

#include "certified/sides.h"
#include "network/processes.h"
#include "support/quorl.h"

namespace bench::certified {
namespace {

const char* const subject = "bench.certified";

struct Subscriber {
    Receiver& receiver;
    bool over = false;

    static void onMessage(quorlcmEvent, quorlMsg message, void* closure) {
        auto* self = static_cast<Subscriber*>(closure);
        auto [bytes, size] = payloadOf(message);
        self->over = !self->receiver.on(bytes, size);
    }
};

// The library open, with a certified transport to the daemon.
struct Client {
    Client(const std::string& url, const char* name, const std::string& ledger) {
        need(quorl_Open(), "open");
        need(quorlTransport_Create(&transport, nullptr, nullptr, url.c_str()), "transport");
        need(quorlcmTransport_Create(&certified, transport, name, QUORL_FALSE,
                                     ledger.empty() ? nullptr : ledger.c_str(), QUORL_FALSE, nullptr),
             "certified transport");
    }
    ~Client() { need(quorl_Close(), "close"); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    quorlTransport transport = 0;
    quorlcmTransport certified = 0;
};

void listen(network::Run& run, size_t size, const std::string& url, const std::string& ledger) {
    Client client(url, "bench-listener", ledger);
    Receiver receiver(run.stream, size);
    Subscriber subscriber{receiver};
    quorlcmEvent listener;
    need(quorlcmEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, Subscriber::onMessage, client.certified, subject,
                                     &subscriber),
         "listener");
    run.ready = true;
    // Also what confirmations of the last messages need: until the sender has seen them.
    while (!subscriber.over || !run.over) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.01);
}

void subscribe(network::Run& run, size_t size, const std::string& url) {
    listen(run, size, url, "");
}

void subscribeKeeping(network::Run& run, size_t size, const std::string& url) {
    const network::Folder folder;
    listen(run, size, url, folder.path() + "/listener");
}

bool anyUnconfirmed(quorlcmTransport certified) {
    bool any = false;
    need(quorlcmTransport_ReviewLedger(
             certified,
             [](quorlcmTransport, const char*, quorlMsg message, void* closure) -> void* {
                 quorl_u64 messages = 0;
                 need(quorlMsg_GetU64Ex(message, "messages", &messages, 0), "review");
                 if (messages != 0) *static_cast<bool*>(closure) = true;
                 return nullptr;
             },
             subject, &any),
         "review");
    return any;
}

double publish(network::Run& run, size_t size, const std::string& url) {
    const network::Folder folder;
    Client client(url, "bench-sender", folder.path() + "/sender");
    // From the first message on, whenever the listener registers.
    need(quorlcmTransport_AddListener(client.certified, "bench-listener", subject), "add listener");
    Payload payload(size);
    const auto send = [&](uint64_t number) {
        quorlMsg message;
        need(quorlMsg_Create(&message), "create message");
        need(quorlMsg_AddOpaqueEx(message, "payload", payload.numbered(number), static_cast<quorl_u32>(size), 0),
             "add field");
        need(quorlMsg_SetSendSubject(message, subject), "set subject");
        need(quorlcmTransport_Send(client.certified, message), "send");
        need(quorlMsg_Destroy(message), "destroy message");
    };
    send(kHello);
    while (!run.stream.heard.load(std::memory_order_acquire)) std::this_thread::sleep_for(std::chrono::milliseconds(1));

    const int64_t start = nowNs();
    const int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
    uint64_t number = 0;
    for (;; ++number) {
        if (number % 32 == 0) {
            if (nowNs() >= stop) break;
            while (number - run.stream.received.load(std::memory_order_acquire) > network::windowOf(size))
                sched_yield();
        }
        send(number);
    }
    send(kEnd);
    const int64_t limit = nowNs() + 30'000'000'000;
    while (anyUnconfirmed(client.certified)) {
        if (nowNs() > limit) fail("the listener did not confirm all messages");
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    const double seconds = static_cast<double>(nowNs() - start) / 1e9;
    run.over = true;
    if (run.stream.total != number || run.stream.damaged != 0) fail("messages were lost, repeated or damaged");
    return static_cast<double>(number) / seconds;
}

}  // namespace

const network::Side quorlSide{"quorl", subscribe, publish, nullptr, nullptr};
const network::Side quorlKeepingSide{"quorl", subscribeKeeping, publish, nullptr, nullptr};

}  // namespace bench::certified
