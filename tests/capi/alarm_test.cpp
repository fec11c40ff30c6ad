// What the library tells when queues lose events or grow, and when that is over.
#include <algorithm>
#include <set>

#include "support.h"

namespace quorltest {
namespace {

// Advisories that came; kept until the end. Closure of onAdvisory.
struct Advisories {
    ~Advisories() { forget(); }
    void forget() {
        for (quorlMsg message : messages) EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        messages.clear();
        subjects.clear();
    }
    std::vector<quorlMsg> messages;
    std::vector<std::string> subjects;
};
void onAdvisory(quorlEvent, quorlMsg message, void* closure) {
    auto& to = *static_cast<Advisories*>(closure);
    const char* subject = nullptr;
    EXPECT_EQ(quorlMsg_GetSendSubject(message, &subject), QUORL_OK);
    EXPECT_EQ(quorlMsg_Detach(message), QUORL_OK);
    to.subjects.emplace_back(subject + sizeof "_QUORL." - 1);
    to.messages.push_back(message);
}

quorl_u64 wholeOf(quorlMsg message, const char* name) {
    quorl_u64 value = UINT64_MAX;
    EXPECT_EQ(quorlMsg_GetU64Ex(message, name, &value, 0), QUORL_OK) << name << ": " << quorl_LastErrorText();
    return value;
}

std::string textOf(quorlMsg message, const char* name) {
    const char* text = nullptr;
    return quorlMsg_GetStringEx(message, name, &text, 0) == QUORL_OK ? text : "";
}

using Strings = std::vector<std::string>;

void set(const char* setting) {
    ASSERT_EQ(quorl_SetQRParameters(1, &setting), QUORL_OK) << quorl_LastErrorText();
}

// Every alarm is told, however soon it is raised again.
class QueueAlarm : public Open {
  protected:
    virtual const char* interval() const { return "advisory.interval=0"; }
    virtual const char* heard() const { return "_QUORL.>"; }
    void SetUp() override {
        set(interval());
        Open::SetUp();
        transport = newTransport();
        queue = newQueue();
        told = newQueue();
        listener = listen(queue, transport, "q.*", onNumber, &numbers);
        listen(told, transport, heard(), onAdvisory, &advisories);
    }
    void TearDown() override {
        advisories.forget();
        Open::TearDown();
        set("advisory.interval=1");
    }
    void send(int from, int to, const char* subject = "q.a") {
        for (int i = from; i <= to; ++i) ASSERT_EQ(sendNumber(transport, subject, i), QUORL_OK);
    }
    Strings tellings() {
        advisories.forget();
        drain(told);
        return advisories.subjects;
    }

    quorlTransport transport = 0;
    quorlQueue queue = 0;
    quorlQueue told = 0;
    quorlEvent listener = 0;
    Numbers numbers;
    Advisories advisories;
};

TEST_F(QueueAlarm, aLimitThatDropsIsToldOnceUntilHalfIsFree) {
    EXPECT_EQ(quorlQueue_SetName(queue, "orders"), QUORL_OK);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_FIRST, 10, 2), QUORL_OK);
    send(1, 10);
    EXPECT_EQ(tellings(), Strings{});
    send(11, 30);
    ASSERT_EQ(tellings(), (Strings{"WARN.queue.limit_begin", "WARN.listener.slow_begin"}));
    quorlMsg begin = advisories.messages[0];
    EXPECT_EQ(wholeOf(begin, "queue"), queue);
    EXPECT_EQ(textOf(begin, "name"), "orders");
    EXPECT_EQ(textOf(begin, "policy"), "discard_first");
    EXPECT_EQ(wholeOf(begin, "max_events"), 10u);
    EXPECT_EQ(wholeOf(begin, "waiting"), 9u);
    EXPECT_EQ(wholeOf(begin, "lost"), 2u);
    EXPECT_EQ(wholeOf(begin, "event"), listener);
    EXPECT_EQ(textOf(begin, "pattern"), "q.*");
    EXPECT_EQ(textOf(begin, "subject"), "q.a");
    quorlMsg first = nullptr;
    ASSERT_EQ(quorlMsg_GetMsgEx(begin, "first", &first, 0), QUORL_OK);
    EXPECT_EQ(numberOf(first), 1);
    quorlMsg slow = advisories.messages[1];
    EXPECT_EQ(wholeOf(slow, "listener"), listener);
    EXPECT_EQ(textOf(slow, "pattern"), "q.*");
    EXPECT_EQ(wholeOf(slow, "queue"), queue);
    EXPECT_EQ(textOf(slow, "subject"), "q.a");
    ASSERT_EQ(quorlMsg_GetMsgEx(slow, "first", &first, 0), QUORL_OK);
    EXPECT_EQ(numberOf(first), 1);

