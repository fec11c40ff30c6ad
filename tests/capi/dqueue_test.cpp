// Distributed queues through the C interface: every function, what each
// refuses, and what becomes of tasks.
#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <set>

#include "quorl/private.h"
#include "quorl/quorlcmq.h"
#include "support.h"

namespace quorltest {
namespace {

struct Wish {
    const char* name = "crew";
    quorl_u32 weight = 1;
    quorl_u32 tasks = 100;
    quorl_u16 schedulerWeight = 1;
    double heartbeat = 0.05;
    double activation = 0.2;
};

quorl_status tryToJoin(quorlcmTransport* made, quorlTransport transport, const Wish& wish) {
    return quorlcmTransport_CreateDistributedQueueEx(made, transport, wish.name, wish.weight, wish.tasks,
                                                     wish.schedulerWeight, wish.heartbeat, wish.activation);
}

quorlcmTransport join(quorlTransport transport, const Wish& wish = {}) {
    quorlcmTransport made = 0;
    EXPECT_EQ(tryToJoin(&made, transport, wish), QUORL_OK) << quorl_LastErrorText();
    return made;
}

// What came to a worker; of one dispatching thread.
struct Worked {
    std::vector<int> numbers;
    std::vector<quorl_u32> dqsn;  // 0: the task has none
    std::vector<quorlMsg> kept;   // detached, when keep says so
    bool keep = false;
    ~Worked() {
        for (quorlMsg message : kept) quorlMsg_Destroy(message);
    }
    std::multiset<int> all() const { return {numbers.begin(), numbers.end()}; }
};

void onTask(quorlcmEvent, quorlMsg message, void* closure) {
    auto& to = *static_cast<Worked*>(closure);
    to.numbers.push_back(numberOf(message));
    quorl_u32 dqsn = 0;
    quorlMsg_GetU32Ex(message, "dqsn", &dqsn, 0);
    to.dqsn.push_back(dqsn);
    if (!to.keep) return;
    EXPECT_EQ(quorlMsg_Detach(message), QUORL_OK);
    to.kept.push_back(message);
}

std::multiset<int> upTo(int count) {
    std::multiset<int> numbers;
    for (int i = 0; i < count; ++i) numbers.insert(i);
    return numbers;
}

class DistributedQueue : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        transport = newTransport();
        queue = newQueue();
    }
    quorlcmEvent work(quorlcmTransport member, const char* subject, Worked* worked, quorlQueue on = 0) const {
        quorlcmEvent listener = 0;
        EXPECT_EQ(quorlcmEvent_CreateListener(&listener, on != 0 ? on : queue, onTask, member, subject, worked),
                  QUORL_OK)
            << quorl_LastErrorText();
        return listener;
    }
    // A sender whose tasks are kept until they are complete.
    quorlcmTransport sender(const char* queueName = "crew", const char* subject = "work.>") const {
        quorlcmTransport made = 0;
        EXPECT_EQ(quorlcmTransport_Create(&made, transport, "boss", QUORL_FALSE, nullptr, QUORL_FALSE, nullptr),
                  QUORL_OK)
            << quorl_LastErrorText();
        EXPECT_EQ(quorlcmTransport_AddListener(made, queueName, subject), QUORL_OK) << quorl_LastErrorText();
        return made;
    }
    static quorl_status submit(quorlcmTransport boss, int number, const char* subject = "work.x") {
        quorlMsg message = newMessage(subject, number);
        const quorl_status status = quorlcmTransport_Send(boss, message);
        quorlMsg_Destroy(message);
        return status;
    }
    // Dispatches until condition holds.
    template <class F>
    bool until(F&& condition) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) return false;
            quorlQueue_TimedDispatch(queue, 0.01);
        }
        return true;
    }
    // How the queue is, as its scheduler says; none: nobody answers yet.
    struct Status {
        bool answered = false;
        std::map<std::string, quorl_u64> numbers;
        size_t workers = 0;
    };
    Status ask(const char* queueName = "crew") const {
        Status status;
        quorlMsg question = newMessage((std::string("_QUORL.DQ.STATUS.") + queueName).c_str());
        quorlMsg answer = nullptr;
        if (quorlTransport_SendRequest(transport, question, &answer, 0.2) == QUORL_OK) {
            status.answered = true;
            for (const char* name :
                 {"members", "unassigned", "assigned", "completed", "reassigned", "dead_letters", "completed_twice"})
                EXPECT_EQ(quorlMsg_GetU64Ex(answer, name, &status.numbers[name], 0), QUORL_OK) << name;
            const quorlMsg* workers = nullptr;
            quorl_u32 count = 0;
            EXPECT_EQ(quorlMsg_GetMsgArrayEx(answer, "workers", &workers, &count, 0), QUORL_OK);
            status.workers = count;
            quorlMsg_Destroy(answer);
        }
        quorlMsg_Destroy(question);
        return status;
    }
    // The scheduler knows of so many workers.
    bool workersAre(size_t wanted) {
        return until([&] {
            const Status status = ask();
            return status.answered && status.workers == wanted;
        });
    }
    bool completedAre(quorl_u64 wanted) {
        return until([&] { return ask().numbers["completed"] >= wanted; });
    }
    static quorl_u32 unassigned(quorlcmTransport member) {
        quorl_u32 count = 0;
        EXPECT_EQ(quorlcmTransport_GetUnassignedMessageCount(member, &count), QUORL_OK) << quorl_LastErrorText();
        return count;
    }

    quorlTransport transport = 0;
    quorlQueue queue = 0;
};

