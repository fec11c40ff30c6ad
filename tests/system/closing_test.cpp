// Closing transports while their daemon has not taken everything: it waits as long as it may, and tells what is dropped.
#include <csignal>
#include <optional>

#include "support.h"

namespace quorltest {
namespace {

class Parameter {
  public:
    explicit Parameter(const char* setting) { set(setting); }
    ~Parameter() { set("connect.timeout=2"); }
    Parameter(const Parameter&) = delete;
    Parameter& operator=(const Parameter&) = delete;

  private:
    static void set(const char* setting) { EXPECT_EQ(quorl_SetQRParameters(1, &setting), QUORL_OK); }
};

// The library is open, with a transport to a daemon and one inside the process, where advisories are heard.
class Closing : public testing::Test {
  protected:
    void open(const char* patience) {
        patience_.emplace(patience);
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        transport = transportTo(server.url());
        local = newTransport();
        advisories.emplace(local);
        settleOn(transport);
    }
    void loseDaemon() {
        server.kill();
        ASSERT_TRUE(advisories->waitFor(1, 0));
    }
    void send(int count) {
        for (int i = 0; i < count; ++i) ASSERT_EQ(sendNumber(transport, "a", i), QUORL_OK);
    }
    void close(quorl_status expected) {
        advisories.reset();
        EXPECT_EQ(quorl_Close(), expected) << quorl_LastErrorText();
    }
    static bool says(const char* words) { return strstr(quorl_LastErrorText(), words) != nullptr; }

  private:
    std::optional<Parameter> patience_;  // taken back last

  protected:
    NatsServer server;
    quorlTransport transport = 0;
    quorlTransport local = 0;
    std::optional<Advisories> advisories;
};

TEST_F(Closing, waitsForADaemonThatComesBack) {
    open("connect.timeout=60");
    const quorl_u64 before = Statistics(local).number("messages_lost");
    loseDaemon();
    send(10);
    std::atomic<pid_t> id{0};
    Threads threads;
    threads.start([&] {
        id = gettid();
        EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK) << quorl_LastErrorText();
    });
    while (id == 0) std::this_thread::yield();
    EXPECT_TRUE(waitUntilAsleep(id));
    server.reconfigure("trace: true");
    ASSERT_TRUE(server.start()) << server.log();
    threads.join();
    EXPECT_NE(server.log().find("PUB quorl.default.default.a"), std::string::npos) << server.log();
    ASSERT_TRUE(advisories->waitFor(1, 1));
    EXPECT_EQ(advisories->sumOf("_QUORL.INFO.daemon.back", "sent"), 10u);
    EXPECT_EQ(Statistics(local).number("messages_lost") - before,
              advisories->sumOf("_QUORL.WARN.daemon.lost", "unconfirmed"));
    close(QUORL_OK);
}

TEST_F(Closing, tellsWhatItDropsWhenTheDaemonStaysAway) {
    open("connect.timeout=0.3");
    loseDaemon();
    const quorl_u64 before = Statistics(local).number("messages_lost");
    send(7);
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_DAEMON_NOT_CONNECTED);
    EXPECT_TRUE(says(": 7 messages are dropped, and 0 more")) << quorl_LastErrorText();
    EXPECT_TRUE(says(server.url().c_str()) && says("refused")) << quorl_LastErrorText();
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_INVALID_TRANSPORT) << "it is gone all the same";
    const auto dropped = advisories->await("_QUORL.WARN.daemon.dropped");
    EXPECT_EQ(dropped.numbers.at("dropped"), 7u);
    EXPECT_EQ(dropped.numbers.at("unconfirmed"), 0u);
    EXPECT_EQ(dropped.texts.at("daemon"), server.url());
    EXPECT_NE(dropped.texts.at("reason").find("refused"), std::string::npos) << dropped.texts.at("reason");
    EXPECT_EQ(Statistics(local).number("messages_lost"), before + 7);
    // A transport that has nothing to send does not wait, and has nothing to tell.
    ASSERT_TRUE(server.start());
    const quorlTransport idle = transportTo(server.url());
    settleOn(idle);
    server.kill();
    ASSERT_TRUE(advisories->waitFor(2, 0));
    EXPECT_EQ(quorlTransport_Destroy(idle), QUORL_OK) << quorl_LastErrorText();
    close(QUORL_DAEMON_NOT_CONNECTED);
    EXPECT_TRUE(says("7 messages for daemons were dropped")) << quorl_LastErrorText();
    // Said once.
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

TEST_F(Closing, countsWhatADaemonThatDoesNotAnswerMayHaveLost) {
    open("connect.timeout=0.3");
    server.signal(SIGSTOP);
    send(5);
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_DAEMON_NOT_CONNECTED);
    EXPECT_TRUE(says("0 messages are dropped, and ")) << quorl_LastErrorText();
    EXPECT_TRUE(says("did not take them in time")) << quorl_LastErrorText();
    const auto dropped = advisories->await("_QUORL.WARN.daemon.dropped");
    EXPECT_EQ(dropped.numbers.at("dropped"), 0u);
    EXPECT_GE(dropped.numbers.at("unconfirmed"), 5u);
    server.signal(SIGCONT);
    close(QUORL_DAEMON_NOT_CONNECTED);
}

TEST_F(Closing, theLastCloseSaysWhatWasDroppedOfTransportsThatItDestroys) {
    open("connect.timeout=0.3");
    loseDaemon();
    send(3);
    close(QUORL_DAEMON_NOT_CONNECTED);
    EXPECT_TRUE(says("3 messages for daemons were dropped")) << quorl_LastErrorText();
}

// A message that a sender is told was taken is counted when it is dropped; one that comes too late is not taken.
TEST_F(Closing, noMessageFallsBetweenASenderAndTheCount) {
    open("connect.timeout=0.1");
    loseDaemon();
    std::atomic<quorl_u64> taken{0};
    Threads threads;
    for (int i = 0; i < 2; ++i) {
        threads.start([&] {
            for (;;) {
                const quorl_status status = sendNumber(transport, "a", 0);
                if (status == QUORL_OK) ++taken;
                if (status == QUORL_INVALID_TRANSPORT) return;
            }
        });
    }
    while (taken < 100) std::this_thread::yield();
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_DAEMON_NOT_CONNECTED);
    threads.join();
    EXPECT_EQ(advisories->await("_QUORL.WARN.daemon.dropped").numbers.at("dropped"), taken);
    close(QUORL_DAEMON_NOT_CONNECTED);
    EXPECT_EQ(std::string(quorl_LastErrorText()).find(std::to_string(taken) + " messages for daemons"), 0u);
}

}  // namespace
}  // namespace quorltest
