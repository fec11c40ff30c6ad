// The timers' thread, and how timers come to it.
#include "event/timer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>

#include "base/clock.h"
#include "base/environment.h"
#include "base/futex.h"
#include "base/mutex.h"
#include "base/prefetch.h"
#include "base/registry.h"
#include "base/status.h"
#include "base/thread.h"
#include "event/alarm.h"
#include "event/queue.h"
#include "event/timer_heap.h"

namespace quorl::event {
namespace {

// Guarded by timersLock.
struct Timer : Event {
    int64_t due = 0;       // nanoseconds on the monotonic clock
    int64_t interval = 0;  // nanoseconds
    double seconds = 0;    // the interval as it was given
    uint32_t turn = 0;     // of its item in the heap
    bool armed = false;    // it has an item

    // The first time on the timer's grid that lies after now: a timer that is late skips, and never drifts.
    int64_t dueAfter(int64_t now) const noexcept {
        if (interval >= forever - due) return forever;
        int64_t next = due + interval;
        if (next <= now) next += ((now - next) / interval + 1) * interval;
        return next;
    }
};

constexpr int64_t soon = 1'000'000;  // nanoseconds until a dropped endless timer tries again
constexpr size_t firedAtOnce = 64;
// Nanoseconds that the timers' thread sleeps at least: little while few timers are due, since the kernel's own slack is
// more; longer and longer while many are, since a wake-up costs more than a hundred timers.
constexpr int64_t shortestNap = 20'000;
constexpr int64_t longestNap = 1'000'000;
constexpr size_t manyFired = 8;
// Items that their timers left are swept out when they are more than that, and more than the others.
constexpr size_t fewLeft = 1024;

// Taken before the locks of a queue.
constinit Mutex timersLock;
// Made with the first timer, and kept.
constinit TimerHeap* heap GUARDED_BY(timersLock) POINTS_TO_GUARDED_BY(timersLock) = nullptr;
// Of queues whose alarms are told later, with their ids. Made with the first, and kept.
constinit TimerHeap* reminders GUARDED_BY(timersLock) POINTS_TO_GUARDED_BY(timersLock) = nullptr;
constinit size_t leftItems GUARDED_BY(timersLock) = 0;  // about how many items their timers left
constinit bool stopping GUARDED_BY(timersLock) = false;
constinit Thread timersThread;               // started under timersLock; joined when the library closes
constinit std::atomic<uint32_t> changes{0};  // counts reasons to look again; the thread sleeps on it

// The timer that the item is of; null when the timer left it. Under a read guard.
Timer* owner(const TimerHeap::Item& item) noexcept REQUIRES(timersLock) {
    auto* event = registry::find<Event>(item.id);
    if (event == nullptr) return nullptr;
    auto* timer = static_cast<Timer*>(event);
    return timer->armed && timer->turn == item.turn ? timer : nullptr;
}

// Gives the timer an item; there is room.
void insert(Timer& timer) noexcept REQUIRES(timersLock) {
    timer.armed = true;
    heap->add({timer.due, timer.id, ++timer.turn});
}

// Leaves the timer's item, if it has one. Under a read guard.
void leave(Timer& timer) noexcept REQUIRES(timersLock) {
    if (!timer.armed) return;
    timer.armed = false;
    if (++leftItems <= fewLeft || leftItems <= heap->size() / 2) return;
    // Called at once, under the lock.
    heap->sweep([](const TimerHeap::Item& item) UNCHECKED_GUARDS { return owner(item) != nullptr; });
    leftItems = 0;
}

void poke() noexcept {
    changes.fetch_add(1, std::memory_order_release);
    futexWake(changes);
}

struct Firing {
    Timer* timer;
    uint32_t epoch;
};
using Firings = std::array<Firing, firedAtOnce>;

// Asks for the memory of the timers that are due. With many of them none is in a cache.
void prefetchTimers(const std::array<TimerHeap::Item, firedAtOnce>& items, size_t count) noexcept {
    for (size_t i = 0; i < count; ++i) prefetchToRead(registry::slotOf(items[i].id));
    for (size_t i = 0; i < count; ++i) {
        Record* record = registry::slotOf(items[i].id)->record.load(std::memory_order_relaxed);
        if (record == nullptr) continue;
        auto* bytes = reinterpret_cast<char*>(record);
        for (size_t at = 0; at < sizeof(Timer); at += 64) prefetchToWrite(bytes + at);
    }
}

// Takes up to firedAtOnce timers that are due, and puts them back with their next times. Under a read guard.
size_t takeDue(int64_t now, Firings& firings) noexcept REQUIRES(timersLock) {
    std::array<TimerHeap::Item, firedAtOnce> items;
    size_t count = 0;
    for (; count < firedAtOnce && !heap->empty() && heap->first().due <= now; heap->removeFirst())
        items[count++] = heap->first();
    prefetchTimers(items, count);
    size_t fired = 0;
    for (size_t i = 0; i < count; ++i) {
        Timer* timer = owner(items[i]);
        if (timer == nullptr) {
            if (leftItems != 0) --leftItems;
            continue;
        }
        firings[fired++] = {timer, timer->front.epoch};
        if (timer->interval == 0) {
            timer->armed = false;
        } else {
            timer->due = timer->dueAfter(now);
            insert(*timer);  // into the room of the item that was taken
        }
    }
    return fired;
}

// Takes one queue whose alarms are to be told; 0: none is due. *next: when one is, if that is earlier.
uint32_t takeReminder(int64_t now, int64_t* next) noexcept REQUIRES(timersLock) {
    if (reminders == nullptr || reminders->empty()) return 0;
    const TimerHeap::Item first = reminders->first();
    if (first.due > now) {
        *next = std::min(*next, first.due);
        return 0;
    }
    reminders->removeFirst();
    *next = std::min(*next, now);  // look again
    return first.id;
}

void runTimers() {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    Firings firings;
    int64_t nap = shortestNap;
    for (;;) {
        const uint32_t seen = changes.load(std::memory_order_acquire);
        int64_t next = forever;
        int64_t now;
        size_t firedInAll = 0;
        size_t fired;
        uint32_t reminded;
        do {
            // What is found in it lives until the guard ends.
            ReadGuard guard(*thread);
            {
                Lock lock(timersLock);
                if (stopping) return;
                now = monotonicNow();
                fired = takeDue(now, firings);
                next = heap->empty() ? forever : heap->first().due;
                reminded = takeReminder(now, &next);
            }
            if (reminded != 0) remindOfAlarms(reminded, false);
            for (size_t i = 0; i < fired; ++i) {
                Timer& timer = *firings[i].timer;
                if (push(timer, {}, firings[i].epoch)) continue;
                // Refused because one event waits already, or for good because the queue is gone.
                Lock lock(timersLock);
                bool over;
                {
                    Lock back(timer.queue->back.lock);
                    over = timer.queue->back.closed;
                }
                if (over) leave(timer);
            }
            firedInAll += fired;
        } while (next <= now);
        nap = firedInAll >= manyFired ? std::min(nap * 2, longestNap) : std::max(nap / 2, shortestNap);
        if (next != forever) next = std::max(next, now + nap);
        futexWait(changes, seen, next);
    }
}

// Starts the thread if it does not run.
quorl_status makeReady() noexcept REQUIRES(timersLock) {
    if (heap == nullptr) heap = new (std::nothrow) TimerHeap;
    if (heap == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the timers");
    try {
        heap->reserve(1);
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for the timers");
    }
    if (timersThread.started()) return QUORL_OK;
    stopping = false;
    return timersThread.start("quorl-timers", runTimers);
}

void arm(Timer& timer, double seconds, int64_t now) noexcept REQUIRES(timersLock) {
    timer.seconds = seconds;
    timer.interval = seconds == 0 ? 0 : std::max<int64_t>(nanosecondsOf(seconds), 1);
    timer.front.endless.store(timer.interval == 0, std::memory_order_relaxed);
    leave(timer);
    if (timer.interval == 0) return;
    timer.due = timer.interval >= forever - now ? forever : now + timer.interval;
    insert(timer);
}

void detachTimer(Event& event) noexcept {
    auto& timer = static_cast<Timer&>(event);
    Lock lock(timersLock);
    timer.front.endless.store(false, std::memory_order_relaxed);
    leave(timer);
}

void destroyRecord(Record* record) noexcept {
    auto* timer = static_cast<Timer*>(record);
    registry::dropChild(*timer->queue);
    delete timer;
}

bool validInterval(double interval) noexcept {
    return std::isfinite(interval) && interval >= 0;
}

quorl_status refuseInterval(double interval) noexcept {
    return fail(QUORL_INVALID_TIME_INTERVAL, "%g seconds are not a valid interval: give a finite number from 0",
                interval);
}

Timer* findTimer(uint32_t id) noexcept {
    auto* event = registry::find<Event>(id);
    return event == nullptr || event->kind != Kind::timer ? nullptr : static_cast<Timer*>(event);
}

}  // namespace

quorl_status createTimer(uint32_t* id, uint32_t queueId, quorlEventCallback callback, double interval,
                         const void* closure) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    auto* queue = registry::find<Queue>(queueId);
    if (queue == nullptr) return environment::noObject(QUORL_INVALID_QUEUE, "queue", queueId);
    if (callback == nullptr) return fail(QUORL_INVALID_CALLBACK, "the callback of the timer is null");
    if (!validInterval(interval)) return refuseInterval(interval);
    auto* timer = new (std::nothrow) Timer;
    if (timer == nullptr) return fail(QUORL_NO_MEMORY, "no memory for a timer");
    timer->arg = closure;
    timer->kind = Kind::timer;
    timer->callback = callback;
    timer->queue = queue;
    timer->detach = detachTimer;
    timer->completed = eventCompleted;
    timer->destroy = destroyRecord;
    const uint32_t reserved = registry::reserve();
    if (reserved == 0) {
        delete timer;
        return registry::noId("timer");
    }
    registry::addChild(*queue);
    {
        // The thread fires nothing before the lock is given up, and then finds the timer complete.
        Lock lock(timersLock);
        quorl_status status = makeReady();
        if (status == QUORL_OK && !registry::publish(*timer, reserved, QUORL_OBJECT_EVENT))
            status = fail(QUORL_NOT_INITIALIZED, "the library is not open");
        if (status != QUORL_OK) {
            registry::abandon(reserved);
            destroyRecord(timer);
            return status;
        }
        arm(*timer, interval, monotonicNow());
        *id = reserved;
    }
    if (interval == 0) {
        push(*timer, {}, 0);
    } else {
        poke();
    }
    return QUORL_OK;
}

quorl_status timerInterval(uint32_t id, double* interval) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    Timer* timer = findTimer(id);
    if (timer == nullptr) return environment::noObject(QUORL_INVALID_EVENT, "timer", id);
    Lock lock(timersLock);
    *interval = timer->seconds;
    return QUORL_OK;
}

