// Transports as others see them: what the daemon's monitoring counts and names, and every byte that a bare client of the daemon
// gets, as docs/reference/daemon-wire.md has it.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "support.h"

namespace quorltest {
namespace {

class Socket {
  public:
    explicit Socket(int port) : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(descriptor_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        const timeval patience{static_cast<time_t>(limit), 0};
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    ~Socket() { close(descriptor_); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    void send(const std::string& bytes) {
        EXPECT_EQ(::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }
    // False: the other side has ended it, or is silent.
    bool more() {
        char bytes[65536];
        const ssize_t count = recv(descriptor_, bytes, sizeof bytes, 0);
        if (count > 0) heard_.append(bytes, static_cast<size_t>(count));
        return count > 0;
    }
    std::string line() {
        size_t end;
        while ((end = heard_.find("\r\n")) == std::string::npos) {
            if (!more()) return {};
        }
        return take(end + 2).substr(0, end);
    }
    std::string take(size_t size) {
        while (heard_.size() < size && more()) {
        }
        const std::string taken = heard_.substr(0, size);
        heard_.erase(0, size);
        return taken;
    }
    const std::string& heard() const { return heard_; }

  private:
    const int descriptor_;
    std::string heard_;
};

// ---- monitoring

class MonitoredServer : public NatsServer {
  public:
    MonitoredServer() : NatsServer("http: \"127.0.0.1:-1\"") {
        const std::string text = log();
        const std::string words = "Starting http monitor on 127.0.0.1:";
        const size_t at = text.find(words);
        EXPECT_NE(at, std::string::npos) << text;
        monitor_ = std::atoi(text.c_str() + at + words.size());
    }
    std::string connections() const {
        Socket http(monitor_);
        http.send("GET /connz?subs=1 HTTP/1.0\r\n\r\n");
        while (http.more()) {
        }
        return http.heard();
    }
    int numberOfConnections() const {
        const std::string text = connections();
        const size_t at = text.find("\"num_connections\": ");
        return at == std::string::npos ? -1 : std::atoi(text.c_str() + at + 19);
    }
    // Every subject that is subscribed to on any connection, sorted, without marks.
    std::vector<std::string> subscriptions() const {
        const std::string text = connections();
        std::vector<std::string> found;
        const std::string start = "\"quorl.";
        for (size_t at = 0; (at = text.find(start, at)) != std::string::npos;) {
            const size_t end = text.find('"', at + 1);
            const std::string one = text.substr(at + 1, end - at - 1);
            if (one.find("._PROBE.") == std::string::npos) found.push_back(one);
            at = end;
        }
        std::sort(found.begin(), found.end());
        return found;
    }

  private:
    int monitor_ = 0;
};

// The daemon's view follows the program's in its own time.
template <class F>
testing::AssertionResult becomes(F&& holds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) return testing::AssertionFailure() << "not within the limit";
        std::this_thread::yield();
    }
    return testing::AssertionSuccess();
}

class Observed : public Open {
  protected:
    MonitoredServer server;
};

// A connection that has just been made looks at the daemon's greeting once more, on one that goes at once.
TEST_F(Observed, transportsOfOneBusAreOneConnection) {
    const quorlTransport first = transportTo(server.url());
    const quorlTransport second = transportTo(server.url());
    EXPECT_TRUE(becomes([&] { return server.numberOfConnections() == 1; })) << server.connections();
    const quorlTransport service = transportTo(server.url(), "7500");
    EXPECT_TRUE(becomes([&] { return server.numberOfConnections() == 2; })) << server.connections();
    const quorlTransport network = transportTo(server.url(), "7500", "lab");
    EXPECT_TRUE(becomes([&] { return server.numberOfConnections() == 3; })) << server.connections();
    // Circuits ride on the connection of the transport below.
    quorlTransport circuit = 0;
    const char* subject = nullptr;
    ASSERT_EQ(quorlTransport_CreateAcceptVc(&circuit, &subject, first), QUORL_OK);
    EXPECT_TRUE(becomes([&] { return server.numberOfConnections() == 3; })) << server.connections();
    EXPECT_EQ(quorlTransport_Destroy(first), QUORL_OK);
    EXPECT_TRUE(becomes([&] { return server.numberOfConnections() == 3; })) << server.connections();
    for (const quorlTransport each : {second, service, network}) EXPECT_EQ(quorlTransport_Destroy(each), QUORL_OK);
    EXPECT_TRUE(becomes([&] { return server.numberOfConnections() == 0; }));
}

TEST_F(Observed, descriptionsAreTheNamesOfConnections) {
    const quorlTransport transport = transportTo(server.url());
    EXPECT_NE(server.connections().find("\"name\": \"system " + std::to_string(getpid()) + "\""), std::string::npos)
        << server.connections();
    ASSERT_EQ(quorlTransport_SetDescription(transport, "pump \"7\""), QUORL_OK);
    EXPECT_TRUE(
        becomes([&] { return server.connections().find("\"name\": \"pump \\\"7\\\"\"") != std::string::npos; }));
    EXPECT_TRUE(becomes([&] { return server.numberOfConnections() == 1; })) << server.connections();
}

TEST_F(Observed, eachDistinctSubjectIsOneSubscription) {
    const std::string bus = "quorl.default.default.";
    const quorlTransport first = transportTo(server.url());
    const quorlTransport second = transportTo(server.url());
    std::vector<quorlEvent> events;
    for (int i = 0; i < 3; ++i) {
        for (const quorlTransport transport : {first, second}) {
            for (const char* subject : {"a.b", "a.*", "a.>"})
                events.push_back(listen(QUORL_DEFAULT_QUEUE, transport, subject, onNumber, nullptr));
        }
    }
    // The daemon's JSON has this for a > sign.
    const std::vector<std::string> all{bus + "a.*", bus + "a.\\u003e", bus + "a.b"};
    EXPECT_TRUE(becomes([&] { return server.subscriptions() == all; }));
    // All but one listener of each subject go, then the last one of the first subject.
    for (size_t i = 3; i < events.size(); ++i) EXPECT_EQ(quorlEvent_DestroyEx(events[i], nullptr), QUORL_OK);
    listen(QUORL_DEFAULT_QUEUE, first, "z", onNumber, nullptr);
    EXPECT_TRUE(becomes([&] {
        return server.subscriptions() == std::vector<std::string>{all[0], all[1], all[2], bus + "z"};
    }));
    EXPECT_EQ(quorlEvent_DestroyEx(events[0], nullptr), QUORL_OK);
    EXPECT_TRUE(becomes([&] { return server.subscriptions() == std::vector<std::string>{all[0], all[1], bus + "z"}; }));
    // The inboxes of a transport are one subscription, however many requests there are; advisories are none.
    for (const char* advisories : {"_QUORL.>", "_QUORL.*", "_QUORL.*.daemon.>", "_QUORL.WARN.>"})
        listen(QUORL_DEFAULT_QUEUE, second, advisories, onNumber, nullptr);
    for (int i = 0; i < 20; ++i) settleOn(second);
    const std::vector<std::string> now = server.subscriptions();
    EXPECT_EQ(std::count_if(now.begin(), now.end(), [](const auto& one) { return one.find("._INBOX.") != one.npos; }),
              1);
    EXPECT_EQ(std::count_if(now.begin(), now.end(), [](const auto& one) { return one.find("._QUORL.") != one.npos; }),
              0);
}

TEST_F(Observed, subjectsAreEscapedAsTheyMustBe) {
    const quorlTransport transport = transportTo(server.url(), "7.5*00", "default");
    const quorlTransport other = transportTo(server.url(), "default", "%>");
    for (const char* subject : {"a b.c%d", "gr\xc3\xbc\xc3\x9f.*", "tab\t.>", "quote\"d"})
        listen(QUORL_DEFAULT_QUEUE, transport, subject, onNumber, nullptr);
    listen(QUORL_DEFAULT_QUEUE, other, "x", onNumber, nullptr);
    const std::string bus = "quorl.%64efault.7%2E5%2A00.";
    std::vector<std::string> expected{bus + "a%20b.c%25d", bus + "gr\xc3\xbc\xc3\x9f.*", bus + "quote\\",
                                      "quorl.%25%3E.%64efault.x"};
    // A quotation mark ends what is found of it there.
    expected.push_back(bus + "tab%09.\\u003e");
    std::sort(expected.begin(), expected.end());
    EXPECT_TRUE(becomes([&] { return server.subscriptions() == expected; }));
    // What is no wildcard of its own is no subject, so that nothing of the kind ever has to be escaped.
    quorlEvent event = 0;
    for (const char* subject : {"a*.b", "a.b*c", "a.>b", ">.a", "a.**"})
        EXPECT_EQ(quorlEvent_CreateListener(&event, QUORL_DEFAULT_QUEUE, onNumber, transport, subject, nullptr),
                  QUORL_INVALID_SUBJECT)
            << subject;
}

// ---- bytes

struct Published {
    std::string subject;
    std::string payload;
};

// A client that speaks the daemon's protocol and hears everything.
class Tap {
  public:
    explicit Tap(const NatsServer& server) : socket_(server.port()) {
        socket_.line();
        socket_.send("CONNECT {\"verbose\":false,\"pedantic\":false}\r\nSUB > 1\r\nPING\r\n");
        EXPECT_EQ(socket_.line(), "PONG");
    }
    // The next message that is no probe and goes to no inbox.
    Published next() {
        for (;;) {
            Published message = any();
            if (message.subject.empty() || (message.subject.find("._PROBE.") == std::string::npos &&
                                            message.subject.find("._INBOX.") == std::string::npos))
                return message;
        }
    }
    Published any() {
        std::istringstream head(socket_.line());
        std::string kind, id;
        size_t size = 0;
        Published message;
        head >> kind >> message.subject >> id >> size;
        EXPECT_EQ(kind, "MSG");
        if (kind != "MSG") return {};
        message.payload = socket_.take(size);
        EXPECT_EQ(socket_.take(2), "\r\n");
        return message;
    }

