// Certified delivery among the modules of the library: its host, and its statistics.
#include "companion/module.h"

#include "certified/node.h"

namespace quorl::certified {
namespace {

constinit companion::Host theHost("quorl-certified", "quorl.certified");
constinit Figures theFigures;

void close() noexcept {
    theHost.stop();
}

void fill(companion::Statistics& statistics) noexcept {
    statistics.u32("transports", theFigures.transports)
        .u64("accepted", theFigures.accepted)
        .u64("delivered", theFigures.delivered)
        .u64("confirmed", theFigures.confirmed)
        .u64("dropped", theFigures.dropped);
}

constinit companion::Module module{
    .name = "certified", .close = close, .stopped = nullptr, .forget = nullptr, .statistics = fill};

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

}  // namespace quorl::certified
