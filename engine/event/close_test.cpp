// Events that are closed while their queue is busy: what the queue remembers of them goes with them.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "base/environment.h"
#include "base/registry.h"
#include "event/dispatch.h"
#include "event/group.h"
#include "event/queue.h"
#include "quorl/quorl.h"
#include "transport/listener.h"
#include "transport/transport.h"

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
    ReadGuard guard(*threadState());
    auto* event = registry::find<Event>(id);
    ASSERT_NE(event, nullptr);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(push(*event, newContent()));
    ASSERT_EQ(event->back.slow, 1u);
    ASSERT_NE(registry::close(id, QUORL_OBJECT_EVENT), nullptr);
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NONE, 0, 0), QUORL_OK);
    EXPECT_TRUE(event->queue->back.alarms.slow.empty());
    EXPECT_EQ(event->back.slow, 0u);
    ASSERT_EQ(event->back.slow, 0u) << "it would be counted at a place that is no more";
    event->detach(*event);
    registry::retire(*event);
}

// The other way round: who is closed leaves the list, and the others keep their places.
TEST_F(CloseTest, aSlowListenerThatIsClosedLeavesTheList) {
    ASSERT_EQ(quorlQueue_SetLimitPolicy(queue, QUORLQUEUE_DISCARD_NEW, 1, 1), QUORL_OK);
    ReadGuard guard(*threadState());
    std::vector<Event*> events;
    for (int i = 0; i < 3; ++i) events.push_back(registry::find<Event>(listen(queue)));
    for (int i = 0; i < 2; ++i) {
        for (Event* event : events) EXPECT_TRUE(push(*event, newContent()));
    }
    const auto& slow = events[0]->queue->back.alarms.slow;
    ASSERT_EQ(slow.size(), 3u);
    ASSERT_EQ(quorlEvent_DestroyEx(slow[0].event->id, nullptr), QUORL_OK);
    ASSERT_EQ(slow.size(), 2u);
    for (size_t i = 0; i < slow.size(); ++i) EXPECT_EQ(slow[i].event->back.slow, i + 1);
    for (Event* event : events) EXPECT_EQ(push(*event, newContent()), event->back.slow != 0);
}

// Nothing is between "not found" and "not counted": whoever has a lock of the queue sees both or neither.
TEST_F(CloseTest, anEventThatIsNotFoundDoesNotCount) {
    ReadGuard guard(*threadState());
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
    ReadGuard guard(*threadState());
    const Queue& filled = *registry::find<Queue>(queue);
    for (int i = 0; i < 10'000; ++i) ASSERT_EQ(quorlEvent_ResetTimerInterval(timer, 0), QUORL_OK);
    EXPECT_EQ(filled.waiting(), 1u);
    EXPECT_LE(filled.entries.end() - filled.entries.begin(), 1000u);
}

// A listener's destruction takes its transport's lock: while the test has it, two destructions are under way.
TEST_F(CloseTest, aPollOfAGroupFindsWhatWaitsWhileOtherListenersAreDestroyed) {
    quorlQueueGroup group = 0;
    ASSERT_EQ(quorlQueueGroup_Create(&group), QUORL_OK);
    ASSERT_EQ(quorlQueueGroup_Add(group, queue), QUORL_OK);
    std::vector<quorlEvent> going;
    ReadGuard guard(*threadState());
    for (int i = 0; i < 2; ++i) {
        const quorlQueue other = newQueue();
        ASSERT_EQ(quorlQueue_SetPriority(other, 2), QUORL_OK);
        ASSERT_EQ(quorlQueueGroup_Add(group, other), QUORL_OK);
        going.push_back(listen(other));
        ASSERT_TRUE(push(*registry::find<Event>(going.back()), newContent()));
    }
    ASSERT_TRUE(push(*registry::find<Event>(listen(queue)), newContent()));
    std::vector<std::thread> closers;
    {
        Lock held(registry::find<transport::Transport>(transport)->lock);
        for (const quorlEvent id : going)
            closers.emplace_back([id] { EXPECT_EQ(quorlEvent_DestroyEx(id, nullptr), QUORL_OK); });
        for (const quorlEvent id : going) {
            while (registry::find<Event>(id) != nullptr) std::this_thread::yield();
        }
        EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, 0), QUORL_OK);
        EXPECT_EQ(quorlQueueGroup_TimedDispatch(group, 0), QUORL_TIMEOUT);
    }
    for (auto& closer : closers) closer.join();
}

}  // namespace
}  // namespace quorl::event
