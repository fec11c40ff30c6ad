// The slow road into a mutex that is held.
#include "base/mutex.h"

#include "base/clock.h"

namespace quorl {

void Mutex::lockContended() noexcept UNCHECKED_GUARDS {
    // What the engine holds these locks for takes well under a microsecond: a short spin saves most sleeps.
    for (int round = 0; round < 40; ++round) {
        spinPause();
        if (held_.load(std::memory_order_relaxed) == 0 && try_lock()) return;
    }
    sleepers_.fetch_add(1, std::memory_order_seq_cst);
    // From here on every unlock wakes; those before it are seen by the attempt below.
    heavyFence();
    // Without the fence of the whole process, or before it is known, the holder may miss this thread.
    const bool seen = fence::processWide.load(std::memory_order_relaxed);
    while (!try_lock()) futexWait(held_, 1, seen ? forever : monotonicNow() + 10'000'000);
    sleepers_.fetch_sub(1, std::memory_order_relaxed);
}

}  // namespace quorl
