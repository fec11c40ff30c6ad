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

// What a sender without a ledger had promised may arrive when it has started again and knows nothing of it.
TEST(CertifiedChecker, holds_a_sender_to_what_it_has_promised_in_the_life_whose_state_it_has) {
    for (const bool ledger : {false, true}) {
        for (const bool again : {false, true}) {
            CertifiedChecker checker({{.ledger = ledger}, {.old = true}});
            checker.starts(0, false);
            checker.starts(1, false);
            checker.registered(0, 1, 0);
            checker.starts(0, false);
            if (again) checker.registered(0, 1, 0);
            checker.listening(1, 0, 0, 1);
            checker.sent({0, 0, 0}, 1, false);
            checker.accepted({0, 0, 0});
            EXPECT_EQ(checker.satisfied(), !ledger && !again);
            checker.finish();
            EXPECT_EQ(checker.totals().lost, ledger || again ? 1u : 0u);
        }
    }
}

}  // namespace
}  // namespace quorl::sim
