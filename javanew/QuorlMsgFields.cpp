// The natives of QuorlMsg that find, describe and remove fields.
#include <cstring>

#include "QuorlMsg.h"
#include "com_vesma_quorl_QuorlMsg.h"

namespace {

// The number that says where a field is and what it is. The library makes it and Java splits it; it is never 0 for a
// field that was found.
jlong indexAndTypeOf(quorl_u64 indexAndType) {
    return static_cast<jlong>(indexAndType);
}

// A field that is not there is an ordinary answer of the lookup by name and id, and of the size, count and type at a
// position; the lookups of an instance, the id and the name throw for it as for every other status.
void throwUnlessNotFound(JNIEnv* env, quorl_status status) {
    if (status != QUORL_NOT_FOUND) {
        throwStatus(env, status);
    }
}

// Reads a field inside a bracket of references that is closed before the result is used.
quorl_status readMarkedField(jlong handle, jint index, quorlMsgField* field) {
    quorlMsg_MarkReferences(toMsg(handle));
    const quorl_status status = readField(handle, index, field);
    quorlMsg_ClearReferences(toMsg(handle));
    return status;
}

// A number of the field record, zero-extended; 0 for a field that is not there.
template <class Java, auto member>
Java numberAt(JNIEnv* env, jlong handle, jint index) {
    quorlMsgField field;
    const quorl_status status = readMarkedField(handle, index, &field);
    if (status != QUORL_OK) {
        throwUnlessNotFound(env, status);
        return 0;
    }
    static_assert(sizeof(Java) > sizeof(field.*member));
    return static_cast<Java>(field.*member);
}

}  // namespace

