// Daemons that do something wrong at a random point of the protocol: every call ends in its time, with a status, and the
// library closes.
#include <fstream>
#include <random>

#include "fake_daemon.h"

namespace quorltest {
namespace {

using Random = std::mt19937;
using Client = FakeDaemon::Client;

int below(Random& random, int bound) {
    return static_cast<int>(random() % static_cast<unsigned>(bound));
}

template <class T, size_t count>
const T& oneOf(Random& random, const T (&list)[count]) {
    return list[static_cast<size_t>(below(random, static_cast<int>(count)))];
}

std::string noise(Random& random, int most) {
    std::string bytes(static_cast<size_t>(below(random, most)), '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

std::string greetingWith(const std::string& more) {
    std::string text = greeting;
    return text.insert(text.find('}'), more);
}

std::string manyServers(Random& random) {
    std::string text = ",\"connect_urls\":[\"\"";
    const int count = below(random, 3000);
    for (int i = 0; i < count; ++i) text += ",\"127.0.0." + std::to_string(i % 256) + ":1\"";
    return text + (below(random, 2) != 0 ? "]" : "");
}

std::string message(Random& random) {
    static const char* const sizes[] = {"0",          "1",
                                        "5",          "1048577",
                                        "67108865",   "2000000000",
                                        "2147483646", "2147483647",
                                        "4294967296", "-1",
                                        "x",          "18446744073709551615",
                                        "1 1",        ""};
    static const char* const ids[] = {"1", "2", "3", "0", "-1", "9223372036854775807", "77", "x", ""};
    static const char* const subjects[] = {"a", "quorl.default.default.x",       ">", "*",
                                           ".", "quorl.default.default._INBOX.x"};
    static const char* const commands[] = {"MSG ", "HMSG ", "msg ", "MSG  "};
    return std::string(oneOf(random, commands)) + oneOf(random, subjects) + " " + oneOf(random, ids) + " " +
           oneOf(random, sizes) + "\r\n" + noise(random, 2000) + (below(random, 2) != 0 ? "\r\n" : "");
}

std::string wrong(Random& random) {
    static const char* const errors[] = {"-ERR\r\n",
                                         "-ERR ''\r\n",
                                         "-ERR 'Slow Consumer'\r\n",
                                         "-ERR 'Stale Connection'\r\n",
                                         "-ERR 'Authorization Violation'\r\n",
                                         "-ERR 'User Authentication Expired'\r\n",
                                         "-ERR 'Permissions Violation for Subscription to \"x\"'\r\n",
                                         "-ERR 'Maximum Payload Violation'\r\n",
                                         "-ERR 'no",
                                         "-ERR no quotes at all\r\n"};
    static const char* const limits[] = {"0", "1", "600", "-5", "1099511627776", "\"x\"", "null", "1e3"};
    switch (below(random, 10)) {
        case 0:
            return noise(random, 1 << 16);
        case 1:
            return message(random);
        case 2:
            return oneOf(random, errors);
        case 3:
            return greetingWith(manyServers(random));
        case 4: {
            std::string text = greeting;
            const size_t at = text.find("1048576");
            return text.replace(at, 7, oneOf(random, limits));
        }
        case 5:
            return greetingWith(",\"tls_required\":true");
        case 6: {
            std::string text;
            for (int i = below(random, 20000); i > 0; --i) text += below(random, 4) != 0 ? "PING\r\n" : "PONG\r\n";
            return text;
        }
        case 7:
            return "INFO " + noise(random, 4000) + "\r\n";
        case 8: {
            std::string text;
            for (int i = below(random, 1000); i > 0; --i) text += "MSG a " + std::to_string(i) + " 3\r\nabc\r\n";
            return text;
        }
        default:
            return "+OK\r\n" + message(random) + message(random);
    }
}

// False: the client is dropped.
bool misbehave(Client& client, Random& random) {
    static const char* const lines[] = {"INFO ", "MSG ", "-ERR '", "+OK", "PING", "MSG a 1 1000000\r\n", "x"};
    switch (below(random, 7)) {
        case 0:
            client.stall();
            return false;
        case 1: {  // byte for byte, so much that it would last
            const std::string text = wrong(random) + std::string(1 << 20, 'x');
            for (const char byte : text) {
                pollfd waited{client.socket(), POLLRDHUP, 0};
                if (poll(&waited, 1, 1) != 0 || !client.send(std::string_view(&byte, 1))) break;
            }
            return false;
        }
        case 2:
            return false;
        case 3: {
            const linger reset{1, 0};
            setsockopt(client.socket(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
            return false;
        }
        case 4: {  // a line without end
            std::string block(1 << 16, 'x');
            if (!client.send(oneOf(random, lines))) return false;
            while (client.send(block)) {
            }
            return false;
        }
        case 5:  // and then as if nothing had been
            return client.send(wrong(random));
        default:
            client.send(wrong(random));
            client.stall();
            return false;
    }
}

// A status that a call may end with, when its daemon is what it is.
bool isHonest(quorl_status status) {
    return status == QUORL_OK || status == QUORL_TIMEOUT || status == QUORL_DAEMON_NOT_CONNECTED ||
           status == QUORL_DAEMON_NOT_FOUND || status == QUORL_USERPASS_MISMATCH;
}

void use(const std::string& daemon, Random& random) {
    quorlTransport transport = 0;
    const quorl_status created = quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str());
    EXPECT_TRUE(isHonest(created)) << created << " " << quorl_LastErrorText();
    if (created != QUORL_OK) {
        EXPECT_NE(std::string(quorl_LastErrorText()), "");
        return;
    }
    const quorlQueue queue = newQueue();
    listen(
        queue, transport, "x", [](quorlEvent, quorlMsg, void*) {}, nullptr);
    const std::string bytes(static_cast<size_t>(below(random, 2) != 0 ? 100 : 300'000), 'x');
    for (int i = below(random, 20); i >= 0; --i) {
        quorlMsg message = newMessage("x", i);
        quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(bytes.size()), 0);
        EXPECT_TRUE(isHonest(quorlTransport_Send(transport, message)));
        quorlMsg_Destroy(message);
    }
    for (int i = below(random, 3); i >= 0; --i) {
        quorlMsg request = newMessage("nobody");
        quorlMsg reply = nullptr;
        const quorl_status status = quorlTransport_SendRequest(transport, request, &reply, 0.05);
        EXPECT_TRUE(isHonest(status)) << status;
        if (status == QUORL_OK) quorlMsg_Destroy(reply);
        quorlMsg_Destroy(request);
        while (quorlQueue_TimedDispatch(queue, 0) == QUORL_OK) {
        }
    }
    // Otherwise it is open when the library closes.
    if (below(random, 2) != 0) {
        const quorl_status status = quorlTransport_Destroy(transport);
        EXPECT_TRUE(status == QUORL_OK || status == QUORL_DAEMON_NOT_CONNECTED) << status;
    }
}

long residentMegabytes() {
    std::ifstream file("/proc/self/statm");
    long total = 0;
    long resident = 0;
    file >> total >> resident;
    return resident >> 8;
}

TEST(HostileRandom, nothingThatADaemonDoesHangsOrCrashes) {
    const auto first = static_cast<unsigned>(numberFrom("QUORL_SYSTEM_SEED", 1));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(numberFrom("QUORL_SYSTEM_HOSTILE", 2));
    const char* brief = "connect.timeout=0.3";
    const char* usual = "connect.timeout=2";
    ASSERT_EQ(quorl_SetQRParameters(1, &brief), QUORL_OK);
    const long before = residentMegabytes();
    std::chrono::duration<double> longest{0};
    unsigned seed = first;
    for (; seed == first || std::chrono::steady_clock::now() < end; ++seed) {
        SCOPED_TRACE("QUORL_SYSTEM_SEED=" + std::to_string(seed));
        const auto start = std::chrono::steady_clock::now();
        constexpr unsigned together = 4;
        std::mutex mutex;
        std::list<FakeDaemon> daemons;
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        Threads threads;
        for (unsigned i = 0; i < together; ++i) {
            auto random = std::make_shared<Random>(seed * together + i);
            const auto at = std::make_shared<std::atomic<int>>(below(*random, 30));
            const FakeDaemon& daemon = daemons.emplace_back([random, at, &mutex](Client& client, int step) {
                if (step != *at) return true;
                Random own;
                {
                    std::lock_guard lock(mutex);
                    *at += below(*random, 30);
                    own.seed((*random)());
                }
                return misbehave(client, own);
            });
            threads.start([&daemon, seed, i] {
                Random random(~(seed * together + i));
                use(daemon.address(), random);
            });
        }
        threads.join();
        const quorl_status closed = quorl_Close();
        EXPECT_TRUE(closed == QUORL_OK || closed == QUORL_DAEMON_NOT_CONNECTED) << closed;
        longest = std::max<std::chrono::duration<double>>(longest, std::chrono::steady_clock::now() - start);
        if (HasFailure()) break;
    }
    EXPECT_LT(longest.count(), limit);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(residentMegabytes() - before, 256);
#endif
    printf("seeds %u to %u: longest %.2f s, %ld MiB more\n", first, seed - 1, longest.count(),
           residentMegabytes() - before);
    ASSERT_EQ(quorl_SetQRParameters(1, &usual), QUORL_OK);
}

// Reconfigured while clients are there, a daemon says so.
TEST(HostileRandom, aDaemonMayTakeSmallerMessagesFromNowOn) {
    std::string smaller = greeting;
    smaller.replace(smaller.find("1048576"), 7, "4096");
    std::atomic<bool> reconfigured{false};
    FakeDaemon daemon([&](Client& client, int step) {
        if (step == 0 || !reconfigured.exchange(false)) return true;
        return client.send(smaller);
    });
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    {
        const quorlTransport transport = transportTo(daemon.address());
        settleOn(transport);
        reconfigured = true;
        settleOn(transport);
        const std::string bytes(100'000, 'x');
        static std::atomic<size_t> came{0};
        listen(
            QUORL_DEFAULT_QUEUE, transport, "large",
            [](quorlEvent, quorlMsg message, void*) {
                const void* data = nullptr;
                quorl_u32 size = 0;
                quorlMsg_GetOpaqueEx(message, "bytes", &data, &size, 0);
                came = size;
            },
            nullptr);
        for (const size_t size : {size_t{3000}, size_t{12'000}, bytes.size()}) {
            quorlMsg message = newMessage("large");
            quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(size), 0);
            EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
            quorlMsg_Destroy(message);
            EXPECT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
            EXPECT_EQ(came, size);
        }
    }
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

}  // namespace
}  // namespace quorltest