// In a process that has opened nothing yet, which has no parameters either.
TEST(ClosedLibrary, hasNoDistributedQueues) {
    quorlcmTransport made = 4711;
    EXPECT_EQ(tryToJoin(nullptr, 1, {}), QUORL_INVALID_ARG);
    EXPECT_EQ(tryToJoin(&made, 1, {}), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(tryToJoin(&made, 1, {.name = nullptr, .weight = 0}), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlcmTransport_SetWorkerWeight(4711, 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlcmTransport_SetCompleteTime(4711, 1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlcmEvent_ReturnMsg(4711, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(made, 4711u);
}

TEST_F(DistributedQueue, refusesWhatIsOutOfRange) {
    quorlcmTransport made = 4711;
    EXPECT_EQ(tryToJoin(nullptr, transport, {}), QUORL_INVALID_ARG);
    EXPECT_EQ(tryToJoin(&made, 0, {}), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(tryToJoin(&made, 4711, {}), QUORL_INVALID_TRANSPORT);
    for (const char* name : {static_cast<const char*>(nullptr), "", "a.*", ">", "a..b", ".a", "_QUORL.x", "_x"})
        EXPECT_EQ(tryToJoin(&made, transport, {.name = name}), QUORL_INVALID_NAME) << (name != nullptr ? name : "null");
    EXPECT_EQ(tryToJoin(&made, transport, {.name = std::string(201, 'n').c_str()}), QUORL_INVALID_NAME);
    EXPECT_EQ(tryToJoin(&made, transport, {.name = std::string(100'000, 'n').c_str()}), QUORL_INVALID_NAME);
    for (const quorl_u32 weight : {0u, 1'000'001u, UINT32_MAX})
        EXPECT_EQ(tryToJoin(&made, transport, {.weight = weight}), QUORL_INVALID_ARG) << weight;
    for (const quorl_u32 tasks : {1'000'001u, UINT32_MAX})
        EXPECT_EQ(tryToJoin(&made, transport, {.tasks = tasks}), QUORL_INVALID_ARG) << tasks;
    EXPECT_EQ(tryToJoin(&made, transport, {.schedulerWeight = 0}), QUORL_INVALID_ARG);
    const double infinite = std::numeric_limits<double>::infinity();
    for (const double wrong : {-1.0, 0.0, std::nan(""), infinite, -infinite, 1e-9, 1e300}) {
        EXPECT_EQ(tryToJoin(&made, transport, {.heartbeat = wrong}), QUORL_INVALID_ARG) << wrong;
        EXPECT_EQ(tryToJoin(&made, transport, {.activation = wrong}), QUORL_INVALID_ARG) << wrong;
        EXPECT_STRNE(quorl_LastErrorText(), "");
    }
    EXPECT_EQ(tryToJoin(&made, transport, {.heartbeat = 1, .activation = 1}), QUORL_INVALID_ARG);
    EXPECT_EQ(made, 4711u) << "written only when it succeeds";

    const quorlcmTransport member = join(transport);
    for (const double wrong : {-1.0, std::nan(""), infinite, -infinite, 1e300})
        EXPECT_EQ(quorlcmTransport_SetCompleteTime(member, wrong), QUORL_INVALID_ARG) << wrong;
    EXPECT_EQ(quorlcmTransport_SetCompleteTime(member, 0), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_SetCompleteTime(member, 1.5), QUORL_OK);
    for (const quorl_u32 kind : {2u, UINT32_MAX})
        EXPECT_EQ(quorlcmTransport_SetTaskBacklogLimit(member, kind, 1), QUORL_INVALID_ARG) << kind;
    for (const quorl_u32 most : {0u, 1u, UINT32_MAX}) {
        EXPECT_EQ(quorlcmTransport_SetTaskBacklogLimit(member, QUORLCMQ_BACKLOG_BYTES, most), QUORL_OK);
        EXPECT_EQ(quorlcmTransport_SetTaskBacklogLimit(member, QUORLCMQ_BACKLOG_MESSAGES, most), QUORL_OK);
    }
    for (const quorl_u32 wrong : {0u, 1'000'001u, UINT32_MAX})
        EXPECT_EQ(quorlcmTransport_SetWorkerWeight(member, wrong), QUORL_INVALID_ARG) << wrong;
    for (const quorl_u32 wrong : {1'000'001u, UINT32_MAX})
        EXPECT_EQ(quorlcmTransport_SetWorkerTasks(member, wrong), QUORL_INVALID_ARG) << wrong;
    EXPECT_EQ(quorlcmTransport_SetWorkerWeight(member, 1'000'000), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_SetWorkerTasks(member, 0), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_GetUnassignedMessageCount(member, nullptr), QUORL_INVALID_ARG);
    quorlcmEvent listener = 0;
    for (const char* subject : {static_cast<const char*>(nullptr), "", "a..b", "_QUORL.x", "_INBOX.a.1"})
        EXPECT_EQ(quorlcmEvent_CreateListener(&listener, queue, onTask, member, subject, nullptr),
                  QUORL_INVALID_SUBJECT);
    EXPECT_EQ(quorlcmEvent_CreateListener(&listener, queue, nullptr, member, "a", nullptr), QUORL_INVALID_CALLBACK);
    EXPECT_EQ(quorlcmEvent_CreateListener(&listener, 99, onTask, member, "a", nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlcmTransport_Destroy(member), QUORL_OK);
}

TEST_F(DistributedQueue, takesTheWholeRangeOfEach) {
    quorlcmTransport made = 0;
    EXPECT_EQ(tryToJoin(&made, transport, {.weight = 1'000'000, .tasks = 1'000'000, .schedulerWeight = 65535}),
              QUORL_OK)
        << quorl_LastErrorText();
    EXPECT_EQ(
        tryToJoin(&made, transport, {.name = std::string(200, 'n').c_str(), .heartbeat = 0.001, .activation = 2e6}),
        QUORL_OK)
        << quorl_LastErrorText();
}

TEST_F(DistributedQueue, knowsItsOwnFromOthers) {
    quorlcmTransport plain = 0;
    ASSERT_EQ(quorlcmTransport_Create(&plain, transport, "plain", QUORL_FALSE, nullptr, QUORL_FALSE, nullptr),
              QUORL_OK);
    for (const quorlcmTransport other :
         {plain, quorlcmTransport{0}, quorlcmTransport{4711}, quorlcmTransport{transport}}) {
        quorl_u32 count = 7;
        EXPECT_EQ(quorlcmTransport_SetCompleteTime(other, 1), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(quorlcmTransport_SetTaskBacklogLimit(other, 0, 1), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(quorlcmTransport_SetWorkerWeight(other, 1), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(quorlcmTransport_SetWorkerTasks(other, 1), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(quorlcmTransport_GetUnassignedMessageCount(other, &count), QUORL_INVALID_TRANSPORT);
        EXPECT_EQ(count, 7u);
    }
    const quorlcmTransport member = join(transport);
    quorlMsg message = newMessage("a", 1);
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlcmTransport_Send(member, message), QUORL_NOT_PERMITTED);
    EXPECT_EQ(quorlcmTransport_SendRequest(member, message, &reply, 0), QUORL_NOT_PERMITTED);
    EXPECT_EQ(quorlcmTransport_SendReply(member, message, message), QUORL_NOT_PERMITTED);
    EXPECT_EQ(quorlcmTransport_AddListener(member, "x", "a"), QUORL_NOT_PERMITTED);
    EXPECT_EQ(quorlcmTransport_SyncLedger(member), QUORL_NOT_PERMITTED);
    EXPECT_EQ(quorlcmTransport_SetDefaultCMTimeLimit(member, 1), QUORL_NOT_PERMITTED);
    EXPECT_STRNE(quorl_LastErrorText(), "");
    quorlMsg_Destroy(message);
    EXPECT_EQ(quorlcmTransport_Destroy(member), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_Destroy(member), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlcmTransport_DestroyEx(member, nullptr, nullptr), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(quorlcmTransport_SetWorkerTasks(member, 1), QUORL_INVALID_TRANSPORT);
}

TEST_F(DistributedQueue, givesEachTaskToOneWorker) {
    Worked worked[3];
    for (Worked& each : worked) work(join(transport), "work.*", &each);
    ASSERT_TRUE(workersAre(3));
    const quorlcmTransport boss = sender();
    for (int i = 0; i < 300; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK) << quorl_LastErrorText();
    ASSERT_TRUE(completedAre(300));
    std::multiset<int> came;
    for (const Worked& each : worked) {
        for (const int number : each.numbers) came.insert(number);
        EXPECT_FALSE(each.numbers.empty());
        for (const quorl_u32 dqsn : each.dqsn) EXPECT_EQ(dqsn, 0u) << "certified tasks are as they were sent";
    }
    EXPECT_EQ(came, upTo(300));
    const Status status = ask();
    EXPECT_EQ(status.numbers.at("completed_twice"), 0u);
    EXPECT_EQ(status.numbers.at("reassigned"), 0u);
    EXPECT_EQ(status.numbers.at("unassigned"), 0u);
    EXPECT_EQ(status.numbers.at("members"), 3u);
}

TEST_F(DistributedQueue, takesPlainMessagesForTasksToo) {
    Worked worked;
    const quorlcmTransport member = join(transport);
    work(member, "work.*", &worked);
    ASSERT_TRUE(workersAre(1));
    for (int i = 0; i < 20; ++i) {
        quorlMsg message = newMessage("work.x", i);
        // A number of the program's own gives way.
        EXPECT_EQ(quorlMsg_AddStringEx(message, "dqsn", "mine", 0), QUORL_OK);
        ASSERT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
        quorlMsg_Destroy(message);
    }
    ASSERT_TRUE(completedAre(20));
    EXPECT_EQ(worked.all(), upTo(20));
    std::set<quorl_u32> numbers(worked.dqsn.begin(), worked.dqsn.end());
    EXPECT_EQ(numbers.size(), 20u);
    EXPECT_EQ(numbers.count(0), 0u);
}

TEST_F(DistributedQueue, completesWhatTheProgramConfirms) {
    Worked worked;
    worked.keep = true;
    const quorlcmTransport member = join(transport);
    const quorlcmEvent listener = work(member, "work.*", &worked);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    ASSERT_EQ(submit(boss, 1), QUORL_OK);
    ASSERT_TRUE(until([&] { return worked.kept.size() == 1; }));
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, worked.kept[0]), QUORL_NOT_PERMITTED) << "it was not asked to wait";
    ASSERT_TRUE(completedAre(1));

    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
    for (int i = 2; i <= 4; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    ASSERT_TRUE(until([&] { return worked.kept.size() == 4; }));
    EXPECT_EQ(ask().numbers["completed"], 1u);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, worked.kept[3]), QUORL_OK);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, worked.kept[1]), QUORL_OK);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, worked.kept[1]), QUORL_NOT_FOUND) << "completed twice";
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, worked.kept[0]), QUORL_NOT_FOUND) << "completed by itself before";
    ASSERT_TRUE(completedAre(3));
    EXPECT_TRUE(until([&] { return ask().numbers["assigned"] == 1; }));
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, worked.kept[2]), QUORL_OK);
    ASSERT_TRUE(completedAre(4));

    // What is no task of a certified sender.
    quorlMsg plain = newMessage("work.x", 5);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, plain), QUORL_NOT_FOUND);
    ASSERT_EQ(quorlTransport_Send(transport, plain), QUORL_OK);
    quorlMsg_Destroy(plain);
    ASSERT_TRUE(until([&] { return worked.kept.size() == 5; }));
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, worked.kept[4]), QUORL_NOT_FOUND);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, nullptr), QUORL_INVALID_MSG);
    ASSERT_TRUE(completedAre(5)) << "a plain one is complete when its callback returns";
}

