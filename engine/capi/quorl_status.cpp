// Statuses as texts, and the calling thread's detail text.
#include <iterator>

#include "base/status.h"
#include "quorl/quorl.h"

using namespace quorl;

namespace {

struct StatusText {
    quorl_status status;
    const char* text;
};

constexpr StatusText statusTexts[] = {
    {QUORL_OK, "Success"},
    {QUORL_INIT_FAILURE, "The library could not be initialized"},
    {QUORL_INVALID_TRANSPORT, "The transport does not exist or was destroyed"},
    {QUORL_INVALID_ARG, "An argument is not valid"},
    {QUORL_NOT_INITIALIZED, "The library is not open"},
    {QUORL_ARG_CONFLICT, "Two arguments contradict each other"},
    {QUORL_SERVICE_NOT_FOUND, "The service is not known or malformed"},
    {QUORL_NETWORK_NOT_FOUND, "The network is not known or malformed"},
    {QUORL_DAEMON_NOT_FOUND, "The daemon could not be reached"},
    {QUORL_NO_MEMORY, "Memory could not be allocated"},
    {QUORL_INVALID_SUBJECT, "The subject is malformed or not allowed here"},
    {QUORL_DAEMON_NOT_CONNECTED, "The connection to the daemon is lost"},
    {QUORL_VERSION_MISMATCH, "Two components have versions that do not work together"},
    {QUORL_SUBJECT_COLLISION, "The subject is taken by another sender"},
    {QUORL_VC_NOT_CONNECTED, "The virtual circuit is not connected"},
    {QUORL_NOT_PERMITTED, "The operation is not permitted"},
    {QUORL_INVALID_NAME, "The name is malformed or too long"},
    {QUORL_INVALID_TYPE, "The type does not exist or is not the field's"},
    {QUORL_INVALID_SIZE, "The size is not valid"},
    {QUORL_INVALID_COUNT, "The count is not valid"},
    {QUORL_NOT_FOUND, "Not found"},
    {QUORL_ID_IN_USE, "The field id is in use in this message"},
    {QUORL_ID_CONFLICT, "The field with this id has another name"},
    {QUORL_CONVERSION_FAILED, "The value does not fit the type asked for"},
    {QUORL_RESERVED_HANDLER, "The handler type is reserved"},
    {QUORL_ENCODER_FAILED, "The encoder failed"},
    {QUORL_DECODER_FAILED, "The decoder failed"},
    {QUORL_INVALID_MSG, "The message does not exist or was destroyed"},
    {QUORL_INVALID_FIELD, "The field is not valid"},
    {QUORL_INVALID_INSTANCE, "The instance number is not valid"},
    {QUORL_CORRUPT_MSG, "The message's bytes are corrupt"},
    {QUORL_ENCODING_MISMATCH, "The text encodings differ"},
    {QUORL_TIMEOUT, "The time limit has passed"},
    {QUORL_INTR, "The wait was interrupted"},
    {QUORL_INVALID_DISPATCHABLE, "The queue or queue group does not exist or was destroyed"},
    {QUORL_INVALID_DISPATCHER, "The dispatcher does not exist or was destroyed"},
    {QUORL_INVALID_EVENT, "The event does not exist or was destroyed"},
    {QUORL_INVALID_CALLBACK, "The callback is missing"},
    {QUORL_INVALID_QUEUE, "The queue does not exist or was destroyed"},
    {QUORL_INVALID_QUEUE_GROUP, "The queue group does not exist or was destroyed"},
    {QUORL_INVALID_TIME_INTERVAL, "The time interval is negative or not finite"},
    {QUORL_INVALID_IO_SOURCE, "The input or output source is not valid"},
    {QUORL_INVALID_IO_CONDITION, "The input or output condition is not valid"},
    {QUORL_SOCKET_LIMIT, "The system's limit of sockets is reached"},
    {QUORL_OS_ERROR, "A call to the operating system failed"},
    {QUORL_INSUFFICIENT_BUFFER, "The buffer is too small"},
    {QUORL_EOF, "The end of the file is reached"},
    {QUORL_INVALID_FILE, "The file is damaged or of another kind"},
    {QUORL_FILE_NOT_FOUND, "The file does not exist"},
    {QUORL_IO_FAILED, "Reading or writing failed"},
    {QUORL_NOT_FILE_OWNER, "The file is in use, or belongs to another user or another certified name"},
    {QUORL_USERPASS_MISMATCH, "The user name or the password is missing or wrong"},
    {QUORL_TOO_MANY_NEIGHBORS, "There are too many neighbors"},
    {QUORL_ALREADY_EXISTS, "It exists already"},
    {QUORL_PORT_BUSY, "The port is in use"},
    {QUORL_DELIVERY_FAILED, "The message could not be delivered"},
    {QUORL_QUEUE_LIMIT, "The queue's limit is reached"},
    {QUORL_INVALID_CONTENT_DESC, "The content description is not valid"},
    {QUORL_INVALID_SERIALIZED_BUFFER, "The serialized buffer is not valid"},
    {QUORL_DESCRIPTOR_NOT_FOUND, "The descriptor does not exist"},
    {QUORL_CORRUPT_SERIALIZED_BUFFER, "The serialized buffer is corrupt"},
    {QUORL_IPM_ONLY, "This works only with the engine in this process"},
};
static_assert(std::size(statusTexts) == 62, "one text for each status");

}  // namespace

extern "C" {

const char* quorlStatus_GetText(quorl_status status) noexcept {
    for (const auto& row : statusTexts) {
        if (row.status == status) return row.text;
    }
    return "Unknown status";
}

const char* quorl_LastErrorText(void) noexcept {
    return lastErrorText();
}

}  // extern "C"
