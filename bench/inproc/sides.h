// The contenders of the in-process case: each gives one run of a stream, and one of round trips.
#pragma once

#include <cstddef>
#include <vector>

namespace bench::inproc {

// Messages a second from one publisher thread to one subscriber thread.
std::vector<double> quorlStream(size_t size);
std::vector<double> zmqStream(size_t size);

// Median and 99th of a hundred of a round trip between two threads, in nanoseconds.
std::vector<double> quorlRoundTrips(size_t size);
std::vector<double> zmqRoundTrips(size_t size);

}  // namespace bench::inproc
