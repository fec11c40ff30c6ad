// What fault tolerance costs and how soon it takes over: the processor time of a member of a group of 100, with heartbeats of a
// second; and the time from the kill -9 of an active member until the next one is told to act.
#include "quorl/quorlft.h"

#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "network/processes.h"
#include "support/child.h"
#include "support/measure.h"
#include "support/quorl.h"

namespace {

using namespace std::chrono_literals;

constexpr int kGroup = 100;
constexpr std::chrono::duration<double> kTime = 10s;
constexpr double kActivation = 1;     // seconds, of the members that are killed
constexpr double kPromised = 110;     // per cent of it
constexpr double kPromisedCpu = 0.2;  // per cent of a processor for each member
constexpr double kHeartbeat = kActivation / 5;

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
    bench::report("ft", {"100_members.cpu_percent_each", bench::Better::lower}, percent() / kGroup, "promised",
                  kPromisedCpu);
}

// A member in a process of its own, which says when it is told to act.
class Member {
  public:
    Member(const std::string& daemon, quorl_u16 weight)
        : process_("a member", [&, weight] { run(*activeAt_, daemon, weight); }) {}

    // In nanoseconds of the monotonic clock.
    int64_t awaitActive() const {
        bench::Child::until("a member is active", [&] { return activeAt_->load() != 0; });
        return *activeAt_;
    }
    void kill() { process_.kill(); }

  private:
    [[noreturn]] static void run(std::atomic<int64_t>& activeAt, const std::string& daemon, quorl_u16 weight) {
        bench::need(quorl_Open(), "open");
        quorlTransport transport = 0;
        bench::need(quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()), "transport");
        const auto onAction = [](quorlftMember, const char*, quorlftAction action, void* closure) {
            if (action == QUORLFT_ACTIVATE) *static_cast<std::atomic<int64_t>*>(closure) = bench::nowNs();
        };
        quorlftMember member;
        bench::need(quorlftMember_Create(&member, QUORL_DEFAULT_QUEUE, onAction, transport, "bench", weight, 1,
                                         kHeartbeat, 2 * kHeartbeat, kActivation, &activeAt),
                    "join");
        for (;;) quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, -1);
    }

    const bench::Shared<std::atomic<int64_t>> activeAt_;  // 0: never
    bench::Child process_;
};

void takeOver(const std::string& daemon) {
    std::vector<double> percents;
    for (size_t round = 0; round < bench::rounds(); ++round) {
        Member active(daemon, 2);
        active.awaitActive();
        const Member standby(daemon, 1);
        std::this_thread::sleep_for(std::chrono::duration<double>(2 * kActivation));  // until it is ranked
        const int64_t killed = bench::nowNs();
        active.kill();
        percents.push_back(static_cast<double>(standby.awaitActive() - killed) / 1e9 / kActivation * 100);
    }
    bench::report("ft", {"take_over_after_kill.percent_of_activation_interval", bench::Better::lower},
                  bench::median(percents), "promised", kPromised);
}

void joinOver(const std::string& daemon, int members) {
    bench::need(quorl_Open(), "open");
    quorlTransport transport = 0;
    bench::need(quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()), "transport");
    join(transport, members);
}

// One of them in this process, the others in another.
void overDaemon(const std::string& daemon) {
    bench::Child others("the process of the other members", [&] {
        joinOver(daemon, kGroup - 1);
        for (;;) pause();
    });
    joinOver(daemon, 1);
    const double part = percent();
    bench::Child::check();
    bench::report("ft", {"100_members_over_a_daemon.cpu_percent_of_one", bench::Better::lower}, part, "promised",
                  kPromisedCpu);
    bench::need(quorl_Close(), "close");
}

}  // namespace

int main() {
    {
        // All forks before the library has threads.
        const bench::network::Server server;
        takeOver(server.url());
        overDaemon(server.url());
    }
    together();
}
