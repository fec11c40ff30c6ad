// The closure of the event that delivered a message: as long as the event lives, and in callbacks that outlast it.
#include <atomic>
#include <thread>

#include "support.h"

namespace quorltest {
namespace {

void* closureOf(quorlMsg message) {
    void* closure = message;
    EXPECT_EQ(quorlMsg_GetClosure(message, &closure), QUORL_OK);
    return closure;
}

class ClosureOfMessage : public Open {
  protected:
    void SetUp() override {
        Open::SetUp();
        transport = newTransport();
    }
    quorlTransport transport = 0;

    // A message that the listener has kept.
    static void keep(quorlEvent, quorlMsg message, void* closure) {
        EXPECT_EQ(quorlMsg_Detach(message), QUORL_OK);
        *static_cast<quorlMsg*>(closure) = message;
    }
    quorlMsg received(quorlMsg* place) {
        sendNumber(transport, "a", 1);
        EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 1);
        return *place;
    }
};

TEST_F(ClosureOfMessage, isThatOfTheEventWhileItLives) {
    quorlMsg kept = nullptr;
    const quorlEvent event = listen(QUORL_DEFAULT_QUEUE, transport, "a", keep, &kept);
    received(&kept);
    EXPECT_EQ(closureOf(kept), &kept);
    quorlMsg copy = nullptr;
    ASSERT_EQ(quorlMsg_CreateCopy(kept, &copy), QUORL_OK);
    EXPECT_EQ(closureOf(copy), nullptr);
    EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
    EXPECT_EQ(closureOf(kept), nullptr);
    EXPECT_EQ(quorlMsg_Destroy(copy), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(kept), QUORL_OK);
}

TEST_F(ClosureOfMessage, isNeverThatOfALaterEvent) {
    quorlMsg kept = nullptr;
    quorlMsg other = nullptr;
    quorlEvent event = listen(QUORL_DEFAULT_QUEUE, transport, "a", keep, &kept);
    const quorlMsg first = received(&kept);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        event = listen(QUORL_DEFAULT_QUEUE, transport, "b", keep, &other);
        ASSERT_EQ(closureOf(first), nullptr);
    }
    EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
    EXPECT_EQ(quorlMsg_Destroy(first), QUORL_OK);
}

TEST_F(ClosureOfMessage, isGoneAfterTheLibraryWasClosedAndOpenedAgain) {
    quorlMsg kept = nullptr;
    listen(QUORL_DEFAULT_QUEUE, transport, "a", keep, &kept);
    received(&kept);
    ASSERT_EQ(quorl_Close(), QUORL_OK);
    EXPECT_EQ(closureOf(kept), nullptr);
    ASSERT_EQ(quorl_Open(), QUORL_OK);
    transport = newTransport();
    quorlMsg other = nullptr;
    listen(QUORL_DEFAULT_QUEUE, transport, "a", keep, &other);
    EXPECT_EQ(closureOf(kept), nullptr);
    EXPECT_EQ(quorlMsg_Destroy(kept), QUORL_OK);
}

// The completion comes after the callback, so that what the closure names is still there.
TEST_F(ClosureOfMessage, staysInACallbackThatDestroysItsEvent) {
    struct Seen {
        void* inside = nullptr;
        quorlMsg kept = nullptr;
    } seen;
    listen(
        QUORL_DEFAULT_QUEUE, transport, "a",
        [](quorlEvent event, quorlMsg message, void* closure) {
            auto* to = static_cast<Seen*>(closure);
            EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
            to->inside = closureOf(message);
            keep(event, message, &to->kept);
        },
        &seen);
    received(&seen.kept);
    EXPECT_EQ(seen.inside, &seen);
    EXPECT_EQ(closureOf(seen.kept), nullptr);
    EXPECT_EQ(quorlMsg_Destroy(seen.kept), QUORL_OK);
}

TEST_F(ClosureOfMessage, staysForEveryEventOfABatch) {
    static quorlEvent events[2];
    static int closures[2];
    static std::vector<void*> seen;
    static std::vector<quorlMsg> kept;
    seen.clear();
    kept.clear();
    const auto callback = [](quorlMsg* messages, quorl_u32 size) {
        for (const quorlEvent event : events) EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        for (quorl_u32 i = 0; i < size; ++i) {
            seen.push_back(closureOf(messages[i]));
            EXPECT_EQ(quorlMsg_Detach(messages[i]), QUORL_OK);
            kept.push_back(messages[i]);
        }
    };
    const char* const subjects[] = {"a", "b"};
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(quorlEvent_CreateGroupVectorListener(&events[i], QUORL_DEFAULT_QUEUE, callback, transport,
                                                       subjects[i], &closures[i], nullptr),
                  QUORL_OK);
    }
    for (const char* subject : {"a", "b", "b", "a"}) sendNumber(transport, subject, 1);
    EXPECT_EQ(drain(QUORL_DEFAULT_QUEUE), 1);
    EXPECT_EQ(seen, (std::vector<void*>{&closures[0], &closures[1], &closures[1], &closures[0]}));
    for (quorlMsg message : kept) {
        EXPECT_EQ(closureOf(message), nullptr);
        EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    }
}

// One thread asks while another destroys the event and makes others: the answer is the event's closure, then null.
TEST_F(ClosureOfMessage, turnsToNullOnceWhileItsEventIsDestroyed) {
    for (int round = 0; round < 200; ++round) {
        quorlMsg kept = nullptr;
        quorlMsg other = nullptr;
        const quorlEvent event = listen(QUORL_DEFAULT_QUEUE, transport, "a", keep, &kept);
        const quorlMsg message = received(&kept);
        std::atomic<bool> asking{false};
        std::thread asker([&] {
            void* last = &kept;
            while (last != nullptr) {
                void* const now = closureOf(message);
                EXPECT_TRUE(now == &kept || now == nullptr);
                last = now;
                asking = true;
            }
            for (int i = 0; i < 10; ++i) EXPECT_EQ(closureOf(message), nullptr);
        });
        while (!asking) std::this_thread::yield();
        EXPECT_EQ(quorlEvent_DestroyEx(event, nullptr), QUORL_OK);
        const quorlEvent later = listen(QUORL_DEFAULT_QUEUE, transport, "a", keep, &other);
        asker.join();
        EXPECT_EQ(quorlEvent_DestroyEx(later, nullptr), QUORL_OK);
        EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
    }
}

}  // namespace
}  // namespace quorltest
