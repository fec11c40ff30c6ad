// The proxy itself, in front of a listener that sends back what it gets, and of a nats-server.
#include "proxy.h"

#include <gtest/gtest-spi.h>

#include <array>

#include "impostor.h"
#include "support.h"

namespace quorltest {
namespace {

std::string hear(int socket, size_t count) {
    std::string heard;
    std::array<char, 4096> bytes;
    while (heard.size() < count) {
        pollfd waited{socket, POLLIN, 0};
        if (poll(&waited, 1, static_cast<int>(limit * 1000)) <= 0) break;
        const ssize_t got = recv(socket, bytes.data(), std::min(bytes.size(), count - heard.size()), 0);
        if (got <= 0) break;
        heard.append(bytes.data(), static_cast<size_t>(got));
    }
    return heard;
}
bool ended(int socket) {
    pollfd waited{socket, POLLIN, 0};
    char byte;
    return poll(&waited, 1, static_cast<int>(limit * 1000)) > 0 && recv(socket, &byte, 1, 0) <= 0;
}
bool silent(int socket) {
    pollfd waited{socket, POLLIN, 0};
    return poll(&waited, 1, 50) == 0;
}

class ProxyTest : public testing::Test {
  protected:
    static void echo(int socket) {
        for (std::string heard; !(heard = hear(socket, 1)).empty();) sendAll(socket, heard);
    }
    Impostor server{echo};
    Proxy proxy{std::atoi(server.address().c_str() + server.address().find(':') + 1)};
    int client = connectTo(proxy.port());

    ~ProxyTest() override { close(client); }
};

TEST_F(ProxyTest, carries) {
    sendAll(client, "hello");
    EXPECT_EQ(hear(client, 5), "hello");
    EXPECT_TRUE(proxy.waitFor("link 1 open"));
    const Proxy::Report report = proxy.report();
    EXPECT_EQ(report.links, 1u);
    EXPECT_EQ(report.up, 5u);
    EXPECT_EQ(report.down, 5u);
}

TEST_F(ProxyTest, freezesOneWayAndGoesOnWithWhatWaited) {
    sendAll(client, "a");
    EXPECT_EQ(hear(client, 1), "a");
    proxy.tell("freeze down");
    sendAll(client, "b");
    EXPECT_TRUE(silent(client));
    proxy.tell("thaw down");
    EXPECT_EQ(hear(client, 1), "b");
}

TEST_F(ProxyTest, cutsAtOnceOrAfterSoManyBytes) {
    sendAll(client, "a");
    EXPECT_EQ(hear(client, 1), "a");
    proxy.tell("cut-after down 3");
    sendAll(client, "bcdef");
    EXPECT_LE(hear(client, 10).size(), 3u);
    EXPECT_TRUE(proxy.waitFor("link 1 over"));
    const int second = connectTo(proxy.port());
    sendAll(second, "a");
    EXPECT_EQ(hear(second, 1), "a");
    proxy.tell("link 2 cut");
    EXPECT_TRUE(ended(second));
    close(second);
}

TEST_F(ProxyTest, insertsWhereTheStreamStands) {
    sendAll(client, "a");
    EXPECT_EQ(hear(client, 1), "a");
    proxy.tell("insert down -ERR \\x41\\\\\\r\\n");
    EXPECT_EQ(hear(client, 9), "-ERR A\\\r\n");
}

TEST_F(ProxyTest, limitsTheRateAndDelays) {
    proxy.tell("rate up 100000");
    proxy.tell("delay down 30");
    const auto start = std::chrono::steady_clock::now();
    sendAll(client, std::string(20000, 'x'));
    EXPECT_EQ(hear(client, 20000).size(), 20000u);
    // What it must not be is faster.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
}

TEST_F(ProxyTest, refusesAndSaysWhatItDoesNotUnderstand) {
    proxy.tell("refuse on");
    const int second = connectTo(proxy.port());
    EXPECT_TRUE(ended(second));
    close(second);
    EXPECT_NONFATAL_FAILURE(proxy.tell("freeze"), "without up, down or both");
}

TEST_F(ProxyTest, drawsTheSameScheduleFromTheSameSeed) {
    const auto schedule = [](int seed) {
        const std::string command = std::string(FAULT_PROXY) + " --print " + std::to_string(seed) + " 100 50";
        std::string text;
        FILE* out = popen(command.c_str(), "r");
        for (int byte; (byte = fgetc(out)) != EOF;) text += static_cast<char>(byte);
        pclose(out);
        return text;
    };
    EXPECT_EQ(schedule(7), schedule(7));
    EXPECT_NE(schedule(7), schedule(8));
    EXPECT_EQ(schedule(7).rfind("wait ", 0), 0u);
    // What it obeys is what it prints.
    proxy.tell("random 7 100");
    const std::string first = schedule(7).substr(0, schedule(7).find('\n'));
    EXPECT_TRUE(proxy.waitFor(first)) << proxy.story();
    proxy.tell("calm");
}

// QUORL_PROXY_SEED and QUORL_PROXY_FAULTS: one's own.
TEST_F(Open, aConnectionSurvivesAScheduleOfFaults) {
    NatsServer server;
    Proxy proxy(server.port());
    const int seed = numberFrom("QUORL_PROXY_SEED", 1);
    const int losses = numberFrom("QUORL_PROXY_FAULTS", 3);
    printf("seed %d\n", seed);
    const quorlTransport transport = transportTo(proxy.address());
    const quorlTransport local = newTransport();
    {
        Advisories advisories(local);
        Numbers numbers;
        listen(QUORL_DEFAULT_QUEUE, transport, "n", onNumber, &numbers);
        proxy.tell("random " + std::to_string(seed) + " 100");
        ASSERT_TRUE(advisories.waitFor(losses, losses)) << proxy.story();
        proxy.tell("calm");
        for (int i = 1; numbers.came.empty() || numbers.came.back() != i - 1; ++i) {
            ASSERT_EQ(sendNumber(transport, "n", i), QUORL_OK) << quorl_LastErrorText();
            quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit);
        }
    }
}

}  // namespace
}  // namespace quorltest
