// What ledgers of certified transports keep of processes that are killed, and what is told when they cannot.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "quorl/quorlcm.h"
#include "support.h"

namespace quorltest {
namespace {

template <class F>
pid_t spawn(F&& body) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(body());
    }
    return child;
}

quorlcmTransport certify(quorlTransport transport, const char* name, const std::string& ledger) {
    quorlcmTransport made = 0;
    if (quorlcmTransport_Create(&made, transport, name, QUORL_TRUE, ledger.c_str(), QUORL_FALSE, nullptr) == QUORL_OK)
        return made;
    fprintf(stderr, "%s: %s\n", name, quorl_LastErrorText());
    _exit(1);
}

// A program that is killed in the callback of a message has confirmed the ones before.
TEST(CertifiedLedgers, whatACallbackHasReturnedFromDoesNotComeAgain) {
    NatsServer server;
    const Directory folder;
    struct Count {
        int notes;
        int left;
    };
    // Dies in its callback number last.
    const auto receive = [&](int last) {
        if (quorl_Open() != QUORL_OK) return 1;
        Count count{open(folder.file("received").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), last};
        const quorlcmTransport receiver =
            certify(transportTo(server.url()), "receiver", folder.file("receiver.ledger"));
        quorlcmEvent listener = 0;
        const auto onMessage = [](quorlcmEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<Count*>(closure);
            if (dprintf(to.notes, "%d\n", numberOf(message)) < 0) abort();
            if (--to.left == 0) kill(getpid(), SIGKILL);
        };
        if (quorlcmEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onMessage, receiver, "work", &count) !=
            QUORL_OK)
            return 1;
        while (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1) == QUORL_OK) continue;
        return 1;
    };
    const pid_t sender = spawn([&] {
        if (quorl_Open() != QUORL_OK) return 1;
        const quorlcmTransport from = certify(transportTo(server.url()), "sender", folder.file("sender.ledger"));
        if (quorlcmTransport_AddListener(from, "receiver", "work") != QUORL_OK) return 1;
        for (int number = 1; number <= 30; ++number) {
            quorlMsg message = newMessage("work", number);
            if (quorlcmTransport_Send(from, message) != QUORL_OK) return 1;
            quorlMsg_Destroy(message);
        }
        for (;;) pause();
    });
    for (int i = 0; i < 3; ++i) {
        const pid_t receiver = spawn([&] { return receive(10); });
        int status = 0;
        ASSERT_EQ(waitpid(receiver, &status, 0), receiver);
        ASSERT_TRUE(WIFSIGNALED(status)) << WEXITSTATUS(status);
    }
    std::vector<int> numbers;
    std::ifstream received(folder.file("received"));
    for (int number; received >> number;) numbers.push_back(number);
    std::vector<int> expected;
    // The one in whose callback it died comes again, and no other.
    for (const int first : {1, 10, 19}) {
        for (int number = first; number < first + 10; ++number) expected.push_back(number);
    }
    EXPECT_EQ(numbers, expected);
    kill(sender, SIGKILL);
    waitpid(sender, nullptr, 0);
}

// A file may not grow any more, as when the disk is full.
TEST(CertifiedLedgers, aLedgerThatTakesNothingIsToldWithItsReason) {
    const Directory folder;
    const pid_t child = spawn([&] {
        if (quorl_Open() != QUORL_OK) return 1;
        quorlTransport transport = 0;
        if (quorlTransport_Create(&transport, nullptr, nullptr, nullptr) != QUORL_OK) return 2;
        static std::string reason;
        static bool told = false;
        quorlEvent listener = 0;
        const auto onAdvisory = [](quorlEvent, quorlMsg message, void*) {
            const char* text = nullptr;
            told = true;
            if (quorlMsg_GetStringEx(message, "reason", &text, 0) == QUORL_OK) reason = text;
        };
        if (quorlEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onAdvisory, transport,
                                      "_QUORL.ERROR.certified.storage_failed", nullptr) != QUORL_OK)
            return 3;
        const quorlcmTransport sender = certify(transport, "sender", folder.file("ledger"));
        if (quorlcmTransport_AddListener(sender, "receiver", "work") != QUORL_OK) return 4;
        signal(SIGXFSZ, SIG_IGN);
        const rlimit small{4096, 4096};
        if (setrlimit(RLIMIT_FSIZE, &small) != 0) return 5;
        quorl_status status = QUORL_OK;
        for (int number = 0; number < 100'000 && status == QUORL_OK; ++number) {
            quorlMsg message = newMessage("work", number);
            status = quorlcmTransport_Send(sender, message);
            quorlMsg_Destroy(message);
        }
        if (status == QUORL_OK) return 6;
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while (!told && std::chrono::steady_clock::now() < end) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.1);
        return !told ? 7 : reason.empty() ? 8 : 0;
    });
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace quorltest
