// Queues: limits, counts, names, priorities, and their end.
#include <unistd.h>

#include <algorithm>

#include "support.h"

namespace quorltest {
namespace {

class Queue : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        transport = newTransport();
        queue = newQueue();
        listener = listen(queue, transport, "q", onNumber, &numbers);
    }
    void send(int first, int last) {
        for (int i = first; i <= last; ++i) ASSERT_EQ(sendNumber(transport, "q", i), QUORL_OK);
    }

    quorlTransport transport = 0;
    quorlQueue queue = 0;
    quorlEvent listener = 0;
    Numbers numbers;
};

TEST_F(Queue, countsWhatWaits) {
    EXPECT_EQ(countOf(queue), 0u);
    send(1, 1000);
    EXPECT_EQ(countOf(queue), 1000u);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(countOf(queue), 999u);
    EXPECT_EQ(drain(queue), 999);
    EXPECT_EQ(countOf(queue), 0u);
}

TEST_F(Queue, anEventInItsCallbackIsNoLongerCounted) {
    struct {
        quorlQueue queue;
        quorl_u32 count;
    } seen{queue, 99};
    listen(
        queue, transport, "other",
        [](quorlEvent, quorlMsg, void* closure) {
            auto* to = static_cast<decltype(seen)*>(closure);
            to->count = countOf(to->queue);
        },
        &seen);
    sendNumber(transport, "other", 1);
    send(1, 3);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(seen.count, 3u);
}

TEST_F(Queue, withoutALimitGrows) {
    send(1, 20000);
    EXPECT_EQ(drain(queue), 20000);
    for (int i = 0; i < 20000; ++i) ASSERT_EQ(numbers.came[static_cast<size_t>(i)], i + 1);
}

TEST_F(Queue, discardFirstDropsTheOldest) {
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_FIRST, 5, 2), QUORL_OK);
    send(1, 6);
    EXPECT_EQ(countOf(queue), 4u);
    send(7, 7);
    EXPECT_EQ(countOf(queue), 5u);
    drain(queue);
    EXPECT_EQ(numbers.came, (std::vector{3, 4, 5, 6, 7}));
}

TEST_F(Queue, discardLastDropsTheNewestOfThoseThatWait) {
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_LAST, 5, 2), QUORL_OK);
    send(1, 6);
    EXPECT_EQ(countOf(queue), 4u);
    drain(queue);
    EXPECT_EQ(numbers.came, (std::vector{1, 2, 3, 6}));
}

TEST_F(Queue, discardNewDropsTheArrivingOne) {
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 5, 1), QUORL_OK);
    send(1, 8);
    EXPECT_EQ(countOf(queue), 5u);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    send(9, 10);
    drain(queue);
    EXPECT_EQ(numbers.came, (std::vector{1, 2, 3, 4, 5, 9}));
}

// Limits far above what one piece of the queue's memory holds.
TEST_F(Queue, limitsHoldInLongQueues) {
    for (auto policy : {QUORLQUEUE_DISCARD_FIRST, QUORLQUEUE_DISCARD_LAST, QUORLQUEUE_DISCARD_NEW}) {
        ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, policy, 1000, 600), QUORL_OK);
        send(1, 1001);
        const quorl_u32 left = policy == QUORLQUEUE_DISCARD_NEW ? 1000 : 401;
        EXPECT_EQ(countOf(queue), left);
        send(1002, 1600);
        EXPECT_EQ(countOf(queue), 1000u);
        numbers.came.clear();
        EXPECT_EQ(drain(queue), 1000);
        std::vector<int> expected;
        const int gapFirst = policy == QUORLQUEUE_DISCARD_FIRST ? 1 : policy == QUORLQUEUE_DISCARD_LAST ? 401 : 1001;
        for (int i = 1; i <= 1600; ++i) {
            if (i < gapFirst || i >= gapFirst + 600) expected.push_back(i);
        }
        EXPECT_EQ(numbers.came, expected) << policy;
    }
}

