// What opening and closing mean for connections to daemons.
#include "transport/nats/module.h"

#include "transport/nats/parameters.h"
#include "transport/nats/port.h"

namespace quorl::transport::nats {
namespace {

quorl_status begin() noexcept {
    start();
    return QUORL_OK;
}

}  // namespace

constinit const environment::Module module{
    .parameters = parameters::all, .start = begin, .close = nullptr, .stop = stop, .forget = nullptr};

}  // namespace quorl::transport::nats
