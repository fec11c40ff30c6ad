// Listeners and vector listeners: their end, and their batches.
#include <unistd.h>

#include <algorithm>

#include "support.h"

namespace quorltest {
namespace {

class Event : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        transport = newTransport();
        queue = newQueue();
    }
    quorlTransport transport = 0;
    quorlQueue queue = 0;
};

TEST_F(Event, aDestroyedListenerIsCalledNoMore) {
    Numbers gone, kept;
    const quorlEvent listener = listen(queue, transport, "a", onNumber, &gone);
    listen(queue, transport, "a", onNumber, &kept);
    for (int i = 0; i < 10; ++i) sendNumber(transport, "a", i);
    EXPECT_EQ(countOf(queue), 20u);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    EXPECT_EQ(countOf(queue), 9u);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_INVALID_EVENT);
    sendNumber(transport, "a", 10);
    EXPECT_EQ(countOf(queue), 10u);
    EXPECT_EQ(drain(queue), 10);
    EXPECT_EQ(gone.came.size(), 1u);
    EXPECT_EQ(kept.came.size(), 11u);
}

TEST_F(Event, whatADestroyedListenerLeftDoesNotCountAgainstTheLimit) {
    Numbers gone, kept;
    const quorlEvent listener = listen(queue, transport, "gone", onNumber, &gone);
    listen(queue, transport, "kept", onNumber, &kept);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 10000, 1), QUORL_OK);
    for (int i = 0; i < 5000; ++i) {
        sendNumber(transport, "gone", i);
        sendNumber(transport, "kept", i);
    }
    sendNumber(transport, "kept", 1);
    EXPECT_EQ(countOf(queue), 10000u);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
    EXPECT_EQ(countOf(queue), 5000u);
    for (int i = 5000; i < 10000; ++i) sendNumber(transport, "kept", i);
    EXPECT_EQ(countOf(queue), 10000u);
    sendNumber(transport, "kept", 10000);
    EXPECT_EQ(drain(queue), 10000);
    EXPECT_TRUE(gone.came.empty());
    for (int i = 0; i < 10000; ++i) ASSERT_EQ(kept.came[static_cast<size_t>(i)], i);
}

TEST_F(Event, completionComesOnceOnAnotherThreadAfterTheCallback) {
    struct State {
        Counter started, finish, completed;
        std::atomic<bool> running{false};
        bool ranAtCompletion = true;
        quorlEvent id = 0;
        pthread_t thread;
    } state;
    const quorlEvent listener = listen(
        queue, transport, "a",
        [](quorlEvent, quorlMsg, void* closure) {
            auto& to = *static_cast<State*>(closure);
            to.running = true;
            to.started.add();
            EXPECT_TRUE(to.finish.waitFor(1));
            to.running = false;
        },
        &state);
    sendNumber(transport, "a", 1);
    Threads threads;
    threads.start([&] { EXPECT_EQ(quorlQueue_TimedDispatch(queue, -1), QUORL_OK); });
    ASSERT_TRUE(state.started.waitFor(1));
    EXPECT_EQ(quorlEvent_DestroyEx(listener,
                                   [](quorlEvent event, void* closure) {
                                       auto& to = *static_cast<State*>(closure);
                                       to.ranAtCompletion = to.running;
                                       to.id = event;
                                       to.thread = pthread_self();
                                       to.completed.add();
                                   }),
              QUORL_OK);
    EXPECT_EQ(state.completed.value(), 0);
    state.finish.add();
    ASSERT_TRUE(state.completed.waitFor(1));
    threads.join();
    EXPECT_FALSE(state.ranAtCompletion);
    EXPECT_EQ(state.id, listener);
    EXPECT_FALSE(pthread_equal(state.thread, pthread_self()));
}

TEST_F(Event, completionWaitsForReferences) {
    Counter completed;
    const quorlEvent listener = listen(queue, transport, "a", onNumber, &completed);
    void* record = nullptr;
    ASSERT_EQ(_quorlObjectId_GetEx(listener, QUORL_OBJECT_EVENT, &record, 1, 0), QUORL_OK);
    EXPECT_EQ(static_cast<_quorlRecordHead*>(record)->arg, &completed);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, [](quorlEvent, void* counter) { static_cast<Counter*>(counter)->add(); }),
              QUORL_OK);
    // Another object that nothing holds is complete before it.
    Counter other;
    const quorlEvent free = listen(queue, transport, "b", onNumber, &other);
    EXPECT_EQ(quorlEvent_DestroyEx(free, [](quorlEvent, void* counter) { static_cast<Counter*>(counter)->add(); }),
              QUORL_OK);
    ASSERT_TRUE(other.waitFor(1));
    EXPECT_EQ(completed.value(), 0);
    EXPECT_EQ(static_cast<_quorlRecordHead*>(record)->arg, &completed);
    EXPECT_EQ(_quorlObjectId_ReleaseEx(record, 1), QUORL_OK);
    EXPECT_TRUE(completed.waitFor(1));
}

