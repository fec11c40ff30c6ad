// Tasks through one scheduler to four worker processes over a nats-server, beside what the server offers for that; and how long
// the queue stands still when its scheduler is killed.
#include "dqueue/sides.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <new>
#include <vector>

#include "network/processes.h"
#include "support/measure.h"

namespace {

using namespace bench;
using namespace bench::dqueue;

template <class F>
pid_t spawn(F&& body) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(0);
    }
    return child;
}

void await(pid_t process) {
    int status = 0;
    if (waitpid(process, &status, 0) != process || status != 0) fail("a process of the run has failed");
}

// The parent has no threads when it forks.
std::vector<double> run(const Side& side, const std::string& url) {
    void* memory =
        mmap(nullptr, sizeof(Run) + sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) fail("no memory for a run");
    Run& shared = *new (memory) Run();
    auto* rate = reinterpret_cast<double*>(static_cast<char*>(memory) + sizeof(Run));
    if (side.prepare != nullptr) await(spawn([&] { side.prepare(url); }));
    std::vector<pid_t> working;
    for (int i = 0; i < workers; ++i) working.push_back(spawn([&] { side.work(shared, i, url); }));
    await(spawn([&] { *rate = side.submit(shared, url); }));
    shared.over = true;
    for (const pid_t each : working) {
        kill(each, SIGKILL);
        waitpid(each, nullptr, 0);
    }
    const double result = *rate;
    munmap(memory, sizeof(Run) + sizeof(double));
    return {result};
}

std::vector<double> takeOverOnce(const std::string& url, double activation) {
    void* memory = mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) fail("no memory for a run");
    auto* seconds = static_cast<double*>(memory);
    await(spawn([&] { *seconds = takeOver(url, activation); }));
    const double result = *seconds / activation;
    munmap(memory, sizeof(double));
    return {result};
}

}  // namespace

int main() {
    const network::Server server(true);
    const auto contender = [&](const char* name, const Side& side) {
        return Contender{name, [&] { return run(side, server.url()); }};
    };
    compare("dqueue", {{"four_workers.256B.tasks_per_s", Better::higher}}, contender("quorl", quorlSide),
            {contender("nats-queue-group", natsGroupSide), contender("jetstream-work-queue", jetStreamSide)});
    // In activation intervals; the next scheduler is to be there within one and a half.
    compare("dqueue", {{"take_over.activations", Better::lower}},
            {"quorl", [&] { return takeOverOnce(server.url(), 0.5); }}, {});
}
