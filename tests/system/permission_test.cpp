// Daemons that do not allow everything: what they refuse is told, with what it concerns, counted, and tried again.
#include <csignal>

#include "quorl/quorlsd.h"
#include "support.h"

namespace quorltest {
namespace {

// One user whose rights are given; everything that a bus needs for itself is allowed.
std::string userWith(const std::string& permissions) {
    return "authorization { users: [ { user: u, password: p, permissions: { " + permissions +
           " } } ] }\nno_auth_user: u";
}

class Permission : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        local_ = newTransport();
    }
    bool waitUntil(const char* figure, quorl_u64 value) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while (Statistics(local_).ofDaemon(figure) != value) {
            if (std::chrono::steady_clock::now() >= end) return false;
        }
        return true;
    }
    quorlTransport local_ = 0;
};

TEST_F(Permission, aMessageThatIsForbiddenIsToldWithItsSubject) {
    const NatsServer server(userWith("publish: { deny: \"quorl.*.*.secret.>\" }"));
    const quorlTransport transport = transportTo(server.url());
    Advisories advisories(local_);
    ASSERT_EQ(sendNumber(transport, "secret.a b", 1), QUORL_OK);
    settleOn(transport);
    // Known as soon as something that was sent later has come back.
    EXPECT_EQ(Statistics(local_).ofDaemon("refused"), 1u);
    const auto refused = advisories.await("_QUORL.WARN.daemon.refused");
    EXPECT_EQ(refused.numbers.at("count"), 1u);
    EXPECT_EQ(refused.texts.at("subject"), "secret.a b");
    EXPECT_NE(refused.texts.at("reason").find("Permissions Violation"), std::string::npos);
    EXPECT_TRUE(refused.patterns.empty());
}

TEST_F(Permission, listeningThatIsForbiddenIsToldWithItsPattern) {
    NatsServer server(userWith("subscribe: { deny: \"quorl.*.*.secret.>\" }"));
    const quorlTransport transport = transportTo(server.url());
    Advisories advisories(local_);
    Numbers numbers;
    listen(QUORL_DEFAULT_QUEUE, transport, "open", onNumber, &numbers);
    listen(QUORL_DEFAULT_QUEUE, transport, "secret.*", onNumber, &numbers);
    settleOn(transport);
    const auto refused = advisories.await("_QUORL.WARN.daemon.refused");
    EXPECT_EQ(refused.patterns, std::vector<std::string>{"secret.*"});
    EXPECT_EQ(refused.numbers.at("pattern_count"), 1u);
    // None while the daemon is asked for it again, which it is from time to time.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(static_cast<int>(limit));
    while (Statistics(local_).ofDaemon("refused_patterns") != 1) ASSERT_LT(std::chrono::steady_clock::now(), end);
    // Asked for again, it is taken when it may be.
    ASSERT_TRUE(server.reload(userWith("subscribe: \"quorl.>\""), "authorization users")) << server.log();
    const auto accepted = advisories.await("_QUORL.INFO.daemon.accepted");
    EXPECT_EQ(accepted.patterns, std::vector<std::string>{"secret.*"});
    EXPECT_EQ(Statistics(local_).ofDaemon("refused_patterns"), 0u);
    ASSERT_EQ(sendNumber(transport, "secret.a", 3), QUORL_OK);
    settleOn(transport);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(numbers.came, std::vector{3});
    int told = 0;
    for (const auto& one : advisories.seen()) told += one.subject == "_QUORL.WARN.daemon.refused";
    EXPECT_EQ(told, 1) << "told once, however often it is asked for";
}

