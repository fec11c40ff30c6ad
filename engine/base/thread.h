// Threads of the library: named, and with all signals blocked, since the process may be a virtual machine that handles
// signals on threads of its own.
#pragma once

#include <pthread.h>

#include "quorl/quorl.h"

namespace quorl {

struct ThreadState;

class Thread {
  public:
    constexpr Thread() noexcept = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // name: at most 15 bytes. The thread has a state (base/thread_state.h) from the start, for it could not say later that there
    // was no memory for one. QUORL_INIT_FAILURE: the system gives no thread; QUORL_NO_MEMORY.
    quorl_status start(const char* name, void (*body)()) noexcept;
    // The same for a body with an argument; what it returns is nobody's.
    quorl_status start(const char* name, void* (*body)(void*), void* argument) noexcept;
    // Waits for the end of the body. Without effect when it was not started.
    void join() noexcept;
    bool started() const noexcept { return started_; }

  private:
    static void* enter(void* thread);

    pthread_t handle_{};
    ThreadState* state_ = nullptr;  // until the thread takes it over
    void* (*body_)(void*) = nullptr;
    void* argument_ = nullptr;
    bool started_ = false;
};

}  // namespace quorl
