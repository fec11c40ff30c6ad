// Certified delivery between processes over a real daemon, each of which is killed as the power would: what a send has accepted
// is delivered to every listener, in order, and what was confirmed is not delivered again. QUORL_CERTIFIED_KILLS and
// QUORL_SEED make it longer, or like another run.
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <climits>
#include <csignal>
#include <fstream>
#include <map>
#include <random>
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
    // Waits for one, and takes all that are there. False: none comes.
    bool awaitAny() const {
        if (!await(1)) return false;
        char bytes[4096];
        while (::read(ends_[0], bytes, sizeof bytes) > 0) continue;
        return true;
    }

  private:
    int ends_[2];
};

constexpr int senders = 2;
constexpr int listeners = 2;
constexpr int processes = senders + listeners;

// For all processes.
struct Shared {
    std::array<std::atomic<int>, processes> lives{};                           // how often each has been killed
    std::array<std::array<std::atomic<int>, listeners>, senders> delivered{};  // the last of a sender's numbers
    std::atomic<bool> enough{false};                                           // the senders are to stop
    int deliveredToAll(int sender) const {
        int least = INT_MAX;
        for (const auto& each : delivered[static_cast<size_t>(sender)]) least = std::min(least, each.load());
        return least;
    }
};

// Lines that are there when the process is not.
class Notes {
  public:
    Notes(const std::string& path, const Shared& shared, const Progress& progress)
        : file_(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600)), shared_(shared), progress_(progress) {}
    ~Notes() { close(file_); }
    void add(char what, int sender, int number) const {
        std::ostringstream text;
        text << what << ' ' << sender << ' ' << number;
        for (const auto& life : shared_.lives) text << ' ' << life.load();
        const std::string line = text.str() + '\n';
        if (write(file_, line.data(), line.size()) != static_cast<ssize_t>(line.size())) abort();
        progress_.add();
    }

  private:
    const int file_;
    const Shared& shared_;
    const Progress& progress_;
};

struct Note {
    char what;
    int sender;
    int number;
    std::array<int, processes> lives;
};

// What is new in a file of notes since the last look.
class NewNotes {
  public:
    explicit NewNotes(std::string path) : path_(std::move(path)) {}
    std::vector<Note> read() {
        std::vector<Note> notes;
        std::ifstream file(path_);
        file.seekg(at_);
        for (std::string line; std::getline(file, line) && !file.eof(); at_ = file.tellg()) {
            std::istringstream fields(line);
            Note& note = notes.emplace_back();
            fields >> note.what >> note.sender >> note.number;
            for (int& life : note.lives) fields >> life;
        }
        return notes;
    }

  private:
    const std::string path_;
    std::streamoff at_ = 0;
};

// A process's own: its number among all, its files, and what it shares.
struct Place {
    int process;
    std::string daemon;
    std::string ledger;
    std::string notes;
    Shared& shared;
    const Progress& progress;
};

std::string nameOf(int process) {
    return process < senders ? "sender" + std::to_string(process) : "listener" + std::to_string(process - senders);
}

quorlTransport connect(const std::string& daemon) {
    quorlTransport transport = 0;
    // The daemon may be away just now.
    while (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) std::this_thread::yield();
    return transport;
}

// One of each kind survives the loss of power too.
quorlcmTransport certify(const Place& place) {
    quorlcmTransport made = 0;
    const std::string name = nameOf(place.process);
    if (quorlcmTransport_Create(&made, connect(place.daemon), name.c_str(), QUORL_TRUE, place.ledger.c_str(),
                                place.process % 2 == 1 ? QUORL_TRUE : QUORL_FALSE, nullptr) == QUORL_OK)
        return made;
    fprintf(stderr, "%s: %s\n", name.c_str(), quorl_LastErrorText());
    _exit(1);
}

