// The natives of BridgeFloor: for each shape of native the calls that it cannot do without, and nothing else.
#include <cstring>
#include <memory>

#include "com_vesma_quorl_BridgeFloor.h"
#include "quorl/private.h"
#include "quorl/quorl.h"

namespace {

quorlMsg toMsg(jlong handle) {
    return reinterpret_cast<quorlMsg>(static_cast<uintptr_t>(handle));
}

// A name as the contract has it: copied into a fixed buffer and terminated.
struct Name {
    Name(JNIEnv* env, jbyteArray bytes, jint length) {
        env->GetByteArrayRegion(bytes, 0, length, reinterpret_cast<jbyte*>(text));
        text[length] = '\0';
    }
    char text[255];
};

}  // namespace

extern "C" {

JNIEXPORT jint JNICALL Java_com_vesma_quorl_BridgeFloor_byIndex(JNIEnv*, jclass, jlong handle, jint index, jobject) {
    quorlMsgField field;
    quorlMsg_GetFieldByIndex(toMsg(handle), &field, static_cast<quorl_u16>(index));
    return field.data.i32;
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_BridgeFloor_byName(JNIEnv* env, jclass, jlong handle, jbyteArray bytes,
                                                               jint length, jshort id, jobject) {
    Name name(env, bytes, length);
    quorl_i32 value = 0;
    quorlMsg_GetI32Ex(toMsg(handle), name.text, &value, static_cast<quorl_u16>(id));
    return value;
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_BridgeFloor_byNameUtf(JNIEnv* env, jclass, jlong handle, jstring name,
                                                                  jshort id, jobject) {
    const char* text = env->GetStringUTFChars(name, nullptr);
    quorl_i32 value = 0;
    quorlMsg_GetI32Ex(toMsg(handle), text, &value, static_cast<quorl_u16>(id));
    env->ReleaseStringUTFChars(name, text);
    return value;
}

JNIEXPORT jlong JNICALL Java_com_vesma_quorl_BridgeFloor_find(JNIEnv* env, jclass, jlong handle, jbyteArray bytes,
                                                              jint length, jshort id, jobject) {
    Name name(env, bytes, length);
    quorl_u64 found = 0;
    _quorlMsg_GetFieldIndexAndType(toMsg(handle), name.text, &found, static_cast<quorl_u16>(id));
    return static_cast<jlong>(found);
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_BridgeFloor_update(JNIEnv* env, jclass, jlong handle, jbyteArray bytes,
                                                               jint length, jint value, jshort id, jobject) {
    Name name(env, bytes, length);
    quorlMsg_UpdateI32Ex(toMsg(handle), name.text, value, static_cast<quorl_u16>(id));
}

// The text that the library keeps goes through a zeroed heap buffer of its length and one.
JNIEXPORT void JNICALL Java_com_vesma_quorl_BridgeFloor_updateString(JNIEnv* env, jclass, jlong handle,
                                                                     jbyteArray bytes, jint length, jbyteArray value,
                                                                     jint valueLength, jshort id, jobject) {
    Name name(env, bytes, length);
    auto text = std::make_unique<char[]>(static_cast<size_t>(valueLength) + 1);
    env->GetByteArrayRegion(value, 0, valueLength, reinterpret_cast<jbyte*>(text.get()));
    quorlMsg_UpdateStringEx(toMsg(handle), name.text, text.get(), static_cast<quorl_u16>(id));
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_BridgeFloor_updateArray(JNIEnv* env, jclass, jlong handle, jbyteArray bytes,
                                                                    jint length, jintArray array, jint arrayLength,
                                                                    jshort id, jobject) {
    Name name(env, bytes, length);
    auto* elements = static_cast<quorl_i32*>(env->GetPrimitiveArrayCritical(array, nullptr));
    quorlMsg_UpdateI32ArrayEx(toMsg(handle), name.text, elements, static_cast<quorl_u32>(arrayLength),
                              static_cast<quorl_u16>(id));
    env->ReleasePrimitiveArrayCritical(array, elements, JNI_ABORT);
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_BridgeFloor_updateOpaque(JNIEnv* env, jclass, jlong handle,
                                                                     jbyteArray bytes, jint length, jbyteArray value,
                                                                     jint valueLength, jshort id, jobject) {
    Name name(env, bytes, length);
    void* elements = env->GetPrimitiveArrayCritical(value, nullptr);
    quorlMsg_UpdateOpaqueEx(toMsg(handle), name.text, elements, static_cast<quorl_u32>(valueLength),
                            static_cast<quorl_u16>(id));
    env->ReleasePrimitiveArrayCritical(value, elements, JNI_ABORT);
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_BridgeFloor_getArray(JNIEnv* env, jclass, jlong handle, jint index,
                                                                 jintArray array, jobject) {
    quorlMsg_MarkReferences(toMsg(handle));
    quorlMsgField field;
    quorlMsg_GetFieldByIndex(toMsg(handle), &field, static_cast<quorl_u16>(index));
    env->SetIntArrayRegion(array, 0, static_cast<jsize>(field.count), static_cast<const jint*>(field.data.array));
    quorlMsg_ClearReferences(toMsg(handle));
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_BridgeFloor_getOpaque(JNIEnv* env, jclass, jlong handle, jint index,
                                                                  jbyteArray bytes, jobject) {
    quorlMsgField field;
    quorlMsg_GetFieldByIndex(toMsg(handle), &field, static_cast<quorl_u16>(index));
    env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(field.size), static_cast<const jbyte*>(field.data.buf));
}

JNIEXPORT jbyteArray JNICALL Java_com_vesma_quorl_BridgeFloor_fieldName(JNIEnv* env, jclass, jlong handle, jint index,
                                                                        jobject) {
    quorlMsg_MarkReferences(toMsg(handle));
    quorlMsgField field;
    quorlMsg_GetFieldByIndex(toMsg(handle), &field, static_cast<quorl_u16>(index));
    auto length = static_cast<jsize>(std::strlen(field.name));
    jbyteArray bytes = env->NewByteArray(length);
    env->SetByteArrayRegion(bytes, 0, length, reinterpret_cast<const jbyte*>(field.name));
    if (env->ExceptionOccurred() != nullptr) return nullptr;
    quorlMsg_ClearReferences(toMsg(handle));
    return bytes;
}

JNIEXPORT jbyteArray JNICALL Java_com_vesma_quorl_BridgeFloor_asBytes(JNIEnv* env, jclass, jlong handle, jobject) {
    quorl_u32 size = 0;
    const void* image = nullptr;
    quorlMsg_GetByteSize(toMsg(handle), &size);
    quorlMsg_GetAsBytes(toMsg(handle), &image);
    jbyteArray bytes = env->NewByteArray(static_cast<jsize>(size));
    env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(size), static_cast<const jbyte*>(image));
    return bytes;
}

JNIEXPORT jstring JNICALL Java_com_vesma_quorl_BridgeFloor_subjectUtf8(JNIEnv* env, jclass, jlong handle, jobject) {
    quorlMsg_MarkReferences(toMsg(handle));
    const char* subject = nullptr;
    quorlMsg_GetSendSubject(toMsg(handle), &subject);
    jstring text = env->NewStringUTF(subject);
    quorlMsg_ClearReferences(toMsg(handle));
    return text;
}

}  // extern "C"
