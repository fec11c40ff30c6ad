// What a queue keeps of its alarms; alarm.h says when they are raised, cleared and told.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "message/delivery.h"
#include "quorl/quorl.h"

namespace quorl::event {

struct Event;

struct Limit {
    quorlQueueLimitPolicy policy = QUORLQUEUE_DISCARD_NONE;
    uint32_t maxEvents = 0;
    uint32_t discardAmount = 0;
};

struct Alarm {
    // folding: raised too soon after the last time to be told yet.
    enum class State : uint8_t { clear, folding, raised };
    State state = State::clear;
    int64_t began = 0;               // nanoseconds on the monotonic clock
    int64_t toldAt = INT64_MIN / 2;  // when a begin was told last
};

// A listener that lost messages since the queue's limit began to drop.
struct SlowListener {
    Event* event;  // closeEvent takes it out of the list
    bool told;     // that it is slow
    uint64_t lost;
    int64_t began;  // nanoseconds on the monotonic clock
    message::ContentRef first;
};

// What there is to tell of an alarm.
struct AlarmRecord {
    enum class Kind : uint8_t { limitBegin, limitEnd, slowBegin, slowEnd, highwaterBegin, highwaterEnd };
    Kind kind;
    uint32_t event;      // the listener or timer that it is about, or that lost the first
    std::string source;  // of that event
    message::ContentRef first;
    Limit limit;
    uint64_t waiting;
    uint64_t lost;
    double seconds;
};

struct Alarms {
    Alarm limit;      // the limit drops
    Alarm highwater;  // a queue without a limit is beyond its mark
    // Since the limit began to drop: events dropped, advisories not counted; and the first of them.
    uint64_t lost = 0;
    uint32_t firstEvent = 0;
    std::string firstSource;
    message::ContentRef first;
    std::vector<SlowListener> slow;
    // What is to be told, in the order in which it happened, by one thread at a time.
    std::list<AlarmRecord> records;  // takes no memory while it is empty
    bool telling = false;
    bool reminderSet = false;  // the timers' thread will look at the alarms that fold
};

}  // namespace quorl::event
