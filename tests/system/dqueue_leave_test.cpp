// What others learn of a worker process that ends: in order, its tasks are theirs at once and count as taken from nobody; killed,
// they are when it has been missed, and that is told.
#include <map>

#include "dqueue_processes.h"

namespace quorltest {
namespace {

constexpr int tasks = 10;

enum class End { killed, returns, closesLibrary, destroysTransport, destroysQueue, leaves };

// How many tasks have come, for the program that keeps them all.
void onKept(quorlcmEvent, quorlMsg message, void*) {
    EXPECT_EQ(quorlMsg_Detach(message), QUORL_OK);
}

// Whoever ends in order must not be missed before, however busy the machine is.
quorlcmTransport join(quorlTransport transport, quorl_u16 schedulerWeight, End how) {
    const double activation = how == End::killed || how == End::returns ? 0.35 : 3;
    quorlcmTransport member = 0;
    const quorl_status status =
        quorlcmTransport_CreateDistributedQueueEx(&member, transport, "crew", 1, 0, schedulerWeight, 0.1, activation);
    return status == QUORL_OK ? member : 0;
}

// Holds whatever it gets, and ends when it is told to.
int holdAndEnd(const std::string& daemon, int told, End how) {
    quorlTransport transport = 0;
    quorlcmEvent listener = 0;
    if (quorl_Open() != QUORL_OK) return 1;
    if (quorlTransport_Create(&transport, nullptr, nullptr, daemon.c_str()) != QUORL_OK) return 2;
    const quorlcmTransport member = join(transport, 1, how);
    if (quorlcmEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onKept, member, "work.*", nullptr) != QUORL_OK ||
        quorlcmEvent_SetExplicitConfirm(listener) != QUORL_OK ||
        quorlcmTransport_SetWorkerTasks(member, 100) != QUORL_OK)
        return 3;
    char byte;
    if (read(told, &byte, 1) != 1) return 4;
    // Some are the program's, the others wait in its queue.
    for (int i = 0; i < tasks / 2; ++i) {
        if (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit) != QUORL_OK) return 5;
    }
    Counter gone;
    switch (how) {
        case End::killed:
            raise(SIGKILL);
            break;
        case End::returns:
            break;
        case End::closesLibrary:
            if (quorl_Close() != QUORL_OK) return 6;
            break;
        case End::destroysTransport:
            if (quorlTransport_Destroy(transport) != QUORL_OK || quorl_Close() != QUORL_OK) return 6;
            break;
        case End::destroysQueue:
            if (quorlcmTransport_Destroy(member) != QUORL_OK || quorl_Close() != QUORL_OK) return 6;
            break;
        case End::leaves:
            // The close of the library cuts it short.
            if (quorlcmTransport_DestroyEx(member, nullptr, nullptr) != QUORL_OK || quorl_Close() != QUORL_OK) return 6;
            break;
    }
    return 0;
}

struct Told {
    std::map<std::string, int> names;
    quorl_u64 held = 0;  // by the worker that is lost
    int reassignedWell = 0;
};
void onAdvisory(quorlEvent, quorlMsg message, void* closure) {
    auto& told = *static_cast<Told*>(closure);
    const char* text = nullptr;
    if (quorlMsg_GetSendSubject(message, &text) != QUORL_OK) return;
    const std::string name = std::string(text).substr(std::string(text).rfind('.') + 1);
    ++told.names[name];
    if (name == "worker_lost") quorlMsg_GetU64Ex(message, "held", &told.held, 0);
    if (name != "task_reassigned") return;
    quorl_u64 number = 0, reassigned = 0;
    const auto says = [&](const char* field, const char* what) {
        return quorlMsg_GetStringEx(message, field, &text, 0) == QUORL_OK && std::string(text) == what;
    };
    told.reassignedWell +=
        says("queue", "crew") && says("sender", "boss") && says("subject", "work.x") &&
        says("reason", "the worker is lost") && quorlMsg_GetStringEx(message, "label", &text, 0) == QUORL_OK &&
        quorlMsg_GetU64Ex(message, "number", &number, 0) == QUORL_OK && number >= 1 && number <= tasks &&
        quorlMsg_GetU64Ex(message, "reassigned", &reassigned, 0) == QUORL_OK && reassigned == 1;
}

