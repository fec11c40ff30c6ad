// What opening and closing mean for circuits.
#include "transport/circuit/module.h"

#include "transport/circuit/circuit.h"
#include "transport/circuit/parameters.h"
#include "transport/transport.h"

namespace quorl::transport::circuit {
namespace {

constinit EndingWatch watch{parentCloses, parentClosed, parentLost, nullptr};

quorl_status start() noexcept {
    watchEnding(watch);
    return QUORL_OK;
}

}  // namespace

constinit const environment::Module module{
    .parameters = parameters::all, .start = start, .close = stop, .stop = nullptr, .forget = nullptr};

}  // namespace quorl::transport::circuit