TEST_F(DistributedQueue, takesBackWhatTheProgramCouldNotDo) {
    Worked first, second;
    first.keep = true;
    const quorlcmTransport member = join(transport, {.schedulerWeight = 2});
    const quorlcmEvent listener = work(member, "work.*", &first);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    for (int i = 0; i < 2; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    ASSERT_TRUE(until([&] { return first.kept.size() == 2; }));
    work(join(transport), "work.*", &second);
    ASSERT_TRUE(workersAre(2));
    EXPECT_EQ(quorlcmEvent_ReturnMsg(listener, first.kept[0]), QUORL_OK);
    EXPECT_EQ(quorlcmEvent_ReturnMsg(listener, first.kept[0]), QUORL_NOT_FOUND) << "returned twice";
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, first.kept[0]), QUORL_NOT_FOUND) << "it is another's";
    // As a binding does.
    ASSERT_EQ(quorlMsg_SetSendSubject(first.kept[1], QUORL_DQ_RETURN_SUBJECT), QUORL_OK);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, first.kept[1]), QUORL_OK);
    ASSERT_TRUE(completedAre(2));
    EXPECT_EQ(second.all(), upTo(2));
    EXPECT_EQ(ask().numbers["reassigned"], 2u);
    quorlMsg plain = newMessage("work.x", 5);
    EXPECT_EQ(quorlcmEvent_ReturnMsg(listener, plain), QUORL_NOT_FOUND);
    EXPECT_EQ(quorlcmEvent_ReturnMsg(listener, nullptr), QUORL_INVALID_MSG);
    EXPECT_EQ(quorlcmEvent_ReturnMsg(0, plain), QUORL_INVALID_EVENT);
    quorlMsg_Destroy(plain);
}