TEST_F(Event, destroyInsideItsOwnCallback) {
    struct State {
        Counter completed;
        int came = 0;
    } state;
    listen(
        queue, transport, "a",
        [](quorlEvent event, quorlMsg message, void* closure) {
            auto& to = *static_cast<State*>(closure);
            ++to.came;
            EXPECT_EQ(quorlEvent_DestroyEx(
                          event, [](quorlEvent, void* state) { static_cast<State*>(state)->completed.add(); }),
                      QUORL_OK);
            EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_INVALID_EVENT);
            EXPECT_EQ(to.completed.value(), 0);
            EXPECT_EQ(numberOf(message), 0);
        },
        &state);
    for (int i = 0; i < 5; ++i) sendNumber(transport, "a", i);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_TRUE(state.completed.waitFor(1));
    EXPECT_EQ(state.came, 1);
    EXPECT_EQ(countOf(queue), 0u);
}

TEST_F(Event, noCallbackStartsAfterDestroyReturned) {
    struct State {
        std::atomic<bool> destroyed{false};
        std::atomic<bool> late{false};
        std::atomic<int> came{0};
        Counter completed;
    };
    std::atomic<bool> done{false};
    Threads threads;
    for (int i = 0; i < 2; ++i) {
        threads.start([&] {
            while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
            }
        });
    }
    threads.start([&] {
        for (int i = 0; !done; ++i) sendNumber(transport, "a", i);
    });
    for (int round = 0; round < 100; ++round) {
        auto state = std::make_unique<State>();
        const quorlEvent listener = listen(
            queue, transport, "a", [](quorlEvent, quorlMsg, void* closure) { ++static_cast<State*>(closure)->came; },
            state.get());
        while (state->came < 2) std::this_thread::yield();
        ASSERT_EQ(quorlEvent_DestroyEx(
                      listener, [](quorlEvent, void* closure) { static_cast<State*>(closure)->completed.add(); }),
                  QUORL_OK);
        // The closure is freed right after: a callback that ran then would be caught by the sanitizers.
        ASSERT_TRUE(state->completed.waitFor(1));
    }
    done = true;
    EXPECT_EQ(quorlQueue_DestroyEx(queue, nullptr, nullptr), QUORL_OK);
    threads.join();
}

TEST_F(Event, aDestroyedTransportFeedsItsListenersNoMore) {
    Numbers numbers;
    const quorlTransport other = newTransport();
    const quorlEvent listener = listen(queue, transport, "a", onNumber, &numbers);
    sendNumber(other, "a", 1);
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(sendNumber(transport, "a", 2), QUORL_INVALID_TRANSPORT);
    EXPECT_EQ(sendNumber(other, "a", 3), QUORL_OK);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_EQ(numbers.came, std::vector{1});
    EXPECT_EQ(quorlEvent_DestroyEx(listener, nullptr), QUORL_OK);
}

TEST_F(Event, childrenMayOutliveTheirParents) {
    Counter completed;
    const quorlEvent listener = listen(queue, transport, "a", onNumber, &completed);
    EXPECT_EQ(quorlTransport_Destroy(transport), QUORL_OK);
    EXPECT_EQ(quorlQueue_DestroyEx(
                  queue, [](quorlQueue, void* counter) { static_cast<Counter*>(counter)->add(); }, &completed),
              QUORL_OK);
    EXPECT_TRUE(completed.waitFor(1));
    EXPECT_EQ(_quorlObjectId_Verify(listener, QUORL_OBJECT_EVENT), QUORL_OK);
    EXPECT_EQ(quorlEvent_DestroyEx(listener, [](quorlEvent, void* counter) { static_cast<Counter*>(counter)->add(); }),
              QUORL_OK);
    EXPECT_TRUE(completed.waitFor(2));
}

// ---- vector listeners

struct Batches {
    std::vector<std::vector<int>> came;
};
Batches* batches;

void onBatch(quorlMsg* messages, quorl_u32 size) {
    auto& batch = batches->came.emplace_back();
    for (quorl_u32 i = 0; i < size; ++i) batch.push_back(numberOf(messages[i]));
}
void onOtherBatch(quorlMsg* messages, quorl_u32 size) {
    onBatch(messages, size);
}

