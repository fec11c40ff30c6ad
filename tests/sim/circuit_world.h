// Circuits as guests of the simulated world: two ends that send, close and die, and what is promised of them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "sim/explore.h"
#include "transport/circuit/machine.h"

namespace quorl::sim {

// Stands between a machine and the rest, to plant faults as if the machine had them. Each may be null.
struct Seam {
    std::function<bool(transport::circuit::Outgoing&)> sends;  // false: the frame does not go out
    std::function<bool(transport::circuit::Frame&)> hears;     // false: it does not come in
    std::function<void(transport::circuit::News&)> tells;
};
// The seam of that node's end; made anew for each run.
using SeamOf = std::function<Seam(uint32_t node)>;

Plan drawCircuit(uint64_t seed);
// What the ends of a circuit between node 0, which accepts, and node 1 broke of their promises; empty: nothing.
std::string runCircuit(const Plan& plan, const SeamOf& seamOf = {});
std::string nameOfCircuitWork(const WorkStep& step);

// Over all runs so far.
struct CircuitTotals {
    uint64_t accepted = 0;
    uint64_t delivered = 0;
    uint64_t told = 0;  // accepted, not delivered, and told as lost
    uint64_t circuitsLost = 0;
    uint64_t kills = 0;
    uint64_t events = 0;
};
const CircuitTotals& circuitTotals();

}  // namespace quorl::sim
