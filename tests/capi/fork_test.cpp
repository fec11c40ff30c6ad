// The child of a fork: every call is refused while the library was open, and nothing of the parent's is touched.
#include <atomic>
#include <cstring>

#include "child.h"
#include "quorl/private.h"
#include "quorl/quorlsd.h"

namespace quorltest {
namespace {

// What the parent has made.
struct Made {
    quorlTransport transport;
    quorlQueue queue;
    quorlQueueGroup group;
    quorlEvent listener;
    quorlEvent timer;
    quorlMsg message;
    uint32_t slot;
    _quorlMutex mutex;
    _quorlCondition condition;
};

void onNothing(quorlEvent, quorlMsg, void*) {}

// The number of the first call that was not refused, from 1; 0: all were. No test's own output: this is the child.
int firstNotRefused(const Made& made) {
    quorlMsg other = nullptr;
    quorlQueue queue = 0;
    quorlQueueGroup group = 0;
    quorlTransport transport = 0;
    quorlEvent event = 0;
    quorl_u32 number = 0;
    quorl_u64 place = 0;
    quorl_i32 value = 0;
    double interval = 0;
    void* pointer = nullptr;
    const void* bytes = nullptr;
    const char* text = nullptr;
    const char* parameter = "queue.limit=3";
    char inbox[QUORL_SUBJECT_MAX + 1];
    quorlMsgField field;
    quorlQueueLimitPolicy policy;
    _quorlThreadLocal slot = 0;
    _quorlMutex mutex = nullptr;
    _quorlCondition condition = nullptr;
    static const unsigned char image[] = {'Q', 'M', 1, 0, 12, 0, 0, 0, 0, 0, 0, 0};
    const quorl_status statuses[] = {
        quorl_Open(),
        quorl_OpenEx("/nonexistent"),
        quorl_SetQRParameters(1, &parameter),
        quorl_SetQRParameters(0, nullptr),
        quorlMsg_Create(&other),
        quorlMsg_CreateFromBytes(&other, image),
        quorlMsg_CreateCopy(made.message, &other),
        quorlMsg_AddI32Ex(made.message, "another", 1, 0),
        quorlMsg_UpdateI32Ex(made.message, "n", 2, 0),
        quorlMsg_GetI32Ex(made.message, "n", &value, 0),
        quorlMsg_GetFieldByIndex(made.message, &field, 0),
        quorlMsg_RemoveFieldEx(made.message, "n", 0),
        quorlMsg_SetSendSubject(made.message, "other"),
        quorlMsg_GetSendSubject(made.message, &text),
        quorlMsg_GetAsBytes(made.message, &bytes),
        quorlMsg_ConvertToString(made.message, &text),
        quorlMsg_MarkReferences(made.message),
        quorlMsg_Reset(made.message),
        quorlMsg_Destroy(made.message),
        quorlQueue_Create(&queue),
        quorlQueue_SetName(made.queue, "name"),
        quorlQueue_GetCount(made.queue, &number),
        quorlQueue_GetLimitPolicy(made.queue, &policy, &number, &number),
        quorlQueue_TimedDispatch(made.queue, -1),
        quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0),
        quorlQueue_DestroyEx(made.queue, nullptr, nullptr),
        quorlQueueGroup_Create(&group),
        quorlQueueGroup_Add(made.group, made.queue),
        quorlQueueGroup_TimedDispatch(made.group, -1),
        quorlQueueGroup_Destroy(made.group),
        quorlEvent_CreateListener(&event, made.queue, onNothing, made.transport, "a", nullptr),
        quorlEvent_CreateTimer(&event, made.queue, onNothing, 1, nullptr),
        quorlEvent_GetTimerInterval(made.timer, &interval),
        quorlEvent_ResetTimerInterval(made.timer, 1),
        quorlEvent_DestroyEx(made.timer, nullptr),
        quorlEvent_DestroyEx(made.listener, nullptr),
        quorlTransport_Create(&transport, nullptr, nullptr, nullptr),
        quorlTransport_Create(&transport, nullptr, nullptr, "nats://127.0.0.1:1"),
        quorlTransport_SetDescription(made.transport, "child"),
        quorlTransport_CreateInbox(made.transport, inbox, sizeof inbox),
        quorlTransport_Send(made.transport, made.message),
        quorlTransport_Sendv(made.transport, &made.message, 1),
        quorlTransport_SendRequest(made.transport, made.message, &other, -1),
        quorlTransport_SendReply(made.transport, made.message, made.message),
        quorlTransport_CreateAcceptVc(&transport, &text, made.transport),
        quorlTransport_CreateConnectVc(&transport, "_INBOX.1", made.transport),
        quorlTransport_WaitForVcConnection(made.transport, -1),
        quorlTransport_Destroy(made.transport),
        quorlSecureDaemon_SetUserNameWithPassword("user", "password"),
        _quorlObjectId_Verify(made.queue, QUORL_OBJECT_QUEUE),
        _quorlObjectId_GetEx(made.queue, QUORL_OBJECT_QUEUE, &pointer, 1, 0),
        _quorlMsg_GetFieldIndexAndType(made.message, "n", &place, 0),
        _quorlDispatchable_SetThreadKey(&pointer),
        _quorlDispatchable_Signal(made.queue),
        _quorlThreadLocal_Create(&slot),
        _quorlThreadLocal_Set(made.slot, &pointer),
        _quorlThreadLocal_Get(made.slot, &pointer),
        quorlMsg_SetOpaqueHandlers(0),
        quorlMsg_SetOpaqueHandlers(200),
        _quorlMutex_Create(&mutex),
        _quorlMutex_Destroy(made.mutex),
        _quorlCondition_Create(&condition),
        _quorlCondition_Wait(made.condition, made.mutex),
        _quorlCondition_Signal(made.condition),
        _quorlCondition_Destroy(made.condition),
        quorl_Close(),
    };
    int call = 0;
    for (const quorl_status status : statuses) {
        ++call;
        if (status != QUORL_NOT_PERMITTED) return call;
    }
    if (std::strstr(quorl_LastErrorText(), "forked") == nullptr) return 100;
    if (quorl_IsIPM() != QUORL_FALSE) return 101;
    if (std::strlen(quorl_Version()) == 0 || std::strlen(quorlStatus_GetText(QUORL_OK)) == 0) return 102;
    return 0;
}

class Fork : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        made.transport = newTransport();
        made.queue = newQueue();
        EXPECT_EQ(quorlQueueGroup_Create(&made.group), QUORL_OK);
        EXPECT_EQ(quorlQueueGroup_Add(made.group, made.queue), QUORL_OK);
        EXPECT_EQ(quorlEvent_CreateListener(&made.listener, made.queue, count, made.transport, "fork", &counted),
                  QUORL_OK);
        EXPECT_EQ(quorlEvent_CreateTimer(&made.timer, made.queue, onNothing, 3600, nullptr), QUORL_OK);
        EXPECT_EQ(_quorlThreadLocal_Create(&made.slot), QUORL_OK);
        EXPECT_EQ(_quorlMutex_Create(&made.mutex), QUORL_OK);
        EXPECT_EQ(_quorlCondition_Create(&made.condition), QUORL_OK);
        made.message = newMessage("fork", 7);
    }
    void TearDown() override {
        EXPECT_EQ(quorlMsg_Destroy(made.message), QUORL_OK);
        EXPECT_EQ(_quorlMutex_Destroy(made.mutex), QUORL_OK);
        EXPECT_EQ(_quorlCondition_Destroy(made.condition), QUORL_OK);
        Open::TearDown();
    }
    static void count(quorlEvent, quorlMsg, void* closure) { ++*static_cast<std::atomic<int>*>(closure); }

    // What the parent has goes on working.
    void expectWorking() {
        const int before = counted;
        EXPECT_EQ(quorlTransport_Send(made.transport, made.message), QUORL_OK);
        while (quorlQueue_TimedDispatch(made.queue, 0) == QUORL_OK) {
        }
        EXPECT_EQ(counted, before + 1);
    }

    Made made{};
    std::atomic<int> counted{0};
};

