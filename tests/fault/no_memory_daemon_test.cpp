// Every allocation of connecting to a nats-server, and of coming back to it, fails once, in the clear and with TLS: nothing ends
// the process, the connection comes back, and a message that was accepted arrives, or is counted among those that are missing.
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/registry.h"
#include "certificates.h"
#include "companion/credentials.h"
#include "event/queue.h"
#include "failing_allocator.h"
#include "impostor.h"
#include "proxy.h"
#include "quorl/quorl.h"
#include "server.h"
#include "transport/nats/connection.h"
#include "transport/nats/port.h"

namespace {

using quorltest::Certificates;
using quorltest::failAllocation;
using quorltest::NatsServer;
using quorltest::Proxy;
using quorltest::stopFailing;
using quorltest::Whose;

constexpr int64_t most = 20'000;
constexpr std::chrono::seconds patience(60);

// The next allocation in that file of OpenSSL's fails; null: none does.
std::atomic<const char*> refusedIn{nullptr};

void* opensslMalloc(size_t size, const char* file, int) {
    const char* refused = refusedIn;
    if (refused != nullptr && file != nullptr && std::strstr(file, refused) != nullptr) {
        refusedIn = nullptr;
        return nullptr;
    }
    return quorltest::tryMalloc(size);
}

// OpenSSL takes its memory where a test can refuse it. It takes none before this.
const bool opensslIsCounted =
    CRYPTO_set_mem_functions(
        opensslMalloc, [](void* memory, size_t size, const char*, int) { return quorltest::tryRealloc(memory, size); },
        [](void* memory, const char*, int) { std::free(memory); }) == 1;

template <class F>
bool await(F&& condition) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::yield();
    }
    return true;
}

std::string textOf(uint64_t number) {
    return "<number " + std::to_string(number) + ">";
}

// A client of the server's that is none of the library's: what comes by there is heard without its memory.
class Witness {
  public:
    explicit Witness(int port) : socket_(quorltest::connectTo(port)) {
        quorltest::sendAll(socket_, "CONNECT {\"verbose\":false}\r\nSUB quorl.> 1\r\nPING\r\n");
        thread_ = std::thread([this] { read(); });
        EXPECT_TRUE(heard("PONG"));
    }
    ~Witness() {
        shutdown(socket_, SHUT_RDWR);
        thread_.join();
        close(socket_);
    }
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;

    // Waits for it.
    bool heard(const std::string& text) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, patience, [&] { return heard_.find(text) != std::string::npos; });
    }
    bool hasHeard(const std::string& text) {
        std::lock_guard lock(mutex_);
        return heard_.find(text) != std::string::npos;
    }
    void forget() {
        std::lock_guard lock(mutex_);
        heard_.clear();
    }

  private:
    void read() {
        char bytes[65536];
        for (;;) {
            const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
            if (count <= 0) return;
            const std::string said(bytes, static_cast<size_t>(count));
            if (said.find("PING\r\n") != std::string::npos) quorltest::sendAll(socket_, "PONG\r\n");
            std::lock_guard lock(mutex_);
            heard_ += said;
            changed_.notify_all();
        }
    }

    const int socket_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::string heard_;
    std::thread thread_;
};

class NoMemoryAtADaemon : public testing::TestWithParam<bool> {
  protected:
    static void SetUpTestSuite() { certificates = new Certificates; }
    static void TearDownTestSuite() {
        delete certificates;
        certificates = nullptr;
    }
    void SetUp() override {
        ASSERT_TRUE(opensslIsCounted);
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        ASSERT_EQ(quorlQueue_Create(&queue_), QUORL_OK);
        if (GetParam()) {
            ASSERT_EQ(quorl::companion::setDaemonCertificates("*", certificates->text("ca.pem").c_str()), QUORL_OK)
                << quorl_LastErrorText();
            ASSERT_EQ(quorl::companion::setUser("a name", "a password that is longer than a short string"), QUORL_OK);
        }
    }
    void TearDown() override {
        // What was dropped when connections were closed without memory is told here once more.
        const quorl_status status = quorl_Close();
        EXPECT_TRUE(status == QUORL_OK || status == QUORL_DAEMON_NOT_CONNECTED) << quorl_LastErrorText();
    }
    // Both kinds of clients are let in: the witness says nothing of certificates.
    static std::string settings() {
        return GetParam() ? certificates->tlsOf("server") + "\nallow_non_tls: true" : std::string();
    }
    static std::string addressOf(int port) {
        return (GetParam() ? "tls://127.0.0.1:" : "nats://127.0.0.1:") + std::to_string(port);
    }

