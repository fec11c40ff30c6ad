// Trying many plans, and showing the shortest one that breaks a promise.
//
// QUORL_SEED replays one seed. QUORL_SIM_SECONDS sets how long each search takes; QUORL_SIM_PLANS how many plans it tries.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "sim/plan.h"

namespace quorl::sim {

struct Exploration {
    // The plan of a seed, and what a run of it broke: empty when every promise was kept.
    std::function<Plan(uint64_t seed)> draw;
    std::function<std::string(const Plan&)> run;
    std::function<std::string(const WorkStep&)> nameOfWork;
    uint32_t plans = 1000;    // tried unless the environment says otherwise
    uint32_t fixed = 0;       // tried whatever it says; 0: see plans
    uint32_t shrinks = 3000;  // runs spent on finding a shorter plan
};

struct Explored {
    uint64_t plans = 0;
    uint64_t failedSeed = 0;  // 0: none failed
    std::string broken;       // by the shrunk plan
    Plan shrunk;
    // What to show to whoever has to mend it: the seed, what was broken, and the shrunk plan as a table.
    std::string report;
    bool failed() const noexcept { return !broken.empty(); }
};

// Tries plans until one fails or enough were tried.
Explored explore(const Exploration& exploration);

}  // namespace quorl::sim
