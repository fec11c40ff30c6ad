// How long a message and its acknowledgement take, estimated as TCP does: RFC 6298, with Karn's rule in whoever takes the samples:
// none of what was sent twice. The least time-out is shorter than that of its section 2.4, as in most systems.
#pragma once

#include <algorithm>
#include <cstdint>

namespace quorl::transport::circuit {

class RoundTrip {
  public:
    // Times are nanoseconds.
    void sample(int64_t time) noexcept {
        time = std::clamp<int64_t>(time, 0, longest);
        if (smoothed_ < 0) {
            smoothed_ = time;
            variation_ = time / 2;
        } else {
            const int64_t deviation = smoothed_ > time ? smoothed_ - time : time - smoothed_;
            variation_ += (deviation - variation_) / 4;
            smoothed_ += (time - smoothed_) / 8;
        }
        timeout_ = std::clamp(smoothed_ + 4 * variation_, least, longest);
    }
    // What was sent is not acknowledged in time. Until the next sample.
    void backOff() noexcept { timeout_ = std::min(2 * timeout_, longest); }

    int64_t timeout() const noexcept { return timeout_; }

  private:
    static constexpr int64_t first = 1'000'000'000;
    static constexpr int64_t least = 250'000'000;
    static constexpr int64_t longest = 60'000'000'000;

    int64_t smoothed_ = -1;  // -1: no sample yet
    int64_t variation_ = 0;
    int64_t timeout_ = first;
};

}  // namespace quorl::transport::circuit
