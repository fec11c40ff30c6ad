// Who is let in over TLS, who is not, and whether the words say why. Certificates are made by the openssl command.
#include "certificates.h"
#include "quorl/quorlsd.h"
#include "support.h"

namespace quorltest {
namespace {

class Tls : public Open {
  protected:
    static void SetUpTestSuite() { certificates = new Certificates; }
    static void TearDownTestSuite() {
        delete certificates;
        certificates = nullptr;
    }
    void TearDown() override {
        forget();
        Open::TearDown();
    }

    static void forget() {
        quorlSecureDaemon_SetDaemonCert(nullptr, nullptr);
        quorlSecureDaemon_SetUserCertWithKey(nullptr, nullptr);
        quorlSecureDaemon_SetUserNameWithPassword(nullptr, nullptr);
    }
    static void trust(const std::string& name) {
        EXPECT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, certificates->text(name + ".pem").c_str()), QUORL_OK)
            << quorl_LastErrorText();
    }
    static quorl_status identify(const std::string& certificate, const std::string& key, const char* password) {
        const std::string both = certificates->text(certificate) + certificates->text(key);
        return quorlSecureDaemon_SetUserCertWithKey(both.c_str(), password);
    }

    // A message there and back.
    static void works(const std::string& address) {
        quorlTransport transport = 0;
        ASSERT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, address.c_str()), QUORL_OK)
            << quorl_LastErrorText();
        settleOn(transport);
        EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
    }
    static void refused(const std::string& address, quorl_status expected, const std::string& words) {
        quorlTransport transport = 77;
        EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, address.c_str()), expected)
            << quorl_LastErrorText();
        EXPECT_EQ(transport, 77u);
        EXPECT_NE(std::string(quorl_LastErrorText()).find(words), std::string::npos) << quorl_LastErrorText();
        EXPECT_NE(std::string(quorl_LastErrorText()).find("connect "), std::string::npos) << quorl_LastErrorText();
    }
    static std::string tls(const NatsServer& server, const std::string& host = "0x7f.1") {
        return "tls://" + host + ":" + std::to_string(server.port());
    }

    static inline Certificates* certificates = nullptr;
};

TEST_F(Tls, aTrustedAuthorityAndTheRightHostAreLetIn) {
    NatsServer server(certificates->tlsOf("server"));
    trust("ca");
    works(tls(server));
    works(tls(server, "127.0.0.1"));
    // For this daemon alone, by its name.
    forget();
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert(("0x7f.1:" + std::to_string(server.port())).c_str(),
                                              certificates->text("ca.pem").c_str()),
              QUORL_OK);
    works(tls(server));
    refused(tls(server, "127.0.0.1"), QUORL_DAEMON_NOT_FOUND, "certificate");
}

TEST_F(Tls, anotherAuthorityIsNotTrusted) {
    NatsServer server(certificates->tlsOf("server"));
    refused(tls(server), QUORL_DAEMON_NOT_FOUND, "unable to get local issuer certificate");
    trust("other-ca");
    refused(tls(server), QUORL_DAEMON_NOT_FOUND, "certificate");
    // What is set later holds for the next connection.
    trust("ca");
    works(tls(server));
}

TEST_F(Tls, anExpiredCertificateIsRefused) {
    NatsServer server(certificates->tlsOf("expired"));
    trust("ca");
    refused(tls(server), QUORL_DAEMON_NOT_FOUND, "certificate has expired");
}

TEST_F(Tls, aCertificateOfAnotherHostIsRefused) {
    NatsServer server(certificates->tlsOf("elsewhere"));
    trust("ca");
    refused(tls(server), QUORL_DAEMON_NOT_FOUND, "hostname mismatch");
    refused(tls(server, "127.0.0.1"), QUORL_DAEMON_NOT_FOUND, "mismatch");
}

TEST_F(Tls, aClientCertificateIsShownWhenItIsDemanded) {
    NatsServer server(certificates->tlsOf("server", certificates->verifying()));
    trust("ca");
    refused(tls(server), QUORL_USERPASS_MISMATCH, "a certificate of the program is demanded");
    ASSERT_EQ(identify("client.pem", "client.key", nullptr), QUORL_OK) << quorl_LastErrorText();
    works(tls(server));
    ASSERT_EQ(identify("client.pem", "client-locked.key", "secret"), QUORL_OK) << quorl_LastErrorText();
    works(tls(server));
    // A wrong password is refused where it is given, and what held before goes on.
    EXPECT_EQ(identify("client.pem", "client-locked.key", "wrong"), QUORL_USERPASS_MISMATCH);
    EXPECT_NE(std::string(quorl_LastErrorText()), "");
    works(tls(server));
    ASSERT_EQ(identify("stranger.pem", "stranger.key", nullptr), QUORL_OK) << quorl_LastErrorText();
    refused(tls(server), QUORL_USERPASS_MISMATCH, "the certificate of the program is refused");
    // One that is not demanded does no harm.
    NatsServer other(certificates->tlsOf("server"));
    works(tls(other));
}