void onTask(quorlcmEvent, quorlMsg, void* closure) {
    ++*static_cast<int*>(closure);
}

class DistributedQueueEnds : public testing::Test {
  protected:
    // What the scheduler's process learns.
    void learn(End how) {
        NatsServer server;
        int told[2];
        ASSERT_EQ(pipe(told), 0);
        const pid_t worker = spawn([&] { return holdAndEnd(server.url(), told[0], how); });
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        {
            const quorlTransport transport = transportTo(server.url());
            listen(QUORL_DEFAULT_QUEUE, transport, "_QUORL.*.dqueue.*", onAdvisory, &advisories);
            const quorlcmTransport member = join(transport, 2, how);
            ASSERT_NE(member, 0u) << quorl_LastErrorText();
            quorlcmEvent listener = 0;
            ASSERT_EQ(quorlcmEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onTask, member, "work.*", &done),
                      QUORL_OK);
            quorlcmTransport boss = 0;
            ASSERT_EQ(quorlcmTransport_Create(&boss, transport, "boss", QUORL_FALSE, nullptr, QUORL_FALSE, nullptr),
                      QUORL_OK);
            ASSERT_EQ(quorlcmTransport_AddListener(boss, "crew", "work.>"), QUORL_OK);
            ASSERT_TRUE(until(transport, [](const QueueStatus& now) { return now.ready == 1; }));
            for (int i = 0; i < tasks; ++i) {
                quorlMsg message = newMessage("work.x", i);
                ASSERT_EQ(quorlcmTransport_Send(boss, message), QUORL_OK);
                quorlMsg_Destroy(message);
            }
            ASSERT_TRUE(until(transport, [](const QueueStatus& now) { return now.assigned == tasks; }));
            ASSERT_EQ(quorlcmTransport_SetWorkerTasks(member, 100), QUORL_OK);
            ASSERT_TRUE(until(transport, [](const QueueStatus& now) { return now.ready == 2; }));
            ASSERT_EQ(write(told[1], "e", 1), 1);
            EXPECT_TRUE(until(transport, [&](const QueueStatus& now) {
                status = now;
                return now.completed >= tasks && now.ready == 1;
            }));
            const char* end = how == End::killed || how == End::returns ? "worker_lost" : "worker_left";
            EXPECT_TRUE(until(transport, [&](const QueueStatus&) { return advisories.names.contains(end); })) << end;
            quorlcmTransport_Destroy(member);
        }
        closeTransports();
        EXPECT_EQ(quorl_Close(), QUORL_OK);
        EXPECT_EQ(outcomeOf(worker), how == End::killed ? 1000 + SIGKILL : 0);
        for (const int each : told) close(each);
        EXPECT_EQ(done, tasks);
    }
    template <class F>
    static bool until(quorlTransport transport, F&& wanted) {
        return untilStatus(transport, wanted, [] {
            while (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0) == QUORL_OK) {
            }
        });
    }

    QueueStatus status;
    Told advisories;
    int done = 0;
};

TEST_F(DistributedQueueEnds, aWorkerThatIsKilledIsMissed) {
    learn(End::killed);
    EXPECT_EQ(status.reassigned, static_cast<quorl_u64>(tasks));
    EXPECT_EQ(advisories.held, static_cast<quorl_u64>(tasks));
    EXPECT_EQ(advisories.names["task_reassigned"], tasks);
    EXPECT_EQ(advisories.reassignedWell, tasks);
    EXPECT_EQ(advisories.names["worker_left"], 0);
}

TEST_F(DistributedQueueEnds, aWorkerThatEndsWithoutClosingIsMissed) {
    learn(End::returns);
    EXPECT_EQ(status.reassigned, static_cast<quorl_u64>(tasks));
}

TEST_F(DistributedQueueEnds, aWorkerThatEndsInOrderHandsItsTasksBack) {
    for (const End how : {End::closesLibrary, End::destroysTransport, End::destroysQueue, End::leaves}) {
        advisories = {};
        done = 0;
        learn(how);
        EXPECT_EQ(status.reassigned, 0u) << static_cast<int>(how);
        EXPECT_EQ(advisories.names["task_reassigned"], 0) << static_cast<int>(how);
        EXPECT_EQ(advisories.names["worker_lost"], 0) << static_cast<int>(how);
    }
}

}  // namespace
}  // namespace quorltest
