// Membership of queues in groups, and the choice among them.
#include "event/group.h"

#include <algorithm>
#include <new>

#include "base/environment.h"
#include "base/registry.h"
#include "base/status.h"

namespace quorl::event {
namespace {

void destroyRecord(Record* record) noexcept {
    delete static_cast<Group*>(record);
}

// Takes the group out of the queue's list. Under the group's lock.
void unlinkGroup(Queue& queue, Group& group) noexcept {
    Lock lock(queue.back.lock);
    std::erase(queue.back.groups, &group);
    queue.back.grouped = !queue.back.groups.empty();
}

}  // namespace

quorl_status createGroup(uint32_t* id) noexcept {
    if (!environment::isOpen()) return environment::requireOpen();
    auto* group = new (std::nothrow) Group;
    if (group == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a queue group");
    const uint32_t reserved = registry::reserve();
    if (reserved == 0) {
        delete group;
        return registry::noId("queue group");
    }
    group->destroy = destroyRecord;
    if (!registry::publish(*group, reserved, QUORL_OBJECT_QUEUE_GROUP)) {
        delete group;
        registry::abandon(reserved);
        return fail(QUORL_NOT_INITIALIZED, "the library is not open");
    }
    *id = reserved;
    return QUORL_OK;
}

quorl_status destroyGroup(uint32_t id) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    Record* record = registry::close(id, QUORL_OBJECT_QUEUE_GROUP);
    if (record == nullptr) return environment::noObject(QUORL_INVALID_QUEUE_GROUP, "queue group", id);
    auto& group = static_cast<Group&>(*record);
    {
        Lock lock(group.lock);
        group.closed = true;
        for (const auto& member : group.members) unlinkGroup(*member.queue, group);
        group.members.clear();
        group.sleepers.wakeAll(wokenByClose);
        group.sleeping.store(0, std::memory_order_relaxed);
    }
    registry::retire(group);
    return QUORL_OK;
}

quorl_status addToGroup(uint32_t groupId, uint32_t queueId) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    auto* group = registry::find<Group>(groupId);
    if (group == nullptr) return environment::noObject(QUORL_INVALID_QUEUE_GROUP, "queue group", groupId);
    auto* queue = registry::find<Queue>(queueId);
    if (queue == nullptr) return environment::noObject(QUORL_INVALID_QUEUE, "queue", queueId);
    uint64_t waiting;
    try {
        Lock lock(group->lock);
        if (group->closed) return environment::noObject(QUORL_INVALID_QUEUE_GROUP, "queue group", groupId);
        for (const auto& member : group->members) {
            if (member.queue == queue)
                return fail(QUORL_ALREADY_EXISTS, "queue %u is already in group %u", queueId, groupId);
        }
        group->members.reserve(group->members.size() + 1);
        Lock back(queue->back.lock);
        if (queue->back.closed) return environment::noObject(QUORL_INVALID_QUEUE, "queue", queueId);
        queue->back.groups.push_back(group);
        queue->back.grouped = true;
        group->members.push_back({queue, 0});
        waiting = queue->waiting();
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for a queue in a group");
    }
    // A thread for each: the callback of one event may wait for that of another.
    while (waiting != 0 && wakeOne(*group)) --waiting;
    return QUORL_OK;
}

quorl_status removeFromGroup(uint32_t groupId, uint32_t queueId) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    auto* group = registry::find<Group>(groupId);
    if (group == nullptr) return environment::noObject(QUORL_INVALID_QUEUE_GROUP, "queue group", groupId);
    auto* queue = registry::find<Queue>(queueId);
    if (queue == nullptr) return environment::noObject(QUORL_INVALID_QUEUE, "queue", queueId);
    Lock lock(group->lock);
    const auto member = std::find_if(group->members.begin(), group->members.end(),
                                     [queue](const Group::Member& each) { return each.queue == queue; });
    if (member == group->members.end())
        return fail(QUORL_INVALID_QUEUE, "queue %u is not in group %u", queueId, groupId);
    group->members.erase(member);
    unlinkGroup(*queue, *group);
    return QUORL_OK;
}

void leaveGroups(Queue& queue) noexcept {
    for (;;) {
        Group* group;
        {
            Lock lock(queue.back.lock);
            if (queue.back.groups.empty()) return;
            group = queue.back.groups.back();
        }
        Lock lock(group->lock);
        std::erase_if(group->members, [&](const Group::Member& member) { return member.queue == &queue; });
        unlinkGroup(queue, *group);
    }
}

bool wakeOne(Group& group) noexcept {
    if (group.sleeping.load(std::memory_order_seq_cst) == 0) return false;
    DispatchState* sleeper;
    {
        Lock lock(group.lock);
        sleeper = group.sleepers.takeOne(wokenForEvent);
        if (sleeper == nullptr) return false;
        group.sleeping.store(group.sleeping.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
    }
    futexWake(sleeper->wake);
    return true;
}

bool takeFrom(Group& group, ThreadState& thread, Queue** queue, Taken* taken, Batch* batch) noexcept {
    for (;;) {
        Group::Member* best = nullptr;
        uint32_t bestPriority = 0;
        for (auto& member : group.members) {
            if (member.queue->waiting() == 0) continue;
            const uint32_t priority = member.queue->priority.load(std::memory_order_relaxed);
            if (best == nullptr || priority > bestPriority ||
                (priority == bestPriority && member.lastServed < best->lastServed)) {
                best = &member;
                bestPriority = priority;
            }
        }
        if (best == nullptr) {
            // What was read without a lock may be too low while the end of a queue is taken back.
            if (!anythingWaits(group)) return false;
            continue;
        }
        Queue& chosen = *best->queue;
        const bool open = registry::pin(thread, chosen.id, QUORL_OBJECT_QUEUE) != nullptr;
        bool found = false;
        {
            // Of a queue that is not open: whoever closes it holds the lock until none of its events counts.
            Lock front(chosen.front.lock);
            if (open) found = takeFirst(chosen, thread, taken, batch);
        }
        if (found) {
            best->lastServed = ++group.served;
            *queue = &chosen;
            return true;
        }
        // Others took the event, or destroyed it: look again.
        if (open) registry::unpin(thread, &chosen);
    }
}

bool anythingWaits(const Group& group) noexcept {
    return std::any_of(group.members.begin(), group.members.end(), [](const Group::Member& member) {
        Lock front(member.queue->front.lock);
        return member.queue->waiting() != 0;
    });
}

}  // namespace quorl::event
