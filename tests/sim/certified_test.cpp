// Certified delivery in a simulated world: what it promises, and that the search finds what breaks it.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "sim/certified_world.h"

namespace quorl::sim {
namespace {

TEST(Certified, keeps_its_promises_in_every_schedule) {
    const Explored explored =
        explore({drawCertified, [](const Plan& plan) { return runCertified(plan); }, nameOfCertifiedWork, 1500});
    const CertifiedRuns& runs = certifiedRuns();
    std::printf(
        "%llu schedules, %llu events, %llu kills: accepted %llu, confirmed %llu, lost %llu, duplicated %llu, "
        "recovered %llu, expired %llu, plain %llu\n",
        static_cast<unsigned long long>(explored.plans), static_cast<unsigned long long>(runs.events),
        static_cast<unsigned long long>(runs.kills), static_cast<unsigned long long>(runs.accepted),
        static_cast<unsigned long long>(runs.confirmed), static_cast<unsigned long long>(runs.lost),
        static_cast<unsigned long long>(runs.duplicated), static_cast<unsigned long long>(runs.recovered),
        static_cast<unsigned long long>(runs.expired), static_cast<unsigned long long>(runs.plain));
    EXPECT_FALSE(explored.failed()) << explored.report;
}

}  // namespace
}  // namespace quorl::sim
