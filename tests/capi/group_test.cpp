// Queue groups: membership, priorities, fairness.
#include <unistd.h>

#include <array>

#include "support.h"

namespace quorltest {
namespace {

class Group : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        transport = newTransport();
        ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    }
    // A queue in the group, whose messages come as numbers.
    quorlQueue member(const char* subject, quorl_u32 priority = 1) {
        const quorlQueue queue = newQueue();
        EXPECT_EQ(quorlQueue_SetPriority(queue, priority), QUORL_OK);
        EXPECT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
        listen(queue, transport, subject, onNumber, &numbers);
        return queue;
    }
    int dispatchAll() {
        int dispatched = 0;
        while (quorlQueueGroup_TimedDispatch(group, 0) == QUORL_OK) ++dispatched;
        return dispatched;
    }

    quorlTransport transport = 0;
    quorlQueueGroup group = 0;
    Numbers numbers;
};

TEST_F(Group, takesTheHighestPriorityFirst) {
    member("low", 0);
    member("middle", 5);
    member("high", UINT32_MAX);
    for (int i = 0; i < 2; ++i) {
        sendNumber(transport, "low", i);
        sendNumber(transport, "high", 20 + i);
        sendNumber(transport, "middle", 10 + i);
    }
    EXPECT_EQ(dispatchAll(), 6);
    EXPECT_EQ(numbers.came, (std::vector{20, 21, 10, 11, 0, 1}));
}

TEST_F(Group, followsAPriorityThatChanges) {
    const quorlQueue first = member("a", 1);
    member("b", 2);
    for (int i = 0; i < 2; ++i) {
        sendNumber(transport, "a", i);
        sendNumber(transport, "b", 10 + i);
    }
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, 0), QUORL_OK);
    EXPECT_EQ(quorlQueue_SetPriority(first, 3), QUORL_OK);
    dispatchAll();
    EXPECT_EQ(numbers.came, (std::vector{10, 0, 1, 11}));
}

TEST_F(Group, takesTurnsAmongEquals) {
    member("a");
    member("b");
    member("c");
    for (int i = 0; i < 3; ++i) {
        for (const char* subject : {"a", "b", "c"}) sendNumber(transport, subject, i * 10 + subject[0] - 'a');
    }
    sendNumber(transport, "a", 30);
    EXPECT_EQ(dispatchAll(), 10);
    EXPECT_EQ(numbers.came, (std::vector{0, 1, 2, 10, 11, 12, 20, 21, 22, 30}));
}

TEST_F(Group, aBusyQueueDoesNotStarveItsEquals) {
    const quorlQueue busy = newQueue();
    quorlEvent timer = 0;
    static int fired;
    fired = 0;
    ASSERT_EQ(quorlEvent_CreateTimer(
                  &timer, busy, [](quorlEvent, quorlMsg, void*) { ++fired; }, 0, nullptr),
              QUORL_OK);
    ASSERT_EQ(quorlQueueGroup_Add(group, busy), QUORL_OK);
    member("a");
    for (int i = 0; i < 100; ++i) sendNumber(transport, "a", i);
    for (int i = 0; i < 200; ++i) ASSERT_EQ(quorlQueueGroup_TimedDispatch(group, 0), QUORL_OK);
    EXPECT_EQ(numbers.came.size(), 100u);
    EXPECT_EQ(fired, 100);
}

TEST_F(Group, aBlockedDispatchRunsTheEventThatComesToAnyMember) {
    member("a");
    member("b");
    for (const char* subject : {"a", "b", "a"}) {
        Counter ready;
        pid_t thread = 0;
        Threads threads;
        threads.start([&] {
            thread = gettid();
            ready.add();
            EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, -1), QUORL_OK);
        });
        ASSERT_TRUE(ready.waitFor(1));
        ASSERT_TRUE(waitUntilAsleep(thread));
        sendNumber(transport, subject, subject[0]);
        threads.join();
    }
    EXPECT_EQ(numbers.came, (std::vector<int>{'a', 'b', 'a'}));
}