// What a binding does with plain messages.
TEST_F(DistributedQueue, completesPlainTasksByTheirNumber) {
    Worked worked;
    const quorlcmTransport member = join(transport);
    const quorlcmEvent listener = work(member, "work.*", &worked);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
    ASSERT_EQ(_quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages(listener), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    ASSERT_EQ(sendNumber(transport, "work.x", 1), QUORL_OK);
    ASSERT_TRUE(until([&] { return worked.dqsn.size() == 1; }));
    EXPECT_EQ(ask().numbers["completed"], 0u);
    void* record = nullptr;
    ASSERT_EQ(_quorlObjectId_GetEx(member, QUORL_OBJECT_CM_TRANSPORT, &record, 1, 0), QUORL_OK);
    EXPECT_EQ(_quorlcmq_Complete(record, 0, 0, 0, 0, 0, 0), QUORL_NOT_FOUND) << "of a message without a number";
    EXPECT_EQ(_quorlcmq_Complete(record, 0, 0, 0, 0, 0, worked.dqsn[0] + 1), QUORL_NOT_FOUND);
    EXPECT_EQ(_quorlcmq_Complete(record, 0, 0, 0, 0, 0, worked.dqsn[0]), QUORL_OK);
    EXPECT_EQ(_quorlcmq_Complete(record, 0, 0, 0, 0, 0, worked.dqsn[0]), QUORL_NOT_FOUND) << "completed twice";
    EXPECT_EQ(_quorlObjectId_ReleaseEx(record, 1), QUORL_OK);
    ASSERT_TRUE(completedAre(1));
    EXPECT_EQ(_quorlcmq_Complete(nullptr, 0, 0, 0, 0, 0, 1), QUORL_INVALID_ARG);
    quorlcmTransport other = 0;
    ASSERT_EQ(quorlcmTransport_Create(&other, transport, "other", QUORL_FALSE, nullptr, QUORL_FALSE, nullptr),
              QUORL_OK);
    ASSERT_EQ(_quorlObjectId_GetEx(other, QUORL_OBJECT_CM_TRANSPORT, &record, 1, 0), QUORL_OK);
    EXPECT_EQ(_quorlcmq_Complete(record, 0, 0, 0, 0, 0, 1), QUORL_NOT_PERMITTED);
    EXPECT_EQ(_quorlObjectId_ReleaseEx(record, 1), QUORL_OK);
}

TEST_F(DistributedQueue, sharesByWeight) {
    Worked light, heavy;
    work(join(transport, {.weight = 1, .tasks = 1000}), "work.*", &light);
    work(join(transport, {.weight = 3, .tasks = 1000}), "work.*", &heavy);
    ASSERT_TRUE(workersAre(2));
    const quorlcmTransport boss = sender();
    for (int i = 0; i < 400; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    ASSERT_TRUE(completedAre(400));
    EXPECT_NEAR(static_cast<double>(light.numbers.size()), 100, 5);
    EXPECT_NEAR(static_cast<double>(heavy.numbers.size()), 300, 15);
}

TEST_F(DistributedQueue, givesAWorkerNoMoreThanItTakes) {
    Worked worked;
    worked.keep = true;
    const quorlcmTransport member = join(transport, {.tasks = 2});
    const quorlcmEvent listener = work(member, "work.*", &worked);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    for (int i = 0; i < 10; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    ASSERT_TRUE(until([&] { return worked.kept.size() == 2 && unassigned(member) == 8; }));
    EXPECT_EQ(ask().numbers["assigned"], 2u);
    ASSERT_EQ(quorlcmTransport_SetWorkerTasks(member, 5), QUORL_OK);
    ASSERT_TRUE(until([&] { return worked.kept.size() == 5; }));
    ASSERT_EQ(quorlcmTransport_SetWorkerTasks(member, 0), QUORL_OK);
    for (const quorlMsg task : worked.kept) EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, task), QUORL_OK);
    ASSERT_TRUE(completedAre(5));
    EXPECT_EQ(worked.kept.size(), 5u);
    EXPECT_EQ(unassigned(member), 5u);
    ASSERT_EQ(quorlcmTransport_SetWorkerTasks(member, 1'000'000), QUORL_OK);
    ASSERT_TRUE(until([&] { return worked.kept.size() == 10; }));
}

TEST_F(DistributedQueue, anotherTakesOverWhatAMemberHeld) {
    Worked first, second;
    first.keep = true;
    const quorlcmTransport goes = join(transport, {.schedulerWeight = 2});
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(work(goes, "work.*", &first)), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    for (int i = 0; i < 20; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    ASSERT_TRUE(until([&] { return first.kept.size() == 20; }));
    const quorlcmTransport stays = join(transport);
    work(stays, "work.*", &second);
    ASSERT_TRUE(workersAre(2));
    ASSERT_EQ(quorlcmTransport_Destroy(goes), QUORL_OK);
    ASSERT_TRUE(completedAre(20));
    EXPECT_EQ(second.all(), upTo(20));
}

// It finishes what it holds, takes nothing more, and is good for completing
// until then.
TEST_F(DistributedQueue, leavesInOrder) {
    Worked first, second;
    first.keep = true;
    const quorlcmTransport goes = join(transport, {.schedulerWeight = 2});
    const quorlcmEvent listener = work(goes, "work.*", &first);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    for (int i = 0; i < 3; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    ASSERT_TRUE(until([&] { return first.kept.size() == 3; }));
    work(join(transport), "work.*", &second);
    ASSERT_TRUE(workersAre(2));

    struct Gone {
        Counter count;
        quorlcmTransport id = 0;
    } gone;
    const auto onGone = [](quorlcmTransport id, void* closure) {
        static_cast<Gone*>(closure)->id = id;
        static_cast<Gone*>(closure)->count.add();
    };
    ASSERT_EQ(quorlcmTransport_DestroyEx(goes, onGone, &gone), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_DestroyEx(goes, onGone, &gone), QUORL_INVALID_TRANSPORT) << "once";
    for (int i = 3; i < 13; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    ASSERT_TRUE(until([&] { return second.numbers.size() == 10; })) << "new tasks go to others";
    EXPECT_EQ(gone.count.value(), 0) << "it waits for what the program holds";
    for (const quorlMsg task : first.kept) EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, task), QUORL_OK);
    ASSERT_TRUE(gone.count.waitFor(1));
    EXPECT_EQ(gone.id, goes);
    EXPECT_EQ(quorlcmTransport_Destroy(goes), QUORL_INVALID_TRANSPORT);
    ASSERT_TRUE(workersAre(1));
    EXPECT_EQ(first.numbers.size(), 3u);
    EXPECT_EQ(second.numbers.size(), 10u);
    EXPECT_EQ(gone.count.value(), 1);
}

TEST_F(DistributedQueue, leavesAtOnceWhenItHoldsNothing) {
    Counter gone;
    const auto onGone = [](quorlcmTransport, void* closure) { static_cast<Counter*>(closure)->add(); };
    ASSERT_EQ(quorlcmTransport_DestroyEx(join(transport), onGone, &gone), QUORL_OK);
    ASSERT_TRUE(gone.waitFor(1));
    // Also a worker that ends its listener first, and one whose leaving is cut
    // short.
    Worked worked;
    worked.keep = true;
    const quorlcmTransport member = join(transport);
    const quorlcmEvent listener = work(member, "work.*", &worked);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    ASSERT_EQ(submit(boss, 1), QUORL_OK);
    ASSERT_TRUE(until([&] { return worked.kept.size() == 1; }));
    ASSERT_EQ(quorlcmTransport_DestroyEx(member, onGone, &gone), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_Destroy(member), QUORL_OK);
    ASSERT_TRUE(gone.waitFor(2));
}

TEST_F(DistributedQueue, reassignsWhatTakesTooLong) {
    Worked slow, other;
    slow.keep = true;
    const quorlcmTransport member = join(transport, {.schedulerWeight = 2});
    ASSERT_EQ(quorlcmTransport_SetCompleteTime(member, 0.2), QUORL_OK);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(work(member, "work.*", &slow)), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    ASSERT_EQ(submit(boss, 7), QUORL_OK);
    ASSERT_TRUE(until([&] { return slow.kept.size() == 1; }));
    work(join(transport), "work.*", &other);
    ASSERT_TRUE(until([&] { return other.numbers.size() == 1; }));
    ASSERT_TRUE(completedAre(1));
    EXPECT_EQ(other.numbers, std::vector<int>{7});
    EXPECT_GE(ask().numbers["reassigned"], 1u);
}

// What closes a listener gives its tasks back.
TEST_F(DistributedQueue, aListenerThatEndsGivesItsTasksBack) {
    Worked first, second;
    first.keep = true;
    const quorlcmTransport member = join(transport);
    const quorlcmEvent listener = work(member, "work.*", &first);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    for (int i = 0; i < 5; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    ASSERT_TRUE(until([&] { return first.kept.size() == 5; }));
    ASSERT_EQ(quorlcmEvent_DestroyEx(listener, QUORL_FALSE, nullptr), QUORL_OK);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, first.kept[0]), QUORL_INVALID_EVENT);
    work(member, "work.>", &second);
    ASSERT_TRUE(completedAre(5));
    EXPECT_EQ(second.all(), upTo(5));
}

// What a queue's limit drops goes to other workers.
TEST_F(DistributedQueue, whatALimitDropsIsNotLost) {
    Worked narrow, wide;
    const quorlQueue small = newQueue();
    ASSERT_EQ(quorlQueue_SetLimitPolicy(small, QUORLQUEUE_DISCARD_NEW, 2, 1), QUORL_OK);
    work(join(transport), "work.*", &narrow, small);
    work(join(transport), "work.*", &wide);
    ASSERT_TRUE(workersAre(2));
    const quorlcmTransport boss = sender();
    for (int i = 0; i < 100; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    ASSERT_TRUE(until([&] {
        while (quorlQueue_TimedDispatch(small, 0) == QUORL_OK) {
        }
        return ask().numbers["completed"] + ask().numbers["dead_letters"] >= 100;
    }));
    std::multiset<int> came = narrow.all();
    for (const int number : wide.numbers) came.insert(number);
    EXPECT_EQ(came, upTo(100));
    EXPECT_EQ(ask().numbers["dead_letters"], 0u);
}

TEST_F(DistributedQueue, tellsWhatHappens) {
    struct Told {
        std::multiset<std::string> names;
    } told;
    listen(
        queue, transport, "_QUORL.*.dqueue.*",
        [](quorlEvent, quorlMsg message, void* closure) {
            const char* subject = nullptr;
            const char* name = nullptr;
            quorl_u32 id = 0;
            EXPECT_EQ(quorlMsg_GetSendSubject(message, &subject), QUORL_OK);
            EXPECT_EQ(quorlMsg_GetStringEx(message, "queue", &name, 0), QUORL_OK);
            EXPECT_EQ(quorlMsg_GetU32Ex(message, "transport", &id, 0), QUORL_OK);
            EXPECT_STREQ(name, "crew");
            static_cast<Told*>(closure)->names.insert(subject);
        },
        &told);
    Worked worked;
    worked.keep = true;
    const quorlcmTransport first = join(transport, {.schedulerWeight = 2});
    const quorlcmEvent listener = work(first, "work.*", &worked);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_SetWorkerTasks(first, 1), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_SetTaskBacklogLimit(first, QUORLCMQ_BACKLOG_MESSAGES, 2), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    for (int i = 0; i < 10; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
    const auto has = [&](const char* name) { return until([&] { return told.names.count(name) != 0; }); };
    EXPECT_TRUE(has("_QUORL.INFO.dqueue.scheduler_changed"));
    EXPECT_TRUE(has("_QUORL.INFO.dqueue.worker_joined"));
    EXPECT_TRUE(has("_QUORL.WARN.dqueue.backlog_full"));
    const quorlcmTransport second = join(transport);
    EXPECT_TRUE(until([&] { return told.names.count("_QUORL.INFO.dqueue.worker_joined") >= 2; }));
    ASSERT_EQ(quorlcmTransport_DestroyEx(second, nullptr, nullptr), QUORL_OK);
    EXPECT_TRUE(has("_QUORL.INFO.dqueue.worker_left"));
    ASSERT_EQ(quorlcmTransport_SetTaskBacklogLimit(first, QUORLCMQ_BACKLOG_MESSAGES, 0), QUORL_OK);
    EXPECT_TRUE(has("_QUORL.INFO.dqueue.backlog_cleared"));
    ASSERT_TRUE(until([&] { return unassigned(first) == 9; }));
}

TEST_F(DistributedQueue, tellsOfMembersThatDiffer) {
    std::vector<std::string> reasons;
    listen(
        queue, transport, "_QUORL.WARN.dqueue.disagreement",
        [](quorlEvent, quorlMsg message, void* closure) {
            const char* reason = nullptr;
            ASSERT_EQ(quorlMsg_GetStringEx(message, "reason", &reason, 0), QUORL_OK);
            static_cast<std::vector<std::string>*>(closure)->push_back(reason);
        },
        &reasons);
    const quorlcmTransport first = join(transport, {.schedulerWeight = 2});
    ASSERT_EQ(quorlcmTransport_SetCompleteTime(first, 5), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    join(transport, {.activation = 0.3});
    const auto told = [&](const char* what) {
        return until([&] {
            return std::any_of(reasons.begin(), reasons.end(),
                               [&](const std::string& reason) { return reason.find(what) != std::string::npos; });
        });
    };
    EXPECT_TRUE(told("intervals"));
    EXPECT_TRUE(told("complete time"));
}

// Nobody answers for a queue without members.
TEST_F(DistributedQueue, answersWhoAsksHowItIs) {
    EXPECT_FALSE(ask().answered);
    const quorlcmTransport member = join(transport);
    ASSERT_TRUE(until([&] { return ask().answered; }));
    EXPECT_FALSE(ask("another").answered);
    EXPECT_EQ(ask().numbers["members"], 1u);
    ASSERT_EQ(quorlcmTransport_Destroy(member), QUORL_OK);
    EXPECT_FALSE(ask().answered);
}

// In any order, and while tasks are under way.
TEST_F(DistributedQueue, closesWithTransportAndLibrary) {
    Worked worked;
    const quorlTransport own = newTransport();
    const quorlcmTransport over = join(own);
    work(over, "work.*", &worked);
    ASSERT_TRUE(workersAre(1));
    ASSERT_EQ(quorlTransport_Destroy(own), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_SetWorkerTasks(over, 1), QUORL_OK);
    EXPECT_EQ(quorlcmTransport_Destroy(over), QUORL_OK);
    work(join(transport), "work.*", &worked);
    const quorlcmTransport leaving = join(transport);
    ASSERT_TRUE(workersAre(2));
    for (int i = 0; i < 100; ++i) sendNumber(transport, "work.x", i);
    ASSERT_EQ(quorlcmTransport_DestroyEx(leaving, nullptr, nullptr), QUORL_OK);
    // The library closes with what is left.
}

// A wait for the time limit of leaving would outlast the test.
class LeavingDistributedQueue : public DistributedQueue {
  protected:
    void SetUp() override {
        const char* settings[] = {"dqueue.leave=86400"};
        ASSERT_EQ(quorl_SetQRParameters(1, settings), QUORL_OK) << quorl_LastErrorText();
        DistributedQueue::SetUp();
    }
    void TearDown() override {
        DistributedQueue::TearDown();
        const char* settings[] = {"dqueue.leave=10"};
        EXPECT_EQ(quorl_SetQRParameters(1, settings), QUORL_OK);
    }
    // A member that takes tasks at once over a transport of its own, and one that takes none yet. The first gets that many tasks,
    // and its program the first two of them.
    void give(const Wish& first, const Wish& second, int tasks) {
        below = newTransport();
        goes = join(below, first);
        listener = work(goes, "work.*", &taken, own = newQueue());
        ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(listener), QUORL_OK);
        taken.keep = true;
        stays = join(transport, second);
        ASSERT_EQ(quorlcmTransport_SetWorkerTasks(stays, 0), QUORL_OK);
        work(stays, "work.*", &others);
        ASSERT_TRUE(workersAre(2));
        boss = sender();
        for (int i = 0; i < tasks; ++i) ASSERT_EQ(submit(boss, i), QUORL_OK);
        ASSERT_TRUE(until([&] { return countOf(own) == static_cast<quorl_u32>(tasks); }));
        for (int i = 0; i < 2; ++i) ASSERT_EQ(quorlQueue_TimedDispatch(own, limit), QUORL_OK);
        ASSERT_EQ(taken.kept.size(), 2u);
    }
    static void onGone(quorlcmTransport, void* closure) { static_cast<Counter*>(closure)->add(); }

    quorlTransport below = 0;
    quorlQueue own = 0;
    quorlcmTransport goes = 0, stays = 0, boss = 0;
    quorlcmEvent listener = 0;
    Worked taken, others;
    Counter gone;
};

// Nobody waits until it is missed: what it held is not counted as taken from it.
TEST_F(LeavingDistributedQueue, whatAMemberHoldsGoesToOthersWhenItsTransportIsDestroyed) {
    give({}, {.schedulerWeight = 2}, 10);
    ASSERT_EQ(quorlcmTransport_SetWorkerTasks(stays, 100), QUORL_OK);
    ASSERT_EQ(quorlTransport_Destroy(below), QUORL_OK);
    ASSERT_TRUE(completedAre(10));
    EXPECT_EQ(others.all(), upTo(10));
    EXPECT_EQ(ask().numbers["reassigned"], 0u);
    EXPECT_TRUE(workersAre(1));
    // What had not begun here does not begin any more, and the rest is not its any more.
    EXPECT_EQ(drain(own), 8);
    EXPECT_EQ(taken.numbers.size(), 2u);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, taken.kept[0]), QUORL_NOT_FOUND);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("transport was destroyed"), std::string::npos)
        << quorl_LastErrorText();
    quorlcmEvent another = 0;
    EXPECT_EQ(quorlcmEvent_CreateListener(&another, own, onTask, goes, "work.*", nullptr), QUORL_INVALID_TRANSPORT);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("has been destroyed"), std::string::npos)
        << quorl_LastErrorText();
    ASSERT_EQ(quorlcmTransport_DestroyEx(goes, onGone, &gone), QUORL_OK);
    EXPECT_TRUE(gone.waitFor(1)) << "there is nothing to wait for";
}

