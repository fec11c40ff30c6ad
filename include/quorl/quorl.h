/* quorl.h: the C interface of the Quorl messaging library: environment, queues, events, transports, messages.
 *
 * A program opens the library, makes a transport, listens on a subject with a queue, and dispatches the queue:
 *
 *     quorl_Open();
 *     quorlTransport transport;
 *     quorlTransport_Create(&transport, NULL, NULL, NULL);             // a port on the bus of this process
 *     quorlEvent listener;
 *     quorlEvent_CreateListener(&listener, QUORL_DEFAULT_QUEUE, onMessage, transport, "plant.*.temp", NULL);
 *
 *     quorlMsg message;
 *     quorlMsg_Create(&message);
 *     quorlMsg_SetSendSubject(message, "plant.line3.temp");
 *     quorlMsg_AddF64Ex(message, "celsius", 71.5, 0);
 *     quorlTransport_Send(transport, message);
 *     quorlMsg_Destroy(message);
 *
 *     quorlQueue_TimedDispatch(QUORL_DEFAULT_QUEUE, 1.0);               // runs onMessage on this thread
 *     quorl_Close();
 *
 * Rules that hold for every function unless its own text says otherwise:
 *
 * Results.     Every function that can fail returns a quorl_status; out-parameters are written only when it is QUORL_OK.
 *              quorl_LastErrorText() gives the calling thread's detail of the last failure.
 * Not open.    A function that needs the environment returns QUORL_NOT_INITIALIZED before quorl_Open and after the last
 *              quorl_Close. Message functions need no open environment.
 * Bad ids.     Any 32-bit value is safe as an id and any 64-bit value as a message handle: one that names no live object
 *              of the right type is refused with the status of its kind (QUORL_INVALID_QUEUE, QUORL_INVALID_EVENT,
 *              QUORL_INVALID_TRANSPORT, QUORL_INVALID_QUEUE_GROUP, QUORL_INVALID_MSG). A stale id never names a newer object.
 * Null.        A null out-parameter is QUORL_INVALID_ARG. Null strings are legal only where the text says so.
 * Forks.       In the child of a fork that happened while the library was open, every call that can fail is refused with
 *              QUORL_NOT_PERMITTED, quorl_Open and quorl_Close and those on messages included, and takes no lock; nothing
 *              of the parent's is touched. quorlStatus_GetText, quorl_LastErrorText, quorl_Version and exec are as ever. A
 *              child that was forked while the library was closed, and no thread was in a call, may open it for itself.
 * Threads.     Every function may be called from any thread at any time, also inside callbacks, except that one message
 *              handle must not be used by two threads at once.
 * Strings.     Zero-terminated UTF-8. Strings given to the library are copied. Strings that it gives out belong to the
 *              object that they were read from and live until that object is changed or destroyed.
 * Time.        Seconds as double. Negative and infinite mean for ever where a function waits. NaN is QUORL_INVALID_ARG.
 */
#ifndef QUORL_QUORL_H
#define QUORL_QUORL_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define QUORL_API __attribute__((visibility("default")))
#else
#define QUORL_API
#endif

/* No function throws. The library itself is built with noexcept here; a program need not be. */
#ifndef QUORL_NOEXCEPT
#define QUORL_NOEXCEPT
#endif

