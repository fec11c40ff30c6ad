// A thread of a companion library, for work that may wait, which the host's thread must not: named, with all signals blocked,
// since the process may be a virtual machine that handles signals on threads of its own.
#pragma once

#include <memory>

#include "quorl/quorl.h"

namespace quorl::companion {

class [[gnu::visibility("default")]] Thread {
  public:
    Thread() noexcept;
    ~Thread();  // joins
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // name: at most 15 bytes. QUORL_INIT_FAILURE: the system gives no thread; QUORL_NO_MEMORY.
    quorl_status start(const char* name, void (*body)(void* argument), void* argument) noexcept;
    // Waits for the end of the body. Without effect when it was not started.
    void join() noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace quorl::companion
