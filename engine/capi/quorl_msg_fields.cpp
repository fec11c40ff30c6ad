// Entry points for whole fields: finding, describing, adding by record, removing.
#include "base/status.h"
#include "message/find_field.h"
#include "message/message.h"
#include "message/values.h"
#include "quorl/private.h"
#include "quorl/quorl.h"

using namespace quorl;
using namespace quorl::message;

namespace {

quorl_u64 indexAndTypeOf(const Found& found) noexcept {
    return (quorl_u64{found.index()} + 1) | quorl_u64{found.field->type} << 32;
}

template <auto change>
quorl_status put(quorlMsg message, const quorlMsgField* record) noexcept {
    if (record == nullptr) return fail(QUORL_INVALID_ARG, "the field is null");
    Slot* slot;
    Name name;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    if (quorl_status status = readNewName(record->name, &name); status != QUORL_OK) return status;
    ValueHolder holder;
    quorl_status status = holder.fromRecord(*record);
    if (status == QUORL_OK) status = change(*slot, name, record->id, holder.value);
    return status == QUORL_OK ? status : inField(status, record->name, record->id);
}

}  // namespace

extern "C" {

quorl_status quorlMsg_GetFieldByIndex(quorlMsg message, quorlMsgField* field, quorl_u32 index) noexcept {
    if (field == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the field is null");
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    if (index >= content->count) {
        return fail(QUORL_NOT_FOUND, "the message has %u fields; there is none at index %u", content->count, index);
    }
    return describe(*slot, *content, index, field);
}

quorl_status quorlMsg_GetFieldEx(quorlMsg message, const char* name, quorlMsgField* field, quorl_u16 id) noexcept {
    if (field == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the field is null");
    quorl_status status;
    const Found found = findField(message, name, id, &status);
    return !found ? status : describe(*found.slot, found.content(), found.index(), field);
}

quorl_status quorlMsg_GetFieldInstance(quorlMsg message, const char* name, quorlMsgField* field,
                                       quorl_u32 instance) noexcept {
    if (field == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the field is null");
    quorl_status status;
    const Found found = findFieldInstance(message, name, instance, &status);
    return !found ? status : describe(*found.slot, found.content(), found.index(), field);
}

quorl_status _quorlMsg_GetFieldIndexAndType(quorlMsg message, const char* name, quorl_u64* indexAndType,
                                            quorl_u16 id) noexcept {
    if (indexAndType == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the index is null");
    quorl_status status;
    const Found found = findField(message, name, id, &status);
    if (!found) return status;
    *indexAndType = indexAndTypeOf(found);
    return QUORL_OK;
}

quorl_status _quorlMsg_GetFieldInstanceIndexAndType(quorlMsg message, const char* name, quorl_u32 instance,
                                                    quorl_u64* indexAndType) noexcept {
    if (indexAndType == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the index is null");
    quorl_status status;
    const Found found = findFieldInstance(message, name, instance, &status);
    if (!found) return status;
    *indexAndType = indexAndTypeOf(found);
    return QUORL_OK;
}

quorl_status quorlMsg_AddField(quorlMsg message, quorlMsgField* field) noexcept {
    return put<append>(message, field);
}

quorl_status quorlMsg_UpdateField(quorlMsg message, quorlMsgField* field) noexcept {
    return put<update>(message, field);
}

quorl_status quorlMsg_RemoveFieldEx(quorlMsg message, const char* name, quorl_u16 id) noexcept {
    Slot* slot;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    quorl_status status;
    const Found found = findField(message, name, id, &status);
    return !found ? status : remove(*slot, found.index());
}

quorl_status quorlMsg_RemoveFieldInstance(quorlMsg message, const char* name, quorl_u32 instance) noexcept {
    Slot* slot;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    quorl_status status;
    const Found found = findFieldInstance(message, name, instance, &status);
    return !found ? status : remove(*slot, found.index());
}

}  // extern "C"
