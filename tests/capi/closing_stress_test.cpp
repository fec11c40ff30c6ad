// Closing anything, from any thread, in every order, while it is dispatched.
#include <algorithm>
#include <memory>

#include "stress.h"
#include "support.h"

namespace quorltest {
namespace {

constexpr uint64_t aliveMark = 0x616c697665;

// The objects of one round. Freed once everything is complete, so that the sanitizers see a callback that runs later.
struct Round {
    // What an event's callback gets.
    struct Closure {
        volatile uint64_t mark = aliveMark;
        Round* round = nullptr;
        std::atomic<int> inside{0};
        std::atomic<int> completions{0};
        std::atomic<int> late{0};  // callbacks that began after the completion
        ~Closure() { mark = 0; }
        void enter() {
            EXPECT_EQ(mark, aliveMark);
            ++inside;
            if (completions != 0) ++late;
        }
        void leave() { --inside; }
    };

    enum Object { listener, vectorListener, timer, advisoryListener, queueA, queueB, group, transport, objects };

    quorlTransport transportId = 0;
    quorlQueue queues[2] = {};
    quorlQueueGroup groupId = 0;
    quorlEvent events[4] = {};
    Closure closures[6];  // of the events, and of the queues for their completions
    Counter completed;
    std::vector<Object> order;
    std::atomic<size_t> closedUpTo{0};
    bool closeInside = false;  // callbacks close too

    static void onComplete(quorlEvent, void* given) {
        auto& closure = *static_cast<Closure*>(given);
        EXPECT_EQ(closure.mark, aliveMark);
        EXPECT_EQ(closure.inside, 0);
        ++closure.completions;
        closure.round->completed.add();
    }
    // Closes the next object of the order; false when none is left.
    bool closeNext() {
        const size_t place = closedUpTo.fetch_add(1);
        if (place >= order.size()) return false;
        switch (const Object object = order[place]) {
            case listener:
            case vectorListener:
            case timer:
            case advisoryListener:
                EXPECT_EQ(quorlEvent_DestroyEx(events[object], onComplete), QUORL_OK);
                break;
            case queueA:
            case queueB:
                EXPECT_EQ(quorlQueue_DestroyEx(queues[object - queueA], onComplete, &closures[object]), QUORL_OK);
                break;
            case group:
                EXPECT_EQ(quorlQueueGroup_Destroy(groupId), QUORL_OK);
                break;
            case transport:
                EXPECT_EQ(quorlTransport_Destroy(transportId), QUORL_OK);
                break;
            case objects:
                break;
        }
        return true;
    }

    static void run(Closure& closure) {
        closure.enter();
        if (closure.round->closeInside) closure.round->closeNext();
        closure.leave();
    }
    static void onEvent(quorlEvent, quorlMsg, void* closure) { run(*static_cast<Closure*>(closure)); }
    static void onBatch(quorlMsg* messages, quorl_u32) {
        void* closure = nullptr;
        EXPECT_EQ(quorlMsg_GetClosure(messages[0], &closure), QUORL_OK);
        run(*static_cast<Closure*>(closure));
    }

