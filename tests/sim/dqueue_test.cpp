// A distributed queue in a simulated world: what it promises.
#include <gtest/gtest.h>

#include <cstdio>

#include "sim/dqueue_world.h"

namespace quorl::sim {
namespace {

TEST(Queue, keeps_its_promises_in_every_schedule) {
    const Explored explored =
        explore({drawQueue, [](const Plan& plan) { return runQueue(plan); }, nameOfQueueWork, 600});
    const QueueRuns& runs = queueRuns();
    const auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    std::printf(
        "%llu schedules, %llu events, %llu lives, %llu reigns: accepted %llu, completed %llu, dead letters %llu, lost "
        "%llu, "
        "given again %llu, settled twice: complete time %llu, crash %llu, partition %llu, unexplained %llu; plain "
        "%llu; shares in %llu, off by %.1f tasks at most; "
        "at most %llu bytes\n",
        number(explored.plans), number(runs.events), number(runs.lives), number(runs.reigns), number(runs.accepted),
        number(runs.completed), number(runs.deadLetters), number(runs.lost), number(runs.givenAgain),
        number(runs.twiceExpired), number(runs.twiceCrashed), number(runs.twiceCutOff), number(runs.twiceUnexplained),
        number(runs.plain), number(runs.shared), runs.furthestFromShare, number(runs.highestMemory));
    EXPECT_FALSE(explored.failed()) << explored.report;
}

}  // namespace
}  // namespace quorl::sim
