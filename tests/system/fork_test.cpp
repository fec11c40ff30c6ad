// A process that is forked while it is connected to a daemon: the child can do nothing with the connection, and however it
// ends, the parent's goes on.
#include "../capi/child.h"

#include <cstring>

#include "certificates.h"
#include "quorl/quorlsd.h"
#include "support.h"

namespace quorltest {
namespace {

struct Connected {
    quorlTransport transport;
    quorlEvent listener;
    const char* daemon;
};

// The number of the first call that was not refused, from 1; 0: all were.
int firstNotRefused(const Connected& parents) {
    quorlMsg message = nullptr;
    quorlTransport transport = 0;
    char inbox[QUORL_SUBJECT_MAX + 1];
    const quorl_status statuses[] = {
        quorlMsg_Create(&message),
        quorlTransport_Send(parents.transport, message),
        quorlTransport_SendRequest(parents.transport, message, &message, -1),
        quorlTransport_CreateInbox(parents.transport, inbox, sizeof inbox),
        quorlTransport_SetDescription(parents.transport, "child"),
        quorlTransport_Create(&transport, nullptr, nullptr, parents.daemon),
        quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1),
        quorlEvent_DestroyEx(parents.listener, nullptr),
        quorlTransport_Destroy(parents.transport),
        quorl_Close(),
    };
    int call = 0;
    for (const quorl_status status : statuses) {
        ++call;
        if (status != QUORL_NOT_PERMITTED) return call;
    }
    return std::strstr(quorl_LastErrorText(), "forked") != nullptr ? 0 : 100;
}

class ForkOverADaemon : public Open {
  protected:
    // Forks again and again while messages are on their way. Each comes, once and in order, and the connection is never lost.
    void forkWhileConnectedTo(const std::string& daemon) {
        const quorlTransport local = newTransport();
        Advisories advisories(local);
        Numbers numbers;
        Connected parents{transportTo(daemon), 0, daemon.c_str()};
        parents.listener = listen(QUORL_DEFAULT_QUEUE, parents.transport, "a", onNumber, &numbers);
        int number = 0;
        for (const Leaving leaving : {Leaving::withoutHandlers, Leaving::withHandlers}) {
            for (int round = 0; round < 5; ++round) {
                for (int i = 0; i < 20; ++i) ASSERT_EQ(sendNumber(parents.transport, "a", number++), QUORL_OK);
                EXPECT_EQ(inChild([&] { return firstNotRefused(parents); }, leaving), 0);
                for (int i = 0; i < 20; ++i) ASSERT_EQ(sendNumber(parents.transport, "a", number++), QUORL_OK);
                settleOn(parents.transport);
            }
        }
        while (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0) == QUORL_OK) {
        }
        std::vector<int> all;
        for (int i = 0; i < number; ++i) all.push_back(i);
        EXPECT_EQ(numbers.came, all);
        EXPECT_EQ(Statistics(local).ofDaemon("reconnects"), 0u);
        EXPECT_TRUE(advisories.seen().empty());
        EXPECT_EQ(quorlTransport_Destroy(parents.transport), QUORL_OK) << quorl_LastErrorText();
    }
};

TEST_F(ForkOverADaemon, leavesTheConnectionToTheParent) {
    NatsServer server;
    forkWhileConnectedTo(server.url());
}

TEST_F(ForkOverADaemon, leavesAConnectionWithTlsToTheParent) {
    const Certificates certificates;
    NatsServer server(certificates.tlsOf("server"));
    ASSERT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, certificates.text("ca.pem").c_str()), QUORL_OK);
    forkWhileConnectedTo("tls://" + server.address());
}

}  // namespace
}  // namespace quorltest
