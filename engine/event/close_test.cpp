// Events that are closed while their queue is busy: what the queue remembers of them goes with them.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "base/environment.h"
#include "base/registry.h"
#include "event/dispatch.h"
#include "event/group.h"
#include "event/queue.h"
#include "event/trouble.h"
#include "quorl/quorl.h"
#include "transport/listener.h"

namespace quorl::event {
namespace {

void ignore(quorlEvent, quorlMsg, void*) {}

class CloseTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(quorl_Open(), QUORL_OK);
        ASSERT_EQ(quorlTransport_Create(&transport, nullptr, nullptr, nullptr), QUORL_OK);
        queue = newQueue();
    }
    void TearDown() override { EXPECT_EQ(quorl_Close(), QUORL_OK); }

    static quorlQueue newQueue() {
        quorlQueue made = 0;
        EXPECT_EQ(quorlQueue_Create(&made), QUORL_OK);
        return made;
    }
    quorlEvent listen(quorlQueue to) const {
        quorlEvent event = 0;
        EXPECT_EQ(quorlEvent_CreateListener(&event, to, ignore, transport, "a", nullptr), QUORL_OK);
        return event;
    }
    static message::ContentRef newContent() {
        quorlMsg message = nullptr;
        message::ContentRef content;
        EXPECT_EQ(quorlMsg_Create(&message), QUORL_OK);
        EXPECT_EQ(quorlMsg_SetSendSubject(message, "a"), QUORL_OK);
        EXPECT_EQ(message::snapshot(message, &content), QUORL_OK);
        EXPECT_EQ(quorlMsg_Destroy(message), QUORL_OK);
        return content;
    }

    quorlTransport transport = 0;
    quorlQueue queue = 0;
};

// An event whose id is closed may still be pushed to by a sender that found it before. Whatever ends the queue's alarm
// meanwhile must not leave the event with a place in a list that is no more.
TEST_F(CloseTest, anAlarmThatEndsForgetsListenersWhoseIdIsClosed) {
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 1, 1), QUORL_OK);
    const quorlEvent id = listen(queue);
    Section section(*threadState());
    auto* event = registry::find<Event>(id);
    ASSERT_NE(event, nullptr);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(push(*event, newContent()));
    ASSERT_EQ(event->back.slow, 1u);
    ASSERT_NE(registry::close(id, QUORL_OBJECT_EVENT), nullptr);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NONE, 0, 0), QUORL_OK);
    EXPECT_TRUE(event->queue->back.slow.empty());
    EXPECT_EQ(event->back.slow, 0u);
    ASSERT_EQ(event->back.slow, 0u) << "it would be counted at a place that is no more";
    event->detach(*event);
    registry::retire(*event);
}

// The other way round: who is closed leaves the list, and the others keep their places.
TEST_F(CloseTest, aSlowListenerThatIsClosedLeavesTheList) {
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 1, 1), QUORL_OK);
    Section section(*threadState());
    std::vector<Event*> events;
    for (int i = 0; i < 3; ++i) events.push_back(registry::find<Event>(listen(queue)));
    for (int i = 0; i < 2; ++i) {
        for (Event* event : events) EXPECT_TRUE(push(*event, newContent()));
    }
    const auto& slow = events[0]->queue->back.slow;
    ASSERT_EQ(slow.size(), 3u);
    ASSERT_EQ(quorlEvent_DestroyEx(slow[0].event->id, nullptr), QUORL_OK);
    ASSERT_EQ(slow.size(), 2u);
    for (size_t i = 0; i < slow.size(); ++i) EXPECT_EQ(slow[i].event->back.slow, i + 1);
    for (Event* event : events) EXPECT_EQ(push(*event, newContent()), event->back.slow != 0);
}

// Nothing is between "not found" and "not counted": whoever has a lock of the queue sees both or neither.
TEST_F(CloseTest, anEventThatIsNotFoundDoesNotCount) {
    Section section(*threadState());
    Queue& counted = *registry::find<Queue>(queue);
    for (int round = 0; round < 500; ++round) {
        const quorlEvent id = listen(queue);
        Event* event = registry::find<Event>(id);
        EXPECT_TRUE(push(*event, newContent()));
        std::thread closer([&] { EXPECT_EQ(quorlEvent_DestroyEx(id, nullptr), QUORL_OK); });
        for (bool there = true; there;) {
            Lock front(counted.front.lock);
            there = registry::find<Event>(id) != nullptr;
            ASSERT_EQ(counted.waiting(), there ? 1u : 0u) << "round " << round;
        }
        closer.join();
    }
}

// A timer of interval 0 leaves a dead entry each time that it is set.
TEST_F(CloseTest, aTimerThatIsSetAgainAndAgainDoesNotFillItsQueue) {
    quorlEvent timer = 0;
    ASSERT_EQ(quorlEvent_CreateTimer(&timer, queue, ignore, 0, nullptr), QUORL_OK);
    Section section(*threadState());
    const Queue& filled = *registry::find<Queue>(queue);
    for (int i = 0; i < 10'000; ++i) ASSERT_EQ(quorlEvent_ResetTimerInterval(timer, 0), QUORL_OK);
    EXPECT_EQ(filled.waiting(), 1u);
    EXPECT_LE(filled.ring.end() - filled.ring.begin(), 1000u);
}

// A queue whose end is taken back over dead entries looks empty for a moment to whoever reads its counts without a lock.
TEST_F(CloseTest, aPollOfAGroupFindsWhatWaitsWhileOtherListenersAreDestroyed) {
    quorlQueueGroup group = 0;
    ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    constexpr int others = 3;
    std::vector<quorlQueue> queues;
    for (int i = 0; i < others; ++i) {
        queues.push_back(newQueue());
        ASSERT_EQ(quorlQueueGroup_Add(group, queues.back()), QUORL_OK);
    }
    ASSERT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
    quorlEvent timer = 0;
    ASSERT_EQ(quorlEvent_CreateTimer(&timer, queue, ignore, 0, nullptr), QUORL_OK);  // one event waits at any time
    std::atomic<bool> stop{false};
    std::atomic<int> churned{0};
    std::vector<std::thread> churners;
    for (const quorlQueue other : queues) {
        churners.emplace_back([&, other] {
            while (!stop) {
                const quorlEvent id = listen(other);
                {
                    Section section(*threadState());
                    Event* event = registry::find<Event>(id);
                    for (int i = 0; i < 4; ++i) push(*event, newContent());
                }
                EXPECT_EQ(quorlEvent_DestroyEx(id, nullptr), QUORL_OK);
                ++churned;
            }
        });
    }
    int missed = 0;
    while (churned < 5000) {
        if (quorlQueueGroup_TimedDispatch(group, 0) == QUORL_TIMEOUT) ++missed;
    }
    stop = true;
    for (auto& churner : churners) churner.join();
    EXPECT_EQ(missed, 0);
}

}  // namespace
}  // namespace quorl::event
