/* quorlcmq.h: distributed queues: certified transports whose members share the work of a subject.
 *
 * The rules of quorl.h hold here too. A distributed queue is a certified transport: quorlcm.h destroys it and listens on it. */
#ifndef QUORL_QUORLCMQ_H
#define QUORL_QUORLCMQ_H

#include "quorl/quorlcm.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Joins the distributed queue cmName. workerWeight: preference of this worker, higher first. workerTasks: tasks that it
 * takes at once. schedulerWeight: preference as scheduler, 1 to 65535. schedulerHeartbeat, schedulerActivation: seconds
 * between the scheduler's signs of life, and of silence after which another member takes over. */
QUORL_API quorl_status quorlcmTransport_CreateDistributedQueueEx(quorlcmTransport* cmTransport,
                                                                 quorlTransport transport, const char* cmName,
                                                                 quorl_u32 workerWeight, quorl_u32 workerTasks,
                                                                 quorl_u16 schedulerWeight,
                                                                 quorl_f64 schedulerHeartbeat,
                                                                 quorl_f64 schedulerActivation) QUORL_NOEXCEPT;
/* Seconds within which a worker must complete a task before it is given to another; 0 for no limit. */
QUORL_API quorl_status quorlcmTransport_SetCompleteTime(quorlcmTransport cmTransport,
                                                        quorl_f64 completeTime) QUORL_NOEXCEPT;

#define QUORLCMQ_BACKLOG_MESSAGES 0
#define QUORLCMQ_BACKLOG_BYTES 1
/* Limits the tasks that wait at the scheduler, in messages or in bytes (kind); 0 for no limit. */
QUORL_API quorl_status quorlcmTransport_SetTaskBacklogLimit(quorlcmTransport cmTransport, quorl_u32 kind,
                                                            quorl_u32 limit) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlcmTransport_SetWorkerWeight(quorlcmTransport cmTransport,
                                                        quorl_u32 workerWeight) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlcmTransport_SetWorkerTasks(quorlcmTransport cmTransport,
                                                       quorl_u32 workerTasks) QUORL_NOEXCEPT;
/* Tasks that the scheduler has not assigned yet. */
QUORL_API quorl_status quorlcmTransport_GetUnassignedMessageCount(quorlcmTransport cmTransport,
                                                                  quorl_u32* count) QUORL_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
