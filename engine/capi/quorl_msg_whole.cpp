// Entry points for whole messages: making, copying, destroying, printing, wire images.
#include "base/forked.h"
#include "base/status.h"
#include "event/event.h"
#include "message/message.h"
#include "quorl/quorl.h"

using namespace quorl;
using namespace quorl::message;

extern "C" {

quorl_status quorlMsg_Create(quorlMsg* message) noexcept {
    if (message == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the message is null");
    return newMessage(nullptr, Owner::caller, 0, message);
}

quorl_status quorlMsg_CreateFromBytes(quorlMsg* message, const void* bytes) noexcept {
    if (message == nullptr || bytes == nullptr)
        return fail(QUORL_INVALID_ARG, "the bytes or the pointer for the message are null");
    Content* content = nullptr;
    const quorl_status status = readImage(static_cast<const uint8_t*>(bytes), UINT32_MAX, &content);
    return status != QUORL_OK ? status : newMessage(content, Owner::caller, 0, message);
}

quorl_status quorlMsg_CreateCopy(quorlMsg message, quorlMsg* copy) noexcept {
    if (copy == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the copy is null");
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    if (slot->owner == Owner::outer) {
        // A copy of its own, so that a small inner message does not keep a large outer one in memory.
        Content* own = nullptr;
        const quorl_status status = readImage(content->image, content->size, &own);
        return status != QUORL_OK ? status : newMessage(own, Owner::caller, 0, copy);
    }
    Content* shared = slot->content;
    if (shared != nullptr) shared->retain();
    quorlMsg made = nullptr;
    if (const quorl_status status = newMessage(shared, Owner::caller, 0, &made); status != QUORL_OK) return status;
    if (!copyAttributes(*slot, *resolve(made))) {
        dropMessage(*resolve(made));
        return fail(QUORL_NO_MEMORY, "no memory for the copy of a message");
    }
    *copy = made;
    return QUORL_OK;
}

quorl_status quorlMsg_GetEnvelope(quorlMsg message, quorlMsg* envelope) noexcept {
    if (envelope == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the envelope is null");
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    Content* subjects = newContent(0);
    if (subjects == nullptr || !subjects->copySubjects(*content)) {
        if (subjects != nullptr) subjects->release();
        return fail(QUORL_NO_MEMORY, "no memory for an envelope");
    }
    return newMessage(subjects, Owner::caller, 0, envelope);
}

quorl_status quorlMsg_Destroy(quorlMsg message) noexcept {
    Slot* slot;
    if (quorl_status status = find(message, &slot); status != QUORL_OK) return status;
    if (slot->owner == Owner::outer) {
        return fail(QUORL_NOT_PERMITTED, "a message inside a message cannot be destroyed: it ends with the outer one");
    }
    dropMessage(*slot);
    return QUORL_OK;
}

quorl_status quorlMsg_Detach(quorlMsg message) noexcept {
    Slot* slot;
    if (quorl_status status = find(message, &slot); status != QUORL_OK) return status;
    if (slot->owner == Owner::outer) {
        return fail(QUORL_NOT_PERMITTED, "a message inside a message cannot be detached; copy it");
    }
    slot->owner = Owner::caller;
    return QUORL_OK;
}

quorl_status quorlMsg_Reset(quorlMsg message) noexcept {
    Slot* slot;
    if (quorl_status status = findToChange(message, &slot); status != QUORL_OK) return status;
    return reset(*slot);
}

quorl_status quorlMsg_GetClosure(quorlMsg message, void** closure) noexcept {
    if (closure == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the closure is null");
    Slot* slot;
    if (quorl_status status = find(message, &slot); status != QUORL_OK) return status;
    *closure = slot->owner == Owner::outer ? nullptr : const_cast<void*>(event::closureOf(slot->event));
    return QUORL_OK;
}

quorl_status quorlMsg_ConvertToString(quorlMsg message, const char** string) noexcept {
    if (string == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the text is null");
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    return print(*slot, *content, string);
}

quorl_status quorlMsg_GetNumFields(quorlMsg message, quorl_u32* count) noexcept {
    if (count == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the count is null");
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    *count = content->count;
    return QUORL_OK;
}

quorl_status quorlMsg_GetByteSize(quorlMsg message, quorl_u32* size) noexcept {
    if (size == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the size is null");
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    *size = content->size;
    return QUORL_OK;
}

quorl_status quorlMsg_GetAsBytes(quorlMsg message, const void** bytes) noexcept {
    if (bytes == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the bytes is null");
    Slot* slot;
    Content* content;
    if (quorl_status status = open(message, &slot, &content); status != QUORL_OK) return status;
    noteBorrowed(*slot);
    *bytes = content->image;
    return QUORL_OK;
}

quorl_status quorlMsg_MarkReferences(quorlMsg message) noexcept {
    Slot* slot;
    if (quorl_status status = find(message, &slot); status != QUORL_OK) return status;
    openBracket(*slot);
    return QUORL_OK;
}

quorl_status quorlMsg_ClearReferences(quorlMsg message) noexcept {
    Slot* slot;
    if (quorl_status status = find(message, &slot); status != QUORL_OK) return status;
    closeBracket(*slot);
    return QUORL_OK;
}

quorl_status quorlMsg_SetOpaqueHandlers(quorl_u8 type) noexcept {
    if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
    if (type == 0) return QUORL_OK;
    if (type < QUORLMSG_USER_FIRST) return fail(QUORL_RESERVED_HANDLER, "opaque handler %d is reserved", type);
    return fail(QUORL_NOT_FOUND, "opaque handler %d does not exist", type);
}

}  // extern "C"
