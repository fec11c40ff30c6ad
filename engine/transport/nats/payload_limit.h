// How large a payload a daemon takes: a number of bytes that is always one this library can work with, so that whoever
// subtracts a header from it needs no check.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

#include "transport/nats/frame.h"

namespace quorl::transport::nats {

class PayloadLimit {
  public:
    // A daemon that announces less is not used; one that announces more is not believed: the upper one is the daemon's own bound.
    static constexpr uint32_t least = 512;
    static constexpr uint32_t most = 64u << 20;

    constexpr PayloadLimit() noexcept = default;

    // Nothing: the daemon takes too little to be used.
    static constexpr std::optional<PayloadLimit> announced(int64_t bytes) noexcept {
        if (bytes < least) return std::nullopt;
        return PayloadLimit(static_cast<uint32_t>(std::min<int64_t>(bytes, most)));
    }

    constexpr uint32_t bytes() const noexcept { return bytes_; }

    // The same, but not above a bound that is itself within the range.
    template <uint32_t bound>
    constexpr PayloadLimit atMost() const noexcept {
        static_assert(bound >= least && bound <= most);
        return PayloadLimit(std::min(bytes_, bound));
    }
    // Bytes that are left behind a header.
    template <uint32_t header>
    constexpr uint32_t behind() const noexcept {
        static_assert(header < least);
        return bytes_ - header;
    }

  private:
    explicit constexpr PayloadLimit(uint32_t bytes) noexcept : bytes_(bytes) {}

    uint32_t bytes_ = least;
};

static_assert(probeSize <= PayloadLimit::least);

}  // namespace quorl::transport::nats
