// Distributed queues: not part of this version.
#include "companion/status.h"
#include "quorl/private.h"
#include "quorl/quorlcmq.h"

namespace {

quorl_status refuse() noexcept {
    return quorl::companion::fail(QUORL_NOT_PERMITTED, "distributed queues are not part of this version");
}

}  // namespace

extern "C" {

// clang-format off
quorl_status quorlcmTransport_CreateDistributedQueueEx(quorlcmTransport*, quorlTransport, const char*, quorl_u32, quorl_u32, quorl_u16, quorl_f64, quorl_f64) noexcept { return refuse(); }
quorl_status quorlcmTransport_SetCompleteTime(quorlcmTransport, quorl_f64) noexcept { return refuse(); }
quorl_status quorlcmTransport_SetTaskBacklogLimit(quorlcmTransport, quorl_u32, quorl_u32) noexcept { return refuse(); }
quorl_status quorlcmTransport_SetWorkerWeight(quorlcmTransport, quorl_u32) noexcept { return refuse(); }
quorl_status quorlcmTransport_SetWorkerTasks(quorlcmTransport, quorl_u32) noexcept { return refuse(); }
quorl_status quorlcmTransport_GetUnassignedMessageCount(quorlcmTransport, quorl_u32*) noexcept { return refuse(); }
quorl_status _quorlcmq_Complete(void*, quorl_u32, quorl_u32, quorl_u32, quorl_u32, quorl_u32, quorl_u32) noexcept { return refuse(); }
// clang-format on

}  // extern "C"