TEST_F(Queue, discardsAllWhenTheAmountIsTheLimit) {
    for (auto policy : {QUORLQUEUE_DISCARD_FIRST, QUORLQUEUE_DISCARD_LAST}) {
        ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, policy, 300, 300), QUORL_OK);
        numbers.came.clear();
        send(1, 301);
        EXPECT_EQ(drain(queue), 1);
        EXPECT_EQ(numbers.came, std::vector{301});
    }
}

TEST_F(Queue, aLoweredLimitTrimsAtOnceByItsPolicy) {
    for (auto policy : {QUORLQUEUE_DISCARD_FIRST, QUORLQUEUE_DISCARD_LAST, QUORLQUEUE_DISCARD_NEW}) {
        ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NONE, 0, 0), QUORL_OK);
        numbers.came.clear();
        send(1, 1000);
        ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, policy, 3, 1), QUORL_OK);
        EXPECT_EQ(countOf(queue), 3u);
        ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, policy, 300, 1), QUORL_OK);
        EXPECT_EQ(countOf(queue), 3u);
        drain(queue);
        EXPECT_EQ(numbers.came,
                  policy == QUORLQUEUE_DISCARD_FIRST ? (std::vector{998, 999, 1000}) : (std::vector{1, 2, 3}));
    }
}

TEST_F(Queue, limitsHoldWhileItIsDispatched) {
    constexpr int messages = 30000;
    for (auto policy : {QUORLQUEUE_DISCARD_FIRST, QUORLQUEUE_DISCARD_LAST, QUORLQUEUE_DISCARD_NEW}) {
        ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, policy, 50, 7), QUORL_OK);
        numbers.came.clear();
        std::atomic<bool> done{false};
        Threads threads;
        threads.start([&] {
            for (int i = 0; i < messages; ++i) sendNumber(transport, "q", i);
            done = true;
        });
        while (!done || countOf(queue) != 0) {
            EXPECT_LE(countOf(queue), 50u);
            quorlQueue_TimedDispatch(queue, 0.001);
        }
        threads.join();
        EXPECT_TRUE(std::is_sorted(numbers.came.begin(), numbers.came.end()));
        EXPECT_FALSE(numbers.came.empty());
    }
}

TEST_F(Queue, limitPoliciesAreCheckedAndReadBack) {
    quorlQueueLimitPolicy policy = QUORLQUEUE_DISCARD_NEW;
    quorl_u32 most = 9;
    quorl_u32 amount = 9;
    EXPECT_EQ(quorlQueue_GetLimitPolicy(queue, &policy, &most, &amount), QUORL_OK);
    EXPECT_EQ(policy, QUORLQUEUE_DISCARD_NONE);
    EXPECT_EQ(most, 0u);
    EXPECT_EQ(amount, 0u);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NONE, 1, 0), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NONE, 0, 1), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_FIRST, 0, 0), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_LAST, 5, 0), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 5, 6), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(queue, static_cast<quorlQueueLimitPolicy>(4), 5, 1), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(queue, static_cast<quorlQueueLimitPolicy>(-1), 5, 1), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(999, QUORLQUEUE_DISCARD_NEW, 5, 1), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_LAST, 5, 4), QUORL_OK);
    EXPECT_EQ(quorlQueue_GetLimitPolicy(queue, &policy, &most, &amount), QUORL_OK);
    EXPECT_EQ(policy, QUORLQUEUE_DISCARD_LAST);
    EXPECT_EQ(most, 5u);
    EXPECT_EQ(amount, 4u);
    EXPECT_EQ(quorlQueue_GetLimitPolicy(queue, nullptr, &most, &amount), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_GetLimitPolicy(queue, &policy, nullptr, &amount), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_GetLimitPolicy(queue, &policy, &most, nullptr), QUORL_INVALID_ARG);
}

