// The natives of QuorlQueue: creating, naming, tuning and dispatching event queues.
#include "QuorlQueue.h"

#include <cstring>

#include "com_vesma_quorl_QuorlQueue.h"
#include "native.h"

namespace {

// A queue's limit policy. The three numbers travel together in the library; each getter gives one of them to Java.
struct LimitPolicy {
    quorlQueueLimitPolicy limitPolicy = QUORLQUEUE_DISCARD_NONE;
    quorl_u32 maxEvents = 0;
    quorl_u32 discardAmount = 0;
};

// What the library left in the wanted member, also beside an exception.
template <auto member>
jint limitPolicyOf(JNIEnv* env, jint id) {
    LimitPolicy policy;
    const quorl_status status = quorlQueue_GetLimitPolicy(static_cast<quorlQueue>(id), &policy.limitPolicy,
                                                          &policy.maxEvents, &policy.discardAmount);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
    return static_cast<jint>(policy.*member);
}

// A number of the queue as the library left it, also beside an exception.
template <auto library>
jint numberOf(JNIEnv* env, jint id) {
    quorl_u32 number = 0;
    const quorl_status status = library(static_cast<quorlQueue>(id), &number);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
    return static_cast<jint>(number);
}

}  // namespace

extern "C" {

// Answers 0 when the library refuses, whatever it left in the variable; the group's twin answers the variable.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1Create(JNIEnv* env, jclass) {
    quorlQueue queue = QUORL_INVALID_QUEUE;
    const quorl_status status = quorlQueue_Create(&queue);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    return static_cast<jint>(queue);
}

// Reports nothing, whereas a group's destruction answers whether it succeeded.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1Destroy(JNIEnv*, jclass, jint id) {
    quorlQueue_DestroyEx(static_cast<quorlQueue>(id), nullptr, nullptr);
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1SetName(JNIEnv* env, jclass, jint id,
                                                                           jbyteArray nameBytes, jint nameBytesLength) {
    char* const name = allocateText(nameBytesLength);
    if (name == nullptr) {
        throwOutOfMemory(env, "Cannot allocate memory for queue name.");
        return;
    }
    env->GetByteArrayRegion(nameBytes, 0, nameBytesLength, reinterpret_cast<jbyte*>(name));
    const quorl_status status = quorlQueue_SetName(static_cast<quorlQueue>(id), name);
    std::free(name);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

// Null for a queue without a name, for an empty name and for every failure.
JNIEXPORT jbyteArray JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetName(JNIEnv* env, jclass, jint id) {
    const char* name = nullptr;
    if (quorlQueue_GetName(static_cast<quorlQueue>(id), &name) != QUORL_OK || name == nullptr || *name == '\0') {
        return nullptr;
    }
    const jsize length = static_cast<jsize>(std::strlen(name));
    const jbyteArray bytes = env->NewByteArray(length);
    if (bytes == nullptr) {
        return nullptr;
    }
    env->SetByteArrayRegion(bytes, 0, length, reinterpret_cast<const jbyte*>(name));
    return bytes;
}

// clang-format off

// Count, dispatch, priority
JNIEXPORT jint    JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetCount(JNIEnv* env, jclass, jint id)                        { return numberOf<quorlQueue_GetCount>(env, id); }
JNIEXPORT jobject JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1TimedDispatch(JNIEnv* env, jclass, jint id, jdouble timeout)  { return timedDispatch<quorlQueue_TimedDispatch>(env, id, timeout); }
JNIEXPORT void    JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1SetPriority(JNIEnv* env, jclass, jint id, jint priority)      { callOrThrow<quorlQueue_SetPriority>(env, id, priority); }
JNIEXPORT jint    JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetPriority(JNIEnv* env, jclass, jint id)                     { return numberOf<quorlQueue_GetPriority>(env, id); }

// clang-format on

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1SetLimitPolicy(JNIEnv* env, jclass, jint id,
                                                                                  jint limitPolicy, jint maxEvents,
                                                                                  jint discardAmount) {
    callOrThrow<quorlQueue_SetLimitPolicy>(env, id, static_cast<quorlQueueLimitPolicy>(limitPolicy), maxEvents,
                                           discardAmount);
}

// clang-format off

// Limit policy: the same call of the library in each
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetLimitPolicy(JNIEnv* env, jclass, jint id)   { return limitPolicyOf<&LimitPolicy::limitPolicy>(env, id); }
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetMaxEvents(JNIEnv* env, jclass, jint id)     { return limitPolicyOf<&LimitPolicy::maxEvents>(env, id); }
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlQueue_quorlQueue_1GetDiscardAmount(JNIEnv* env, jclass, jint id) { return limitPolicyOf<&LimitPolicy::discardAmount>(env, id); }

// clang-format on

}  // extern "C"
