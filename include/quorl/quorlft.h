/* quorlft.h: fault tolerance: groups of processes in which a set number of members is active.
 *
 * The rules of quorl.h hold here too. */
#ifndef QUORL_QUORLFT_H
#define QUORL_QUORLFT_H

#include "quorl/quorl.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef quorl_u32 quorlftMember;  /* object type 200 */
typedef quorl_u32 quorlftMonitor; /* object type 201 */

/* What a member is told to do. */
/* clang-format off */
typedef QUORL_ENUM(quorlftAction){
    QUORLFT_PREPARE_TO_ACTIVATE = 1,
    QUORLFT_ACTIVATE = 2,
    QUORLFT_DEACTIVATE = 3,
    QUORLFT_PREPARE_AND_ACTIVATE = 4 /* for bindings that merge the first two */
} quorlftAction;
/* clang-format on */

/* Both run on the thread that dispatches the queue. Activations and deactivations alternate, beginning with an activation. The
 * member that takes this one's place is activated when the callback of a deactivation has returned, and waits for that no
 * longer than the activation interval. */
typedef void (*quorlftMemberCallback)(quorlftMember member, const char* groupName, quorlftAction action, void* closure);
typedef void (*quorlftMonitorCallback)(quorlftMonitor monitor, const char* groupName, quorl_u32 numActiveMembers,
                                       void* closure);

/* The version of this library, as quorl_Version. */
QUORL_API const char* quorlft_Version(void) QUORL_NOEXCEPT;

/* Joins a group. groupName: a subject without wildcards that does not begin with '_', at most 244 bytes. weight: rank, higher
 * first, 1 to 65535; of equal weight whoever joined first. activeGoal: members that are to be active, from 1. Intervals in seconds, 0.001 to 30 days:
 * between signs of life, of silence before preparation (0 for none), of silence before activation; in this order, each longer
 * than the one before. The member may become active when the activation interval has passed.
 * QUORL_INVALID_ARG, QUORL_INVALID_CALLBACK (null), QUORL_INVALID_SUBJECT (null too), QUORL_INVALID_QUEUE,
 * QUORL_INVALID_TRANSPORT. */
QUORL_API quorl_status quorlftMember_Create(quorlftMember* member, quorlQueue queue, quorlftMemberCallback callback,
                                            quorlTransport transport, const char* groupName, quorl_u16 weight,
                                            quorl_u16 activeGoal, quorl_f64 heartbeatInterval,
                                            quorl_f64 preparationInterval, quorl_f64 activationInterval,
                                            const void* closure) QUORL_NOEXCEPT;
/* Leaves the group, and says so: the next one takes over at once. Waits up to 2 seconds for room when the way to the daemon is
 * full. No callback begins any more, not even for this; one that runs goes on, and may have called it. The end of the library does
 * the same for all members. QUORL_INVALID_EVENT. */
QUORL_API quorl_status quorlftMember_Destroy(quorlftMember member) QUORL_NOEXCEPT;
/* The token of the activation that the member's callback was told last, in that callback and from then on; 0 before the first. It
 * grows with every activation that is known in the group: what is done in the group's name carries it, and whoever it is done to
 * refuses lower ones than the highest that came. QUORL_INVALID_ARG, QUORL_INVALID_EVENT. */
QUORL_API quorl_status quorlftMember_GetToken(quorlftMember member, quorl_u64* token) QUORL_NOEXCEPT;
/* 1 to 65535, in force at once. QUORL_INVALID_EVENT, QUORL_INVALID_ARG. */
QUORL_API quorl_status quorlftMember_SetWeight(quorlftMember member, quorl_u16 weight) QUORL_NOEXCEPT;

/* Watches a group without joining it: the callback gets the number of active members whenever it changes, and first when one is
 * heard, or as 0 when none was for the lost interval. lostInterval: seconds of silence after which a member counts as lost.
 * Statuses as of quorlftMember_Create. */
QUORL_API quorl_status quorlftMonitor_Create(quorlftMonitor* monitor, quorlQueue queue, quorlftMonitorCallback callback,
                                             quorlTransport transport, const char* groupName, quorl_f64 lostInterval,
                                             const void* closure) QUORL_NOEXCEPT;
/* No callback begins any more; one that runs goes on, and may have called it. QUORL_INVALID_EVENT. */
QUORL_API quorl_status quorlftMonitor_Destroy(quorlftMonitor monitor) QUORL_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
