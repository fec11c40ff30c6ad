// Starting, telling and stopping a fault_proxy.
#include "proxy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cinttypes>
#include <csignal>

#include "server.h"

namespace quorltest {
namespace {

constexpr std::chrono::seconds limit(60);

}  // namespace

Proxy::Proxy(int serverPort) {
    std::array<int, 2> in;
    std::array<int, 2> out;
    if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0) {
        ADD_FAILURE() << "no pipes for the proxy";
        return;
    }
    const std::string port = std::to_string(serverPort);
    process_ = fork();
    if (process_ == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        execl(FAULT_PROXY, FAULT_PROXY, port.c_str(), nullptr);
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    commands_ = fdopen(in[1], "w");
    lines_ = fdopen(out[0], "r");
    std::array<char, 64> line;
    if (fgets(line.data(), line.size(), lines_) == nullptr || std::sscanf(line.data(), "port %d", &port_) != 1)
        ADD_FAILURE() << "the proxy does not start";
    reader_ = std::thread([this] { listen(); });
}

Proxy::~Proxy() {
    closeTransports();
    if (commands_ == nullptr) return;
    // It ends with its input. A child of the test may hold a copy of that.
    fclose(commands_);
    ::kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
    reader_.join();
    fclose(lines_);
}

void Proxy::listen() {
    std::string line;
    for (int byte; (byte = fgetc(lines_)) != EOF;) {
        if (byte != '\n') {
            line += static_cast<char>(byte);
            continue;
        }
        std::lock_guard lock(mutex_);
        (line.rfind("at ", 0) == 0 ? events_.emplace_back() : answers_.emplace_back()).swap(line);
        line.clear();
        changed_.notify_all();
    }
    std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
}

std::string Proxy::tell(const std::string& command) {
    std::fprintf(commands_, "%s\n", command.c_str());
    std::fflush(commands_);
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit, [this] { return ended_ || !answers_.empty(); });
    if (answers_.empty()) {
        ADD_FAILURE() << "the proxy does not answer to \"" << command << "\"";
        return {};
    }
    const std::string answer = answers_.front();
    answers_.pop_front();
    EXPECT_EQ(answer.rfind("ok", 0), 0u) << "the proxy answers to \"" << command << "\": " << answer;
    return answer.size() > 3 ? answer.substr(3) : "";
}

Proxy::Report Proxy::report() {
    Report report;
    const std::string text = tell("report");
    EXPECT_EQ(std::sscanf(text.c_str(), "links %" SCNu64 " ever %" SCNu64 " up %" SCNu64 " down %" SCNu64,
                          &report.links, &report.ever, &report.up, &report.down),
              4)
        << text;
    return report;
}

bool Proxy::waitFor(const std::string& event) {
    std::unique_lock lock(mutex_);
    const auto happened = [&] {
        return std::any_of(events_.begin(), events_.end(), [&](const std::string& line) {
            const size_t at = line.find(' ', 3);
            return at != std::string::npos && line.compare(at + 1, std::string::npos, event) == 0;
        });
    };
    return changed_.wait_for(lock, limit, [&] { return ended_ || happened(); }) && happened();
}

std::string Proxy::story() {
    std::lock_guard lock(mutex_);
    std::string story;
    for (const std::string& line : events_) story += line + "\n";
    return story;
}

}  // namespace quorltest
