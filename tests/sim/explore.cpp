// The search over seeds.
#include "sim/explore.h"

#include <chrono>
#include <cstdlib>
#include <optional>

namespace quorl::sim {
namespace {

std::optional<uint64_t> fromEnvironment(const char* name) {
    const char* set = std::getenv(name);
    if (set == nullptr || *set == '\0') return std::nullopt;
    return std::strtoull(set, nullptr, 10);
}

}  // namespace

Explored explore(const Exploration& exploration) {
    Explored result;
    const auto replay = fromEnvironment("QUORL_SEED");
    const auto seconds = exploration.fixed != 0 ? std::nullopt : fromEnvironment("QUORL_SIM_SECONDS");
    const uint64_t most = replay ? 1
                          : exploration.fixed != 0
                              ? exploration.fixed
                              : fromEnvironment("QUORL_SIM_PLANS").value_or(seconds ? UINT64_MAX : exploration.plans);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds.value_or(0));
    for (uint64_t i = 0; i < most; ++i) {
        if (seconds && std::chrono::steady_clock::now() >= end) break;
        const uint64_t seed = replay.value_or(mix(i) | 1);
        const Plan plan = exploration.draw(seed);
        ++result.plans;
        const std::string broken = exploration.run(plan);
        if (broken.empty()) continue;
        result.failedSeed = seed;
        result.shrunk = shrink(
            plan, [&](const Plan& less) { return !exploration.run(less).empty(); }, exploration.shrinks);
        result.broken = exploration.run(result.shrunk);
        result.report = "QUORL_SEED=" + std::to_string(seed) + " after " + std::to_string(result.plans) +
                        " plans: " + broken + "\nshrunk: " + result.broken + '\n' +
                        table(result.shrunk, exploration.nameOfWork);
        return result;
    }
    return result;
}

}  // namespace quorl::sim
