// One run of the transport cases: a publisher as fast as its transport takes messages, and a message to and fro.
#pragma once

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "support/measure.h"
#include "support/payload.h"

namespace bench {

// What publisher and receiver of a stream share.
struct StreamState {
    alignas(64) std::atomic<uint64_t> received{0};  // messages, brought up to date every 32nd
    alignas(64) std::atomic<bool> heard{false};     // the receiver hears the publisher
    std::atomic<bool> ended{false};                 // the receiver has the end mark, and wrote what follows
    uint64_t total = 0;
    uint64_t damaged = 0;
    int64_t endNs = 0;
};

// The receiver's side: on() is called for each message, on one thread.
class Receiver {
  public:
    Receiver(StreamState& state, size_t size) : state_(state), size_(size) {}

    // False for the end mark: nothing follows.
    bool on(const void* bytes, size_t size) {
        if (size != size_ || !Payload::intact(bytes, size, size_)) {
            ++damaged_;
            return true;
        }
        uint64_t number = Payload::numberOf(bytes);
        if (number >= kHello) [[unlikely]] {
            if (number == kHello) {
                state_.heard.store(true, std::memory_order_release);
                return true;
            }
            state_.endNs = nowNs();
            state_.total = next_;
            state_.damaged = damaged_;
            state_.ended.store(true, std::memory_order_release);
            return false;
        }
        // Anything but the next number is a loss, a repetition or a change of order.
        if (number != next_) ++damaged_;
        ++next_;
        if (next_ % 32 == 0) state_.received.store(next_, std::memory_order_release);
        return true;
    }

  private:
    StreamState& state_;
    size_t size_;
    uint64_t next_ = 0;
    uint64_t damaged_ = 0;
};

// Messages that may be in flight where the transport has no bound of its own: 8192, or 1 MiB of them.
inline uint64_t windowFor(size_t size) {
    return std::min<uint64_t>(8192, (1u << 20) / size);
}

// Publishes for runSeconds() with send(bytes, size), at most window messages ahead of the receiver (0: the transport
// bounds itself), and gives messages a second, from the first send to the receipt of the end mark. Fails when one was
// lost or damaged.
template <class Send>
double streamRate(StreamState& state, size_t size, uint64_t window, Send&& send) {
    using namespace std::chrono_literals;
    Payload payload(size);
    for (int tries = 0; !state.heard.load(std::memory_order_acquire); ++tries) {
        if (tries == 5000) fail("the receiver hears nothing");
        send(payload.numbered(kHello), size);
        std::this_thread::sleep_for(1ms);
    }
    std::this_thread::sleep_for(5ms);

    int64_t start = nowNs();
    int64_t stop = start + static_cast<int64_t>(runSeconds() * 1e9);
    uint64_t number = 0;
    for (;; ++number) {
        if (number % 32 == 0) {
            if (nowNs() >= stop) break;
            while (window != 0 && number - state.received.load(std::memory_order_acquire) > window) sched_yield();
        }
        send(payload.numbered(number), size);
    }
    send(payload.numbered(kEnd), size);
    int64_t limit = nowNs() + 20'000'000'000;
    while (!state.ended.load(std::memory_order_acquire)) {
        if (nowNs() > limit) fail("the end of the stream never arrived");
        std::this_thread::sleep_for(200us);
    }
    if (state.total != number || state.damaged != 0) {
        fail("of " + std::to_string(number) + " messages of " + std::to_string(size) + " bytes " +
             std::to_string(state.total) + " arrived, and " + std::to_string(state.damaged) +
             " were damaged or out of order");
    }
    return static_cast<double>(number) / (static_cast<double>(state.endNs - start) / 1e9);
}

// Round trips for runSeconds(), each checked: trip(bytes, size, back) sends a payload and copies what came back. Gives
// the median and the 99th of a hundred, in nanoseconds. The first fifth is warm-up.
template <class Trip>
std::vector<double> roundTrips(size_t size, Trip&& trip) {
    Payload payload(size);
    std::vector<char> back(size);
    std::vector<int64_t> times;
    times.reserve(1'000'000);
    int64_t start = nowNs();
    int64_t length = static_cast<int64_t>(runSeconds() * 1e9);
    for (uint64_t number = 1;; ++number) {
        const void* bytes = payload.numbered(number);
        int64_t before = nowNs();
        size_t got = trip(bytes, size, back.data());
        int64_t after = nowNs();
        if (!Payload::intact(back.data(), got, size) || Payload::numberOf(back.data()) != number) {
            fail("a round trip brought back something else");
        }
        if (after - start > length / 5) times.push_back(after - before);
        if (after - start > length) break;
    }
    return {percentile(times, 0.5), percentile(times, 0.99)};
}

}  // namespace bench
