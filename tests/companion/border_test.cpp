// Objects, events, listeners and machines of a companion over the border.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <set>

#include "child.h"
#include "echo.h"
#include "support.h"

namespace quorltest {
namespace {

// What has happened since the object was made.
class Since {
  public:
    explicit Since(std::atomic<int>& count) : count_(count), before_(count) {}
    int value() const { return count_ - before_; }
    bool waitFor(int wanted) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limit);
        while (value() < wanted) {
            if (std::chrono::steady_clock::now() > end) return false;
            std::this_thread::yield();
        }
        return true;
    }

  private:
    std::atomic<int>& count_;
    const int before_;
};

uint32_t newEcho(quorlTransport transport, const char* name = "a", double pingEvery = 0) {
    uint32_t id = 0;
    EXPECT_EQ(echo::createTransport(&id, transport, name, pingEvery, nullptr), QUORL_OK) << quorl_LastErrorText();
    return id;
}

uint32_t listenToEcho(quorlQueue queue, uint32_t echo, const char* subject, quorlEventCallback callback,
                      const void* closure) {
    uint32_t id = 0;
    EXPECT_EQ(echo::createListener(&id, queue, callback, echo, subject, closure), QUORL_OK) << quorl_LastErrorText();
    return id;
}

void sendEcho(uint32_t echo, const char* subject, int number) {
    quorlMsg message = newMessage(subject, number);
    EXPECT_EQ(echo::send(echo, message), QUORL_OK) << quorl_LastErrorText();
    quorlMsg_Destroy(message);
}

void countCompletion(uint32_t, void* closure) {
    static_cast<Counter*>(closure)->add();
}

bool dispatchOne(quorlQueue queue) {
    return quorlQueue_TimedDispatch(queue, limit) == QUORL_OK;
}

class Border : public Open {};

TEST_F(Border, messagesReachTheListenersOfACompanionWithWhatStandsBesideThem) {
    struct Got {
        std::vector<uint64_t> numbers;
        std::vector<int> values;
        int limitSeen = -1;
        void* closure = nullptr;
    } got;
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    const uint32_t echo = newEcho(transport);
    const uint32_t listener = listenToEcho(
        queue, echo, "a.>",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<Got*>(closure);
            uint64_t number = 0;
            uint8_t given = 0;
            EXPECT_EQ(echo::numberOf(message, &number), QUORL_OK);
            EXPECT_EQ(echo::timeLimitOf(message, &given), QUORL_OK);
            to.numbers.push_back(number);
            to.values.push_back(numberOf(message));
            to.limitSeen = given;
            EXPECT_EQ(quorlMsg_GetClosure(message, &to.closure), QUORL_OK);
        },
        &got);
    const Since foreign(echo::figures().foreign);
    const Since confirmed(echo::figures().confirmed);
    sendEcho(echo, "a.b", 7);
    ASSERT_EQ(sendNumber(transport, "a.b", 8), QUORL_OK);  // a plain message
    quorlMsg limited = newMessage("a.c", 9);
    ASSERT_EQ(echo::setTimeLimit(limited, 5), QUORL_OK);
    ASSERT_EQ(quorlMsg_AddI32Ex(limited, "more", 1, 0), QUORL_OK);
    ASSERT_EQ(echo::send(echo, limited), QUORL_OK);
    quorlMsg_Destroy(limited);
    ASSERT_TRUE(dispatchOne(queue));
    ASSERT_TRUE(dispatchOne(queue));
    EXPECT_EQ(got.numbers, (std::vector<uint64_t>{1, 2}));
    EXPECT_EQ(got.values, (std::vector<int>{7, 9}));
    EXPECT_EQ(got.limitSeen, 5);
    EXPECT_EQ(got.closure, &got);
    EXPECT_EQ(confirmed.value(), 2);
    EXPECT_TRUE(foreign.waitFor(1));
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_TIMEOUT);
    // Bindings find its closure by its id, and only under its own type.
    void* record = nullptr;
    ASSERT_EQ(_quorlObjectId_GetEx(listener, QUORL_OBJECT_CM_EVENT, &record, 1, 0), QUORL_OK);
    EXPECT_EQ(static_cast<_quorlRecordHead*>(record)->arg, &got);
    EXPECT_EQ(_quorlObjectId_ReleaseEx(record, 1), QUORL_OK);
    EXPECT_EQ(_quorlObjectId_Verify(listener, QUORL_OBJECT_EVENT), QUORL_NOT_FOUND);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_INVALID_EVENT);
    EXPECT_EQ(_quorlObjectId_Verify(echo, QUORL_OBJECT_CM_TRANSPORT), QUORL_OK);
    EXPECT_EQ(quorlTransport_Destroy(echo), QUORL_INVALID_TRANSPORT);
}