// t: a send begins; a: it was accepted; s: that was all.
int sendForEver(const Place& place) {
    if (quorl_Open() != QUORL_OK) return 1;
    int last = 0;
    for (const Note& note : NewNotes(place.notes).read()) last = std::max(last, note.number);
    const Notes notes(place.notes, place.shared, place.progress);
    const quorlcmTransport sender = certify(place);
    for (int each = senders; each < processes; ++each) {
        if (quorlcmTransport_AddListener(sender, nameOf(each).c_str(), "work") != QUORL_OK) return 1;
    }
    for (int number = last + 1; !place.shared.enough; ++number) {
        // What is sent far ahead is only waited for in the end. Nothing comes into this queue.
        while (number > place.shared.deliveredToAll(place.process) + 500 && !place.shared.enough)
            quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0.005);
        quorlMsg message = newMessage("work", number);
        notes.add('t', place.process, number);
        const quorl_status status = quorlcmTransport_Send(sender, message);
        if (status == QUORL_OK) notes.add('a', place.process, number);
        quorlMsg_Destroy(message);
    }
    notes.add('s', place.process, 0);
    for (;;) pause();
}

struct Receiving {
    const Place& place;
    const Notes& notes;
};
// d: delivered; c: confirmed.
void onWork(quorlcmEvent listener, quorlMsg message, void* closure) {
    const auto& to = *static_cast<Receiving*>(closure);
    const int number = numberOf(message);
    const char* sender = nullptr;
    if (quorlMsg_GetCMSender(message, &sender) != QUORL_OK) return;
    const int from = std::string(sender).back() - '0';
    to.notes.add('d', from, number);
    to.place.shared.delivered[static_cast<size_t>(from)][static_cast<size_t>(to.place.process - senders)] = number;
    if (quorlcmEvent_ConfirmMsg(listener, message) == QUORL_OK) to.notes.add('c', from, number);
}

int receiveForEver(const Place& place) {
    if (quorl_Open() != QUORL_OK) return 1;
    const Notes notes(place.notes, place.shared, place.progress);
    Receiving receiving{place, notes};
    quorlcmEvent listener = 0;
    const quorlcmTransport receiver = certify(place);
    if (quorlcmEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onWork, receiver, "work", &receiving) != QUORL_OK ||
        quorlcmEvent_SetExplicitConfirm(listener) != QUORL_OK)
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

// What was accepted, and what each listener was given and has confirmed; the notes of one process come in their order.
class Account {
  public:
    void hear(const Note& note) {
        if (note.what == 'a') accepted_[note.sender][note.number] = note.lives;
        if (note.what == 's') ++stopped_;
    }
    void hear(int listener, const Note& note) {
        Heard& heard = heard_[{note.sender, listener}];
        if (note.what == 'c') {
            heard.confirmed[note.number] = true;
            return;
        }
        heard.duplicated += heard.confirmed.count(note.number);
        heard.order.push_back(note.number);
        heard.delivered.try_emplace(note.number, note.lives);
    }
    bool complete() const { return stopped_ == senders && lost() == 0; }
    void check(int kills, int daemonKills) const {
        size_t accepted = 0;
        for (const auto& [sender, numbers] : accepted_) accepted += numbers.size();
        size_t confirmed = 0;
        size_t duplicated = 0;
        size_t overtaken = 0;
        for (const auto& [way, heard] : heard_) {
            confirmed += heard.confirmed.size();
            duplicated += heard.duplicated;
            // What was delivered and not confirmed may come once more.
            int last = 0;
            for (const int number : heard.order) {
                overtaken += number > last + 1 && accepted_.at(way.first).count(last + 1) != 0;
                last = number;
            }
        }
        printf("kills %d, of the daemon %d\n", kills, daemonKills);
        printf("accepted %zu, confirmed %zu, lost %zu, duplicated %zu, overtaken %zu, recovered %zu\n", accepted,
               confirmed, lost(), duplicated, overtaken, recovered());
        EXPECT_EQ(lost(), 0u) << lostRanges();
        EXPECT_EQ(duplicated, 0u);
        EXPECT_EQ(overtaken, 0u);
    }