TEST_F(Group, aQueueThatJoinsBringsItsEvents) {
    const quorlQueue queue = newQueue();
    listen(queue, transport, "a", onNumber, &numbers);
    sendNumber(transport, "a", 1);
    Counter ready;
    pid_t thread = 0;
    Threads threads;
    threads.start([&] {
        thread = gettid();
        ready.add();
        EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, -1), QUORL_OK);
    });
    ASSERT_TRUE(ready.waitFor(1));
    ASSERT_TRUE(waitUntilAsleep(thread));
    EXPECT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
    threads.join();
    EXPECT_EQ(numbers.came, std::vector{1});
}

// The callbacks wait for one another, so that each event needs a thread of its own.
TEST_F(Group, aQueueThatJoinsWakesAThreadForEachOfItsEvents) {
    constexpr int events = 3;
    static Counter inside;
    const int before = inside.value();
    const quorlQueue queue = newQueue();
    listen(
        queue, transport, "a",
        [](quorlEvent, quorlMsg, void* target) {
            inside.add();
            EXPECT_TRUE(inside.waitFor(*static_cast<int*>(target)));
        },
        [&] {
            static int target;
            target = before + events;
            return &target;
        }());
    for (int i = 0; i < events; ++i) sendNumber(transport, "a", i);
    Counter ready;
    std::array<std::atomic<pid_t>, events> ids{};
    Threads threads;
    for (auto& id : ids) {
        threads.start([&] {
            id = gettid();
            ready.add();
            EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, -1), QUORL_OK);
        });
    }
    ASSERT_TRUE(ready.waitFor(events));
    for (auto& id : ids) ASSERT_TRUE(waitUntilAsleep(id));
    EXPECT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
    threads.join();
}

// More groups than a push keeps on its stack.
TEST_F(Group, anEventWakesTheSleeperOfEachOfManyGroups) {
    constexpr int groups = 40;
    const quorlQueue queue = newQueue();
    listen(queue, transport, "a", onNumber, &numbers);
    std::array<quorlQueueGroup, groups> many{};
    std::array<std::atomic<pid_t>, groups> ids{};
    Counter ready;
    Threads threads;
    for (int i = 0; i < groups; ++i) {
        ASSERT_EQ(quorlQueueGroup_Create(&many[i]), QUORL_OK);
        ASSERT_EQ(quorlQueueGroup_Add(many[i], queue), QUORL_OK);
    }
    // The sleepers are of the first groups and of the last: each takes one event.
    for (const int i : {0, 7, 8, 20, groups - 1}) {
        threads.start([&, i] {
            ids[i] = gettid();
            ready.add();
            EXPECT_EQ(quorlQueueGroup_TimedDispatch(many[i], -1), QUORL_OK);
        });
        ASSERT_TRUE(ready.waitFor(1));
        ready.add(-1);
        ASSERT_TRUE(waitUntilAsleep(ids[i]));
        sendNumber(transport, "a", i);
        threads.join();
    }
    EXPECT_EQ(numbers.came, (std::vector{0, 7, 8, 20, groups - 1}));
}

TEST_F(Group, severalDispatchersLoseNothing) {
    constexpr int messages = 20000;
    static std::atomic<int> came;
    came = 0;
    for (const char* subject : {"a", "b", "c"}) {
        const quorlQueue queue = newQueue();
        EXPECT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
        listen(
            queue, transport, subject, [](quorlEvent, quorlMsg, void*) { ++came; }, nullptr);
    }
    Threads threads;
    for (int i = 0; i < 3; ++i) {
        threads.start([&] {
            quorl_status status;
            while ((status = quorlQueueGroup_TimedDispatch(group, -1)) == QUORL_OK) {
            }
            EXPECT_EQ(status, QUORL_INVALID_QUEUE_GROUP);
        });
    }
    Threads senders;
    for (const char* subject : {"a", "b", "c"}) {
        senders.start([=, this] {
            for (int i = 0; i < messages; ++i) sendNumber(transport, subject, i);
        });
    }
    senders.join();
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
    while (came < 3 * messages && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_EQ(came, 3 * messages);
    EXPECT_EQ(quorlQueueGroup_Destroy(group), QUORL_OK);
    threads.join();
}

TEST_F(Group, aQueueMayBeInSeveralGroupsAndDispatchedAlone) {
    quorlQueueGroup other = 0;
    ASSERT_EQ(quorlQueueGroup_Create(&other), QUORL_OK);
    const quorlQueue queue = member("a");
    EXPECT_EQ(quorlQueueGroup_Add(other, queue), QUORL_OK);
    for (int i = 0; i < 3; ++i) sendNumber(transport, "a", i);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(other, 0), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, 0), QUORL_OK);
    EXPECT_EQ(numbers.came, (std::vector{0, 1, 2}));
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(other, 0), QUORL_TIMEOUT);
}