TEST_F(Border, plainListenersHearTheMessageWithoutThem) {
    struct Plain {
        int came = 0;
        quorlMsg kept = nullptr;
    } plain;
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    const uint32_t echo = newEcho(transport);
    listen(
        queue, transport, "a.b",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<Plain*>(closure);
            to.came = numberOf(message);
            uint64_t number = 0;
            EXPECT_EQ(echo::numberOf(message, &number), QUORL_NOT_FOUND);
        },
        &plain);
    sendEcho(echo, "a.b", 7);
    ASSERT_TRUE(dispatchOne(queue));
    EXPECT_EQ(plain.came, 7);
}

// What a program got and sends on by a plain send is a plain message; a copy is what it is a copy of.
TEST_F(Border, whatIsSentOnPlainlyIsPlain) {
    struct Relay {
        quorlTransport transport;
        int relayed = 0;
    } relay{newTransport()};
    const quorlQueue queue = newQueue();
    const uint32_t echo = newEcho(relay.transport);
    listenToEcho(
        queue, echo, "first",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<Relay*>(closure);
            uint64_t number = 0;
            quorlMsg copy = nullptr;
            EXPECT_EQ(quorlMsg_CreateCopy(message, &copy), QUORL_OK);
            EXPECT_EQ(quorlMsg_SetSendSubject(message, "second"), QUORL_OK);
            EXPECT_EQ(quorlTransport_Send(to.transport, message), QUORL_OK);
            EXPECT_EQ(echo::numberOf(message, &number), QUORL_OK);
            EXPECT_EQ(echo::numberOf(copy, &number), QUORL_OK);
            quorlMsg_Destroy(copy);
            ++to.relayed;
        },
        &relay);
    listenToEcho(
        queue, echo, "second", [](quorlEvent, quorlMsg, void*) { ADD_FAILURE(); }, &relay);
    const Since foreign(echo::figures().foreign);
    sendEcho(echo, "first", 1);
    ASSERT_TRUE(dispatchOne(queue));
    EXPECT_EQ(relay.relayed, 1);
    EXPECT_TRUE(foreign.waitFor(1));
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_TIMEOUT);
}

TEST_F(Border, eventsWithoutMessagesCarryTheirTag) {
    std::vector<uint32_t> actions;
    const quorlQueue queue = newQueue();
    uint32_t member = 0;
    ASSERT_EQ(echo::createMember(
                  &member, queue,
                  [](uint32_t, uint32_t action, void* closure) {
                      static_cast<std::vector<uint32_t>*>(closure)->push_back(action);
                  },
                  &actions),
              QUORL_OK);
    for (const uint32_t action : {1u, 0u, 0x7fffffffu}) ASSERT_EQ(echo::act(member, action), QUORL_OK);
    EXPECT_EQ(echo::act(member, 0x80000000u), QUORL_INVALID_ARG);
    EXPECT_EQ(countOf(queue), 3u);
    EXPECT_EQ(drain(queue), 3);
    EXPECT_EQ(actions, (std::vector<uint32_t>{1, 0, 0x7fffffff}));
    ASSERT_EQ(echo::act(member, 1), QUORL_OK);
    ASSERT_EQ(echo::destroyMember(member), QUORL_OK);
    EXPECT_EQ(countOf(queue), 0u);  // what waited is dead
    EXPECT_EQ(echo::destroyMember(member), QUORL_INVALID_EVENT);
    EXPECT_EQ(echo::act(member, 1), QUORL_INVALID_EVENT);
}

