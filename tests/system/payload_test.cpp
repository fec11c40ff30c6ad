// Sizes that differ: limits of the servers of a cluster, a limit that is raised, and the largest messages.
#include <csignal>

#include "support.h"

namespace quorltest {
namespace {

quorlMsg messageOf(const char* subject, size_t size) {
    const std::string bytes(size, 'x');
    quorlMsg message = newMessage(subject, static_cast<int>(size));
    EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(size), 0), QUORL_OK);
    return message;
}
void sendOf(quorlTransport transport, const char* subject, size_t size) {
    quorlMsg message = messageOf(subject, size);
    EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_OK) << quorl_LastErrorText();
    quorlMsg_Destroy(message);
}
// Interest spreads through a cluster in its own time: sends until something is heard.
void meet(quorlTransport from, Numbers& numbers) {
    while (numbers.came.empty()) {
        ASSERT_EQ(sendNumber(from, "sizes", 0), QUORL_OK);
        quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.05);
    }
    settleOn(from);
}
void hear(Numbers& numbers, int size) {
    while (numbers.came.back() != size) ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
}

TEST_F(Open, aListenerAtAServerWithALowLimitHearsWhatOthersMaySend) {
    NatsServer small("max_payload: 1000\nserver_name: a\ncluster { name: c, host: 127.0.0.1, port: -1 }");
    const std::string log = small.log();
    const std::string words = "Listening for route connections on 127.0.0.1:";
    const size_t at = log.find(words);
    ASSERT_NE(at, std::string::npos) << log;
    NatsServer large("server_name: b\ncluster { name: c, host: 127.0.0.1, port: -1, routes: [\"nats://127.0.0.1:" +
                     std::to_string(std::atoi(log.c_str() + at + words.size())) + "\"] }");
    const quorlTransport here = transportTo(small.url());
    const quorlTransport there = transportTo(large.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, here, "sizes", onNumber, &numbers);
    meet(there, numbers);
    for (const int size : {900, 1100, 60000, 250000, 3000000}) {
        sendOf(there, "sizes", static_cast<size_t>(size));
        hear(numbers, size);
    }
    EXPECT_TRUE(advisories.seen().empty());
}

TEST_F(Open, aListenerHearsWhatARaisedLimitAllows) {
    NatsServer server("max_payload: 1000");
    const quorlTransport before = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, before, "sizes", onNumber, &numbers);
    meet(before, numbers);
    ASSERT_TRUE(server.reload("max_payload: 8MB", "max_payload")) << server.log();
    // A connection of its own, which knows the new limit.
    const quorlTransport after = transportTo(server.url() + "," + server.url());
    sendOf(after, "sizes", 200000);
    hear(numbers, 200000);
    EXPECT_TRUE(advisories.seen().empty());
}

TEST_F(Open, overlappingPatternsHearTheLargestMessages) {
    NatsServer server;
    const quorlTransport transport = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Numbers one, other;
    listen(QUORL_DEFAULT_QUEUE, transport, "large.message", onNumber, &one);
    listen(QUORL_DEFAULT_QUEUE, transport, "large.*", onNumber, &other);
    settleOn(transport);
    const int size = 140 << 20;
    sendOf(transport, "large.message", size);
    ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    EXPECT_EQ(one.came, std::vector{size});
    EXPECT_EQ(other.came, std::vector{size});
    EXPECT_TRUE(advisories.seen().empty());
}

}  // namespace
}  // namespace quorltest
