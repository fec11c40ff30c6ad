// Messages between two processes through a nats-server, beside the daemon's own client library. With arguments, the stream
// from Java: they are the command that makes one run, to which the daemon's address and the size are added.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "network/processes.h"
#include "support/child.h"
#include "support/measure.h"

namespace {

double runOf(const std::string& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) bench::fail("no pipe");
    bench::Child machine("the virtual machine", [&] {
        dup2(ends[1], 1);
        execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
        _exit(127);
    });
    close(ends[1]);
    machine.await();
    FILE* output = fdopen(ends[0], "r");
    double rate = 0;
    if (output == nullptr || std::fscanf(output, "%lf", &rate) != 1) bench::fail("the run has no figure: " + command);
    std::fclose(output);
    return rate;
}

void streamFromJava(const std::string& command) {
    using namespace bench;
    using namespace bench::network;
    const Server server;
    for (const size_t size : {256, 4096}) {
        const std::string run =
            command + " " + server.url() + " " + std::to_string(size) + " " + std::to_string(runSeconds()) + " 3";
        compare("java-network", {{"stream." + std::to_string(size) + "B.msgs_per_s", Better::higher}},
                {"quorl", [&] { return std::vector<double>{runOf(run)}; }},
                {{"libnats", [&] { return stream(natsSide, size, server.url()); }}});
    }
}

}  // namespace

int main(int count, char** arguments) {
    using namespace bench;
    using namespace bench::network;
    if (count > 1) {
        std::string command;
        for (int i = 1; i < count; ++i) command += std::string(i > 1 ? " " : "") + arguments[i];
        streamFromJava(command);
        return 0;
    }
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
