// What each thread has sent and was given, for the statistics.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/thread_state.h"

namespace quorl::message {

// Written by the owning thread, read by anyone; goes on when the thread's state is passed on.
struct Traffic {
    static constexpr size_t threadRoom = 0;

    std::atomic<uint64_t> messagesOut{0};
    std::atomic<uint64_t> bytesOut{0};
    std::atomic<uint64_t> messagesIn{0};
    std::atomic<uint64_t> bytesIn{0};

    static void add(std::atomic<uint64_t>& count, uint64_t amount) noexcept {
        count.store(count.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
    }
    void sent(uint64_t messages, uint64_t bytes) noexcept {
        add(messagesOut, messages);
        add(bytesOut, bytes);
    }
    void received(uint64_t messages, uint64_t bytes) noexcept {
        add(messagesIn, messages);
        add(bytesIn, bytes);
    }
};

}  // namespace quorl::message
