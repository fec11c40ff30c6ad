// Processes that share a name over one daemon: each message comes to one of them.
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <set>

#include "support.h"

namespace quorltest {
namespace {

// A member in a process of its own, which says on a pipe what comes to it. The parent has no threads when it forks.
class Member {
  public:
    Member(const std::string& daemon, const char* subject, const char* name, int listeners = 1) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        process_ = fork();
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(ends[0]);
            _exit(run(daemon, subject, name, listeners, ends[1]));
        }
        close(ends[1]);
        says_ = ends[0];
    }
    ~Member() {
        kill();
        close(says_);
    }
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

    // Returns when it listens, or with the next number that came to it; -1: it has ended.
    int next() const {
        int number = -1;
        return read(says_, &number, sizeof number) == sizeof number ? number : -1;
    }
    void kill() {
        if (process_ <= 0) return;
        ::kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        process_ = 0;
    }

  private:
    static int run(const std::string& daemon, const char* subject, const char* name, int listeners, int says) {
        quorlTransport transport = 0;
        if (quorl_Open() != QUORL_OK) return 1;
        if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return 2;
        for (int i = 0; i < listeners; ++i) {
            quorlEvent event = 0;
            const auto say = [](quorlEvent, quorlMsg message, void* closure) {
                const int number = numberOf(message);
                if (write(*static_cast<int*>(closure), &number, sizeof number) != sizeof number) _exit(3);
            };
            if (quorlEvent_CreateSharedListener(&event, QUORL_DEFAULT_QUEUE, say, transport, subject, name, &says) !=
                QUORL_OK)
                return 4;
        }
        settleOn(transport);
        const int ready = -2;
        if (write(says, &ready, sizeof ready) != sizeof ready) return 5;
        while (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1) == QUORL_OK) {
        }
        return 0;
    }

    pid_t process_ = 0;
    int says_ = -1;
};

// Sends from a process of its own, so that this one stays without threads. Each message waits until the one before is out, so
// that no two travel together.
void sendFrom(const std::string& daemon, const char* subject, int first, int count) {
    const pid_t child = fork();
    if (child == 0) {
        quorlTransport transport = 0;
        if (quorl_Open() != QUORL_OK) _exit(1);
        if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) _exit(2);
        for (int i = 0; i < count; ++i) {
            if (sendNumber(transport, subject, first + i) != QUORL_OK) _exit(3);
            settleOn(transport);
        }
        _exit(quorl_Close() == QUORL_OK ? 0 : 4);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(SharingProcesses, eachMessageComesToOneOfThem) {
    NatsServer server;
    Member one(server.url(), "work.*", "crew", 3);
    Member two(server.url(), "work.>", "crew");
    Member other(server.url(), "work.x", "second");
    for (const Member* each : {&one, &two, &other}) ASSERT_EQ(each->next(), -2);
    constexpr int messages = 200;
    sendFrom(server.url(), "work.x", 0, messages);
    for (int i = 0; i < messages; ++i) ASSERT_EQ(other.next(), i);
    std::multiset<int> came;
    size_t shares[2] = {0, 0};
    const Member* members[2] = {&one, &two};
    std::thread readers[2];
    std::mutex mutex;
    for (int i = 0; i < 2; ++i) {
        readers[i] = std::thread([&, i] {
            for (int number; (number = members[i]->next()) >= 0;) {
                const std::lock_guard lock(mutex);
                came.insert(number);
                ++shares[i];
            }
        });
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    for (bool all = false; !all && std::chrono::steady_clock::now() < end; std::this_thread::yield()) {
        const std::lock_guard lock(mutex);
        all = came.size() >= messages;
    }
    one.kill();
    two.kill();
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(came.size(), static_cast<size_t>(messages));
    for (int i = 0; i < messages; ++i) EXPECT_EQ(came.count(i), 1u) << i;
    EXPECT_GT(shares[0], 0u);
    EXPECT_GT(shares[1], 0u);
}

TEST(SharingProcesses, theOthersGoOnWhenOneIsKilled) {
    NatsServer server;
    Member stays(server.url(), "work.x", "crew");
    {
        Member goes(server.url(), "work.x", "crew");
        ASSERT_EQ(goes.next(), -2);
    }
    ASSERT_EQ(stays.next(), -2);
    // The daemon learns of the end by the socket; what it still gives to the dead one is lost.
    int first = 0;
    std::atomic<int> last{-1};
    std::thread reader([&] {
        for (int number; last < 4999 && (number = stays.next()) >= 0;) last = number;
    });
    for (; last < 0 && first < 4000; first += 10) sendFrom(server.url(), "work.x", first, 10);
    EXPECT_GE(last.load(), 0);
    sendFrom(server.url(), "work.x", 4999, 1);
    reader.join();
    EXPECT_EQ(last.load(), 4999);
}

// Parts would go to different members, so none takes them; the program is told, and what is small comes as ever.
TEST(SharingProcesses, doNotTakeWhatTravelsInParts) {
    NatsServer server;
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    {
        const quorlTransport transport = transportTo(server.url());
        Advisories advisories(newTransport());
        Numbers numbers;
        quorlEvent event = 0;
        ASSERT_EQ(
            quorlEvent_CreateSharedListener(&event, QUORL_DEFAULT_QUEUE, onNumber, transport, "work", "crew", &numbers),
            QUORL_OK);
        settleOn(transport);
        quorlMsg large = newMessage("work", 1);
        const std::string filling(300'000, 'x');
        ASSERT_EQ(quorlMsg_AddOpaqueEx(large, "x", filling.data(), static_cast<quorl_u32>(filling.size()), 0),
                  QUORL_OK);
        ASSERT_EQ(quorlTransport_Send(transport, large), QUORL_OK);
        quorlMsg_Destroy(large);
        ASSERT_EQ(sendNumber(transport, "work", 2), QUORL_OK);
        ASSERT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit), QUORL_OK);
        EXPECT_EQ(numbers.came, std::vector<int>{2});
        const Advisories::Seen told = advisories.await("_QUORL.WARN.daemon.malformed");
        EXPECT_NE(told.texts.at("reason").find("parts"), std::string::npos);
        EXPECT_EQ(told.texts.at("subject"), "work");
        EXPECT_EQ(told.numbers.at("count"), 1u);
    }
    closeTransports();
    EXPECT_EQ(quorl_Close(), QUORL_OK);
}

}  // namespace
}  // namespace quorltest
