// The processor time that a member of a fault-tolerance group of 100 costs, with heartbeats of a second.
#include "quorl/quorlft.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "support/measure.h"
#include "support/quorl.h"

namespace {

using namespace std::chrono_literals;

constexpr int kGroup = 100;
constexpr std::chrono::duration<double> kTime = 10s;

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void join(quorlTransport transport, int members) {
    for (int i = 0; i < members; ++i) {
        quorlftMember member;
        const auto onAction = [](quorlftMember, const char*, quorlftAction, void*) {};
        bench::need(
            quorlftMember_Create(&member, QUORL_DEFAULT_QUEUE, onAction, transport, "bench", 1, 1, 1, 0, 3, nullptr),
            "join");
    }
}

double percent() {
    std::this_thread::sleep_for(5s);  // until all have joined
    const double before = processorSeconds();
    std::this_thread::sleep_for(kTime);
    return (processorSeconds() - before) / kTime.count() * 100;
}

// All members in this process.
void together() {
    bench::Bus bus;
    join(bus.transport(), kGroup);
    bench::report("ft", {"100_members.cpu_percent_each", bench::Better::lower}, percent() / kGroup);
}

// One of them in this process, the others in another.
void overDaemon(const char* daemon) {
    const pid_t others = fork();
    if (others == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
    bench::need(quorl_Open(), "open");
    quorlTransport transport = 0;
    bench::need(quorlTransport_Create(&transport, nullptr, nullptr, daemon), "transport");
    join(transport, others == 0 ? kGroup - 1 : 1);
    if (others == 0) {
        for (;;) pause();
    }
    bench::report("ft", {"100_members_over_a_daemon.cpu_percent_of_one", bench::Better::lower}, percent());
    bench::need(quorl_Close(), "close");
    kill(others, SIGKILL);
}

}  // namespace

int main(int count, char** arguments) {
    // The address of a daemon, when there is one to measure with: before the library has threads.
    if (count > 1) overDaemon(arguments[1]);
    together();
}