TEST_F(Fork, everyCallIsRefusedInTheChild) {
    EXPECT_EQ(inChild([&] { return firstNotRefused(made); }), 0);
    expectWorking();
}

// Locks are held, and queues are being changed, at the moments of the forks.
TEST_F(Fork, noCallOfTheChildWaitsForAThreadThatIsNotThere) {
    std::atomic<bool> done{false};
    Threads threads;
    const auto churn = [&] {
        while (!done) {
            quorlQueue queue = 0;
            quorlEvent event = 0;
            quorlQueue_Create(&queue);
            quorlEvent_CreateListener(&event, queue, onNothing, made.transport, "churn.*", nullptr);
            for (int i = 0; i < 100; ++i) sendNumber(made.transport, "churn.a", i);
            while (quorlQueue_TimedDispatch(queue, 0) == QUORL_OK) {
            }
            quorlEvent_DestroyEx(event, nullptr);
            quorlQueue_DestroyEx(queue, nullptr, nullptr);
        }
    };
    threads.start(churn);
    threads.start(churn);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(inChild([&] { return firstNotRefused(made); }), 0);
    done = true;
    threads.join();
    expectWorking();
}

TEST_F(Fork, insideACallbackTheChildReturnsFromTheDispatch) {
    struct Inside {
        const Made& made;
        pid_t child;
    } inside{made, -1};
    quorlEvent event = 0;
    ASSERT_EQ(quorlEvent_CreateListener(
                  &event, made.queue,
                  [](quorlEvent, quorlMsg message, void* closure) {
                      auto& given = *static_cast<Inside*>(closure);
                      given.child = fork();
                      if (given.child != 0) return;
                      endWhenHanging();
                      quorl_i32 value = 0;
                      if (quorlMsg_GetI32Ex(message, "n", &value, 0) != QUORL_NOT_PERMITTED) _exit(103);
                      if (firstNotRefused(given.made) != 0) _exit(104);
                  },
                  made.transport, "inside", &inside),
              QUORL_OK);
    ASSERT_EQ(sendNumber(made.transport, "inside", 1), QUORL_OK);
    quorlQueue_TimedDispatch(made.queue, limit);
    if (inside.child == 0) _exit(firstNotRefused(made));
    EXPECT_EQ(outcomeOf(inside.child), 0);
    expectWorking();
}

// A child that was forked before the library was opened, or after it was closed, has it to itself.
TEST(ForkOfAClosedLibrary, leavesItToTheChild) {
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(inChild([] {
                  if (quorl_Open() != QUORL_OK) return 1;
                  quorlTransport transport = 0;
                  if (quorlTransport_Create(&transport, nullptr, nullptr, nullptr) != QUORL_OK) return 2;
                  std::atomic<int> counted{0};
                  quorlEvent event = 0;
                  if (quorlEvent_CreateListener(
                          &event, QUORL_DEFAULT_QUEUE,
                          [](quorlEvent, quorlMsg, void* closure) { ++*static_cast<std::atomic<int>*>(closure); },
                          transport, "a", &counted) != QUORL_OK)
                      return 3;
                  if (sendNumber(transport, "a", 1) != QUORL_OK) return 4;
                  if (quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, limit) != QUORL_OK || counted != 1) return 5;
                  return quorl_Close() == QUORL_OK ? 0 : 6;
              }),
              0);
}

}  // namespace
}  // namespace quorltest
