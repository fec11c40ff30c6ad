// Fault-tolerance groups as guests of the simulated world: members that join, change, leave and die, and monitors.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "ftolerance/protocol/member.h"
#include "ftolerance/protocol/monitor.h"
#include "sim/explore.h"
#include "sim/ftolerance_checker.h"

namespace quorl::sim {

// Stands between a machine and the rest, to plant faults as if the machine had them. Each may be null.
struct GroupSeam {
    std::function<bool(ftolerance::Frame&)> sends;  // false: the frame does not go out
    std::function<bool(ftolerance::Frame&)> hears;  // false: it does not come in; of monitors too
    std::function<void(ftolerance::MemberNews&)> tells;
    std::function<void(ftolerance::MonitorOutput&)> counts;
};
// The seam of one life of that node's program, a member's or a monitor's.
using GroupSeamOf = std::function<GroupSeam(uint32_t node, bool monitor)>;

Plan drawGroup(uint64_t seed);
// What the members and monitors of a group broke of their promises; empty: nothing.
std::string runGroup(const Plan& plan, const GroupSeamOf& seamOf = {});
std::string nameOfGroupWork(const WorkStep& step);

// Over all runs so far.
struct GroupTotals {
    uint64_t events = 0;
    uint64_t lives = 0;
    uint64_t activations = 0;
    uint64_t deactivations = 0;
    uint64_t counts = 0;
    uint64_t sides = 0;  // that were looked at when they had come to rest
};
const GroupTotals& groupTotals();

}  // namespace quorl::sim