    static quorl_status send(quorlTransport transport, uint64_t number) {
        quorlMsg message = nullptr;
        quorl_status status = quorlMsg_Create(&message);
        if (status != QUORL_OK) return status;
        status = quorlMsg_SetSendSubject(message, "a.b");
        char text[40];  // takes no memory
        std::snprintf(text, sizeof text, "<number %llu>", static_cast<unsigned long long>(number));
        if (status == QUORL_OK) status = quorlMsg_AddStringEx(message, "text", text, 0);
        if (status == QUORL_OK) status = quorlMsg_AddU64Ex(message, "n", number, 0);
        if (status == QUORL_OK) status = quorlTransport_Send(transport, message);
        quorlMsg_Destroy(message);
        return status;
    }
    // What the connections have told that they may have lost.
    static uint64_t missing() {
        uint64_t sum = quorl::transport::nats::missingOfEnded();
        for (const auto& one : quorl::transport::nats::connections()) {
            if (!one->finished()) sum += one->figures().missing();
        }
        return sum;
    }
    // What they have told that came in and found no memory, and what a queue has.
    static uint64_t unkept() {
        uint64_t sum = 0;
        for (const auto& one : quorl::transport::nats::connections()) sum += one->figures().malformed;
        return sum;
    }
    uint64_t refusedByQueue() const {
        quorl::ReadGuard guard(*quorl::threadState());
        quorl::event::QueueFigures figures;
        quorl::event::figuresOf(*quorl::registry::find<quorl::event::Queue>(queue_), &figures);
        return figures.refused;
    }
    static uint64_t reconnects() {
        uint64_t sum = 0;
        for (const auto& one : quorl::transport::nats::connections()) {
            if (!one->finished()) sum += one->figures().reconnects;
        }
        return sum;
    }

    struct Heard {
        uint64_t last = 0;
    };
    static void onNumber(quorlEvent, quorlMsg message, void* closure) {
        quorl_u64 number = 0;
        EXPECT_EQ(quorlMsg_GetU64Ex(message, "n", &number, 0), QUORL_OK);
        static_cast<Heard*>(closure)->last = number;
    }
    bool hears(const Heard& heard, uint64_t number) {
        return await([&] {
            quorlQueue_TimedDispatch(queue_, 0);
            return heard.last == number;
        });
    }

    static inline Certificates* certificates = nullptr;
    quorlQueue queue_ = 0;
};

INSTANTIATE_TEST_SUITE_P(Each, NoMemoryAtADaemon, testing::Bool(),
                         [](const auto& info) { return info.param ? "WithTls" : "InTheClear"; });

// Before the others: what a process makes once for all its TLS is made here.
TEST_P(NoMemoryAtADaemon, what_is_made_once_is_made_later_when_there_was_no_memory_for_it) {
    if (!GetParam()) return;
    NatsServer server(settings());
    quorlTransport transport = 0;
    SSL_CTX_free(SSL_CTX_new(TLS_client_method()));  // OpenSSL has what it makes once itself
    refusedIn = "bio_meth.c";
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, addressOf(server.port()).c_str()),
              QUORL_DAEMON_NOT_FOUND);
    EXPECT_EQ(refusedIn, nullptr);
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, addressOf(server.port()).c_str()), QUORL_OK)
        << quorl_LastErrorText();
}

