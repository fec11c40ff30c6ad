// Daemons that stop answering without going away: time limits hold, senders wait or are told, nothing is lost.
#include <csignal>

#include "support.h"

namespace quorltest {
namespace {

class Parameters {
  public:
    Parameters(std::vector<const char*> settings, std::vector<const char*> defaults) : defaults_(std::move(defaults)) {
        set(settings);
    }
    ~Parameters() { set(defaults_); }
    Parameters(const Parameters&) = delete;
    Parameters& operator=(const Parameters&) = delete;

  private:
    static void set(std::vector<const char*>& settings) {
        EXPECT_EQ(quorl_SetQRParameters(static_cast<quorl_u32>(settings.size()), settings.data()), QUORL_OK)
            << quorl_LastErrorText();
    }
    std::vector<const char*> defaults_;
};

// Sends numbered messages of that size on a thread of its own, and can be waited for until it is stuck.
class Pusher {
  public:
    Pusher(quorlTransport transport, const char* subject, int messages, size_t size) {
        threads_.start([=, this] {
            id_ = gettid();
            const std::string bytes(size, 'x');
            for (int i = 0; i < messages; ++i) {
                quorlMsg message = newMessage(subject, i);
                EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(size), 0),
                          QUORL_OK);
                EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_OK) << quorl_LastErrorText();
                quorlMsg_Destroy(message);
                ++sent_;
            }
        });
    }
    // Asleep, and no further than when that was looked at first, with so many sent at least.
    bool waitUntilStuck(int least = 0) {
        while (id_ == 0) std::this_thread::yield();
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while (std::chrono::steady_clock::now() < end) {
            const int before = sent_;
            if (!waitUntilAsleep(id_)) return false;
            for (int i = 0; i < 1000; ++i) std::this_thread::yield();
            if (before >= least && sent_ == before && waitUntilAsleep(id_) && sent_ == before) return true;
        }
        return false;
    }
    void join() { threads_.join(); }
    int sent() const { return sent_; }

  private:
    std::atomic<pid_t> id_{0};
    std::atomic<int> sent_{0};
    Threads threads_;
};

void expectTimeout(quorlTransport transport) {
    for (const double seconds : {0.0, 0.05}) {
        quorlMsg request = newMessage("nobody");
        quorlMsg reply = nullptr;
        EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, seconds), QUORL_TIMEOUT);
        EXPECT_STRNE(quorl_LastErrorText(), "");
        EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    }
}

