// Several processes that exchange messages through one daemon, without loss and in order.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "support.h"

namespace quorltest {
namespace {

// A process of the test's own. The parent has no threads when it forks: the library is not open there.
template <class F>
pid_t spawn(F&& body) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(body());
    }
    return child;
}

// 0: the process has ended well; otherwise what it said.
int outcomeOf(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

// Outcomes of the processes.
enum : int { good = 0, noLibrary = 11, noTransport = 12, notSent = 13, missing = 14, disordered = 15 };

int publish(const std::string& daemon, int sender, int messages) {
    quorlTransport transport = 0;
    if (quorl_Open() != QUORL_OK) return noLibrary;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return noTransport;
    const std::string subject = "exchange." + std::to_string(sender);
    for (int i = 0; i < messages; ++i) {
        if (sendNumber(transport, subject.c_str(), i) != QUORL_OK) return notSent;
    }
    return quorl_Close() == QUORL_OK ? good : noLibrary;
}

struct Expected {
    std::vector<int> next;
    long count = 0;
    bool wrong = false;
};
void onExchange(quorlEvent, quorlMsg message, void* closure) {
    auto& to = *static_cast<Expected*>(closure);
    const char* subject = nullptr;
    quorlMsg_GetSendSubject(message, &subject);
    const auto sender = static_cast<size_t>(std::atoi(subject + sizeof "exchange." - 1));
    if (sender >= to.next.size() || numberOf(message) != to.next[sender]++) to.wrong = true;
    ++to.count;
}

int subscribe(const std::string& daemon, int senders, int messages, int ready) {
    quorlTransport transport = 0;
    if (quorl_Open() != QUORL_OK) return noLibrary;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return noTransport;
    Expected expected;
    expected.next.resize(static_cast<size_t>(senders));
    listen(QUORL_DEFAULT_QUEUE, transport, "exchange.*", onExchange, &expected);
    settleOn(transport);
    if (write(ready, "r", 1) != 1) return missing;
    while (expected.count < static_cast<long>(senders) * messages && !expected.wrong) {
        if (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit) != QUORL_OK) return missing;
    }
    if (expected.wrong) return disordered;
    return quorl_Close() == QUORL_OK ? good : noLibrary;
}

void exchange(int publishers, int subscribers) {
    const int messages = numberFrom("QUORL_SYSTEM_MESSAGES", 50000) / publishers;
    NatsServer server;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    std::vector<pid_t> processes;
    for (int i = 0; i < subscribers; ++i)
        processes.push_back(spawn([&] { return subscribe(server.url(), publishers, messages, ready[1]); }));
    close(ready[1]);
    for (int i = 0; i < subscribers; ++i) {
        char byte;
        ASSERT_EQ(read(ready[0], &byte, 1), 1) << "a subscriber did not come up";
    }
    close(ready[0]);
    for (int i = 0; i < publishers; ++i) processes.push_back(spawn([&] { return publish(server.url(), i, messages); }));
    for (const pid_t process : processes) EXPECT_EQ(outcomeOf(process), good);
}

TEST(Processes, twoExchangeMessages) {
    exchange(1, 1);
}

TEST(Processes, fiveExchangeMessages) {
    exchange(3, 2);
}

// A publisher that is killed takes nobody with it, and what it had sent is in order.
TEST(Processes, oneThatIsKilledLeavesTheOthersAlone) {
    NatsServer server;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t subscriber = spawn([&] { return subscribe(server.url(), 1, 20000, ready[1]); });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    const pid_t bystander = spawn([&] {
        quorlTransport transport = 0;
        if (quorl_Open() != QUORL_OK) return +noLibrary;
        if (quorlTransport_Create(&transport, nullptr, nullptr, server.url().c_str()) != QUORL_OK) return +noTransport;
        if (write(ready[1], "r", 1) != 1) return +missing;
        for (int i = 0;; ++i) sendNumber(transport, "elsewhere", i);
    });
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    kill(bystander, SIGKILL);
    EXPECT_EQ(outcomeOf(bystander), 1000 + SIGKILL);
    EXPECT_EQ(outcomeOf(spawn([&] { return publish(server.url(), 0, 20000); })), good);
    EXPECT_EQ(outcomeOf(subscriber), good);
    close(ready[0]);
    close(ready[1]);
}

// Listens until it is told that its daemon was lost, and whether the reason says why.
int beCutOff(const std::string& daemon, int ready) {
    quorlTransport transport = 0;
    if (quorl_Open() != QUORL_OK) return noLibrary;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return noTransport;
    Advisories advisories(newTransport());
    listen(
        QUORL_DEFAULT_QUEUE, transport, "flood", [](quorlEvent, quorlMsg, void*) {}, nullptr);
    settleOn(transport);
    if (write(ready, "r", 1) != 1 || !advisories.waitFor(1, 1)) return missing;
    const std::string reason = advisories.seen().front().texts["reason"];
    if (reason.find("slow consumer") != std::string::npos) return good;
    printf("the reason was: %s\n", reason.c_str());
    fflush(stdout);
    return disordered;
}

TEST(Processes, oneThatIsStoppedIsToldThatItWasCutOff) {
    NatsServer server("max_pending: 1MB\nwrite_deadline: \"1s\"");
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t subscriber = spawn([&] { return beCutOff(server.url(), ready[1]); });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    kill(subscriber, SIGSTOP);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    const quorlTransport transport = transportTo(server.url());
    quorlMsg message = newMessage("flood");
    const std::string bytes(500'000, 'x');
    quorlMsg_AddOpaqueEx(message, "bytes", bytes.data(), static_cast<quorl_u32>(bytes.size()), 0);
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (server.log().find("Slow Consumer") == std::string::npos && std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
    }
    quorlMsg_Destroy(message);
    kill(subscriber, SIGCONT);
    EXPECT_EQ(outcomeOf(subscriber), good);
    EXPECT_EQ(quorl_Close(), QUORL_OK);
    close(ready[0]);
    close(ready[1]);
}

}  // namespace
}  // namespace quorltest
