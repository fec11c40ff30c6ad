// Starting and stopping nats-server.
#include "server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace quorltest {
namespace {

constexpr std::chrono::seconds limit(60);

std::string contentsOf(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace

Directory::Directory() {
    std::string name = (std::filesystem::temp_directory_path() / "quorl-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    path_ = name;
}

Directory::~Directory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void Directory::write(const std::string& name, const std::string& text) const {
    std::ofstream(file(name)) << text;
}

NatsServer::NatsServer(std::string settings) : settings_(std::move(settings)) {
    EXPECT_TRUE(start()) << log();
}

NatsServer::~NatsServer() {
    closeTransports();
    kill();
}

void NatsServer::writeSettings() const {
    directory_.write("server.conf", "host: 127.0.0.1\nport: " + std::to_string(port_) + "\nports_file_dir: \"" +
                                        directory_.path() + "\"\nlog_file: \"" + directory_.file("log") + "\"\n" +
                                        settings_ + "\n");
}

bool NatsServer::reload(std::string settings, const std::string& setting) {
    settings_ = std::move(settings);
    writeSettings();
    const int watch = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(watch, directory_.path().c_str(), IN_MODIFY);
    signal(SIGHUP);
    const auto end = std::chrono::steady_clock::now() + limit;
    bool done = false;
    while (!(done = log().find("Reloaded: " + setting) != std::string::npos) &&
           std::chrono::steady_clock::now() < end) {
        pollfd waited{watch, POLLIN, 0};
        poll(&waited, 1, 100);
        char events[4096];
        if (waited.revents != 0 && read(watch, events, sizeof events) < 0) break;
    }
    close(watch);
    return done;
}

bool NatsServer::start() {
    // It writes the port that it got into a file, when it listens.
    writeSettings();
    const std::string configuration = directory_.file("server.conf");
    const int watch = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(watch, directory_.path().c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int nowhere = open("/dev/null", O_RDWR);
        dup2(nowhere, 0);
        dup2(nowhere, 1);
        dup2(nowhere, 2);
        execlp("nats-server", "nats-server", "-c", configuration.c_str(), nullptr);
        execl("/usr/sbin/nats-server", "nats-server", "-c", configuration.c_str(), nullptr);
        _exit(127);
    }
    const std::string ports = directory_.file("nats-server_" + std::to_string(process_) + ".ports");
    const auto end = std::chrono::steady_clock::now() + limit;
    bool up = false;
    while (!up && std::chrono::steady_clock::now() < end && waitpid(process_, nullptr, WNOHANG) == 0) {
        const std::string text = contentsOf(ports);
        const size_t at = text.find("127.0.0.1:");
        if (at != std::string::npos && text.find(']') != std::string::npos) {
            port_ = std::atoi(text.c_str() + at + 10);
            up = true;
            break;
        }
        pollfd waited{watch, POLLIN, 0};
        poll(&waited, 1, 100);
        char events[4096];
        if (waited.revents != 0 && read(watch, events, sizeof events) < 0) break;
    }
    close(watch);
    return up;
}

void NatsServer::kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
}

void NatsServer::signal(int number) const {
    ::kill(process_, number);
    // Its threads stop one after the other.
    if (number == SIGSTOP) waitpid(process_, nullptr, WUNTRACED);
}

std::string NatsServer::log() const {
    return contentsOf(directory_.file("log"));
}

}  // namespace quorltest
