// The process-wide table of slots.
#include "base/thread_slots.h"

#include "base/forked.h"
#include "base/mutex.h"
#include "base/status.h"

namespace quorl {
namespace {

constinit Mutex creation;
constinit std::atomic<uint32_t> slotsInUse{0};  // written under creation; grows
// Written under creation before slotsInUse covers the entry; read by any thread after.
constinit std::array<void (*)(void*), ThreadState::slotCount> destructors{};

// As often as POSIX promises at least for its own keys.
constexpr int destructorPasses = 4;

}  // namespace

quorl_status createThreadSlot(uint32_t* slot, void (*destructor)(void*)) noexcept {
    if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
    Lock lock(creation);
    const uint32_t used = slotsInUse.load(std::memory_order_relaxed);
    if (used == ThreadState::slotCount)
        return fail(QUORL_NO_MEMORY, "all %u thread-local slots are taken", ThreadState::slotCount);
    destructors[used] = destructor;
    slotsInUse.store(used + 1, std::memory_order_release);
    *slot = used + 1;
    return QUORL_OK;
}

uint32_t threadSlotsInUse() noexcept {
    return slotsInUse.load(std::memory_order_acquire);
}

void runSlotDestructors(ThreadState& state) noexcept {
    const uint32_t used = threadSlotsInUse();
    bool again = true;
    for (int pass = 0; again && pass < destructorPasses; ++pass) {
        again = false;
        for (uint32_t i = 0; i < used; ++i) {
            void* value = state.slots[i];
            state.slots[i] = nullptr;
            if (value == nullptr || destructors[i] == nullptr) continue;
            destructors[i](value);
            again = true;
        }
    }
    state.slots.fill(nullptr);
}

}  // namespace quorl