  private:
    Socket socket_;
};

template <class T>
std::string littleEndian(T number) {
    std::string bytes;
    for (size_t i = 0; i < sizeof number; ++i) bytes += static_cast<char>(static_cast<uint64_t>(number) >> (8 * i));
    return bytes;
}

std::string imageOf(quorlMsg message) {
    const void* bytes = nullptr;
    quorl_u32 size = 0;
    EXPECT_EQ(quorlMsg_GetByteSize(message, &size), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetAsBytes(message, &bytes), QUORL_OK);
    return {static_cast<const char*>(bytes), size};
}

quorlMsg messageOf(const char* subject, size_t size) {
    quorlMsg message = newMessage(subject, 7);
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 2654435761u >> 13);
    EXPECT_EQ(quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(size), 0), QUORL_OK);
    return message;
}

class Wire : public Open {
  protected:
    NatsServer server;
    Tap tap{server};

    // Sends and returns the image that was sent.
    static std::string sendOne(quorlTransport transport, quorlMsg message) {
        EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_OK) << quorl_LastErrorText();
        const std::string image = imageOf(message);
        EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        return image;
    }
};

const std::string entries("QN\x01\x01", 4);

std::string withoutOrigin(const std::string& payload) {
    EXPECT_GE(payload.size(), 16u);
    return payload.substr(0, 4) + payload.substr(16);
}

