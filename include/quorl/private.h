/* private.h: functions and record heads of the library for language bindings; ordinary programs need none of them.
 *
 * The rules of quorl.h hold here too. */
#ifndef QUORL_PRIVATE_H
#define QUORL_PRIVATE_H

#include <pthread.h>

#include "quorl/quorl.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- objects ---------------------------------------------------------------------------------------------------- */

/* Object types, as _quorlObjectId_Verify and _quorlObjectId_GetEx take them. */
#define QUORL_OBJECT_EVENT 1 /* listener, vector listener, timer */
#define QUORL_OBJECT_QUEUE 2
#define QUORL_OBJECT_QUEUE_GROUP 3
#define QUORL_OBJECT_TRANSPORT 4
#define QUORL_OBJECT_DISPATCHER 5
#define QUORL_OBJECT_CM_TRANSPORT 100
#define QUORL_OBJECT_CM_EVENT 101
#define QUORL_OBJECT_FT_MEMBER 200
#define QUORL_OBJECT_FT_MONITOR 201

/* The head of every record that a binding looks into. */
typedef struct _quorlRecordHead {
    const void* arg; /* the closure given when the object was created */
} _quorlRecordHead;

/* QUORL_OK when id names a live object of that type; QUORL_NOT_FOUND otherwise, QUORL_NOT_INITIALIZED when not open. */
QUORL_API quorl_status _quorlObjectId_Verify(quorl_u32 id, quorl_u32 type) QUORL_NOEXCEPT;

/* The record of an object. acquire 1 takes a reference, which keeps the record until _quorlObjectId_ReleaseEx gives it
 * back; acquire 0 takes none, and the record may be read only while the caller knows the object to be alive. flags: 0.
 * The type of events finds certified listeners too.
 * QUORL_NOT_FOUND: no such object; *record is then null. */
QUORL_API quorl_status _quorlObjectId_GetEx(quorl_u32 id, quorl_u32 type, void** record, quorl_u32 acquire,
                                            quorl_u32 flags) QUORL_NOEXCEPT;
/* Gives a reference back; acquire as it was in the call that took it (0 does nothing). */
QUORL_API quorl_status _quorlObjectId_ReleaseEx(void* record, quorl_u32 acquire) QUORL_NOEXCEPT;

/* ---- thread-local slots ----------------------------------------------------------------------------------------- */

/* A slot that holds one pointer per thread. Opaque; 0 is no slot. */
typedef quorl_u32 _quorlThreadLocal;

/* Makes a slot, null in every thread. Slots outlive the environment. QUORL_NO_MEMORY: no slot left. */
QUORL_API quorl_status _quorlThreadLocal_Create(_quorlThreadLocal* key) QUORL_NOEXCEPT;
/* The same with a destructor that a thread calls as it ends, with the slot's value, when that is not null. */
QUORL_API quorl_status _quorlThreadLocal_CreateEx(_quorlThreadLocal* key, void (*destructor)(void*)) QUORL_NOEXCEPT;
/* Needs no open environment. QUORL_INVALID_ARG: no such slot. */
QUORL_API quorl_status _quorlThreadLocal_Set(_quorlThreadLocal key, void* value) QUORL_NOEXCEPT;
QUORL_API quorl_status _quorlThreadLocal_Get(_quorlThreadLocal key, void** value) QUORL_NOEXCEPT;

/* ---- conditions and mutexes ------------------------------------------------------------------------------------- */

/* A mutex. A binding may lock and unlock the inner POSIX mutex itself; _quorlCondition_Wait gives it up and takes it back. */
typedef struct __quorlMutex {
    quorl_u32 flags; /* 0 */
    pthread_mutex_t mutex;
} * _quorlMutex;

/* A condition. Opaque. */
typedef struct __quorlCondition* _quorlCondition;

