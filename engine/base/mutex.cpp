// The slow road into a mutex that is held.
#include "base/mutex.h"

namespace quorl {

void Mutex::lockContended() noexcept {
    // What the engine holds these locks for takes well under a microsecond: a short spin saves most system calls.
    for (int round = 0; round < 60; ++round) {
        spinPause();
        if (state_.load(std::memory_order_relaxed) == free && try_lock()) return;
    }
    while (state_.exchange(contended, std::memory_order_acquire) != free) futexWait(state_, contended);
}

}  // namespace quorl