TEST_F(LeavingDistributedQueue, whatASchedulerHoldsGoesToOthersWhenItsTransportIsDestroyed) {
    give({.schedulerWeight = 2}, {}, 10);
    ASSERT_EQ(quorlcmTransport_SetWorkerTasks(stays, 100), QUORL_OK);
    ASSERT_EQ(quorlTransport_Destroy(below), QUORL_OK);
    ASSERT_TRUE(completedAre(10));
    EXPECT_EQ(others.all(), upTo(10));
    EXPECT_TRUE(workersAre(1));
    EXPECT_EQ(drain(own), 8);
    EXPECT_EQ(taken.numbers.size(), 2u);
}

TEST_F(LeavingDistributedQueue, aLeaveEndsWithTheTransport) {
    give({}, {.schedulerWeight = 2}, 3);
    ASSERT_EQ(quorlcmTransport_DestroyEx(goes, onGone, &gone), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_SetWorkerTasks(stays, 100), QUORL_OK);
    EXPECT_EQ(gone.value(), 0) << "it waits for its program";
    ASSERT_EQ(quorlTransport_Destroy(below), QUORL_OK);
    EXPECT_TRUE(gone.waitFor(1));
    ASSERT_TRUE(completedAre(3));
    EXPECT_EQ(others.all(), upTo(3));
    EXPECT_EQ(ask().numbers["reassigned"], 0u);
}