    explicit Round(std::mt19937_64& random) {
        for (Closure& closure : closures) closure.round = this;
        closeInside = random() % 2 == 0;
        transportId = newTransport();
        for (auto& queue : queues) queue = newQueue();
        EXPECT_EQ(quorlQueueGroup_Create(&groupId), QUORL_OK);
        for (const auto queue : queues) EXPECT_EQ(quorlQueueGroup_Add(groupId, queue), QUORL_OK);
        if (random() % 2 == 0) {
            EXPECT_EQ(quorlQueue_SetLimitPolicy(queues[0], QUORLQUEUE_DISCARD_FIRST, 3, 2), QUORL_OK);
        }
        events[listener] = listen(queues[random() % 2], transportId, "a", onEvent, &closures[listener]);
        EXPECT_EQ(quorlEvent_CreateGroupVectorListener(&events[vectorListener], queues[random() % 2], onBatch,
                                                       transportId, "a", &closures[vectorListener], this),
                  QUORL_OK);
        EXPECT_EQ(quorlEvent_CreateTimer(&events[timer], queues[random() % 2], onEvent, random() % 2 == 0 ? 0 : 1e-4,
                                         &closures[timer]),
                  QUORL_OK);
        events[advisoryListener] =
            listen(queues[random() % 2], transportId, "_QUORL.>", onEvent, &closures[advisoryListener]);
        for (int object = 0; object < objects; ++object) order.push_back(static_cast<Object>(object));
        std::shuffle(order.begin(), order.end(), random);
    }
};

// Only the last two closures are queues'; their places follow the events'.
static_assert(Round::queueA == 4 && Round::queueB == 5);

class Closing : public Open {};

TEST_F(Closing, anythingInAnyOrderFromAnyThread) {
    std::mt19937_64 random(stressSeed());
    const int rounds = stressSize(300, 10'000);
    for (int i = 0; i < rounds; ++i) {
        auto round = std::make_unique<Round>(random);
        const bool fromOther = random() % 2 == 0;
        const int before = static_cast<int>(random() % 20);
        Threads threads;
        threads.start([&] {
            while (quorlQueueGroup_TimedDispatch(round->groupId, -1) == QUORL_OK) {
            }
        });
        threads.start([&] {
            while (quorlQueue_TimedDispatch(round->queues[0], -1) == QUORL_OK) {
            }
        });
        threads.start([&] {
            quorlMsg message = newMessage("a", 1);
            for (int sent = 0; quorlTransport_Send(round->transportId, message) == QUORL_OK; ++sent) {
                if (sent > 50) std::this_thread::yield();
            }
            EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        });
        if (fromOther) {
            threads.start([&] {
                while (round->closeNext()) std::this_thread::yield();
            });
        }
        for (int pause = 0; pause < before; ++pause) std::this_thread::yield();
        while (round->closeNext()) std::this_thread::yield();
        ASSERT_TRUE(round->completed.waitFor(6)) << "round " << i << ": " << round->completed.value();
        threads.join();
        for (const auto& closure : round->closures) {
            ASSERT_EQ(closure.completions, 1) << "round " << i;
            ASSERT_EQ(closure.late, 0) << "round " << i;
            ASSERT_EQ(closure.inside, 0) << "round " << i;
        }
        for (const auto event : round->events) ASSERT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_INVALID_EVENT);
    }
}

// The library closes under everything that lives and runs.
TEST(ClosingTheLibrary, endsWhatRuns) {
    std::mt19937_64 random(stressSeed());
    const int rounds = stressSize(100, 3000);
    for (int i = 0; i < rounds; ++i) {
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        std::atomic<int> inside{0};
        const auto onEvent = [](quorlEvent, quorlMsg, void* closure) {
            auto& count = *static_cast<std::atomic<int>*>(closure);
            ++count;
            std::this_thread::yield();
            --count;
        };
        const quorlTransport transport = newTransport();
        const quorlQueue queue = newQueue();
        listen(queue, transport, "a", onEvent, &inside);
        quorlEvent timer = 0;
        ASSERT_EQ(quorlEvent_CreateTimer(&timer, queue, onEvent, 0, &inside), QUORL_OK);
        Threads threads;
        for (int dispatcher = 0; dispatcher < 2; ++dispatcher) {
            threads.start([queue] {
                while (quorlQueue_TimedDispatch(queue, -1) == QUORL_OK) {
                }
            });
        }
        threads.start([transport] {
            quorlMsg message = newMessage("a", 1);
            for (int sent = 0; quorlTransport_Send(transport, message) == QUORL_OK; ++sent) {
                if (sent > 50) std::this_thread::yield();
            }
            EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        });
        for (uint64_t pause = random() % 20; pause != 0; --pause) std::this_thread::yield();
        ASSERT_EQ(quorl_Close(), QUORL_OK);
        ASSERT_EQ(inside, 0);
        threads.join();
    }
}

}  // namespace
}  // namespace quorltest
