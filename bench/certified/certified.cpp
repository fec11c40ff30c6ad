// Certified messages from one process to another through a nats-server, each confirmed by its one listener, beside what
// JetStream stores and acknowledges: by the server, before any listener has heard of it.
#include "certified/sides.h"
#include "network/processes.h"
#include "support/measure.h"

int main() {
    using namespace bench;
    using namespace bench::certified;
    constexpr size_t size = 256;
    const network::Server server(true);
    const auto ours = [&](bool keeps) {
        return [&, keeps] { return network::stream(keeps ? quorlKeepingSide : quorlSide, size, server.url()); };
    };
    const Contender jetStream{"jetstream-async", [&] { return network::stream(jetStreamSide, size, server.url()); }};
    compare("certified", {{"process.256B.confirmed_per_s", Better::higher}}, {"quorl", ours(false)}, {jetStream});
    compare("certified", {{"process.256B.listener_with_ledger.confirmed_per_s", Better::higher}}, {"quorl", ours(true)},
            {jetStream});
}
