// The rare side of the asymmetric fence.
#include "base/fence.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace quorl {
namespace fence {

constinit std::atomic<bool> processWide{false};

void prepare() noexcept {
#ifndef QUORL_TSAN
    if (syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0)
        processWide.store(true, std::memory_order_seq_cst);
#endif
}

}  // namespace fence

void heavyFence() noexcept {
    // A read-modify-write rather than a fence: the thread sanitizer knows no fences.
    static constinit std::atomic<uint32_t> order{0};
    order.fetch_add(1, std::memory_order_seq_cst);
    if (fence::processWide.load(std::memory_order_seq_cst))
        syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0);
}

}  // namespace quorl
