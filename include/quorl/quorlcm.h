/* quorlcm.h: certified delivery: messages that are kept until every registered listener has confirmed them.
 *
 * The rules of quorl.h hold here too. An id that names no certified transport is QUORL_INVALID_TRANSPORT, one that names
 * no certified listener QUORL_INVALID_EVENT. */
#ifndef QUORL_QUORLCM_H
#define QUORL_QUORLCM_H

#include "quorl/quorl.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef quorl_u32 quorlcmTransport; /* object type 100 */
typedef quorl_u32 quorlcmEvent;     /* object type 101 */

/* Runs as a quorlEventCallback does. */
typedef void (*quorlcmEventCallback)(quorlcmEvent listener, quorlMsg message, void* closure);
/* Called once, on a thread of the library, never inside the destroying call, when the object is gone. */
typedef void (*quorlcmTransportOnComplete)(quorlcmTransport transport, void* closure);
typedef void (*quorlcmEventOnComplete)(quorlcmEvent listener, void* closure);
/* Called for each ledger entry; the message lives during the call. Null: go on; anything else: stop. */
typedef void* (*quorlcmReviewCallback)(quorlcmTransport transport, const char* subject, quorlMsg message,
                                       void* closure);

/* The version of this library, as quorl_Version. */
QUORL_API const char* quorlcm_Version(void) QUORL_NOEXCEPT;

/* ---- transports ------------------------------------------------------------------------------------------------- */

/* Adds certified delivery to a transport, which must outlive it. cmName: the sender's and listener's lasting name, a subject
 * of at most 200 bytes without wildcards that does not begin with "_"; null for a name of the library's own that lasts as long
 * as the object. requestOld: whether messages that were sent to the name before are asked for. ledgerName: the ledger's file,
 * which is made where there is none, null for a ledger in memory. syncLedger: whether a send returns only when the message would
 * survive a power failure; without, it survives the end of the process. relayAgent: the name of a relay agent (quorl-relay), null for
 * none; the transport then hears and sends nothing until quorlcmTransport_ConnectToRelayAgent, and what was kept for its name is
 * always asked for.
 * QUORL_INVALID_TRANSPORT, QUORL_INVALID_NAME, QUORL_INVALID_ARG (a ledger without a name, a relay agent without a ledger, an empty
 * text), QUORL_FILE_NOT_FOUND (no such folder), QUORL_INVALID_FILE (no ledger, a damaged one, or one beside which another has left
 * its log or journal), QUORL_NOT_FILE_OWNER (in use, or of another name), QUORL_VERSION_MISMATCH (of a newer release),
 * QUORL_IO_FAILED. What is refused is left as it is, and nothing is left behind. */
QUORL_API quorl_status quorlcmTransport_Create(quorlcmTransport* cmTransport, quorlTransport transport,
                                               const char* cmName, quorl_bool requestOld, const char* ledgerName,
                                               quorl_bool syncLedger, const char* relayAgent) QUORL_NOEXCEPT;
/* Starts destruction and returns. */
QUORL_API quorl_status quorlcmTransport_Destroy(quorlcmTransport cmTransport) QUORL_NOEXCEPT;
/* Starts destruction; completion is called with closure when the library has finished with the transport and its ledger,
 * and is never called when this returns anything but QUORL_OK. */
QUORL_API quorl_status quorlcmTransport_DestroyEx(quorlcmTransport cmTransport, quorlcmTransportOnComplete completion,
                                                  const void* closure) QUORL_NOEXCEPT;

/* As their quorlTransport namesakes, with certified delivery. QUORL_OK: the message is kept, as safely as the ledger is, for each
 * listener that is registered or was added, until that one has confirmed it or its time limit has passed; a later failure of the
 * transport loses nothing. QUORL_QUEUE_LIMIT: as much is kept as may be (parameter certified.pending). QUORL_NOT_PERMITTED:
 * another program has the certified name. When the ledger takes nothing, its status, such as QUORL_IO_FAILED, and nothing that
 * was accepted is lost. A reply to an inbox is certified when its request was. */
QUORL_API quorl_status quorlcmTransport_Send(quorlcmTransport cmTransport, quorlMsg message) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlcmTransport_SendRequest(quorlcmTransport cmTransport, quorlMsg request, quorlMsg* reply,
                                                    quorl_f64 timeout) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlcmTransport_SendReply(quorlcmTransport cmTransport, quorlMsg reply,
                                                  quorlMsg request) QUORL_NOEXCEPT;

/* Lets the listener of that name register, or forbids it and ends its registrations. QUORL_INVALID_NAME. */
QUORL_API quorl_status quorlcmTransport_AllowListener(quorlcmTransport cmTransport, const char* cmName) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlcmTransport_DisallowListener(quorlcmTransport cmTransport,
                                                         const char* cmName) QUORL_NOEXCEPT;
/* Keeps messages on subject, which may be a pattern, for that listener from now on, before it has registered; or stops doing
 * so. QUORL_INVALID_NAME, QUORL_INVALID_SUBJECT, QUORL_QUEUE_LIMIT, QUORL_NOT_FOUND. */
QUORL_API quorl_status quorlcmTransport_AddListener(quorlcmTransport cmTransport, const char* cmName,
                                                    const char* subject) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlcmTransport_RemoveListener(quorlcmTransport cmTransport, const char* cmName,
                                                       const char* subject) QUORL_NOEXCEPT;
/* Forgets everything about subject in the ledger. */
QUORL_API quorl_status quorlcmTransport_RemoveSendState(quorlcmTransport cmTransport,
                                                        const char* subject) QUORL_NOEXCEPT;
/* Expires the messages on subject up to and with that number. */
QUORL_API quorl_status quorlcmTransport_ExpireMessages(quorlcmTransport cmTransport, const char* subject,
                                                       quorl_u64 sequenceNumber) QUORL_NOEXCEPT;
