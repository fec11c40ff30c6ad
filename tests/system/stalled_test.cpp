// Ways that stand still in one direction: a daemon that asks and does not read, a network that takes nothing.
#include "fake_daemon.h"
#include "proxy.h"
#include "support.h"

namespace quorltest {
namespace {

// Answers would be as many as questions, and wait where nobody reads.
TEST_F(Open, questionsOfADaemonThatDoesNotReadAreAnsweredTogether) {
    constexpr int questions = 400'000;
    std::atomic<int> commands{0};
    FakeDaemon daemon([&](FakeDaemon::Client& client, int step) {
        ++commands;
        if (step != 4) return true;
        std::string pings;
        for (int i = 0; i < 1000; ++i) pings += "PING\r\n";
        for (int i = 0; i < questions / 1000; ++i) {
            if (!client.send(pings)) return false;
        }
        return true;
    });
    const quorlTransport transport = transportTo(daemon.address());
    settleOn(transport);
    EXPECT_LT(commands, questions / 4);
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK) << "while the daemon is there: " << quorl_LastErrorText();
}

// What others send still comes in, so that the daemon is not silent.
TEST_F(Open, aNetworkThatTakesNothingIsNoticedWhileOthersAreHeard) {
    NatsServer server;
    Proxy proxy(server.port());
    const quorlTransport through = transportTo("nats://" + proxy.address());
    const quorlTransport direct = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Counter heard;
    const quorlQueue queue = newQueue();
    listen(
        queue, through, "others", [](quorlEvent, quorlMsg, void* closure) { static_cast<Counter*>(closure)->add(); },
        &heard);
    settleOn(through);
    std::atomic<bool> over{false};
    Threads threads;
    threads.start([&] {
        while (!over) {
            sendNumber(direct, "others", 1);
            quorlQueue_TimedDispatch(queue, 0.05);
        }
    });
    ASSERT_TRUE(heard.waitFor(1));
    proxy.tell("freeze up");
    // Sends wait for a while, then go into the buffer for a daemon that is away, and are refused when that is full.
    quorlMsg message = newMessage("ours");
    const std::string filler(60'000, 'x');
    ASSERT_EQ(quorlMsg_AddOpaqueEx(message, "bytes", filler.data(), static_cast<quorl_u32>(filler.size()), 0),
              QUORL_OK);
    quorl_status status;
    while ((status = quorlTransport_Send(through, message)) == QUORL_OK) {
    }
    EXPECT_EQ(status, QUORL_DAEMON_NOT_CONNECTED) << quorl_LastErrorText();
    quorlMsg_Destroy(message);
    ASSERT_TRUE(advisories.waitFor(1, 0));
    EXPECT_EQ(advisories.seen().front().texts.at("reason"), "the daemon takes nothing of what is sent to it");
    proxy.tell("calm");
    ASSERT_TRUE(advisories.waitFor(1, 1));
    settleOn(through);
    over = true;
    threads.join();
}

}  // namespace
}  // namespace quorltest
