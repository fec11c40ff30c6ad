// Puts messages together again that came in parts, within bounds of memory and time whatever the senders do.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/mutex.h"
#include "transport/nats/frame.h"

namespace quorl::transport::nats {

// Bytes of the largest message that a daemon's transport carries, and that are held at once for messages of which parts are
// missing.
inline constexpr uint32_t largestEntry = 256u << 20;

class Assembler {
  public:
    struct Limits {
        size_t bytes = largestEntry + (1u << 20);  // of all parts that are held
        size_t messages = 64;                      // of which parts are missing
        int64_t patience = 30'000'000'000;         // nanoseconds from one part to the next
    };

    Assembler() noexcept : limits_() {}
    explicit Assembler(const Limits& limits) noexcept : limits_(limits) {}

    using Whole = std::shared_ptr<const std::vector<uint8_t>>;

    // Takes a part that came in on the given way (a subscription: each gets all parts, one way after the other, and they are
    // held once). True: it was the last one for this way, and *whole is the entry. Parts that do not continue what is there are
    // dropped, with what is there for this way.
    bool take(const void* way, std::string_view subject, const Part& part, int64_t now, Whole* whole) noexcept;

    // Forgets what came in on that way.
    void forget(const void* way) noexcept;

    // When the last part of a message to that subject came that is not whole; 0: there is none.
    int64_t lastPart(std::string_view subject) noexcept;

    // Messages that were given up: their parts did not fit together, came too late, or were too much.
    uint64_t dropped() const noexcept { return dropped_.load(std::memory_order_relaxed); }
    size_t bytesHeld() noexcept;

  private:
    struct Way {
        const void* way;
        uint32_t come;  // bytes on this way
    };
    struct Partial {
        uint64_t sender;
        uint64_t number;
        uint32_t total;
        int64_t last;  // when the last part came
        std::string subject;
        std::vector<Way> ways;  // that have not had all
        std::shared_ptr<std::vector<uint8_t>> bytes;
    };
    using Place = std::list<Partial>::iterator;

    bool add(Place at, Way& way, const Part& part) REQUIRES(lock_);
    void erase(Place at) noexcept REQUIRES(lock_);
    void drop(Place at) noexcept REQUIRES(lock_);

    const Limits limits_;
    std::atomic<uint64_t> dropped_{0};
    Mutex lock_;
    std::list<Partial> partials_ GUARDED_BY(lock_);  // the one that got a part last stands last
    size_t held_ GUARDED_BY(lock_) = 0;              // bytes
};

}  // namespace quorl::transport::nats
