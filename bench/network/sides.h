// The contenders of the network case. Each function is one side of a run, and is called in a process of its own.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "support/stream.h"

namespace bench::network {

// What the processes of a run share. In memory that they all see.
struct Run {
    StreamState stream;
    std::atomic<bool> ready{false};  // the other side listens
    std::atomic<bool> over{false};   // the side that answers may end
    double figures[2] = {0, 0};
};

struct Side {
    const char* name;
    // Receives until the end mark.
    void (*subscribe)(Run& run, size_t size, const std::string& url);
    // Sends, and gives messages a second.
    double (*publish)(Run& run, size_t size, const std::string& url);
    // Answers requests until the end mark.
    void (*answer)(Run& run, size_t size, const std::string& url);
    // Asks, and gives the median and the 99th of a hundred, in nanoseconds.
    std::vector<double> (*ask)(Run& run, size_t size, const std::string& url);
};

extern const Side quorlSide;
extern const Side natsSide;

// Messages in flight: neither contender's receiver is ever further behind, so that the daemon cuts nobody off.
inline uint64_t windowOf(size_t size) {
    return std::min<uint64_t>(65536, (16u << 20) / size);
}

}  // namespace bench::network