TEST_P(NoMemoryAtADaemon, connecting_says_so_or_succeeds) {
    NatsServer server(settings());
    Witness witness(server.port());
    for (const Whose whose : {Whose::callers, Whose::librarys}) {
        for (int64_t allowed = 0;; ++allowed) {
            SCOPED_TRACE(testing::Message()
                         << (whose == Whose::callers ? "caller" : "library") << ", allocation " << allowed);
            ASSERT_LT(allowed, most) << "does not come to an end";
            const uint64_t missingBefore = missing();
            const std::string address = addressOf(server.port());
            failAllocation(whose, allowed);
            quorlTransport transport = 0;
            quorlEvent event = 0;
            Heard heard;
            quorl_status status = quorlTransport_Create(&transport, nullptr, nullptr, address.c_str());
            const bool created = status == QUORL_OK;
            if (status == QUORL_OK)
                status = quorlEvent_CreateListener(&event, queue_, onNumber, transport, "a.>", &heard);
            const uint64_t number = static_cast<uint64_t>(allowed) + 1;
            if (status == QUORL_OK) status = send(transport, number);
            const bool accepted = status == QUORL_OK;
            char text[256];
            std::snprintf(text, sizeof text, "%s", quorl_LastErrorText());
            quorl_status closed = QUORL_OK;
            if (created) closed = quorlTransport_Destroy(transport);
            const bool failed = stopFailing();
            EXPECT_TRUE(status == QUORL_OK || status == QUORL_NO_MEMORY || status == QUORL_DAEMON_NOT_FOUND ||
                        status == QUORL_DAEMON_NOT_CONNECTED)
                << quorlStatus_GetText(status) << ", " << text;
            EXPECT_TRUE(accepted || *text != 0);
            // A session that is lost before it is closed is told of then, and closing finds nothing to complain of.
            if (accepted) {
                EXPECT_TRUE(await([&] { return witness.hasHeard(textOf(number)) || missing() > missingBefore; }))
                    << quorlStatus_GetText(closed);
            }
            if (event != 0) {
                EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
            }
            witness.forget();
            if (failed) continue;
            EXPECT_EQ(status, QUORL_OK) << text;
            EXPECT_EQ(closed, QUORL_OK);
            break;
        }
    }
}

// Keeps as many of the library's states of threads in use, so that a new thread needs memory for its own.
class Holders {
  public:
    ~Holders() {
        done_ = true;
        done_.notify_all();
    }
    void hold() {
        std::atomic<bool> holds{false};
        threads_.emplace_back([&] {
            quorlQueue_TimedDispatch(1, 0);
            holds = true;
            holds.notify_one();
            done_.wait(false);
        });
        holds.wait(false);
    }

  private:
    std::atomic<bool> done_{false};
    std::vector<std::jthread> threads_;
};

TEST_P(NoMemoryAtADaemon, a_connection_is_refused_or_hears_everything_or_tells) {
    if (GetParam()) return;  // its allocations are OpenSSL's, and each would take a thread
    NatsServer server(settings());
    Holders holders;
    for (int i = 0; i < 24; ++i) holders.hold();
    bool failed = true;
    for (int64_t allowed = 0; failed; ++allowed) {
        SCOPED_TRACE(allowed);
        ASSERT_LT(allowed, most) << "does not come to an end";
        holders.hold();  // in the state that the last connection has left
        const uint64_t missingBefore = missing();
        failAllocation(Whose::librarys, allowed);
        quorlTransport transport = 0;
        if (quorlTransport_Create(&transport, nullptr, nullptr, addressOf(server.port()).c_str()) == QUORL_OK) {
            const uint64_t refusedBefore = refusedByQueue();
            Heard heard;
            quorlEvent event = 0;
            ASSERT_EQ(quorlEvent_CreateListener(&event, queue_, onNumber, transport, "a.>", &heard), QUORL_OK);
            ASSERT_EQ(send(transport, 1), QUORL_OK) << quorl_LastErrorText();
            EXPECT_TRUE(await([&] {
                quorlQueue_TimedDispatch(queue_, 0);
                return heard.last == 1 || missing() > missingBefore || unkept() != 0 ||
                       refusedByQueue() > refusedBefore;
            }));
            EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
            static_cast<void>(quorlTransport_Destroy(transport));
        }
        failed = stopFailing();
    }
}

