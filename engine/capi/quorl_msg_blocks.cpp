// Entry points for values with a length of their own: strings, opaque and XML bytes, messages inside messages.
#include "message/append.h"
#include "message/find_field.h"
#include "message/values.h"
#include "quorl/quorl.h"

using namespace quorl;
using namespace quorl::message;

namespace {

template <auto write, class... Parameters, class... Arguments>
quorl_status put(quorlMsg message, const char* name, uint16_t id,
                 quorl_status (ValueHolder::*take)(Parameters...) noexcept, Arguments... arguments) noexcept {
    Slot* slot;
    Name checked;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    if (quorl_status status = readNewName(name, &checked); status != QUORL_OK) return status;
    ValueHolder holder;
    quorl_status status = (holder.*take)(arguments...);
    if (status == QUORL_OK) status = write(*slot, checked, id, holder.value);
    return status == QUORL_OK ? status : inField(status, name, id);
}

template <uint8_t type>
quorl_status addBytes(quorlMsg message, const char* name, const void* bytes, uint32_t size, uint16_t id) noexcept {
    if (quorl_status status = checkBytes(bytes, size); status != QUORL_OK) return inField(status, name, id);
    return appendValue<type>(message, name, id, bytes, size, size);
}

template <uint8_t type>
quorl_status getBytes(quorlMsg message, const char* name, const void** bytes, uint32_t* size, uint16_t id) noexcept {
    if (bytes == nullptr || size == nullptr)
        return fail(QUORL_INVALID_ARG, "the pointer for the bytes or for their size is null");
    quorl_status status;
    const Found found = findTyped(message, name, id, type, &status);
    if (!found) return status;
    noteBorrowed(*found.slot);
    *bytes = found.value();
    *size = found.field->length;
    return QUORL_OK;
}

}  // namespace

extern "C" {
// clang-format off
quorl_status quorlMsg_AddMsgEx(quorlMsg message, const char* name, quorlMsg value, quorl_u16 id) noexcept { return put<append>(message, name, id, &ValueHolder::fromMessage, value); }
quorl_status quorlMsg_AddOpaqueEx(quorlMsg message, const char* name, const void* bytes, quorl_u32 size, quorl_u16 id) noexcept { return addBytes<QUORLMSG_OPAQUE>(message, name, bytes, size, id); }
quorl_status quorlMsg_AddXmlEx(quorlMsg message, const char* name, const void* bytes, quorl_u32 size, quorl_u16 id) noexcept { return addBytes<QUORLMSG_XML>(message, name, bytes, size, id); }

quorl_status quorlMsg_UpdateMsgEx(quorlMsg message, const char* name, quorlMsg value, quorl_u16 id) noexcept { return put<update>(message, name, id, &ValueHolder::fromMessage, value); }
quorl_status quorlMsg_UpdateStringEx(quorlMsg message, const char* name, const char* value, quorl_u16 id) noexcept { return put<update>(message, name, id, &ValueHolder::fromString, value); }
quorl_status quorlMsg_UpdateOpaqueEx(quorlMsg message, const char* name, const void* bytes, quorl_u32 size, quorl_u16 id) noexcept { return put<update>(message, name, id, &ValueHolder::fromBytes, uint8_t{QUORLMSG_OPAQUE}, bytes, size); }
quorl_status quorlMsg_UpdateXmlEx(quorlMsg message, const char* name, const void* bytes, quorl_u32 size, quorl_u16 id) noexcept { return put<update>(message, name, id, &ValueHolder::fromBytes, uint8_t{QUORLMSG_XML}, bytes, size); }

quorl_status quorlMsg_GetOpaqueEx(quorlMsg message, const char* name, const void** bytes, quorl_u32* size, quorl_u16 id) noexcept { return getBytes<QUORLMSG_OPAQUE>(message, name, bytes, size, id); }
quorl_status quorlMsg_GetXmlEx(quorlMsg message, const char* name, const void** bytes, quorl_u32* size, quorl_u16 id) noexcept { return getBytes<QUORLMSG_XML>(message, name, bytes, size, id); }
// clang-format on

quorl_status quorlMsg_AddStringEx(quorlMsg message, const char* name, const char* value, quorl_u16 id) noexcept {
    uint32_t size = 0;
    if (quorl_status status = checkString(value, &size); status != QUORL_OK) return inField(status, name, id);
    return appendValue<QUORLMSG_STRING>(message, name, id, value, size, size);
}

quorl_status quorlMsg_GetStringEx(quorlMsg message, const char* name, const char** value, quorl_u16 id) noexcept {
    if (value == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the string is null");
    quorl_status status;
    const Found found = findTyped(message, name, id, QUORLMSG_STRING, &status);
    if (!found) return status;
    noteBorrowed(*found.slot);
    *value = reinterpret_cast<const char*>(found.value());
    return QUORL_OK;
}

quorl_status quorlMsg_GetMsgEx(quorlMsg message, const char* name, quorlMsg* value, quorl_u16 id) noexcept {
    if (value == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the message is null");
    quorl_status status;
    const Found found = findTyped(message, name, id, QUORLMSG_MSG, &status);
    if (!found) return status;
    return innerMessage(*found.slot, found.content(), found.index(), value);
}

}  // extern "C"