#ifdef __cplusplus
#define QUORL_ENUM(name) enum name : int
extern "C" {
#else
#define QUORL_ENUM(name) enum name
#endif

/* ---- plain types ------------------------------------------------------------------------------------------------ */

typedef int8_t quorl_i8;
typedef uint8_t quorl_u8;
typedef int16_t quorl_i16;
typedef uint16_t quorl_u16;
typedef int32_t quorl_i32;
typedef uint32_t quorl_u32;
typedef int64_t quorl_i64;
typedef uint64_t quorl_u64;
typedef float quorl_f32;
typedef double quorl_f64;
typedef quorl_u16 quorl_ipport16; /* an IP port in network byte order */
typedef quorl_u32 quorl_ipaddr32; /* an IPv4 address in network byte order */

/* A truth value, 32 bits wide. */
typedef QUORL_ENUM(quorl_bool){QUORL_FALSE = 0, QUORL_TRUE = 1} quorl_bool;

/* Object ids: 0 means none. Beside the default queue at most 4,194,302 queues, groups, events and transports exist at once
 * in a process; one more is QUORL_NO_MEMORY. The id of a destroyed object is free again shortly after its completion is
 * called or would be: when its callbacks in progress have returned and references to it are given back. */
typedef quorl_u32 quorlQueue;
typedef quorl_u32 quorlQueueGroup;
typedef quorl_u32 quorlEvent;
typedef quorl_u32 quorlTransport;

/* A message handle. Opaque: the value is not an address and is never dereferenced. 0 means none. */
typedef struct quorlMsg_tag* quorlMsg;

/* The queue that opening the library creates. It cannot be destroyed, only closed with the library. */
#define QUORL_DEFAULT_QUEUE ((quorlQueue)1)

/* Bounds of the format and of the interface. */
#define QUORL_SUBJECT_MAX 254                      /* bytes of a subject, without the terminator */
#define QUORL_FIELD_NAME_MAX 127                   /* bytes of a field name, without the terminator */
#define QUORL_MSG_MAX_DEPTH 64                     /* messages inside messages */
#define QUORL_MSG_MAX_SIZE (1024u * 1024u * 1024u) /* bytes of a message's wire image */
#define QUORL_VECTOR_MAX 128                       /* messages in one call of a vector callback */

/* ---- statuses --------------------------------------------------------------------------------------------------- */

/* The outcome of a call. The numbers are part of the interface; the gaps are too. */
/* clang-format off */
typedef QUORL_ENUM(quorl_status){
    QUORL_OK = 0,
    QUORL_INIT_FAILURE = 1,
    QUORL_INVALID_TRANSPORT = 2,
    QUORL_INVALID_ARG = 3,
    QUORL_NOT_INITIALIZED = 4,
    QUORL_ARG_CONFLICT = 5,
    QUORL_SERVICE_NOT_FOUND = 16,
    QUORL_NETWORK_NOT_FOUND = 17,
    QUORL_DAEMON_NOT_FOUND = 18,
    QUORL_NO_MEMORY = 19,
    QUORL_INVALID_SUBJECT = 20,
    QUORL_DAEMON_NOT_CONNECTED = 21,
    QUORL_VERSION_MISMATCH = 22,
    QUORL_SUBJECT_COLLISION = 23,
    QUORL_VC_NOT_CONNECTED = 24,
    QUORL_NOT_PERMITTED = 27,
    QUORL_INVALID_NAME = 30,
    QUORL_INVALID_TYPE = 31,
    QUORL_INVALID_SIZE = 32,
    QUORL_INVALID_COUNT = 33,
    QUORL_NOT_FOUND = 35,
    QUORL_ID_IN_USE = 36,
    QUORL_ID_CONFLICT = 37,
    QUORL_CONVERSION_FAILED = 38,
    QUORL_RESERVED_HANDLER = 39,
    QUORL_ENCODER_FAILED = 40,
    QUORL_DECODER_FAILED = 41,
    QUORL_INVALID_MSG = 42,
    QUORL_INVALID_FIELD = 43,
    QUORL_INVALID_INSTANCE = 44,
    QUORL_CORRUPT_MSG = 45,
    QUORL_ENCODING_MISMATCH = 46,
    QUORL_TIMEOUT = 50,
    QUORL_INTR = 51,
    QUORL_INVALID_DISPATCHABLE = 52,
    QUORL_INVALID_DISPATCHER = 53,
    QUORL_INVALID_EVENT = 60,
    QUORL_INVALID_CALLBACK = 61,
    QUORL_INVALID_QUEUE = 62,
    QUORL_INVALID_QUEUE_GROUP = 63,
    QUORL_INVALID_TIME_INTERVAL = 64,
    QUORL_INVALID_IO_SOURCE = 65,
    QUORL_INVALID_IO_CONDITION = 66,
    QUORL_SOCKET_LIMIT = 67,
    QUORL_OS_ERROR = 68,
    QUORL_INSUFFICIENT_BUFFER = 70,
    QUORL_EOF = 71,
    QUORL_INVALID_FILE = 72,
    QUORL_FILE_NOT_FOUND = 73,
    QUORL_IO_FAILED = 74,
    QUORL_NOT_FILE_OWNER = 80,
    QUORL_USERPASS_MISMATCH = 81,
    QUORL_TOO_MANY_NEIGHBORS = 90,
    QUORL_ALREADY_EXISTS = 91,
    QUORL_PORT_BUSY = 100,
    QUORL_DELIVERY_FAILED = 101,
    QUORL_QUEUE_LIMIT = 102,
    QUORL_INVALID_CONTENT_DESC = 110,
    QUORL_INVALID_SERIALIZED_BUFFER = 111,
    QUORL_DESCRIPTOR_NOT_FOUND = 115,
    QUORL_CORRUPT_SERIALIZED_BUFFER = 116,
    QUORL_IPM_ONLY = 117
} quorl_status;
/* clang-format on */

/* One sentence in English for a status, never null; an unknown number gives "Unknown status". Static storage. */
QUORL_API const char* quorlStatus_GetText(quorl_status status) QUORL_NOEXCEPT;

/* The calling thread's detail text of the last call that failed on it, with the reasons of the levels below joined in
 * ("connect nats://...: no answer after 2.0 s"). Never null, empty when nothing has failed. A call that succeeds leaves it
 * as it is. Valid until the next failing call on this thread. */
QUORL_API const char* quorl_LastErrorText(void) QUORL_NOEXCEPT;

/* ---- environment ------------------------------------------------------------------------------------------------ */

/* Opens the library for this process, or counts one more open. Creates the default queue (id 1).
 * QUORL_INIT_FAILURE: a thread or a resource of the system could not be had; QUORL_NO_MEMORY. */
QUORL_API quorl_status quorl_Open(void) QUORL_NOEXCEPT;

/* Reads in-process parameters from a file, one name=value a line ('#' starts a comment, blank lines are skipped), then
 * opens as quorl_Open does. pathname: not null; an empty path means no file. When the library is open already, or a
 * parameter was set before, the file must not say otherwise.
 * QUORL_FILE_NOT_FOUND, QUORL_IO_FAILED, QUORL_INVALID_FILE (a line that is no parameter, which the detail
 * names, also one of more than 4,094 bytes; not a regular file, such as a folder or a pipe; larger than 1 MiB),
 * QUORL_ARG_CONFLICT (a line that says otherwise); on failure the open count is unchanged. */
QUORL_API quorl_status quorl_OpenEx(const char* pathname) QUORL_NOEXCEPT;

/* Takes back one open. The last one destroys everything that is left, in order (events, groups, queues, transports),
 * waits until no callback runs and no thread dispatches, and frees the library's threads. Messages stay valid: they are
 * their holders' to destroy. QUORL_DAEMON_NOT_CONNECTED: the library is closed, and messages that daemons did not have yet
 * when their transports were destroyed, at any time since it was opened, were dropped or may not have arrived; the detail
 * says how many. What a connection lost earlier was told when it was lost, and is not among them.
 * QUORL_NOT_PERMITTED when the last close is called from inside a callback (it would wait for itself);
 * QUORL_NOT_INITIALIZED when not open. */
QUORL_API quorl_status quorl_Close(void) QUORL_NOEXCEPT;

/* The version of the library, "MAJOR.MINOR.PATCH". Programs built against another MAJOR must not use this library. */
QUORL_API const char* quorl_Version(void) QUORL_NOEXCEPT;

/* Sets in-process parameters, name=value strings, before the library is opened. count 0 changes nothing, at any time.
 * All of them are checked before any is set. Names: docs/reference/parameters.md.
 * QUORL_NOT_PERMITTED: the library is open; QUORL_INVALID_ARG: unknown name, bad value (also a daemon's address that is
 * malformed), or a null entry (see the detail). */
QUORL_API quorl_status quorl_SetQRParameters(quorl_u32 count, const char** parameters) QUORL_NOEXCEPT;

/* Whether the library is open with the messaging engine in this process, that is, with no default daemon. */
QUORL_API quorl_bool quorl_IsIPM(void) QUORL_NOEXCEPT;

/* Makes transports that are created from now on skip waiting for the daemon to say that it is ready to carry messages.
 * Without effect on the embedded bus, which is always ready. */
QUORL_API void quorl_DisableQRDMReadyCheck(void) QUORL_NOEXCEPT;

/* ---- queues ----------------------------------------------------------------------------------------------------- */

/* What a full queue does with events. */
/* clang-format off */
typedef QUORL_ENUM(quorlQueueLimitPolicy){
    QUORLQUEUE_DISCARD_NONE = 0,  /* no limit: the queue grows */
    QUORLQUEUE_DISCARD_FIRST = 1, /* the oldest events give way */
    QUORLQUEUE_DISCARD_LAST = 2,  /* the newest events in the queue give way */
    QUORLQUEUE_DISCARD_NEW = 3    /* the arriving event is dropped */
} quorlQueueLimitPolicy;
/* clang-format on */

/* Called once, on a thread of the library, when a destroyed queue has no callback in progress and no reference left. */
typedef void (*quorlQueueOnComplete)(quorlQueue queue, void* closure);

/* Creates a queue with no limit, priority 1 and no name. Destroy it with quorlQueue_DestroyEx. */
QUORL_API quorl_status quorlQueue_Create(quorlQueue* queue) QUORL_NOEXCEPT;

/* Destroys a queue with its events that wait; its listeners and timers get no more events. Threads blocked in a dispatch
 * of it return QUORL_INVALID_QUEUE; callbacks in progress finish. Returns without waiting for them; completion (may be
 * null) is called with closure when they have. The default queue is refused with QUORL_NOT_PERMITTED. */
QUORL_API quorl_status quorlQueue_DestroyEx(quorlQueue queue, quorlQueueOnComplete completion,
                                            const void* closure) QUORL_NOEXCEPT;

/* Names a queue (UTF-8, not null, at most 255 bytes, for advisories and statistics). QUORL_INVALID_ARG when it does not fit,
 * QUORL_INVALID_NAME when it is not UTF-8. */
QUORL_API quorl_status quorlQueue_SetName(quorlQueue queue, const char* name) QUORL_NOEXCEPT;
/* The queue's name, "" when it has none. Owned by the queue, valid until it is renamed or destroyed. */
QUORL_API quorl_status quorlQueue_GetName(quorlQueue queue, const char** name) QUORL_NOEXCEPT;

/* The number of events that wait in the queue. An event whose callback runs is no longer counted. */
QUORL_API quorl_status quorlQueue_GetCount(quorlQueue queue, quorl_u32* count) QUORL_NOEXCEPT;

/* Runs the callback of at most one event of the queue on this thread, waiting up to timeout seconds for one: negative
 * waits for ever, 0 polls. QUORL_TIMEOUT: none came in time; QUORL_INTR: the wait was interrupted by a signal
 * (private.h); QUORL_INVALID_QUEUE: no such queue, or destroyed during the wait. */
QUORL_API quorl_status quorlQueue_TimedDispatch(quorlQueue queue, quorl_f64 timeout) QUORL_NOEXCEPT;

/* The queue's priority in its groups, 0 to 4294967295, higher first; 1 at the start. No value is refused. */
QUORL_API quorl_status quorlQueue_SetPriority(quorlQueue queue, quorl_u32 priority) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlQueue_GetPriority(quorlQueue queue, quorl_u32* priority) QUORL_NOEXCEPT;

/* Limits the queue to maxEvents waiting events. When an event arrives at a full queue, FIRST and LAST drop discardAmount
 * events from their end and take the new one, NEW drops the new one. What waits beyond a lowered limit is dropped at once,
 * the oldest with FIRST, the newest otherwise. With NONE both numbers must be 0. Advisories tell when dropping begins and
 * ends, or when a queue without a limit has grown beyond its mark (docs/reference/advisories.md).
 * QUORL_INVALID_ARG: unknown policy, or with a limit: maxEvents 0, discardAmount 0 or above maxEvents. */
QUORL_API quorl_status quorlQueue_SetLimitPolicy(quorlQueue queue, quorlQueueLimitPolicy policy, quorl_u32 maxEvents,
                                                 quorl_u32 discardAmount) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlQueue_GetLimitPolicy(quorlQueue queue, quorlQueueLimitPolicy* policy, quorl_u32* maxEvents,
                                                 quorl_u32* discardAmount) QUORL_NOEXCEPT;

/* ---- queue groups ----------------------------------------------------------------------------------------------- */

QUORL_API quorl_status quorlQueueGroup_Create(quorlQueueGroup* group) QUORL_NOEXCEPT;
/* Destroys a group, not its queues. Threads blocked in a dispatch of it return QUORL_INVALID_QUEUE_GROUP. */
QUORL_API quorl_status quorlQueueGroup_Destroy(quorlQueueGroup group) QUORL_NOEXCEPT;
/* Adds a queue; a queue may be in any number of groups. QUORL_ALREADY_EXISTS when it is in this one; QUORL_INVALID_QUEUE
 * for anything but a queue: groups hold no groups. */
QUORL_API quorl_status quorlQueueGroup_Add(quorlQueueGroup group, quorlQueue queue) QUORL_NOEXCEPT;
/* Takes a queue out. QUORL_INVALID_QUEUE when it is not in the group. */
QUORL_API quorl_status quorlQueueGroup_Remove(quorlQueueGroup group, quorlQueue queue) QUORL_NOEXCEPT;
/* As quorlQueue_TimedDispatch over all queues of the group: the highest non-empty priority first, in turn among equals. */
QUORL_API quorl_status quorlQueueGroup_TimedDispatch(quorlQueueGroup group, quorl_f64 timeout) QUORL_NOEXCEPT;

/* ---- events ----------------------------------------------------------------------------------------------------- */

/* Runs on the thread that dispatches the event's queue, with no lock of the library held. A message that the callback
 * does not detach (quorlMsg_Detach) is destroyed after it. For timers the message is null. */
typedef void (*quorlEventCallback)(quorlEvent event, quorlMsg message, void* closure);

/* As quorlEventCallback, with up to QUORL_VECTOR_MAX messages of the listeners of one group, in the order of arrival.
 * The array is the callback's to reorder: a message set to null is left alone, any other not detached is destroyed after. */
typedef void (*quorlEventVectorCallback)(quorlMsg* messages, quorl_u32 size);

/* Called once, on a thread of the library, when a destroyed event has no callback in progress and no reference left. */
typedef void (*quorlEventOnComplete)(quorlEvent event, void* closure);

/* Listens: every message that the transport carries on a matching subject becomes an event of the queue.
 * subject: 1 to QUORL_SUBJECT_MAX bytes, elements separated by '.', '*' for one element, a last '>' for one or more;
 * a subject that starts with '_' is the system's: inboxes that CreateInbox gave, and "_QUORL." for advisories and the
 * system's own traffic. A wildcard behind "_QUORL." stands for advisories alone. closure: handed to the callback, never looked at.
 * QUORL_INVALID_QUEUE, QUORL_INVALID_CALLBACK (null), QUORL_INVALID_TRANSPORT, QUORL_INVALID_SUBJECT (null too). */
QUORL_API quorl_status quorlEvent_CreateListener(quorlEvent* event, quorlQueue queue, quorlEventCallback callback,
                                                 quorlTransport transport, const char* subject,
                                                 const void* closure) QUORL_NOEXCEPT;

/* Listens and shares: of the listeners of a bus that share a name, and whose subjects match, one gets each message. In this
 * process they take turns; over a daemon, the daemon chooses one of the processes, and there they take turns. The listeners
 * of a circuit share what its peer sends. Listeners without a name, or under another one, get each message as ever.
 * There is no redelivery: what waits in the queue of a listener that is destroyed, or of a process that ends, is lost.
 * Messages sent to a daemon in quick succession travel together and come to one process; those that it carries in parts,
 * of more than 256 KiB, are not taken, which the advisory "malformed" tells.
 * name: 1 to 63 bytes of printable ASCII without blanks, '.', '*' and '>'. subject: as above, but none that starts with '_'.
 * QUORL_INVALID_NAME, QUORL_INVALID_ARG (a null name), and what quorlEvent_CreateListener says. */
QUORL_API quorl_status quorlEvent_CreateSharedListener(quorlEvent* event, quorlQueue queue, quorlEventCallback callback,
                                                       quorlTransport transport, const char* subject, const char* name,
                                                       const void* closure) QUORL_NOEXCEPT;

/* Listens in batches. Waiting messages of listeners of the same queue, callback and groupId are delivered in one call of
 * the callback, without waiting for a batch to fill; QUORL_VECTOR_MAX at most. */
QUORL_API quorl_status quorlEvent_CreateGroupVectorListener(quorlEvent* event, quorlQueue queue,
                                                            quorlEventVectorCallback callback, quorlTransport transport,
                                                            const char* subject, const void* closure,
                                                            const void* groupId) QUORL_NOEXCEPT;

/* Puts an event into the queue every interval seconds (0 or more, finite), the first after one interval. Repeats without
 * drift; at most one event of a timer waits at a time; interval 0 fires as often as it is dispatched.
 * QUORL_INVALID_TIME_INTERVAL for a negative, infinite or NaN interval. */
QUORL_API quorl_status quorlEvent_CreateTimer(quorlEvent* event, quorlQueue queue, quorlEventCallback callback,
                                              quorl_f64 interval, const void* closure) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlEvent_GetTimerInterval(quorlEvent timer, quorl_f64* interval) QUORL_NOEXCEPT;
/* Sets the interval and starts it anew from now. */
QUORL_API quorl_status quorlEvent_ResetTimerInterval(quorlEvent timer, quorl_f64 interval) QUORL_NOEXCEPT;

/* Destroys a listener, vector listener or timer: no callback of it starts after this returns; one in progress on another
 * thread finishes, then completion (may be null) is called with the event and its closure. Legal inside its own callback.
 * QUORL_INVALID_EVENT for anything else. */
QUORL_API quorl_status quorlEvent_DestroyEx(quorlEvent event, quorlEventOnComplete completion) QUORL_NOEXCEPT;

/* ---- transports ------------------------------------------------------------------------------------------------- */

/* How a daemon transport gathers outgoing messages. */
/* clang-format off */
typedef QUORL_ENUM(quorlTransportBatchMode){
    QUORLTRANSPORT_DEFAULT_BATCH = 0, /* each send goes out at once */
    QUORLTRANSPORT_TIMER_BATCH = 1    /* sends gather until the batch size or a short timer */
} quorlTransportBatchMode;
/* clang-format on */

/* Creates a transport. Every parameter may be null, and then takes the default of the in-process parameters.
 * daemon: null or empty: a port on the embedded bus of this process; else a daemon's address. service, network: separate
 * buses; only transports with the same pair see each other (printable ASCII without spaces, at most 63 bytes; "://" is
 * refused in them, since an address there would make a bus of its own).
 * QUORL_SERVICE_NOT_FOUND, QUORL_NETWORK_NOT_FOUND (malformed), QUORL_DAEMON_NOT_FOUND (malformed, or not reached),
 * QUORL_USERPASS_MISMATCH (the daemon refuses the credentials, or demands some). */
QUORL_API quorl_status quorlTransport_Create(quorlTransport* transport, const char* service, const char* network,
                                             const char* daemon) QUORL_NOEXCEPT;

/* Destroys a transport. Its listeners get nothing more from it; they stay to be destroyed. The last transport of a
 * connection to a daemon waits until the daemon has what was sent, connect.timeout seconds at most, also for a daemon that
 * is away. QUORL_DAEMON_NOT_CONNECTED: the transport is destroyed, and messages were dropped, or may not have arrived; the
 * detail says how many, without those of a connection that was lost before, which were told then. */
QUORL_API quorl_status quorlTransport_Destroy(quorlTransport transport) QUORL_NOEXCEPT;

/* Describes the program for advisories and daemons' tools: not null, at most 255 bytes of UTF-8
 * (QUORL_INVALID_ARG). */
QUORL_API quorl_status quorlTransport_SetDescription(quorlTransport transport, const char* description) QUORL_NOEXCEPT;

/* Asks for messages to be kept for at most reliability seconds while the daemon is away; 0, as at first, sets no limit of
 * time. Without effect on the embedded bus and on circuits. QUORL_INVALID_TIME_INTERVAL: negative or not finite. */
QUORL_API quorl_status quorlTransport_RequestReliability(quorlTransport transport,
                                                         quorl_f64 reliability) QUORL_NOEXCEPT;

/* QUORL_INVALID_ARG for an unknown mode. */
QUORL_API quorl_status quorlTransport_SetBatchMode(quorlTransport transport,
                                                   quorlTransportBatchMode mode) QUORL_NOEXCEPT;
/* Bytes that a batch gathers before it goes out; 0, as at first, stands for 64 KiB. Without effect but with
 * QUORLTRANSPORT_TIMER_BATCH. */
QUORL_API quorl_status quorlTransport_SetBatchSize(quorlTransport transport, quorl_u32 numBytes) QUORL_NOEXCEPT;

/* Writes a new subject, unique in the world, that only listeners of this transport may listen to: the reply address of a
 * request. They may also listen to "<inbox>.*", one element below it.
 * limit: bytes at subject, terminator included; QUORL_INSUFFICIENT_BUFFER when it does not fit. */
QUORL_API quorl_status quorlTransport_CreateInbox(quorlTransport transport, char* subject,
                                                  quorl_u32 limit) QUORL_NOEXCEPT;

/* Sends a message to its send subject. The message stays the caller's, and may be changed, sent again or destroyed at
 * once. A send that is faster than its way out waits for room. QUORL_INVALID_SUBJECT: none, malformed, or with wildcards;
 * QUORL_INVALID_SIZE: larger than a daemon's transport or a circuit carries; QUORL_DAEMON_NOT_CONNECTED: the daemon is away
 * and the buffer for that is full; QUORL_VC_NOT_CONNECTED; QUORL_NO_MEMORY. */
QUORL_API quorl_status quorlTransport_Send(quorlTransport transport, quorlMsg message) QUORL_NOEXCEPT;
/* Sends count messages in order. All are checked before the first goes out. QUORL_INVALID_ARG: a null array with a count. */
QUORL_API quorl_status quorlTransport_Sendv(quorlTransport transport, const quorlMsg* messages,
                                            quorl_u32 count) QUORL_NOEXCEPT;

/* Sends a request and waits for the first reply, up to timeout seconds. Gives the request a reply subject of the
 * library's own. The reply is the caller's to destroy. Works from inside a callback too: the wait needs no dispatching.
 * Fails as a send does; the time it waits for room counts. QUORL_TIMEOUT: no reply came; QUORL_INTR: the transport or the
 * library was closed meanwhile. */
QUORL_API quorl_status quorlTransport_SendRequest(quorlTransport transport, quorlMsg request, quorlMsg* reply,
                                                  quorl_f64 timeout) QUORL_NOEXCEPT;

/* Sends reply to the reply subject of request. QUORL_INVALID_SUBJECT when the request has none. */
QUORL_API quorl_status quorlTransport_SendReply(quorlTransport transport, quorlMsg reply,
                                                quorlMsg request) QUORL_NOEXCEPT;

/* ---- virtual circuits ------------------------------------------------------------------------------------------- */

/* A circuit is a transport whose messages reach its peer alone, once each and in order. Until the peer is there, and when it
 * is gone, sending and requests are QUORL_VC_NOT_CONNECTED; a send waits while too much waits for the peer. Destroying a
 * circuit brings home what was sent, in the background; destroying its parent ends it. */

/* Makes the accepting end of a circuit over parent, and the subject to hand to the peer (owned by the circuit). One peer
 * is accepted. QUORL_INVALID_TRANSPORT. */
QUORL_API quorl_status quorlTransport_CreateAcceptVc(quorlTransport* circuit, const char** connectSubject,
                                                     quorlTransport parent) QUORL_NOEXCEPT;
/* Makes the connecting end over parent, towards the subject that the accepting end gave, and returns at once.
 * QUORL_INVALID_TRANSPORT; QUORL_INVALID_SUBJECT: null, or nothing that an accepting end gives out. */
QUORL_API quorl_status quorlTransport_CreateConnectVc(quorlTransport* circuit, const char* connectSubject,
                                                      quorlTransport parent) QUORL_NOEXCEPT;
/* Waits until the circuit is up. QUORL_TIMEOUT; QUORL_VC_NOT_CONNECTED when the peer is gone, or refused, or the transport below or
 * the library was closed; QUORL_INTR: the circuit was destroyed meanwhile; QUORL_INVALID_TRANSPORT: no such transport, or no circuit. */
QUORL_API quorl_status quorlTransport_WaitForVcConnection(quorlTransport circuit, quorl_f64 timeout) QUORL_NOEXCEPT;

/* ---- messages: types -------------------------------------------------------------------------------------------- */

/* Field type codes, as they stand in quorlMsgField.type and on the wire. An array's code is its element's plus 32. Codes
 * that are not listed are reserved; 128 to 255 are user types, whose bytes the library never interprets. */
#define QUORLMSG_NONE 0
#define QUORLMSG_BOOL 1
#define QUORLMSG_I8 2
#define QUORLMSG_U8 3
#define QUORLMSG_I16 4
#define QUORLMSG_U16 5
#define QUORLMSG_I32 6
#define QUORLMSG_U32 7
#define QUORLMSG_I64 8
#define QUORLMSG_U64 9
#define QUORLMSG_F32 10
#define QUORLMSG_F64 11
#define QUORLMSG_IPPORT16 12
#define QUORLMSG_IPADDR32 13
#define QUORLMSG_DATETIME 14
#define QUORLMSG_STRING 15
#define QUORLMSG_MSG 16
#define QUORLMSG_OPAQUE 17
#define QUORLMSG_XML 18
#define QUORLMSG_I8ARRAY 34
#define QUORLMSG_U8ARRAY 35
#define QUORLMSG_I16ARRAY 36
#define QUORLMSG_U16ARRAY 37
#define QUORLMSG_I32ARRAY 38
#define QUORLMSG_U32ARRAY 39
#define QUORLMSG_I64ARRAY 40
#define QUORLMSG_U64ARRAY 41
#define QUORLMSG_F32ARRAY 42
#define QUORLMSG_F64ARRAY 43
#define QUORLMSG_STRINGARRAY 47
#define QUORLMSG_MSGARRAY 48
#define QUORLMSG_USER_FIRST 128
#define QUORLMSG_USER_LAST 255

/* A point in time: seconds since 1970-01-01T00:00:00Z (negative before) plus 0 to 999,999,999 nanoseconds after it. */
typedef struct quorlMsgDateTime {
    quorl_i64 sec;
    quorl_u32 nsec;
} quorlMsgDateTime;

/* A field's value; the member is the one of the field's type. */
typedef union quorlLocalData {
    quorlMsg msg;
    const char* str;
    const void* buf;
    const void* array; /* numeric: count elements; strings: const char* const*; messages: const quorlMsg* */
    quorl_bool boolean;
    quorl_i8 i8;
    quorl_u8 u8;
    quorl_i16 i16;
    quorl_u16 u16;
    quorl_i32 i32;
    quorl_u32 u32;
    quorl_i64 i64;
    quorl_u64 u64;
    quorl_f32 f32;
    quorl_f64 f64;
    quorl_ipport16 ipport16;
    quorl_ipaddr32 ipaddr32;
    quorlMsgDateTime date;
} quorlLocalData;

/* A field of a message. Pointers point into the message and live until it is changed or destroyed. */
typedef struct quorlMsgField {
    const char* name;    /* null when the field has none */
    quorl_u32 size;      /* bytes of the value, or of one element of an array; of a string with its terminator */
    quorl_u32 count;     /* elements; 1 for a scalar */
    quorlLocalData data; /* the value */
    quorl_u16 id;        /* 0 when the field has none */
    quorl_u8 type;       /* QUORLMSG_... */
} quorlMsgField;

/* ---- messages: whole -------------------------------------------------------------------------------------------- */

/* Makes an empty message without subjects. Destroy it with quorlMsg_Destroy. */
QUORL_API quorl_status quorlMsg_Create(quorlMsg* message) QUORL_NOEXCEPT;
/* Makes a message from a wire image, which is copied. The image's header says how long it is: the caller vouches for the
 * header's bytes and for as many as it says (quorlMsg_GetAsBytes made them). QUORL_CORRUPT_MSG: not a valid image. */
QUORL_API quorl_status quorlMsg_CreateFromBytes(quorlMsg* message, const void* bytes) QUORL_NOEXCEPT;
/* An independent copy, fields and subjects; belongs to the caller. */
QUORL_API quorl_status quorlMsg_CreateCopy(quorlMsg message, quorlMsg* copy) QUORL_NOEXCEPT;
/* A copy of the subjects alone, without the fields; belongs to the caller. */
QUORL_API quorl_status quorlMsg_GetEnvelope(quorlMsg message, quorlMsg* envelope) QUORL_NOEXCEPT;
/* QUORL_NOT_PERMITTED: a message inside a message. One that a callback was given may be destroyed by it at once. */
QUORL_API quorl_status quorlMsg_Destroy(quorlMsg message) QUORL_NOEXCEPT;
/* Takes a message that a callback was given out of the library's ownership: it outlives the callback and is the caller's
 * to destroy. QUORL_NOT_PERMITTED for a message inside a message; a message of the caller's own stays as it is. */
QUORL_API quorl_status quorlMsg_Detach(quorlMsg message) QUORL_NOEXCEPT;
/* Removes all fields and both subjects. */
QUORL_API quorl_status quorlMsg_Reset(quorlMsg message) QUORL_NOEXCEPT;

/* The closure of the event that delivered the message; null for a message that no event delivered, and once that event
 * has been destroyed, but for callbacks of it that still run, on their own thread. */
QUORL_API quorl_status quorlMsg_GetClosure(quorlMsg message, void** closure) QUORL_NOEXCEPT;

/* Subjects. A null subject takes it away; one that is malformed, has wildcards, or begins with '_' and is neither an inbox
 * nor below "_QUORL.", is QUORL_INVALID_SUBJECT. A getter answers QUORL_NOT_FOUND when there is none. */
QUORL_API quorl_status quorlMsg_SetSendSubject(quorlMsg message, const char* subject) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetSendSubject(quorlMsg message, const char** subject) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_SetReplySubject(quorlMsg message, const char* subject) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetReplySubject(quorlMsg message, const char** subject) QUORL_NOEXCEPT;

/* The message as one line of text: {name=value, name[3]={...}}, unprintable bytes escaped. Owned by the message. */
QUORL_API quorl_status quorlMsg_ConvertToString(quorlMsg message, const char** string) QUORL_NOEXCEPT;
/* Fields at the outermost level. */
QUORL_API quorl_status quorlMsg_GetNumFields(quorlMsg message, quorl_u32* count) QUORL_NOEXCEPT;
/* Bytes of the wire image. */
QUORL_API quorl_status quorlMsg_GetByteSize(quorlMsg message, quorl_u32* size) QUORL_NOEXCEPT;
/* The wire image (docs/reference/wire-format.md), owned by the message, valid until it is changed or destroyed. */
QUORL_API quorl_status quorlMsg_GetAsBytes(quorlMsg message, const void** bytes) QUORL_NOEXCEPT;

/* Brackets a read of pointers into the message: what was handed out after Mark stays valid until Clear, also when the
 * message is changed in between. Brackets nest; a Clear without a Mark is harmless. */
QUORL_API quorl_status quorlMsg_MarkReferences(quorlMsg message) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_ClearReferences(quorlMsg message) QUORL_NOEXCEPT;

/* ---- messages: fields ------------------------------------------------------------------------------------------- */

/* Names and ids of the functions below. name: null for none, or 0 to QUORL_FIELD_NAME_MAX bytes of UTF-8; any other is
 * QUORL_INVALID_NAME, also where a field is only looked for. id: 0 for none. Several fields may share a name; a non-zero id belongs to one name (or to fields
 * without one): under another it is QUORL_ID_IN_USE, under its own it adds a further field. Lookup with a non-zero id goes
 * by id, first field, and a name given beside it must agree (QUORL_ID_CONFLICT); with id 0 it goes by name, first instance.
 * An empty name is a name. */

QUORL_API quorl_status quorlMsg_GetFieldByIndex(quorlMsg message, quorlMsgField* field, quorl_u32 index) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetFieldEx(quorlMsg message, const char* name, quorlMsgField* field,
                                           quorl_u16 id) QUORL_NOEXCEPT;
/* The instance-th field of that name, counted from 1. QUORL_INVALID_INSTANCE for 0. */
QUORL_API quorl_status quorlMsg_GetFieldInstance(quorlMsg message, const char* name, quorlMsgField* field,
                                                 quorl_u32 instance) QUORL_NOEXCEPT;
/* Adds or replaces a field described by a whole record; the value is copied. The only way to make user types.
 * QUORL_INVALID_TYPE: no such type; QUORL_INVALID_SIZE, QUORL_INVALID_COUNT: not those of the type. An array of strings whose
 * elements are not the addresses of readable strings is QUORL_INVALID_SIZE too. */
QUORL_API quorl_status quorlMsg_AddField(quorlMsg message, quorlMsgField* field) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateField(quorlMsg message, quorlMsgField* field) QUORL_NOEXCEPT;
/* QUORL_NOT_FOUND when there is no such field. */
QUORL_API quorl_status quorlMsg_RemoveFieldEx(quorlMsg message, const char* name, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_RemoveFieldInstance(quorlMsg message, const char* name,
                                                    quorl_u32 instance) QUORL_NOEXCEPT;

/* Chooses how opaque fields are handled from now on, for the whole process: 0, kept as raw bytes, is the only handler
 * built in. QUORL_RESERVED_HANDLER: 1 to 127, the library's; QUORL_NOT_FOUND: 128 to 255, with no handler. */
QUORL_API quorl_status quorlMsg_SetOpaqueHandlers(quorl_u8 type) QUORL_NOEXCEPT;

/* Add appends a field. Update replaces the value in place, or adds when there is no such field; a field of another type is
 * QUORL_INVALID_TYPE. Get reads with conversion between numeric types when the value fits (QUORL_CONVERSION_FAILED
 * otherwise, QUORL_NOT_FOUND when there is no such field). Values are copied. QUORL_INVALID_SIZE: the message would pass
 * QUORL_MSG_MAX_SIZE; QUORL_INVALID_ARG: a null value where one is needed. */

/* clang-format off */
QUORL_API quorl_status quorlMsg_AddBoolEx(quorlMsg message, const char* name, quorl_bool value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddI8Ex(quorlMsg message, const char* name, quorl_i8 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddU8Ex(quorlMsg message, const char* name, quorl_u8 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddI16Ex(quorlMsg message, const char* name, quorl_i16 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddU16Ex(quorlMsg message, const char* name, quorl_u16 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddI32Ex(quorlMsg message, const char* name, quorl_i32 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddU32Ex(quorlMsg message, const char* name, quorl_u32 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddI64Ex(quorlMsg message, const char* name, quorl_i64 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddU64Ex(quorlMsg message, const char* name, quorl_u64 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddF32Ex(quorlMsg message, const char* name, quorl_f32 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddF64Ex(quorlMsg message, const char* name, quorl_f64 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddIPPort16Ex(quorlMsg message, const char* name, quorl_ipport16 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddIPAddr32Ex(quorlMsg message, const char* name, quorl_ipaddr32 value, quorl_u16 id) QUORL_NOEXCEPT;
/* nsec above 999,999,999: QUORL_INVALID_ARG. */
QUORL_API quorl_status quorlMsg_AddDateTimeEx(quorlMsg message, const char* name, const quorlMsgDateTime* value, quorl_u16 id) QUORL_NOEXCEPT;
/* The sub-message's fields are copied; later changes to it do not show. QUORL_INVALID_MSG: deeper than QUORL_MSG_MAX_DEPTH. */
QUORL_API quorl_status quorlMsg_AddMsgEx(quorlMsg message, const char* name, quorlMsg value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddStringEx(quorlMsg message, const char* name, const char* value, quorl_u16 id) QUORL_NOEXCEPT;
/* Raw bytes; null is legal with size 0. */
QUORL_API quorl_status quorlMsg_AddOpaqueEx(quorlMsg message, const char* name, const void* bytes, quorl_u32 size, quorl_u16 id) QUORL_NOEXCEPT;
/* The bytes of an XML document, never parsed. */
QUORL_API quorl_status quorlMsg_AddXmlEx(quorlMsg message, const char* name, const void* bytes, quorl_u32 size, quorl_u16 id) QUORL_NOEXCEPT;

QUORL_API quorl_status quorlMsg_UpdateBoolEx(quorlMsg message, const char* name, quorl_bool value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateI8Ex(quorlMsg message, const char* name, quorl_i8 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateU8Ex(quorlMsg message, const char* name, quorl_u8 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateI16Ex(quorlMsg message, const char* name, quorl_i16 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateU16Ex(quorlMsg message, const char* name, quorl_u16 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateI32Ex(quorlMsg message, const char* name, quorl_i32 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateU32Ex(quorlMsg message, const char* name, quorl_u32 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateI64Ex(quorlMsg message, const char* name, quorl_i64 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateU64Ex(quorlMsg message, const char* name, quorl_u64 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateF32Ex(quorlMsg message, const char* name, quorl_f32 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateF64Ex(quorlMsg message, const char* name, quorl_f64 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateIPPort16Ex(quorlMsg message, const char* name, quorl_ipport16 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateIPAddr32Ex(quorlMsg message, const char* name, quorl_ipaddr32 value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateDateTimeEx(quorlMsg message, const char* name, const quorlMsgDateTime* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateMsgEx(quorlMsg message, const char* name, quorlMsg value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateStringEx(quorlMsg message, const char* name, const char* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateOpaqueEx(quorlMsg message, const char* name, const void* bytes, quorl_u32 size, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateXmlEx(quorlMsg message, const char* name, const void* bytes, quorl_u32 size, quorl_u16 id) QUORL_NOEXCEPT;

QUORL_API quorl_status quorlMsg_GetBoolEx(quorlMsg message, const char* name, quorl_bool* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetI8Ex(quorlMsg message, const char* name, quorl_i8* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetU8Ex(quorlMsg message, const char* name, quorl_u8* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetI16Ex(quorlMsg message, const char* name, quorl_i16* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetU16Ex(quorlMsg message, const char* name, quorl_u16* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetI32Ex(quorlMsg message, const char* name, quorl_i32* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetU32Ex(quorlMsg message, const char* name, quorl_u32* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetI64Ex(quorlMsg message, const char* name, quorl_i64* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetU64Ex(quorlMsg message, const char* name, quorl_u64* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetF32Ex(quorlMsg message, const char* name, quorl_f32* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetF64Ex(quorlMsg message, const char* name, quorl_f64* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetIPPort16Ex(quorlMsg message, const char* name, quorl_ipport16* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetIPAddr32Ex(quorlMsg message, const char* name, quorl_ipaddr32* value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetDateTimeEx(quorlMsg message, const char* name, quorlMsgDateTime* value, quorl_u16 id) QUORL_NOEXCEPT;
/* The handle belongs to the outer message: it may be read, not changed or destroyed, and dies with a change of it. */
QUORL_API quorl_status quorlMsg_GetMsgEx(quorlMsg message, const char* name, quorlMsg* value, quorl_u16 id) QUORL_NOEXCEPT;
/* The text, the bytes and the arrays below belong to the message. */
QUORL_API quorl_status quorlMsg_GetStringEx(quorlMsg message, const char* name, const char** value, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetOpaqueEx(quorlMsg message, const char* name, const void** bytes, quorl_u32* size, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetXmlEx(quorlMsg message, const char* name, const void** bytes, quorl_u32* size, quorl_u16 id) QUORL_NOEXCEPT;

/* Arrays: count elements, copied; null is legal with count 0. No conversion on Get: another type is QUORL_CONVERSION_FAILED. */
QUORL_API quorl_status quorlMsg_AddI8ArrayEx(quorlMsg message, const char* name, const quorl_i8* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddU8ArrayEx(quorlMsg message, const char* name, const quorl_u8* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddI16ArrayEx(quorlMsg message, const char* name, const quorl_i16* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddU16ArrayEx(quorlMsg message, const char* name, const quorl_u16* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddI32ArrayEx(quorlMsg message, const char* name, const quorl_i32* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddU32ArrayEx(quorlMsg message, const char* name, const quorl_u32* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddI64ArrayEx(quorlMsg message, const char* name, const quorl_i64* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddU64ArrayEx(quorlMsg message, const char* name, const quorl_u64* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddF32ArrayEx(quorlMsg message, const char* name, const quorl_f32* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddF64ArrayEx(quorlMsg message, const char* name, const quorl_f64* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddStringArrayEx(quorlMsg message, const char* name, const char** array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_AddMsgArrayEx(quorlMsg message, const char* name, const quorlMsg* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;

QUORL_API quorl_status quorlMsg_UpdateI8ArrayEx(quorlMsg message, const char* name, const quorl_i8* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateU8ArrayEx(quorlMsg message, const char* name, const quorl_u8* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateI16ArrayEx(quorlMsg message, const char* name, const quorl_i16* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateU16ArrayEx(quorlMsg message, const char* name, const quorl_u16* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateI32ArrayEx(quorlMsg message, const char* name, const quorl_i32* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateU32ArrayEx(quorlMsg message, const char* name, const quorl_u32* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateI64ArrayEx(quorlMsg message, const char* name, const quorl_i64* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateU64ArrayEx(quorlMsg message, const char* name, const quorl_u64* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateF32ArrayEx(quorlMsg message, const char* name, const quorl_f32* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateF64ArrayEx(quorlMsg message, const char* name, const quorl_f64* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateStringArrayEx(quorlMsg message, const char* name, const char** array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_UpdateMsgArrayEx(quorlMsg message, const char* name, const quorlMsg* array, quorl_u32 count, quorl_u16 id) QUORL_NOEXCEPT;

QUORL_API quorl_status quorlMsg_GetI8ArrayEx(quorlMsg message, const char* name, const quorl_i8** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetU8ArrayEx(quorlMsg message, const char* name, const quorl_u8** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetI16ArrayEx(quorlMsg message, const char* name, const quorl_i16** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetU16ArrayEx(quorlMsg message, const char* name, const quorl_u16** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetI32ArrayEx(quorlMsg message, const char* name, const quorl_i32** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetU32ArrayEx(quorlMsg message, const char* name, const quorl_u32** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetI64ArrayEx(quorlMsg message, const char* name, const quorl_i64** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetU64ArrayEx(quorlMsg message, const char* name, const quorl_u64** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetF32ArrayEx(quorlMsg message, const char* name, const quorl_f32** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetF64ArrayEx(quorlMsg message, const char* name, const quorl_f64** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetStringArrayEx(quorlMsg message, const char* name, const char* const** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
QUORL_API quorl_status quorlMsg_GetMsgArrayEx(quorlMsg message, const char* name, const quorlMsg** array, quorl_u32* count, quorl_u16 id) QUORL_NOEXCEPT;
/* clang-format on */

#ifdef __cplusplus
}
#endif

#endif