    // Nothing more while it is busy: not when it drops on, nor before half of the limit is free.
    while (countOf(queue) > 6) EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(tellings(), Strings{});
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    ASSERT_EQ(tellings(), (Strings{"INFO.listener.slow_end", "INFO.queue.limit_end"}));
    EXPECT_EQ(wholeOf(advisories.messages[0], "listener"), listener);
    EXPECT_EQ(wholeOf(advisories.messages[0], "lost"), 20u);
    EXPECT_EQ(wholeOf(advisories.messages[1], "queue"), queue);
    EXPECT_EQ(wholeOf(advisories.messages[1], "lost"), 20u);
    EXPECT_EQ(wholeOf(advisories.messages[1], "waiting"), 5u);
    quorl_f64 seconds = -1;
    EXPECT_EQ(quorlMsg_GetF64Ex(advisories.messages[1], "seconds", &seconds, 0), QUORL_OK);
    EXPECT_GE(seconds, 0);

    send(31, 50);
    EXPECT_EQ(tellings(), (Strings{"WARN.queue.limit_begin", "WARN.listener.slow_begin"}));
    drain(queue);
}

TEST_F(QueueAlarm, everyPolicyTellsWhatItLostFirst) {
    const struct {
        quorlQueueLimitPolicy policy;
        const char* name;
        int firstLost;
    } rows[] = {{QUORLQUEUE_DISCARD_FIRST, "discard_first", 1},
                {QUORLQUEUE_DISCARD_LAST, "discard_last", 5},
                {QUORLQUEUE_DISCARD_NEW, "discard_new", 6}};
    for (const auto& row : rows) {
        ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, row.policy, 5, 1), QUORL_OK);
        send(1, 6);
        ASSERT_EQ(tellings(), (Strings{"WARN.queue.limit_begin", "WARN.listener.slow_begin"}));
        EXPECT_EQ(textOf(advisories.messages[0], "policy"), row.name);
        quorlMsg first = nullptr;
        ASSERT_EQ(quorlMsg_GetMsgEx(advisories.messages[0], "first", &first, 0), QUORL_OK);
        EXPECT_EQ(numberOf(first), row.firstLost);
        drain(queue);
        EXPECT_EQ(tellings(), (Strings{"INFO.listener.slow_end", "INFO.queue.limit_end"}));
    }
}

TEST_F(QueueAlarm, eachSlowListenerIsToldWithItsOwnCount) {
    listen(queue, transport, "q.b", onNumber, &numbers);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 4, 1), QUORL_OK);
    send(1, 4);
    send(5, 7, "q.b");
    ASSERT_EQ(tellings(), (Strings{"WARN.queue.limit_begin", "WARN.listener.slow_begin", "WARN.listener.slow_begin"}));
    send(8, 8);
    drain(queue);
    ASSERT_EQ(tellings(), (Strings{"INFO.listener.slow_end", "INFO.listener.slow_end", "INFO.queue.limit_end"}));
    std::multiset<std::string> counts;
    for (size_t i = 0; i < 2; ++i)
        counts.insert(textOf(advisories.messages[i], "pattern") + " " +
                      std::to_string(wholeOf(advisories.messages[i], "lost")));
    EXPECT_EQ(counts, (std::multiset<std::string>{"q.* 4", "q.b 3"}));
    EXPECT_EQ(wholeOf(advisories.messages[2], "lost"), 7u);
}

TEST_F(QueueAlarm, aLimitThatIsLoweredTellsWhatItTrims) {
    send(1, 10);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_FIRST, 4, 1), QUORL_OK);
    ASSERT_EQ(tellings(), (Strings{"WARN.queue.limit_begin", "WARN.listener.slow_begin"}));
    EXPECT_EQ(wholeOf(advisories.messages[0], "lost"), 6u);
    EXPECT_EQ(wholeOf(advisories.messages[0], "waiting"), 4u);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NONE, 0, 0), QUORL_OK);
    EXPECT_EQ(tellings(), (Strings{"INFO.listener.slow_end", "INFO.queue.limit_end"}));
    drain(queue);
    EXPECT_EQ(tellings(), Strings{});
}