TEST_F(Wire, oneMessageIsAnEntry) {
    const quorlTransport transport = transportTo(server.url());
    const std::string image = sendOne(transport, newMessage("a.b", 1));
    Published message = tap.next();
    EXPECT_EQ(message.subject, "quorl.default.default.a.b");
    EXPECT_EQ(withoutOrigin(message.payload), entries + '\0' + image);
    quorlMsg request = newMessage("a.b", 2);
    ASSERT_EQ(quorlMsg_SetReplySubject(request, "where to"), QUORL_OK);
    const std::string asked = sendOne(transport, request);
    message = tap.next();
    EXPECT_EQ(withoutOrigin(message.payload), entries + '\x08' + "where to" + asked)
        << "the reply subject is not escaped";
}

TEST_F(Wire, subjectsHaveNetworkAndServiceInFront) {
    const quorlTransport transport = transportTo(server.url(), "7.5*00", "default");
    sendOne(transport, newMessage("a b.c\td%.gr\xc3\xbc\xc3\x9f.\x7f"));
    EXPECT_EQ(tap.next().subject, "quorl.%64efault.7%2E5%2A00.a%20b.c%09d%25.gr\xc3\xbc\xc3\x9f.%7F");
}

TEST_F(Wire, gatheredMessagesStandOneBehindTheOther) {
    const quorlTransport transport = transportTo(server.url());
    ASSERT_EQ(quorlTransport_SetBatchMode(transport, QUORLTRANSPORT_TIMER_BATCH), QUORL_OK);
    // Two that are sent one right after the other go together, unless this thread is held up in between every single time.
    bool gathered = false;
    for (int round = 0; !gathered && round < 1000; ++round) {
        std::string expected = sendOne(transport, newMessage("batch", 2 * round));
        expected = '\0' + expected;
        expected += '\0' + sendOne(transport, newMessage("batch", 2 * round + 1));
        std::string came;
        for (int messages = 0; came.size() < expected.size(); ++messages) {
            const Published message = tap.next();
            ASSERT_EQ(message.subject, "quorl.default.default.batch");
            ASSERT_EQ(message.payload.substr(0, 4), entries);
            came += message.payload.substr(16);
            gathered = messages == 0 && came.size() == expected.size();
        }
        ASSERT_EQ(came, expected);
    }
    EXPECT_TRUE(gathered);
}