TEST_F(Tls, aClientCertificateMayComeInBinaryForm) {
    NatsServer server(certificates->tlsOf("server", certificates->verifying()));
    trust("ca");
    const std::string locked = certificates->text("client-locked.p12");
    ASSERT_NE(locked.find('\0'), std::string::npos);
    const auto set = [](const std::string& bytes, const char* password) {
        return quorlSecureDaemon_SetUserCertWithKeyBin(bytes.data(), static_cast<quorl_u32>(bytes.size()), password);
    };
    ASSERT_EQ(set(locked, "secret"), QUORL_OK) << quorl_LastErrorText();
    works(tls(server));
    EXPECT_EQ(set(locked, "wrong"), QUORL_USERPASS_MISMATCH);
    EXPECT_EQ(set(locked, ""), QUORL_USERPASS_MISMATCH);
    EXPECT_EQ(set(locked, nullptr), QUORL_USERPASS_MISMATCH);
    works(tls(server));
    // Taken away, it is shown no more; without a password of its own it is one too.
    ASSERT_EQ(quorlSecureDaemon_SetUserCertWithKeyBin(nullptr, 0, nullptr), QUORL_OK);
    refused(tls(server), QUORL_USERPASS_MISMATCH, "a certificate of the program is demanded");
    ASSERT_EQ(set(certificates->text("client.p12"), ""), QUORL_OK) << quorl_LastErrorText();
    works(tls(server));
}

TEST_F(Tls, certificatesOfAnyDaemonHoldForThoseWithoutTheirOwn) {
    NatsServer server(certificates->tlsOf("server"));
    const std::string ca = certificates->text("ca.pem");
    const std::string other = certificates->text("other-ca.pem");
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert(QUORLSD_ANY_DAEMON, ca.c_str()), QUORL_OK);
    works(tls(server));
    works(tls(server, "127.0.0.1"));
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert("0X7F.1", other.c_str()), QUORL_OK);
    refused(tls(server), QUORL_DAEMON_NOT_FOUND, "certificate");
    works(tls(server, "127.0.0.1"));
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert(("tls://0x7f.1:" + std::to_string(server.port())).c_str(), ca.c_str()),
              QUORL_OK);
    works(tls(server));
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, nullptr), QUORL_OK);
    works(tls(server));
    refused(tls(server, "127.0.0.1"), QUORL_DAEMON_NOT_FOUND, "certificate");
}

TEST_F(Tls, aDaemonThatSignedItselfIsTrustedByItsOwnCertificate) {
    NatsServer server(certificates->tlsOf("alone"));
    refused(tls(server), QUORL_DAEMON_NOT_FOUND, "self");
    trust("alone");
    works(tls(server));
    NatsServer another(certificates->tlsOf("server"));
    refused(tls(another), QUORL_DAEMON_NOT_FOUND, "certificate");
}

