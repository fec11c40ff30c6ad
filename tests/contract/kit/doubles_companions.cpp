// Doubles of the companion libraries: certified delivery, distributed queues, fault tolerance, secure daemons.
#include "kit/doubles.h"

using contract::callback;
using contract::out;

#define ADDRESS(function) reinterpret_cast<const void*>(function)

QUORL_DOUBLE(const char*, quorlcm_Version, (), (), ())
QUORL_DOUBLE(const char*, quorlft_Version, (), (), ())

// ---- certified transports ----
QUORL_DOUBLE(quorl_status, quorlcmTransport_Create,
             (quorlcmTransport * made, quorlTransport transport, const char* name, quorl_bool old, const char* ledger,
              quorl_bool sync, const char* relay),
             (made, transport, name, old, ledger, sync, relay), (out(made), transport, name, old, ledger, sync, relay))
QUORL_DOUBLE(quorl_status, quorlcmTransport_Destroy, (quorlcmTransport transport), (transport), (transport))
QUORL_DOUBLE(quorl_status, quorlcmTransport_DestroyEx,
             (quorlcmTransport transport, quorlcmTransportOnComplete done, const void* closure),
             (transport, done, closure),
             (transport, callback(ADDRESS(done)), std::string(closure == nullptr ? "null" : "guard")))
QUORL_DOUBLE(quorl_status, quorlcmTransport_Send, (quorlcmTransport transport, quorlMsg message), (transport, message),
             (transport, message))
QUORL_DOUBLE(quorl_status, quorlcmTransport_SendRequest,
             (quorlcmTransport transport, quorlMsg request, quorlMsg* reply, quorl_f64 timeout),
             (transport, request, reply, timeout), (transport, request, out(reply), timeout))
QUORL_DOUBLE(quorl_status, quorlcmTransport_SendReply, (quorlcmTransport transport, quorlMsg reply, quorlMsg request),
             (transport, reply, request), (transport, reply, request))
QUORL_DOUBLE(quorl_status, quorlcmTransport_AllowListener, (quorlcmTransport transport, const char* name),
             (transport, name), (transport, name))
QUORL_DOUBLE(quorl_status, quorlcmTransport_DisallowListener, (quorlcmTransport transport, const char* name),
             (transport, name), (transport, name))
QUORL_DOUBLE(quorl_status, quorlcmTransport_AddListener,
             (quorlcmTransport transport, const char* name, const char* subject), (transport, name, subject),
             (transport, name, subject))
QUORL_DOUBLE(quorl_status, quorlcmTransport_RemoveListener,
             (quorlcmTransport transport, const char* name, const char* subject), (transport, name, subject),
             (transport, name, subject))
QUORL_DOUBLE(quorl_status, quorlcmTransport_RemoveSendState, (quorlcmTransport transport, const char* subject),
             (transport, subject), (transport, subject))
QUORL_DOUBLE(quorl_status, quorlcmTransport_ExpireMessages,
             (quorlcmTransport transport, const char* subject, quorl_u64 sequence), (transport, subject, sequence),
             (transport, subject, sequence))
QUORL_DOUBLE(quorl_status, quorlcmTransport_SyncLedger, (quorlcmTransport transport), (transport), (transport))
QUORL_DOUBLE(quorl_status, quorlcmTransport_ConnectToRelayAgent, (quorlcmTransport transport), (transport), (transport))
QUORL_DOUBLE(quorl_status, quorlcmTransport_DisconnectFromRelayAgent, (quorlcmTransport transport), (transport),
             (transport))
QUORL_DOUBLE(quorl_status, quorlcmTransport_SetDefaultCMTimeLimit, (quorlcmTransport transport, quorl_f64 limit),
             (transport, limit), (transport, limit))
QUORL_DOUBLE(quorl_status, quorlcmTransport_SetPublisherInactivityDiscardInterval,
             (quorlcmTransport transport, quorl_i32 timeout), (transport, timeout), (transport, timeout))
QUORL_DOUBLE(quorl_status, quorlcmTransport_ReviewLedger,
             (quorlcmTransport transport, quorlcmReviewCallback function, const char* subject, const void* closure),
             (transport, function, subject, closure),
             (transport, callback(ADDRESS(function)), subject, contract::closure(closure)))

// ---- certified listeners and attributes ----
QUORL_DOUBLE(quorl_status, quorlcmEvent_CreateListener,
             (quorlcmEvent * event, quorlQueue queue, quorlcmEventCallback function, quorlcmTransport transport,
              const char* subject, const void* closure),
             (event, queue, function, transport, subject, closure),
             (out(event), queue, callback(ADDRESS(function)), transport, subject, contract::closure(closure)))
QUORL_DOUBLE(quorl_status, quorlcmEvent_DestroyEx, (quorlcmEvent event, quorl_bool cancel, quorlcmEventOnComplete done),
             (event, cancel, done), (event, cancel, callback(ADDRESS(done))))
