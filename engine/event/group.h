// The record of a queue group: queues that are dispatched together, the most urgent first.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "base/mutex.h"
#include "base/record.h"
#include "event/queue.h"
#include "event/wait_list.h"

namespace quorl::event {

struct Group : Record {
    static constexpr uint16_t objectType = QUORL_OBJECT_QUEUE_GROUP;

    struct Member {
        Queue* queue;         // taken out before the queue is retired
        uint64_t lastServed;  // when it was taken from last, counted in events of the group
    };

    // Taken before the locks of a queue.
    Mutex lock;
    bool closed GUARDED_BY(lock) = false;
    std::vector<Member> members GUARDED_BY(lock);
    uint64_t served GUARDED_BY(lock) = 0;
    WaitList sleepers GUARDED_BY(lock);
    std::atomic<uint32_t> sleeping{0};   // threads on the list; written under the lock
    std::atomic<uint32_t> signalled{0};  // signals so far; written under the lock
};

quorl_status createGroup(uint32_t* id) noexcept;
quorl_status destroyGroup(uint32_t id) noexcept;
quorl_status addToGroup(uint32_t group, uint32_t queue) noexcept;
quorl_status removeFromGroup(uint32_t group, uint32_t queue) noexcept;

// Takes the queue out of all its groups; it is closed, so that none takes it in again.
void leaveGroups(Queue& queue) noexcept;

// Wakes a thread that sleeps in a dispatch of the group, after an event was put into one of its queues. False: none slept.
// Under a read guard.
bool wakeOne(Group& group) noexcept;

// Takes the first event of the most urgent queue that has one, and pins that queue before the event. False: nothing waits.
bool takeFrom(Group& group, ThreadState& thread, Queue** queue, Taken* taken, Batch* batch) noexcept
    REQUIRES(group.lock);

bool anythingWaits(const Group& group) noexcept REQUIRES(group.lock);

}  // namespace quorl::event
