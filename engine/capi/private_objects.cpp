// Objects by id, for language bindings.
#include "base/environment.h"
#include "base/forked.h"
#include "base/registry.h"
#include "base/status.h"
#include "quorl/private.h"

using namespace quorl;

namespace {

quorl_status noThreadState() noexcept {
    return fail(QUORL_NO_MEMORY, "no memory for the thread's state");
}

quorl_status noObject(quorl_u32 id, quorl_u32 type) noexcept {
    if (!environment::isOpen()) return fail(QUORL_NOT_INITIALIZED, "the library is not open");
    return fail(QUORL_NOT_FOUND, "object %u of type %u does not exist or has been destroyed", id, type);
}

}  // namespace

extern "C" {

quorl_status _quorlObjectId_Verify(quorl_u32 id, quorl_u32 type) noexcept {
    ThreadState* state = threadState();
    if (state == nullptr) return noThreadState();
    ReadGuard guard(*state);
    if (type > UINT16_MAX || registry::find(id, static_cast<uint16_t>(type)) == nullptr) return noObject(id, type);
    return QUORL_OK;
}

quorl_status _quorlObjectId_GetEx(quorl_u32 id, quorl_u32 type, void** record, quorl_u32 acquire,
                                  quorl_u32 flags) noexcept {
    if (record == nullptr) return fail(QUORL_INVALID_ARG, "the pointer for the record is null");
    *record = nullptr;
    if (acquire > 1 || flags != 0) return fail(QUORL_INVALID_ARG, "acquire must be 0 or 1, and flags 0");
    ThreadState* state = threadState();
    if (state == nullptr) return noThreadState();
    ReadGuard guard(*state);
    Record* found = type > UINT16_MAX ? nullptr : registry::find(id, static_cast<uint16_t>(type));
    // A certified listener is an event too, of a companion: whoever ends events finds its closure in the same way.
    if (found == nullptr && type == QUORL_OBJECT_EVENT) found = registry::find(id, QUORL_OBJECT_CM_EVENT);
    if (found == nullptr) return noObject(id, type);
    if (acquire == 1) registry::acquireReference(*found);
    *record = found;
    return QUORL_OK;
}

quorl_status _quorlObjectId_ReleaseEx(void* record, quorl_u32 acquire) noexcept {
    if (record == nullptr || acquire > 1)
        return fail(QUORL_INVALID_ARG, "the record is null, or acquire is neither 0 nor 1");
    if (forked::here()) return fail(QUORL_NOT_PERMITTED, "a forked process");
    if (acquire == 1) registry::releaseReference(*static_cast<Record*>(record));
    return QUORL_OK;
}

}  // extern "C"
