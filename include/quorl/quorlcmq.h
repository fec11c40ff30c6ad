/* quorlcmq.h: distributed queues: certified transports whose members share the work of a subject.
 *
 * Programs that join a queue of the same name, on the same bus, are its members. One of them is the scheduler: it takes the tasks,
 * which are messages that anybody sends to the subjects that members listen to, and gives each to one worker, a member that listens
 * to the task's subject and has room. When the scheduler dies another member takes over; when a worker dies, or is too slow,
 * its tasks go to others.
 *
 *     quorlcmTransport queue;
 *     quorlcmTransport_CreateDistributedQueueEx(&queue, transport, "crew", 1, 4, 1, 1.0, 3.5);
 *     quorlcmEvent worker;
 *     quorlcmEvent_CreateListener(&worker, QUORL_DEFAULT_QUEUE, onTask, queue, "orders.*", NULL);
 *
 * A task is complete when its callback has returned. After quorlcmEvent_SetExplicitConfirm a task that was sent by certified
 * delivery is complete when the program calls quorlcmEvent_ConfirmMsg for it, which any listener of the same queue transport may do;
 * QUORL_NOT_FOUND then says that this member does not hold the task: it was completed before, or given to another worker.
 * Tasks that were sent by certified delivery are kept by their senders until they are complete, and survive the scheduler. Plain
 * messages are tasks too, in a field "dqsn" (u32) of which the program finds their number; they end with their scheduler.
 * A task goes to one listener of a worker, the first that was created of those whose subject matches.
 *
 * The rules of quorl.h hold here too. A distributed queue is a certified transport: quorlcm.h destroys it and listens on it.
 * quorlcmTransport_Destroy goes at once, and tasks that are held go to other workers. quorlcmTransport_DestroyEx takes no further
 * tasks, waits for those that the program holds, at most as the parameter dqueue.leave says, and goes then; the id is good until
 * then, so that tasks can be completed. When the plain transport is destroyed, or the library closed, the tasks go to other
 * workers at once; a process that ends without any of this is missed after the activation interval. Everything else of
 * quorlcm.h that concerns sending and ledgers is QUORL_NOT_PERMITTED: create a certified transport of its own for that. Below, an
 * id that names no distributed queue is QUORL_INVALID_TRANSPORT, and what is refused changes nothing. */
#ifndef QUORL_QUORLCMQ_H
#define QUORL_QUORLCMQ_H

#include "quorl/quorlcm.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Joins the distributed queue cmName, which is the certified name that senders know it by: a subject of at most 200 bytes without
 * wildcards that does not begin with "_". workerWeight: 1 to 1000000; workers get tasks in proportion to their weights, as long as
 * they have room. workerTasks: 0 to 1000000, tasks that it holds at once; 0 takes none. schedulerWeight: 1 to 65535; the member
 * with the greatest is the scheduler, the oldest of equals. schedulerHeartbeat, schedulerActivation: seconds between the
 * scheduler's signs of life, and of silence after which another member takes over; at least 0.001, at most 30 days, the
 * activation longer than the heartbeat, and the same for all members. A queue has 256 members at most.
 * QUORL_INVALID_NAME (null too), QUORL_INVALID_ARG (weights, tasks, intervals, a null pointer), QUORL_INVALID_TRANSPORT,
 * QUORL_NO_MEMORY. */
QUORL_API quorl_status quorlcmTransport_CreateDistributedQueueEx(quorlcmTransport* cmTransport,
                                                                 quorlTransport transport, const char* cmName,
                                                                 quorl_u32 workerWeight, quorl_u32 workerTasks,
                                                                 quorl_u16 schedulerWeight,
                                                                 quorl_f64 schedulerHeartbeat,
                                                                 quorl_f64 schedulerActivation) QUORL_NOEXCEPT;
/* Seconds within which a worker must complete a task before it is given to another; 0, as at first, for no limit. The scheduler's
 * holds for all. At least 0.001, at most 30 days. QUORL_INVALID_ARG. */
QUORL_API quorl_status quorlcmTransport_SetCompleteTime(quorlcmTransport cmTransport,
                                                        quorl_f64 completeTime) QUORL_NOEXCEPT;

#define QUORLCMQ_BACKLOG_MESSAGES 0
#define QUORLCMQ_BACKLOG_BYTES 1
/* Limits the tasks that wait at the scheduler, in messages or in bytes (kind); 0 for no limit. Both may be set. What is beyond stays
 * with certified senders; plain messages beyond it are lost. The scheduler's limits hold. QUORL_INVALID_ARG: another kind. */
QUORL_API quorl_status quorlcmTransport_SetTaskBacklogLimit(quorlcmTransport cmTransport, quorl_u32 kind,
                                                            quorl_u32 limit) QUORL_NOEXCEPT;
/* Ranges as above, from now on. QUORL_INVALID_ARG. */
QUORL_API quorl_status quorlcmTransport_SetWorkerWeight(quorlcmTransport cmTransport,
                                                        quorl_u32 workerWeight) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlcmTransport_SetWorkerTasks(quorlcmTransport cmTransport,
                                                       quorl_u32 workerTasks) QUORL_NOEXCEPT;
/* Gives a task of a certified sender back that the program could not do: it goes to another worker, or comes again when there is
 * none, and counts as reassigned. listener: any of the same queue transport. QUORL_INVALID_EVENT: no listener of a distributed
 * queue. QUORL_NOT_FOUND: the message is not certified, or this member does not hold it (any more). QUORL_INVALID_MSG. */
QUORL_API quorl_status quorlcmEvent_ReturnMsg(quorlcmEvent listener, quorlMsg message) QUORL_NOEXCEPT;

/* Tasks that the scheduler has not assigned yet; of a member that is not the scheduler, as it was told last. */
QUORL_API quorl_status quorlcmTransport_GetUnassignedMessageCount(quorlcmTransport cmTransport,
                                                                  quorl_u32* count) QUORL_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
