// Transports over one daemon: sharing, order, overlapping listeners, large messages, closing.
#include <dirent.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "support.h"

namespace quorltest {
namespace {

class Daemon : public Open {
  protected:
    NatsServer server;
};

// Each connection has an event loop.
int connections() {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += std::filesystem::read_symlink(entry, gone) == "anon_inode:[eventpoll]";
    }
    return count;
}

int threadsOfAll() {
    int count = 0;
    DIR* tasks = opendir("/proc/self/task");
    while (const dirent* entry = readdir(tasks)) count += entry->d_name[0] != '.';
    closedir(tasks);
    return count;
}

TEST_F(Daemon, transportsOfOneBusShareAConnection) {
    const quorlTransport first = transportTo(server.url());
    const quorlTransport second = transportTo(server.url());
    EXPECT_EQ(connections(), 1);
    const quorlTransport other = transportTo(server.url(), "7500");
    const quorlTransport another = transportTo(server.url(), "7500", "lab");
    EXPECT_EQ(connections(), 3);
    EXPECT_EQ(quorlTransport_Destroy(first), QUORL_OK);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, second, "a", onNumber, &numbers);
    EXPECT_EQ(sendNumber(second, "a", 1), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
    EXPECT_EQ(numbers.came, std::vector{1});
    for (const quorlTransport each : {second, other, another}) EXPECT_EQ(quorlTransport_Destroy(each), QUORL_OK);
}

TEST_F(Daemon, theLastCloseLeavesNoThread) {
    const int before = threadsOfAll();
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    for (int i = 0; i < 5; ++i) {
        const quorlTransport transport = transportTo(server.url(), std::to_string(i).c_str());
        listen(QUORL_DEFAULT_QUEUE, transport, "a.>", onNumber, nullptr);
    }
    EXPECT_GT(threadsOfAll(), before);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(threadsOfAll(), before - 1) << "the reclaimer's thread is gone too";
    EXPECT_EQ(quorl_Open(), QUORL_OK);
    transportTo(server.url());
}

TEST_F(Daemon, whatWasSentBeforeTheCloseArrives) {
    const quorlTransport receiver = transportTo(server.address());
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, receiver, "last.>", onNumber, &numbers);
    settleOn(receiver);
    constexpr int messages = 20000;
    const quorlTransport sender = transportTo(server.url());
    for (int i = 0; i < messages; ++i) ASSERT_EQ(sendNumber(sender, "last.words", i), QUORL_OK);
    EXPECT_EQ(quorlTransport_Destroy(sender), QUORL_OK);
    while (numbers.came.size() < messages && quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit) == QUORL_OK) {
    }
    ASSERT_EQ(numbers.came.size(), static_cast<size_t>(messages));
    EXPECT_TRUE(std::is_sorted(numbers.came.begin(), numbers.came.end()));
}

TEST_F(Daemon, overlappingListenersHearEachMessageOnceAndInOrder) {
    const quorlTransport transport = transportTo(server.url());
    const quorlTransport other = transportTo(server.url());
    const char* patterns[] = {"a.b", "a.*", "*.b", ">", "a.>", "*.*", "a.b"};
    Numbers numbers[14];
    int i = 0;
    for (const char* pattern : patterns) {
        listen(QUORL_DEFAULT_QUEUE, transport, pattern, onNumber, &numbers[i++]);
        listen(QUORL_DEFAULT_QUEUE, other, pattern, onNumber, &numbers[i++]);
    }
    std::vector<int> sent;
    for (int n = 0; n < 500; ++n) {
        ASSERT_EQ(sendNumber(n % 2 ? other : transport, "a.b", n), QUORL_OK);
        sent.push_back(n);
    }
    settleOn(transport);
    drain(QUORL_DEFAULT_QUEUE);
    for (const Numbers& each : numbers) EXPECT_EQ(each.came, sent);
}

TEST_F(Daemon, orderHoldsAcrossSubjectsOfOneSender) {
    const quorlTransport transport = transportTo(server.url());
    const quorlTransport receiver = transportTo(server.address());
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, receiver, "o.>", onNumber, &numbers);
    settleOn(receiver);
    for (int n = 0; n < 3000; ++n)
        ASSERT_EQ(sendNumber(transport, ("o." + std::to_string(n % 7)).c_str(), n), QUORL_OK);
    while (numbers.came.size() < 3000 && quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit) == QUORL_OK) {
    }
    ASSERT_EQ(numbers.came.size(), 3000u);
    EXPECT_TRUE(std::is_sorted(numbers.came.begin(), numbers.came.end()));
}

