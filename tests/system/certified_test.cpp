// Certified delivery between processes over a real daemon, each of which is killed as the power would: what a send has accepted
// is delivered, in order, and what was confirmed is not delivered again.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

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

// One byte for each note that any process makes, as far as it has room.
class Progress {
  public:
    Progress() {
        if (pipe2(ends_, O_NONBLOCK) != 0) abort();
    }
    ~Progress() {
        close(ends_[0]);
        close(ends_[1]);
    }
    void add() const { static_cast<void>(!write(ends_[1], "n", 1)); }
    // Waits for so many. False: they do not come.
    bool await(int notes) const {
        char byte;
        while (notes > 0) {
            if (::read(ends_[0], &byte, 1) == 1) {
                --notes;
                continue;
            }
            pollfd come{ends_[0], POLLIN, 0};
            if (poll(&come, 1, static_cast<int>(limit * 1000)) != 1) return false;
        }
        return true;
    }

  private:
    int ends_[2];
};

// Lines that are there when the process is not.
class Notes {
  public:
    Notes(const std::string& path, const Progress& progress)
        : file_(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600)), progress_(progress) {}
    ~Notes() { close(file_); }
    void add(char what, int number) const {
        const std::string line = std::string(1, what) + ' ' + std::to_string(number) + '\n';
        if (write(file_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) abort();
        progress_.add();
    }

  private:
    const int file_;
    const Progress& progress_;
};

struct Note {
    char what;
    int number;
};
std::vector<Note> read(const std::string& path) {
    std::vector<Note> notes;
    std::ifstream file(path);
    for (Note note; file >> note.what >> note.number;) notes.push_back(note);
    return notes;
}

struct Place {
    std::string daemon;
    std::string ledger;
    std::string notes;
    std::string stop;  // a file that says that it is enough
    const Progress& progress;
};

quorlTransport connect(const std::string& daemon) {
    quorlTransport transport = 0;
    // The daemon may be away just now.
    while (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) std::this_thread::yield();
    return transport;
}

quorlcmTransport certify(quorlTransport transport, const char* name, const std::string& ledger) {
    quorlcmTransport made = 0;
    if (quorlcmTransport_Create(&made, transport, name, QUORL_TRUE, ledger.c_str(), QUORL_FALSE, nullptr) == QUORL_OK)
        return made;
    fprintf(stderr, "%s: %s\n", name, quorl_LastErrorText());
    _exit(1);
}

// t: a send begins; a: it was accepted; s: that was all.
int sendForEver(const Place& place) {
    if (quorl_Open() != QUORL_OK) return 1;
    int last = 0;
    for (const Note& note : read(place.notes)) last = std::max(last, note.number);
    const Notes notes(place.notes, place.progress);
    const quorlcmTransport sender = certify(connect(place.daemon), "sender", place.ledger);
    if (quorlcmTransport_AddListener(sender, "receiver", "work") != QUORL_OK) return 1;
    for (int number = last + 1; access(place.stop.c_str(), F_OK) != 0; ++number) {
        quorlMsg message = newMessage("work", number);
        notes.add('t', number);
        const quorl_status status = quorlcmTransport_Send(sender, message);
        if (status == QUORL_OK) notes.add('a', number);
        quorlMsg_Destroy(message);
    }
    notes.add('s', 0);
    for (;;) pause();
}

struct Receiving {
    const Notes* notes;
    quorlcmEvent listener;
};
// d: delivered; c: confirmed.
void onWork(quorlcmEvent listener, quorlMsg message, void* closure) {
    const auto& to = *static_cast<Receiving*>(closure);
    const int number = numberOf(message);
    const char* sender = nullptr;
    if (quorlMsg_GetCMSender(message, &sender) != QUORL_OK) return;
    to.notes->add('d', number);
    if (quorlcmEvent_ConfirmMsg(listener, message) == QUORL_OK) to.notes->add('c', number);
}

int receiveForEver(const Place& place) {
    if (quorl_Open() != QUORL_OK) return 1;
    const Notes notes(place.notes, place.progress);
    Receiving receiving{&notes, 0};
    const quorlcmTransport receiver = certify(connect(place.daemon), "receiver", place.ledger);
    if (quorlcmEvent_CreateListener(&receiving.listener, QUORL_DEFAULT_QUEUE, onWork, receiver, "work", &receiving) !=
            QUORL_OK ||
        quorlcmEvent_SetExplicitConfirm(receiving.listener) != QUORL_OK)
        return 1;
    while (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1) == QUORL_OK) continue;
    return 1;
}

