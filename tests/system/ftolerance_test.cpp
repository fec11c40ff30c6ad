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
#include <string_view>

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
    // P, A, D: told to its program; s, l, x: seen by a monitor as a standby, as one that has left, as lost; p, m: told to
    // its process that it stood still, and that two are active
    char action;
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

void onFault(quorlEvent, quorlMsg message, void* closure) {
    const auto* to = static_cast<Reporter*>(closure);
    quorl_f64 seconds = 0;
    quorl_u64 active = 0;
    quorlMsg_GetF64Ex(message, "seconds", &seconds, 0);
    quorlMsg_GetU64Ex(message, "members", &active, 0);
    if (seconds <= 0 && active != 2) return;
    const Report report{secondsNow(), to->member, seconds > 0 ? 'p' : 'm'};
    if (write(to->pipe, &report, sizeof report) != sizeof report) _exit(20);
}

// Is a member of the group until SIGUSR1 comes, and then leaves it, or SIGUSR2, and then closes the library and no more.
int beMember(const std::string& daemon, int number, int pipe) {
    sigset_t leaving;
    sigemptyset(&leaving);
    sigaddset(&leaving, SIGUSR1);
    sigaddset(&leaving, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &leaving, nullptr);
    quorlTransport transport = 0;
    quorlftMember member = 0;
    Reporter reporter{number, pipe};
    if (quorl_Open() != QUORL_OK) return 11;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return 12;
    for (const char* fault : {"_QUORL.WARN.ft.paused", "_QUORL.WARN.ft.too_many"})
        listen(QUORL_DEFAULT_QUEUE, transport, fault, onFault, &reporter);
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
    const bool left = signal == SIGUSR2 || quorlftMember_Destroy(member) == QUORL_OK;
    const bool closed = quorl_Close() == QUORL_OK;
    dispatcher.join();
    return left && closed ? 0 : 14;
}

void onAdvisory(quorlEvent, quorlMsg message, void* closure) {
    const char* subject = nullptr;
    const char* state = nullptr;
    quorl_u32 weight = 0;
    if (quorlMsg_GetSendSubject(message, &subject) != QUORL_OK) return;
    if (quorlMsg_GetStringEx(message, "state", &state, 0) != QUORL_OK) return;
    if (quorlMsg_GetU32Ex(message, "weight", &weight, 0) != QUORL_OK) return;
    const std::string_view name = std::string_view(subject).substr(std::string_view(subject).rfind('.') + 1);
    const char seen = name == "left" ? 'l' : name == "lost" ? 'x' : name == "changed" && state[0] == 's' ? 's' : '-';
    if (seen == '-') return;
    const Report report{secondsNow(), members - static_cast<int>(weight), seen};
    if (write(*static_cast<const int*>(closure), &report, sizeof report) != sizeof report) _exit(20);
}

// Watches the group until it is killed.
int beMonitor(const std::string& daemon, int pipe) {
    quorlTransport transport = 0;
    quorlftMonitor monitor = 0;
    if (quorl_Open() != QUORL_OK) return 11;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return 12;
    listen(QUORL_DEFAULT_QUEUE, transport, "_QUORL.*.ft.*", onAdvisory, &pipe);
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
    // What waitpid says of its end.
    int end(int number) {
        int status = -1;
        waitpid(process(number), &status, 0);
        processes_[static_cast<size_t>(number)] = 0;
        return status;
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
    // A row of the table of docs/internals/fault-tolerance.md.
    static void print(const char* what, double seconds) {
        std::printf("| %-96s | %.3f | %3.0f %% |\n", what, seconds, seconds / activation * 100);
    }

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
    std::printf("| what happens to the active member | seconds | of the activation interval |\n| --- | --- | --- |\n");
    print("none is there: from the start of the group until the first one is activated", first.at - began);

    double at = secondsNow();
    kill(process(0), SIGKILL);
    end(0);
    print("killed (kill -9): until the next one is hinted", await(1, 'P').at - at);
    print("killed: until the next one is activated", await(1, 'A').at - at);
    await(0, 'x');

    at = secondsNow();
    kill(process(1), SIGSTOP);
    const Report replaced = await(3, 'A');
    print("stopped (SIGSTOP): until the next one is activated", replaced.at - at);
    await(1, 'x');
    at = secondsNow();
    kill(process(1), SIGCONT);
    const Report stopped = await(1, 'D');
    EXPECT_GT(stopped.at, replaced.at);
    await(1, 'p');
    print("woken (SIGCONT): until it is told to deactivate; two are active so long", stopped.at - at);
    const Report yielded = await(3, 'D');
    const Report again = await(1, 'A');
    EXPECT_GE(again.at, yielded.at) << "it waits until the other has stepped back";
    print("woken: until it is active again, being the highest ranked", again.at - at);

    at = secondsNow();
    kill(process(1), SIGUSR1);
    const Report after = await(3, 'A');
    print("leaves: until the next one is activated, which had stepped back for it a moment before", after.at - at);
    await(1, 'l');
    EXPECT_EQ(end(1), 0);

    // One that ranks above the others, behind a proxy.
    Proxy proxy(server.port());
    join(2, "nats://" + proxy.address());
    EXPECT_GE(await(2, 'A').at, await(3, 'D').at);
    at = secondsNow();
    proxy.tell("freeze both");
    const Report split = await(3, 'A');
    print("cut off from the daemon: until the next one is activated", split.at - at);
    await(2, 'x');
    at = secondsNow();
    proxy.tell("thaw both");
    const Report healed = await(3, 'D');
    print("joined again: until the lower one is told to deactivate; two are active so long", healed.at - at);

    await(2, 'm');

    // The other one had the higher token, so that this one gets a new one before it goes.
    await(2, 'D');
    await(2, 'A');
    at = secondsNow();
    kill(process(2), SIGUSR2);
    const Report last = await(3, 'A');
    print("closes the library: until the next one is activated, which had stepped back for it as well", last.at - at);
    await(2, 'l');
    EXPECT_EQ(end(2), 0);
}

}  // namespace
}  // namespace quorltest
