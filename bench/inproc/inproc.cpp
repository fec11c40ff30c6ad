// Messages between two threads of one process: the rate of a stream, and the time of a round trip on one processor.
#include <string>

#include "inproc/sides.h"
#include "support/measure.h"

int main() {
    using namespace bench;
    for (size_t size : {16, 256, 4096}) {
        compare("inproc", {{"stream." + std::to_string(size) + "B.msgs_per_s", Better::higher}},
                {"quorl", [size] { return inproc::quorlStream(size); }},
                {{"libzmq", [size] { return inproc::zmqStream(size); }}});
    }
    // Pinned, since a wake-up that crosses processors costs what the (virtual) machine makes it cost, whoever asks for
    // it.
    OneProcessor pinned;
    for (size_t size : {16, 256, 4096}) {
        std::string name = "rtt_1cpu." + std::to_string(size) + "B.";
        compare("inproc", {{name + "p50_ns", Better::lower}, {name + "p99_ns", Better::lower}},
                {"quorl", [size] { return inproc::quorlRoundTrips(size); }},
                {{"libzmq", [size] { return inproc::zmqRoundTrips(size); }}});
    }
}
