// A folder, a daemon, and the two processes of a run.
#include "network/processes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/measure.h"

namespace bench::network {

Folder::Folder() : path_((std::filesystem::temp_directory_path() / "quorl-bench-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) fail("no folder for a run");
}

Folder::~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Server::Server(bool storing) {
    const std::string& folder = folder_.path();
    const std::string configuration = folder + "/conf";
    std::ofstream file(configuration);
    file << "host: 127.0.0.1\nport: -1\nports_file_dir: \"" << folder << "\"\n";
    if (storing) file << "jetstream { store_dir: \"" << folder << "/store\" }\n";
    file.close();
    const auto serve = [&] {
        const int nowhere = open("/dev/null", O_RDWR);
        dup2(nowhere, 1);
        dup2(nowhere, 2);
        execlp("nats-server", "nats-server", "-c", configuration.c_str(), nullptr);
        execl("/usr/sbin/nats-server", "nats-server", "-c", configuration.c_str(), nullptr);
        _exit(127);
    };
    process_.emplace("nats-server", serve, Child::Ends::whenKilled);
    const std::string ports = folder + "/nats-server_" + std::to_string(process_->id()) + ".ports";
    Child::until("nats-server has started", [&] {
        std::ifstream listing(ports);
        const std::string text{std::istreambuf_iterator<char>(listing), {}};
        const size_t at = text.find("nats://");
        const size_t end = text.find('"', at == std::string::npos ? 0 : at);
        if (at == std::string::npos || end == std::string::npos) return false;
        url_ = text.substr(at, end - at);
        return true;
    });
}

std::vector<double> stream(const Side& side, size_t size, const std::string& url) {
    const Shared<Run> run;
    const std::string name = side.name;
    Child subscriber(name + "'s subscriber", [&] { side.subscribe(*run, size, url); });
    Child::until("the subscriber is ready", [&] { return run->ready.load(); });
    Child publisher(name + "'s publisher", [&] { run->figures[0] = side.publish(*run, size, url); });
    publisher.await();
    subscriber.await();
    return {run->figures[0]};
}

std::vector<double> roundTrips(const Side& side, size_t size, const std::string& url) {
    const Shared<Run> run;
    const std::string name = side.name;
    Child answerer(name + "'s answerer", [&] { side.answer(*run, size, url); });
    Child::until("the answerer is ready", [&] { return run->ready.load(); });
    Child asker(name + "'s asker", [&] {
        const std::vector<double> figures = side.ask(*run, size, url);
        run->figures[0] = figures[0];
        run->figures[1] = figures[1];
    });
    asker.await();
    run->over = true;
    answerer.await();
    return {run->figures[0], run->figures[1]};
}

}  // namespace bench::network
