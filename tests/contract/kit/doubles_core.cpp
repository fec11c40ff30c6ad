// Doubles of libquorl: environment, queues, events, transports and circuits.
#include "kit/doubles.h"

using contract::callback;
using contract::closure;
using contract::out;

#define ADDRESS(function) reinterpret_cast<const void*>(function)

// ---- environment ----
QUORL_DOUBLE(quorl_status, quorl_Open, (), (), ())
QUORL_DOUBLE(quorl_status, quorl_OpenEx, (const char* path), (path), (path))
QUORL_DOUBLE(quorl_status, quorl_Close, (), (), ())
QUORL_DOUBLE(const char*, quorl_Version, (), (), ())
QUORL_DOUBLE(quorl_status, quorl_SetQRParameters, (quorl_u32 count, const char** parameters), (count, parameters),
             (count, contract::array(parameters, count)))
QUORL_DOUBLE(quorl_bool, quorl_IsIPM, (), (), ())
QUORL_DOUBLE(void, quorl_DisableQRDMReadyCheck, (), (), ())

// ---- queues and groups ----
QUORL_DOUBLE(quorl_status, quorlQueue_Create, (quorlQueue * queue), (queue), (out(queue)))
QUORL_DOUBLE(quorl_status, quorlQueue_DestroyEx, (quorlQueue queue, quorlQueueOnComplete done, const void* closure),
             (queue, done, closure), (queue, callback(ADDRESS(done)), contract::closure(closure)))
QUORL_DOUBLE(quorl_status, quorlQueue_SetName, (quorlQueue queue, const char* name), (queue, name), (queue, name))
QUORL_DOUBLE(quorl_status, quorlQueue_GetName, (quorlQueue queue, const char** name), (queue, name), (queue, out(name)))
QUORL_DOUBLE(quorl_status, quorlQueue_GetCount, (quorlQueue queue, quorl_u32* count), (queue, count),
             (queue, out(count)))
QUORL_DOUBLE(quorl_status, quorlQueue_TimedDispatch, (quorlQueue queue, quorl_f64 timeout), (queue, timeout),
             (queue, timeout))
QUORL_DOUBLE(quorl_status, quorlQueue_SetPriority, (quorlQueue queue, quorl_u32 priority), (queue, priority),
             (queue, priority))
QUORL_DOUBLE(quorl_status, quorlQueue_GetPriority, (quorlQueue queue, quorl_u32* priority), (queue, priority),
             (queue, out(priority)))
QUORL_DOUBLE(quorl_status, quorlQueue_SetLimitPolicy,
             (quorlQueue queue, quorlQueueLimitPolicy policy, quorl_u32 most, quorl_u32 discard),
             (queue, policy, most, discard), (queue, policy, most, discard))
QUORL_DOUBLE(quorl_status, quorlQueue_GetLimitPolicy,
             (quorlQueue queue, quorlQueueLimitPolicy* policy, quorl_u32* most, quorl_u32* discard),
             (queue, policy, most, discard), (queue, out(policy), out(most), out(discard)))
QUORL_DOUBLE(quorl_status, quorlQueueGroup_Create, (quorlQueueGroup * group), (group), (out(group)))
QUORL_DOUBLE(quorl_status, quorlQueueGroup_Destroy, (quorlQueueGroup group), (group), (group))
QUORL_DOUBLE(quorl_status, quorlQueueGroup_Add, (quorlQueueGroup group, quorlQueue queue), (group, queue),
             (group, queue))
QUORL_DOUBLE(quorl_status, quorlQueueGroup_Remove, (quorlQueueGroup group, quorlQueue queue), (group, queue),
             (group, queue))
QUORL_DOUBLE(quorl_status, quorlQueueGroup_TimedDispatch, (quorlQueueGroup group, quorl_f64 timeout), (group, timeout),
             (group, timeout))

// ---- events ----
QUORL_DOUBLE(quorl_status, quorlEvent_CreateListener,
             (quorlEvent * event, quorlQueue queue, quorlEventCallback function, quorlTransport transport,
              const char* subject, const void* closure),
             (event, queue, function, transport, subject, closure),
             (out(event), queue, callback(ADDRESS(function)), transport, subject, contract::closure(closure)))