// Everything that the library says while it uses credentials, whether they are right or wrong.
TEST_F(Tls, noSecretIsTold) {
    const std::string right = "open-sesame-4711";
    const std::string wrong = "abracadabra-0815";
    NatsServer server(certificates->tlsOf("server", certificates->verifying()) +
                      "\nauthorization { user: anna, password: \"" + right + "\" }");
    std::mutex mutex;
    std::string told;
    struct Listening {
        std::mutex& mutex;
        std::string& told;
    } listening{mutex, told};
    const quorlTransport local = newTransport();
    const quorlQueue queue = newQueue();
    listen(
        queue, local, "_QUORL.>",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<Listening*>(closure);
            const char* text = nullptr;
            EXPECT_EQ(quorlMsg_ConvertToString(message, &text), QUORL_OK);
            std::lock_guard lock(to.mutex);
            to.told += text;
        },
        &listening);
    const auto note = [&] {
        std::lock_guard lock(mutex);
        told += quorl_LastErrorText();
    };
    Threads dispatcher;
    dispatcher.start([=] {
        while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
        }
    });
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        Advisories advisories(local);
        trust("ca");
        EXPECT_EQ(identify("client.pem", "client-locked.key", wrong.c_str()), QUORL_USERPASS_MISMATCH);
        note();
        ASSERT_EQ(identify("client.pem", "client-locked.key", "secret"), QUORL_OK);
        ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", wrong.c_str()), QUORL_OK);
        refused(tls(server), QUORL_USERPASS_MISMATCH, "is refused");
        note();
        quorlTransport none = 0;
        EXPECT_EQ(quorlTransport_Create(&none, nullptr, nullptr, ("tls://anna:" + right + "@0x7f.1").c_str()),
                  QUORL_DAEMON_NOT_FOUND);
        note();
        ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", right.c_str()), QUORL_OK);
        const quorlTransport transport = transportTo(tls(server));
        settleOn(transport);
        server.kill();
        ASSERT_TRUE(advisories.waitFor(1, 0));
        ASSERT_TRUE(server.start());
        ASSERT_TRUE(advisories.waitFor(1, 1));
        settleOn(transport);
        for (const char* subject : {"_QUORL.STATS", "_QUORL.LASTERROR"}) {
            quorlMsg question = newMessage(subject);
            quorlMsg answer = nullptr;
            ASSERT_EQ(quorlTransport_SendRequest(local, question, &answer, limit), QUORL_OK);
            const char* text = nullptr;
            EXPECT_EQ(quorlMsg_ConvertToString(answer, &text), QUORL_OK);
            {
                std::lock_guard lock(mutex);
                told += text;
            }
            quorlMsg_Destroy(answer);
            quorlMsg_Destroy(question);
        }
    }
    quorlQueue_DestroyEx(queue, nullptr, nullptr);
    dispatcher.join();
    told += testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    EXPECT_NE(told.find("daemon"), std::string::npos) << "the advisories and texts are there";
    const std::string key = certificates->text("client.key");
    for (const std::string& secret : {right, wrong, std::string("secret"), key.substr(key.find('\n') + 1, 20),
                                      certificates->text("client.pem").substr(40, 20), std::string("-----BEGIN")})
        EXPECT_EQ(told.find(secret), std::string::npos) << secret;
}

TEST_F(Tls, userNameAndPasswordAreShownAndChecked) {
    NatsServer server(certificates->tlsOf("server") + "\nauthorization { user: anna, password: \"pass word\" }");
    trust("ca");
    refused(tls(server), QUORL_USERPASS_MISMATCH, "is demanded");
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", "pass word"), QUORL_OK);
    works(tls(server));
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", "wrong"), QUORL_OK);
    refused(tls(server), QUORL_USERPASS_MISMATCH, "the user name or the password is refused");
    EXPECT_EQ(std::string(quorl_LastErrorText()).find("wrong"), std::string::npos);
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("bert", "pass word"), QUORL_OK);
    refused(tls(server), QUORL_USERPASS_MISMATCH, "the user name or the password is refused");
}

TEST_F(Tls, userNameAndPasswordWorkInTheClearToo) {
    NatsServer server("authorization { user: anna, password: secret }");
    refused(server.url(), QUORL_USERPASS_MISMATCH, "is demanded");
    EXPECT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", ""), QUORL_INVALID_ARG);
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", "no"), QUORL_OK);
    refused(server.url(), QUORL_USERPASS_MISMATCH, "is refused");
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", "secret"), QUORL_OK);
    works(server.url());
}

// What a program introduces itself with is JSON, and its texts may hold any byte.
TEST_F(Tls, userNamesAndPasswordsMayHaveAnyLetters) {
    NatsServer server(
        "authorization { user: \"an\\\"na {\\\\}\", password: \"pa\\\"ss,\\\\ w\\x01rd gr\xc3\xbc\xc3\x9f\" }");
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("an\"na {\\}", "pa\"ss,\\ w\x01rd gr\xc3\xbc\xc3\x9f"),
              QUORL_OK);
    works(server.url());
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("an\"na {\\}", "x\",\"user\":\"an\\\"na"), QUORL_OK);
    refused(server.url(), QUORL_USERPASS_MISMATCH, "is refused");
}

TEST_F(Tls, clearAndTlsDoNotMeet) {
    NatsServer secure(certificates->tlsOf("server"));
    NatsServer clear;
    trust("ca");
    refused(secure.url(), QUORL_DAEMON_NOT_FOUND, "the daemon demands TLS");
    refused(tls(clear), QUORL_DAEMON_NOT_FOUND, "the daemon offers no TLS");
}

