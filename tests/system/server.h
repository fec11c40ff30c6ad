// A nats-server of the test's own, on a free port of this machine, with its files in a directory of its own.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace quorltest {

// Closes the transports to daemons that are left. Daemons and proxies do so before they go, so that what was sent last
// arrives while somebody is there to take it.
inline std::function<void()> closeTransports = [] {};

// A directory that goes with everything in it.
class Directory {
  public:
    Directory();
    ~Directory();
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    const std::string& path() const noexcept { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    void write(const std::string& name, const std::string& text) const;

  private:
    std::string path_;
};

class NatsServer {
  public:
    // settings: further lines of its configuration file.
    explicit NatsServer(std::string settings = "");
    ~NatsServer();
    NatsServer(const NatsServer&) = delete;
    NatsServer& operator=(const NatsServer&) = delete;

    // Starts it, at the port that it had before. False: it did not come up.
    bool start();
    // From the next start on.
    void reconfigure(std::string settings) { settings_ = std::move(settings); }
    // Gives the settings to it as it runs. False: its log does not say within the limit that it has reloaded that setting.
    bool reload(std::string settings, const std::string& setting);
    // As kill -9 does.
    void kill();
    void signal(int number) const;
    bool running() const noexcept { return process_ > 0; }

    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    std::string url() const { return "nats://" + address(); }
    int port() const noexcept { return port_; }
    const Directory& directory() const noexcept { return directory_; }
    // What it has written of itself.
    std::string log() const;

  private:
    void writeSettings() const;

    Directory directory_;
    std::string settings_;
    pid_t process_ = -1;
    int port_ = -1;
};

}  // namespace quorltest
