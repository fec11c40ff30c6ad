// The natives of QuorlQueueGroup: creating, filling and dispatching groups of queues.
#include "QuorlQueue.h"
#include "com_vesma_quorl_QuorlQueueGroup.h"
#include "native.h"

extern "C" {

// Answers the variable as the library left it, also beside an exception: 63 when it wrote nothing.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1Create(JNIEnv* env, jclass) {
    quorlQueueGroup queue_group = QUORL_INVALID_QUEUE_GROUP;
    const quorl_status status = quorlQueueGroup_Create(&queue_group);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
    return static_cast<jint>(queue_group);
}

JNIEXPORT jboolean JNICALL Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1Destroy(JNIEnv*, jclass, jint id) {
    return quorlQueueGroup_Destroy(static_cast<quorlQueueGroup>(id)) == QUORL_OK ? JNI_TRUE : JNI_FALSE;
}

// clang-format off

// Members and dispatch
JNIEXPORT void    JNICALL Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1Add(JNIEnv* env, jclass, jint groupId, jint queueId)              { callOrThrow<quorlQueueGroup_Add>(env, groupId, queueId); }
JNIEXPORT void    JNICALL Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1Remove(JNIEnv* env, jclass, jint groupId, jint queueId)           { callOrThrow<quorlQueueGroup_Remove>(env, groupId, queueId); }
JNIEXPORT jobject JNICALL Java_com_vesma_quorl_QuorlQueueGroup_quorlQueueGroup_1TimedDispatch(JNIEnv* env, jclass, jint id, jdouble timeout)      { return timedDispatch<quorlQueueGroup_TimedDispatch>(env, id, timeout); }

// clang-format on

}  // extern "C"
