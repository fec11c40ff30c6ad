// The natives of QuorlTransport: sending, requests, replies and inboxes on a transport of any kind.
#include <cstring>

#include "com_vesma_quorl_QuorlTransport.h"
#include "native.h"

namespace {

// The messages of the last vector that the thread sent. They outlive the call that made them.
thread_local ThreadBlock leftVector;

}  // namespace

extern "C" {

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlTransport_quorlTransport_1SetDescription(JNIEnv* env, jclass,
                                                                                          jint transportId,
                                                                                          jbyteArray descriptionBytes,
                                                                                          jint descriptionLength) {
    char* const description = allocateText(descriptionLength);
    if (description == nullptr) {
        throwOutOfMemory(env, "Cannot allocate memory for transport description.");
        return;
    }
    env->GetByteArrayRegion(descriptionBytes, 0, descriptionLength, reinterpret_cast<jbyte*>(description));
    const quorl_status status = quorlTransport_SetDescription(static_cast<quorlTransport>(transportId), description);
    std::free(description);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlTransport_quorlTransport_1RequestReliability(JNIEnv* env, jclass,
                                                                                              jint transportId,
                                                                                              jdouble reliability) {
    callOrThrow<quorlTransport_RequestReliability>(env, transportId, reliability);
}

// Copies the whole buffer, so the Java array must hold 255 bytes; what the library did not write is zero. The length
// comes back also when that copy failed.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlTransport_quorlTransport_1CreateInbox(JNIEnv* env, jclass,
                                                                                       jint transportId,
                                                                                       jbyteArray subjectBytes) {
    char subject[255] = {};
    const quorl_status status =
        quorlTransport_CreateInbox(static_cast<quorlTransport>(transportId), subject, sizeof subject);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    env->SetByteArrayRegion(subjectBytes, 0, sizeof subject, reinterpret_cast<const jbyte*>(subject));
    return static_cast<jint>(std::strlen(subject));
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlTransport_quorlTransport_1Send(JNIEnv* env, jclass, jint transportId,
                                                                                jlong messagePointer, jobject) {
    callOrThrow<quorlTransport_Send>(env, transportId, toMsg(messagePointer));
}

// The vector is left behind when the call returns, whatever the library answered.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlTransport_quorlTransport_1Sendv(JNIEnv* env, jclass, jint transportId,
                                                                                 jlongArray handleArray,
                                                                                 jint handleArrayLength, jobjectArray) {
    quorlMsg* const messages = static_cast<quorlMsg*>(allocateZeroed(handleArrayLength, sizeof(quorlMsg)));
    if (messages == nullptr) {
        throwOutOfMemory(env, "Cannot allocate memory for array processing. (1)");
        return;
    }
    jlong* const handles = pin(env, handleArray);
    if (handles == nullptr) {
        std::free(messages);
        throwOutOfMemory(env, "Cannot allocate memory for array processing. (2)");
        return;
    }
    for (jint i = 0; i < handleArrayLength; ++i) {
        messages[i] = toMsg(handles[i]);
    }
    release(env, handleArray, handles);
    const quorl_status status = quorlTransport_Sendv(static_cast<quorlTransport>(transportId), messages,
                                                     static_cast<quorl_u32>(handleArrayLength));
    leaveBehind(&leftVector, messages);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
}

// No reply in time is an answer, 0, and no error.
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlTransport_quorlTransport_1SendRequest(JNIEnv* env, jclass,
                                                                                        jint transportId,
                                                                                        jlong requestPointer,
                                                                                        jdouble timeout, jobject) {
    quorlMsg reply = nullptr;
    const quorl_status status =
        quorlTransport_SendRequest(static_cast<quorlTransport>(transportId), toMsg(requestPointer), &reply, timeout);
    if (status != QUORL_OK && status != QUORL_TIMEOUT) {
        throwStatus(env, status);
    }
    return toHandle(reply);
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlTransport_quorlTransport_1SendReply(
    JNIEnv* env, jclass, jint transportId, jlong replyPointer, jlong requestPointer, jobject, jobject) {
    callOrThrow<quorlTransport_SendReply>(env, transportId, toMsg(replyPointer), toMsg(requestPointer));
}

// Reports nothing.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlTransport_quorlTransport_1Destroy(JNIEnv*, jclass, jint transportId) {
    quorlTransport_Destroy(static_cast<quorlTransport>(transportId));
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlTransport_quorlTransport_1SetBatchSize(JNIEnv* env, jclass,
                                                                                        jint transportId,
                                                                                        jint numBytes) {
    callOrThrow<quorlTransport_SetBatchSize>(env, transportId, numBytes);
}

}  // extern "C"
