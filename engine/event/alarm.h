// The alarms of a queue: its limit drops events and its listeners are too slow, or it grows beyond its mark. Each is told
// twice, once when it is raised and once when it is cleared, which is when half of what may wait is gone. An alarm
// that is raised again within advisory.interval of the last time is told when that is over, with all that happened until
// then, so that a queue at the edge of its limit does not flood whoever listens.
#pragma once

#include <string_view>
#include <vector>

#include "event/queue.h"
#include "message/delivery.h"

namespace quorl::event {

// What is told of an alarm, and of which queue.
struct AlarmTold {
    uint32_t queue;
    std::string_view name;  // of the queue
    uint32_t mark;          // beyond which the queue is too long
    const AlarmRecord& record;
};

// Where alarms are told, by any thread.
struct AlarmSink {
    bool (*heard)() noexcept;  // whether anybody listens; under the locks of a queue
    bool (*made)(
        const message::ContentRef& content) noexcept;  // whether the sink told by this message; under those too
    void (*tell)(const AlarmTold& told) noexcept;      // under no lock
};

// The sink lives for ever; null: nothing is told.
void setAlarmSink(const AlarmSink* to) noexcept;

// What happened to the alarms while the locks of a queue were held, and is dealt with when no lock is held any more.
struct AlarmChange {
    struct DroppedEntry {
        uint32_t event;
        uint32_t tag;
        message::ContentRef content;
    };
    std::vector<uint32_t> starved;      // timers of interval 0 that lost their event, and would never fire again
    std::vector<DroppedEntry> dropped;  // of takers that want to know
    int64_t remindAt = 0;               // nanoseconds on the monotonic clock; 0: no reminder is needed
    bool records = false;               // there is something to tell
    bool limitBegan = false;            // the last record of that kind lacks its counts
    bool any() const noexcept { return records || remindAt != 0 || !starved.empty() || !dropped.empty(); }
};

// Counts an event that a limit dropped, content included when it is a message's. Under a read guard.
void lose(Queue& queue, Event& event, message::ContentRef content, uint32_t tag, AlarmChange* change) noexcept
    REQUIRES(queue.front.lock, queue.back.lock);

// Looks whether the queue has just grown beyond its mark.
void lookAtHighWater(Queue& queue, AlarmChange* change) noexcept REQUIRES(queue.front.lock, queue.back.lock);

// How many events may wait until a sender has to look closer; after the limit or an alarm changed.
void setThresholds(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock);

// Takes an event that is being closed off the list of slow listeners.
void endSlow(Queue& queue, Event& event, AlarmChange* change) noexcept REQUIRES(queue.front.lock, queue.back.lock);

// Ends whatever is raised, because the queue ends.
void endAlarms(Queue& queue, AlarmChange* change) noexcept REQUIRES(queue.front.lock, queue.back.lock);

// The last thing that is done with the locks held.
void complete(Queue& queue, AlarmChange* change) noexcept REQUIRES(queue.front.lock, queue.back.lock);

// Tells what is to be told, takers what they lost included, and lets starved timers fire again. Under a read guard, no lock held.
void tell(Queue& queue, const AlarmChange& change) noexcept;

// Clears the alarms that are over. No lock held; the queue is pinned or under a read guard.
void clearAlarms(Queue& queue) noexcept;

// Tells the alarms of a queue that were folded long enough, or all that are. Under a read guard, no lock held.
void remindOfAlarms(uint32_t queue, bool all) noexcept;

}  // namespace quorl::event
