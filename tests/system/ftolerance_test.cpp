// A group of five processes over a daemon: one is killed, one is stopped and woken, one is cut off from the daemon, one leaves.
//
// What it measures it prints, beside the intervals; what it asserts is who takes whose place, in which order.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <ctime>

#include "proxy.h"
#include "quorl/quorlft.h"
#include "support.h"

namespace quorltest {
namespace {

constexpr double heartbeat = 0.2;
constexpr double preparation = 0.5;
constexpr double activation = 1.0;
constexpr int members = 5;

double secondsNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// What a member's process reports: one line that is written at once.
struct Report {
    double at;
    int member;
    char action;  // P, A, D: told to its program; s: seen as a standby by a monitor
};

struct Reporter {
    int member;
    int pipe;
};

void onAction(quorlftMember, const char*, quorlftAction action, void* closure) {
    const auto* to = static_cast<Reporter*>(closure);
    const Report report{secondsNow(), to->member, "-PAD"[action]};
    if (write(to->pipe, &report, sizeof report) != sizeof report) _exit(20);
}

// Is a member of the group until SIGUSR1 comes, and then leaves it.
int beMember(const std::string& daemon, int number, int pipe) {
    sigset_t leaving;
    sigemptyset(&leaving);
    sigaddset(&leaving, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &leaving, nullptr);
    quorlTransport transport = 0;
    quorlftMember member = 0;
    Reporter reporter{number, pipe};
    if (quorl_Open() != QUORL_OK) return 11;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return 12;
    if (quorlftMember_Create(&member, QUORL_DEFAULT_QUEUE, onAction, transport, "plant.archive",
                             static_cast<quorl_u16>(members - number), 1, heartbeat, preparation, activation,
                             &reporter) != QUORL_OK)
        return 13;
    std::thread dispatcher([] {
        while (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1) == QUORL_OK) {
        }
    });
    int signal = 0;
    sigwait(&leaving, &signal);
    const bool left = quorlftMember_Destroy(member) == QUORL_OK;
    quorl_Close();
    dispatcher.join();
    return left ? 0 : 14;
}

void onChange(quorlEvent, quorlMsg message, void* closure) {
    const char* state = nullptr;
    quorl_u32 weight = 0;
    if (quorlMsg_GetStringEx(message, "state", &state, 0) != QUORL_OK || state[0] != 's') return;
    if (quorlMsg_GetU32Ex(message, "weight", &weight, 0) != QUORL_OK) return;
    const Report report{secondsNow(), members - static_cast<int>(weight), 's'};
    if (write(*static_cast<const int*>(closure), &report, sizeof report) != sizeof report) _exit(20);
}

// Watches the group until it is killed.
int beMonitor(const std::string& daemon, int pipe) {
    quorlTransport transport = 0;
    quorlftMonitor monitor = 0;
    if (quorl_Open() != QUORL_OK) return 11;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return 12;
    listen(QUORL_DEFAULT_QUEUE, transport, "_QUORL.INFO.ft.changed", onChange, &pipe);
    const auto ignore = [](quorlftMonitor, const char*, quorl_u32, void*) {};
    if (quorlftMonitor_Create(&monitor, QUORL_DEFAULT_QUEUE, ignore, transport, "plant.archive", activation, nullptr) !=
        QUORL_OK)
        return 13;
    const Report ready{secondsNow(), members, 's'};
    if (write(pipe, &ready, sizeof ready) != sizeof ready) return 20;
    while (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1) == QUORL_OK) {
    }
    return 14;
}

class FaultToleranceOverDaemon : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(pipe(reports_.data()), 0); }
    void TearDown() override {
        for (const pid_t process : processes_) {
            if (process <= 0) continue;
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
        for (const int end : reports_) close(end);
    }
    // The library is not open in the parent. number: members for the monitor.
    void join(int number, const std::string& daemon) {
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            _exit(number == members ? beMonitor(daemon, reports_[1]) : beMember(daemon, number, reports_[1]));
        }
        processes_[static_cast<size_t>(number)] = child;
    }
    pid_t process(int number) const { return processes_[static_cast<size_t>(number)]; }
    void end(int number) {
        waitpid(process(number), nullptr, 0);
        processes_[static_cast<size_t>(number)] = 0;
    }
    // The next report of that action of that member; those before it are kept for others. at 0: it did not come.
    Report await(int member, char action) {
        const double by = secondsNow() + limit;
        for (size_t i = 0;; ++i) {
            while (i >= kept_.size()) {
                pollfd ready{reports_[0], POLLIN, 0};
                const int left = static_cast<int>((by - secondsNow()) * 1000);
                Report report{};
                if (left <= 0 || poll(&ready, 1, left) != 1 ||
                    read(reports_[0], &report, sizeof report) != sizeof report) {
                    ADD_FAILURE() << "member " << member << " does not report " << action;
                    return {0, member, action};
                }
                kept_.push_back(report);
            }
            if (kept_[i].member != member || kept_[i].action != action) continue;
            const Report found = kept_[i];
            kept_.erase(kept_.begin() + static_cast<long>(i));
            return found;
        }
    }
    static void print(const char* what, double seconds) { std::printf("%-64s %7.3f s\n", what, seconds); }

  private:
    std::array<int, 2> reports_{-1, -1};
    std::array<pid_t, members + 1> processes_{};
    std::vector<Report> kept_;
};

TEST_F(FaultToleranceOverDaemon, takes_the_place_of_one_that_is_killed_stopped_cut_off_or_leaves) {
    NatsServer server;
    join(members, server.url());
    await(members, 's');
    const double began = secondsNow();
    join(0, server.url());
    const Report first = await(0, 'A');
    for (const int number : {1, 3, 4}) join(number, server.url());
    for (const int number : {1, 3, 4}) await(number, 's');
    std::printf("heartbeat %.1f s, preparation %.1f s, activation %.1f s\n", heartbeat, preparation, activation);
    print("from the start of the group to the first activation", first.at - began);

    double at = secondsNow();
    kill(process(0), SIGKILL);
    end(0);
    print("kill -9 of the active member: until the next one is hinted", await(1, 'P').at - at);
    print("                              until it is activated", await(1, 'A').at - at);

    at = secondsNow();
    kill(process(1), SIGSTOP);
    const Report replaced = await(3, 'A');
    print("SIGSTOP of the active member: until the next one is activated", replaced.at - at);
    at = secondsNow();
    kill(process(1), SIGCONT);
    const Report stopped = await(1, 'D');
    EXPECT_GT(stopped.at, replaced.at);
    print("SIGCONT: until the woken one is deactivated; two act so long", stopped.at - at);
    const Report yielded = await(3, 'D');
    const Report again = await(1, 'A');
    EXPECT_GE(again.at, yielded.at) << "it waits until the other has stepped back";
    print("SIGCONT: until it is active again, being the highest ranked", again.at - at);

    at = secondsNow();
    kill(process(1), SIGUSR1);
    const Report after = await(3, 'A');
    print("orderly leave: until the next one is activated", after.at - at);
    end(1);

    // One that ranks above the others, behind a proxy.
    Proxy proxy(server.port());
    join(2, "nats://" + proxy.address());
    EXPECT_GE(await(2, 'A').at, await(3, 'D').at);
    at = secondsNow();
    proxy.tell("freeze both");
    const Report split = await(3, 'A');
    print("cut off from the daemon: until the next one is activated", split.at - at);
    at = secondsNow();
    proxy.tell("thaw both");
    const Report healed = await(3, 'D');
    print("joined again: until the lower one is deactivated; two act so long", healed.at - at);
}

}  // namespace
}  // namespace quorltest