TEST_F(Border, aQueueThatIsGoneTakesNothing) {
    const quorlQueue queue = newQueue();
    uint32_t member = 0;
    ASSERT_EQ(echo::createMember(
                  &member, queue, [](uint32_t, uint32_t, void*) {}, nullptr),
              QUORL_OK);
    ASSERT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    EXPECT_EQ(echo::act(member, 1), QUORL_INVALID_QUEUE);
    uint32_t other = 0;
    EXPECT_EQ(echo::createMember(
                  &other, queue, [](uint32_t, uint32_t, void*) {}, nullptr),
              QUORL_INVALID_QUEUE);
    EXPECT_EQ(echo::destroyMember(member), QUORL_OK);
}

// ---- limits, priorities, advisories

class Limits : public Border, public testing::WithParamInterface<quorlQueueLimitPolicy> {};

TEST_P(Limits, holdForEventsOfCompanions) {
    struct Advised {
        std::set<std::string> subjects;
        quorl_u32 event = 0;
        std::string pattern;
    } advised;
    Numbers numbers;
    const quorlTransport transport = newTransport();
    const quorlQueue advisories = newQueue();
    listen(
        advisories, transport, "_QUORL.>",
        [](quorlEvent, quorlMsg message, void* closure) {
            auto& to = *static_cast<Advised*>(closure);
            const char* text = nullptr;
            EXPECT_EQ(quorlMsg_GetSendSubject(message, &text), QUORL_OK);
            const std::string subject = text;
            to.subjects.insert(subject);
            if (subject != "_QUORL.WARN.listener.slow_begin") return;
            EXPECT_EQ(quorlMsg_GetU32Ex(message, "listener", &to.event, 0), QUORL_OK);
            EXPECT_EQ(quorlMsg_GetStringEx(message, "pattern", &text, 0), QUORL_OK);
            to.pattern = text;
        },
        &advised);
    const quorlQueue queue = newQueue();
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, GetParam(), 3, 1), QUORL_OK);
    const uint32_t echo = newEcho(transport);
    const uint32_t listener = listenToEcho(queue, echo, "a", onNumber, &numbers);
    const Since dropped(echo::figures().dropped);
    for (int i = 0; i < 10; ++i) sendEcho(echo, "a", i);
    ASSERT_TRUE(dropped.waitFor(7));
    EXPECT_EQ(countOf(queue), 3u);
    drain(queue);
    drain(advisories);
    switch (GetParam()) {
        case QUORLQUEUE_DISCARD_FIRST:
            EXPECT_EQ(numbers.came, (std::vector<int>{7, 8, 9}));
            break;
        case QUORLQUEUE_DISCARD_LAST:
            EXPECT_EQ(numbers.came, (std::vector<int>{0, 1, 9}));
            break;
        default:
            EXPECT_EQ(numbers.came, (std::vector<int>{0, 1, 2}));
    }
    EXPECT_EQ(advised.subjects.count("_QUORL.WARN.queue.limit_begin"), 1u);
    EXPECT_EQ(advised.subjects.count("_QUORL.INFO.queue.limit_end"), 1u);
    EXPECT_EQ(advised.event, listener);
    EXPECT_EQ(advised.pattern, "a");
    EXPECT_EQ(dropped.value(), 7);
}

INSTANTIATE_TEST_SUITE_P(All, Limits,
                         testing::Values(QUORLQUEUE_DISCARD_FIRST, QUORLQUEUE_DISCARD_LAST, QUORLQUEUE_DISCARD_NEW));