TEST_F(LeavingDistributedQueue, aLeaveThatIsCutShortHandsBackAtOnce) {
    give({}, {.schedulerWeight = 2}, 3);
    ASSERT_EQ(quorlcmTransport_DestroyEx(goes, onGone, &gone), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_SetWorkerTasks(stays, 100), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_Destroy(goes), QUORL_OK);
    EXPECT_TRUE(gone.waitFor(1));
    ASSERT_TRUE(completedAre(3));
    EXPECT_EQ(others.all(), upTo(3));
    EXPECT_EQ(ask().numbers["reassigned"], 0u);
    EXPECT_EQ(drain(own), 0);
}

// Each hears that what it did is known, also when the scheduler has nothing to do itself.
TEST_F(LeavingDistributedQueue, allMayLeaveAtOnce) {
    give({}, {.schedulerWeight = 2}, 2);
    ASSERT_EQ(quorlcmTransport_DestroyEx(goes, onGone, &gone), QUORL_OK);
    ASSERT_EQ(quorlcmTransport_DestroyEx(stays, onGone, &gone), QUORL_OK);
    for (const quorlMsg task : taken.kept) EXPECT_EQ(quorlcmEvent_ConfirmMsg(listener, task), QUORL_OK);
    EXPECT_TRUE(gone.waitFor(2));
    Worked late;
    work(join(transport), "work.*", &late);
    ASSERT_TRUE(workersAre(1));
    ASSERT_EQ(submit(boss, 2), QUORL_OK);
    ASSERT_TRUE(completedAre(1));
    EXPECT_EQ(late.numbers, std::vector<int>{2}) << "what was done before is not done again";
}