TEST_F(Wire, largeMessagesGoByThemselves) {
    const quorlTransport transport = transportTo(server.url());
    const std::string image = sendOne(transport, messageOf("large", 100000));
    EXPECT_EQ(image.substr(0, 2), "QM");
    EXPECT_TRUE(withoutOrigin(tap.next().payload) == entries + std::string(1, '\0') + image);
    quorlMsg request = messageOf("large", 100000);
    ASSERT_EQ(quorlMsg_SetReplySubject(request, "r"), QUORL_OK);
    const std::string asked = sendOne(transport, request);
    EXPECT_TRUE(withoutOrigin(tap.next().payload) == entries + '\x01' + "r" + asked);
}

// Parts of one entry, up to the whole. most: bytes of one payload.
void expectParts(Tap& tap, const std::string& entry, size_t most, std::string* sender, uint64_t* number) {
    std::string whole;
    while (whole.size() < entry.size()) {
        const Published message = tap.next();
        ASSERT_LE(message.payload.size(), most);
        ASSERT_GT(message.payload.size(), 32u);
        EXPECT_EQ(message.payload.substr(0, 4), std::string("QN\x01\x02", 4));
        EXPECT_EQ(message.payload.substr(4, 4), std::string("\x01\0\0\0", 4));
        if (sender->empty()) *sender = message.payload.substr(8, 8);
        EXPECT_EQ(message.payload.substr(8, 8), *sender);
        if (whole.empty()) {
            uint64_t now = 0;
            std::memcpy(&now, message.payload.data() + 16, sizeof now);
            EXPECT_NE(now, *number);
            *number = now;
        }
        EXPECT_EQ(message.payload.substr(16, 8), littleEndian(*number));
        EXPECT_EQ(message.payload.substr(24, 4), littleEndian(static_cast<uint32_t>(entry.size())));
        EXPECT_EQ(message.payload.substr(28, 4), littleEndian(static_cast<uint32_t>(whole.size())));
        whole += message.payload.substr(32);
    }
    EXPECT_TRUE(whole == entry);
}

TEST_F(Wire, largerOnesComeInParts) {
    const quorlTransport transport = transportTo(server.url());
    std::string sender;
    uint64_t number = 0;
    for (const size_t size : {size_t{300000}, size_t{2} << 20}) {
        const std::string image = sendOne(transport, messageOf("parts", size));
        expectParts(tap, '\0' + image, 256 << 10, &sender, &number);
    }
    quorlMsg request = messageOf("parts", 262144);
    ASSERT_EQ(quorlMsg_SetReplySubject(request, "reply"), QUORL_OK);
    const std::string asked = sendOne(transport, request);
    expectParts(tap, "\x05reply" + asked, 256 << 10, &sender, &number);
}

