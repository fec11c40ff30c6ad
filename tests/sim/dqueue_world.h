// Members of a distributed queue, and senders, as guests of the simulated world.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "certified/protocol/frame.h"
#include "dqueue/protocol/frame.h"
#include "dqueue/protocol/machine.h"
#include "sim/dqueue_checker.h"
#include "sim/explore.h"

namespace quorl::sim {

// Stands between a member's machine and the rest, to plant faults as if the machine had them. Each may be null. They are made for
// each life of a program.
struct QueueSeam {
    // False: it does not go out, or come in. The frame may be changed, and is written anew.
    std::function<bool(dqueue::Frame&)> sends;
    std::function<bool(dqueue::Frame&)> hears;
    std::function<void(dqueue::Output&)> tells;
    std::function<bool(ftolerance::Frame&)> sendsElection;
    std::function<void(dqueue::Settings&)> settings;
    std::function<bool(certified::Frame&)> hearsCertified;  // what comes to an ear
    std::function<bool(certified::Frame&)> sendsCertified;
    bool completesEarly = false;  // a task is completed when it is given, not when the program says so
};
using QueueSeamOf = std::function<QueueSeam(uint32_t member)>;

Plan drawQueue(uint64_t seed);
// What was broken of the promises; empty: nothing.
std::string runQueue(const Plan& plan, const QueueSeamOf& seamOf = {});
std::string nameOfQueueWork(const WorkStep& step);

// Over all runs so far.
struct QueueRuns : QueueTotals {
    uint64_t runs = 0;
    uint64_t events = 0;
    uint64_t lives = 0;
    uint64_t highestMemory = 0;    // of one member, bytes
    uint64_t shared = 0;           // worlds in which shares were held against weights
    double furthestFromShare = 0;  // tasks
};
const QueueRuns& queueRuns();

}  // namespace quorl::sim
