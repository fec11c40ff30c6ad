// A daemon that is killed and comes back, and a cluster of which one server goes.
#include "impostor.h"
#include "support.h"

namespace quorltest {
namespace {

class Loss : public Open {
  protected:
    NatsServer server;
};

// Sends numbers until it is told to stop.
class Stream {
  public:
    Stream(quorlTransport transport, const char* subject) {
        threads_.start([this, transport, subject] {
            quorlMsg message = newMessage(subject);
            for (int number = 0; !over_; ++number) {
                quorlMsg_UpdateI32Ex(message, "n", number, 0);
                const quorl_status status = quorlTransport_Send(transport, message);
                if (status == QUORL_OK) {
                    ++sent_;
                } else {
                    EXPECT_EQ(status, QUORL_DAEMON_NOT_CONNECTED) << quorl_LastErrorText();
                    ++refused_;
                }
                // A sender that is only slowed by the daemon fills the buffer at once when it is away.
                if (number % 50 == 0) std::this_thread::yield();
            }
            quorlMsg_Destroy(message);
        });
    }
    void stop() {
        over_ = true;
        threads_.join();
    }
    quorl_u64 sent() const { return sent_; }
    quorl_u64 refused() const { return refused_; }

  private:
    std::atomic<bool> over_{false};
    std::atomic<quorl_u64> sent_{0};
    std::atomic<quorl_u64> refused_{0};
    Threads threads_;
};

// The connection of the sender is the listener's too, so that what it does not confirm is all that can be lost.
TEST_F(Loss, killedInMidStreamItLosesNoMoreThanTheAdvisoriesSay) {
    const int kills = numberFrom("QUORL_SYSTEM_KILLS", 3);
    const quorlTransport transport = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Ascending received;
    const quorlQueue queue = newQueue();
    listen(queue, transport, "stream", onAscending, &received);
    Threads dispatcher;
    dispatcher.start([=] {
        while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
        }
    });
    settleOn(transport);
    Stream stream(transport, "stream");
    for (int kill = 1; kill <= kills; ++kill) {
        const quorl_u64 before = received.count;
        while (received.count < before + 1000) std::this_thread::yield();
        server.kill();
        // Requests have their time limit, whatever the daemon does.
        quorlMsg request = newMessage("nobody");
        quorlMsg reply = nullptr;
        const quorl_status status = quorlTransport_SendRequest(transport, request, &reply, 0.02);
        EXPECT_TRUE(status == QUORL_TIMEOUT || status == QUORL_DAEMON_NOT_CONNECTED) << status;
        quorlMsg_Destroy(request);
        ASSERT_TRUE(server.start()) << server.log();
        ASSERT_TRUE(advisories.waitFor(kill, kill));
        // The listener goes on without having been made again.
        const quorl_u64 after = received.count;
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while (received.count < after + 100 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
        ASSERT_GE(received.count, after + 100);
    }
    stream.stop();
    settleOn(transport);
    while (countOf(queue) != 0) std::this_thread::yield();
    quorlQueue_DestroyEx(queue, nullptr, nullptr);
    dispatcher.join();
    EXPECT_EQ(received.wrong, 0);
    const quorl_u64 unconfirmed = advisories.sumOf("_QUORL.WARN.daemon.lost", "unconfirmed");
    const quorl_u64 refused = advisories.sumOf("_QUORL.INFO.daemon.back", "lost");
    EXPECT_LE(stream.sent() - received.count, unconfirmed);
    EXPECT_GE(refused, stream.refused());
    for (const auto& one : advisories.seen()) {
        EXPECT_EQ(one.texts.at("daemon"), server.url());
        if (one.subject == "_QUORL.WARN.daemon.lost") {
            EXPECT_FALSE(one.texts.at("reason").empty());
        }
    }
    printf("%d kills: %llu sent, %llu received, at most %llu unconfirmed, %llu refused\n", kills,
           static_cast<unsigned long long>(stream.sent()), static_cast<unsigned long long>(received.count.load()),
           static_cast<unsigned long long>(unconfirmed), static_cast<unsigned long long>(stream.refused()));
}

// A round trip after each half megabyte: then a mark that was sent is back too, and what can be unconfirmed is what comes
// before the next one.
TEST_F(Loss, littleIsUnconfirmedHoweverFastItWasSent) {
    const quorlTransport transport = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    constexpr size_t size = 16u << 10;
    constexpr int messages = 32;
    const std::string data(size, 'x');
    quorlMsg message = newMessage("flood");
    ASSERT_EQ(quorlMsg_AddOpaqueEx(message, "data", data.data(), size, 0), QUORL_OK);
    for (int round = 0; round < 64; ++round) {
        for (int i = 0; i < messages; ++i) ASSERT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
        settleOn(transport);
    }
    quorlMsg_Destroy(message);
    server.kill();
    ASSERT_TRUE(advisories.waitFor(1, 0));
    EXPECT_LE(advisories.sumOf("_QUORL.WARN.daemon.lost", "unconfirmed") * size, 2u << 20);
}

quorl_u64 figureOf(quorlMsg daemon, const char* name) {
    quorl_u64 value = UINT64_MAX;
    EXPECT_EQ(quorlMsg_GetU64Ex(daemon, name, &value, 0), QUORL_OK) << name;
    return value;
}

TEST_F(Loss, theStatisticsCountForEachConnection) {
    const quorlTransport transport = transportTo(server.url(), "svc");
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "a", onNumber, &numbers);
    settleOn(transport);
    for (int kill = 1; kill <= 2; ++kill) {
        server.kill();
        ASSERT_TRUE(advisories.waitFor(kill, kill - 1));
        for (int i = 0; i < 10; ++i) ASSERT_EQ(sendNumber(transport, "a", i), QUORL_OK);
        ASSERT_TRUE(server.start());
        ASSERT_TRUE(advisories.waitFor(kill, kill));
        settleOn(transport);
    }
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 20);
    quorlMsg request = newMessage("_QUORL.STATS");
    quorlMsg reply = nullptr;
    ASSERT_EQ(quorlTransport_SendRequest(local, request, &reply, limit), QUORL_OK);
    const quorlMsg* daemons = nullptr;
    quorl_u32 count = 0;
    ASSERT_EQ(quorlMsg_GetMsgArrayEx(reply, "daemons", &daemons, &count, 0), QUORL_OK);
    ASSERT_EQ(count, 1u);
    for (const auto& [name, expected] : std::map<std::string, std::string>{{"daemon", server.url()},
                                                                           {"service", "svc"},
                                                                           {"network", ""},
                                                                           {"phase", "connected"},
                                                                           {"server", server.url()}}) {
        const char* text = nullptr;
        ASSERT_EQ(quorlMsg_GetStringEx(daemons[0], name.c_str(), &text, 0), QUORL_OK) << name;
        EXPECT_EQ(text, expected) << name;
    }
    // The twenty, and those of the three times that all was waited for.
    EXPECT_EQ(figureOf(daemons[0], "messages_out"), 23u);
    EXPECT_EQ(figureOf(daemons[0], "messages_in"), 23u);
    EXPECT_GT(figureOf(daemons[0], "bytes_out"), 20u * 16);
    EXPECT_GT(figureOf(daemons[0], "bytes_in"), 20u * 16);
    EXPECT_EQ(figureOf(daemons[0], "reconnects"), 2u);
    EXPECT_EQ(figureOf(daemons[0], "waiting"), 0u);
    EXPECT_EQ(figureOf(daemons[0], "lost"), advisories.sumOf("_QUORL.INFO.daemon.back", "lost"));
    EXPECT_EQ(figureOf(daemons[0], "unconfirmed"), advisories.sumOf("_QUORL.WARN.daemon.lost", "unconfirmed"));
    EXPECT_EQ(figureOf(daemons[0], "malformed"), 0u);
    quorlMsg_Destroy(reply);
    quorlMsg_Destroy(request);
}

