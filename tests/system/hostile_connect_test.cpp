// Daemons that begin to greet and do not come to an end: connecting ends in its time, and so does closing after it.
#include <csignal>
#include <thread>

#include "impostor.h"

namespace quorltest {
namespace {

class HostileConnect : public Hostile {
  protected:
    void SetUp() override {
        setLimit("connect.timeout=0.4");
        Hostile::SetUp();
    }
    void TearDown() override {
        Hostile::TearDown();
        setLimit("connect.timeout=2");
    }

  private:
    static void setLimit(const char* setting) { ASSERT_EQ(quorl_SetQRParameters(1, &setting), QUORL_OK); }
};

// Until the other side is gone.
void drip(int client, const std::string& text) {
    for (size_t i = 0;; ++i) {
        pollfd waited{client, POLLRDHUP, 0};
        if (poll(&waited, 1, 10) != 0 || send(client, &text[i % text.size()], 1, MSG_NOSIGNAL) <= 0) return;
    }
}

TEST_F(HostileConnect, aDaemonThatGreetsAndSaysNoMore) {
    refuses(Impostor([](int client) { sendAll(client, greeting); }));
}

TEST_F(HostileConnect, aDaemonThatGreetsByteForByte) {
    refuses(Impostor([](int client) { drip(client, greeting); }));
}

TEST_F(HostileConnect, aDaemonThatAnswersByteForByte) {
    refuses(Impostor([](int client) {
        sendAll(client, greeting);
        drip(client, "x");
    }));
}

TEST_F(HostileConnect, aDaemonWhoseAnswerHasNoEnd) {
    refuses(Impostor([](int client) {
        sendAll(client, greeting);
        char bytes[4096];
        if (recv(client, bytes, sizeof bytes, 0) <= 0) return;
        const std::string block(1 << 20, 'x');
        pollfd waited{client, POLLRDHUP, 0};
        while (poll(&waited, 1, 0) == 0) sendAll(client, block);
    }));
}

TEST_F(HostileConnect, aDaemonThatStopsInTheHandshakeOfTls) {
    std::string secure = greeting;
    secure.insert(secure.find('}'), ",\"tls_required\":true");
    refuses(Impostor([&](int client) { sendAll(client, secure); }), "tls://");
    refuses(Impostor([&](int client) {
                sendAll(client, secure);
                drip(client, std::string("\x16\x03\x03\x40\x00\x02", 6) + std::string(1 << 14, 'x'));
            }),
            "tls://");
}

TEST_F(HostileConnect, aDaemonThatComplainsInsteadOfGreeting) {
    refuses(Impostor([](int client) { sendAll(client, "-ERR 'maximum connections exceeded'\r\n"); }));
    EXPECT_NE(std::string(quorl_LastErrorText())
                  .find("instead of a greeting the daemon says \"maximum connections exceeded\""),
              std::string::npos)
        << quorl_LastErrorText();
    // Its words are shown so far, and harm no terminal.
    refuses(Impostor([](int client) { sendAll(client, "-ERR '\x1b[2J" + std::string(3000, 'x') + "'\r\n"); }));
    EXPECT_NE(std::string(quorl_LastErrorText()).find("%1B[2Jxxx"), std::string::npos) << quorl_LastErrorText();
    EXPECT_NE(std::string(quorl_LastErrorText()).find("xxx...\""), std::string::npos) << quorl_LastErrorText();
}

TEST_F(HostileConnect, aDaemonWhoseTlsIsNone) {
    std::string secure = greeting;
    secure.insert(secure.find('}'), ",\"tls_required\":true");
    for (const std::string answer : {"HTTP/1.1 400 Bad Request\r\n\r\n", "INFO {\"max_payload\":1}\r\n"}) {
        refuses(Impostor([&](int client) {
                    sendAll(client, secure);
                    char bytes[4096];
                    if (recv(client, bytes, sizeof bytes, 0) > 0) sendAll(client, answer);
                }),
                "tls://");
        EXPECT_NE(std::string(quorl_LastErrorText()).find("what the daemon sends is not TLS: check host and port"),
                  std::string::npos)
            << quorl_LastErrorText();
    }
    // An alert, which says that there is no version that both speak.
    refuses(Impostor([&](int client) {
                sendAll(client, secure);
                char bytes[4096];
                if (recv(client, bytes, sizeof bytes, 0) > 0)
                    sendAll(client, std::string("\x15\x03\x03\x00\x02\x02\x46", 7));
            }),
            "tls://");
    EXPECT_NE(std::string(quorl_LastErrorText()).find("the daemon has to offer TLS 1.2 or 1.3"), std::string::npos)
        << quorl_LastErrorText();
}

TEST_F(HostileConnect, aDaemonThatResetsTheConnection) {
    refuses(Impostor([](int client) {
        sendAll(client, greeting);
        const linger at_once{1, 0};
        setsockopt(client, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        // What the client has sent is unread: closing resets.
        pollfd waited{client, POLLIN, 0};
        poll(&waited, 1, 60000);
        shutdown(client, SHUT_RDWR);
    }));
}

// Not even one of the servers that it names is tried: each would have its own time.
TEST_F(HostileConnect, aDaemonThatRefusesAndNamesManyOthers) {
    std::string named = ",\"connect_urls\":[\"127.0.0.1:1\"";
    for (int i = 0; i < 1500; ++i)
        named += ",\"10.255." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ":1\"";
    std::string text = greeting;
    text.insert(text.find('}'), named + "]");
    refuses(Impostor([&](int client) {
        sendAll(client, text);
        char bytes[4096];
        if (recv(client, bytes, sizeof bytes, 0) > 0) sendAll(client, "-ERR 'no'\r\n");
        shutdown(client, SHUT_RDWR);
    }));
}

// The others of the process connect meanwhile, and notice nothing.
TEST_F(HostileConnect, whatConnectsElsewhereIsLeftAlone) {
    NatsServer server;
    const quorlTransport before = transportTo(server.url());
    Impostor impostor([](int client) { sendAll(client, greeting); });
    Threads threads;
    threads.start([&] { refuses(impostor); });
    threads.start([&] {
        for (int i = 0; i < 50; ++i) {
            const quorlTransport transport = transportTo(server.url(), ("s" + std::to_string(i)).c_str());
            settleOn(transport);
            EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
        }
    });
    threads.join();
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    settleOn(before);
    EXPECT_TRUE(advisories.seen().empty());
}

}  // namespace
}  // namespace quorltest