// A session that cannot subscribe is given up, and what is sent behind the listening waits for the next one.
TEST_P(NoMemoryAtADaemon, what_is_sent_behind_a_listening_without_memory_is_heard) {
    NatsServer server(settings());
    for (uint64_t number = 1; number <= 40; ++number) {
        SCOPED_TRACE(number);
        quorlTransport transport = 0;
        ASSERT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, addressOf(server.port()).c_str()), QUORL_OK)
            << quorl_LastErrorText();
        const uint64_t missingBefore = missing();
        Heard heard;
        quorlEvent event = 0;
        failAllocation(Whose::librarys, 0);
        ASSERT_EQ(quorlEvent_CreateListener(&event, queue_, onNumber, transport, "a.>", &heard), QUORL_OK);
        ASSERT_EQ(send(transport, number), QUORL_OK) << quorl_LastErrorText();
        EXPECT_TRUE(await([&] {
            quorlQueue_TimedDispatch(queue_, 0);
            return heard.last == number || missing() > missingBefore;
        }));
        EXPECT_TRUE(stopFailing());
        EXPECT_EQ(heard.last, number);
        EXPECT_EQ(missing(), missingBefore);
        EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK) << quorl_LastErrorText();
    }
}

TEST_P(NoMemoryAtADaemon, coming_back_succeeds_in_the_end_and_loses_nothing_untold) {
    NatsServer server(settings());
    Witness witness(server.port());
    Proxy proxy(server.port());
    uint64_t number = 0;
    // Nearly all are OpenSSL's, and each takes a handshake or two: of those, one of a few is as good as all.
    for (int64_t allowed = 0;; allowed += allowed < 150 ? 1 : 10) {
        SCOPED_TRACE(testing::Message() << "allocation " << allowed);
        ASSERT_LT(allowed, most) << "does not come to an end";
        // A connection of its own, which has not paused yet between attempts to come back.
        quorlTransport transport = 0;
        ASSERT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, addressOf(proxy.port()).c_str()), QUORL_OK)
            << quorl_LastErrorText();
        Heard heard;
        quorlEvent event = 0;
        ASSERT_EQ(quorlEvent_CreateListener(&event, queue_, onNumber, transport, "a.>", &heard), QUORL_OK);
        const uint64_t before = ++number;
        ASSERT_EQ(send(transport, before), QUORL_OK) << quorl_LastErrorText();
        ASSERT_TRUE(hears(heard, before));
        const uint64_t missingBefore = missing();
        const uint64_t reconnectsBefore = reconnects();
        failAllocation(Whose::librarys, allowed);
        proxy.tell("cut");
        const uint64_t during = ++number;
        const quorl_status status = send(transport, during);
        EXPECT_TRUE(status == QUORL_OK || status == QUORL_NO_MEMORY || status == QUORL_DAEMON_NOT_CONNECTED)
            << quorl_LastErrorText();
        ASSERT_TRUE(await([&] { return reconnects() > reconnectsBefore; })) << proxy.story();
        const bool failed = stopFailing();
        // Behind it on the same way, and back to this process: what is listened to is asked for again.
        const uint64_t after = ++number;
        ASSERT_EQ(send(transport, after), QUORL_OK) << quorl_LastErrorText();
        ASSERT_TRUE(witness.heard(textOf(after)));
        ASSERT_TRUE(hears(heard, after));
        if (status == QUORL_OK && !witness.hasHeard(textOf(during))) {
            EXPECT_GT(missing(), missingBefore);
        }
        witness.forget();
        EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK) << quorl_LastErrorText();
        if (!failed) break;
    }
}

}  // namespace