TEST_F(Queue, hasANameOfUpTo255Bytes) {
    const char* name = nullptr;
    EXPECT_EQ(quorlQueue_GetName(queue, &name), QUORL_OK);
    EXPECT_STREQ(name, "");
    const std::string longest(255, 'n');
    EXPECT_EQ(quorlQueue_SetName(queue, longest.c_str()), QUORL_OK);
    EXPECT_EQ(quorlQueue_SetName(queue, (longest + "n").c_str()), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_SetName(queue, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_SetName(999, "x"), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_GetName(queue, &name), QUORL_OK);
    EXPECT_EQ(name, longest);
    EXPECT_EQ(quorlQueue_GetName(queue, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_GetName(999, &name), QUORL_INVALID_QUEUE);
}

TEST_F(Queue, hasAPriority) {
    quorl_u32 priority = 0;
    EXPECT_EQ(quorlQueue_GetPriority(queue, &priority), QUORL_OK);
    EXPECT_EQ(priority, 1u);
    EXPECT_EQ(quorlQueue_SetPriority(queue, UINT32_MAX), QUORL_OK);
    EXPECT_EQ(quorlQueue_GetPriority(queue, &priority), QUORL_OK);
    EXPECT_EQ(priority, UINT32_MAX);
    EXPECT_EQ(quorlQueue_SetPriority(999, 1), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_GetPriority(999, &priority), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_GetPriority(queue, nullptr), QUORL_INVALID_ARG);
}

TEST_F(Queue, refusesWhatIsNoQueue) {
    quorl_u32 count = 0;
    EXPECT_EQ(quorlQueue_Create(nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_GetCount(999, &count), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_GetCount(transport, &count), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_GetCount(queue, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_TimedDispatch(999, 0), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, __builtin_nan("")), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueue_DestroyEx(999, nullptr, nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_DestroyEx(0, nullptr, nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_DestroyEx(QUORL_DEFAULT_QUEUE, nullptr, nullptr), QUORL_NOT_PERMITTED);
}

TEST_F(Queue, dispatchTimesOut) {
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_TIMEOUT);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0.002), QUORL_TIMEOUT);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 1e-300), QUORL_TIMEOUT);
    EXPECT_STRNE(quorl_LastErrorText(), "");
}

TEST_F(Queue, aBlockedDispatchRunsTheEventThatComes) {
    Counter ready;
    pid_t thread = 0;
    quorl_status status = QUORL_OS_ERROR;
    Threads threads;
    threads.start([&] {
        thread = gettid();
        ready.add();
        status = quorlQueue_TimedDispatch(queue, -1);
    });
    ASSERT_TRUE(ready.waitFor(1));
    ASSERT_TRUE(waitUntilAsleep(thread));
    send(42, 42);
    threads.join();
    EXPECT_EQ(status, QUORL_OK);
    EXPECT_EQ(numbers.came, std::vector{42});
}

TEST_F(Queue, destroyWakesItsDispatchers) {
    Counter ready;
    std::atomic<int> woken{0};
    Threads threads;
    for (int i = 0; i < 5; ++i) {
        threads.start([&] {
            ready.add();
            EXPECT_EQ(quorlQueue_TimedDispatch(queue, -1), QUORL_INVALID_QUEUE);
            ++woken;
        });
    }
    ASSERT_TRUE(ready.waitFor(5));
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    threads.join();
    EXPECT_EQ(woken, 5);
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(sendNumber(transport, "q", 1), QUORL_OK);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
}