TEST_F(Daemon, subjectsWithAnyBytesFindTheirWay) {
    const quorlTransport transport = transportTo(server.url(), "serv.ice*>%", "default");
    Numbers numbers;
    for (const char* subject : {"a b.c\td", "x\r\ny.%20", "temp\xc3\xa9rature", "$SYS.x", "\x01"}) {
        numbers.came.clear();
        const quorlEvent listener = listen(QUORL_DEFAULT_QUEUE, transport, subject, onNumber, &numbers);
        EXPECT_EQ(sendNumber(transport, subject, 1), QUORL_OK);
        EXPECT_EQ(sendNumber(transport, "something.else", 2), QUORL_OK);
        settleOn(transport);
        drain(QUORL_DEFAULT_QUEUE);
        EXPECT_EQ(numbers.came, std::vector{1}) << subject;
        EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    }
}

TEST_F(Daemon, listenersComeAndGoWhileMessagesStream) {
    const quorlTransport transport = transportTo(server.url());
    std::atomic<bool> over{false};
    Threads threads;
    threads.start([&] {
        for (int n = 0; !over; ++n) EXPECT_EQ(sendNumber(transport, "churn.a", n), QUORL_OK);
    });
    threads.start([&] {
        while (!over) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.01);
    });
    for (int i = 0; i < 300; ++i) {
        quorlEvent listeners[4];
        for (auto& listener : listeners)
            listener = listen(
                QUORL_DEFAULT_QUEUE, transport, i % 2 ? "churn.*" : "churn.a", [](quorlEvent, quorlMsg, void*) {},
                nullptr);
        for (const quorlEvent listener : listeners) EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    }
    over = true;
    threads.join();
}

// Sends a message with size bytes to itself, and compares.
void largeMessageComesBack(quorlTransport transport, size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 2654435761u >> 13);
    struct Back {
        std::string bytes;
    } back;
    const quorlQueue queue = newQueue();
    const quorlEvent listener = listen(
        queue, transport, "large.message",
        [](quorlEvent, quorlMsg message, void* closure) {
            const void* data = nullptr;
            quorl_u32 count = 0;
            EXPECT_EQ(quorlMsg_GetOpaqueEx(message, "bytes", &data, &count, 0), QUORL_OK);
            static_cast<Back*>(closure)->bytes.assign(static_cast<const char*>(data), count);
        },
        &back);
    quorlMsg message = newMessage("large.message", 5);
    ASSERT_EQ(quorlMsg_SetReplySubject(message, "where.to"), QUORL_OK);
    ASSERT_EQ(quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(size), 0), QUORL_OK);
    ASSERT_EQ(quorlTransport_Send(transport, message), QUORL_OK) << quorl_LastErrorText();
    ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK) << size;
    EXPECT_TRUE(back.bytes == bytes) << size;
    quorlMsg_Destroy(message);
    quorlEvent_DestroyEx(listener, nullptr);
    quorlQueue_DestroyEx(queue, nullptr, nullptr);
}

TEST_F(Daemon, messagesLargerThanItTakesAreCutAndPutTogether) {
    const quorlTransport transport = transportTo(server.url());
    for (const size_t size : {size_t{40000}, size_t{50000}, size_t{262000}, size_t{262144}, size_t{1} << 20,
                              size_t{5000000}, size_t{30} << 20})
        largeMessageComesBack(transport, size);
}

TEST(SmallDaemon, takesWhatIsLargerThanItsLargestPayload) {
    NatsServer server("max_payload: 1000");
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport transport = transportTo(server.url());
    for (const size_t size : {1u, 900u, 1000u, 3000u, 60000u, 1000000u}) largeMessageComesBack(transport, size);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "small", onNumber, &numbers);
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(sendNumber(transport, "small", i), QUORL_OK);
    settleOn(transport);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 2000);
    EXPECT_TRUE(std::is_sorted(numbers.came.begin(), numbers.came.end()));
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

TEST_F(Daemon, batchesGoOutWhenTheyAreFullOrShortlyAfter) {
    const quorlTransport transport = transportTo(server.url());
    ASSERT_EQ(quorlTransport_SetBatchMode(transport, QUORLTRANSPORT_TIMER_BATCH), QUORL_OK);
    ASSERT_EQ(quorlTransport_SetBatchSize(transport, 4000), QUORL_OK);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "batch", onNumber, &numbers);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(sendNumber(transport, "batch", i), QUORL_OK);
    ASSERT_EQ(sendNumber(transport, "batch", 1000), QUORL_OK);
    while (numbers.came.size() < 1001 && quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit) == QUORL_OK) {
    }
    ASSERT_EQ(numbers.came.size(), 1001u);
    EXPECT_TRUE(std::is_sorted(numbers.came.begin(), numbers.came.end()));
}

