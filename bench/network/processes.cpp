// Forking, and what the processes share.
#include "network/processes.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <thread>

#include "support/measure.h"

namespace bench::network {
namespace {

void nap() {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

struct Shared {
    Shared() {
        void* place = mmap(nullptr, sizeof(Run), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (place == MAP_FAILED) fail("no shared memory");
        run = new (place) Run;
    }
    ~Shared() { munmap(run, sizeof(Run)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    Run* run;
};

template <class F>
pid_t spawn(F&& body) {
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(0);
    }
    if (child < 0) fail("no process");
    return child;
}

bool alive(pid_t child) {
    return waitpid(child, nullptr, WNOHANG) == 0;
}

void reap(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) == child && status != 0) fail("a process of the run failed");
}

void awaitReady(Run& run, pid_t other) {
    for (int tries = 0; !run.ready; ++tries) {
        if (tries == 20000 || !alive(other)) fail("the other side of the run is not there");
        nap();
    }
}

}  // namespace

Folder::Folder() : path_((std::filesystem::temp_directory_path() / "quorl-bench-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) fail("no folder for a run");
}

Folder::~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

Server::Server(bool storing) {
    const std::string& folder = folder_.path();
    std::ofstream configuration(folder + "/conf");
    configuration << "host: 127.0.0.1\nport: -1\nports_file_dir: \"" << folder << "\"\n";
    if (storing) configuration << "jetstream { store_dir: \"" << folder << "/store\" }\n";
    configuration.close();
    process_ = spawn([&] {
        const int nowhere = open("/dev/null", O_RDWR);
        dup2(nowhere, 1);
        dup2(nowhere, 2);
        const std::string file = folder + "/conf";
        execlp("nats-server", "nats-server", "-c", file.c_str(), nullptr);
        execl("/usr/sbin/nats-server", "nats-server", "-c", file.c_str(), nullptr);
        _exit(127);
    });
    const std::string ports = folder + "/nats-server_" + std::to_string(process_) + ".ports";
    for (int tries = 0; url_.empty(); ++tries) {
        if (tries == 10000 || !alive(process_)) fail("nats-server does not start");
        std::ifstream file(ports);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        const size_t at = text.find("nats://");
        const size_t end = text.find('"', at == std::string::npos ? 0 : at);
        if (at != std::string::npos && end != std::string::npos) url_ = text.substr(at, end - at);
        nap();
    }
}

Server::~Server() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

std::vector<double> stream(const Side& side, size_t size, const std::string& url) {
    Shared shared;
    Run& run = *shared.run;
    const pid_t subscriber = spawn([&] { side.subscribe(run, size, url); });
    awaitReady(run, subscriber);
    const pid_t publisher = spawn([&] { run.figures[0] = side.publish(run, size, url); });
    reap(publisher);
    reap(subscriber);
    return {run.figures[0]};
}

std::vector<double> roundTrips(const Side& side, size_t size, const std::string& url) {
    Shared shared;
    Run& run = *shared.run;
    const pid_t answerer = spawn([&] { side.answer(run, size, url); });
    awaitReady(run, answerer);
    const pid_t asker = spawn([&] {
        const std::vector<double> figures = side.ask(run, size, url);
        run.figures[0] = figures[0];
        run.figures[1] = figures[1];
    });
    reap(asker);
    run.over = true;
    reap(answerer);
    return {run.figures[0], run.figures[1]};
}

}  // namespace bench::network
