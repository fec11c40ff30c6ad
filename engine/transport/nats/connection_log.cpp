// The fields of the advisories that tell of a connection's state.
#include "transport/nats/connection_log.h"

#include "transport/advisory.h"

namespace quorl::transport::nats {

void ConnectionLog::connected() noexcept {
    phase_.store("connected", std::memory_order_relaxed);
}

void ConnectionLog::away(const Away& report) noexcept {
    phase_.store("away", std::memory_order_relaxed);
    advise(Severity::warn, "daemon", "lost",
           {{"daemon", key_.daemon},
            {"service", key_.service},
            {"network", key_.network},
            {"reason", report.reason},
            {"unconfirmed", report.unconfirmed}});
}

void ConnectionLog::back(const Back& report) noexcept {
    phase_.store("connected", std::memory_order_relaxed);
    reconnects_ += 1;
    advise(Severity::info, "daemon", "back",
           {{"daemon", key_.daemon},
            {"service", key_.service},
            {"network", key_.network},
            {"seconds", report.seconds},
            {"sent", report.sent},
            {"lost", report.lost},
            {"unconfirmed", report.unconfirmed}});
}

}  // namespace quorl::transport::nats
