// Entry points for whole fields: finding, describing, adding by record, removing.
#include "base/status.h"
#include "message/message.h"
#include "message/seek.h"
#include "message/values.h"
#include "quorl/private.h"
#include "quorl/quorl.h"

using namespace quorl;
using namespace quorl::message;

namespace {

// The instance-th field of that name.
quorl_status seekInstance(quorlMsg message, const char* name, uint32_t instance, Found* found) noexcept {
    Name checked;
    if (quorl_status status = open(message, &found->slot, &found->content); status != QUORL_OK) return status;
    if (quorl_status status = readName(name, &checked); status != QUORL_OK) return status;
    if (instance == 0) return fail(QUORL_INVALID_INSTANCE, "instances are counted from 1");
    const Content& content = *found->content;
    found->index = findName(content, checked);
    for (uint32_t left = instance - 1; found->index != notFound && left > 0; --left) {
        found->index = findNameFrom(content, checked, found->index + 1);
    }
    if (found->index != notFound) return QUORL_OK;
    return fail(QUORL_NOT_FOUND, "no instance %u of the name \"%s\"", instance, name != nullptr ? name : "");
}

quorl_u64 indexAndTypeOf(const Found& found) noexcept {
    return (quorl_u64{found.index} + 1) | quorl_u64{found.field().type} << 32;
}

template <auto change>
quorl_status put(quorlMsg message, const quorlMsgField* record) noexcept {
    if (record == nullptr) return fail(QUORL_INVALID_ARG, "no field");
    Slot* slot;
    Name name;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    if (quorl_status status = readName(record->name, &name); status != QUORL_OK) return status;
    ValueHolder holder;
    if (quorl_status status = holder.fromRecord(*record); status != QUORL_OK) return status;
    return change(*slot, name, record->id, holder.value);
}

}  // namespace

extern "C" {

quorl_status quorlMsg_GetFieldByIndex(quorlMsg message, quorlMsgField* field, quorl_u32 index) {
    if (field == nullptr) return fail(QUORL_INVALID_ARG, "no place for the field");
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    if (index >= content->count) {
        return fail(QUORL_NOT_FOUND, "the message has %u fields, none at index %u", content->count, index);
    }
    return describe(*slot, *content, index, field);
}

quorl_status quorlMsg_GetFieldEx(quorlMsg message, const char* name, quorlMsgField* field, quorl_u16 id) {
    if (field == nullptr) return fail(QUORL_INVALID_ARG, "no place for the field");
    Found found;
    const quorl_status status = seek(message, name, id, &found);
    return status != QUORL_OK ? status : describe(*found.slot, *found.content, found.index, field);
}

quorl_status quorlMsg_GetFieldInstance(quorlMsg message, const char* name, quorlMsgField* field, quorl_u32 instance) {
    if (field == nullptr) return fail(QUORL_INVALID_ARG, "no place for the field");
    Found found;
    const quorl_status status = seekInstance(message, name, instance, &found);
    return status != QUORL_OK ? status : describe(*found.slot, *found.content, found.index, field);
}

quorl_status _quorlMsg_GetFieldIndexAndType(quorlMsg message, const char* name, quorl_u64* indexAndType, quorl_u16 id) {
    if (indexAndType == nullptr) return fail(QUORL_INVALID_ARG, "no place for the index");
    Found found;
    const quorl_status status = seek(message, name, id, &found);
    if (status == QUORL_OK) *indexAndType = indexAndTypeOf(found);
    return status;
}

quorl_status _quorlMsg_GetFieldInstanceIndexAndType(quorlMsg message, const char* name, quorl_u32 instance,
                                                    quorl_u64* indexAndType) {
    if (indexAndType == nullptr) return fail(QUORL_INVALID_ARG, "no place for the index");
    Found found;
    const quorl_status status = seekInstance(message, name, instance, &found);
    if (status == QUORL_OK) *indexAndType = indexAndTypeOf(found);
    return status;
}

quorl_status quorlMsg_AddField(quorlMsg message, quorlMsgField* field) {
    return put<append>(message, field);
}

quorl_status quorlMsg_UpdateField(quorlMsg message, quorlMsgField* field) {
    return put<update>(message, field);
}

quorl_status quorlMsg_RemoveFieldEx(quorlMsg message, const char* name, quorl_u16 id) {
    Slot* slot;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    Found found;
    const quorl_status status = seek(message, name, id, &found);
    return status != QUORL_OK ? status : remove(*slot, found.index);
}

quorl_status quorlMsg_RemoveFieldInstance(quorlMsg message, const char* name, quorl_u32 instance) {
    Slot* slot;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    Found found;
    const quorl_status status = seekInstance(message, name, instance, &found);
    return status != QUORL_OK ? status : remove(*slot, found.index);
}

}  // extern "C"
