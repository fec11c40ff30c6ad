// Daemons that do not keep to their protocol, and other clients of a daemon that send what no transport of ours does.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <random>

#include "impostor.h"

namespace quorltest {
namespace {

long residentBytes() {
    std::ifstream file("/proc/self/statm");
    long total = 0;
    long resident = 0;
    file >> total >> resident;
    return resident * 4096;
}

TEST_F(Hostile, aDaemonThatSaysNothing) {
    refuses(Impostor([](int) {}));
}

TEST_F(Hostile, aDaemonThatHangsUp) {
    refuses(Impostor([](int client) { shutdown(client, SHUT_RDWR); }));
}

TEST_F(Hostile, aDaemonThatSpeaksHalfTheProtocol) {
    for (const char* text : {"INFO", "INFO {\"server_id\":\"x\"", "INFO {}\r\n", "INFO nonsense\r\n",
                             "HTTP/1.1 200 OK\r\n\r\n", "-ERR 'no'\r\n", "PING\r\nPONG\r\n"})
        refuses(Impostor([text](int client) { sendAll(client, text); }));
}

TEST_F(Hostile, aDaemonThatSendsRandomBytes) {
    std::mt19937 random(4711);
    for (int round = 0; round < 8; ++round) {
        std::string noise(1 << 16, '\0');
        for (char& byte : noise) byte = static_cast<char>(random());
        refuses(Impostor([&](int client) { sendAll(client, noise); }));
        refuses(Impostor([&](int client) { sendAll(client, greeting + std::string("PONG\r\n") + noise); }));
        refuses(Impostor([&](int client) {
            greet(client);
            sendAll(client, noise);
        }));
    }
}

TEST_F(Hostile, aDaemonThatTakesNoMessageWorthTheName) {
    refuses(Impostor([](int client) {
        sendAll(client, "INFO {\"server_id\":\"x\",\"version\":\"2.9.10\",\"proto\":1,\"max_payload\":1}\r\nPONG\r\n");
    }));
}

TEST_F(Hostile, aMessageWithoutEndIsNotCollected) {
    const long before = residentBytes();
    Impostor impostor([](int client) {
        greet(client);
        sendAll(client, "MSG a 1 2000000000\r\n");
        const std::string block(1 << 20, 'x');
        for (int i = 0; i < 64; ++i) sendAll(client, block);
    });
    refuses(impostor);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(residentBytes() - before, 32l << 20);
#else
    EXPECT_GT(before, 0);
#endif
}

// A client of the daemon that speaks its protocol, but not ours.
class Stranger {
  public:
    explicit Stranger(const NatsServer& server) : socket_(connectTo(server.port())) {
        sendAll(socket_, "CONNECT {\"verbose\":false,\"pedantic\":false}\r\n");
    }
    ~Stranger() { close(socket_); }
    void publish(const std::string& subject, const std::string& payload) {
        sendAll(socket_, "PUB " + subject + " " + std::to_string(payload.size()) + "\r\n" + payload + "\r\n");
    }
    // Returns when the daemon has taken all that was published.
    void flush() {
        sendAll(socket_, "PING\r\n");
        std::string heard;
        char bytes[4096];
        while (heard.find("PONG") == std::string::npos) {
            const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
            ASSERT_GT(count, 0);
            heard.append(bytes, static_cast<size_t>(count));
        }
    }