TEST_F(Tls, aDaemonThatForbidsTheBusIsRefused) {
    NatsServer server(
        "authorization { users: [ { user: anna, password: secret, permissions: { publish: \"quorl.lab.>\", subscribe: "
        "\"quorl.lab.>\" } } ] }");
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", "secret"), QUORL_OK);
    quorlTransport transport = 0;
    EXPECT_EQ(quorlTransport_Create(&transport, nullptr, "lab", server.url().c_str()), QUORL_OK)
        << quorl_LastErrorText();
    refused(server.url(), QUORL_DAEMON_NOT_FOUND, "it does not carry messages of this bus");
}

TEST_F(Tls, whatTheDaemonForbidsIsTold) {
    NatsServer server(
        "authorization { users: [ { user: anna, password: secret, permissions: { publish: { deny: "
        "\"quorl.default.default.secret.>\" }, subscribe: { deny: \"quorl.default.default.hidden\" } } } ] }");
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", "secret"), QUORL_OK);
    const quorlTransport transport = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    EXPECT_EQ(sendNumber(transport, "secret.plan", 1), QUORL_OK);
    ASSERT_TRUE(advisories.waitForOthers(1));
    listen(QUORL_DEFAULT_QUEUE, transport, "hidden", onNumber, nullptr);
    ASSERT_TRUE(advisories.waitForOthers(2));
    const auto seen = advisories.seen();
    for (const char* subject : {"secret.plan", "hidden"}) {
        const auto& one = seen[subject == std::string("hidden") ? 1 : 0];
        EXPECT_EQ(one.subject, "_QUORL.WARN.daemon.refused");
        EXPECT_EQ(one.numbers.at("count"), 1u);
        EXPECT_NE(one.texts.at("reason").find(subject), std::string::npos) << one.texts.at("reason");
    }
    settleOn(transport);
}

TEST_F(Tls, newCredentialsAreUsedWhenTheDaemonIsBack) {
    NatsServer server("authorization { user: anna, password: one }");
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", "one"), QUORL_OK);
    const quorlTransport transport = transportTo(server.url());
    const quorlTransport local = newTransport();
    Advisories advisories(local);
    server.kill();
    ASSERT_TRUE(advisories.waitFor(1, 0));
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("anna", "two"), QUORL_OK);
    server.reconfigure("authorization { user: anna, password: two }");
    ASSERT_TRUE(server.start());
    ASSERT_TRUE(advisories.waitFor(1, 1));
    settleOn(transport);
}

TEST_F(Tls, carriesAStreamAndRequestsOfManyThreads) {
    NatsServer server(certificates->tlsOf("server"));
    trust("ca");
    const quorlTransport transport = transportTo(tls(server));
    const double seconds = numberFrom("QUORL_SYSTEM_TLS_SECONDS", 1);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    const quorlQueue queue = newQueue();
    std::atomic<int> came{0};
    listen(
        queue, transport, "load.*",
        [](quorlEvent, quorlMsg, void* closure) { ++*static_cast<std::atomic<int>*>(closure); }, &came);
    listen(
        queue, transport, "ask",
        [](quorlEvent, quorlMsg request, void* closure) {
            quorlMsg reply = newMessage("ignored", numberOf(request));
            EXPECT_EQ(quorlTransport_SendReply(*static_cast<const quorlTransport*>(closure), reply, request), QUORL_OK);
            quorlMsg_Destroy(reply);
        },
        &transport);
    std::atomic<int> sent{0};
    Threads dispatchers;
    dispatchers.start([=] {
        while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
        }
    });
    Threads threads;
    for (int t = 0; t < 2; ++t) {
        threads.start([&, t] {
            while (std::chrono::steady_clock::now() < end) {
                for (int i = 0; i < 100; ++i) {
                    if (sendNumber(transport, ("load." + std::to_string(t)).c_str(), i) == QUORL_OK) ++sent;
                }
            }
        });
    }
    threads.start([&] {
        for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
            quorlMsg request = newMessage("ask", i);
            quorlMsg reply = nullptr;
            ASSERT_EQ(quorlTransport_SendRequest(transport, request, &reply, limit), QUORL_OK) << quorl_LastErrorText();
            EXPECT_EQ(numberOf(reply), i);
            quorlMsg_Destroy(reply);
            quorlMsg_Destroy(request);
        }
    });
    threads.join();
    settleOn(transport);
    while (countOf(queue) != 0) std::this_thread::yield();
    quorlQueue_DestroyEx(queue, nullptr, nullptr);
    dispatchers.join();
    EXPECT_EQ(came, sent);
}

}  // namespace
}  // namespace quorltest