quorl_status resetTimer(uint32_t id, double interval) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    ReadGuard guard(*thread);
    Timer* timer = findTimer(id);
    if (timer == nullptr) return environment::noObject(QUORL_INVALID_EVENT, "timer", id);
    if (!validInterval(interval)) return refuseInterval(interval);
    uint32_t epoch;
    {
        Lock lock(timersLock);
        // A timer that is being destroyed meanwhile was taken out of the heap for good.
        if (findTimer(id) != timer) return environment::noObject(QUORL_INVALID_EVENT, "timer", id);
        if (interval != 0) {
            const quorl_status status = makeReady();
            if (status != QUORL_OK) return status;
        }
        arm(*timer, interval, monotonicNow());
        startNewEpoch(*timer);
        epoch = timer->front.epoch;
    }
    if (interval == 0) {
        push(*timer, {}, epoch);
    } else {
        poke();
    }
    return QUORL_OK;
}

void fireSoon(uint32_t id) noexcept {
    {
        Lock lock(timersLock);
        Timer* timer = findTimer(id);
        if (timer == nullptr || timer->interval != 0 || timer->armed || makeReady() != QUORL_OK) return;
        timer->due = monotonicNow() + soon;
        insert(*timer);
    }
    poke();
}

bool remindAt(uint32_t queue, int64_t due) noexcept {
    {
        Lock lock(timersLock);
        const KeptErrorText kept;
        if (makeReady() != QUORL_OK) return false;
        if (reminders == nullptr) reminders = new (std::nothrow) TimerHeap;
        if (reminders == nullptr) return false;
        try {
            reminders->reserve(1);
        } catch (const std::bad_alloc&) {
            return false;
        }
        reminders->add({due, queue, 0});
    }
    poke();
    return true;
}

void stopTimers() noexcept {
    {
        Lock lock(timersLock);
        if (!timersThread.started()) return;
        stopping = true;
    }
    poke();
    timersThread.join();
}

}  // namespace quorl::event
