// The natives of MessageParts: the parts of what the Java message does, without the bridge.
#include <array>

#include "com_vesma_quorl_MessageParts.h"
#include "quorl/quorl.h"

namespace {

quorlMsg toMsg(jlong handle) {
    return reinterpret_cast<quorlMsg>(static_cast<uintptr_t>(handle));
}

using Name = std::array<char, 256>;

Name toName(JNIEnv* env, jbyteArray bytes) {
    Name name{};
    env->GetByteArrayRegion(bytes, 0, env->GetArrayLength(bytes), reinterpret_cast<jbyte*>(name.data()));
    return name;
}

}  // namespace

extern "C" {

JNIEXPORT void JNICALL Java_com_vesma_quorl_MessageParts_empty(JNIEnv*, jclass, jlong, jbyteArray, jint, jint, jshort,
                                                               jobject) {}

JNIEXPORT jlong JNICALL Java_com_vesma_quorl_MessageParts_copyBytes(JNIEnv* env, jclass, jbyteArray bytes, jint count) {
    Name name{};
    jsize length = env->GetArrayLength(bytes);
    jlong sum = 0;
    for (jint i = 0; i < count; ++i) {
        env->GetByteArrayRegion(bytes, 0, length, reinterpret_cast<jbyte*>(name.data()));
        sum += name[static_cast<size_t>(i) % 8];
    }
    return sum;
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_MessageParts_addNumbers(JNIEnv* env, jclass, jlong handle, jbyteArray bytes,
                                                                    jint perMessage, jint count) {
    Name name = toName(env, bytes);
    for (jint i = 0; i < count; ++i) {
        quorlMsg_AddI32Ex(toMsg(handle), name.data(), i, 0);
        if ((i + 1) % perMessage == 0) quorlMsg_Reset(toMsg(handle));
    }
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_MessageParts_copyAndAddNumbers(JNIEnv* env, jclass, jlong handle,
                                                                           jbyteArray bytes, jint perMessage,
                                                                           jint count) {
    jsize length = env->GetArrayLength(bytes);
    for (jint i = 0; i < count; ++i) {
        char name[255];
        env->GetByteArrayRegion(bytes, 0, length, reinterpret_cast<jbyte*>(name));
        name[length] = '\0';
        quorlMsg_AddI32Ex(toMsg(handle), name, i, 0);
        if ((i + 1) % perMessage == 0) quorlMsg_Reset(toMsg(handle));
    }
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_MessageParts_copyIn(JNIEnv* env, jclass, jintArray array) {
    std::array<jint, 1000> numbers;
    jsize length = env->GetArrayLength(array);
    env->GetIntArrayRegion(array, 0, length, numbers.data());
    return numbers[static_cast<size_t>(length) - 1];
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_MessageParts_copyOut(JNIEnv* env, jclass, jlong handle, jint index,
                                                                 jintArray array) {
    quorlMsgField field;
    quorlMsg_GetFieldByIndex(toMsg(handle), &field, static_cast<quorl_u16>(index));
    env->SetIntArrayRegion(array, 0, static_cast<jsize>(field.count), static_cast<const jint*>(field.data.array));
}

}  // extern "C"
