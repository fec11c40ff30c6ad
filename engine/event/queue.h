// The record of a queue: events that wait, their limit, and the threads that wait for events.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "base/histogram.h"
#include "base/mutex.h"
#include "base/record.h"
#include "event/alarm_state.h"
#include "event/event.h"
#include "event/segmented_queue.h"
#include "event/wait_list.h"
#include "message/delivery.h"

namespace quorl::event {

struct Group;

// What take found.
struct Taken {
    Event* event = nullptr;  // pinned on the taking thread
    message::Content* content = nullptr;
    uint32_t tag = 0;
    bool cleared = false;  // the queue's alarms seem over: clearAlarms once no lock is held
};

// The messages of one call of a vector callback.
struct Batch {
    uint32_t count = 0;
    std::array<Event*, QUORL_VECTOR_MAX> events;  // each with a reference for every run of entries of the same event
    std::array<message::Content*, QUORL_VECTOR_MAX> contents;
};

// A batch whose callback runs. The thread's pins hold the first of its events alone.
struct RunningBatch {
    const Batch& batch;
    const RunningBatch* outer;  // whose callback dispatched this one
};

struct AlarmChange;

// Locks, in the order in which they are taken: a group's lock, the front lock, the back lock. No lock of a queue is held
// while a timer's is taken.
struct Queue : Record {
    static constexpr uint16_t objectType = QUORL_OBJECT_QUEUE;

    ~Queue();

    SegmentedQueue entries;

    // Senders' side.
    struct alignas(128) {
        Mutex lock;
        bool closed GUARDED_BY(lock) = false;
        bool grouped GUARDED_BY(lock) = false;      // groups is not empty
        WaitList sleepers GUARDED_BY(lock);         // threads that sleep in a dispatch of this queue
        uint64_t removedSeen GUARDED_BY(lock) = 0;  // an older value of front.removed
        // A sender that sees this many events wait counts them exactly, and goes the slow road when they are lookAt.
        uint64_t countAt GUARDED_BY(lock) = 0;
        uint64_t lookAt GUARDED_BY(lock) = UINT64_MAX;
        Limit limit GUARDED_BY(lock);
        uint64_t dropped GUARDED_BY(lock) = 0;  // events that a limit dropped
        // The highest count ever, as seen whenever the queue looked longer than before.
        uint64_t mostWaiting GUARDED_BY(lock) = 0;
        uint64_t refused GUARDED_BY(lock) = 0;  // events that found no memory
        uint32_t highWater = 0;                 // events; 0: no mark. Set once, before the queue is known.
        Alarms alarms GUARDED_BY(lock);         // written under both locks, but for what is being told
        std::vector<Group*> groups GUARDED_BY(lock);
        struct BatchKind {
            quorlEventVectorCallback callback;
            const void* groupId;
            uint32_t tag;
            uint32_t listeners;
        };
        std::vector<BatchKind> batchKinds GUARDED_BY(lock);
        uint32_t lastTag GUARDED_BY(lock) = 0;
    } back;

    // Dispatchers' side.
    struct alignas(128) {
        Mutex lock;
        // Entries that wait no longer: taken, dropped, or dead because their event was destroyed. The queue's count is
        // entries.end() - removed; removed - entries.begin() entries of the segmented queue are dead. Written under the lock.
        std::atomic<uint64_t> removed{0};
        uint64_t taken GUARDED_BY(lock) = 0;  // events that were dispatched
        // An alarm is over with fewer events waiting; 0: none is raised. Written under both locks.
        uint64_t clearBelow GUARDED_BY(lock) = 0;
    } front;

    // One entry at a time is timed, for the statistics: its position, and when it came. Written under the back lock while the
    // position is untimed, and otherwise under the front lock.
    static constexpr uint64_t untimed = UINT64_MAX;
    alignas(128) std::atomic<uint64_t> timedPosition{untimed};
    int64_t timedSince = 0;

    // How long a thread that finds the queue empty spins before it sleeps, in nanoseconds: long while events come in quick
    // succession, nothing when they do not. A hint; any thread may write it.
    alignas(128) std::atomic<uint32_t> spin{0};
    std::atomic<uint32_t> spinners{0};   // at most one thread spins
    std::atomic<uint32_t> signalled{0};  // signals so far; written under the back lock
    std::atomic<uint32_t> priority{1};

    Mutex nameLock;
    std::string name GUARDED_BY(nameLock);

    // Set by whoever closed the queue, before it is retired.
    quorlQueueOnComplete completion = nullptr;
    const void* completionClosure = nullptr;

    // Without a lock a guess that may be too high, and too low only while an event is on its way.
    uint64_t waiting() const noexcept {
        const uint64_t removed = front.removed.load(std::memory_order_seq_cst);
        return entries.end(std::memory_order_seq_cst) - removed;
    }
};

// Puts an event into its queue; content is empty for timers, and may be for takers. tag: of timers, the epoch in which the
// firing was decided; of takers what they get with the content, below takerTags; otherwise 0. The calling thread is under a
// read guard. False when the queue or the event takes no more events: the content is then the caller's still.
constexpr uint32_t takerTags = 1u << 31;
bool push(Event& event, message::ContentRef&& content, uint32_t tag = 0) noexcept;
inline bool push(Event& event, const message::ContentRef& content, uint32_t tag = 0) noexcept {
    return push(event, message::ContentRef(content), tag);
}

// Takes the first event; of a vector listener also those that share its batch, into *batch, the first included. False:
// nothing waits.
bool takeFirst(Queue& queue, ThreadState& thread, Taken* taken, Batch* batch) noexcept REQUIRES(queue.front.lock);

// Drops what waits beyond the limit, by its policy. Under a read guard.
void trim(Queue& queue, AlarmChange* change) noexcept REQUIRES(queue.front.lock, queue.back.lock);

// Closes the event for exactly one caller, who retires it: none of its callbacks starts any more, and none of its entries
// counts as waiting. The registry and the counts change in one step under both locks of the queue, so that whoever holds
// either finds an event open exactly while it may have entries. Null when there is no such open event. Under a read guard.
Event* closeEvent(uint32_t id, uint16_t type) noexcept;
// Stops the event for good without closing it: what waits stays. Under a read guard.
void cutOff(Event& event) noexcept;
// Of timers: what waits is dead, and firings that were decided before do not count.
void startNewEpoch(Event& event) noexcept;

// The number that marks a vector listener's entries; drop gives it back. 0: no memory.
uint32_t vectorTagFor(Queue& queue, quorlEventVectorCallback callback, const void* groupId) noexcept;
void dropVectorTag(Queue& queue, uint32_t tag) noexcept;

quorl_status createQueue(uint32_t* id) noexcept;
quorl_status createDefaultQueue() noexcept;
// internal: the library closes, and the default queue may go too.
quorl_status destroyQueue(uint32_t id, quorlQueueOnComplete completion, const void* closure, bool internal) noexcept;

quorl_status setLimit(Queue& queue, const Limit& limit) noexcept;
uint32_t countOf(Queue& queue) noexcept;

// How long events waited of late before their callbacks began.
Histogram::Summary dispatchLag() noexcept;

// For statistics.
struct QueueFigures {
    uint64_t waiting;
    uint64_t mostWaiting;
    uint64_t taken;
    uint64_t dropped;
    uint64_t refused;
    Limit limit;
};
void figuresOf(Queue& queue, QueueFigures* figures) noexcept;

}  // namespace quorl::event