TEST_F(QueueAlarm, endsWithTheQueueAndWithTheListener) {
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 2, 1), QUORL_OK);
    send(1, 3);
    EXPECT_EQ(tellings().size(), 2u);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    ASSERT_EQ(tellings(), (Strings{"INFO.listener.slow_end", "INFO.queue.limit_end"}));
    EXPECT_EQ(wholeOf(advisories.messages[0], "listener"), listener);
    listen(queue, transport, "q.*", onNumber, &numbers);
    send(1, 3);
    EXPECT_EQ(tellings().size(), 2u);
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    EXPECT_EQ(tellings(), (Strings{"INFO.listener.slow_end", "INFO.queue.limit_end"}));
}

TEST_F(QueueAlarm, aDroppedTimerIsToldWithoutAMessage) {
    quorlEvent timer = 0;
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 1, 1), QUORL_OK);
    send(1, 1);
    ASSERT_EQ(quorlEvent_CreateTimer(
                  &timer, queue, [](quorlEvent, quorlMsg, void*) {}, 0, nullptr),
              QUORL_OK);
    EXPECT_EQ(tellings(), Strings{"WARN.queue.limit_begin"});
    EXPECT_EQ(wholeOf(advisories.messages[0], "event"), timer);
    quorlMsg first = nullptr;
    EXPECT_EQ(quorlMsg_GetMsgEx(advisories.messages[0], "first", &first, 0), QUORL_NOT_FOUND);
    EXPECT_EQ(quorlEvent_DestroyEx(timer, nullptr), QUORL_OK);
    drain(queue);
    EXPECT_EQ(tellings(), Strings{"INFO.queue.limit_end"});
}

// More at once than one push can hold on its stack.
TEST_F(QueueAlarm, manyTimersOfIntervalZeroSurviveALimitThatDropsThemAll) {
    constexpr int timers = 40;
    Counter fired[timers];
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_FIRST, timers, timers), QUORL_OK);
    for (Counter& counter : fired) {
        quorlEvent timer = 0;
        ASSERT_EQ(quorlEvent_CreateTimer(
                      &timer, queue, [](quorlEvent, quorlMsg, void* closure) { static_cast<Counter*>(closure)->add(); },
                      0, &counter),
                  QUORL_OK);
    }
    send(1, 1);
    EXPECT_EQ(countOf(queue), 1u);
    for (Counter& counter : fired) {
        while (counter.value() == 0) ASSERT_EQ(quorlQueue_TimedDispatch(queue, limit), QUORL_OK);
    }
}

// Two listeners of advisories on a queue for one event: each advisory drops another.
TEST_F(QueueAlarm, lostAdvisoriesRaiseNone) {
    Advisories more;
    listen(told, transport, "_QUORL.>", onAdvisory, &more);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(told, QUORLQUEUE_DISCARD_FIRST, 1, 1), QUORL_OK);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 1, 1), QUORL_OK);
    for (int i = 0; i < 5; ++i) {
        send(1, 3);
        EXPECT_EQ(drain(told), 1);
        drain(queue);
        EXPECT_EQ(drain(told), 1);
    }
    EXPECT_EQ(drain(told), 0);
}

// Its own queue tells of itself: what it loses of others is told, and that ends.
TEST_F(QueueAlarm, aQueueMayHearOfItself) {
    listen(queue, transport, "_QUORL.>", onAdvisory, &advisories);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_FIRST, 2, 1), QUORL_OK);
    send(1, 10);
    int dispatched = 0;
    while (quorlQueue_TimedDispatch(queue, 0) == QUORL_OK) ASSERT_LT(++dispatched, 10);
}

