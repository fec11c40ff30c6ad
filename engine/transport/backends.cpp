// The table of backends: the one place that knows all of them.
#include "transport/backends.h"

#include <algorithm>
#include <new>

#include "base/status.h"
#include "transport/embedded/bus.h"
#include "transport/nats/address.h"
#include "transport/nats/port.h"
#include "transport/parameters.h"

namespace quorl::transport {
namespace {

struct Backend {
    std::string_view scheme;
    quorl_status (*check)(std::string_view address) noexcept;
    quorl_status (*open)(const Destination& to, std::unique_ptr<Carrier>* carrier);  // may throw std::bad_alloc
};

quorl_status openEmbedded(const Destination& to, std::unique_ptr<Carrier>* carrier) {
    *carrier = embedded::openPort(to.service, to.network);
    return QUORL_OK;
}

quorl_status openNats(const Destination& to, std::unique_ptr<Carrier>* carrier) {
    return nats::openPort(to.daemon, to.service, to.network, carrier);
}

// The first is the bus of this process, whose address is empty. The last takes what has another scheme, or none ("host:port"),
// and refuses what is no address.
constexpr Backend backends[] = {
    {"", [](std::string_view) noexcept { return QUORL_OK; }, openEmbedded},
    {"tls", nats::checkAddress, openNats},
    {"nats", nats::checkAddress, openNats},
};

const Backend& backendFor(std::string_view daemon) noexcept {
    if (daemon.empty()) return backends[0];
    const size_t end = daemon.find("://");
    const std::string_view scheme = end != std::string_view::npos ? daemon.substr(0, end) : std::string_view();
    return *std::find_if(std::begin(backends) + 1, std::end(backends) - 1,
                         [&](const Backend& one) { return one.scheme == scheme; });
}

}  // namespace

quorl_status parameters::checkDaemon(std::string_view address) noexcept {
    return backendFor(address).check(address);
}

quorl_status openCarrier(const Destination& to, std::unique_ptr<Carrier>* carrier) noexcept {
    try {
        return backendFor(to.daemon).open(to, carrier);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a transport");
    }
}

}  // namespace quorl::transport
