// The native of QuorlEvent: destroying listeners, vector listeners and timers.
#include "com_vesma_quorl_QuorlEvent.h"
#include "native.h"

extern "C" {

// The global reference goes first, then the event: callers see to it that no dispatch that began before can still hand
// out the reference. It goes with every record that comes back, whatever the status beside it. The record was asked for
// without a reference, so none is given back.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlEvent_quorlEvent_1Destroy(JNIEnv* env, jclass, jint id) {
    void* eventRec = nullptr;
    const quorl_status status = _quorlObjectId_GetEx(static_cast<quorl_u32>(id), QUORL_OBJECT_EVENT, &eventRec, 0, 0);
    if (eventRec != nullptr) {
        const void* const closure = static_cast<const _quorlRecordHead*>(eventRec)->arg;
        if (closure != nullptr) {
            env->DeleteGlobalRef(toReference(closure));
        }
    }
    if (status == QUORL_OK) {
        quorlEvent_DestroyEx(static_cast<quorlEvent>(id), nullptr);
    }
}

}  // extern "C"