TEST_F(QueueAlarm, nobodyListensAndTheCountsAreRight) {
    EXPECT_EQ(quorlQueue_DestroyEx(told, nullptr, nullptr), QUORL_OK);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_FIRST, 10, 3), QUORL_OK);
    send(1, 1000);
    quorlMsg request = newMessage("_QUORL.STATS");
    quorlMsg reply = nullptr;
    ASSERT_EQ(quorlTransport_SendRequest(transport, request, &reply, limit), QUORL_OK) << quorl_LastErrorText();
    const quorlMsg* queues = nullptr;
    quorl_u32 count = 0;
    ASSERT_EQ(quorlMsg_GetMsgArrayEx(reply, "queues", &queues, &count, 0), QUORL_OK);
    for (quorl_u32 i = 0; i < count; ++i) {
        if (wholeOf(queues[i], "queue") != queue) continue;
        EXPECT_EQ(wholeOf(queues[i], "dropped") + wholeOf(queues[i], "waiting"), 1000u);
    }
    EXPECT_EQ(quorlMsg_Destroy(reply), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(request), QUORL_OK);
    drain(queue);
}

TEST_F(QueueAlarm, eightSendersLoseNothingUncounted) {
    constexpr int each = 2000;
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_LAST, 16, 5), QUORL_OK);
    std::atomic<int> senders{8};
    Threads threads;
    for (int i = 0; i < 8; ++i) {
        threads.start([&] {
            for (int n = 0; n < each; ++n) sendNumber(transport, "q.a", n);
            --senders;
        });
    }
    int came = 0;
    while (senders != 0 || countOf(queue) != 0) came += quorlQueue_TimedDispatch(queue, 0) == QUORL_OK ? 1 : 0;
    threads.join();
    quorl_u64 begun = 0;
    quorl_u64 lost = 0;
    tellings();
    for (size_t i = 0; i < advisories.subjects.size(); ++i) {
        if (advisories.subjects[i] == "WARN.queue.limit_begin") ++begun;
        if (advisories.subjects[i] == "INFO.queue.limit_end") lost += wholeOf(advisories.messages[i], "lost");
    }
    EXPECT_GT(begun, 0u);
    EXPECT_EQ(lost + static_cast<quorl_u64>(came), 8u * each);
}

class HighWater : public QueueAlarm {
  protected:
    const char* heard() const override { return "_QUORL.*.queue.>"; }
    void SetUp() override {
        set("queue.highwater=10");
        QueueAlarm::SetUp();
    }
    void TearDown() override {
        QueueAlarm::TearDown();
        set("queue.highwater=100000");
    }
    void send(int count) { QueueAlarm::send(1, count); }
};

TEST_F(HighWater, isToldOnceUntilHalfIsGone) {
    for (int i = 0; i < 3; ++i) {
        send(9);
        EXPECT_EQ(tellings(), Strings{});
        send(1);
        ASSERT_EQ(tellings(), Strings{"WARN.queue.highwater_begin"});
        EXPECT_EQ(wholeOf(advisories.messages[0], "queue"), queue);
        EXPECT_EQ(wholeOf(advisories.messages[0], "waiting"), 10u);
        EXPECT_EQ(wholeOf(advisories.messages[0], "mark"), 10u);
        send(90);
        while (countOf(queue) > 6) EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
        EXPECT_EQ(tellings(), Strings{});
        EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
        EXPECT_EQ(tellings(), Strings{"INFO.queue.highwater_end"});
        drain(queue);
    }
}

TEST_F(HighWater, endsWithALimitWhichCountsForItself) {
    send(10);
    EXPECT_EQ(tellings(), Strings{"WARN.queue.highwater_begin"});
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 50, 1), QUORL_OK);
    EXPECT_EQ(tellings(), Strings{"INFO.queue.highwater_end"});
    send(40);
    EXPECT_EQ(tellings(), Strings{});
    send(1);
    EXPECT_EQ(tellings(), Strings{"WARN.queue.limit_begin"});
    drain(queue);
    EXPECT_EQ(tellings(), Strings{"INFO.queue.limit_end"});
}

// ---- what is raised again too soon

class FoldedAlarm : public QueueAlarm {
  protected:
    const char* interval() const override { return "advisory.interval=3600"; }
    void SetUp() override {
        QueueAlarm::SetUp();
        ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 4, 1), QUORL_OK);
        // The first is told at once, and so is its end.
        send(1, 5);
        drain(queue);
        EXPECT_EQ(tellings(), (Strings{"WARN.queue.limit_begin", "WARN.listener.slow_begin", "INFO.listener.slow_end",
                                       "INFO.queue.limit_end"}));
        for (int i = 0; i < 3; ++i) {
            send(1, 6);
            drain(queue);
        }
        EXPECT_EQ(tellings(), Strings{});
    }
};

