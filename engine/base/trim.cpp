// When the C library is asked to give free memory back.
#include "base/trim.h"

#include <malloc.h>

#include <atomic>

#include "base/futex.h"
#include "base/thread_state.h"

namespace quorl::trim {
namespace {

constinit std::atomic<uint64_t> freed{0};  // bytes, ever
constinit std::atomic<uint64_t> freedAtTrim{0};
constinit std::atomic<bool> awaited{false};  // the reclaimer's thread knows that there is something to give back

// Of the reclaimer's thread.
constinit uint64_t freedBefore = 0;  // when the quiet began
constinit int64_t quietUntil = 0;    // 0: it did not

}  // namespace

void note(size_t bytes) noexcept {
    const uint64_t all = freed.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    if (all - freedAtTrim.load(std::memory_order_relaxed) < worthwhile) return;
    if (!awaited.load(std::memory_order_relaxed) && !awaited.exchange(true, std::memory_order_relaxed)) pokeReclaimer();
}

int64_t look(int64_t now) noexcept {
    if (!awaited.load(std::memory_order_relaxed)) return forever;
    const uint64_t all = freed.load(std::memory_order_relaxed);
    if (quietUntil == 0 || (now >= quietUntil && all - freedBefore >= worthwhile)) {
        freedBefore = all;
        quietUntil = now + quiet;
    }
    if (now < quietUntil) return quietUntil;
    quietUntil = 0;
    freedAtTrim.store(all, std::memory_order_relaxed);
    awaited.store(false, std::memory_order_relaxed);
    malloc_trim(0);
    return forever;
}

}  // namespace quorl::trim
