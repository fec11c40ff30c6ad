// What will happen in a simulated world, decided before it begins: faults, the programs' work, and the network's rates.
//
// A plan is all that a run depends on, so that a run can be repeated exactly, and repeated with parts of the plan left
// out until only what matters for a failure remains.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "sim/random.h"

namespace quorl::sim {

// Nanoseconds since the world began, by the world's own clock.
using Time = int64_t;
inline constexpr Time microsecond = 1'000;
inline constexpr Time millisecond = 1'000'000;
inline constexpr Time second = 1'000'000'000;
inline constexpr Time never = INT64_MAX;

enum class Fault : uint8_t {
    cut,      // messages from node to peer are lost, for a time
    split,    // messages between node and peer are lost both ways, for a time
    isolate,  // node hears nobody and nobody hears it, for a time
    pause,    // node stands still; what comes for it waits
    kill,     // node's program ends and starts again after a time; its disk keeps what was written
    powerLoss,  // the same, but the disk keeps what was synced, and of the rest a first part, and the monotonic clock starts anew
    killAt,     // node's program ends inside its number-th write or send from now on, and starts again after a time
    wallClock,  // node's wall clock jumps by an amount, forwards or back
    diskFull,   // node's writes fail, for a time
    noRoom,     // node's sends find no room on their way, for a time
    lose,  // messages of one class from node are lost on the way to peer, or to all when that is node itself, for a time
    hold,  // they arrive when it is over, behind others that were sent later
};
inline constexpr uint32_t faultKinds = 12;
// Those that need nothing but a network.
inline constexpr uint32_t ordinaryFaults = (1u << static_cast<uint32_t>(Fault::lose)) - 1;

struct FaultStep {
    Time at = 0;
    Fault fault = Fault::cut;
    uint32_t node = 0;
    uint32_t peer = 0;  // of cut and split, lose and hold
    Time lasts = 0;     // until it is over; not of wallClock
    int64_t amount =
        0;  // of wallClock: nanoseconds; of killAt: which write or send, from 1; of lose and hold: which class
};

// Something that the test lets a node's program do; kind and argument are the test's own.
struct WorkStep {
    Time at = 0;
    uint32_t node = 0;
    uint32_t kind = 0;
    uint64_t argument = 0;
};

// What the network does to messages, and the clocks to time.
struct Rates {
    uint32_t loss = 0;         // of a million messages
    uint32_t duplication = 0;  // of a million messages
    Time shortest = millisecond;
    Time longest = millisecond;
    bool inOrder = false;  // between two nodes
    int32_t drift = 0;     // of the nodes' clocks, parts per million at most, either way
};

struct Plan {
    uint64_t seed = 0;
    uint32_t nodes = 2;
    Rates rates;
    std::vector<FaultStep> faults;
    std::vector<WorkStep> work;
    // From then on nothing is lost or broken any more between these nodes, and the others are cut off for good. A bit for
    // each node.
    Time healedAt = 0;
    uint64_t healed = ~uint64_t{0};
};

// What a test lets drawFaults choose from.
struct FaultChoice {
    uint32_t most = 8;        // faults
    Time span = 10 * second;  // they begin within
    Time longest = 5 * second;
    uint32_t kinds = ordinaryFaults;  // a bit for each; not lose and hold
};

// Rates and faults at random. Each plan draws which kinds there are in it at all and how hard the network is, or everything
// would average out and no plan be extreme.
Rates drawRates(Random& random);
std::vector<FaultStep> drawFaults(Random& random, uint32_t nodes, const FaultChoice& choice);
// A few that meet messages of one class alone, lose or hold; classes from 1 to that one. The others get through meanwhile, which no
// fault of the network as a whole brings about.
std::vector<FaultStep> drawSelective(Random& random, uint32_t nodes, uint32_t classes, Time span, Time longest);

// The smallest plan that can be found for which fails is still true, by leaving parts out. fails is asked at most tries
// times; it is true for plan itself.
Plan shrink(Plan plan, const std::function<bool(const Plan&)>& fails, uint32_t tries = 3000);

// The plan as a table, a line a step in the order of time. nameOfWork names a WorkStep's kind.
std::string table(const Plan& plan, const std::function<std::string(const WorkStep&)>& nameOfWork);

}  // namespace quorl::sim