TEST_F(FoldedAlarm, isToldWithTheEndOfWhatItIsAbout) {
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    ASSERT_EQ(tellings(), (Strings{"WARN.listener.slow_begin", "INFO.listener.slow_end"}));
    EXPECT_EQ(wholeOf(advisories.messages[0], "listener"), listener);
    quorlMsg first = nullptr;
    ASSERT_EQ(quorlMsg_GetMsgEx(advisories.messages[0], "first", &first, 0), QUORL_OK);
    EXPECT_EQ(numberOf(first), 5);
    EXPECT_EQ(textOf(advisories.messages[1], "pattern"), "q.*");
    EXPECT_EQ(wholeOf(advisories.messages[1], "lost"), 6u);
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    ASSERT_EQ(tellings(), (Strings{"WARN.queue.limit_begin", "INFO.queue.limit_end"}));
    EXPECT_EQ(wholeOf(advisories.messages[0], "event"), listener);
    EXPECT_EQ(wholeOf(advisories.messages[1], "lost"), 6u);
}

class BrieflyFoldedAlarm : public QueueAlarm {
  protected:
    const char* interval() const override { return "advisory.interval=0.2"; }
};

// However long nothing more happens.
TEST_F(BrieflyFoldedAlarm, isToldWhenTheIntervalIsOver) {
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 4, 1), QUORL_OK);
    quorl_u64 lost = 0;
    for (int i = 0; i < 3; ++i) {
        send(1, 6);
        drain(queue);
        lost += 2;
    }
    while (lost != 0) {
        ASSERT_EQ(quorlQueue_TimedDispatch(told, limit), QUORL_OK);
        if (advisories.subjects.back() == "INFO.queue.limit_end") lost -= wholeOf(advisories.messages.back(), "lost");
    }
    // And while it is busy: the begin is told without its end.
    for (int i = 0; i < 3; ++i) {
        drain(queue);
        send(1, 6);
    }
    advisories.forget();
    const auto countBegins = [&] {
        return std::count(advisories.subjects.begin(), advisories.subjects.end(), "WARN.queue.limit_begin") -
               std::count(advisories.subjects.begin(), advisories.subjects.end(), "INFO.queue.limit_end");
    };
    while (countBegins() != 1) ASSERT_EQ(quorlQueue_TimedDispatch(told, limit), QUORL_OK);
}

TEST_F(BrieflyFoldedAlarm, aStormIsToldOnceAnInterval) {
    const auto began = std::chrono::steady_clock::now();
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_LAST, 8, 3), QUORL_OK);
    constexpr quorl_u64 rounds = 3000;
    quorl_u64 dispatched = 0;
    for (quorl_u64 i = 0; i < rounds; ++i) {
        send(1, 9);
        dispatched += static_cast<quorl_u64>(drain(queue));
    }
    quorl_u64 left = 9 * rounds - dispatched;
    quorl_u64 slow = left;
    quorl_u64 begun = 0;
    while (left != 0) {
        ASSERT_EQ(quorlQueue_TimedDispatch(told, limit), QUORL_OK);
        const std::string& subject = advisories.subjects.back();
        if (subject == "WARN.queue.limit_begin") ++begun;
        if (subject == "INFO.queue.limit_end") left -= wholeOf(advisories.messages.back(), "lost");
        if (subject == "INFO.listener.slow_end") slow -= wholeOf(advisories.messages.back(), "lost");
    }
    EXPECT_EQ(slow, 0u);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
    EXPECT_LE(static_cast<double>(begun), took.count() / 0.2 + 1);
}

class FoldedHighWater : public HighWater {
  protected:
    const char* interval() const override { return "advisory.interval=3600"; }
};

TEST_F(FoldedHighWater, isToldWithTheQueue) {
    send(10);
    drain(queue);
    EXPECT_EQ(tellings(), (Strings{"WARN.queue.highwater_begin", "INFO.queue.highwater_end"}));
    send(20);
    drain(queue);
    EXPECT_EQ(tellings(), Strings{});
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    EXPECT_EQ(tellings(), (Strings{"WARN.queue.highwater_begin", "INFO.queue.highwater_end"}));
}

}  // namespace
}  // namespace quorltest
