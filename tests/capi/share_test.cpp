// Listeners that share a name: which names, which subjects, and what becomes of what waits.
#include <algorithm>

#include "support.h"

namespace quorltest {
namespace {

class Sharing : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        transport = newTransport();
        queue = newQueue();
    }
    quorl_status create(quorlEvent* event, const char* subject, const char* name, const void* closure) const {
        return quorlEvent_CreateSharedListener(event, queue, onNumber, transport, subject, name, closure);
    }
    quorlEvent share(const std::string& subject, const char* name, const void* closure) const {
        quorlEvent event = 0;
        EXPECT_EQ(create(&event, subject.c_str(), name, closure), QUORL_OK) << quorl_LastErrorText();
        return event;
    }
    quorlTransport transport = 0;
    quorlQueue queue = 0;
};

TEST_F(Sharing, checksNamesAndSubjects) {
    quorlEvent event = 4711;
    EXPECT_EQ(create(nullptr, "a", "crew", nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(create(&event, "a", nullptr, nullptr), QUORL_INVALID_ARG);
    for (const char* name : {"", "two words", "a.b", "*", ">", "x*", "tab\t", "caf\xc3\xa9"}) {
        EXPECT_EQ(create(&event, "a", name, nullptr), QUORL_INVALID_NAME) << name;
        EXPECT_STRNE(quorl_LastErrorText(), "") << name;
    }
    EXPECT_EQ(create(&event, "a", std::string(64, 'n').c_str(), nullptr), QUORL_INVALID_NAME);
    EXPECT_EQ(create(&event, "a", std::string(100'000, 'n').c_str(), nullptr), QUORL_INVALID_NAME);
    char inbox[QUORL_SUBJECT_MAX + 1];
    ASSERT_EQ(quorlTransport_CreateInbox(transport, inbox, sizeof inbox), QUORL_OK);
    for (const char* subject :
         {static_cast<const char*>(inbox), "_QUORL.>", "_QUORL.SHARE.other.a", "_x", "", "a..b", "a.>.b"})
        EXPECT_EQ(create(&event, subject, "crew", nullptr), QUORL_INVALID_SUBJECT) << subject;
    EXPECT_EQ(create(&event, nullptr, "crew", nullptr), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(create(&event, std::string(255, 'a').c_str(), "crew", nullptr), QUORL_INVALID_SUBJECT);
    EXPECT_EQ(quorlEvent_CreateSharedListener(&event, queue, nullptr, transport, "a", "crew", nullptr),
              QUORL_INVALID_CALLBACK);
    EXPECT_EQ(quorlEvent_CreateSharedListener(&event, 99, onNumber, transport, "a", "crew", nullptr),
              QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlEvent_CreateSharedListener(&event, queue, onNumber, 99, "a", "crew", nullptr),
              QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(event, 4711u) << "written only when it succeeds";
    Numbers numbers;
    EXPECT_EQ(create(&event, std::string(254, 'a').c_str(), std::string(63, '~').c_str(), &numbers), QUORL_OK);
    EXPECT_EQ(sendNumber(transport, std::string(254, 'a').c_str(), 1), QUORL_OK);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_EQ(numbers.came, std::vector<int>{1});
}

// What a binding does, which has no native of its own for it.
TEST_F(Sharing, isAskedForByASubjectToo) {
    const auto create = [&](const std::string& subject, quorlEvent* event, const void* closure = nullptr) {
        return quorlEvent_CreateListener(event, queue, onNumber, transport, subject.c_str(), closure);
    };
    quorlEvent event = 0;
    const std::string prefix = QUORL_SHARE_PREFIX;
    for (const char* rest : {"", ".", ".a", "two words.a", "*.a", ">"})
        EXPECT_EQ(create(prefix + rest, &event), QUORL_INVALID_NAME) << rest;
    for (const char* rest : {"crew", "crew.", "crew..a", "crew._QUORL.x", "crew._INBOX.a.1"})
        EXPECT_EQ(create(prefix + rest, &event), QUORL_INVALID_SUBJECT) << rest;
    EXPECT_EQ(create(prefix + "crew." + std::string(255, 'a'), &event), QUORL_INVALID_SUBJECT);

    // One share, however its members came to it.
    const std::string subject(254, 'a');
    Numbers plain, named, inBatches;
    ASSERT_EQ(create(prefix + std::string(63, 'n') + "." + subject, &event, &plain), QUORL_OK) << quorl_LastErrorText();
    share(">", std::string(63, 'n').c_str(), &named);
    static Numbers* batches = nullptr;
    batches = &inBatches;
    const auto onBatch = [](quorlMsg* messages, quorl_u32 size) {
        for (quorl_u32 i = 0; i < size; ++i) batches->came.push_back(numberOf(messages[i]));
    };
    ASSERT_EQ(
        quorlEvent_CreateGroupVectorListener(&event, queue, onBatch, transport,
                                             (prefix + std::string(63, 'n') + "." + subject).c_str(), nullptr, nullptr),
        QUORL_OK);
    for (int i = 0; i < 30; ++i) ASSERT_EQ(sendNumber(transport, subject.c_str(), i), QUORL_OK);
    EXPECT_GT(drain(queue), 20);
    for (const Numbers* each : {&plain, &named, &inBatches}) EXPECT_EQ(each->came.size(), 10u);
}

TEST_F(Sharing, whatWaitsForAMemberThatGoesIsLost) {
    Numbers gone, stays;
    const quorlEvent first = share("work.*", "crew", &gone);
    share("work.>", "crew", &stays);
    for (int i = 0; i < 10; ++i) sendNumber(transport, "work.x", i);
    EXPECT_EQ(countOf(queue), 10u);
    EXPECT_EQ(quorlEvent_DestroyEx(first, nullptr), QUORL_OK);
    EXPECT_EQ(countOf(queue), 5u);
    for (int i = 10; i < 14; ++i) sendNumber(transport, "work.x", i);
    EXPECT_EQ(drain(queue), 9);
    EXPECT_TRUE(gone.came.empty());
    EXPECT_EQ(stays.came.size(), 9u);
    EXPECT_TRUE(std::is_sorted(stays.came.begin(), stays.came.end()));
}

TEST_F(Sharing, isApartOnEachBus) {
    const quorlTransport elsewhere = newTransport("another");
    Numbers here, there;
    share("a", "crew", &here);
    quorlEvent event = 0;
    ASSERT_EQ(quorlEvent_CreateSharedListener(&event, queue, onNumber, elsewhere, "a", "crew", &there), QUORL_OK);
    for (int i = 0; i < 4; ++i) {
        sendNumber(transport, "a", i);
        sendNumber(elsewhere, "a", i);
    }
    EXPECT_EQ(drain(queue), 8);
    EXPECT_EQ(here.came.size(), 4u);
    EXPECT_EQ(there.came.size(), 4u);
}

// A request is answered once.
TEST_F(Sharing, aRequestComesToOne) {
    Counter answers;
    const auto answer = [](quorlEvent, quorlMsg question, void* closure) {
        static_cast<Counter*>(closure)->add();
        quorlMsg reply = newMessage("replaced", numberOf(question));
        EXPECT_EQ(quorlTransport_SendReply(transportsMade.all().front(), reply, question), QUORL_OK);
        quorlMsg_Destroy(reply);
    };
    quorlEvent event = 0;
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(quorlEvent_CreateSharedListener(&event, queue, answer, transport, "ask", "crew", &answers), QUORL_OK);
    Threads threads;
    threads.start([&] {
        while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
        }
    });
    for (int i = 0; i < 9; ++i) {
        quorlMsg question = newMessage("ask", i);
        quorlMsg reply = nullptr;
        ASSERT_EQ(quorlTransport_SendRequest(transport, question, &reply, limit), QUORL_OK);
        EXPECT_EQ(numberOf(reply), i);
        quorlMsg_Destroy(reply);
        quorlMsg_Destroy(question);
    }
    EXPECT_EQ(answers.value(), 9);
    quorlQueue_DestroyEx(queue, nullptr, nullptr);
}

// Members come and go while others send: what goes to a member that stays is never lost with one that goes.
TEST_F(Sharing, losesNothingToMembersThatComeAndGo) {
    Numbers stays;
    share("a", "crew", &stays);
    const quorlQueue others = newQueue();
    std::atomic<bool> over{false};
    std::atomic<int> taken{0};
    Threads threads;
    threads.start([&] {
        while (!over) {
            quorlEvent event = 0;
            ASSERT_EQ(quorlEvent_CreateSharedListener(
                          &event, others,
                          [](quorlEvent, quorlMsg, void* closure) { ++*static_cast<std::atomic<int>*>(closure); },
                          transport, "a", "crew", &taken),
                      QUORL_OK);
            while (quorlQueue_TimedDispatch(others, 0) == QUORL_OK) {
            }
            ASSERT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        }
    });
    constexpr int messages = 20'000;
    for (int i = 0; i < messages; ++i) ASSERT_EQ(sendNumber(transport, "a", i), QUORL_OK);
    over = true;
    threads.join();
    drain(queue);
    EXPECT_GE(static_cast<int>(stays.came.size()), messages / 2) << "it is passed over in its turn by nobody";
    EXPECT_LE(static_cast<int>(stays.came.size()) + taken, messages);
    EXPECT_TRUE(std::is_sorted(stays.came.begin(), stays.came.end()));
    EXPECT_EQ(std::adjacent_find(stays.came.begin(), stays.came.end()), stays.came.end());
}

}  // namespace
}  // namespace quorltest