TEST_F(Queue, destroyCompletesWhenNoCallbackRuns) {
    struct State {
        quorlQueue queue;
        Counter started, finish, completed;
        std::atomic<bool> running{false};
        std::atomic<bool> ranAtCompletion{true};
        pthread_t completer;
        quorlQueue completedId = 0;
    } state;
    state.queue = queue;
    listen(
        queue, transport, "slow",
        [](quorlEvent, quorlMsg, void* closure) {
            auto& to = *static_cast<State*>(closure);
            to.running = true;
            to.started.add();
            EXPECT_TRUE(to.finish.waitFor(1));
            to.running = false;
        },
        &state);
    sendNumber(transport, "slow", 1);
    Threads threads;
    threads.start([&] { EXPECT_EQ(quorlQueue_TimedDispatch(queue, -1), QUORL_OK); });
    ASSERT_TRUE(state.started.waitFor(1));
    EXPECT_EQ(quorlQueue_DestroyEx(
                  queue,
                  [](quorlQueue id, void* closure) {
                      auto& to = *static_cast<State*>(closure);
                      to.ranAtCompletion = to.running.load();
                      to.completer = pthread_self();
                      to.completedId = id;
                      to.completed.add();
                  },
                  &state),
              QUORL_OK);
    EXPECT_EQ(state.completed.value(), 0);
    state.finish.add();
    EXPECT_TRUE(state.completed.waitFor(1));
    EXPECT_FALSE(state.ranAtCompletion);
    EXPECT_EQ(state.completedId, queue);
    EXPECT_FALSE(pthread_equal(state.completer, pthread_self()));
    threads.join();
    EXPECT_EQ(state.completed.value(), 1);
}

TEST_F(Queue, destroyInsideItsOwnCallback) {
    Counter completed;
    struct State {
        quorlQueue queue;
        Counter* completed;
    } state{queue, &completed};
    listen(
        queue, transport, "die",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<State*>(closure);
            EXPECT_EQ(
                quorlQueue_DestroyEx(
                    to.queue, [](quorlQueue, void* counter) { static_cast<Counter*>(counter)->add(); }, to.completed),
                QUORL_OK);
            EXPECT_EQ(quorlQueue_TimedDispatch(to.queue, -1), QUORL_INVALID_QUEUE);
            EXPECT_EQ(numberOf(message), 1);
            EXPECT_EQ(to.completed->value(), 0);
        },
        &state);
    sendNumber(transport, "die", 1);
    send(2, 5);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_TRUE(completed.waitFor(1));
    EXPECT_TRUE(numbers.came.empty());
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_INVALID_QUEUE);
}

TEST_F(Queue, callbacksMayDispatchAgain) {
    struct State {
        quorlQueue queue;
        int deepest = 0;
    } state{queue};
    listen(
        queue, transport, "deep",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<State*>(closure);
            to.deepest = std::max(to.deepest, numberOf(message));
            quorlQueue_TimedDispatch(to.queue, 0);
            EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        },
        &state);
    for (int i = 1; i <= 200; ++i) sendNumber(transport, "deep", i);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(state.deepest, 200);
    EXPECT_EQ(countOf(queue), 0u);
    Counter completed;
    EXPECT_EQ(quorlQueue_DestroyEx(
                  queue, [](quorlQueue, void* counter) { static_cast<Counter*>(counter)->add(); }, &completed),
              QUORL_OK);
    EXPECT_TRUE(completed.waitFor(1));
}

TEST_F(Queue, queuesComeAndGoWhileOthersSendAndDispatch) {
    std::atomic<bool> done{false};
    Threads threads;
    threads.start([&] {
        for (int i = 0; !done; ++i) sendNumber(transport, "storm", i);
    });
    for (int i = 0; i < 60; ++i) {
        const quorlQueue stormy = newQueue();
        std::atomic<int> came{0};
        listen(
            stormy, transport, "storm",
            [](quorlEvent, quorlMsg message, void* closure) {
                numberOf(message);
                ++*static_cast<std::atomic<int>*>(closure);
            },
            &came);
        Counter completed;
        std::thread dispatcher([&] {
            while (quorlQueue_TimedDispatch(stormy, -1) == QUORL_OK) {
            }
        });
        while (came < 3) std::this_thread::yield();
        EXPECT_EQ(quorlQueue_DestroyEx(
                      stormy, [](quorlQueue, void* counter) { static_cast<Counter*>(counter)->add(); }, &completed),
                  QUORL_OK);
        EXPECT_TRUE(completed.waitFor(1));
        dispatcher.join();
    }
    done = true;
    threads.join();
}

}  // namespace
}  // namespace quorltest
