// The processes of a run over a network: a daemon, and two clients, each forked from a parent that has no threads.
#pragma once

#include <string>

#include "network/sides.h"

namespace bench::network {

// nats-server on a free port of this machine, for as long as this lives.
class Server {
  public:
    Server();
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    const std::string& url() const { return url_; }

  private:
    int process_ = -1;
    std::string folder_;
    std::string url_;
};

// One run each. Of a stream messages a second; of round trips the median and the 99th of a hundred.
std::vector<double> stream(const Side& side, size_t size, const std::string& url);
std::vector<double> roundTrips(const Side& side, size_t size, const std::string& url);

}  // namespace bench::network