TEST_F(Daemon, manyThreadsSendAndCloseAtOnce) {
    for (int round = 0; round < 10; ++round) {
        const quorlTransport transport = transportTo(server.url());
        const quorlEvent listener = listen(
            QUORL_DEFAULT_QUEUE, transport, "t.*", [](quorlEvent, quorlMsg, void*) {}, nullptr);
        Threads threads;
        for (int t = 0; t < 3; ++t) {
            threads.start([=] {
                quorlMsg message = newMessage(("t." + std::to_string(t)).c_str(), t);
                quorl_status status;
                while ((status = quorlTransport_Send(transport, message)) == QUORL_OK) {
                }
                EXPECT_EQ(status, QUORL_INVALID_TRANSPORT) << quorl_LastErrorText();
                quorlMsg_Destroy(message);
            });
        }
        for (int i = 0; i < 2000; ++i) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.05);
        EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
        threads.join();
        EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    }
}

TEST_F(Daemon, addressesThatAreNoneAreRefusedWithTheReason) {
    quorlTransport transport = 77;
    for (const char* address : {"nats://", "a b", "http://x", "x:0", "x:99999", "u:p@x", ","}) {
        EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, address), QUORL_DAEMON_NOT_FOUND) << address;
        EXPECT_NE(std::string(quorl_LastErrorText()).find("is not a valid daemon address"), std::string::npos)
            << address;
    }
    EXPECT_EQ(quorlTransport_Create(&transport, "a b", nullptr, server.url().c_str()), QUORL_SERVICE_NOT_FOUND);
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, "a b", server.url().c_str()), QUORL_NETWORK_NOT_FOUND);
    const std::string gone = "nats://127.0.0.1:1";
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, gone.c_str()), QUORL_DAEMON_NOT_FOUND);
    EXPECT_EQ(std::string(quorl_LastErrorText()).rfind("connect nats://127.0.0.1:1: connection refused", 0), 0u)
        << quorl_LastErrorText();
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, (std::string(64, 'h') + ".invalid").c_str()),
              QUORL_DAEMON_NOT_FOUND);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("the host is not known"), std::string::npos);
    EXPECT_EQ(transport, 77u);
    // The second server of a list does when the first does not.
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, ("127.0.0.1:1," + server.address()).c_str()),
              QUORL_OK);
}

TEST(DaemonsTools, showTheProgramByItsDescription) {
    NatsServer server("trace: true");
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport transport = transportTo(server.url());
    EXPECT_NE(server.log().find("\"name\":\"system "), std::string::npos) << server.log();
    ASSERT_EQ(quorlTransport_SetDescription(transport, "pump control 7"), QUORL_OK);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (server.log().find("\"name\":\"pump control 7\"") == std::string::npos &&
           std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_NE(server.log().find("\"name\":\"pump control 7\""), std::string::npos) << server.log();
    settleOn(transport);
    // Used by now: the name waits for the next session.
    ASSERT_EQ(quorlTransport_SetDescription(transport, "another"), QUORL_OK);
    settleOn(transport);
    EXPECT_EQ(server.log().find("\"name\":\"another\""), std::string::npos);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

// The description travels inside a line of the daemon's protocol, and must not get out of it.
TEST(DaemonsTools, areToldEveryDescriptionAsItIs) {
    NatsServer server("trace: true");
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport listening = transportTo(server.address());
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, listening, ">", onNumber, &numbers);
    settleOn(listening);
    const quorlTransport transport = transportTo(server.url());
    ASSERT_EQ(
        quorlTransport_SetDescription(
            transport, "a \"b\" \\c\",\"echo\":false}\r\nPUB quorl.default.default.x 0\r\n\r\n\x7f gr\xc3\xbc\xc3\x9f"),
        QUORL_OK);
    const std::string told =
        "\"name\":\"a \\\"b\\\" \\\\c\\\",\\\"echo\\\":false}\\u000d\\u000aPUB quorl.default.default.x 0"
        "\\u000d\\u000a\\u000d\\u000a\\u007f";
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (server.log().find(told) == std::string::npos && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_NE(server.log().find(told), std::string::npos) << server.log();
    settleOn(transport);
    settleOn(listening);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_TRUE(numbers.came.empty());
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

TEST_F(Daemon, tenThousandSubscriptionsAreCheap) {
    const auto residentBytes = [] {
        std::ifstream file("/proc/self/statm");
        long total = 0;
        long resident = 0;
        file >> total >> resident;
        return resident * 4096;
    };
    const quorlTransport transport = transportTo(server.url());
    settleOn(transport);
    const long before = residentBytes();
    Numbers numbers;
    constexpr int subscriptions = 10000;
    for (int i = 0; i < subscriptions; ++i)
        listen(QUORL_DEFAULT_QUEUE, transport, ("ten.thousand." + std::to_string(i)).c_str(), onNumber, &numbers);
    settleOn(transport);
    const long cost = residentBytes() - before;
    RecordProperty("bytes", std::to_string(cost));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(cost, 20l << 20);
#endif
    EXPECT_EQ(sendNumber(transport, "ten.thousand.7777", 1), QUORL_OK);
    settleOn(transport);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 1);
}

}  // namespace
}  // namespace quorltest