void endBy(pid_t process, int number) {
    int status = 0;
    kill(process, number);
    ASSERT_EQ(waitpid(process, &status, 0), process);
    EXPECT_TRUE(WIFSIGNALED(status)) << "it had ended by itself: " << WEXITSTATUS(status);
}

// A program that is killed in the callback of a message has confirmed the ones before.
TEST(CertifiedProcesses, whatACallbackHasReturnedFromDoesNotComeAgain) {
    NatsServer server;
    const Directory folder;
    const Progress progress;
    struct Count {
        const Notes notes;
        int left;
    };
    // Dies in its callback number last.
    const auto receive = [&](int last) {
        if (quorl_Open() != QUORL_OK) return 1;
        Count count{{folder.file("received"), progress}, last};
        const quorlcmTransport receiver = certify(connect(server.url()), "receiver", folder.file("receiver.ledger"));
        quorlcmEvent listener = 0;
        const auto onMessage = [](quorlcmEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<Count*>(closure);
            to.notes.add('d', numberOf(message));
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
        const quorlcmTransport from = certify(connect(server.url()), "sender", folder.file("sender.ledger"));
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
    for (const Note& note : read(folder.file("received"))) numbers.push_back(note.number);
    std::vector<int> expected;
    // The one in whose callback it died comes again, and no other.
    for (const int first : {1, 10, 19}) {
        for (int number = first; number < first + 10; ++number) expected.push_back(number);
    }
    EXPECT_EQ(numbers, expected);
    endBy(sender, SIGKILL);
}

// A file may not grow any more, as when the disk is full.
TEST(CertifiedProcesses, aLedgerThatTakesNothingIsToldWithItsReason) {
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

TEST(CertifiedProcesses, whatIsAcceptedIsDeliveredOnceWhoeverIsKilled) {
    const int kills = numberFrom("QUORL_CERTIFIED_KILLS", 10);
    NatsServer server;
    const Directory folder;
    const Progress progress;
    const Place sending{server.url(), folder.file("sender.ledger"), folder.file("sent"), folder.file("stop"), progress};
    const Place receiving{server.url(), folder.file("receiver.ledger"), folder.file("received"), {}, progress};
    const auto startSender = [&] { return spawn([&] { return sendForEver(sending); }); };
    const auto startReceiver = [&] { return spawn([&] { return receiveForEver(receiving); }); };
    pid_t sender = startSender();
    pid_t receiver = startReceiver();
    std::mt19937 chance(static_cast<unsigned>(numberFrom("QUORL_SEED", static_cast<int>(time(nullptr) & 0xffffff))));
    for (int i = 0; i < kills; ++i) {
        ASSERT_TRUE(progress.await(50 + static_cast<int>(chance() % 1000)));
        switch (chance() % 5) {
            case 0:
            case 1:
                endBy(sender, SIGKILL);
                sender = startSender();
                break;
            case 4:
                if (i % 5 == 4) {
                    server.kill();
                    ASSERT_TRUE(server.start());
                    break;
                }
                [[fallthrough]];
            default:
                endBy(receiver, SIGKILL);
                receiver = startReceiver();
        }
    }
    // Everything comes in the end.
    std::ofstream(sending.stop).put('s');
    bool stopped = false;
    std::set<int> accepted;
    std::set<int> delivered;
    do {
        accepted.clear();
        delivered.clear();
        for (const Note& note : read(sending.notes)) {
            if (note.what == 'a') accepted.insert(note.number);
            stopped = note.what == 's';
        }
        for (const Note& note : read(receiving.notes)) delivered.insert(note.number);
    } while ((!stopped || !std::ranges::includes(delivered, accepted)) && progress.await(1));
    endBy(sender, SIGKILL);
    endBy(receiver, SIGKILL);
    size_t lost = 0;
    for (const int number : accepted) lost += delivered.count(number) == 0;
    size_t duplicated = 0;
    size_t disordered = 0;
    std::set<int> confirmed;
    int last = 0;
    for (const Note& note : read(receiving.notes)) {
        if (note.what == 'c') {
            confirmed.insert(note.number);
            continue;
        }
        duplicated += confirmed.count(note.number);
        // What was delivered and not confirmed may come once more; nothing overtakes.
        disordered += note.number > last + 1 && accepted.count(last + 1) != 0;
        last = note.number;
    }
    printf("accepted %zu, delivered %zu, confirmed %zu, lost %zu, duplicated %zu, kills %d\n", accepted.size(),
           delivered.size(), confirmed.size(), lost, duplicated, kills);
    EXPECT_EQ(lost, 0u);
    EXPECT_EQ(duplicated, 0u);
    EXPECT_EQ(disordered, 0u);
}

}  // namespace
}  // namespace quorltest
