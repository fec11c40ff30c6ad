// The natives of QuorlListener and the callback of listeners, which leaves event and message to the dispatching thread.
#include "com_vesma_quorl_QuorlListener.h"
#include "native.h"

extern "C" {

// The slots are filled before the message is detached; a step that fails takes back its own slot, and what stands
// before it stays: after a failed detach Java still gets the listener, without a message, and the library keeps the
// message.
void listenerCallback(quorlEvent, quorlMsg message, void* closure) {
    if (_quorlThreadLocal_Set(_eventThreadKey, closure) != QUORL_OK) {
        _quorlThreadLocal_Set(_eventThreadKey, nullptr);
        return;
    }
    if (_quorlThreadLocal_Set(_msgThreadKey, message) != QUORL_OK || quorlMsg_Detach(message) != QUORL_OK) {
        _quorlThreadLocal_Set(_msgThreadKey, nullptr);
    }
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlListener_quorlEvent_1CreateListener(JNIEnv* env, jobject self,
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
    quorlEvent listenerId = 0;
    const quorl_status status =
        quorlEvent_CreateListener(&listenerId, static_cast<quorlQueue>(queueId), listenerCallback,
                                  static_cast<quorlTransport>(transportId), subject.text, listenerRef);
    freeText(subject);
    if (status != QUORL_OK) {
        env->DeleteGlobalRef(listenerRef);
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return static_cast<jint>(listenerId);
}

// Takes the message and clears the slot: from now on the Java message owns it. A message that is never taken is lost
// when the next callback on the thread overwrites it, or when the thread ends.
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlListener_getDispatchedMsgHandle(JNIEnv*, jclass) {
    void* message = nullptr;
    _quorlThreadLocal_Get(_msgThreadKey, &message);
    if (message == nullptr) {
        return 0;
    }
    _quorlThreadLocal_Set(_msgThreadKey, nullptr);
    return toHandle(static_cast<quorlMsg>(message));
}

}  // extern "C"