TEST_F(Loss, whatIsSentMeanwhileIsKeptInOrder) {
    const quorlTransport transport = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "kept", onNumber, &numbers);
    sendNumber(transport, "kept", 0);
    settleOn(transport);
    server.kill();
    ASSERT_TRUE(advisories.waitFor(1, 0));
    std::vector<int> expected{0};
    for (int i = 1; i <= 5000; ++i) {
        ASSERT_EQ(sendNumber(transport, "kept", i), QUORL_OK) << quorl_LastErrorText();
        expected.push_back(i);
    }
    Numbers late;
    listen(QUORL_DEFAULT_QUEUE, transport, "kept.too", onNumber, &late);
    ASSERT_EQ(sendNumber(transport, "kept.too", 7), QUORL_OK);
    ASSERT_TRUE(server.start());
    ASSERT_TRUE(advisories.waitFor(1, 1));
    settleOn(transport);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(numbers.came, expected);
    EXPECT_EQ(late.came, std::vector{7});
    EXPECT_EQ(advisories.sumOf("_QUORL.INFO.daemon.back", "sent"), 5001u);
    EXPECT_EQ(advisories.sumOf("_QUORL.INFO.daemon.back", "lost"), 0u);
}

TEST_F(Loss, aMessageIsKeptNoLongerThanItIsWorth) {
    const quorlTransport transport = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "brief", onNumber, &numbers);
    settleOn(transport);
    server.kill();
    ASSERT_TRUE(advisories.waitFor(1, 0));
    ASSERT_EQ(quorlTransport_RequestReliability(transport, 1e-9), QUORL_OK);
    ASSERT_EQ(sendNumber(transport, "brief", 1), QUORL_OK);
    ASSERT_EQ(quorlTransport_RequestReliability(transport, 1000), QUORL_OK);
    ASSERT_EQ(sendNumber(transport, "other", 1), QUORL_OK);
    ASSERT_EQ(sendNumber(transport, "brief", 2), QUORL_OK);
    ASSERT_TRUE(server.start());
    ASSERT_TRUE(advisories.waitFor(1, 1));
    settleOn(transport);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(numbers.came, std::vector{2});
}