extern "C" {

// ---- finding -------------------------------------------------------------------------------------------------------

JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldTypeAndIndex(JNIEnv* env, jclass, jlong handle,
                                                                                     jbyteArray nameBytes,
                                                                                     jint nameBytesLength, jshort id,
                                                                                     jobject) {
    Text name;
    quorl_u64 indexAndType = 0;
    const quorl_status status =
        copyText(env, nameBytes, nameBytesLength, &name)
            ? _quorlMsg_GetFieldIndexAndType(toMsg(handle), name.text, &indexAndType, static_cast<quorl_u16>(id))
            : QUORL_NO_MEMORY;
    freeText(name);
    if (status == QUORL_OK) {
        return indexAndTypeOf(indexAndType);
    }
    if (status != QUORL_NOT_FOUND) {
        throwStatusUnlessPending(env, status);
    }
    return 0;
}

JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldTypeAndIndexUTF(JNIEnv* env, jclass,
                                                                                        jlong handle, jstring fieldName,
                                                                                        jshort id, jobject) {
    const char* const name = nameChars(env, fieldName, kNoMessageBytes);
    if (name == nullptr) {
        return 0;
    }
    quorl_u64 indexAndType = 0;
    const quorl_status status =
        _quorlMsg_GetFieldIndexAndType(toMsg(handle), name, &indexAndType, static_cast<quorl_u16>(id));
    env->ReleaseStringUTFChars(fieldName, name);
    if (status == QUORL_OK) {
        return indexAndTypeOf(indexAndType);
    }
    throwUnlessNotFound(env, status);
    return 0;
}

JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldInstanceTypeAndIndex(
    JNIEnv* env, jclass, jlong handle, jint instance, jbyteArray nameBytes, jint nameBytesLength, jobject) {
    Text name;
    quorl_u64 indexAndType = 0;
    const quorl_status status = copyText(env, nameBytes, nameBytesLength, &name)
                                    ? _quorlMsg_GetFieldInstanceIndexAndType(
                                          toMsg(handle), name.text, static_cast<quorl_u32>(instance), &indexAndType)
                                    : QUORL_NO_MEMORY;
    freeText(name);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return indexAndTypeOf(indexAndType);
}

JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldInstanceTypeAndIndexUTF(
    JNIEnv* env, jclass, jlong handle, jint instance, jstring fieldName, jobject) {
    const char* const name = nameChars(env, fieldName, kNoMessageBytes);
    if (name == nullptr) {
        return 0;
    }
    quorl_u64 indexAndType = 0;
    const quorl_status status =
        _quorlMsg_GetFieldInstanceIndexAndType(toMsg(handle), name, static_cast<quorl_u32>(instance), &indexAndType);
    env->ReleaseStringUTFChars(fieldName, name);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
    return indexAndTypeOf(indexAndType);
}

// ---- describing ----------------------------------------------------------------------------------------------------

// clang-format off

JNIEXPORT jlong  JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldSize(JNIEnv* env, jclass, jlong handle, jint index, jobject)  { return numberAt<jlong, &quorlMsgField::size>(env, handle, index); }
JNIEXPORT jlong  JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldCount(JNIEnv* env, jclass, jlong handle, jint index, jobject) { return numberAt<jlong, &quorlMsgField::count>(env, handle, index); }
JNIEXPORT jshort JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldType(JNIEnv* env, jclass, jlong handle, jint index, jobject)  { return numberAt<jshort, &quorlMsgField::type>(env, handle, index); }

// clang-format on

JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldId(JNIEnv* env, jclass, jlong handle, jint index,
                                                                          jobject) {
    quorlMsgField field;
    const quorl_status status = readMarkedField(handle, index, &field);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    return field.id;
}

// Null for a field without a name. The bracket stays open until the name is copied.
JNIEXPORT jbyteArray JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetFieldName(JNIEnv* env, jclass, jlong handle,
                                                                                  jint index, jobject) {
    const quorlMsg message = toMsg(handle);
    quorlMsgField field;
    quorlMsg_MarkReferences(message);
    const quorl_status status = readField(handle, index, &field);
    if (status != QUORL_OK) {
        clearAndThrowStatus(env, handle, status);
        return nullptr;
    }
    if (field.name == nullptr) {
        quorlMsg_ClearReferences(message);
        return nullptr;
    }
    const jsize length = static_cast<jsize>(std::strlen(field.name));
    jbyteArray bytes = env->NewByteArray(length);
    if (bytes == nullptr) {
        quorlMsg_ClearReferences(message);
        throwOutOfMemory(env, kNoFieldName);
        return nullptr;
    }
    env->SetByteArrayRegion(bytes, 0, length, reinterpret_cast<const jbyte*>(field.name));
    if (env->ExceptionOccurred() != nullptr) {
        bytes = nullptr;
    }
    quorlMsg_ClearReferences(message);
    return bytes;
}

// ---- removing ------------------------------------------------------------------------------------------------------

JNIEXPORT jboolean JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1RemoveFieldEx(JNIEnv* env, jclass, jlong handle,
                                                                                 jbyteArray fieldNameBytes,
                                                                                 jint fieldNameBytesLength, jshort id,
                                                                                 jobject) {
    Text name;
    const quorl_status status = copyText(env, fieldNameBytes, fieldNameBytesLength, &name)
                                    ? quorlMsg_RemoveFieldEx(toMsg(handle), name.text, static_cast<quorl_u16>(id))
                                    : QUORL_NO_MEMORY;
    freeText(name);
    if (status == QUORL_OK) {
        return JNI_TRUE;
    }
    if (status != QUORL_NOT_FOUND) {
        throwStatusUnlessPending(env, status);
    }
    return JNI_FALSE;
}

// Never throws. The instance travels in its low 32 bits.
JNIEXPORT jboolean JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1RemoveFieldInstance(
    JNIEnv* env, jclass, jlong handle, jbyteArray fieldNameBytes, jint fieldNameBytesLength, jlong instance, jobject) {
    Text name;
    const quorl_status status =
        copyText(env, fieldNameBytes, fieldNameBytesLength, &name)
            ? quorlMsg_RemoveFieldInstance(toMsg(handle), name.text, static_cast<quorl_u32>(instance))
            : QUORL_NO_MEMORY;
    freeText(name);
    return status == QUORL_OK ? JNI_TRUE : JNI_FALSE;
}

}  // extern "C"