TEST_F(Border, aLowerLimitDropsWhatWaits) {
    Numbers numbers;
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    const uint32_t echo = newEcho(transport);
    listenToEcho(queue, echo, "a", onNumber, &numbers);
    for (int i = 0; i < 5; ++i) sendEcho(echo, "a", i);
    while (countOf(queue) != 5) std::this_thread::yield();
    const Since dropped(echo::figures().dropped);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_FIRST, 2, 1), QUORL_OK);
    EXPECT_EQ(dropped.value(), 3);
    drain(queue);
    EXPECT_EQ(numbers.came, (std::vector<int>{3, 4}));
}

TEST_F(Border, prioritiesHoldForEventsOfCompanions) {
    std::vector<uint32_t> order;
    const auto note = [](uint32_t, uint32_t action, void* closure) {
        static_cast<std::vector<uint32_t>*>(closure)->push_back(action);
    };
    const quorlQueue low = newQueue();
    const quorlQueue high = newQueue();
    quorlQueueGroup group = 0;
    ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    ASSERT_EQ(quorlQueueGroup_Add(group, low), QUORL_OK);
    ASSERT_EQ(quorlQueueGroup_Add(group, high), QUORL_OK);
    ASSERT_EQ(quorlQueue_SetPriority(high, 5), QUORL_OK);
    uint32_t members[2];
    ASSERT_EQ(echo::createMember(&members[0], low, note, &order), QUORL_OK);
    ASSERT_EQ(echo::createMember(&members[1], high, note, &order), QUORL_OK);
    ASSERT_EQ(echo::act(members[0], 1), QUORL_OK);
    ASSERT_EQ(echo::act(members[1], 2), QUORL_OK);
    ASSERT_EQ(quorlQueueGroup_TimedDispatch(group, limit), QUORL_OK);
    ASSERT_EQ(quorlQueueGroup_TimedDispatch(group, limit), QUORL_OK);
    EXPECT_EQ(order, (std::vector<uint32_t>{2, 1}));
}

// A vector listener's batch takes nothing of a companion's beside it.
TEST_F(Border, batchesAreOfVectorListenersAlone) {
    static std::atomic<int> batched;
    static std::atomic<int> single;
    batched = single = 0;
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    quorlEvent vector = 0;
    ASSERT_EQ(quorlEvent_CreateGroupVectorListener(
                  &vector, queue, [](quorlMsg*, quorl_u32 count) { batched += static_cast<int>(count); }, transport,
                  "v", nullptr, nullptr),
              QUORL_OK);
    uint32_t member = 0;
    ASSERT_EQ(echo::createMember(
                  &member, queue, [](uint32_t, uint32_t, void*) { ++single; }, nullptr),
              QUORL_OK);
    for (uint32_t i = 0; i < 4; ++i) {
        ASSERT_EQ(sendNumber(transport, "v", 1), QUORL_OK);
        ASSERT_EQ(echo::act(member, i), QUORL_OK);
    }
    drain(queue);
    EXPECT_EQ(batched, 4);
    EXPECT_EQ(single, 4);
}

// ---- machines

TEST_F(Border, machinesRunOnTheirHost) {
    const quorlTransport transport = newTransport();
    const Since pings(echo::figures().pings);
    const Since heard(echo::figures().heard);
    const Since persisted(echo::figures().persisted);
    const uint32_t echo = newEcho(transport, "machine", 0.001);
    EXPECT_TRUE(pings.waitFor(5));
    EXPECT_TRUE(heard.waitFor(5));
    ASSERT_EQ(echo::persist(echo), QUORL_OK);
    EXPECT_TRUE(persisted.waitFor(1));
}

TEST_F(Border, statisticsHaveAPartOfEachModule) {
    const quorlTransport transport = newTransport();
    newEcho(transport);
    quorlMsg question = newMessage("_QUORL.STATS");
    quorlMsg answer = nullptr;
    ASSERT_EQ(quorlTransport_SendRequest(transport, question, &answer, limit), QUORL_OK);
    quorlMsg part = nullptr;
    quorl_u32 guests = 0;
    const char* name = nullptr;
    ASSERT_EQ(quorlMsg_GetMsgEx(answer, "echo", &part, 0), QUORL_OK);
    EXPECT_EQ(quorlMsg_GetU32Ex(part, "guests", &guests, 0), QUORL_OK);
    EXPECT_EQ(guests, 1u);
    EXPECT_EQ(quorlMsg_GetStringEx(part, "name", &name, 0), QUORL_OK);
    EXPECT_STREQ(name, "echo");
    quorlMsg_Destroy(answer);
    quorlMsg_Destroy(question);
}