/* Returns when the ledger would survive a power failure. */
QUORL_API quorl_status quorlcmTransport_SyncLedger(quorlcmTransport cmTransport) QUORL_NOEXCEPT;
/* Puts the transport on the network; the relay agent stands in for it no longer, and what it has kept comes in. Waits up to 10
 * seconds for the relay agent's answer. Without effect when it is on the network. QUORL_TIMEOUT: there was no answer, and the
 * transport is still off the network. QUORL_IO_FAILED: the relay agent cannot. QUORL_INTR: the transport was destroyed meanwhile.
 * QUORL_NOT_PERMITTED: it has no relay agent. */
QUORL_API quorl_status quorlcmTransport_ConnectToRelayAgent(quorlcmTransport cmTransport) QUORL_NOEXCEPT;
/* Takes the transport off the network, and hands a copy of what it keeps over to the relay agent, which stands in for it from then on:
 * when this returns, the program may end. Sends are still accepted, for whoever is registered, and go out at the next connection.
 * Without effect when it is off the network. QUORL_TIMEOUT: the relay agent has said nothing for 10 seconds, QUORL_IO_FAILED: it cannot
 * stand in; either leaves the transport on the network. QUORL_INTR: the transport was destroyed meanwhile. QUORL_NOT_PERMITTED: it has no
 * relay agent. */
QUORL_API quorl_status quorlcmTransport_DisconnectFromRelayAgent(quorlcmTransport cmTransport) QUORL_NOEXCEPT;
/* Seconds after which messages sent from now on expire; 0 and infinite for never. QUORL_INVALID_ARG: negative or NaN. */
QUORL_API quorl_status quorlcmTransport_SetDefaultCMTimeLimit(quorlcmTransport cmTransport,
                                                              quorl_f64 timeLimit) QUORL_NOEXCEPT;
/* Seconds of silence after which a listener's state about a publisher is dropped; 0 for never. QUORL_INVALID_ARG: negative. */
QUORL_API quorl_status quorlcmTransport_SetPublisherInactivityDiscardInterval(quorlcmTransport cmTransport,
                                                                              quorl_i32 timeout) QUORL_NOEXCEPT;
/* Calls back for each subject that matches, on this thread, before it returns, with a message of these fields: "subject"
 * string; "first" and "last" u64, the oldest number that is kept (last + 1 when none is) and the last that was sent; "messages"
 * and "bytes" u64, what is kept; and "listeners", messages with "name" string, "confirmed_up_to" u64 (a number; it
 * has confirmed all messages up to that one), "unconfirmed" u64 (messages that are kept for it), "heard" f64 (when, in seconds
 * since 1970; 0 for never) and "registered" bool (false: it was added, and has not come yet). subject: a pattern, null for all.
 * QUORL_INVALID_CALLBACK (null), QUORL_INVALID_SUBJECT. */
QUORL_API quorl_status quorlcmTransport_ReviewLedger(quorlcmTransport cmTransport, quorlcmReviewCallback callback,
                                                     const char* subject, const void* closure) QUORL_NOEXCEPT;

/* ---- listeners -------------------------------------------------------------------------------------------------- */

/* Delivers the messages of certified senders in order, each once as far as the ledger reaches back, and others as they come.
 * A message counts as confirmed when its callback has returned, unless SetExplicitConfirm was called. QUORL_INVALID_QUEUE,
 * QUORL_INVALID_CALLBACK (null), QUORL_INVALID_TRANSPORT, QUORL_INVALID_SUBJECT (null or the system's too). */
QUORL_API quorl_status quorlcmEvent_CreateListener(quorlcmEvent* listener, quorlQueue queue,
                                                   quorlcmEventCallback callback, quorlcmTransport cmTransport,
                                                   const char* subject, const void* closure) QUORL_NOEXCEPT;
/* cancelAgreements: whether the senders forget this listener; completion may be null. */
QUORL_API quorl_status quorlcmEvent_DestroyEx(quorlcmEvent listener, quorl_bool cancelAgreements,
                                              quorlcmEventOnComplete completion) QUORL_NOEXCEPT;
/* From now on the program confirms each message itself with quorlcmEvent_ConfirmMsg. */
QUORL_API quorl_status quorlcmEvent_SetExplicitConfirm(quorlcmEvent listener) QUORL_NOEXCEPT;
/* When it returns, the message is not delivered again, also after a crash that the ledger survives. Confirming twice is no
 * error. QUORL_NOT_FOUND: the message is not certified, or its sender is forgotten. QUORL_NOT_PERMITTED: it is another
 * listener's, or SetExplicitConfirm was not called. QUORL_INVALID_MSG. */
QUORL_API quorl_status quorlcmEvent_ConfirmMsg(quorlcmEvent listener, quorlMsg message) QUORL_NOEXCEPT;

/* ---- attributes of certified messages --------------------------------------------------------------------------- */

/* Of a message that a certified listener was given, or that was sent: the last send counts. QUORL_NOT_FOUND: the message carries
 * no such attribute. The name belongs to the message. */
QUORL_API quorl_status quorlMsg_GetCMSender(quorlMsg message, const char** sender) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetCMSequence(quorlMsg message, quorl_u64* sequence) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetCMTimeLimit(quorlMsg message, quorl_f64* timeLimit) QUORL_NOEXCEPT;
/* Seconds, 0 and infinite for never; before the message is sent by quorlcmTransport_Send. It stays with the message and goes
 * with its copies. QUORL_INVALID_ARG: negative or NaN. */
QUORL_API quorl_status quorlMsg_SetCMTimeLimit(quorlMsg message, quorl_f64 timeLimit) QUORL_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
