// The record of an event: what feeds a queue and is called back when the queue is dispatched.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

#include "base/prefetch.h"
#include "base/record.h"
#include "base/registry.h"
#include "quorl/quorl.h"

namespace quorl::message {
class ContentRef;
}  // namespace quorl::message

namespace quorl::event {

struct Queue;

// taker: what waits is handed to a function of the engine's instead of to a callback of the program's: the events of companion
// libraries, and what the library itself listens to.
enum class Kind : uint8_t { listener, vectorListener, timer, taker };

struct Event;
// Runs instead of the callback, the event pinned and no lock held. tag: what was pushed with the content.
using Take = void (*)(ThreadState& thread, Event& event, message::ContentRef content, uint32_t tag);
// The queue's limit has dropped what was pushed. Under a read guard, no lock held: it does not wait.
using Dropped = void (*)(Event& event, message::ContentRef content, uint32_t tag);

// Every type of events: what is said of events holds for all of them. Only find<Event> and what is called on ids of the program
// means those of type QUORL_OBJECT_EVENT; what comes out of a queue is found by findEvent.
// arg is the closure. Listeners and timers add their own parts (transport/listener.h, event/timer.h).
struct Event : Record {
    static constexpr uint16_t objectType = QUORL_OBJECT_EVENT;

    // Set once, before the event is published.
    Kind kind = Kind::listener;
    uint32_t vectorTag = 0;  // of vector listeners: the same for those that share a callback's batch
    union {
        quorlEventCallback callback = nullptr;
        Take take;  // of takers
    };
    union {
        quorlEventVectorCallback vectorCallback = nullptr;
        Dropped dropped;  // of takers; null: nobody asks
    };
    union {
        const void* groupId = nullptr;
        void* owner;  // of takers: whatever take needs
    };
    Queue* queue = nullptr;   // the event is its child
    std::string_view source;  // what feeds it, for people: a listener's pattern, text of the record; empty for timers
    // Stops what feeds the event. Called once, by whoever closed it. May be null.
    void (*detach)(Event& event) noexcept = nullptr;

    // Set by whoever closed the event, before it is retired.
    quorlEventOnComplete completion = nullptr;

    // Beside each other on one line for those who put events into the queue.
    struct alignas(64) {
        uint64_t pushed = 0;  // guarded by the queue's back lock
        bool closed = false;  // nothing is put into the queue any more; written under both locks of the queue
        uint32_t slow = 0;    // 1 + its place among the queue's slow listeners; guarded by the queue's back lock
    } back;

    // And on one for those who take them out.
    struct alignas(64) {
        uint64_t taken = 0;                // taken or dropped; guarded by the queue's front lock
        uint32_t epoch = 0;                // of timers: entries of earlier epochs are dead; written under both locks
        std::atomic<bool> waiting{false};  // of timers: one entry is in the queue; set under the back lock, cleared
                                           // under the front lock
        std::atomic<bool> endless{false};  // of timers: of interval 0; written under the timers' lock
    } front;
};

// Asks for the memory that taking the event out of its queue needs.
inline void prefetchToTake(Event& event) noexcept {
    prefetchToRead(&event);
    prefetchToRead(&event.queue);
    prefetchToWrite(&event.front);
}

// Destroys an event of any kind but those of companion libraries. QUORL_INVALID_EVENT, QUORL_NOT_INITIALIZED.
quorl_status destroyEvent(uint32_t id, quorlEventOnComplete completion) noexcept;

// The open event of any type with that id, or null. Under a read guard.
inline Event* findEvent(uint32_t id) noexcept {
    return static_cast<Event*>(registry::findEvent(id));
}

// The closure of an event that lives, or whose callback runs on this thread; null for any other id. What it points to
// stays the program's to keep: an event may be destroyed right behind this call.
const void* closureOf(uint32_t id) noexcept;

// Calls the completion that whoever closed the event has set.
void eventCompleted(Record& record) noexcept;

}  // namespace quorl::event
