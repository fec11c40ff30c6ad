// The natives of QuorlCmListener and the callback of certified listeners.
#include "com_vesma_quorl_QuorlCmListener.h"
#include "native.h"
#include "quorl/quorlcm.h"
#include "quorl/quorlcmq.h"

extern "C" {

JNIEXPORT void cmListenerCallback(quorlcmEvent listener, quorlMsg message, void* closure);

// The message is detached before it is published, and a step that fails leaves the slots as they are: a plain listener
// publishes first and clears what it set.
void cmListenerCallback(quorlcmEvent, quorlMsg message, void* closure) {
    if (_quorlThreadLocal_Set(_eventThreadKey, closure) != QUORL_OK || quorlMsg_Detach(message) != QUORL_OK) {
        return;
    }
    _quorlThreadLocal_Set(_msgThreadKey, message);
}

// Every certified listener confirms explicitly from the start, and completes uncertified messages itself. A listener
// that was created stays with the library when one of the two modes is refused; only the reference is taken back.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1CreateListener(JNIEnv* env, jobject self,
                                                                                         jint queueId, jint transportId,
                                                                                         jbyteArray subjectBytes,
                                                                                         jint subjectBytesLength) {
    Text subject;
    if (!copyTextOrThrow(env, subjectBytes, subjectBytesLength, &subject)) {
        return 0;
    }
    const jobject listenerRef = env->NewGlobalRef(self);
    if (listenerRef == nullptr) {
        freeText(subject);
        throwOutOfMemoryUnlessPending(env, "Cannot allocate memory for listener reference.");
        return 0;
    }
    quorlcmEvent id = 0;
    quorl_status status =
        quorlcmEvent_CreateListener(&id, static_cast<quorlQueue>(queueId), cmListenerCallback,
                                    static_cast<quorlcmTransport>(transportId), subject.text, listenerRef);
    freeText(subject);
    if (status == QUORL_OK) {
        status = quorlcmEvent_SetExplicitConfirm(id);
    }
    if (status == QUORL_OK) {
        status = _quorlcmEvent_SetExplicitCompleteForNonCertifiedMessages(id);
    }
    if (status != QUORL_OK) {
        env->DeleteGlobalRef(listenerRef);
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return static_cast<jint>(id);
}

// The global reference of the listener stays: this native does not look into the library's record.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1Destroy(JNIEnv*, jclass, jint eventId,
                                                                                  jboolean cancelAgreements) {
    quorlcmEvent_DestroyEx(static_cast<quorlcmEvent>(eventId), toBool(cancelAgreements), nullptr);
}

// clang-format off

// Confirmation
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1SetExplicitConfirm(JNIEnv* env, jclass, jint eventId)                   { callOrThrow<quorlcmEvent_SetExplicitConfirm>(env, eventId); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1ConfirmMsg(JNIEnv* env, jclass, jint eventId, jlong handle, jobject)    { callOrThrow<quorlcmEvent_ConfirmMsg>(env, eventId, toMsg(handle)); }

// clang-format on

// Quiet throughout. A message without the number completes number 0. The reference on the record is held only here.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmListener_quorlcmEvent_1CompleteNonCertifiedMsg(JNIEnv*, jclass,
                                                                                                  jint transportId,
                                                                                                  jlong handle) {
    void* record = nullptr;
    quorl_u32 dqsn = 0;
    if (_quorlObjectId_GetEx(static_cast<quorl_u32>(transportId), QUORL_OBJECT_CM_TRANSPORT, &record, 1, 0) !=
        QUORL_OK) {
        return;
    }
    quorlMsg_GetU32Ex(toMsg(handle), "dqsn", &dqsn, 0);
    _quorlcmq_Complete(record, 0, 0, 0, 0, 0, dqsn);
    _quorlObjectId_ReleaseEx(record, 1);
}

}  // extern "C"
