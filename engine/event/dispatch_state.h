// What dispatching keeps for each thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/thread_state.h"

namespace quorl::event {

struct RunningBatch;

// Fields are of the owning thread alone unless they say otherwise.
struct DispatchState {
    static constexpr size_t threadRoom = 1;

    // The thread's key for signals: the program's own cell, which this thread alone may read.
    void* key = nullptr;

    // Sleeping in a dispatch: 0 while asleep. Written by whoever wakes, under the lock of the list that the thread is in.
    std::atomic<uint32_t> wake{0};
    // The processor of the thread that woke this one for an event; written before wake.
    std::atomic<int> wakerProcessor{-1};

    // The innermost vector callback that runs on this thread.
    const RunningBatch* runningBatch = nullptr;

    // Of callbacks that ended their thread the batch lay on its stack.
    void leaveThread() noexcept {
        key = nullptr;
        runningBatch = nullptr;
    }
};

}  // namespace quorl::event
