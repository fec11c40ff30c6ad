// What sending keeps for each thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/thread_state.h"

namespace quorl::transport {

struct SendingState {
    static constexpr size_t threadRoom = 2;

    // Waiting for a reply: what became of the request (Request::State).
    std::atomic<uint32_t> reply{0};

    // The routers' cache for this thread, and how to free it. Of the owning thread alone.
    void* cache = nullptr;
    void (*freeCache)(void* cache) noexcept = nullptr;

    void leaveThread() noexcept {
        if (cache == nullptr) return;
        freeCache(cache);
        cache = nullptr;
    }
};

}  // namespace quorl::transport
