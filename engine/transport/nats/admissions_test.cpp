// Which subscriptions were refused, decided from complaints and probes alone.
#include "transport/nats/admissions.h"

#include <gtest/gtest.h>

#include <memory>

#include "transport/nats/subscription.h"

namespace quorl::transport::nats {
namespace {

using Patterns = std::vector<std::string>;

class AdmissionsTest : public testing::Test {
  protected:
    Subscription& make(const std::string& pattern) {
        return *made_.emplace_back(std::make_unique<Subscription>(inbound_, pattern));
    }
    // Asks behind the last probe.
    Subscription& ask(const std::string& pattern) {
        Subscription& one = make(pattern);
        admissions_.asked(one, probe_);
        return one;
    }
    void probeReturns() { admissions_.returned(++probe_, now_); }
    Patterns refusedNow() { return admissions_.takeNews(100).refused; }

    Inbound inbound_{"quorl.default.default."};
    std::vector<std::unique_ptr<Subscription>> made_;
    Admissions admissions_;
    uint64_t probe_ = 1;
    int64_t now_ = 1000;
};

TEST_F(AdmissionsTest, theLastOnesAreThoseThatWereTooMany) {
    for (const char* pattern : {"a", "b", "c", "d"}) ask(pattern);
    EXPECT_FALSE(admissions_.wantsProbe(probe_)) << "nobody complains";
    admissions_.full();
    admissions_.full();
    EXPECT_TRUE(admissions_.undecided());
    EXPECT_TRUE(admissions_.wantsProbe(probe_));
    ask("behind");  // and taken, for all that is known
    EXPECT_FALSE(admissions_.hasNews());
    admissions_.returned(probe_ + 1, now_);
    EXPECT_FALSE(admissions_.undecided());
    EXPECT_EQ(refusedNow(), (Patterns{"d", "behind"}));
    EXPECT_EQ(admissions_.refused(), 2u);
}

TEST_F(AdmissionsTest, aProbeDecidesOnlyOnWhatWasAskedBeforeIt) {
    ask("a");
    admissions_.full();
    ++probe_;  // sent
    Subscription& behind = ask("b");
    admissions_.returned(probe_, now_);
    EXPECT_EQ(refusedNow(), Patterns{"a"});
    EXPECT_FALSE(behind.refused);
    admissions_.full();
    probeReturns();
    EXPECT_EQ(refusedNow(), Patterns{"b"});
}

TEST_F(AdmissionsTest, whereOneWasTakenBackBetweenAllAreInDoubt) {
    Subscription& old = ask("old");
    probeReturns();
    ask("a");
    admissions_.withdrawn(old);
    ask("b");
    admissions_.full();
    probeReturns();
    EXPECT_EQ(refusedNow(), (Patterns{"a", "b"}));
    int doubtful = 0;
    while (admissions_.takeDoubtful() != nullptr) ++doubtful;
    EXPECT_EQ(doubtful, 2) << "the daemon may have one of them";
}

TEST_F(AdmissionsTest, asksAgainOneAtATimeAndAtGrowingPauses) {
    Subscription& a = ask("a");
    Subscription& b = ask("b");
    admissions_.full();
    admissions_.full();
    probeReturns();
    refusedNow();
    EXPECT_EQ(admissions_.takeDue(now_), nullptr);
    int64_t pause = Admissions::firstPause;
    for (Subscription* due : {&a, &b, &a, &b, &a, &b, &a, &b, &a}) {
        EXPECT_EQ(admissions_.nextDue(), now_ + pause);
        EXPECT_EQ(admissions_.takeDue(now_ + pause - 1), nullptr);
        now_ += pause;
        ASSERT_EQ(admissions_.takeDue(now_), due);
        admissions_.asked(*due, probe_);
        EXPECT_EQ(admissions_.takeDue(now_ + Admissions::longestPause), nullptr) << "an answer is waited for";
        EXPECT_TRUE(admissions_.wantsProbe(probe_));
        EXPECT_EQ(admissions_.refused(), 2u);
        admissions_.full();
        probeReturns();
        EXPECT_FALSE(admissions_.hasNews()) << "it was told";
        pause = std::min(2 * pause, Admissions::longestPause);
    }
    // Another one goes: at once.
    Subscription& other = ask("other");
    probeReturns();
    admissions_.withdrawn(other);
    Subscription* due = admissions_.takeDue(now_);
    ASSERT_EQ(due, &b);
    admissions_.asked(b, probe_);
    probeReturns();
    EXPECT_EQ(admissions_.refused(), 1u);
    const Admissions::News news = admissions_.takeNews(100);
    EXPECT_EQ(news.taken, Patterns{"b"});
    EXPECT_EQ(news.refusedCount, 0u);
    EXPECT_EQ(admissions_.takeDue(now_), &a) << "where one is taken the next may be";
}

TEST_F(AdmissionsTest, aSessionLaterWhatIsRefusedAgainIsNotToldAgain) {
    Subscription& a = ask("a");
    Subscription& b = ask("b");
    admissions_.denied(a, now_);
    admissions_.denied(b, now_);
    EXPECT_EQ(refusedNow(), (Patterns{"a", "b"}));
    admissions_.restart();
    admissions_.asked(a, probe_);
    admissions_.asked(b, probe_);
    admissions_.denied(a, now_);
    probeReturns();
    const Admissions::News news = admissions_.takeNews(100);
    EXPECT_TRUE(news.refused.empty());
    EXPECT_EQ(news.taken, Patterns{"b"});
    EXPECT_EQ(admissions_.refused(), 1u);
    admissions_.withdrawn(a);
    EXPECT_EQ(admissions_.refused(), 0u);
    EXPECT_EQ(admissions_.nextDue(), INT64_MAX);
}

TEST_F(AdmissionsTest, namesNoMoreThanIsAskedFor) {
    for (int i = 0; i < 10; ++i) {
        ask("a." + std::to_string(i));
        admissions_.full();
    }
    probeReturns();
    const Admissions::News news = admissions_.takeNews(3);
    EXPECT_EQ(news.refused, (Patterns{"a.0", "a.1", "a.2"}));
    EXPECT_EQ(news.refusedCount, 10u);
    EXPECT_FALSE(admissions_.hasNews());
}

}  // namespace
}  // namespace quorl::transport::nats
