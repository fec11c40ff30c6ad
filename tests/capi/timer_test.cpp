// Timers.
#include <malloc.h>

#include <cmath>
#include <limits>

#include "support.h"

namespace quorltest {
namespace {

using Clock = std::chrono::steady_clock;

class Timer : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        queue = newQueue();
    }
    quorlEvent create(double interval, const void* closure, quorlEventCallback callback = onTimer) {
        quorlEvent timer = 0;
        EXPECT_EQ(quorlEvent_CreateTimer(&timer, queue, callback, interval, closure), QUORL_OK)
            << quorl_LastErrorText();
        return timer;
    }
    static void onTimer(quorlEvent, quorlMsg message, void* closure) {
        EXPECT_EQ(message, nullptr);
        static_cast<std::vector<Clock::time_point>*>(closure)->push_back(Clock::now());
    }
    quorlQueue queue = 0;
    std::vector<Clock::time_point> fired;
};

TEST_F(Timer, firesAfterItsIntervalAndAgain) {
    const auto start = Clock::now();
    create(0.01, &fired);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    // Never early, and on its own grid.
    for (int i = 0; i < 5; ++i)
        EXPECT_GE(fired[static_cast<size_t>(i)] - start, std::chrono::milliseconds(10 * (i + 1)));
}

TEST_F(Timer, hasAtMostOneEventWaiting) {
    create(0.001, &fired);
    const quorlQueue other = newQueue();
    quorlEvent probe = 0;
    static int probes;
    probes = 0;
    ASSERT_EQ(quorlEvent_CreateTimer(
                  &probe, other, [](quorlEvent, quorlMsg, void*) { ++probes; }, 0.01, nullptr),
              QUORL_OK);
    while (probes < 5) ASSERT_EQ(quorlQueue_TimedDispatch(other, limit), QUORL_OK);
    EXPECT_EQ(countOf(queue), 1u);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
}

TEST_F(Timer, ofIntervalZeroFiresAsOftenAsItIsDispatched) {
    create(0, &fired);
    for (int i = 0; i < 10000; ++i) ASSERT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(fired.size(), 10000u);
    EXPECT_EQ(countOf(queue), 1u);
}

TEST_F(Timer, ofIntervalZeroLeavesOthersTheirTurn) {
    int first = 0;
    int second = 0;
    const auto count = [](quorlEvent, quorlMsg, void* closure) { ++*static_cast<int*>(closure); };
    create(0, &first, count);
    create(0, &second, count);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(first, 500);
    EXPECT_EQ(second, 500);
}

TEST_F(Timer, ofIntervalZeroSurvivesALimitThatDropsIt) {
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_FIRST, 1, 1), QUORL_OK);
    const quorlTransport transport = newTransport();
    Numbers numbers;
    const quorlEvent listener = listen(queue, transport, "a", onNumber, &numbers);
    create(0, &fired);
    for (int i = 0; i < 10; ++i) sendNumber(transport, "a", i);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    EXPECT_EQ(fired.size(), 2u);
}

TEST_F(Timer, destroyEndsItInsideAndOutsideItsCallback) {
    Counter completed;
    const auto done = [](quorlEvent, void* counter) { static_cast<Counter*>(counter)->add(); };
    const quorlEvent outside = create(0, &completed, [](quorlEvent, quorlMsg, void*) {});
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(countOf(queue), 1u);
    EXPECT_EQ(quorlEvent_DestroyEx(outside, done), QUORL_OK);
    EXPECT_EQ(countOf(queue), 0u);
    EXPECT_TRUE(completed.waitFor(1));
    for (double interval : {0.0, 0.001}) {
        create(interval, &completed, [](quorlEvent event, quorlMsg, void*) {
            EXPECT_EQ(
                quorlEvent_DestroyEx(event, [](quorlEvent, void* counter) { static_cast<Counter*>(counter)->add(); }),
                QUORL_OK);
        });
        EXPECT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
        EXPECT_TRUE(completed.waitFor(interval == 0 ? 2 : 3));
        EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_TIMEOUT);
    }
}

TEST_F(Timer, resetStartsItAnew) {
    const quorlEvent timer = create(0, &fired);
    EXPECT_EQ(countOf(queue), 1u);
    EXPECT_EQ(quorlEvent_ResetTimerInterval(timer, 3600), QUORL_OK);
    EXPECT_EQ(countOf(queue), 0u);
    double interval = 0;
    EXPECT_EQ(quorlEvent_GetTimerInterval(timer, &interval), QUORL_OK);
    EXPECT_EQ(interval, 3600);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_TIMEOUT);
    EXPECT_EQ(quorlEvent_ResetTimerInterval(timer, 0.001), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    EXPECT_EQ(quorlEvent_ResetTimerInterval(timer, 0), QUORL_OK);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(fired.size(), 102u);
}

