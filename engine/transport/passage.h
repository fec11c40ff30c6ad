// What a transport knows of the way of messages, for protocols above it that repeat what is lost.
#pragma once

#include <cstdint>

namespace quorl::transport {

// Times are of the monotonic clock, in nanoseconds.
struct Passage {
    int64_t passed;        // what was sent before then has reached the bus
    int64_t handedOn;      // what had come to the bus for this process before then is in its listeners' queues
    int64_t arriving = 0;  // when bytes of a message to the inbox last came that is not whole yet; 0: never
    int64_t lossAt = 0;    // when messages that were on their way last may have been lost; 0: never
    // Nothing is ever lost, and whoever hears what is sent ends with this process.
    bool lossless = false;

    // Of a way on which nothing takes time.
    static Passage open(int64_t now) noexcept { return {now, now}; }
};

}  // namespace quorl::transport