QUORL_DOUBLE(quorl_status, quorlEvent_CreateGroupVectorListener,
             (quorlEvent * event, quorlQueue queue, quorlEventVectorCallback function, quorlTransport transport,
              const char* subject, const void* closure, const void* group),
             (event, queue, function, transport, subject, closure, group),
             (out(event), queue, callback(ADDRESS(function)), transport, subject, contract::closure(closure),
              reinterpret_cast<intptr_t>(group)))
QUORL_DOUBLE(quorl_status, quorlEvent_CreateTimer,
             (quorlEvent * event, quorlQueue queue, quorlEventCallback function, quorl_f64 interval,
              const void* closure),
             (event, queue, function, interval, closure),
             (out(event), queue, callback(ADDRESS(function)), interval, contract::closure(closure)))
QUORL_DOUBLE(quorl_status, quorlEvent_GetTimerInterval, (quorlEvent timer, quorl_f64* interval), (timer, interval),
             (timer, out(interval)))
QUORL_DOUBLE(quorl_status, quorlEvent_ResetTimerInterval, (quorlEvent timer, quorl_f64 interval), (timer, interval),
             (timer, interval))
QUORL_DOUBLE(quorl_status, quorlEvent_DestroyEx, (quorlEvent event, quorlEventOnComplete done), (event, done),
             (event, callback(ADDRESS(done))))

// ---- transports ----
QUORL_DOUBLE(quorl_status, quorlTransport_Create,
             (quorlTransport * transport, const char* service, const char* network, const char* daemon),
             (transport, service, network, daemon), (out(transport), service, network, daemon))
QUORL_DOUBLE(quorl_status, quorlTransport_Destroy, (quorlTransport transport), (transport), (transport))
QUORL_DOUBLE(quorl_status, quorlTransport_SetDescription, (quorlTransport transport, const char* description),
             (transport, description), (transport, description))
QUORL_DOUBLE(quorl_status, quorlTransport_RequestReliability, (quorlTransport transport, quorl_f64 reliability),
             (transport, reliability), (transport, reliability))
QUORL_DOUBLE(quorl_status, quorlTransport_SetBatchMode, (quorlTransport transport, quorlTransportBatchMode mode),
             (transport, mode), (transport, mode))
QUORL_DOUBLE(quorl_status, quorlTransport_SetBatchSize, (quorlTransport transport, quorl_u32 size), (transport, size),
             (transport, size))
QUORL_DOUBLE(quorl_status, quorlTransport_CreateInbox, (quorlTransport transport, char* subject, quorl_u32 limit),
             (transport, subject, limit), (transport, out(subject), limit))
QUORL_DOUBLE(quorl_status, quorlTransport_Send, (quorlTransport transport, quorlMsg message), (transport, message),
             (transport, message))
QUORL_DOUBLE(quorl_status, quorlTransport_Sendv, (quorlTransport transport, const quorlMsg* messages, quorl_u32 count),
             (transport, messages, count), (transport, contract::array(messages, count), count))
QUORL_DOUBLE(quorl_status, quorlTransport_SendRequest,
             (quorlTransport transport, quorlMsg request, quorlMsg* reply, quorl_f64 timeout),
             (transport, request, reply, timeout), (transport, request, out(reply), timeout))
QUORL_DOUBLE(quorl_status, quorlTransport_SendReply, (quorlTransport transport, quorlMsg reply, quorlMsg request),
             (transport, reply, request), (transport, reply, request))

// ---- circuits ----
QUORL_DOUBLE(quorl_status, quorlTransport_CreateAcceptVc,
             (quorlTransport * circuit, const char** subject, quorlTransport parent), (circuit, subject, parent),
             (out(circuit), out(subject), parent))
QUORL_DOUBLE(quorl_status, quorlTransport_CreateConnectVc,
             (quorlTransport * circuit, const char* subject, quorlTransport parent), (circuit, subject, parent),
             (out(circuit), subject, parent))
QUORL_DOUBLE(quorl_status, quorlTransport_WaitForVcConnection, (quorlTransport circuit, quorl_f64 timeout),
             (circuit, timeout), (circuit, timeout))
