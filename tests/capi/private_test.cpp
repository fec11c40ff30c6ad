// What language bindings use: objects by id, thread-local slots, conditions, keys and signals.
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <random>

#include "quorl/quorlcm.h"
#include "quorl/quorlcmq.h"
#include "quorl/quorlft.h"
#include "quorl/quorlsd.h"
#include "support.h"

namespace quorltest {
namespace {

// ---- objects

class Objects : public Open {};

TEST_F(Objects, areVerifiedByIdAndType) {
    const quorlTransport transport = newTransport();
    EXPECT_EQ(_quorlObjectId_Verify(1, QUORL_OBJECT_QUEUE), QUORL_OK);
    EXPECT_EQ(_quorlObjectId_Verify(transport, QUORL_OBJECT_TRANSPORT), QUORL_OK);
    EXPECT_EQ(_quorlObjectId_Verify(transport, QUORL_OBJECT_QUEUE), QUORL_NOT_FOUND);
    EXPECT_EQ(_quorlObjectId_Verify(1, 0), QUORL_NOT_FOUND);
    EXPECT_EQ(_quorlObjectId_Verify(1, 0x10002), QUORL_NOT_FOUND);
    EXPECT_EQ(_quorlObjectId_Verify(0, QUORL_OBJECT_QUEUE), QUORL_NOT_FOUND);
    EXPECT_EQ(_quorlObjectId_Verify(UINT32_MAX, QUORL_OBJECT_QUEUE), QUORL_NOT_FOUND);
}

TEST_F(Objects, givesRecordsThatBeginWithTheClosure) {
    int closure = 0;
    void* record = &closure;
    const quorlEvent listener = listen(
        1, newTransport(), "a", [](quorlEvent, quorlMsg, void*) {}, &closure);
    EXPECT_EQ(_quorlObjectId_GetEx(listener, QUORL_OBJECT_EVENT, &record, 0, 0), QUORL_OK);
    EXPECT_EQ(static_cast<_quorlRecordHead*>(record)->arg, &closure);
    EXPECT_EQ(_quorlObjectId_ReleaseEx(record, 0), QUORL_OK);
    EXPECT_EQ(_quorlObjectId_GetEx(listener, QUORL_OBJECT_QUEUE, &record, 1, 0), QUORL_NOT_FOUND);
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(_quorlObjectId_GetEx(listener, QUORL_OBJECT_EVENT, nullptr, 0, 0), QUORL_INVALID_ARG);
    EXPECT_EQ(_quorlObjectId_GetEx(listener, QUORL_OBJECT_EVENT, &record, 2, 0), QUORL_INVALID_ARG);
    EXPECT_EQ(_quorlObjectId_ReleaseEx(nullptr, 1), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    EXPECT_EQ(_quorlObjectId_GetEx(listener, QUORL_OBJECT_EVENT, &record, 1, 0), QUORL_NOT_FOUND);
}

TEST_F(Objects, aStaleIdNeverNamesANewerObject) {
    std::vector<quorlQueue> stale;
    for (int i = 0; i < 20000; ++i) {
        const quorlQueue queue = newQueue();
        ASSERT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
        stale.push_back(queue);
    }
    const quorlQueue live = newQueue();
    std::sort(stale.begin(), stale.end());
    EXPECT_EQ(std::adjacent_find(stale.begin(), stale.end()), stale.end());
    for (const quorlQueue queue : stale) {
        ASSERT_NE(queue, live);
        ASSERT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_INVALID_QUEUE);
    }
}

TEST_F(Objects, anyIdIsSafeEverywhere) {
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    quorlQueueGroup group = 0;
    ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    const quorlEvent listener = listen(
        queue, transport, "a", [](quorlEvent, quorlMsg, void*) {}, nullptr);
    const std::vector<quorl_u32> live{1, transport, queue, group, listener};
    quorlMsg message = newMessage("a");
    quorlMsg reply = nullptr;
    void* record = nullptr;
    char inbox[255];
    const char* name = nullptr;
    quorl_u32 number = 0;
    quorl_u32 made = 0;
    double seconds = 0;
    quorlQueueLimitPolicy policy;
    const auto callback = [](quorlEvent, quorlMsg, void*) {};
    const auto vectorCallback = [](quorlMsg*, quorl_u32) {};
    std::mt19937 random(20250117);
    for (int i = 0; i < 100000; ++i) {
        // Also ids that are close to live ones: other generations of their slots, other slots.
        quorl_u32 id = static_cast<quorl_u32>(random());
        if (i % 4 == 1) id = live[i % live.size()] ^ (1u << random() % 32);
        if (i % 4 == 2) id %= 64;
        if (std::find(live.begin(), live.end(), id) != live.end()) continue;
        ASSERT_EQ(quorlQueue_DestroyEx(id, nullptr, nullptr), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueue_SetName(id, "x"), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueue_GetName(id, &name), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueue_GetCount(id, &number), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueue_TimedDispatch(id, 0), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueue_SetPriority(id, 1), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueue_GetPriority(id, &number), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueue_SetLimitPolicy(id, QUORLQUEUE_DISCARD_NONE, 0, 0), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueue_GetLimitPolicy(id, &policy, &number, &number), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueueGroup_Destroy(id), QUORL_INVALID_QUEUE_GROUP);
        ASSERT_EQ(quorlQueueGroup_Add(id, queue), QUORL_INVALID_QUEUE_GROUP);
        ASSERT_EQ(quorlQueueGroup_Add(group, id), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueueGroup_Remove(id, queue), QUORL_INVALID_QUEUE_GROUP);
        ASSERT_EQ(quorlQueueGroup_Remove(group, id), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlQueueGroup_TimedDispatch(id, 0), QUORL_INVALID_QUEUE_GROUP);
        ASSERT_EQ(quorlEvent_CreateListener(&made, id, callback, transport, "a", nullptr), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlEvent_CreateListener(&made, queue, callback, id, "a", nullptr), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlEvent_CreateGroupVectorListener(&made, id, vectorCallback, transport, "a", nullptr, nullptr),
                  QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlEvent_CreateTimer(&made, id, callback, 1, nullptr), QUORL_INVALID_QUEUE);
        ASSERT_EQ(quorlEvent_GetTimerInterval(id, &seconds), QUORL_INVALID_EVENT);
        ASSERT_EQ(quorlEvent_ResetTimerInterval(id, 1), QUORL_INVALID_EVENT);
        ASSERT_EQ(quorlEvent_DestroyEx(id, nullptr), QUORL_INVALID_EVENT);
        ASSERT_EQ(quorlTransport_Destroy(id), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlTransport_SetDescription(id, "x"), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlTransport_RequestReliability(id, 1), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlTransport_SetBatchMode(id, QUORLTRANSPORT_DEFAULT_BATCH), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlTransport_SetBatchSize(id, 1), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlTransport_CreateInbox(id, inbox, sizeof inbox), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlTransport_Send(id, message), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlTransport_Sendv(id, &message, 1), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlTransport_SendRequest(id, message, &reply, 0), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(quorlTransport_SendReply(id, message, message), QUORL_INVALID_TRANSPORT);
        ASSERT_EQ(_quorlObjectId_GetEx(id, i % 5, &record, 1, 0), QUORL_NOT_FOUND);
        ASSERT_EQ(_quorlObjectId_Verify(id, i % 5), QUORL_NOT_FOUND);
        ASSERT_EQ(_quorlDispatchable_Signal(id), QUORL_INVALID_DISPATCHABLE);
    }
    EXPECT_EQ(countOf(queue), 0u);
    EXPECT_EQ(quorlTransport_Send(transport, message), QUORL_OK);
    quorlMsg_Destroy(message);
}

// ---- thread-local slots

TEST(ThreadLocal, holdsOnePointerPerThread) {
    _quorlThreadLocal slot = 0;
    ASSERT_EQ(_quorlThreadLocal_Create(&slot), QUORL_OK);
    ASSERT_NE(slot, 0u);
    int mine = 0;
    int others = 0;
    void* value = &mine;
    EXPECT_EQ(_quorlThreadLocal_Get(slot, &value), QUORL_OK);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(_quorlThreadLocal_Set(slot, &mine), QUORL_OK);
    std::thread([&] {
        void* seen = &mine;
        EXPECT_EQ(_quorlThreadLocal_Get(slot, &seen), QUORL_OK);
        EXPECT_EQ(seen, nullptr);
        EXPECT_EQ(_quorlThreadLocal_Set(slot, &others), QUORL_OK);
    }).join();
    std::thread([&] {
        // A later thread finds nothing of an earlier one.
        void* seen = &mine;
        EXPECT_EQ(_quorlThreadLocal_Get(slot, &seen), QUORL_OK);
        EXPECT_EQ(seen, nullptr);
    }).join();
    EXPECT_EQ(_quorlThreadLocal_Get(slot, &value), QUORL_OK);
    EXPECT_EQ(value, &mine);
    // Slots and values outlive the environment.
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(_quorlThreadLocal_Get(slot, &value), QUORL_OK);
    EXPECT_EQ(value, &mine);
    EXPECT_EQ(_quorlThreadLocal_Set(slot, nullptr), QUORL_OK);
}

TEST(ThreadLocal, destructorsRunAsAThreadEnds) {
    static std::atomic<int> destroyed;
    static _quorlThreadLocal slot, other;
    destroyed = 0;
    ASSERT_EQ(_quorlThreadLocal_CreateEx(&slot,
                                         [](void* value) {
                                             ++*static_cast<std::atomic<int>*>(value);
                                             // What a destructor stores is destroyed too.
                                             EXPECT_EQ(_quorlThreadLocal_Set(other, value), QUORL_OK);
                                         }),
              QUORL_OK);
    ASSERT_EQ(_quorlThreadLocal_CreateEx(&other, [](void* value) { *static_cast<std::atomic<int>*>(value) += 10; }),
              QUORL_OK);
    std::thread([&] { EXPECT_EQ(_quorlThreadLocal_Set(slot, &destroyed), QUORL_OK); }).join();
    EXPECT_EQ(destroyed, 11);
    std::thread([&] {
        EXPECT_EQ(_quorlThreadLocal_Set(slot, &destroyed), QUORL_OK);
        EXPECT_EQ(_quorlThreadLocal_Set(slot, nullptr), QUORL_OK);
    }).join();
    EXPECT_EQ(destroyed, 11);
}

TEST(ThreadLocal, slotsAreChecked) {
    void* value = nullptr;
    EXPECT_EQ(_quorlThreadLocal_Create(nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(_quorlThreadLocal_CreateEx(nullptr, nullptr), QUORL_INVALID_ARG);
    for (_quorlThreadLocal bad : {0u, 100000u, UINT32_MAX}) {
        EXPECT_EQ(_quorlThreadLocal_Set(bad, &value), QUORL_INVALID_ARG);
        EXPECT_EQ(_quorlThreadLocal_Get(bad, &value), QUORL_INVALID_ARG);
    }
    _quorlThreadLocal slot = 0;
    ASSERT_EQ(_quorlThreadLocal_Create(&slot), QUORL_OK);
    EXPECT_EQ(_quorlThreadLocal_Get(slot, nullptr), QUORL_INVALID_ARG);
}

// ---- conditions

TEST(Condition, handsAMutexOverAndBack) {
    _quorlMutex mutex = nullptr;
    _quorlCondition condition = nullptr;
    ASSERT_EQ(_quorlMutex_Create(&mutex), QUORL_OK);
    ASSERT_EQ(_quorlCondition_Create(&condition), QUORL_OK);
    EXPECT_EQ(mutex->flags, 0u);
    bool done = false;
    pthread_mutex_lock(&mutex->mutex);
    EXPECT_EQ(_quorlMutex_Destroy(mutex), QUORL_NOT_PERMITTED);
    std::thread other([&] {
        pthread_mutex_lock(&mutex->mutex);
        done = true;
        EXPECT_EQ(_quorlCondition_Signal(condition), QUORL_OK);
        pthread_mutex_unlock(&mutex->mutex);
    });
    while (!done) EXPECT_EQ(_quorlCondition_Wait(condition, mutex), QUORL_OK);
    pthread_mutex_unlock(&mutex->mutex);
    other.join();
    EXPECT_EQ(_quorlMutex_Destroy(mutex), QUORL_OK);
    EXPECT_EQ(_quorlCondition_Destroy(condition), QUORL_OK);
    for (const quorl_status status :
         {_quorlMutex_Create(nullptr), _quorlMutex_Destroy(nullptr), _quorlCondition_Create(nullptr),
          _quorlCondition_Destroy(nullptr), _quorlCondition_Signal(nullptr), _quorlCondition_Wait(nullptr, nullptr)})
        EXPECT_EQ(status, QUORL_INVALID_ARG);
}

TEST(Condition, endsAWaitOnlyAfterASignal) {
    _quorlMutex mutex = nullptr;
    _quorlCondition condition = nullptr;
    ASSERT_EQ(_quorlMutex_Create(&mutex), QUORL_OK);
    ASSERT_EQ(_quorlCondition_Create(&condition), QUORL_OK);
    // Guarded by the mutex.
    bool waiting = false, signalled = false, signalledWhenItEnded = false;
    std::thread waiter([&] {
        pthread_mutex_lock(&mutex->mutex);
        waiting = true;
        EXPECT_EQ(_quorlCondition_Wait(condition, mutex), QUORL_OK);
        signalledWhenItEnded = signalled;
        pthread_mutex_unlock(&mutex->mutex);
    });
    for (bool begun = false; !begun; sched_yield()) {
        pthread_mutex_lock(&mutex->mutex);
        begun = waiting;
        pthread_mutex_unlock(&mutex->mutex);
    }
    // A wait that ends by itself, as POSIX allows: the record begins with the POSIX condition, which is woken here directly.
    for (int i = 0; i < 10'000; ++i) {
        if (i % 50 == 0) pthread_cond_broadcast(reinterpret_cast<pthread_cond_t*>(condition));
        sched_yield();
    }
    pthread_mutex_lock(&mutex->mutex);
    signalled = true;
    EXPECT_EQ(_quorlCondition_Signal(condition), QUORL_OK);
    pthread_mutex_unlock(&mutex->mutex);
    waiter.join();
    EXPECT_TRUE(signalledWhenItEnded);
    EXPECT_EQ(_quorlMutex_Destroy(mutex), QUORL_OK);
    EXPECT_EQ(_quorlCondition_Destroy(condition), QUORL_OK);
}

TEST(Condition, signalBeforeAWaitIsNotKept) {
    _quorlMutex mutex = nullptr;
    _quorlCondition condition = nullptr;
    ASSERT_EQ(_quorlMutex_Create(&mutex), QUORL_OK);
    ASSERT_EQ(_quorlCondition_Create(&condition), QUORL_OK);
    EXPECT_EQ(_quorlCondition_Signal(condition), QUORL_OK);
    bool signalled = false;
    pthread_mutex_lock(&mutex->mutex);
    std::thread other([&] {
        pthread_mutex_lock(&mutex->mutex);
        signalled = true;
        EXPECT_EQ(_quorlCondition_Signal(condition), QUORL_OK);
        pthread_mutex_unlock(&mutex->mutex);
    });
    EXPECT_EQ(_quorlCondition_Wait(condition, mutex), QUORL_OK);
    EXPECT_TRUE(signalled);
    pthread_mutex_unlock(&mutex->mutex);
    other.join();
    EXPECT_EQ(_quorlMutex_Destroy(mutex), QUORL_OK);
    EXPECT_EQ(_quorlCondition_Destroy(condition), QUORL_OK);
}

// ---- keys and signals

class Signals : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        queue = newQueue();
        ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    }
    // As whoever interrupts a thread does.
    static void signal(std::atomic<quorl_u32>& cell, quorl_u32 id) {
        cell.store(id);
        EXPECT_EQ(_quorlDispatchable_Signal(id), QUORL_OK);
    }
    quorl_status dispatch(quorl_u32 id, double timeout) {
        return id == queue ? quorlQueue_TimedDispatch(id, timeout) : quorlQueueGroup_TimedDispatch(id, timeout);
    }
    quorlQueue queue = 0;
    quorlQueueGroup group = 0;
};

TEST_F(Signals, interruptTheNextDispatchOnce) {
    for (const quorl_u32 id : {queue, group}) {
        std::atomic<quorl_u32> cell{0};
        ASSERT_EQ(_quorlDispatchable_SetThreadKey(&cell), QUORL_OK);
        signal(cell, id);
        EXPECT_EQ(quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 0), QUORL_TIMEOUT);
        EXPECT_EQ(cell, id);
        EXPECT_EQ(dispatch(id, -1), QUORL_INTR);
        EXPECT_EQ(cell, 0u);
        EXPECT_EQ(dispatch(id, 0), QUORL_TIMEOUT);
        ASSERT_EQ(_quorlDispatchable_SetThreadKey(nullptr), QUORL_OK);
    }
}

TEST_F(Signals, interruptTheBlockedThreadWhoseCellHoldsTheId) {
    for (const quorl_u32 id : {queue, group}) {
        std::atomic<quorl_u32> cells[3] = {};
        std::atomic<pid_t> tids[3] = {};
        std::atomic<int> interrupted[3] = {};
        Counter ready, back;
        Threads threads;
        for (int i = 0; i < 3; ++i) {
            threads.start([&, i] {
                ASSERT_EQ(_quorlDispatchable_SetThreadKey(&cells[i]), QUORL_OK);
                tids[i] = gettid();
                ready.add();
                while (dispatch(id, -1) == QUORL_INTR) {
                    ++interrupted[i];
                    back.add();
                }
                EXPECT_EQ(_quorlDispatchable_SetThreadKey(nullptr), QUORL_OK);
            });
        }
        ASSERT_TRUE(ready.waitFor(3));
        for (auto& tid : tids) ASSERT_TRUE(waitUntilAsleep(tid));
        signal(cells[1], id);
        ASSERT_TRUE(back.waitFor(1));
        EXPECT_EQ(interrupted[1], 1);
        signal(cells[2], id);
        ASSERT_TRUE(back.waitFor(2));
        EXPECT_EQ(interrupted[0], 0);
        EXPECT_EQ(interrupted[1], 1);
        EXPECT_EQ(interrupted[2], 1);
        if (id == queue) {
            EXPECT_EQ(quorlQueue_DestroyEx(id, nullptr, nullptr), QUORL_OK);
        } else {
            EXPECT_EQ(quorlQueueGroup_Destroy(id), QUORL_OK);
        }
        threads.join();
    }
}

TEST_F(Signals, interruptBlockedThreadsWithoutAKey) {
    for (const quorl_u32 id : {queue, group}) {
        std::atomic<pid_t> tids[2] = {};
        Counter ready;
        Threads threads;
        for (int i = 0; i < 2; ++i) {
            threads.start([&, i] {
                tids[i] = gettid();
                ready.add();
                EXPECT_EQ(dispatch(id, -1), QUORL_INTR);
            });
        }
        ASSERT_TRUE(ready.waitFor(2));
        for (auto& tid : tids) ASSERT_TRUE(waitUntilAsleep(tid));
        EXPECT_EQ(_quorlDispatchable_Signal(id), QUORL_OK);
        threads.join();
    }
}

TEST_F(Signals, areNeverLost) {
    const quorlTransport transport = newTransport();
    listen(
        queue, transport, "a", [](quorlEvent, quorlMsg, void*) {}, nullptr);
    std::atomic<quorl_u32> cell{0};
    std::atomic<bool> done{false};
    Counter interrupted;
    Threads threads;
    threads.start([&] {
        ASSERT_EQ(_quorlDispatchable_SetThreadKey(&cell), QUORL_OK);
        for (bool last = false; !last;) {
            if (quorlQueue_TimedDispatch(queue, -1) != QUORL_INTR) continue;
            last = done;
            interrupted.add();
        }
        EXPECT_EQ(_quorlDispatchable_SetThreadKey(nullptr), QUORL_OK);
    });
    for (int i = 1; i <= 1000; ++i) {
        if (i % 3 != 0) sendNumber(transport, "a", i);
        done = i == 1000;
        signal(cell, queue);
        ASSERT_TRUE(interrupted.waitFor(i));
        EXPECT_EQ(interrupted.value(), i);
    }
    threads.join();
}

TEST_F(Signals, aCellMayBeFreedBeforeItsKeyIsTakenAway) {
    auto cell = std::make_unique<std::atomic<quorl_u32>>(0);
    ASSERT_EQ(_quorlDispatchable_SetThreadKey(cell.get()), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_TIMEOUT);
    cell.reset();
    Threads threads;
    threads.start([&] { EXPECT_EQ(_quorlDispatchable_Signal(queue), QUORL_OK); });
    threads.join();
    EXPECT_EQ(_quorlDispatchable_SetThreadKey(nullptr), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_TIMEOUT);
}

TEST_F(Signals, keysAndDispatchablesAreChecked) {
    alignas(4) char cell[8] = {};
    EXPECT_EQ(_quorlDispatchable_SetThreadKey(cell + 1), QUORL_INVALID_ARG);
    EXPECT_EQ(_quorlDispatchable_Signal(0), QUORL_INVALID_DISPATCHABLE);
    EXPECT_EQ(_quorlDispatchable_Signal(newTransport()), QUORL_INVALID_DISPATCHABLE);
    EXPECT_EQ(_quorlDispatchable_Signal(queue), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_TIMEOUT);
}

// Threads that wait must sleep: a thousand listeners and ten dispatchers use next to no processor time.
TEST_F(Signals, blockedDispatchersUseNoProcessor) {
    const quorlTransport transport = newTransport();
    for (int i = 0; i < 1000; ++i)
        listen(
            queue, transport, ("idle." + std::to_string(i)).c_str(), [](quorlEvent, quorlMsg, void*) {}, nullptr);
    std::atomic<pid_t> tids[10] = {};
    std::atomic<long> switches[10] = {};
    Counter ready;
    Threads threads;
    for (int i = 0; i < 10; ++i) {
        threads.start([&, i] {
            rusage before, after;
            getrusage(RUSAGE_THREAD, &before);
            tids[i] = gettid();
            ready.add();
            EXPECT_EQ(quorlQueue_TimedDispatch(queue, 1), QUORL_TIMEOUT);
            getrusage(RUSAGE_THREAD, &after);
            switches[i] = after.ru_nvcsw - before.ru_nvcsw;
        });
    }
    threads.join();
    // One sleep each; some more for locks that were contended at the start.
    for (auto& count : switches) EXPECT_LT(count, 50);
}

// ---- companions

TEST(Companions, areOfTheSameVersion) {
    EXPECT_STREQ(quorlcm_Version(), quorl_Version());
    EXPECT_STREQ(quorlft_Version(), quorl_Version());
}

// Certified messages and their limits need no open library, as messages do not; all else does.
TEST(Companions, wantTheLibraryOpen) {
    quorl_u32 id = 7;
    EXPECT_EQ(quorlcmTransport_Create(&id, 1, nullptr, QUORL_FALSE, nullptr, QUORL_FALSE, nullptr),
              QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlcmTransport_Destroy(1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlftMember_Destroy(1), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlcmTransport_Send(1, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlcmEvent_ConfirmMsg(1, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlcmEvent_DestroyEx(1, QUORL_TRUE, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(quorlMsg_SetCMTimeLimit(nullptr, 1), QUORL_INVALID_MSG);
    EXPECT_EQ(id, 7u);
}

TEST(Companions, credentials_reach_the_library_and_come_back_with_its_texts) {
    EXPECT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, nullptr), QUORL_OK);
    EXPECT_EQ(quorlSecureDaemon_SetDaemonCert("two words", nullptr), QUORL_INVALID_NAME);
    EXPECT_NE(strstr(quorl_LastErrorText(), "daemon's name"), nullptr) << quorl_LastErrorText();
    EXPECT_EQ(quorlSecureDaemon_SetDaemonCert(nullptr, "no PEM"), QUORL_INVALID_ARG);
    EXPECT_STREQ(quorl_LastErrorText(), "the text holds no certificate in PEM");
    EXPECT_EQ(quorlSecureDaemon_SetUserNameWithPassword("ada", "countess"), QUORL_OK);
    EXPECT_EQ(quorlSecureDaemon_SetUserNameWithPassword(nullptr, nullptr), QUORL_OK);
    EXPECT_EQ(quorlSecureDaemon_SetUserCertWithKeyBin("\0\0", 2, ""), QUORL_INVALID_ARG);
}

}  // namespace
}  // namespace quorltest
