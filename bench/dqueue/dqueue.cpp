// Tasks through one scheduler to four worker processes over a nats-server, beside what the server offers for that; and how long
// the queue stands still when its scheduler is killed.
#include "dqueue/sides.h"

#include <list>
#include <vector>

#include "network/processes.h"
#include "support/child.h"
#include "support/measure.h"

namespace {

using namespace bench;
using namespace bench::dqueue;

std::vector<double> run(const Side& side, const std::string& url) {
    const Shared<Run> shared;
    const std::string name = side.name;
    if (side.prepare != nullptr) Child("who prepares for " + name, [&] { side.prepare(url); }).await();
    std::list<Child> working;
    for (int i = 0; i < workers; ++i)
        working.emplace_back("worker " + std::to_string(i) + " of " + name, [&, i] { side.work(*shared, i, url); });
    Child submitter("the sender of " + name, [&] { shared->rate = side.submit(*shared, url); });
    submitter.await();
    return {shared->rate};
}

std::vector<double> takeOverOnce(const std::string& url, double activation) {
    const Shared<TakeOver> shared;
    Child scheduler("the scheduler", [&] { schedule(*shared, url, activation); });
    Child::until("the scheduler is there", [&] { return shared->scheduled.load(); });
    Child next("the next scheduler", [&] { takeOver(*shared, url, activation); });
    Child::until("a task was done", [&] { return shared->settled.load(); });
    scheduler.kill();
    shared->killed = nowNs();
    next.await();
    return {shared->seconds / activation};
}

}  // namespace

int main() {
    const network::Server server(true);
    const auto contender = [&](const Side& side) {
        return Contender{side.name, [&] { return run(side, server.url()); }};
    };
    compare("dqueue", {{"four_workers.256B.tasks_per_s", Better::higher}}, contender(quorlSide),
            {contender(natsGroupSide), contender(jetStreamSide)});
    // In activation intervals; the next scheduler is to be there within one and a half.
    compare("dqueue", {{"take_over.activations", Better::lower}},
            {"quorl", [&] { return takeOverOnce(server.url(), 0.5); }}, {});
}
