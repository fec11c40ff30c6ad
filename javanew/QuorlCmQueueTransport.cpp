// The natives of QuorlCmQueueTransport: joining a distributed queue and tuning it.
#include "com_vesma_quorl_QuorlCmQueueTransport.h"
#include "native.h"
#include "quorl/quorlcmq.h"

namespace {

// One call of the library serves both limits; the kind tells them apart.
template <quorl_u32 kind>
void setTaskBacklogLimit(JNIEnv* env, jint id, jint limit) {
    callOrThrow<quorlcmTransport_SetTaskBacklogLimit>(env, id, kind, limit);
}

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlCmQueueTransport_quorlcmTransport_1CreateDistributedQueueEx(
    JNIEnv* env, jclass, jint transportId, jbyteArray cmNameBytes, jint cmNameBytesLength, jint workerWeight,
    jint workerTasks, jshort schedulerWeight, jdouble schedulerHeartbeat, jdouble schedulerActivation) {
    Text cmName;
    quorlcmTransport id = 0;
    const quorl_status status =
        copyText(env, cmNameBytes, cmNameBytesLength, &cmName)
            ? quorlcmTransport_CreateDistributedQueueEx(
                  &id, static_cast<quorlTransport>(transportId), cmName.text, static_cast<quorl_u32>(workerWeight),
                  static_cast<quorl_u32>(workerTasks), static_cast<quorl_u16>(schedulerWeight), schedulerHeartbeat,
                  schedulerActivation)
            : QUORL_NO_MEMORY;
    freeText(cmName);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return static_cast<jint>(id);
}

// clang-format off

// Settings
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmQueueTransport_quorlcmTransport_1SetCompleteTime(JNIEnv* env, jclass, jint id, jdouble completeTime)                    { callOrThrow<quorlcmTransport_SetCompleteTime>(env, id, completeTime); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmQueueTransport_quorlcmTransport_1SetTaskBacklogLimitInBytes(JNIEnv* env, jclass, jint id, jint limitInBytes)            { setTaskBacklogLimit<QUORLCMQ_BACKLOG_BYTES>(env, id, limitInBytes); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmQueueTransport_quorlcmTransport_1SetTaskBacklogLimitInMessages(JNIEnv* env, jclass, jint id, jint limitInMessages)      { setTaskBacklogLimit<QUORLCMQ_BACKLOG_MESSAGES>(env, id, limitInMessages); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmQueueTransport_quorlcmTransport_1SetWorkerWeight(JNIEnv* env, jclass, jint id, jint workerWeight)                       { callOrThrow<quorlcmTransport_SetWorkerWeight>(env, id, workerWeight); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmQueueTransport_quorlcmTransport_1SetWorkerTasks(JNIEnv* env, jclass, jint id, jint workerTasks)                         { callOrThrow<quorlcmTransport_SetWorkerTasks>(env, id, workerTasks); }

// clang-format on

// The number beside an exception means nothing.
JNIEXPORT jint JNICALL
Java_com_vesma_quorl_QuorlCmQueueTransport_quorlcmTransport_1GetUnassignedMessageCount(JNIEnv* env, jclass, jint id) {
    quorl_u32 count = 0;
    const quorl_status status = quorlcmTransport_GetUnassignedMessageCount(static_cast<quorlcmTransport>(id), &count);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
    return static_cast<jint>(count);
}

}  // extern "C"