// The request must end by its own limit, not when the daemon is given up, which would be told.
TEST(StoppedDaemon, aRequestEndsInTimeThoughTheWayOutIsFull) {
    NatsServer server;
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    {
        const quorlTransport transport = transportTo(server.url());
        const quorlTransport local = newTransport();
        Advisories advisories(local);
        settleOn(transport);
        constexpr int messages = 60;
        Numbers numbers;
        listen(QUORL_DEFAULT_QUEUE, transport, "push", onNumber, &numbers);
        settleOn(transport);
        server.signal(SIGSTOP);
        Pusher pusher(transport, "push", messages, 1 << 20);
        EXPECT_TRUE(pusher.waitUntilStuck());
        EXPECT_LT(pusher.sent(), messages);
        expectTimeout(transport);
        EXPECT_TRUE(advisories.seen().empty());
        server.signal(SIGCONT);
        pusher.join();
        while (numbers.came.size() < messages)
            ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
        for (int i = 0; i < messages; ++i) EXPECT_EQ(numbers.came[static_cast<size_t>(i)], i);
    }
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

TEST(StoppedDaemon, aCircuitsSenderWaitsAndItsRequestsEndInTime) {
    const Parameters patience({"circuit.timeout=60"}, {"circuit.timeout=10"});
    NatsServer server;
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    {
        const quorlTransport here = transportTo(server.url());
        const quorlTransport there = transportTo(server.address());  // a connection of its own
        quorlTransport acceptor = 0;
        quorlTransport connector = 0;
        const char* subject = nullptr;
        ASSERT_EQ(quorlTransport_CreateAcceptVc(&acceptor, &subject, here), QUORL_OK);
        ASSERT_EQ(quorlTransport_CreateConnectVc(&connector, subject, there), QUORL_OK);
        ASSERT_EQ(quorlTransport_WaitForVcConnection(connector, limit), QUORL_OK) << quorl_LastErrorText();
        Numbers numbers;
        listen(QUORL_DEFAULT_QUEUE, acceptor, "push", onNumber, &numbers);
        server.signal(SIGSTOP);
        constexpr int messages = 30;
        Pusher pusher(connector, "push", messages, 4 << 20);
        // A window of 4 MiB on its way, and 64 MiB that wait for it.
        EXPECT_TRUE(pusher.waitUntilStuck(16));
        EXPECT_LE(pusher.sent(), 19);
        expectTimeout(connector);
        EXPECT_EQ(quorlTransport_WaitForVcConnection(connector, 0), QUORL_OK) << "silence is no loss yet";
        server.signal(SIGCONT);
        pusher.join();
        while (numbers.came.size() < messages)
            ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
        for (int i = 0; i < messages; ++i) EXPECT_EQ(numbers.came[static_cast<size_t>(i)], i);
        drain(QUORL_DEFAULT_QUEUE);
        EXPECT_EQ(numbers.came.size(), static_cast<size_t>(messages));
    }
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

// A sender that waits for room learns that its circuit was closed.
TEST(StoppedDaemon, aSenderThatWaitsIsWokenByTheClose) {
    NatsServer server;
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    {
        const quorlTransport transport = transportTo(server.url());
        settleOn(transport);
        server.signal(SIGSTOP);
        std::atomic<pid_t> id{0};
        Threads threads;
        threads.start([&] {
            id = gettid();
            const std::string bytes(1 << 20, 'x');
            quorlMsg message = newMessage("push");
            quorlMsg_AddOpaqueEx(message, nullptr, bytes.data(), static_cast<quorl_u32>(bytes.size()), 0);
            quorl_status status;
            while ((status = quorlTransport_Send(transport, message)) == QUORL_OK) {
            }
            EXPECT_EQ(status, QUORL_INVALID_TRANSPORT) << quorl_LastErrorText();
            quorlMsg_Destroy(message);
        });
        while (id == 0) std::this_thread::yield();
        EXPECT_TRUE(waitUntilAsleep(id));
        // What it had taken before is dropped, and told.
        EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_DAEMON_NOT_CONNECTED);
        threads.join();
        server.signal(SIGCONT);
    }
    EXPECT_EQ(quorl_Close(), QUORL_DAEMON_NOT_CONNECTED);
}

// A new name takes a new session, and that is when a daemon that answers nobody is noticed.
TEST(StoppedDaemon, isALostOneWhenItTakesNoNewName) {
    const Parameters small({"connect.timeout=0.2", "reconnect.buffer=2000"},
                           {"connect.timeout=2", "reconnect.buffer=8388608"});
    NatsServer server("trace: true");
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    {
        const quorlTransport transport = transportTo(server.url());
        const quorlTransport local = newTransport();
        Advisories advisories(local);
        server.signal(SIGSTOP);
        ASSERT_EQ(quorlTransport_SetDescription(transport, "late riser"), QUORL_OK);
        ASSERT_TRUE(advisories.waitFor(1, 0));
        EXPECT_NE(advisories.seen()[0].texts.at("reason").find("connect nats://"), std::string::npos);
        quorl_status status;
        int kept = 0;
        while ((status = sendNumber(transport, "a", kept)) == QUORL_OK) ++kept;
        EXPECT_EQ(status, QUORL_DAEMON_NOT_CONNECTED);
        server.signal(SIGCONT);
        ASSERT_TRUE(advisories.waitFor(1, 1));
        EXPECT_EQ(advisories.sumOf("_QUORL.INFO.daemon.back", "sent"), static_cast<quorl_u64>(kept));
        settleOn(transport);
        EXPECT_NE(server.log().find("\"name\":\"late riser\""), std::string::npos) << server.log();
    }
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

}  // namespace
}  // namespace quorltest
