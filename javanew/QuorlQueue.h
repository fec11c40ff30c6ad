// Timed dispatch, which queues and queue groups have in common.
#pragma once

#include "native.h"

// Dispatches at most one event and answers the Java object of that event: the very global reference that its callback
// left in the slot. Null: the callback left nothing. A new QuorlEvent that belongs to no event: none came in time, or a
// slot answered so. The slot is cleared as it is read, so an object is handed out once.
template <auto dispatch>
inline jobject timedDispatch(JNIEnv* env, jint id, jdouble timeout) {
    void* listenerRef = nullptr;
    quorl_status status = dispatch(static_cast<quorl_u32>(id), timeout);
    if (status == QUORL_OK) {
        status = _quorlThreadLocal_Get(_eventThreadKey, &listenerRef);
        if (listenerRef != nullptr) {
            status = _quorlThreadLocal_Set(_eventThreadKey, nullptr);
        }
    }
    if (status == QUORL_TIMEOUT) {
        return env->NewObject(_quorl_classes[kQuorlEvent].id, _quorl_methods[kNewQuorlEvent].id);
    }
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
    return toReference(listenerRef);
}