class Vector : public Event {
  protected:
    void SetUp() override {
        Event::SetUp();
        batches = &seen;
    }
    quorlEvent listenInBatches(const char* subject, const void* group, quorlEventVectorCallback callback = onBatch,
                               const void* closure = nullptr) {
        quorlEvent event = 0;
        EXPECT_EQ(quorlEvent_CreateGroupVectorListener(&event, queue, callback, transport, subject, closure, group),
                  QUORL_OK);
        return event;
    }
    Batches seen;
};

TEST_F(Vector, deliversWhatWaitsInOneCall) {
    listenInBatches("a", nullptr);
    for (int i = 0; i < 5; ++i) sendNumber(transport, "a", i);
    EXPECT_EQ(countOf(queue), 5u);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_EQ(seen.came, (std::vector<std::vector<int>>{{0, 1, 2, 3, 4}}));
    EXPECT_EQ(countOf(queue), 0u);
    sendNumber(transport, "a", 9);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_EQ(seen.came.back(), std::vector{9});
}

TEST_F(Vector, boundsABatchAt128) {
    listenInBatches("a", nullptr);
    for (int i = 0; i < 300; ++i) sendNumber(transport, "a", i);
    EXPECT_EQ(drain(queue), 3);
    ASSERT_EQ(seen.came.size(), 3u);
    EXPECT_EQ(seen.came[0].size(), 128u);
    EXPECT_EQ(seen.came[1].size(), 128u);
    EXPECT_EQ(seen.came[2].size(), 44u);
    int next = 0;
    for (auto& batch : seen.came) {
        for (int number : batch) EXPECT_EQ(number, next++);
    }
}

TEST_F(Vector, joinsListenersOfOneGroupAndCallback) {
    int group = 0;
    int other = 0;
    listenInBatches("a", &group);
    listenInBatches("b", &group);
    listenInBatches("c", &other);
    listenInBatches("d", &group, onOtherBatch);
    int number = 0;
    for (int round = 0; round < 3; ++round) {
        for (const char* subject : {"a", "b", "c", "d"}) sendNumber(transport, subject, number++);
    }
    EXPECT_EQ(drain(queue), 3);
    EXPECT_EQ(seen.came, (std::vector<std::vector<int>>{{0, 1, 4, 5, 8, 9}, {2, 6, 10}, {3, 7, 11}}));
}

TEST_F(Vector, eachMessageKnowsItsOwnListener) {
    static std::vector<void*> closures;
    closures.clear();
    int first, second;
    const auto callback = [](quorlMsg* messages, quorl_u32 size) {
        for (quorl_u32 i = 0; i < size; ++i) {
            void* closure = nullptr;
            EXPECT_EQ(quorlMsg_GetClosure(messages[i], &closure), QUORL_OK);
            closures.push_back(closure);
        }
    };
    listenInBatches("a", nullptr, callback, &first);
    listenInBatches("b", nullptr, callback, &second);
    for (const char* subject : {"a", "b", "b", "a"}) sendNumber(transport, subject, 1);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_EQ(closures, (std::vector<void*>{&first, &second, &second, &first}));
}

TEST_F(Vector, leavesEventsOfOthersInTheirOrder) {
    Numbers numbers;
    listen(queue, transport, "n", onNumber, &numbers);
    listenInBatches("a", nullptr);
    for (int i = 0; i < 6; ++i) {
        sendNumber(transport, "a", i);
        sendNumber(transport, "n", i);
    }
    EXPECT_EQ(quorlQueue_TimedDispatch(queue, 0), QUORL_OK);
    EXPECT_EQ(seen.came, (std::vector<std::vector<int>>{{0, 1, 2, 3, 4, 5}}));
    EXPECT_EQ(countOf(queue), 6u);
    EXPECT_EQ(drain(queue), 6);
    EXPECT_EQ(numbers.came, (std::vector{0, 1, 2, 3, 4, 5}));
}

TEST_F(Vector, detachedMessagesAndThoseSetToNullAreLeftAlone) {
    static std::vector<quorlMsg> kept;
    kept.clear();
    listenInBatches("a", nullptr, [](quorlMsg* messages, quorl_u32 size) {
        for (quorl_u32 i = 0; i < size; ++i) kept.push_back(messages[i]);
        EXPECT_EQ(quorlMsg_Detach(messages[0]), QUORL_OK);
        EXPECT_EQ(quorlMsg_Detach(messages[1]), QUORL_OK);
        messages[1] = nullptr;
        EXPECT_EQ(quorlMsg_Destroy(messages[2]), QUORL_OK);
        messages[2] = nullptr;
    });
    for (int i = 0; i < 4; ++i) sendNumber(transport, "a", i);
    EXPECT_EQ(drain(queue), 1);
    ASSERT_EQ(kept.size(), 4u);
    EXPECT_EQ(quorlMsg_Destroy(kept[0]), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(kept[1]), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(kept[2]), QUORL_INVALID_MSG);
    EXPECT_EQ(quorlMsg_Destroy(kept[3]), QUORL_INVALID_MSG);
}