QUORL_DOUBLE(quorl_status, quorlcmEvent_SetExplicitConfirm, (quorlcmEvent event), (event), (event))
QUORL_DOUBLE(quorl_status, quorlcmEvent_ConfirmMsg, (quorlcmEvent event, quorlMsg message), (event, message),
             (event, message))
QUORL_DOUBLE(quorl_status, _quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages, (quorl_u32 event), (event),
             (event))
QUORL_DOUBLE(quorl_status, quorlMsg_GetCMSender, (quorlMsg message, const char** sender), (message, sender),
             (message, out(sender)))
QUORL_DOUBLE(quorl_status, quorlMsg_GetCMSequence, (quorlMsg message, quorl_u64* sequence), (message, sequence),
             (message, out(sequence)))
QUORL_DOUBLE(quorl_status, quorlMsg_GetCMTimeLimit, (quorlMsg message, quorl_f64* limit), (message, limit),
             (message, out(limit)))
QUORL_DOUBLE(quorl_status, quorlMsg_SetCMTimeLimit, (quorlMsg message, quorl_f64 limit), (message, limit),
             (message, limit))

// ---- distributed queues ----
QUORL_DOUBLE(quorl_status, quorlcmTransport_CreateDistributedQueueEx,
             (quorlcmTransport * made, quorlTransport transport, const char* name, quorl_u32 weight, quorl_u32 tasks,
              quorl_u16 scheduler, quorl_f64 heartbeat, quorl_f64 activation),
             (made, transport, name, weight, tasks, scheduler, heartbeat, activation),
             (out(made), transport, name, weight, tasks, scheduler, heartbeat, activation))
QUORL_DOUBLE(quorl_status, quorlcmTransport_SetCompleteTime, (quorlcmTransport transport, quorl_f64 seconds),
             (transport, seconds), (transport, seconds))
QUORL_DOUBLE(quorl_status, quorlcmTransport_SetTaskBacklogLimit,
             (quorlcmTransport transport, quorl_u32 kind, quorl_u32 limit), (transport, kind, limit),
             (transport, kind, limit))
QUORL_DOUBLE(quorl_status, quorlcmTransport_SetWorkerWeight, (quorlcmTransport transport, quorl_u32 weight),
             (transport, weight), (transport, weight))
QUORL_DOUBLE(quorl_status, quorlcmTransport_SetWorkerTasks, (quorlcmTransport transport, quorl_u32 tasks),
             (transport, tasks), (transport, tasks))
QUORL_DOUBLE(quorl_status, quorlcmTransport_GetUnassignedMessageCount, (quorlcmTransport transport, quorl_u32* count),
             (transport, count), (transport, out(count)))
QUORL_DOUBLE(quorl_status, _quorlcmq_Complete,
             (void* record, quorl_u32 a, quorl_u32 b, quorl_u32 c, quorl_u32 d, quorl_u32 e, quorl_u32 number),
             (record, a, b, c, d, e, number), (contract::handle(record), a, b, c, d, e, number))

// ---- fault tolerance ----
QUORL_DOUBLE(quorl_status, quorlftMember_Create,
             (quorlftMember * made, quorlQueue queue, quorlftMemberCallback function, quorlTransport transport,
              const char* group, quorl_u16 weight, quorl_u16 goal, quorl_f64 heartbeat, quorl_f64 preparation,
              quorl_f64 activation, const void* closure),
             (made, queue, function, transport, group, weight, goal, heartbeat, preparation, activation, closure),
             (out(made), queue, callback(ADDRESS(function)), transport, group, weight, goal, heartbeat, preparation,
              activation, contract::closure(closure)))
QUORL_DOUBLE(quorl_status, quorlftMember_Destroy, (quorlftMember member), (member), (member))
QUORL_DOUBLE(quorl_status, quorlftMember_SetWeight, (quorlftMember member, quorl_u16 weight), (member, weight),
             (member, weight))
QUORL_DOUBLE(quorl_status, quorlftMonitor_Create,
             (quorlftMonitor * made, quorlQueue queue, quorlftMonitorCallback function, quorlTransport transport,
              const char* group, quorl_f64 lost, const void* closure),
             (made, queue, function, transport, group, lost, closure),
             (out(made), queue, callback(ADDRESS(function)), transport, group, lost, contract::closure(closure)))
QUORL_DOUBLE(quorl_status, quorlftMonitor_Destroy, (quorlftMonitor monitor), (monitor), (monitor))

// ---- secure daemons ----
QUORL_DOUBLE(quorl_status, quorlSecureDaemon_SetDaemonCert, (const char* name, const char* certificate),
             (name, certificate), (name, certificate))
QUORL_DOUBLE(quorl_status, quorlSecureDaemon_SetUserCertWithKey, (const char* certificate, const char* password),
             (certificate, password), (certificate, password))
QUORL_DOUBLE(quorl_status, quorlSecureDaemon_SetUserCertWithKeyBin,
             (const void* certificate, quorl_u32 size, const char* password), (certificate, size, password),
             (contract::block(certificate, size), size, password))
QUORL_DOUBLE(quorl_status, quorlSecureDaemon_SetUserNameWithPassword, (const char* user, const char* password),
             (user, password), (user, password))
