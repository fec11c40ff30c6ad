// The timers' thread, and how timers come to it.
#include "event/timer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>

#include "base/clock.h"
#include "base/environment.h"
#include "base/mutex.h"
#include "base/registry.h"
#include "base/status.h"
#include "base/thread.h"
#include "event/queue.h"
#include "event/timer_heap.h"

namespace quorl::event {
namespace {

struct Timer : Event, TimerEntry {  // the entry is guarded by timersLock
    double seconds = 0;             // the interval as it was given; guarded by timersLock
};

constexpr int64_t soon = 1'000'000;      // nanoseconds until a dropped endless timer tries again
constexpr int64_t shortestNap = 20'000;  // nanoseconds; the kernel's own slack is more
constexpr size_t firedAtOnce = 64;

// Taken before the locks of a queue.
constinit Mutex timersLock;
constinit TimerHeap* heap = nullptr;         // made with the first timer, and kept
constinit bool stopping = false;             // guarded by timersLock
constinit Thread timersThread;               // started under timersLock; joined when the library closes
constinit std::atomic<uint32_t> changes{0};  // counts reasons to look again; the thread sleeps on it

Timer& timerOf(TimerEntry& entry) noexcept {
    return static_cast<Timer&>(entry);
}

void poke() noexcept {
    changes.fetch_add(1, std::memory_order_release);
    futexWake(changes);
}

struct Firing {
    Timer* timer;
    uint32_t epoch;
};

void runTimers() {
    ThreadState* thread = threadState();
    if (thread == nullptr) return;
    std::array<Firing, firedAtOnce> firings;
    for (;;) {
        const uint32_t seen = changes.load(std::memory_order_acquire);
        int64_t next = forever;
        int64_t now;
        {
            // What is in the heap is not retired yet, so that it lives until the section ends.
            Section section(*thread);
            size_t count = 0;
            {
                Lock lock(timersLock);
                if (stopping) return;
                now = monotonicNow();
                TimerEntry* first = heap->first();
                for (; first != nullptr && first->due <= now && count < firedAtOnce; first = heap->first()) {
                    Timer& timer = timerOf(*first);
                    firings[count++] = {&timer, timer.front.epoch};
                    if (timer.interval == 0) {
                        heap->remove(timer);
                    } else {
                        timer.due = timer.dueAfter(now);
                        heap->moved(timer);
                    }
                }
                if (first != nullptr) next = first->due;
            }
            for (size_t i = 0; i < count; ++i) {
                Timer& timer = *firings[i].timer;
                if (push(timer, {}, firings[i].epoch)) continue;
                // Refused because one event waits already, or for good because the queue is gone.
                Lock lock(timersLock);
                bool over;
                {
                    Lock back(timer.queue->back.lock);
                    over = timer.queue->back.closed;
                }
                if (over && timer.armed()) heap->remove(timer);
            }
        }
        if (next != forever) next = std::max(next, now + shortestNap);
        futexWait(changes, seen, next);
    }
}

// Starts the thread if it does not run. Under timersLock.
quorl_status makeReady() noexcept {
    if (heap == nullptr) heap = new (std::nothrow) TimerHeap;
    if (heap == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the timers");
    try {
        heap->reserve();
    } catch (const std::bad_alloc&) {
        return fail(QUORL_NO_MEMORY, "no memory for the timers");
    }
    if (timersThread.started()) return QUORL_OK;
    stopping = false;
    return timersThread.start("quorl-timers", runTimers);
}

void arm(Timer& timer, double seconds, int64_t now) noexcept {
    timer.seconds = seconds;
    timer.interval = seconds == 0 ? 0 : std::max<int64_t>(nanosecondsOf(seconds), 1);
    timer.front.endless.store(timer.interval == 0, std::memory_order_relaxed);
    if (timer.armed()) heap->remove(timer);
    if (timer.interval == 0) return;
    timer.due = timer.interval >= forever - now ? forever : now + timer.interval;
    heap->add(timer);
}

void detachTimer(Event& event) noexcept {
    auto& timer = static_cast<Timer&>(event);
    Lock lock(timersLock);
    timer.front.endless.store(false, std::memory_order_relaxed);
    if (timer.armed()) heap->remove(timer);
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
    return fail(QUORL_INVALID_TIME_INTERVAL, "%g seconds are no interval", interval);
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
    Section section(*thread);
    auto* queue = registry::find<Queue>(queueId);
    if (queue == nullptr) return environment::noObject(QUORL_INVALID_QUEUE, "queue", queueId);
    if (callback == nullptr) return fail(QUORL_INVALID_CALLBACK, "no callback for the timer");
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
        return fail(QUORL_NO_MEMORY, "no id left for a timer");
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
    Section section(*thread);
    Timer* timer = findTimer(id);
    if (timer == nullptr) return environment::noObject(QUORL_INVALID_EVENT, "timer", id);
    Lock lock(timersLock);
    *interval = timer->seconds;
    return QUORL_OK;
}

quorl_status resetTimer(uint32_t id, double interval) noexcept {
    ThreadState* thread = threadState();
    if (thread == nullptr) return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
    Section section(*thread);
    Timer* timer = findTimer(id);
    if (timer == nullptr) return environment::noObject(QUORL_INVALID_EVENT, "timer", id);
    if (!validInterval(interval)) return refuseInterval(interval);
    uint32_t epoch;
    {
        Lock lock(timersLock);
        // A timer that is being destroyed meanwhile was taken out of the heap for good.
        if (findTimer(id) != timer) return environment::noObject(QUORL_INVALID_EVENT, "timer", id);
        if (!timer->armed() && interval != 0) {
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
        if (timer == nullptr || timer->interval != 0 || timer->armed() || makeReady() != QUORL_OK) return;
        timer->due = monotonicNow() + soon;
        heap->add(*timer);
    }
    poke();
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