TEST_F(Group, membershipIsChecked) {
    const quorlQueue queue = newQueue();
    EXPECT_EQ(quorlQueueGroup_Create(nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueueGroup_Remove(group, queue), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
    EXPECT_EQ(quorlQueueGroup_Add(group, queue), QUORL_ALREADY_EXISTS);
    EXPECT_EQ(quorlQueueGroup_Add(999, queue), QUORL_INVALID_QUEUE_GROUP);
    EXPECT_EQ(quorlQueueGroup_Add(group, 999), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_Remove(999, queue), QUORL_INVALID_QUEUE_GROUP);
    EXPECT_EQ(quorlQueueGroup_Remove(group, 999), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_Remove(group, queue), QUORL_OK);
    EXPECT_EQ(quorlQueueGroup_Remove(group, queue), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(999, 0), QUORL_INVALID_QUEUE_GROUP);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(queue, 0), QUORL_INVALID_QUEUE_GROUP);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, __builtin_nan("")), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, 0), QUORL_TIMEOUT);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, 0.002), QUORL_TIMEOUT);
    EXPECT_EQ(quorlQueueGroup_Destroy(999), QUORL_INVALID_QUEUE_GROUP);
}

TEST_F(Group, aQueueThatLeftIsNotDispatched) {
    const quorlQueue queue = member("a");
    sendNumber(transport, "a", 1);
    EXPECT_EQ(quorlQueueGroup_Remove(group, queue), QUORL_OK);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, 0), QUORL_TIMEOUT);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
}

TEST_F(Group, aDestroyedQueueLeavesItsGroups) {
    const quorlQueue gone = member("a");
    member("b");
    sendNumber(transport, "a", 1);
    sendNumber(transport, "b", 2);
    EXPECT_EQ(quorlQueue_DestroyEx(gone, nullptr, nullptr), QUORL_OK);
    EXPECT_EQ(dispatchAll(), 1);
    EXPECT_EQ(numbers.came, std::vector{2});
    EXPECT_EQ(quorlQueueGroup_Remove(group, gone), QUORL_INVALID_QUEUE);
}

TEST_F(Group, destroyKeepsTheQueues) {
    const quorlQueue queue = member("a");
    EXPECT_EQ(quorlQueueGroup_Destroy(group), QUORL_OK);
    EXPECT_EQ(quorlQueueGroup_Destroy(group), QUORL_INVALID_QUEUE_GROUP);
    sendNumber(transport, "a", 1);
    EXPECT_EQ(drain(queue), 1);
}

TEST_F(Group, completionOfAQueueWaitsForItsCallbackInAGroup) {
    static Counter started, finish;
    Counter completed;
    const quorlQueue queue = newQueue();
    EXPECT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
    listen(
        queue, transport, "slow",
        [](quorlEvent, quorlMsg, void*) {
            started.add();
            EXPECT_TRUE(finish.waitFor(1));
        },
        nullptr);
    sendNumber(transport, "slow", 1);
    Threads threads;
    threads.start([&] { EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, -1), QUORL_OK); });
    ASSERT_TRUE(started.waitFor(1));
    EXPECT_EQ(quorlQueue_DestroyEx(
                  queue, [](quorlQueue, void* counter) { static_cast<Counter*>(counter)->add(); }, &completed),
              QUORL_OK);
    EXPECT_EQ(completed.value(), 0);
    finish.add();
    EXPECT_TRUE(completed.waitFor(1));
    threads.join();
}

}  // namespace
}  // namespace quorltest
