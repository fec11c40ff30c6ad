#include "transport/router.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "event/alarm.h"
#include "transport/local.h"

namespace quorl::transport {
namespace {

// Listeners with a queue of their own each, so that its count tells how often they were reached.
struct Ear {
    explicit Ear(const std::string& pattern, const std::string& share = {}) {
        EXPECT_TRUE(queue.entries.prepare());
        Lock front(queue.front.lock);
        Lock back(queue.back.lock);
        event::setThresholds(queue);
        listener.subject = pattern;
        listener.queue = &queue;
        if (!share.empty()) listener.share = std::make_shared<Share>(share);
    }
    // As a listener is that is being destroyed, and that a sender still finds.
    void close() {
        Lock front(queue.front.lock);
        Lock back(queue.back.lock);
        listener.back.closed = true;
    }
    uint64_t heard() const { return queue.entries.backCount(); }
    event::Queue queue;
    Listener listener;
};

class RouterTest : public testing::Test {
  protected:
    void SetUp() override {
        thread = threadState();
        ASSERT_NE(thread, nullptr);
    }
    quorl_status route(Router& to, const std::string& subject) {
        quorlMsg message = nullptr;
        EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
        message::ContentRef plain;
        message::ContentRef content;
        EXPECT_EQ(message::snapshot(message, &plain), QUORL_OK);
        EXPECT_EQ(message::withSubjects(plain, subject, {}, &content), QUORL_OK);
        EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        ReadGuard guard(*thread);
        return to.route(*thread, std::move(content));
    }
    ThreadState* thread = nullptr;
    Router router;
};

TEST_F(RouterTest, reachesWhatMatchesAsOftenAsItIsSent) {
    Ear exact("a.b");
    Ear wild("a.*");
    Ear other("a.c");
    for (Ear* ear : {&exact, &wild, &other}) router.add(ear->listener);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(route(router, "a.b"), QUORL_OK);
    EXPECT_EQ(exact.heard(), 3u);
    EXPECT_EQ(wild.heard(), 3u);
    EXPECT_EQ(other.heard(), 0u);
}

// What a thread remembers of a subject ends with any change of the listeners.
TEST_F(RouterTest, forgetsWithEveryChange) {
    Ear first("a");
    Ear second("a");
    router.add(first.listener);
    EXPECT_EQ(route(router, "a"), QUORL_OK);
    router.add(second.listener);
    EXPECT_EQ(route(router, "a"), QUORL_OK);
    router.remove(first.listener);
    EXPECT_EQ(route(router, "a"), QUORL_OK);
    router.remove(second.listener);
    EXPECT_EQ(route(router, "a"), QUORL_OK);
    EXPECT_EQ(first.heard(), 2u);
    EXPECT_EQ(second.heard(), 2u);
}

// Nor is it taken for what another router has.
TEST_F(RouterTest, isApartFromOthers) {
    Ear here("a");
    Ear there("a");
    router.add(here.listener);
    {
        Router other;
        other.add(there.listener);
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(route(router, "a"), QUORL_OK);
            EXPECT_EQ(route(other, "a"), QUORL_OK);
        }
    }
    Router later;
    EXPECT_EQ(route(later, "a"), QUORL_OK);
    EXPECT_EQ(here.heard(), 2u);
    EXPECT_EQ(there.heard(), 2u);
}

TEST_F(RouterTest, reachesAnyNumber) {
    for (const size_t count : {4u, 5u, 300u, 1500u}) {
        Router many;
        std::vector<std::unique_ptr<Ear>> ears;
        for (size_t i = 0; i < count; ++i) {
            ears.push_back(std::make_unique<Ear>(i % 2 == 0 ? "x.y" : "x.>"));
            many.add(ears.back()->listener);
        }
        for (int i = 0; i < 2; ++i) EXPECT_EQ(route(many, "x.y"), QUORL_OK);
        for (const auto& ear : ears) ASSERT_EQ(ear->heard(), 2u);
    }
}

TEST_F(RouterTest, takesLongSubjectsToo) {
    const std::string subject = std::string(120, 'a') + "." + std::string(133, 'b');
    Ear ear(subject);
    router.add(ear.listener);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(route(router, subject), QUORL_OK);
    EXPECT_EQ(ear.heard(), 2u);
}

TEST_F(RouterTest, keepsTheSystemsSubjectsApart) {
    Ear all(">");
    Ear system("_QUORL.>");
    router.add(all.listener);
    router.add(system.listener);
    EXPECT_EQ(route(router, "_QUORL.x.y"), QUORL_OK);
    EXPECT_EQ(route(router, "x.y"), QUORL_OK);
    EXPECT_EQ(all.heard(), 1u);
    EXPECT_EQ(system.heard(), 1u);
    EXPECT_EQ(route(router, "_x.y"), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(route(router, "x.*"), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(route(router, ""), QUORL_INVALID_SUBJECT);
}

TEST_F(RouterTest, givesAnInboxToItsListenersAndTheFirstToItsRequest) {
    Ear ear("_INBOX.0123.1");
    router.add(ear.listener);
    Request request(*thread);
    request.inbox = "_INBOX.0123.1";
    router.add(request);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(route(router, "_INBOX.0123.1"), QUORL_OK);
    EXPECT_EQ(ear.heard(), 3u);
    EXPECT_TRUE(request.reply);
    EXPECT_EQ(request.state->load(), Request::replied);
    router.remove(request);
    router.remove(ear.listener);
    EXPECT_EQ(route(router, "_INBOX.0123.1"), QUORL_OK);
    EXPECT_EQ(ear.heard(), 3u);
}

TEST_F(RouterTest, givesAListenerWhatIsSentBelowItsInbox) {
    Ear below("_INBOX.0123.1.*");
    Ear exact("_INBOX.0123.1");
    Ear other("_INBOX.0123.2.*");
    for (Ear* ear : {&below, &exact, &other}) router.add(ear->listener);
    for (const char* subject :
         {"_INBOX.0123.1.7", "_INBOX.0123.1.x", "_INBOX.0123.1", "_INBOX.0123.1.7.8", "_INBOX.0123.3.7", "_INBOX.0123"})
        EXPECT_EQ(route(router, subject), QUORL_OK);
    EXPECT_EQ(route(router, "_INBOX.0123.1."), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(below.heard(), 2u);
    EXPECT_EQ(exact.heard(), 1u);
    EXPECT_EQ(other.heard(), 0u);
    router.remove(below.listener);
    EXPECT_EQ(route(router, "_INBOX.0123.1.7"), QUORL_OK);
    EXPECT_EQ(route(router, "_INBOX.0123.1"), QUORL_OK);
    EXPECT_EQ(below.heard(), 2u);
    EXPECT_EQ(exact.heard(), 2u);
}

TEST_F(RouterTest, givesOneOfThoseThatShareEachMessageInTurn) {
    Ear one("a.b", "crew");
    Ear two("a.*", "crew");
    Ear three(">", "crew");
    Ear other("a.b", "second");
    Ear alone("a.b");
    for (Ear* ear : {&one, &alone, &two, &other, &three}) router.add(ear->listener);
    for (int i = 0; i < 30; ++i) EXPECT_EQ(route(router, "a.b"), QUORL_OK);
    for (Ear* ear : {&one, &two, &three}) EXPECT_EQ(ear->heard(), 10u);
    EXPECT_EQ(other.heard(), 30u);
    EXPECT_EQ(alone.heard(), 30u);
    // Of those that match.
    for (int i = 0; i < 4; ++i) EXPECT_EQ(route(router, "a.c"), QUORL_OK);
    EXPECT_EQ(one.heard(), 10u);
    EXPECT_EQ(two.heard() + three.heard(), 24u);
    EXPECT_EQ(two.heard(), 12u);
    // And of those that are left.
    router.remove(two.listener);
    router.remove(three.listener);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(route(router, "a.b"), QUORL_OK);
    EXPECT_EQ(one.heard(), 14u);
}

// However the subjects alternate: the turn is the share's, not the subject's or the thread's.
TEST_F(RouterTest, takesTurnsOverAllSubjects) {
    Ear one(">", "crew");
    Ear two(">", "crew");
    Ear apart("x", "pair");
    Ear fourth("x", "pair");
    for (Ear* ear : {&one, &two, &apart, &fourth}) router.add(ear->listener);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(route(router, "x"), QUORL_OK);
        EXPECT_EQ(route(router, "y." + std::to_string(i)), QUORL_OK);
    }
    EXPECT_EQ(one.heard(), 20u);
    EXPECT_EQ(two.heard(), 20u);
    EXPECT_EQ(apart.heard(), 10u);
    EXPECT_EQ(fourth.heard(), 10u);
}

TEST_F(RouterTest, passesOverAMemberThatIsBeingDestroyed) {
    Ear one("a", "crew");
    Ear two("a", "crew");
    router.add(one.listener);
    router.add(two.listener);
    EXPECT_EQ(route(router, "a"), QUORL_OK);
    EXPECT_EQ(route(router, "a"), QUORL_OK);
    one.close();
    for (int i = 0; i < 10; ++i) EXPECT_EQ(route(router, "a"), QUORL_OK);
    EXPECT_EQ(one.heard(), 1u);
    EXPECT_EQ(two.heard(), 11u);
    two.close();
    EXPECT_EQ(route(router, "a"), QUORL_OK) << "nobody is left";
}

// Few members, many, more than are remembered; on subjects that are remembered and on one that is too long for that.
TEST_F(RouterTest, sharesAmongAnyNumber) {
    const std::string longSubject(200, 'x');
    for (const std::string& subject : {std::string("x"), longSubject}) {
        for (const size_t count : {2u, 5u, 300u, 1500u}) {
            Router many;
            std::vector<std::unique_ptr<Ear>> ears;
            for (size_t i = 0; i < count; ++i) {
                ears.push_back(std::make_unique<Ear>(subject, i % 2 == 0 ? "even" : "odd"));
                many.add(ears.back()->listener);
            }
            Ear alone(">");
            many.add(alone.listener);
            const size_t rounds = 2 * ((count + 1) / 2);
            for (size_t i = 0; i < rounds; ++i) ASSERT_EQ(route(many, subject), QUORL_OK);
            uint64_t heard[2] = {0, 0};
            for (size_t i = 0; i < count; ++i) {
                ASSERT_GE(ears[i]->heard(), 2u);
                heard[i % 2] += ears[i]->heard();
            }
            EXPECT_EQ(heard[0], rounds);
            EXPECT_EQ(heard[1], rounds);
            EXPECT_EQ(alone.heard(), rounds);
        }
    }
}

// A name that nobody shares any more is forgotten, and may be taken again.
TEST_F(RouterTest, forgetsANameWithItsLastMember) {
    Ear later("a", "crew");
    {
        Ear first("a", "crew");
        router.add(first.listener);
        EXPECT_EQ(route(router, "a"), QUORL_OK);
        router.remove(first.listener);
        EXPECT_EQ(first.listener.share.use_count(), 1);
    }
    router.add(later.listener);
    EXPECT_EQ(route(router, "a"), QUORL_OK);
    EXPECT_EQ(later.heard(), 1u);
}

TEST(Share, knowsItsNames) {
    for (const char* name : {"a", "crew-7", "$x/y", "%"}) EXPECT_TRUE(validShareName(name)) << name;
    for (const char* name : {"", "a b", "a.b", "a*", ">", "\t", "caf\xc3\xa9", "\x7f"})
        EXPECT_FALSE(validShareName(name)) << name;
    EXPECT_TRUE(validShareName(std::string(63, 'n')));
    EXPECT_FALSE(validShareName(std::string(64, 'n')));
}

TEST(Local, knowsWhatStaysInTheProcess) {
    for (const char* subject : {"_QUORL.INFO.a.b", "_QUORL.WARN.a.b", "_QUORL.ERROR.x", "_QUORL.STATS",
                                "_QUORL.LASTERROR", "_QUORL.INFO", "_QUORL.ASK.fault_tolerance.told"})
        EXPECT_TRUE(local::staysHere(subject)) << subject;
    for (const char* subject : {"_QUORL.INFORM.a", "_QUORL.CM.x", "_QUORL", "_INBOX.a", "a.INFO", "", "_QUORL.info.a"})
        EXPECT_FALSE(local::staysHere(subject)) << subject;
    for (const char* pattern : {"_QUORL.>", "_QUORL.*", "_QUORL.*.a.b", "_QUORL.WARN.>", "_QUORL.INFO.a"})
        EXPECT_TRUE(local::hearsThisProcessAlone(pattern)) << pattern;
    for (const char* pattern : {"_QUORL.CM.>", "_QUORL.CM.*", "a.>", "a.*", "*.*", ">", "_INBOX.a.1"})
        EXPECT_FALSE(local::hearsThisProcessAlone(pattern)) << pattern;
}

}  // namespace
}  // namespace quorl::transport
