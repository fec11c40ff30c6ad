// Circuits over a real daemon: what a killed daemon and a killed peer do to them.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "support.h"

namespace quorltest {
namespace {

// Sets the limit of silence for the test; to be made before the library is opened.
class CircuitTimeout {
  public:
    explicit CircuitTimeout(const char* setting) { set(setting); }
    ~CircuitTimeout() { set("circuit.timeout=10"); }
    CircuitTimeout(const CircuitTimeout&) = delete;
    CircuitTimeout& operator=(const CircuitTimeout&) = delete;

  private:
    static void set(const char* setting) {
        EXPECT_EQ(quorl_SetQRParameters(1, &setting), QUORL_OK) << quorl_LastErrorText();
    }
};

TEST(CircuitOverDaemon, brings_everything_home_while_the_daemon_is_killed_and_comes_back) {
    const CircuitTimeout patience("circuit.timeout=60");
    NatsServer server;
    ASSERT_TRUE(server.running());
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    {
        // Two connections, so that nothing passes inside the process.
        const quorlTransport here = transportTo(server.url());
        const quorlTransport there = transportTo(server.url());
        ASSERT_EQ(quorlTransport_SetDescription(there, "the other end"), QUORL_OK);
        quorlTransport acceptor = 0;
        quorlTransport connector = 0;
        const char* subject = nullptr;
        ASSERT_EQ(quorlTransport_CreateAcceptVc(&acceptor, &subject, here), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorlTransport_CreateConnectVc(&connector, subject, there), QUORL_OK) << quorl_LastErrorText();
        ASSERT_EQ(quorlTransport_WaitForVcConnection(connector, limit), QUORL_OK) << quorl_LastErrorText();
        const quorlQueue queue = newQueue();
        Numbers numbers;
        listen(queue, acceptor, "n", onNumber, &numbers);
        std::atomic<bool> enough{false};
        std::atomic<int> sent{0};
        std::atomic<int> heard{0};
        const auto hear = [&](size_t goal) {
            while (numbers.came.size() < goal) {
                ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
                heard = static_cast<int>(numbers.came.size());
            }
        };
        Threads threads;
        threads.start([&] {
            while (!enough) {
                ASSERT_EQ(sendNumber(connector, "n", sent), QUORL_OK) << quorl_LastErrorText();
                ++sent;
                // Not much faster than it is heard, so that the stream is cut where it flows.
                while (!enough && sent > heard + 2000) std::this_thread::yield();
            }
        });
        const int kills = numberFrom("QUORL_KILLS", 3);
        for (int round = 0; round < kills; ++round) {
            hear(numbers.came.size() + 2000);
            server.kill();
            ASSERT_TRUE(server.start());
        }
        hear(numbers.came.size() + 2000);
        enough = true;
        threads.join();
        hear(static_cast<size_t>(sent));
        for (int i = 0; i < sent; ++i) ASSERT_EQ(numbers.came[static_cast<size_t>(i)], i);
        EXPECT_EQ(countOf(queue), 0u);
    }
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

// The accepting end in a process of its own, which sends numbers until it is killed.
[[noreturn]] void streamUntilKilled(const std::string& daemon, int subjectOut) {
    quorlTransport transport = 0;
    quorlTransport circuit = 0;
    const char* subject = nullptr;
    if (quorl_Open() != QUORL_OK || quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK ||
        quorlTransport_CreateAcceptVc(&circuit, &subject, transport) != QUORL_OK)
        _exit(1);
    const auto length = static_cast<ssize_t>(strlen(subject) + 1);
    if (write(subjectOut, subject, static_cast<size_t>(length)) != length) _exit(2);
    if (quorlTransport_WaitForVcConnection(circuit, limit) != QUORL_OK) _exit(3);
    // Nothing is heard before the other end says that it listens.
    quorlEvent event = 0;
    if (quorlEvent_CreateListener(
            &event, QUORL_DEFAULT_QUEUE, [](quorlEvent, quorlMsg, void*) {}, circuit, "go", nullptr) != QUORL_OK)
        _exit(4);
    if (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit) != QUORL_OK) _exit(5);
    for (int i = 0;; ++i) {
        if (sendNumber(circuit, "n", i) != QUORL_OK) _exit(6);
    }
}

TEST(CircuitOverDaemon, notices_that_the_process_of_the_peer_was_killed) {
    NatsServer server;
    ASSERT_TRUE(server.running());
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t peer = fork();
    ASSERT_GE(peer, 0);
    if (peer == 0) streamUntilKilled(server.url(), ends[1]);
    close(ends[1]);
    std::string subject;
    for (char byte; read(ends[0], &byte, 1) == 1 && byte != '\0';) subject += byte;
    close(ends[0]);
    ASSERT_FALSE(subject.empty());

    const CircuitTimeout patience("circuit.timeout=1");
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport transport = transportTo(server.url());
    quorlTransport circuit = 0;
    ASSERT_EQ(quorlTransport_CreateConnectVc(&circuit, subject.c_str(), transport), QUORL_OK) << quorl_LastErrorText();
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, circuit, "n", onNumber, &numbers);
    ASSERT_EQ(quorlTransport_WaitForVcConnection(circuit, limit), QUORL_OK) << quorl_LastErrorText();
    // The peer may not listen yet: it is asked until it answers with its stream.
    while (numbers.came.empty()) {
        ASSERT_EQ(sendNumber(circuit, "go", 0), QUORL_OK) << quorl_LastErrorText();
        const quorl_status status = quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.1);
        ASSERT_TRUE(status == QUORL_OK || status == QUORL_TIMEOUT) << status;
    }
    while (numbers.came.size() < 1000) ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    ASSERT_EQ(::kill(peer, SIGKILL), 0);
    ASSERT_EQ(waitpid(peer, nullptr, 0), peer);
    quorlMsg request = newMessage("ask");
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(circuit, request, &reply, limit), QUORL_VC_NOT_CONNECTED);
    EXPECT_NE(strstr(quorl_LastErrorText(), "silent"), nullptr) << quorl_LastErrorText();
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    EXPECT_EQ(quorlTransport_WaitForVcConnection(circuit, 0), QUORL_VC_NOT_CONNECTED);
    drain(QUORL_DEFAULT_QUEUE);
    for (size_t i = 0; i < numbers.came.size(); ++i) ASSERT_EQ(numbers.came[i], static_cast<int>(i));
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

}  // namespace
}  // namespace quorltest
