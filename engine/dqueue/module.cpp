// Distributed queues among the modules of the library: their host, and their
// statistics.
#include "companion/module.h"

#include "dqueue/member.h"

namespace quorl::dqueue {
namespace {

constinit companion::Host theHost("quorl-dqueue", "quorl.dqueue");
constinit Figures theFigures;

void close() noexcept {
    theHost.stop();
}

void fill(companion::Statistics& statistics) noexcept {
    statistics.u32("members", theFigures.members)
        .u64("delivered", theFigures.delivered)
        .u64("completed", theFigures.completed)
        .u64("dropped", theFigures.dropped)
        .u64("dead_letters", theFigures.deadLetters);
}

constinit companion::Module module{
    .name = "dqueue", .close = close, .stopped = nullptr, .forget = nullptr, .statistics = fill};

}  // namespace

companion::Host& host() noexcept {
    return theHost;
}

Figures& figures() noexcept {
    return theFigures;
}

quorl_status useModule() noexcept {
    return companion::use(module);
}

}  // namespace quorl::dqueue