// Each reset takes back the event that waits and puts another one into the queue.
TEST_F(Timer, resettingItAgainAndAgainNeedsNoMemory) {
    const quorlEvent zero = create(0, &fired);
    const quorlEvent other = create(0, &fired);
    const auto reset = [&](int times) {
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(quorlEvent_ResetTimerInterval(zero, 0), QUORL_OK);
            if (i % 10 == 0) {
                ASSERT_EQ(quorlEvent_ResetTimerInterval(other, i % 20 == 0 ? 3600 : 0), QUORL_OK);
            }
        }
    };
    reset(2'000);
    const size_t before = mallinfo2().uordblks;
    reset(200'000);
    EXPECT_LT(mallinfo2().uordblks, before + (1u << 20));
    EXPECT_LE(countOf(queue), 2u);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(fired.size(), 100u);
}

TEST_F(Timer, intervalsAreChecked) {
    quorlEvent timer = 0;
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::nan("");
    const auto callback = [](quorlEvent, quorlMsg, void*) {};
    for (double bad : {-1.0, -1e-9, inf, -inf, nan})
        EXPECT_EQ(quorlEvent_CreateTimer(&timer, queue, callback, bad, nullptr), QUORL_INVALID_TIME_INTERVAL) << bad;
    EXPECT_EQ(quorlEvent_CreateTimer(&timer, 999, callback, 1, nullptr), QUORL_INVALID_QUEUE);
    EXPECT_EQ(quorlEvent_CreateTimer(&timer, queue, nullptr, 1, nullptr), QUORL_INVALID_CALLBACK);
    EXPECT_EQ(quorlEvent_CreateTimer(nullptr, queue, callback, 1, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(timer, 0u);
    ASSERT_EQ(quorlEvent_CreateTimer(&timer, queue, callback, std::numeric_limits<double>::max(), nullptr), QUORL_OK);
    for (double bad : {-1.0, inf, nan})
        EXPECT_EQ(quorlEvent_ResetTimerInterval(timer, bad), QUORL_INVALID_TIME_INTERVAL) << bad;
    double interval = 0;
    EXPECT_EQ(quorlEvent_GetTimerInterval(timer, nullptr), QUORL_INVALID_ARG);
    EXPECT_EQ(quorlEvent_GetTimerInterval(999, &interval), QUORL_INVALID_EVENT);
    EXPECT_EQ(quorlEvent_ResetTimerInterval(999, 1), QUORL_INVALID_EVENT);
    const quorlEvent listener = listen(queue, newTransport(), "a", callback, nullptr);
    EXPECT_EQ(quorlEvent_GetTimerInterval(listener, &interval), QUORL_INVALID_EVENT);
    EXPECT_EQ(quorlEvent_ResetTimerInterval(listener, 1), QUORL_INVALID_EVENT);
    EXPECT_EQ(interval, 0);
}

TEST_F(Timer, manyTimersFireInTheOrderInWhichTheyAreDue) {
    static std::vector<int> order;
    order.clear();
    static const int marks[4] = {0, 1, 2, 3};
    const auto note = [](quorlEvent event, quorlMsg, void* closure) {
        order.push_back(*static_cast<const int*>(closure));
        EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
    };
    // Far enough apart for a loaded machine to make them all before the first is due.
    create(0.9, &marks[3], note);
    create(0.3, &marks[1], note);
    create(0.6, &marks[2], note);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

// Each change of an interval leaves a place among the due times behind; what is left is swept out at times.
TEST_F(Timer, manyChangesLoseNoTimer) {
    constexpr size_t timers = 3000;
    std::vector<Counter> fired(timers);
    std::vector<quorlEvent> events(timers);
    for (size_t i = 0; i < timers; ++i) {
        ASSERT_EQ(
            quorlEvent_CreateTimer(
                &events[i], queue, [](quorlEvent, quorlMsg, void* closure) { static_cast<Counter*>(closure)->add(); },
                1000.0 + static_cast<double>(i), &fired[i]),
            QUORL_OK);
    }
    for (int change = 0; change < 3; ++change) {
        for (size_t i = 0; i < timers; ++i)
            ASSERT_EQ(quorlEvent_ResetTimerInterval(events[(i * 7) % timers], 5000.0 - static_cast<double>(i)),
                      QUORL_OK);
    }
    for (size_t i = 1; i < timers; i += 2) ASSERT_EQ(quorlEvent_DestroyEx(events[i], nullptr), QUORL_OK);
    for (size_t i = 0; i < timers; i += 2) ASSERT_EQ(quorlEvent_ResetTimerInterval(events[i], 0.001), QUORL_OK);
    for (size_t i = 0; i < timers; ++i) {
        while (i % 2 == 0 && fired[i].value() == 0) ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
        ASSERT_EQ(fired[i].value() != 0, i % 2 == 0);
    }
}

TEST_F(Timer, aDestroyedQueueStopsItsTimers) {
    const quorlEvent timer = create(0.001, &fired);
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    double interval = 0;
    EXPECT_EQ(quorlEvent_GetTimerInterval(timer, &interval), QUORL_OK);
    EXPECT_EQ(quorlEvent_DestroyEx(timer, nullptr), QUORL_OK);
    EXPECT_TRUE(fired.empty());
}

TEST_F(Timer, timersComeAndGoWhileTheyFire) {
    Threads threads;
    for (int i = 0; i < 2; ++i) {
        threads.start([&] {
            while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
            }
        });
    }
    static std::atomic<int> count;
    count = 0;
    for (int round = 0; round < 200; ++round) {
        const double interval = round % 3 == 0 ? 0 : 0.0001 * (round % 3);
        const quorlEvent timer = create(interval, nullptr, [](quorlEvent, quorlMsg, void*) { ++count; });
        const int before = count;
        while (count == before) std::this_thread::yield();
        if (round % 2) {
            EXPECT_EQ(quorlEvent_ResetTimerInterval(timer, round % 4 == 1 ? 0 : 0.0002), QUORL_OK);
        }
        EXPECT_EQ(quorlEvent_DestroyEx(timer, nullptr), QUORL_OK);
    }
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    threads.join();
}

}  // namespace
}  // namespace quorltest