class DeadLetters : public DistributedQueue {
  protected:
    void SetUp() override {
        const char* settings[] = {"dqueue.reassignments=2"};
        ASSERT_EQ(quorl_SetQRParameters(1, settings), QUORL_OK) << quorl_LastErrorText();
        DistributedQueue::SetUp();
    }
    void TearDown() override {
        DistributedQueue::TearDown();
        const char* settings[] = {"dqueue.reassignments=10"};
        EXPECT_EQ(quorl_SetQRParameters(1, settings), QUORL_OK);
    }
};

TEST_F(DeadLetters, takeWhatNobodyCompletes) {
    struct Letter {
        Counter count;
        int number = -1;
        std::string queue, subject, sender;
        quorl_u64 sequence = 0;
        quorl_u32 reassigned = 0, attempts = 0;
        std::string reason;
    } letter;
    const auto onLetter = [](quorlEvent, quorlMsg message, void* closure) {
        auto& to = *static_cast<Letter*>(closure);
        to.number = numberOf(message);
        quorlMsg about = nullptr;
        ASSERT_EQ(quorlMsg_GetMsgEx(message, "deadletter", &about, 0), QUORL_OK);
        const char* text = nullptr;
        for (const auto& [name, into] :
             {std::pair("queue", &to.queue), std::pair("subject", &to.subject), std::pair("sender", &to.sender)}) {
            EXPECT_EQ(quorlMsg_GetStringEx(about, name, &text, 0), QUORL_OK) << name;
            *into = text;
        }
        EXPECT_EQ(quorlMsg_GetU64Ex(about, "number", &to.sequence, 0), QUORL_OK);
        EXPECT_EQ(quorlMsg_GetU32Ex(about, "reassigned", &to.reassigned, 0), QUORL_OK);
        const quorlMsg* history = nullptr;
        EXPECT_EQ(quorlMsg_GetMsgArrayEx(about, "history", &history, &to.attempts, 0), QUORL_OK);
        if (to.attempts != 0 && quorlMsg_GetStringEx(history[0], "reason", &text, 0) == QUORL_OK) to.reason = text;
        to.count.add();
    };
    listen(queue, transport, "_QUORL.DEADLETTER.crew", onLetter, &letter);
    // The scheduler's process is told as well.
    Counter told;
    const auto onAdvisory = [](quorlEvent, quorlMsg message, void* closure) {
        const char* text = nullptr;
        quorl_u64 number = 0, reassigned = 0;
        ASSERT_EQ(quorlMsg_GetStringEx(message, "sender", &text, 0), QUORL_OK);
        EXPECT_STREQ(text, "boss");
        ASSERT_EQ(quorlMsg_GetStringEx(message, "subject", &text, 0), QUORL_OK);
        EXPECT_STREQ(text, "work.x");
        EXPECT_EQ(quorlMsg_GetU64Ex(message, "number", &number, 0), QUORL_OK);
        EXPECT_EQ(quorlMsg_GetU64Ex(message, "reassigned", &reassigned, 0), QUORL_OK);
        EXPECT_EQ(number, 1u);
        EXPECT_EQ(reassigned, 3u);
        static_cast<Counter*>(closure)->add();
    };
    listen(queue, transport, "_QUORL.ERROR.dqueue.dead_letter", onAdvisory, &told);
    Worked worked;
    worked.keep = true;
    const quorlcmTransport member = join(transport);
    ASSERT_EQ(quorlcmTransport_SetCompleteTime(member, 0.05), QUORL_OK);
    ASSERT_EQ(quorlcmEvent_SetExplicitConfirm(work(member, "work.*", &worked)), QUORL_OK);
    ASSERT_TRUE(workersAre(1));
    const quorlcmTransport boss = sender();
    ASSERT_EQ(submit(boss, 7), QUORL_OK);
    ASSERT_TRUE(until([&] { return letter.count.value() == 1 && told.value() == 1; }));
    EXPECT_EQ(letter.number, 7);
    EXPECT_EQ(letter.queue, "crew");
    EXPECT_EQ(letter.subject, "work.x");
    EXPECT_EQ(letter.sender, "boss");
    EXPECT_EQ(letter.sequence, 1u);
    EXPECT_EQ(letter.reassigned, 3u);
    EXPECT_EQ(letter.attempts, 3u);
    EXPECT_NE(letter.reason, "");
    EXPECT_EQ(ask().numbers["dead_letters"], 1u);
    EXPECT_EQ(ask().numbers["unassigned"], 0u);
    EXPECT_EQ(ask().numbers["assigned"], 0u);
}

}  // namespace
}  // namespace quorltest