TEST(WireOfASmallDaemon, partsFitItsPayload) {
    NatsServer server("max_payload: 2000");
    Tap tap(server);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    {
        const quorlTransport transport = transportTo(server.url());
        std::string sender;
        uint64_t number = 0;
        quorlMsg message = messageOf("parts", 5000);
        ASSERT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
        expectParts(tap, '\0' + imageOf(message), 2000, &sender, &number);
        quorlMsg_Destroy(message);
    }
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

TEST_F(Wire, probesCountFromOne) {
    const quorlTransport transport = transportTo(server.url());
    std::string subject;
    for (uint64_t expected = 1; expected <= 2; ++expected) {
        Published probe = tap.any();
        while (probe.subject.find("._PROBE.") == std::string::npos) probe = tap.any();
        if (subject.empty()) subject = probe.subject;
        EXPECT_EQ(probe.subject, subject);
        EXPECT_EQ(probe.payload, std::string("QN\x01\x03", 4) + littleEndian(expected));
        if (expected == 1) sendOne(transport, newMessage("a"));  // the next one follows what was sent
    }
    const std::string head = "quorl.default.default._PROBE.";
    EXPECT_EQ(subject.size(), head.size() + 32);
    EXPECT_EQ(subject.find_first_not_of("0123456789abcdef", head.size()), std::string::npos);
}

TEST_F(Wire, inboxesHaveTwentyFourDigitsAndANumber) {
    const quorlTransport transport = transportTo(server.url());
    char inbox[QUORL_SUBJECT_MAX + 1];
    ASSERT_EQ(quorlTransport_CreateInbox(transport, inbox, sizeof inbox), QUORL_OK);
    sendOne(transport, newMessage(inbox));
    Published message = tap.any();
    while (message.subject.find("._INBOX.") == std::string::npos) message = tap.any();
    EXPECT_EQ(message.subject, std::string("quorl.default.default.") + inbox);
    const std::string text = inbox;
    EXPECT_EQ(text.find_first_not_of("0123456789abcdef", 7), 31u);
    EXPECT_EQ(text.substr(31), ".1");
}

// ---- large and small from several senders

struct Mixed {
    std::map<int, int> next;
    int wrong = 0;
    int count = 0;
};
size_t mixedSize(int sender, int number) {
    const size_t sizes[] = {10, 3000, 70000, 20, 200000, 40000, 1500000, 1};
    return sizes[static_cast<size_t>(number + 3 * sender) % 8];
}
void onMixed(quorlEvent, quorlMsg message, void* closure) {
    auto& to = *static_cast<Mixed*>(closure);
    quorl_i32 sender = -1;
    const void* bytes = nullptr;
    quorl_u32 size = 0;
    EXPECT_EQ(quorlMsg_GetI32Ex(message, "sender", &sender, 0), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetOpaqueEx(message, "bytes", &bytes, &size, 0), QUORL_OK);
    const int number = numberOf(message);
    const std::string_view view(static_cast<const char*>(bytes), size);
    const auto filler = static_cast<char>(number * 7 + sender);
    if (number != to.next[sender]++ || size != mixedSize(sender, number) ||
        view.find_first_not_of(filler) != std::string_view::npos)
        ++to.wrong;
    ++to.count;
}

TEST(MixedSizes, ofSeveralSendersArriveWholeAndInOrder) {
    for (const char* most : {"max_payload: 64KB", "max_payload: 1MB"}) {
        NatsServer server(most);
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        const quorlTransport receiver = transportTo(server.url());
        Mixed mixed;
        listen(QUORL_DEFAULT_QUEUE, receiver, "mixed.>", onMixed, &mixed);
        settleOn(receiver);
        // Each way of writing the address is a connection of its own; two senders share the last one's, with one transport each.
        const std::string port = std::to_string(server.port());
        const std::vector<std::string> addresses{"127.0.0.1:" + port, "127.1:" + port,
                                                 "nats://127.0.0.1:" + port + ",127.0.0.1:" + port, server.url(),
                                                 server.url()};
        constexpr int messages = 64;
        Threads threads;
        for (int sender = 0; sender < static_cast<int>(addresses.size()); ++sender) {
            const quorlTransport transport = transportTo(addresses[static_cast<size_t>(sender)]);
            threads.start([transport, sender] {
                for (int number = 0; number < messages; ++number) {
                    quorlMsg message = newMessage(number % 2 ? "mixed.odd" : "mixed.even", number);
                    const std::string bytes(mixedSize(sender, number), static_cast<char>(number * 7 + sender));
                    EXPECT_EQ(quorlMsg_AddI32Ex(message, "sender", sender, 0), QUORL_OK);
                    EXPECT_EQ(
                        quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(bytes.size()), 0),
                        QUORL_OK);
                    EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_OK) << quorl_LastErrorText();
                    quorlMsg_Destroy(message);
                }
            });
        }
        const int all = messages * static_cast<int>(addresses.size());
        while (mixed.count < all) {
            if (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit) != QUORL_OK) break;
        }
        threads.join();
        EXPECT_EQ(mixed.count, all);
        EXPECT_EQ(mixed.wrong, 0);
        EXPECT_EQ(quorl_Close(), QUORL_OK);
    }
}

}  // namespace
}  // namespace quorltest
