// The natives of QuorlVectorListener, the callback of vector listeners and the container that carries their batches.
#include "com_vesma_quorl_QuorlVectorListener.h"
#include "native.h"

namespace {

constexpr unsigned int kContainerEntries = QUORL_VECTOR_MAX;

// Takes a message over from the library, if it is to be kept: detaches it, and as long as no closure was found reads
// its closure and publishes that. A message without a closure is kept and leaves the search open. Once a closure is
// found the search ends, also when the slot refused it.
bool keepMessage(quorlMsg message, void** eventObj) {
    if (quorlMsg_Detach(message) != QUORL_OK) {
        return false;
    }
    if (*eventObj != nullptr) {
        return true;
    }
    if (quorlMsg_GetClosure(message, eventObj) != QUORL_OK) {
        *eventObj = nullptr;
        return false;
    }
    return *eventObj == nullptr || _quorlThreadLocal_Set(_eventThreadKey, *eventObj) == QUORL_OK;
}

}  // namespace

extern "C" {

// A new container is not put into the slot here: the callback does that once it is filled.
quorl_status getContainer(_quorl_msgs* msgContainer) {
    void* container = nullptr;
    _quorlThreadLocal_Get(_msgArrayThreadKey, &container);
    if (container == nullptr) {
        container = std::calloc(1, sizeof(**msgContainer));
        if (container == nullptr) {
            return QUORL_NO_MEMORY;
        }
    }
    *msgContainer = static_cast<_quorl_msgs>(container);
    return QUORL_OK;
}

// Messages that are not kept are destroyed and taken out of the library's vector; so are those past the container's
// end. Without a container all of them stay with the library.
void vectorListenerCallback(quorlMsg* msgs, unsigned int size) {
    _quorl_msgs container = nullptr;
    if (getContainer(&container) != QUORL_OK) {
        return;
    }
    void* eventObj = nullptr;
    unsigned int kept = 0;
    for (unsigned int i = 0; i < size; ++i) {
        if (kept < kContainerEntries && keepMessage(msgs[i], &eventObj)) {
            container->msgIds[kept] = toHandle(msgs[i]);
            ++kept;
        } else {
            quorlMsg_Destroy(msgs[i]);
            msgs[i] = nullptr;
        }
    }
    container->size = static_cast<jint>(kept);
    if (_quorlThreadLocal_Set(_msgArrayThreadKey, container) != QUORL_OK) {
        _quorlThreadLocal_Set(_msgArrayThreadKey, nullptr);
        for (unsigned int i = 0; i < kept; ++i) {
            quorlMsg_Destroy(toMsg(container->msgIds[i]));
        }
        std::free(container);
    }
}

// cb groups listeners: the library delivers those of one group together.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlVectorListener_quorlEvent_1CreateVectorListener(
    JNIEnv* env, jobject self, jint queueId, jint transportId, jbyteArray subjectBytes, jint subjectBytesLength,
    jint cb) {
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
    const quorl_status status = quorlEvent_CreateGroupVectorListener(
        &listenerId, static_cast<quorlQueue>(queueId), vectorListenerCallback, static_cast<quorlTransport>(transportId),
        subject.text, listenerRef, toPointer(cb));
    freeText(subject);
    if (status != QUORL_OK) {
        env->DeleteGlobalRef(listenerRef);
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return static_cast<jint>(listenerId);
}

// Copies the batch out and leaves it where it is: asked again before the next vector, the thread gets the same handles.
// The container is the thread's and outlives the call; the slot frees it as the thread ends.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlVectorListener_getDispatchedMsgsHandle(JNIEnv* env, jclass,
                                                                                        jlongArray msgArray) {
    void* slot = nullptr;
    _quorlThreadLocal_Get(_msgArrayThreadKey, &slot);
    if (slot == nullptr) {
        return 0;
    }
    const _quorl_msgs container = static_cast<_quorl_msgs>(slot);
    env->SetLongArrayRegion(msgArray, 0, container->size, container->msgIds);
    return container->size;
}

}  // extern "C"
