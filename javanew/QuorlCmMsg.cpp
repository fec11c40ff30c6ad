// The natives of QuorlCmMsg: the attributes of certified messages.
#include <cstring>

#include "com_vesma_quorl_QuorlCmMsg.h"
#include "native.h"
#include "quorl/quorlcm.h"

extern "C" {

// A message without certified attributes is an ordinary answer of the three getters: -1 for the sender, whose 0 stands
// beside exceptions, and 0 for the two numbers, whose -1 stands beside exceptions.

JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlCmMsg_quorlMsg_1GetCMSender(JNIEnv* env, jclass, jlong handle,
                                                                             jbyteArray senderBytes, jobject) {
    const char* sender = nullptr;
    const quorl_status status = quorlMsg_GetCMSender(toMsg(handle), &sender);
    if (status == QUORL_NOT_FOUND) {
        return -1;
    }
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    const jint length = static_cast<jint>(std::strlen(sender));
    env->SetByteArrayRegion(senderBytes, 0, length, reinterpret_cast<const jbyte*>(sender));
    return length;
}

JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlCmMsg_quorlMsg_1GetCMSequence(JNIEnv* env, jclass, jlong handle,
                                                                                jobject) {
    quorl_u64 sequence = 0;
    const quorl_status status = quorlMsg_GetCMSequence(toMsg(handle), &sequence);
    if (status == QUORL_NOT_FOUND) {
        return 0;
    }
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return -1;
    }
    return static_cast<jlong>(sequence);
}

JNIEXPORT jdouble JNICALL Java_com_vesma_quorl_QuorlCmMsg_quorlMsg_1GetCMTimeLimit(JNIEnv* env, jclass, jlong handle,
                                                                                   jobject) {
    quorl_f64 timeLimit = 0.0;
    const quorl_status status = quorlMsg_GetCMTimeLimit(toMsg(handle), &timeLimit);
    if (status == QUORL_NOT_FOUND) {
        return 0.0;
    }
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return -1.0;
    }
    return timeLimit;
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmMsg_quorlMsg_1SetCMTimeLimit(JNIEnv* env, jclass, jlong handle,
                                                                                jdouble timeLimit, jobject) {
    callOrThrow<quorlMsg_SetCMTimeLimit>(env, toMsg(handle), timeLimit);
}

}  // extern "C"