// The array is the callback's: what stands where afterwards must not change who is destroyed.
TEST_F(Vector, anArrayThatTheCallbackReordersLosesNothing) {
    static std::vector<quorlMsg> given;
    static void (*change)(quorlMsg * messages, quorl_u32 size);
    listenInBatches("a", nullptr, [](quorlMsg* messages, quorl_u32 size) {
        given.assign(messages, messages + size);
        change(messages, size);
    });
    const struct {
        const char* what;
        void (*change)(quorlMsg* messages, quorl_u32 size);
        std::vector<size_t> leftAlone;
    } rows[] = {
        {"reversed", [](quorlMsg* messages, quorl_u32 size) { std::reverse(messages, messages + size); }, {}},
        {"rotated",
         [](quorlMsg* messages, quorl_u32 size) { std::rotate(messages, messages + 1, messages + size); },
         {}},
        {"null, then reversed",
         [](quorlMsg* messages, quorl_u32 size) {
             messages[1] = nullptr;
             std::reverse(messages, messages + size);
         },
         {1}},
        {"moved up over one",
         [](quorlMsg* messages, quorl_u32 size) {
             std::copy(messages + 1, messages + size, messages);
             messages[size - 1] = nullptr;
         },
         {0}},
        {"all the same",
         [](quorlMsg* messages, quorl_u32 size) { std::fill(messages, messages + size, messages[2]); },
         {}},
        {"overwritten, and one null",
         [](quorlMsg* messages, quorl_u32) {
             messages[0] = messages[1];
             messages[2] = messages[1];
             messages[3] = nullptr;
         },
         {3}},
        {"all null",
         [](quorlMsg* messages, quorl_u32 size) { std::fill(messages, messages + size, nullptr); },
         {0, 1, 2, 3}},
        {"filled with nonsense",
         [](quorlMsg* messages, quorl_u32 size) {
             for (quorl_u32 i = 0; i < size; ++i) messages[i] = reinterpret_cast<quorlMsg>(uintptr_t{i} * 77 + 1);
         },
         {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        change = row.change;
        for (int i = 0; i < 4; ++i) sendNumber(transport, "a", i);
        EXPECT_EQ(drain(queue), 1);
        ASSERT_EQ(given.size(), 4u);
        for (size_t i = 0; i < given.size(); ++i) {
            const bool alone = std::find(row.leftAlone.begin(), row.leftAlone.end(), i) != row.leftAlone.end();
            EXPECT_EQ(quorlMsg_Destroy(given[i]), alone ? QUORL_OK : QUORL_INVALID_MSG) << i;
        }
    }
}

TEST_F(Vector, aDestroyedListenersMessagesLeaveTheBatch) {
    const quorlEvent gone = listenInBatches("a", nullptr);
    listenInBatches("b", nullptr);
    for (int i = 0; i < 4; ++i) sendNumber(transport, i % 2 ? "b" : "a", i);
    EXPECT_EQ(quorlEvent_DestroyEx(gone, nullptr), QUORL_OK);
    EXPECT_EQ(drain(queue), 1);
    EXPECT_EQ(seen.came, (std::vector<std::vector<int>>{{1, 3}}));
}

TEST_F(Vector, completionWaitsForTheBatchOfEveryListenerInIt) {
    static Counter started, finish;
    Counter completed;
    const auto callback = [](quorlMsg*, quorl_u32) {
        started.add();
        EXPECT_TRUE(finish.waitFor(1));
    };
    listenInBatches("a", nullptr, callback);
    const quorlEvent second = listenInBatches("b", nullptr, callback, &completed);
    sendNumber(transport, "a", 1);
    sendNumber(transport, "b", 1);
    Threads threads;
    threads.start([&] { EXPECT_EQ(quorlQueue_TimedDispatch(queue, -1), QUORL_OK); });
    ASSERT_TRUE(started.waitFor(1));
    EXPECT_EQ(quorlEvent_DestroyEx(second, [](quorlEvent, void* counter) { static_cast<Counter*>(counter)->add(); }),
              QUORL_OK);
    EXPECT_EQ(completed.value(), 0);
    finish.add();
    EXPECT_TRUE(completed.waitFor(1));
    threads.join();
}

}  // namespace
}  // namespace quorltest
