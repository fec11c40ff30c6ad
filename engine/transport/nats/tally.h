// A count that one thread at a time adds to, and that any other may read meanwhile.
#pragma once

#include <atomic>
#include <cstdint>

namespace quorl::transport::nats {

class Tally {
  public:
    // Costs what adding to an ordinary number costs. Whoever adds is alone in it, by a lock or by being the only thread.
    void operator+=(uint64_t more) noexcept {
        value_.store(value_.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
    }
    uint64_t get() const noexcept { return value_.load(std::memory_order_relaxed); }

  private:
    std::atomic<uint64_t> value_{0};
};

}  // namespace quorl::transport::nats
