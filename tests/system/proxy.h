// A fault_proxy of the test's own in front of a server of this machine: fault_proxy.cpp says what it can do.
//
//     Proxy proxy(server.port());
//     transportTo(proxy.address());
//     proxy.tell("freeze up");
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace quorltest {

class Proxy {
  public:
    explicit Proxy(int serverPort);
    ~Proxy();
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    int port() const noexcept { return port_; }

    // Has the command obeyed, and gives the answer behind its "ok". Fails the test when it is none.
    std::string tell(const std::string& command);

    struct Report {
        uint64_t links = 0;  // open
        uint64_t ever = 0;
        uint64_t up = 0;  // bytes that have gone
        uint64_t down = 0;
    };
    Report report();

    // Until it has reported that line, which begins behind the time: "link 2 open". False: not within the limit.
    bool waitFor(const std::string& event);
    // Everything that it has printed, for a test that fails.
    std::string story();

  private:
    void listen();

    pid_t process_ = -1;
    int port_ = 0;
    FILE* commands_ = nullptr;
    FILE* lines_ = nullptr;
    std::thread reader_;

    std::mutex mutex_;  // of what follows
    std::condition_variable changed_;
    std::deque<std::string> answers_;
    std::vector<std::string> events_;
    bool ended_ = false;
};

}  // namespace quorltest
