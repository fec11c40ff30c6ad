// Order where a connection is lost, and what it carried arrives when the next one is already in use.
#include "proxy.h"
#include "support.h"

namespace quorltest {
namespace {

// Messages of every form: gathered ones, ones by themselves, and parts.
quorl_status sendOne(quorlTransport transport, int number) {
    quorlMsg message = newMessage("stream", number);
    const std::string bytes(number % 50 == 0 ? 600'000 : number % 10 == 0 ? 60'000 : 100, 'x');
    EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(bytes.size()), 0), QUORL_OK);
    const quorl_status status = quorlTransport_Send(transport, message);
    quorlMsg_Destroy(message);
    return status;
}

// QUORL_LATE_ROUNDS: more of them.
TEST_F(Open, whatALostConnectionDeliversLateIsNotHeardBehindTheNext) {
    NatsServer server;
    Proxy proxy(server.port());
    const quorlTransport sender = transportTo(proxy.address());
    const quorlTransport receiver = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Ascending heard;
    const quorlQueue queue = newQueue();
    listen(queue, receiver, "stream", onAscending, &heard);
    Ascending other;
    listen(queue, receiver, "*", onAscending, &other);
    settleOn(receiver);
    Threads dispatcher;
    dispatcher.start([=] {
        while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
        }
    });
    int number = 0;
    const auto sendUntil = [&](auto&& done) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while (!done() && std::chrono::steady_clock::now() < end) {
            if (number > heard.last + 2000) std::this_thread::yield();
            EXPECT_EQ(sendOne(sender, number++), QUORL_OK) << quorl_LastErrorText();
        }
        EXPECT_TRUE(done());
    };
    const int rounds = numberFrom("QUORL_LATE_ROUNDS", 5);
    for (int round = 1; round <= rounds; ++round) {
        const quorl_u64 before = heard.count;
        sendUntil([&] { return heard.count > before + 200; });
        // The network keeps what is sent, and forgets the sender, who connects anew and goes on.
        proxy.tell("open freeze up");
        const int frozen = number;
        while (number < frozen + 100) ASSERT_EQ(sendOne(sender, number++), QUORL_OK) << quorl_LastErrorText();
        proxy.tell("link " + std::to_string(round) + " forsake");
        ASSERT_TRUE(advisories.waitFor(round, round));
        const int anew = number;
        sendUntil([&] { return heard.last >= anew; });
        proxy.tell("thaw up");
        ASSERT_TRUE(proxy.waitFor("link " + std::to_string(round) + " over")) << proxy.story();
        const int after = heard.last;
        sendUntil([&] { return heard.last > after + 200; });
    }
    settleOn(sender);
    while (heard.last != number - 1) std::this_thread::yield();
    quorlQueue_DestroyEx(queue, nullptr, nullptr);
    dispatcher.join();
    EXPECT_EQ(heard.wrong, 0);
    EXPECT_EQ(other.wrong, 0);
    // What came too late is told as lost: by the sender that it may be, by the receiver that it is.
    const quorl_u64 missing = static_cast<quorl_u64>(number) - heard.count;
    EXPECT_LE(missing, advisories.sumOf("_QUORL.WARN.daemon.lost", "unconfirmed"));
    ASSERT_TRUE(advisories.waitForOthers(1));
    for (const auto& one : advisories.seen()) {
        if (one.subject == "_QUORL.WARN.daemon.malformed") {
            EXPECT_NE(one.texts.at("reason").find("behind what its sender sent later"), std::string::npos);
        }
    }
    printf("%d rounds: %d sent, %llu missing\n", rounds, number, static_cast<unsigned long long>(missing));
}

}  // namespace
}  // namespace quorltest
