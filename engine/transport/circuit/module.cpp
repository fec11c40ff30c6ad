// What opening and closing mean for circuits.
#include "transport/circuit/module.h"

#include "transport/circuit/circuit.h"
#include "transport/circuit/parameters.h"
#include "transport/transport.h"

namespace quorl::transport::circuit {
namespace {

constinit ClosingWatch watch{parentCloses, parentClosed, nullptr};

quorl_status start() noexcept {
    watchClosing(watch);
    return QUORL_OK;
}

}  // namespace

constinit const environment::Module module{
    .parameters = parameters::all, .start = start, .close = stop, .stop = nullptr, .forget = nullptr};

}  // namespace quorl::transport::circuit