QUORL_API quorl_status _quorlMutex_Create(_quorlMutex* mutex) QUORL_NOEXCEPT;
QUORL_API quorl_status _quorlMutex_Destroy(_quorlMutex mutex) QUORL_NOEXCEPT;
QUORL_API quorl_status _quorlCondition_Create(_quorlCondition* condition) QUORL_NOEXCEPT;
QUORL_API quorl_status _quorlCondition_Destroy(_quorlCondition condition) QUORL_NOEXCEPT;
/* Gives the mutex up, waits for a signal that is made after the call began, takes the mutex back. Whoever signals with the
 * mutex held is not missed. One signal ends one wait at least. */
QUORL_API quorl_status _quorlCondition_Wait(_quorlCondition condition, _quorlMutex mutex) QUORL_NOEXCEPT;
QUORL_API quorl_status _quorlCondition_Signal(_quorlCondition condition) QUORL_NOEXCEPT;

/* ---- dispatching threads ---------------------------------------------------------------------------------------- */

/* A dispatchable is a queue or a queue group. A dispatching thread may register a key: the address of one aligned 32-bit
 * cell of its own, which the library reads and clears only on that thread, inside its dispatch calls. Whoever wants to
 * interrupt that thread stores the dispatchable's id in the cell, then signals the id: the thread's dispatch of that id
 * that runs, or the next one, clears the cell and returns QUORL_INTR. A signal is never lost and interrupts once. */

/* Registers the calling thread's key, or with null takes it away. Needs no open environment. */
QUORL_API quorl_status _quorlDispatchable_SetThreadKey(void* key) QUORL_NOEXCEPT;
/* Wakes the threads that block in a dispatch of id: those whose cell holds id, and those without a key, return QUORL_INTR;
 * the others wait on. QUORL_INVALID_DISPATCHABLE: no such queue or group. */
QUORL_API quorl_status _quorlDispatchable_Signal(quorl_u32 id) QUORL_NOEXCEPT;

/* ---- listeners -------------------------------------------------------------------------------------------------- */

/* What begins a subject that makes quorlEvent_CreateListener and quorlEvent_CreateGroupVectorListener share as
 * quorlEvent_CreateSharedListener does: "_QUORL.SHARE.<name>.<subject>". The whole may be longer than QUORL_SUBJECT_MAX. */
#define QUORL_SHARE_PREFIX "_QUORL.SHARE."

/* ---- fields ----------------------------------------------------------------------------------------------------- */

/* Finds a field as quorlMsg_GetFieldEx does and gives where it is and what it is in one number, never 0: index + 1 in bits
 * 0 to 31, the type in bits 32 to 39. */
QUORL_API quorl_status _quorlMsg_GetFieldIndexAndType(quorlMsg message, const char* name, quorl_u64* indexAndType,
                                                      quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status _quorlMsg_GetFieldInstanceIndexAndType(quorlMsg message, const char* name, quorl_u32 instance,
                                                              quorl_u64* indexAndType) QUORL_NOEXCEPT;

/* ---- certified delivery and distributed queues ------------------------------------------------------------------ */

/* In libquorlcm. From now on the listener's owner completes uncertified messages of a distributed queue itself. */
QUORL_API quorl_status _quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages(quorl_u32 listener) QUORL_NOEXCEPT;

/* In libquorlcm. Runs a relay agent of that name over the transport, with that ledger, until the file descriptor stop can be
 * read; what the program quorl-relay does. ready, which may be null, is called when it answers. The statuses of
 * quorlcmTransport_Create. */
QUORL_API quorl_status _quorlcmRelay_Run(quorlTransport transport, const char* name, const char* ledgerName,
                                         quorl_bool syncLedger, int stop, void (*ready)(void)) QUORL_NOEXCEPT;

/* In libquorlcmq. Reports the task with number dqsn complete on the certified transport whose record (type 100, with a
 * reference held) is given. The arguments between are 0. */
QUORL_API quorl_status _quorlcmq_Complete(void* record, quorl_u32 reserved1, quorl_u32 reserved2, quorl_u32 reserved3,
                                          quorl_u32 reserved4, quorl_u32 reserved5, quorl_u32 dqsn) QUORL_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
