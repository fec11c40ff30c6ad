// The table of backends: the one place that knows all of them.
#include "transport/backends.h"

#include <algorithm>
#include <new>

#include "base/status.h"
#include "transport/embedded/bus.h"
#include "transport/nats/port.h"

namespace quorl::transport {
namespace {

struct Backend {
    std::string_view scheme;
    quorl_status (*open)(const Destination& to, std::unique_ptr<Carrier>* carrier);  // may throw std::bad_alloc
};

quorl_status openEmbedded(const Destination& to, std::unique_ptr<Carrier>* carrier) {
    *carrier = embedded::openPort(to.service, to.network);
    return QUORL_OK;
}

quorl_status openNats(const Destination& to, std::unique_ptr<Carrier>* carrier) {
    return nats::openPort(to.daemon, to.service, to.network, carrier);
}

// The last one takes what has another scheme, or none ("host:port"), and refuses what is no address.
constexpr Backend backends[] = {
    {"embedded", openEmbedded},
    {"tls", openNats},
    {"nats", openNats},
};

std::string_view schemeOf(std::string_view daemon) noexcept {
    return daemon.empty() ? "embedded" : daemon.substr(0, std::min(daemon.find("://"), daemon.size()));
}

}  // namespace

quorl_status openCarrier(const Destination& to, std::unique_ptr<Carrier>* carrier) noexcept {
    const std::string_view scheme = schemeOf(to.daemon);
    const Backend* backend = std::find_if(std::begin(backends), std::end(backends) - 1,
                                          [&](const Backend& one) { return one.scheme == scheme; });
    try {
        return backend->open(to, carrier);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a transport");
    }
}

}  // namespace quorl::transport
