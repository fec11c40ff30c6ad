// What goes wrong with a queue: its limit drops events, its listeners are too slow, it grows beyond its mark. Each is told
// by two advisories, one when it begins and one when it is over, which is when half of what may wait is gone.
#pragma once

#include <vector>

#include "event/queue.h"
#include "message/delivery.h"

namespace quorl::event {

// What happened while the locks of a queue were held, and is told when no lock is held any more.
struct Trouble {
    bool limitBegan = false;
    bool highWaterBegan = false;
    uint64_t waiting = 0;  // at the end of it all
    uint64_t lost = 0;     // since the limit began to drop
    struct Victim {
        Event* event;                 // lives until the thread's section ends
        message::ContentRef content;  // the first that it lost; null for a timer
    };
    Victim first{nullptr, {}};          // of the queue, when limitBegan
    std::vector<Victim> slow;           // listeners that lost their first message
    std::vector<uint32_t> hungry;       // timers of interval 0 that lost their event, and would never fire again
    SlowListener ended{nullptr, 0, 0};  // a slow listener that was closed
    bool any() const noexcept {
        return limitBegan || highWaterBegan || !slow.empty() || !hungry.empty() || ended.event != nullptr;
    }
};

// Counts an event that a limit dropped, content included when it is a message's. Inside a section.
void lose(Queue& queue, Event& event, message::ContentRef content, Trouble* trouble) noexcept
    REQUIRES(queue.front.lock, queue.back.lock);

// Takes an event that is being closed off the list of slow listeners.
void endSlow(Queue& queue, Event& event, Trouble* trouble) noexcept REQUIRES(queue.front.lock, queue.back.lock);

// Looks whether the queue has just grown beyond its mark.
void lookAtMark(Queue& queue, Trouble* trouble) noexcept REQUIRES(queue.front.lock, queue.back.lock);

// How many events may wait until a sender has to look closer; after the limit or the trouble changed.
void setThresholds(Queue& queue) noexcept REQUIRES(queue.front.lock, queue.back.lock);

// Tells what began, and lets hungry timers fire again. Inside the section of the trouble, no lock held.
void tell(Queue& queue, const Trouble& trouble) noexcept;

// Ends the queue's trouble, and tells it, if it is over. No lock held; the queue is pinned or in a section.
void settle(Queue& queue) noexcept;

}  // namespace quorl::event
