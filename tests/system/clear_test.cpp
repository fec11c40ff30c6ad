// What is said before the TLS handshake may be anybody's word, and what a daemon names is not what the program named.
#include "certificates.h"
#include "quorl/quorlsd.h"
#include "support.h"
#include "tls_daemon.h"

namespace quorltest {
namespace {

class Clear : public Open {
  protected:
    static void SetUpTestSuite() { certificates = new Certificates; }
    static void TearDownTestSuite() {
        delete certificates;
        certificates = nullptr;
    }
    void SetUp() override {
        Open::SetUp();
        EXPECT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, certificates->text("ca.pem").c_str()), QUORL_OK);
        EXPECT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", "secret"), QUORL_OK);
    }
    void TearDown() override {
        quorlSecureDaemon_SetDaemonCert(nullptr, nullptr);
        quorlSecureDaemon_SetUserNameWithPassword(nullptr, nullptr);
        Open::TearDown();
    }
    static TlsDaemon daemonWith(const std::string& name, std::function<void(TlsDaemon::Client&, SSL_CTX*)> behave) {
        return {certificates->path(name + ".pem"), certificates->path(name + ".key"), std::move(behave)};
    }

    static inline Certificates* certificates = nullptr;
};

TEST_F(Clear, nothingThatComesBesideTheGreetingIsBelieved) {
    for (const std::string extra : {"PONG\r\n", "PING\r\n", "-ERR 'Authorization Violation'\r\n",
                                    "INFO {\"max_payload\":1000}\r\n", "MSG a 1 0\r\n\r\n", "PON"}) {
        std::atomic<int> introduced{0};
        const auto daemon = daemonWith("by-name", [&](TlsDaemon::Client& client, SSL_CTX* context) {
            client.sayInTheClear(TlsDaemon::greeting() + extra);
            if (!client.handshake(context)) return;
            if (!client.line().empty()) ++introduced;
            client.say("-ERR 'Authorization Violation'\r\n");
        });
        quorlTransport transport = 0;
        EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, ("tls://0x7f.1:" + daemon.port()).c_str()),
                  QUORL_DAEMON_NOT_FOUND)
            << extra;
        EXPECT_NE(std::string(quorl_LastErrorText()).find("before TLS"), std::string::npos) << quorl_LastErrorText();
        EXPECT_EQ(introduced, 0) << extra;
    }
}

// A server that the daemon has named shows the certificate of the daemon that the program named, or learns nothing.
TEST_F(Clear, aServerWithACertificateForItsOwnNameAloneGetsNoPassword) {
    Counter tried;
    std::atomic<int> introduced{0};
    const auto other = daemonWith("by-number", [&](TlsDaemon::Client& client, SSL_CTX* context) {
        client.sayInTheClear(TlsDaemon::greeting());
        if (client.handshake(context) && !client.line().empty()) ++introduced;
        tried.add();
    });
    std::atomic<bool> gone{false};
    const auto named = daemonWith("by-name", [&](TlsDaemon::Client& client, SSL_CTX* context) {
        if (gone.exchange(true)) return;
        const std::string servers = ",\"connect_urls\":[\"" + other.address() + "\"]";
        client.sayInTheClear(TlsDaemon::greeting(servers));
        if (!client.handshake(context)) return;
        client.say(TlsDaemon::greeting());  // names none: those of the greeting in the clear are tried
        EXPECT_TRUE(client.welcome());
        client.hangUp();
    });
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    transportTo("tls://0x7f.1:" + named.port());
    ASSERT_TRUE(tried.waitFor(2));
    EXPECT_EQ(introduced, 0);
}

// With a certificate for the name alone, as an authority issues it.
TEST_F(Clear, aClusterIsKnownByTheNameThatTheProgramUses) {
    const std::string member = certificates->tlsOf("by-name") +
                               "\nauthorization { user: anna, password: secret }"
                               "\ncluster { name: c, host: 127.0.0.1, port: -1";
    NatsServer first("server_name: a\n" + member + " }");
    const std::string log = first.log();
    const std::string words = "Listening for route connections on 127.0.0.1:";
    const size_t at = log.find(words);
    ASSERT_NE(at, std::string::npos) << log;
    NatsServer second("server_name: b\n" + member + ", routes: [\"nats://127.0.0.1:" +
                      std::to_string(std::atoi(log.c_str() + at + words.size())) + "\"] }");
    // Until its greeting names the other.
    const std::string wanted = ":" + std::to_string(second.port()) + "\"";
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    for (std::string said; said.find(wanted) == std::string::npos;) {
        ASSERT_LT(std::chrono::steady_clock::now(), end) << said;
        const int client = connectTo(first.port());
        char bytes[8192];
        const ssize_t count = recv(client, bytes, sizeof bytes, 0);
        said.assign(bytes, count > 0 ? static_cast<size_t>(count) : 0);
        close(client);
    }
    const quorlTransport transport = transportTo("tls://0x7f.1:" + std::to_string(first.port()));
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    settleOn(transport);
    first.kill();
    ASSERT_TRUE(advisories.waitFor(1, 1));
    settleOn(transport);
}

}  // namespace
}  // namespace quorltest
