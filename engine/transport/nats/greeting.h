// Asks a daemon which servers its cluster has, by a connection of its own that reads the greeting and goes.
//
// libnats would keep that list too, but use it when it should not, see session.h. Nothing here waits: the owner watches
// the descriptor.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "transport/nats/address.h"

namespace quorl::transport::nats {

// The addresses in the greeting, as the daemon writes them. A greeting that is none has none. Throws std::bad_alloc.
std::vector<std::string> serversNamed(std::string_view greeting);

class Greeting {
  public:
    // From the peer of that socket. Null: there is no way to ask it.
    static std::unique_ptr<Greeting> from(int socket) noexcept;
    ~Greeting();
    Greeting(const Greeting&) = delete;
    Greeting& operator=(const Greeting&) = delete;

    // To be watched for reading.
    int descriptor() const noexcept { return descriptor_; }
    // It can be read. Whether it has ended, well or not.
    bool read() noexcept;
    // What it said, each to be used with TLS or not. Throws std::bad_alloc.
    std::vector<Server> servers(bool tls) const;

  private:
    explicit Greeting(int descriptor) noexcept : descriptor_(descriptor) {}

    const int descriptor_;
    std::string text_;
    bool whole_ = false;
};

}  // namespace quorl::transport::nats