TEST_F(Permission, moreSubscriptionsThanTheDaemonTakesAreToldAndMadeUpFor) {
    // One is for the marks, one for the inboxes of settleOn.
    constexpr int taken = 5;
    constexpr int refusedOnes = 70;
    const NatsServer server("max_subscriptions: " + std::to_string(taken + 2));
    const quorlTransport transport = transportTo(server.url());
    settleOn(transport);
    Advisories advisories(local_);
    std::vector<quorlEvent> listeners;
    Numbers numbers;
    const auto pattern = [](int i) { return "a." + std::to_string(i); };
    for (int i = 0; i < taken + refusedOnes; ++i)
        listeners.push_back(listen(QUORL_DEFAULT_QUEUE, transport, pattern(i).c_str(), onNumber, &numbers));
    ASSERT_TRUE(waitUntil("refused_patterns", refusedOnes));
    quorl_u64 told = 0;
    std::vector<std::string> names;
    while (told < refusedOnes) {
        told = advisories.sumOf("_QUORL.WARN.daemon.refused", "pattern_count");
        std::this_thread::yield();
    }
    for (const auto& one : advisories.seen()) names.insert(names.end(), one.patterns.begin(), one.patterns.end());
    EXPECT_EQ(names.front(), pattern(taken));
    EXPECT_EQ(told, static_cast<quorl_u64>(refusedOnes));
    EXPECT_EQ(advisories.seen().front().texts.at("reason"), "maximum subscriptions exceeded");
    // The first ones hear.
    for (int i = 0; i < taken + refusedOnes; ++i) ASSERT_EQ(sendNumber(transport, pattern(i).c_str(), i), QUORL_OK);
    settleOn(transport);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(numbers.came.size(), static_cast<size_t>(taken));
    // Room is found for others, one for each that goes.
    for (int i = 0; i < 3; ++i) ASSERT_EQ(quorlEvent_DestroyEx(listeners[static_cast<size_t>(i)], nullptr), QUORL_OK);
    ASSERT_TRUE(waitUntil("refused_patterns", refusedOnes - 3));
    numbers.came.clear();
    for (int i = 0; i < taken + refusedOnes; ++i) ASSERT_EQ(sendNumber(transport, pattern(i).c_str(), i), QUORL_OK);
    settleOn(transport);
    drain(QUORL_DEFAULT_QUEUE);
    EXPECT_EQ(numbers.came.size(), static_cast<size_t>(taken));
    // Which ones depends on whether some were asked for again in vain before.
    for (const std::string& accepted : advisories.await("_QUORL.INFO.daemon.accepted").patterns)
        EXPECT_GE(std::stoi(accepted.substr(2)), taken) << accepted;
    // A listener that was refused may go like any other.
    for (size_t i = 3; i < listeners.size(); ++i) ASSERT_EQ(quorlEvent_DestroyEx(listeners[i], nullptr), QUORL_OK);
    ASSERT_TRUE(waitUntil("refused_patterns", 0));
}

TEST_F(Permission, whatIsRefusedStaysKnownOverALoss) {
    NatsServer server("max_subscriptions: 2");
    const quorlTransport transport = transportTo(server.url());
    Advisories advisories(local_);
    settleOn(transport);  // one for the marks, one for inboxes
    listen(QUORL_DEFAULT_QUEUE, transport, "a", onNumber, nullptr);
    ASSERT_TRUE(waitUntil("refused_patterns", 1));
    advisories.await("_QUORL.WARN.daemon.refused");
    server.reconfigure("max_subscriptions: 10");
    server.kill();
    ASSERT_TRUE(server.start());
    ASSERT_TRUE(advisories.waitFor(1, 1));
    advisories.await("_QUORL.INFO.daemon.accepted");
    settleOn(transport);
    EXPECT_EQ(Statistics(local_).ofDaemon("refused_patterns"), 0u);
}

TEST_F(Permission, aBusThatIsForbiddenIsRefusedAtOnceWithTheDaemonsWords) {
    for (const char* permissions :
         {"publish: { deny: \"quorl.>\" }", "subscribe: { deny: \"quorl.>\" }", "publish: \"quorl.lab.>\""}) {
        const NatsServer server(userWith(permissions));
        quorlTransport transport = 0;
        EXPECT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, server.url().c_str()), QUORL_DAEMON_NOT_FOUND);
        EXPECT_NE(strstr(quorl_LastErrorText(), "Permissions Violation for "), nullptr) << quorl_LastErrorText();
    }
    const NatsServer none("max_subscriptions: 0\nmax_connections: 1");
    const quorlTransport first = transportTo(none.url());
    quorlTransport second = 0;
    EXPECT_EQ(quorlTransport_Create(&second, "other", nullptr, none.url().c_str()), QUORL_DAEMON_NOT_FOUND);
    EXPECT_NE(strstr(quorl_LastErrorText(), "maximum connections exceeded"), nullptr) << quorl_LastErrorText();
    EXPECT_EQ(quorlTransport_Destroy(first), QUORL_OK);
}

TEST_F(Permission, aUserWhoIsTakenAwayIsToldOnceThatTheDaemonIsThereAndRefuses) {
    const auto user = [](const char* name) {
        return "authorization { users: [ { user: " + std::string(name) + ", password: p } ] }";
    };
    NatsServer server(user("u"));
    ASSERT_EQ(quorlSecureDaemon_SetUserNameWithPassword("u", "p"), QUORL_OK);
    const quorlTransport transport = transportTo(server.url());
    Advisories advisories(local_);
    settleOn(transport);
    ASSERT_TRUE(server.reload(user("other"), "authorization users")) << server.log();
    ASSERT_TRUE(advisories.waitFor(1, 0));
    const auto denied = advisories.await("_QUORL.ERROR.daemon.denied");
    EXPECT_NE(denied.texts.at("reason").find("user name"), std::string::npos) << denied.texts.at("reason");
    EXPECT_EQ(sendNumber(transport, "a", 1), QUORL_OK);
    ASSERT_TRUE(server.reload(user("u"), "authorization users")) << server.log();
    ASSERT_TRUE(advisories.waitFor(1, 1));
    settleOn(transport);
    int told = 0;
    for (const auto& one : advisories.seen()) told += one.subject == denied.subject;
    EXPECT_EQ(told, 1);
    EXPECT_EQ(quorlSecureDaemon_SetUserNameWithPassword(nullptr, nullptr), QUORL_OK);
}

}  // namespace
}  // namespace quorltest
