// What opening and closing mean for transports.
#include "transport/module.h"

#include "base/registry.h"
#include "transport/alarm_advisories.h"
#include "transport/parameters.h"
#include "transport/transport.h"

namespace quorl::transport {
namespace {

quorl_status start() noexcept {
    tellAlarms();
    return QUORL_OK;
}

void close() noexcept {
    registry::forEachOpen(QUORL_OBJECT_TRANSPORT, [](uint32_t id) { destroyTransport(id, false); });
}

}  // namespace

constinit const environment::Module module{
    .parameters = parameters::all, .start = start, .close = close, .stop = nullptr, .forget = nullptr};

}  // namespace quorl::transport