  private:
    const int socket_;
};

std::string imageOf(int number) {
    quorlMsg message = newMessage("x", number);
    const void* bytes = nullptr;
    quorl_u32 size = 0;
    EXPECT_EQ(quorlMsg_GetByteSize(message, &size), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetAsBytes(message, &bytes), QUORL_OK);
    std::string image(static_cast<const char*>(bytes), size);
    quorlMsg_Destroy(message);
    return image;
}

TEST_F(Hostile, whatStrangersPublishIsCheckedBeforeItIsBelieved) {
    NatsServer server;
    const quorlTransport transport = transportTo(server.url());
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, ">", onNumber, &numbers);
    settleOn(transport);
    Stranger stranger(server);
    const std::string bus = "quorl.default.default.";
    const std::string image = imageOf(7);
    const std::string entries = std::string("QN\x01\x01", 4) + std::string(12, '\0');
    const std::string none(1, '\0');
    // What is right, in both forms.
    stranger.publish(bus + "good", image);
    stranger.publish(bus + "good", entries + none + image + none + image);
    // And what is not.
    std::vector<std::string> wrong = {"",
                                      "Q",
                                      "QN",
                                      entries,
                                      entries.substr(0, 3),
                                      "QN\x01\x07 what",
                                      std::string("QN\x02\x01", 4),
                                      entries + none,
                                      entries + none + "QM",
                                      entries + std::string(1, '\xff') + image,
                                      entries + std::string("\x05"
                                                            "a",
                                                            2),
                                      entries + std::string("\x03") + "a b" + "x" + image,
                                      std::string("QN\x01\x03", 4) + std::string(8, '\0'),
                                      "hello"};
    for (size_t size = 0; size < image.size(); ++size) {
        wrong.push_back(image.substr(0, size));
        wrong.push_back(entries + none + image.substr(0, size));
    }
    std::mt19937 random(99);
    for (int i = 0; i < 3000; ++i) {
        std::string damaged = i % 2 ? image : entries + none + image;
        // The size in its header, the number of its fields, any byte.
        damaged[random() % damaged.size()] = static_cast<char>(random());
        damaged[(i % 2 ? 4 : 17 + 4) + random() % 8] = static_cast<char>(random());
        wrong.push_back(damaged);
    }
    for (const std::string& payload : wrong) stranger.publish(bus + "bad", payload);
    // Parts that lead nowhere, many of them, and each of a giant.
    const auto part = [&](uint64_t number, uint32_t total, uint32_t offset, const std::string& data) {
        std::string bytes("QN\x01\x02", 4);
        bytes.append(4, '\0');
        bytes.append(8, 's');
        bytes.append(reinterpret_cast<const char*>(&number), 8);
        bytes.append(reinterpret_cast<const char*>(&total), 4);
        bytes.append(reinterpret_cast<const char*>(&offset), 4);
        return bytes + data;
    };
    for (uint64_t i = 0; i < 2000; ++i) {
        stranger.publish(bus + "bad", part(i, 200u << 20, 0, std::string(1000, 'x')));
        stranger.publish(bus + "bad", part(i, UINT32_MAX, static_cast<uint32_t>(random()), "xy"));
        stranger.publish(bus + "bad", part(i, 5, 3, "xyz"));
    }
    // Right ones still come through, cut in two.
    const std::string entry = none + image;
    stranger.publish(bus + "good", part(5000, static_cast<uint32_t>(entry.size()), 0, entry.substr(0, 5)));
    stranger.publish(bus + "good", part(5000, static_cast<uint32_t>(entry.size()), 5, entry.substr(5)));
    // Subjects that no transport of ours sends to.
    stranger.publish(bus + "%", image);
    stranger.publish(bus + "%2", image);
    stranger.publish(bus + "%00", image);
    stranger.publish(bus + "%C3%28", image);
    stranger.publish(bus + "_INBOX.abc.1", image);
    stranger.publish(bus + "_QUORL.x", image);
    stranger.publish(bus + "_other.x", image);
    stranger.publish(bus + std::string(300, 'x'), image);
    stranger.flush();
    settleOn(transport);
    const std::vector<int> came = [&] {
        while (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0) == QUORL_OK) {
        }
        return numbers.came;
    }();
    // A damaged one may be a message all the same, with another number; the four right ones are there.
    EXPECT_GE(std::count(came.begin(), came.end(), 7), 4);
    EXPECT_EQ(sendNumber(transport, "still.there", 8), QUORL_OK);
    settleOn(transport);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(numbers.came.back(), 8);
}

TEST_F(Hostile, whatIsNoMessageIsTold) {
    NatsServer server;
    const quorlTransport transport = transportTo(server.url(), "svc", "net");
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "orders.>", onNumber, &numbers);
    settleOn(transport);
    Stranger stranger(server);
    constexpr int times = 500;
    for (int i = 0; i < times; ++i) stranger.publish("quorl.net.svc.orders.new", i == 0 ? "hello" : "");
    stranger.flush();
    // The first at once, what came in the meantime a second later.
    int told = 0;
    while (advisories.sumOf("_QUORL.WARN.daemon.malformed", "count") < times)
        ASSERT_TRUE(advisories.waitForOthers(++told));
    EXPECT_EQ(advisories.sumOf("_QUORL.WARN.daemon.malformed", "count"), static_cast<quorl_u64>(times));
    const auto first = advisories.seen().front();
    EXPECT_EQ(first.texts.at("daemon"), server.url());
    EXPECT_EQ(first.texts.at("service"), "svc");
    EXPECT_EQ(first.texts.at("network"), "net");
    EXPECT_EQ(first.texts.at("subject"), "orders.new");
    EXPECT_EQ(first.texts.at("reason"), "it does not begin as a message does");
    EXPECT_EQ(sendNumber(transport, "orders.new", 8), QUORL_OK);
    settleOn(transport);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(numbers.came, std::vector{8});
}

TEST_F(Hostile, aMessageThatIsTooLargeIsRefusedWhereItIsSent) {
    NatsServer server;
    const quorlTransport transport = transportTo(server.url());
    quorlMsg message = newMessage("too.large");
    const std::string quarter(90u << 20, 'x');
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(quorlMsg_AddOpaqueEx(message, nullptr, quarter.data(), static_cast<quorl_u32>(quarter.size()), 0),
                  QUORL_OK);
    EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_INVALID_SIZE);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("is larger than a daemon's transport carries"),
              std::string::npos);
    quorlMsg_Destroy(message);
}

// The daemon stops in the middle of everything, and is there again.
TEST_F(Hostile, aDaemonThatStopsForAWhileLosesNothing) {
    NatsServer server;
    const quorlTransport transport = transportTo(server.url());
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "pause", onNumber, &numbers);
    settleOn(transport);
    server.signal(SIGSTOP);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(sendNumber(transport, "pause", i), QUORL_OK);
    quorlMsg request = newMessage("nobody");
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, 0.05), QUORL_TIMEOUT);
    quorlMsg_Destroy(request);
    server.signal(SIGCONT);
    settleOn(transport);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 1000);
}

}  // namespace
}  // namespace quorltest
