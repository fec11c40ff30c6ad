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

struct Scheme {
    std::string_view name;
    quorl_status (*check)(std::string_view address) noexcept;
    quorl_status (*open)(const Destination& to, std::unique_ptr<Backend>* backend);  // may throw std::bad_alloc
};

quorl_status openEmbedded(const Destination& to, std::unique_ptr<Backend>* backend) {
    *backend = embedded::openPort(to.service, to.network);
    return QUORL_OK;
}

quorl_status openNats(const Destination& to, std::unique_ptr<Backend>* backend) {
    return nats::openPort(to.daemon, to.service, to.network, backend);
}

// The first is the bus of this process, whose address is empty. The last takes what has another scheme, or none ("host:port"),
// and refuses what is no address.
constexpr Scheme schemes[] = {
    {"", [](std::string_view) noexcept { return QUORL_OK; }, openEmbedded},
    {"tls", nats::checkAddress, openNats},
    {"nats", nats::checkAddress, openNats},
};

const Scheme& schemeOf(std::string_view daemon) noexcept {
    if (daemon.empty()) return schemes[0];
    const size_t end = daemon.find("://");
    const std::string_view name = end != std::string_view::npos ? daemon.substr(0, end) : std::string_view();
    return *std::find_if(std::begin(schemes) + 1, std::end(schemes) - 1,
                         [&](const Scheme& one) { return one.name == name; });
}

}  // namespace

quorl_status parameters::checkDaemon(std::string_view address) noexcept {
    return schemeOf(address).check(address);
}

quorl_status openBackend(const Destination& to, std::unique_ptr<Backend>* backend) noexcept {
    try {
        return schemeOf(to.daemon).open(to, backend);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a transport");
    }
}

}  // namespace quorl::transport