TEST_F(Border, questionsAreAnsweredByTheModuleThatTheyName) {
    const quorlTransport transport = newTransport();
    newEcho(transport);
    const auto ask = [&](const char* subject) {
        std::string said;
        quorlMsg question = newMessage(subject);
        quorlMsg answer = nullptr;
        const char* text = nullptr;
        if (quorlTransport_SendRequest(transport, question, &answer, 0) == QUORL_OK) {
            EXPECT_EQ(quorlMsg_GetStringEx(answer, "question", &text, 0), QUORL_OK);
            said = text;
            quorlMsg_Destroy(answer);
        }
        quorlMsg_Destroy(question);
        return said;
    };
    EXPECT_EQ(ask("_QUORL.ASK.echo.who"), "who");
    EXPECT_EQ(ask("_QUORL.ASK.echo.who.is.7"), "who.is.7");
    for (const char* nobodys :
         {"_QUORL.ASK.echo.silence", "_QUORL.ASK.echo", "_QUORL.ASK.ech.who", "_QUORL.ASK.nobody.who"})
        EXPECT_EQ(ask(nobodys), "") << nobodys;
}

// ---- closing

TEST_F(Border, closesOnceAndCompletesWhenItsCallbackHasReturned) {
    struct Held {
        Counter inside;
        Counter leave;
        Counter completed;
    } held;
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    const uint32_t echo = newEcho(transport);
    const uint32_t listener = listenToEcho(
        queue, echo, "a",
        [](quorlEvent, quorlMsg, void* closure) {
            auto& to = *static_cast<Held*>(closure);
            to.inside.add();
            EXPECT_TRUE(to.leave.waitFor(1));
        },
        &held);
    sendEcho(echo, "a", 1);
    Threads threads;
    threads.start([&] { EXPECT_TRUE(dispatchOne(queue)); });
    ASSERT_TRUE(held.inside.waitFor(1));
    const auto complete = [](uint32_t, void* closure) { static_cast<Held*>(closure)->completed.add(); };
    ASSERT_EQ(echo::destroyListener(listener, complete), QUORL_OK);
    EXPECT_EQ(echo::destroyListener(listener, complete), QUORL_INVALID_EVENT);
    EXPECT_EQ(_quorlObjectId_Verify(listener, QUORL_OBJECT_CM_EVENT), QUORL_NOT_FOUND);
    // Something else that completes shows that the reclaimer has been round.
    Counter other;
    const quorlQueue second = newQueue();
    ASSERT_EQ(quorlQueue_DestroyEx(
                  second, [](quorlQueue, void* closure) { static_cast<Counter*>(closure)->add(); }, &other),
              QUORL_OK);
    ASSERT_TRUE(other.waitFor(1));
    EXPECT_EQ(held.completed.value(), 0);
    held.leave.add();
    EXPECT_TRUE(held.completed.waitFor(1));
    threads.join();
}

TEST_F(Border, referencesOfBindingsDelayTheCompletion) {
    Counter completed;
    const uint32_t echo = newEcho(newTransport());
    void* record = nullptr;
    ASSERT_EQ(_quorlObjectId_GetEx(echo, QUORL_OBJECT_CM_TRANSPORT, &record, 1, 0), QUORL_OK);
    ASSERT_EQ(echo::destroyTransport(echo, countCompletion, &completed), QUORL_OK);
    EXPECT_EQ(echo::destroyTransport(echo, countCompletion, &completed), QUORL_INVALID_TRANSPORT);
    Counter other;
    ASSERT_EQ(quorlQueue_DestroyEx(
                  newQueue(), [](quorlQueue, void* closure) { static_cast<Counter*>(closure)->add(); }, &other),
              QUORL_OK);
    ASSERT_TRUE(other.waitFor(1));
    EXPECT_EQ(completed.value(), 0);
    ASSERT_EQ(_quorlObjectId_ReleaseEx(record, 1), QUORL_OK);
    EXPECT_TRUE(completed.waitFor(1));
}

