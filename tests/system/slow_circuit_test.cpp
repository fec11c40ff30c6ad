// Circuits over a network that is slow: nobody takes it for silence, and little is sent more than once.
#include <atomic>
#include <string>

#include "proxy.h"
#include "support.h"

namespace quorltest {
namespace {

class SlowCircuit : public testing::Test {
  protected:
    void SetUp() override {
        set("circuit.timeout=1");
        ASSERT_EQ(quorl_Open(), QUORL_OK);
    }
    void TearDown() override {
        EXPECT_EQ(quorl_Close(), QUORL_OK);
        set("circuit.timeout=10");
    }
    static void set(const char* setting) {
        EXPECT_EQ(quorl_SetQRParameters(1, &setting), QUORL_OK) << quorl_LastErrorText();
    }

    // Sends over a circuit whose ends are there; the network carries bytesPerSecond, the first message takes several times as
    // long as a peer may be silent.
    void carry(const std::string& way, const std::string& receiver, const std::string& sender) {
        const quorlTransport here = transportTo(receiver);
        const quorlTransport there = transportTo(sender);
        ASSERT_EQ(quorlTransport_SetDescription(there, "the other end"), QUORL_OK);
        quorlTransport acceptor = 0;
        quorlTransport connector = 0;
        const char* subject = nullptr;
        ASSERT_EQ(quorlTransport_CreateAcceptVc(&acceptor, &subject, here), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorlTransport_CreateConnectVc(&connector, subject, there), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorlTransport_WaitForVcConnection(connector, limit), QUORL_OK) << quorl_LastErrorText();
        Numbers numbers;
        listen(QUORL_DEFAULT_QUEUE, acceptor, "n", onNumber, &numbers);
        proxy.tell("rate " + way + " 5000000");
        const Proxy::Report before = proxy.report();
        size_t payload = 0;
        Threads threads;
        std::vector<size_t> sizes{15'000'000};
        sizes.insert(sizes.end(), 30, 300'000);
        sizes.insert(sizes.end(), 1000, 1000);
        for (const size_t size : sizes) payload += size;
        threads.start([&] {
            int number = 0;
            for (const size_t size : sizes) {
                quorlMsg message = newMessage("n", number++);
                const std::string bytes(size, 'x');
                EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(size), 0),
                          QUORL_OK);
                EXPECT_EQ(quorlTransport_Send(connector, message), QUORL_OK) << quorl_LastErrorText();
                quorlMsg_Destroy(message);
            }
        });
        while (numbers.came.size() < sizes.size())
            ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK) << numbers.came.size();
        for (size_t i = 0; i < sizes.size(); ++i) ASSERT_EQ(numbers.came[i], static_cast<int>(i));
        const Proxy::Report after = proxy.report();
        const uint64_t carried = after.up - before.up + after.down - before.down;
        printf("%zu bytes of messages, %llu carried\n", payload, static_cast<unsigned long long>(carried));
        EXPECT_LE(carried, 2 * payload);
        proxy.tell("rate both 0");
    }

    NatsServer server;
    Proxy proxy{server.port()};
};

TEST_F(SlowCircuit, aReceiverThatIsSlowToReachIsNotLost) {
    carry("down", proxy.address(), server.url());
}

TEST_F(SlowCircuit, aSenderThatIsSlowToReachIsNotLost) {
    carry("up", server.url(), proxy.address());
}

}  // namespace
}  // namespace quorltest