TEST(SmallBuffer, refusesWhatDoesNotFitAndSaysHowMuch) {
    NatsServer server;
    const char* settings[] = {"reconnect.buffer=2000", "connect.timeout=1"};
    ASSERT_EQ(quorl_SetQRParameters(2, settings), QUORL_OK);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport transport = transportTo(server.url());
    {
        const quorlTransport local = newTransport();
        Advisories advisories(local);
        server.kill();
        ASSERT_TRUE(advisories.waitFor(1, 0));
        int kept = 0;
        quorl_status status;
        while ((status = sendNumber(transport, "a", kept)) == QUORL_OK) ++kept;
        EXPECT_EQ(status, QUORL_DAEMON_NOT_CONNECTED);
        EXPECT_NE(std::string(quorl_LastErrorText()).find("the daemon is away"), std::string::npos);
        EXPECT_GT(kept, 50);
        EXPECT_LT(kept, 100);
        // A request fails at once, with the reason.
        quorlMsg request = newMessage("a");
        quorlMsg reply = nullptr;
        EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, -1), QUORL_DAEMON_NOT_CONNECTED);
        quorlMsg_Destroy(request);
        ASSERT_TRUE(server.start());
        ASSERT_TRUE(advisories.waitFor(1, 1));
        EXPECT_EQ(sendNumber(transport, "a", 0), QUORL_OK);
        EXPECT_EQ(advisories.sumOf("_QUORL.INFO.daemon.back", "lost"), 2u);
        EXPECT_EQ(advisories.sumOf("_QUORL.INFO.daemon.back", "sent"), static_cast<quorl_u64>(kept));
    }
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    const char* defaults[] = {"reconnect.buffer=8388608", "connect.timeout=2"};
    ASSERT_EQ(quorl_SetQRParameters(2, defaults), QUORL_OK);
}