  private:
    struct Heard {
        std::vector<int> order;
        std::map<int, std::array<int, processes>> delivered;
        std::map<int, bool> confirmed;
        size_t duplicated = 0;
    };
    // Accepted, and never given to a listener. One that was killed between confirming and its note has confirmed.
    size_t lost() const {
        size_t sum = 0;
        for (const auto& [sender, numbers] : accepted_) {
            for (int listener = senders; listener < processes; ++listener) {
                const auto heard = heard_.find({sender, listener});
                for (const auto& [number, lives] : numbers)
                    sum += heard == heard_.end() || heard->second.delivered.count(number) == 0;
            }
        }
        return sum;
    }
    // Where to look.
    std::string lostRanges() const {
        std::ostringstream text;
        for (const auto& [sender, numbers] : accepted_) {
            for (int listener = senders; listener < processes; ++listener) {
                const auto heard = heard_.find({sender, listener});
                int first = 0;
                int last = 0;
                for (const auto& [number, lives] : numbers) {
                    if (heard != heard_.end() && heard->second.delivered.count(number) != 0) continue;
                    if (first == 0) first = number;
                    last = number;
                }
                if (first != 0)
                    text << nameOf(sender) << " to " << nameOf(listener) << ": from " << first << " to " << last
                         << " of " << numbers.rbegin()->first << "\n";
            }
        }
        return text.str();
    }
    // Delivered in a later life of the sender or the listener than the one in which they were accepted.
    size_t recovered() const {
        size_t sum = 0;
        for (const auto& [way, heard] : heard_) {
            const auto& [sender, listener] = way;
            for (const auto& [number, then] : accepted_.at(sender)) {
                const auto delivered = heard.delivered.find(number);
                if (delivered == heard.delivered.end()) continue;
                sum += delivered->second[static_cast<size_t>(sender)] != then[static_cast<size_t>(sender)] ||
                       delivered->second[static_cast<size_t>(listener)] != then[static_cast<size_t>(listener)];
            }
        }
        return sum;
    }

    std::map<int, std::map<int, std::array<int, processes>>> accepted_;
    std::map<std::pair<int, int>, Heard> heard_;
    int stopped_ = 0;
};

TEST(CertifiedProcesses, whatIsAcceptedIsDeliveredOnceWhoeverIsKilled) {
    const int kills = numberFrom("QUORL_CERTIFIED_KILLS", 10);
    const int daemonKills = std::max(1, kills / 30);
    void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* const shared = new (memory) Shared;
    NatsServer server;
    const Directory folder;
    const Progress progress;
    std::array<pid_t, processes> running{};
    std::vector<NewNotes> news;
    for (int process = 0; process < processes; ++process) news.emplace_back(folder.file(nameOf(process) + ".notes"));
    const auto start = [&](int process) {
        const Place place{
            process, server.url(), folder.file(nameOf(process) + ".ledger"), folder.file(nameOf(process) + ".notes"),
            *shared, progress};
        running[static_cast<size_t>(process)] =
            spawn([&] { return process < senders ? sendForEver(place) : receiveForEver(place); });
    };
    for (int process = 0; process < processes; ++process) start(process);
    const int seed = numberFrom("QUORL_SEED", static_cast<int>(time(nullptr) & 0xffffff));
    printf("QUORL_SEED=%d\n", seed);
    std::mt19937 chance(static_cast<unsigned>(seed));
    for (int i = 0; i < kills; ++i) {
        ASSERT_TRUE(progress.await(50 + static_cast<int>(chance() % 1000)));
        const int process = static_cast<int>(chance() % processes);
        endBy(running[static_cast<size_t>(process)], SIGKILL);
        ++shared->lives[static_cast<size_t>(process)];
        start(process);
        if ((i + 1) * daemonKills / kills == i * daemonKills / kills) continue;
        ASSERT_TRUE(progress.await(static_cast<int>(chance() % 100)));
        server.kill();
        ASSERT_TRUE(server.start());
    }
    // Everything comes in the end.
    shared->enough = true;
    Account account;
    do {
        for (int process = 0; process < processes; ++process) {
            for (const Note& note : news[static_cast<size_t>(process)].read()) {
                process < senders ? account.hear(note) : account.hear(process, note);
            }
        }
    } while (!account.complete() && progress.awaitAny());
    for (const pid_t process : running) endBy(process, SIGKILL);
    account.check(kills, daemonKills);
    munmap(memory, sizeof(Shared));
}

}  // namespace
}  // namespace quorltest
