// Timers: events that one thread puts into their queues at their times.
#pragma once

#include "event/event.h"

namespace quorl::event {

quorl_status createTimer(uint32_t* id, uint32_t queue, quorlEventCallback callback, double interval,
                         const void* closure) noexcept;
quorl_status timerInterval(uint32_t id, double* interval) noexcept;
quorl_status resetTimer(uint32_t id, double interval) noexcept;

// A timer of interval 0 lost its place in the queue to a limit: tries again a little later. Under a read guard, no lock
// held.
void fireSoon(uint32_t id) noexcept;

// Has remindOfAlarms called for the queue at that time, in nanoseconds on the monotonic clock. False: there is no memory or no
// thread for it. No lock held.
bool remindAt(uint32_t queue, int64_t due) noexcept;

// Ends the timers' thread, if it runs; all timers are destroyed by then.
void stopTimers() noexcept;

}  // namespace quorl::event