TEST(Cluster, goesOnAtAnotherServer) {
    // Each knows the next; gossip does the rest.
    NatsServer first("server_name: a\ncluster { name: c, host: 127.0.0.1, port: -1 }");
    const std::string log = first.log();
    const size_t at = log.find("Listening for route connections on 127.0.0.1:");
    ASSERT_NE(at, std::string::npos) << log;
    const std::string route = std::to_string(std::atoi(log.c_str() + at + 45));
    const auto member = [&](const char* name) {
        return std::string("server_name: ") + name +
               "\ncluster { name: c, host: 127.0.0.1, port: -1, routes: " + "[\"nats://127.0.0.1:" + route + "\"] }";
    };
    NatsServer second(member("b"));
    NatsServer third(member("c"));
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport transport = transportTo(first.address() + "," + second.address() + "," + third.address());
    const quorlTransport other = transportTo(third.url());
    {
        const quorlTransport local = newTransport();
        Advisories advisories(local);
        Numbers here, there;
        listen(QUORL_DEFAULT_QUEUE, transport, "news", onNumber, &here);
        listen(QUORL_DEFAULT_QUEUE, other, "news", onNumber, &there);
        settleOn(transport);
        settleOn(other);
        first.kill();
        ASSERT_TRUE(advisories.waitFor(1, 1));
        settleOn(transport);
        // Interest spreads through the cluster in its own time: repeat until both have heard.
        for (int i = 0; (here.came.empty() || there.came.empty()) && i < 1000; ++i) {
            EXPECT_EQ(sendNumber(transport, "news", i), QUORL_OK);
            quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.05);
        }
        EXPECT_FALSE(here.came.empty());
        EXPECT_FALSE(there.came.empty());
        second.kill();
        ASSERT_TRUE(advisories.waitFor(2, 2));
        here.came.clear();
        settleOn(transport);
        drain(QUORL_DEFAULT_QUEUE);
        here.came.clear();
        EXPECT_EQ(sendNumber(transport, "news", 7), QUORL_OK);
        settleOn(transport);
        drain(QUORL_DEFAULT_QUEUE);
        EXPECT_EQ(here.came, std::vector{7});
    }
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

std::string greetingOf(const NatsServer& server) {
    const int client = connectTo(server.port());
    std::string text;
    char bytes[4096];
    while (text.find('\n') == std::string::npos) {
        const ssize_t count = recv(client, bytes, sizeof bytes, 0);
        if (count <= 0) break;
        text.append(bytes, static_cast<size_t>(count));
    }
    close(client);
    return text;
}

// Named by the daemon, not by the program.
TEST(Cluster, goesOnAtAServerThatItsDaemonHasNamed) {
    NatsServer first("server_name: a\ncluster { name: c, host: 127.0.0.1, port: -1 }");
    const std::string log = first.log();
    const size_t at = log.find("Listening for route connections on 127.0.0.1:");
    ASSERT_NE(at, std::string::npos) << log;
    NatsServer second("server_name: b\ncluster { name: c, host: 127.0.0.1, port: -1, routes: [\"nats://127.0.0.1:" +
                      std::to_string(std::atoi(log.c_str() + at + 45)) + "\"] }");
    // Until its greeting names the other.
    const std::string wanted = ":" + std::to_string(second.port()) + "\"";
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (greetingOf(first).find(wanted) == std::string::npos)
        ASSERT_LT(std::chrono::steady_clock::now(), end) << greetingOf(first);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    {
        const quorlTransport transport = transportTo(first.url());
        const quorlTransport local = newTransport();
        Advisories advisories(local);
        settleOn(transport);
        first.kill();
        ASSERT_TRUE(advisories.waitFor(1, 1));
        settleOn(transport);
    }
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

}  // namespace
}  // namespace quorltest
