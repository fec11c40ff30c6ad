// Threads of the library: named, and with all signals blocked, since the process may be a virtual machine that handles
// signals on threads of its own.
#pragma once

#include <pthread.h>

#include "quorl/quorl.h"

namespace quorl {

class Thread {
  public:
    constexpr Thread() noexcept = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // name: at most 15 bytes. QUORL_INIT_FAILURE: the system gives no thread.
    quorl_status start(const char* name, void (*body)()) noexcept;
    // The same for a body with an argument; what it returns is nobody's.
    quorl_status start(const char* name, void* (*body)(void*), void* argument) noexcept;
    // Waits for the end of the body. Without effect when it was not started.
    void join() noexcept;
    bool started() const noexcept { return started_; }

  private:
    pthread_t handle_{};
    bool started_ = false;
};

}  // namespace quorl
