// Messages between two processes through a nats-server, beside the daemon's own client library.
#include "network/processes.h"
#include "support/measure.h"

int main() {
    using namespace bench;
    using namespace bench::network;
    {
        const Server server;
        for (const size_t size : {16, 256, 4096}) {
            compare("network", {{"stream." + std::to_string(size) + "B.msgs_per_s", Better::higher}},
                    {"quorl", [&] { return stream(quorlSide, size, server.url()); }},
                    {{"libnats", [&] { return stream(natsSide, size, server.url()); }}});
        }
    }
    // Daemon and clients on one processor, since a wake-up that crosses processors costs what the (virtual) machine makes
    // it cost, whoever asks for it.
    const OneProcessor pinned;
    const Server server;
    for (const size_t size : {16, 256, 4096}) {
        const std::string name = "request_1cpu." + std::to_string(size) + "B.";
        compare("network", {{name + "p50_ns", Better::lower}, {name + "p99_ns", Better::lower}},
                {"quorl", [&] { return network::roundTrips(quorlSide, size, server.url()); }},
                {{"libnats", [&] { return network::roundTrips(natsSide, size, server.url()); }}});
    }
}