TEST_F(Border, aTransportSaysThatItCloses) {
    const quorlTransport transport = newTransport();
    const quorlTransport other = newTransport();
    const quorlQueue queue = newQueue();
    Numbers goodbye;
    listen(
        queue, other, "echo.goodbye",
        [](quorlEvent, quorlMsg, void* closure) { static_cast<Numbers*>(closure)->came.push_back(1); }, &goodbye);
    const uint32_t echo = newEcho(transport);
    const uint32_t untouched = newEcho(other, "b");
    const Since closes(echo::figures().parentCloses);
    const Since goodbyes(echo::figures().goodbyes);
    const Since closed(echo::figures().parentClosed);
    ASSERT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
    EXPECT_EQ(closes.value(), 1);
    EXPECT_EQ(goodbyes.value(), 1);
    EXPECT_EQ(closed.value(), 1);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_EQ(goodbye.came.size(), 1u);
    // It is still there, and can do nothing any more.
    quorlMsg message = newMessage("a", 1);
    EXPECT_EQ(echo::send(echo, message), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(echo::send(untouched, message), QUORL_OK);
    quorlMsg_Destroy(message);
    EXPECT_EQ(echo::destroyTransport(echo, nullptr, nullptr), QUORL_OK);
    uint32_t none = 0;
    EXPECT_EQ(echo::createTransport(&none, transport, "c", 0, nullptr), QUORL_INVALID_TRANSPORT);
    EXPECT_NE(std::string(quorl_LastErrorText()).find("creating an echo transport"), std::string::npos);
}

// Transport, queue, echo transport, echo listener, the library: in every order.
TEST(BorderClosing, worksInEveryOrder) {
    std::array<int, 4> order{0, 1, 2, 3};
    const Since memory(echo::figures().transports);
    const Since listeners(echo::figures().listeners);
    do {
        for (const size_t before : {0u, 1u, 2u, 3u, 4u}) {  // how many are closed by the program
            ASSERT_EQ(quorl_Open(), QUORL_OK);
            const Since closed(echo::figures().closed);
            const Since completed(echo::figures().completed);
            const Since modules(echo::figures().modulesClosed);
            const Since stopped(echo::figures().modulesStopped);
            const quorlTransport transport = newTransport();
            const quorlQueue queue = newQueue();
            const uint32_t echo = newEcho(transport, "order", 0.001);
            const uint32_t listener = listenToEcho(
                queue, echo, "a", [](quorlEvent, quorlMsg, void*) {}, nullptr);
            for (int i = 0; i < 3; ++i) sendEcho(echo, "a", i);
            Counter completions;
            for (size_t i = 0; i < before; ++i) {
                switch (order[i]) {
                    case 0:
                        EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
                        break;
                    case 1:
                        EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
                        break;
                    case 2:
                        EXPECT_EQ(echo::destroyTransport(echo, countCompletion, &completions), QUORL_OK);
                        break;
                    default:
                        EXPECT_EQ(echo::destroyListener(listener, nullptr), QUORL_OK);
                }
            }
            ASSERT_EQ(quorl_Close(), QUORL_OK) << quorl_LastErrorText();
            transportsMade.clear();
            EXPECT_EQ(closed.value(), 2);
            EXPECT_EQ(completed.value(), 2);
            EXPECT_EQ(modules.value(), 1);
            EXPECT_EQ(stopped.value(), 1);
            EXPECT_EQ(memory.value(), 0);
            EXPECT_EQ(listeners.value(), 0);
        }
    } while (std::next_permutation(order.begin(), order.end()));
}

TEST(BorderClosing, nothingIsMadeWhileTheLibraryIsClosed) {
    uint32_t id = 0;
    EXPECT_EQ(echo::createTransport(&id, 1, "a", 0, nullptr), QUORL_NOT_INITIALIZED);
    EXPECT_EQ(echo::createMember(
                  &id, QUORL_DEFAULT_QUEUE, [](uint32_t, uint32_t, void*) {}, nullptr),
              QUORL_NOT_INITIALIZED);
    EXPECT_EQ(echo::destroyTransport(1, nullptr, nullptr), QUORL_NOT_INITIALIZED);
}

// Objects come and go on several threads while messages flow and transports close under them.
TEST_F(Border, churn) {
    constexpr int rounds = 60;
    const Since transports(echo::figures().transports);
    const Since listeners(echo::figures().listeners);
    std::atomic<bool> done{false};
    const quorlQueue queue = newQueue();
    Threads dispatchers;
    for (int i = 0; i < 2; ++i) {
        dispatchers.start([&] {
            while (!done) quorlQueue_TimedDispatch(queue, 0.01);
        });
    }
    Counter completions;
    std::atomic<int> made{0};
    Threads threads;
    for (int worker = 0; worker < 3; ++worker) {
        threads.start([&, worker] {
            const std::string subject = "churn." + std::to_string(worker % 2);
            for (int i = 0; i < rounds; ++i) {
                const quorlTransport transport = newTransport();
                uint32_t echo = 0;
                uint32_t listener = 0;
                ASSERT_EQ(echo::createTransport(&echo, transport, subject.c_str(), 0.001, nullptr), QUORL_OK);
                ++made;
                ASSERT_EQ(echo::createListener(
                              &listener, queue, [](quorlEvent, quorlMsg, void*) {}, echo, subject.c_str(), nullptr),
                          QUORL_OK);
                Threads closers;
                closers.start([&] {
                    if (i % 3 == 0) quorlTransport_Destroy(transport);
                    echo::destroyListener(listener, nullptr);
                });
                for (int j = 0; j < 20; ++j) {
                    quorlMsg message = newMessage(subject.c_str(), j);
                    const quorl_status status = echo::send(echo, message);
                    EXPECT_TRUE(status == QUORL_OK || status == QUORL_INVALID_TRANSPORT) << status;
                    quorlMsg_Destroy(message);
                }
                EXPECT_EQ(echo::destroyTransport(echo, countCompletion, &completions), QUORL_OK);
                closers.join();
                quorlTransport_Destroy(transport);
            }
        });
    }
    threads.join();
    EXPECT_TRUE(completions.waitFor(made));
    done = true;
    dispatchers.join();
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    EXPECT_EQ(transports.value(), 0);
    EXPECT_EQ(listeners.value(), 0);
}

// ---- forks, releases

TEST_F(Border, isShutInAForkedChild) {
    const quorlTransport transport = newTransport();
    const quorlQueue queue = newQueue();
    const uint32_t echo = newEcho(transport, "fork", 0.001);
    listenToEcho(
        queue, echo, "a", [](quorlEvent, quorlMsg, void*) {}, nullptr);
    quorlMsg message = newMessage("a", 1);
    ASSERT_EQ(echo::send(echo, message), QUORL_OK);
    EXPECT_EQ(inChild([&] {
                  const int first = echo::firstNotRefused(transport, echo, message);
                  if (first != 0) return first;
                  return echo::figures().forgets == 1 ? 0 : 100;
              }),
              0);
    // The parent goes on.
    EXPECT_EQ(echo::send(echo, message), QUORL_OK);
    ASSERT_TRUE(dispatchOne(queue));
    quorlMsg_Destroy(message);
}

TEST(BorderReleases, ofAnotherReleaseDoNotLoad) {
    EXPECT_EQ(dlopen(OTHER_RELEASE, RTLD_NOW | RTLD_LOCAL), nullptr);
    const std::string text = dlerror();
    EXPECT_NE(text.find("QUORL_PRIVATE_0.0.9"), std::string::npos) << text;
    EXPECT_STREQ(quorl_Version(), RELEASE);
}

}  // namespace
}  // namespace quorltest
