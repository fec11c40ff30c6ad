// What makes no sense is refused with the status that the headers name, and changes nothing.
#include <unistd.h>

#include <cmath>
#include <limits>

#include "support.h"

namespace quorltest {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

void ignore(quorlEvent, quorlMsg, void*) {}
void ignoreBatch(quorlMsg*, quorl_u32) {}

class BadInput : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        transport = newTransport();
        queue = newQueue();
        ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    }
    quorlTransport transport = 0;
    quorlQueue queue = 0;
    quorlQueueGroup group = 0;
};

TEST_F(BadInput, intervals) {
    quorlEvent timer = 4711;
    for (const double interval : {-1.0, -1e-300, -infinity, infinity, nan}) {
        EXPECT_EQ(quorlEvent_CreateTimer(&timer, queue, ignore, interval, nullptr), QUORL_INVALID_TIME_INTERVAL)
            << interval;
    }
    EXPECT_EQ(timer, 4711u);
    ASSERT_EQ(quorlEvent_CreateTimer(&timer, queue, ignore, 1e6, nullptr), QUORL_OK);
    for (const double interval : {-1.0, -1e-300, -infinity, infinity, nan})
        EXPECT_EQ(quorlEvent_ResetTimerInterval(timer, interval), QUORL_INVALID_TIME_INTERVAL) << interval;
    double interval = 0;
    EXPECT_EQ(quorlEvent_GetTimerInterval(timer, &interval), QUORL_OK);
    EXPECT_EQ(interval, 1e6);
    for (const double extreme : {-0.0, 5e-324, 1e-10, 1e18, std::numeric_limits<double>::max()}) {
        EXPECT_EQ(quorlEvent_ResetTimerInterval(timer, extreme), QUORL_OK) << extreme;
        EXPECT_EQ(quorlEvent_GetTimerInterval(timer, &interval), QUORL_OK);
        EXPECT_EQ(interval, extreme);
    }
    interval = 7;
    EXPECT_EQ(quorlEvent_GetTimerInterval(4711, &interval), QUORL_INVALID_EVENT);
    EXPECT_EQ(interval, 7);
    EXPECT_EQ(quorlEvent_ResetTimerInterval(4711, 1), QUORL_INVALID_EVENT);
    const quorlEvent listener = listen(queue, transport, "a", ignore, nullptr);
    EXPECT_EQ(quorlEvent_ResetTimerInterval(listener, 1), QUORL_INVALID_EVENT);
    EXPECT_EQ(quorlEvent_GetTimerInterval(listener, &interval), QUORL_INVALID_EVENT);
}

TEST_F(BadInput, timeouts) {
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, nan), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, nan), QUORL_INVALID_ARG);
    quorlMsg request = newMessage("nobody");
    quorlMsg reply = nullptr;
    EXPECT_EQ(quorlTransport_SendRequest(transport, request, &reply, nan), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    // What waits takes infinity, and anything beyond the clock, for ever.
    for (const double timeout : {infinity, -infinity, 1e300, -1e300}) {
        Numbers numbers;
        const quorlEvent listener = listen(queue, transport, "a", onNumber, &numbers);
        ASSERT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
        for (int i = 0; i < 2; ++i) {
            std::atomic<pid_t> dispatcher{0};
            Threads threads;
            threads.start([&] {
                dispatcher = gettid();
                EXPECT_EQ(
                    i == 0 ? quorlQueue_TimedDispatch(queue, timeout) : quorlQueueGroup_TimedDispatch(group, timeout),
                    QUORL_OK);
            });
            while (dispatcher == 0) std::this_thread::yield();
            EXPECT_TRUE(waitUntilAsleep(dispatcher));
            EXPECT_EQ(sendNumber(transport, "a", i), QUORL_OK);
        }
        EXPECT_EQ(numbers.came, (std::vector{0, 1}));
        EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
        EXPECT_EQ(quorlQueueGroup_Remove(group, queue), QUORL_OK);
    }
}

