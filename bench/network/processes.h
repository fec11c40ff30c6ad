// A run over a network: a daemon, and two clients, each a process of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "network/sides.h"
#include "support/child.h"

namespace bench::network {

// A folder of a run's own, which goes with it.
class Folder {
  public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

// nats-server on a free port of this machine, for as long as this lives. storing: with JetStream, in a folder of its own.
class Server {
  public:
    explicit Server(bool storing = false);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    const std::string& url() const { return url_; }

  private:
    Folder folder_;
    std::string url_;
    std::optional<Child> process_;  // goes before its folder
};

// One run each. Of a stream messages a second; of round trips the median and the 99th of a hundred.
std::vector<double> stream(const Side& side, size_t size, const std::string& url);
std::vector<double> roundTrips(const Side& side, size_t size, const std::string& url);

}  // namespace bench::network
