// What a connection's state is to the program: advisories, and what the statistics say of it.
#pragma once

#include <atomic>
#include <string>

#include "transport/nats/tally.h"
#include "transport/observer.h"

namespace quorl::transport::nats {

struct ConnectionKey {
    std::string daemon;  // as the program wrote it
    std::string service;
    std::string network;

    bool operator==(const ConnectionKey&) const = default;
};

class ConnectionLog final : public Observer {
  public:
    // key: outlives this.
    explicit ConnectionLog(const ConnectionKey& key) noexcept : key_(key) {}

    // As the statistics call it.
    const char* phase() const noexcept { return phase_.load(std::memory_order_relaxed); }
    uint64_t reconnects() const noexcept { return reconnects_.get(); }

    void connected() noexcept override;
    void away(const Away& report) noexcept override;
    void back(const Back& report) noexcept override;

  private:
    const ConnectionKey& key_;
    std::atomic<const char*> phase_{"connecting"};
    Tally reconnects_;  // of the connection's thread
};

}  // namespace quorl::transport::nats