TEST_F(BadInput, groupsOfGroups) {
    quorlQueueGroup other = 0;
    ASSERT_EQ(quorlQueueGroup_Create(&other), QUORL_OK);
    EXPECT_EQ(quorlQueueGroup_Add(group, other), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_Add(group, group), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_Remove(group, other), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_Add(queue, queue), QUORL_INVALID_QUEUE_GROUP);
    EXPECT_EQ(quorlQueue_TimedDispatch(group, 0), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_TimedDispatch(queue, 0), QUORL_INVALID_QUEUE_GROUP);
    EXPECT_EQ(quorlQueueGroup_Destroy(queue), QUORL_INVALID_QUEUE_GROUP);
    EXPECT_EQ(quorlQueue_DestroyEx(group, nullptr, nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlEvent_DestroyEx(queue, nullptr), QUORL_INVALID_EVENT);
}

// More groups than one push can remember: each of them is woken.
TEST_F(BadInput, aQueueInManyGroupsWakesThemAll) {
    constexpr int groups = 30;
    Counter came;
    listen(
        queue, transport, "a", [](quorlEvent, quorlMsg, void* closure) { static_cast<Counter*>(closure)->add(); },
        &came);
    std::vector<quorlQueueGroup> all(groups);
    std::vector<std::atomic<pid_t>> dispatchers(groups);
    Threads threads;
    for (size_t i = 0; i < groups; ++i) {
        ASSERT_EQ(quorlQueueGroup_Create(&all[i]), QUORL_OK);
        ASSERT_EQ(quorlQueueGroup_Add(all[i], queue), QUORL_OK);
        threads.start([&, i] {
            dispatchers[i] = gettid();
            EXPECT_EQ(quorlQueueGroup_TimedDispatch(all[i], -1), QUORL_OK);
        });
    }
    for (auto& dispatcher : dispatchers) {
        while (dispatcher == 0) std::this_thread::yield();
        EXPECT_TRUE(waitUntilAsleep(dispatcher));
    }
    for (int i = 0; i < groups; ++i) {
        EXPECT_EQ(sendNumber(transport, "a", i), QUORL_OK);
        EXPECT_TRUE(came.waitFor(i + 1));
    }
    threads.join();
    EXPECT_EQ(countOf(queue), 0u);
}

TEST_F(BadInput, destroyedQueues) {
    ASSERT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    quorlEvent event = 0;
    quorl_u32 number = 0;
    const char* name = nullptr;
    quorlQueueLimitPolicy policy;
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_SetName(queue, "x"), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_GetName(queue, &name), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_GetCount(queue, &number), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, -1), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_SetPriority(queue, 1), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_GetPriority(queue, &number), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 1, 1), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueue_GetLimitPolicy(queue, &policy, &number, &number), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_Add(group, queue), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlQueueGroup_Remove(group, queue), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlEvent_CreateListener(&event, queue, ignore, transport, "a", nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlEvent_CreateGroupVectorListener(&event, queue, ignoreBatch, transport, "a", nullptr, nullptr),
              QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlEvent_CreateTimer(&event, queue, ignore, 1, nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(_quorlDispatchable_Signal(queue), QUORL_INVALID_DISPATCHABLE);
    EXPECT_EQ(event, 0u);
}

TEST_F(BadInput, namesAreUtf8) {
    // Names are UTF-8; characters above U+FFFF may come as a virtual machine writes them.
    for (const char* bad : {"\xff", "a\xe9", "\xc0\x80", "\xed\xa0\xbd", "\xed\xb8\x80\xed\xa0\xbd", "\xf0\x9f\x98"}) {
        EXPECT_EQ(quorlQueue_SetName(queue, bad), QUORL_INVALID_NAME) << bad;
        EXPECT_EQ(quorlTransport_SetDescription(transport, bad), QUORL_INVALID_ARG) << bad;
    }
    for (const char* good : {"\xc3\xa9", "\xf0\x9f\x98\x80", "\xed\xa0\xbd\xed\xb8\x80"}) {
        EXPECT_EQ(quorlQueue_SetName(queue, good), QUORL_OK) << good;
        EXPECT_EQ(quorlTransport_SetDescription(transport, good), QUORL_OK) << good;
    }
}

TEST_F(BadInput, namesMayBeEmpty) {
    const char* name = nullptr;
    EXPECT_EQ(quorlQueue_SetName(queue, "x"), QUORL_OK);
    EXPECT_EQ(quorlQueue_SetName(queue, ""), QUORL_OK);
    EXPECT_EQ(quorlQueue_GetName(queue, &name), QUORL_OK);
    EXPECT_STREQ(name, "");
    EXPECT_EQ(quorlTransport_SetDescription(transport, ""), QUORL_OK);
    quorlTransport other = 0;
    EXPECT_EQ(quorlTransport_Create(&other, "", "", ""), QUORL_OK);
    Numbers numbers;
    listen(queue, other, "a", onNumber, &numbers);
    EXPECT_EQ(sendNumber(transport, "a", 5), QUORL_OK);
    drain(queue);
    EXPECT_EQ(numbers.came, std::vector{5});  // none given is the empty name
}

TEST_F(BadInput, threadKeys) {
    alignas(8) char cell[8] = {};
    EXPECT_EQ(_quorlDispatchable_SetThreadKey(cell + 1), QUORL_INVALID_ARG);
    EXPECT_EQ(_quorlDispatchable_SetThreadKey(cell + 4), QUORL_OK);
    EXPECT_EQ(_quorlDispatchable_SetThreadKey(nullptr), QUORL_OK);
    EXPECT_EQ(_quorlDispatchable_Signal(0), QUORL_INVALID_DISPATCHABLE);
    EXPECT_EQ(_quorlDispatchable_Signal(transport), QUORL_INVALID_DISPATCHABLE);
}

// The callback of a vector listener always has a message; its closure may be null.
TEST_F(BadInput, vectorsAreNeverEmptyAndClosuresMayBeNull) {
    static int calls;
    static void* closures[2];
    calls = 0;
    int own = 0;
    const auto onBatch = [](quorlMsg* messages, quorl_u32 size) {
        ++calls;
        ASSERT_EQ(size, 2u);
        for (quorl_u32 i = 0; i < size; ++i) EXPECT_EQ(quorlMsg_GetClosure(messages[i], &closures[i]), QUORL_OK);
    };
    quorlEvent events[2] = {};
    const void* given[2] = {nullptr, &own};
    for (int i = 0; i < 2; ++i) {
        const char* subject = i == 0 ? "a" : "b";
        ASSERT_EQ(
            quorlEvent_CreateGroupVectorListener(&events[i], queue, onBatch, transport, subject, given[i], nullptr),
            QUORL_OK);
    }
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_TIMEOUT);
    sendNumber(transport, "a", 1);
    sendNumber(transport, "b", 2);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(closures[0], nullptr);
    EXPECT_EQ(closures[1], &own);
}

}  // namespace
}  // namespace quorltest
