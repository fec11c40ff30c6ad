// The natives of QuorlMsg for fields of one value: reading by position and by name, adding and updating.
#include <arpa/inet.h>

#include "QuorlMsg.h"
#include "com_vesma_quorl_QuorlMsg.h"

namespace {

// The value that a function of the library takes or fills, out of its signature.
template <class Value>
Value valueTypeOf(quorl_status (*)(quorlMsg, const char*, Value, quorl_u16));
template <class Value>
Value resultTypeOf(quorl_status (*)(quorlMsg, const char*, Value*, quorl_u16));

// ---- reading -------------------------------------------------------------------------------------------------------

// The record's member of the getter's own type, whatever type the field has; unsigned values are zero-extended. Every
// failing status is thrown.
template <class Java, auto member>
Java valueAt(JNIEnv* env, jlong handle, jint index) {
    quorlMsgField field;
    const quorl_status status = readField(handle, index, &field);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    using Value = std::remove_reference_t<decltype(field.data.*member)>;
    static_assert(std::is_same_v<Value, quorl_bool> || kCarries<Java, Value> ||
                  (std::is_unsigned_v<Value> && sizeof(Java) == 2 * sizeof(Value)));
    return static_cast<Java>(field.data.*member);
}

// The library's value as Java gets it.
template <class Java, class Value>
Java toJava(Value value) {
    static_assert(std::is_same_v<Value, quorl_bool> || kCarries<Java, Value>);
    return static_cast<Java>(value);
}

template <class Java, auto library>
Java valueOf(JNIEnv* env, jlong handle, jbyteArray fieldNameBytes, jint fieldNameBytesLength, jshort id) {
    Text name;
    decltype(resultTypeOf(library)) value{};
    const quorl_status status = copyText(env, fieldNameBytes, fieldNameBytesLength, &name)
                                    ? library(toMsg(handle), name.text, &value, static_cast<quorl_u16>(id))
                                    : QUORL_NO_MEMORY;
    freeText(name);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return toJava<Java>(value);
}

template <class Java, auto library>
Java valueOf(JNIEnv* env, jlong handle, jstring fieldName, jshort id) {
    const char* const name = nameChars(env, fieldName, kNoMessageBytes);
    if (name == nullptr) {
        return 0;
    }
    decltype(resultTypeOf(library)) value{};
    const quorl_status status = library(toMsg(handle), name, &value, static_cast<quorl_u16>(id));
    env->ReleaseStringUTFChars(fieldName, name);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    return toJava<Java>(value);
}

// ---- writing -------------------------------------------------------------------------------------------------------

// Adding takes ports and addresses in the order of the host and stores them in that of the network. Updating stores
// what it is given, and reading gives what is stored.
quorl_ipport16 toNetworkOrder(jshort port) {
    return htons(static_cast<quorl_u16>(port));
}
quorl_ipaddr32 toNetworkOrder(jint address) {
    return htonl(static_cast<quorl_u32>(address));
}

quorlMsgDateTime toDateTime(jlong sec, jint nsec) {
    return {sec, static_cast<quorl_u32>(nsec)};
}

// The rule of adding and updating by a name in bytes.
template <auto library, class Value>
void setValue(JNIEnv* env, jlong handle, jbyteArray fieldNameBytes, jint fieldNameBytesLength, Value value, jshort id) {
    static_assert(kCarries<Value, decltype(valueTypeOf(library))>);
    Text name;
    const quorl_status status = copyText(env, fieldNameBytes, fieldNameBytesLength, &name)
                                    ? library(toMsg(handle), name.text, value, static_cast<quorl_u16>(id))
                                    : QUORL_NO_MEMORY;
    freeText(name);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

// The rule of adding and updating by a name as a string: the name is released before an exception is made.
template <auto library, class Value>
void setValue(JNIEnv* env, jlong handle, jstring fieldName, Value value, jshort id) {
    static_assert(kCarries<Value, decltype(valueTypeOf(library))>);
    const char* const name = nameChars(env, fieldName, kNoMessageBytes);
    if (name == nullptr) {
        return;
    }
    const quorl_status status = library(toMsg(handle), name, value, static_cast<quorl_u16>(id));
    env->ReleaseStringUTFChars(fieldName, name);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
}

void throwNoFieldName(JNIEnv* env) {
    throwOutOfMemory(env, kNoFieldName);
}
void throwNoMemoryStatus(JNIEnv* env) {
    throwStatus(env, QUORL_NO_MEMORY);
}

// Booleans, dates and messages are added by a rule of their own: the exception is made before the name is released and
// thrown after it, and a name that cannot be converted is reported by throwNoName.
template <auto library, auto throwNoName, class Value>
void setValueMadeFirst(JNIEnv* env, jlong handle, jstring fieldName, Value value, jshort id) {
    static_assert(kCarries<Value, decltype(valueTypeOf(library))>);
    const char* const name = env->GetStringUTFChars(fieldName, nullptr);
    if (name == nullptr) {
        throwNoName(env);
        return;
    }
    const quorl_status status = library(toMsg(handle), name, value, static_cast<quorl_u16>(id));
    const jthrowable exception = status != QUORL_OK ? newStatusException(env, status) : nullptr;
    env->ReleaseStringUTFChars(fieldName, name);
    throwIfMade(env, exception);
}

// The error speaks of the field's name, though it is the value that finds no memory.
template <auto library>
void setString(JNIEnv* env, jlong handle, jbyteArray fieldNameBytes, jint fieldNameBytesLength,
               jbyteArray fieldValueBytes, jint fieldValueBytesLength, jshort id) {
    Text name;
    if (!copyTextOrThrow(env, fieldNameBytes, fieldNameBytesLength, &name)) {
        return;
    }
    char* const value = allocateText(fieldValueBytesLength);
    if (value == nullptr) {
        freeText(name);
        throwOutOfMemoryUnlessPending(env, kNoFieldName);
        return;
    }
    env->GetByteArrayRegion(fieldValueBytes, 0, fieldValueBytesLength, reinterpret_cast<jbyte*>(value));
    const quorl_status status = library(toMsg(handle), name.text, value, static_cast<quorl_u16>(id));
    std::free(value);
    freeText(name);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

// madeFirst: the exception is made before the two strings are released, else after it; it is thrown last in both.
template <auto library, bool madeFirst>
void setString(JNIEnv* env, jlong handle, jstring fieldName, jstring fieldValue, jshort id) {
    const char* const name = nameChars(env, fieldName, kNoFieldName);
    if (name == nullptr) {
        return;
    }
    const char* const value = env->GetStringUTFChars(fieldValue, nullptr);
    if (value == nullptr) {
        env->ReleaseStringUTFChars(fieldName, name);
        throwNoFieldName(env);
        return;
    }
    const quorl_status status = library(toMsg(handle), name, value, static_cast<quorl_u16>(id));
    jthrowable exception = madeFirst && status != QUORL_OK ? newStatusException(env, status) : nullptr;
    env->ReleaseStringUTFChars(fieldName, name);
    env->ReleaseStringUTFChars(fieldValue, value);
    if (!madeFirst && status != QUORL_OK) {
        exception = newStatusException(env, status);
    }
    throwIfMade(env, exception);
}

}  // namespace

extern "C" {

// clang-format off

// Reading by position
JNIEXPORT jboolean JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetBool__JILcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jint index, jobject) { return valueAt<jboolean, &quorlLocalData::boolean>(env, handle, index); }
JNIEXPORT jbyte    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI8__JILcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jint index, jobject)   { return valueAt<jbyte, &quorlLocalData::i8>(env, handle, index); }
JNIEXPORT jshort   JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetU8(JNIEnv* env, jclass, jlong handle, jint index, jobject)                                  { return valueAt<jshort, &quorlLocalData::u8>(env, handle, index); }
JNIEXPORT jshort   JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI16__JILcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jint index, jobject)  { return valueAt<jshort, &quorlLocalData::i16>(env, handle, index); }
JNIEXPORT jint     JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetU16(JNIEnv* env, jclass, jlong handle, jint index, jobject)                                 { return valueAt<jint, &quorlLocalData::u16>(env, handle, index); }
JNIEXPORT jint     JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI32__JILcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jint index, jobject)  { return valueAt<jint, &quorlLocalData::i32>(env, handle, index); }
JNIEXPORT jlong    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetU32(JNIEnv* env, jclass, jlong handle, jint index, jobject)                                 { return valueAt<jlong, &quorlLocalData::u32>(env, handle, index); }
JNIEXPORT jlong    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI64__JILcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jint index, jobject)  { return valueAt<jlong, &quorlLocalData::i64>(env, handle, index); }
JNIEXPORT jlong    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetU64(JNIEnv* env, jclass, jlong handle, jint index, jobject)                                 { return valueAt<jlong, &quorlLocalData::u64>(env, handle, index); }
JNIEXPORT jfloat   JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetF32__JILcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jint index, jobject)  { return valueAt<jfloat, &quorlLocalData::f32>(env, handle, index); }
JNIEXPORT jdouble  JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetF64__JILcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jint index, jobject)  { return valueAt<jdouble, &quorlLocalData::f64>(env, handle, index); }
JNIEXPORT jshort   JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetIPPort16(JNIEnv* env, jclass, jlong handle, jint index, jobject)                            { return valueAt<jshort, &quorlLocalData::ipport16>(env, handle, index); }
JNIEXPORT jint     JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetIPAddr32(JNIEnv* env, jclass, jlong handle, jint index, jobject)                            { return valueAt<jint, &quorlLocalData::ipaddr32>(env, handle, index); }

// clang-format on

// The message inside belongs to the outer one.
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetMsg(JNIEnv* env, jclass, jlong handle, jint index,
                                                                       jobject) {
    quorlMsgField field;
    const quorl_status status = readField(handle, index, &field);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    return toHandle(field.data.msg);
}

JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetDateSec(JNIEnv* env, jclass, jlong handle,
                                                                           jint index, jobject) {
    quorlMsgField field;
    const quorl_status status = readField(handle, index, &field);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    return field.data.date.sec;
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetDateNSec(JNIEnv* env, jclass, jlong handle,
                                                                           jint index, jobject) {
    quorlMsgField field;
    const quorl_status status = readField(handle, index, &field);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    return static_cast<jint>(field.data.date.nsec);
}

// The field's size counts the terminator, the copy leaves it out. The array is made by the Java side from that size.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetString(JNIEnv* env, jclass, jlong handle, jint index,
                                                                         jbyteArray stringBytes, jobject) {
    quorlMsgField field;
    const quorl_status status = readPointed(handle, index, &field);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return;
    }
    env->SetByteArrayRegion(stringBytes, 0, static_cast<jsize>(field.size - 1),
                            reinterpret_cast<const jbyte*>(field.data.str));
}

JNIEXPORT jstring JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetStringUTF8(JNIEnv* env, jclass, jlong handle,
                                                                                jint index, jobject) {
    quorlMsgField field;
    const quorl_status status = readPointed(handle, index, &field);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return nullptr;
    }
    return env->NewStringUTF(field.data.str);
}

// clang-format off

// Reading by name in bytes, and id
JNIEXPORT jboolean JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetBool__J_3BISLcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort id, jobject) { return valueOf<jboolean, quorlMsg_GetBoolEx>(env, handle, name, nameLength, id); }
JNIEXPORT jbyte    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI8__J_3BISLcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort id, jobject)   { return valueOf<jbyte, quorlMsg_GetI8Ex>(env, handle, name, nameLength, id); }
JNIEXPORT jshort   JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI16__J_3BISLcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort id, jobject)  { return valueOf<jshort, quorlMsg_GetI16Ex>(env, handle, name, nameLength, id); }
JNIEXPORT jint     JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI32__J_3BISLcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort id, jobject)  { return valueOf<jint, quorlMsg_GetI32Ex>(env, handle, name, nameLength, id); }
JNIEXPORT jlong    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI64__J_3BISLcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort id, jobject)  { return valueOf<jlong, quorlMsg_GetI64Ex>(env, handle, name, nameLength, id); }
JNIEXPORT jfloat   JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetF32__J_3BISLcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort id, jobject)  { return valueOf<jfloat, quorlMsg_GetF32Ex>(env, handle, name, nameLength, id); }
JNIEXPORT jdouble  JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetF64__J_3BISLcom_vesma_quorl_QuorlMsg_2(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort id, jobject)  { return valueOf<jdouble, quorlMsg_GetF64Ex>(env, handle, name, nameLength, id); }

// Reading by name as a string, and id
JNIEXPORT jboolean JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetBoolUTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort id, jobject) { return valueOf<jboolean, quorlMsg_GetBoolEx>(env, handle, name, id); }
JNIEXPORT jbyte    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI8UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort id, jobject)   { return valueOf<jbyte, quorlMsg_GetI8Ex>(env, handle, name, id); }
JNIEXPORT jshort   JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI16UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort id, jobject)  { return valueOf<jshort, quorlMsg_GetI16Ex>(env, handle, name, id); }
JNIEXPORT jint     JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort id, jobject)  { return valueOf<jint, quorlMsg_GetI32Ex>(env, handle, name, id); }
JNIEXPORT jlong    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetI64UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort id, jobject)  { return valueOf<jlong, quorlMsg_GetI64Ex>(env, handle, name, id); }
JNIEXPORT jfloat   JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetF32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort id, jobject)  { return valueOf<jfloat, quorlMsg_GetF32Ex>(env, handle, name, id); }
JNIEXPORT jdouble  JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetF64UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort id, jobject)  { return valueOf<jdouble, quorlMsg_GetF64Ex>(env, handle, name, id); }

// Adding by name in bytes
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddBool(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jboolean data, jshort id, jobject)                        { setValue<quorlMsg_AddBoolEx>(env, handle, name, nameLength, toBool(data), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI8(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyte data, jshort id, jobject)                             { setValue<quorlMsg_AddI8Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU8(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyte data, jshort id, jobject)                             { setValue<quorlMsg_AddU8Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI16(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort data, jshort id, jobject)                           { setValue<quorlMsg_AddI16Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU16(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort data, jshort id, jobject)                           { setValue<quorlMsg_AddU16Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI32(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jint data, jshort id, jobject)                             { setValue<quorlMsg_AddI32Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU32(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jint data, jshort id, jobject)                             { setValue<quorlMsg_AddU32Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI64(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlong data, jshort id, jobject)                            { setValue<quorlMsg_AddI64Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU64(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlong data, jshort id, jobject)                            { setValue<quorlMsg_AddU64Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddF32(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jfloat data, jshort id, jobject)                           { setValue<quorlMsg_AddF32Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddF64(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jdouble data, jshort id, jobject)                          { setValue<quorlMsg_AddF64Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddIPPort16(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort data, jshort id, jobject)                      { setValue<quorlMsg_AddIPPort16Ex>(env, handle, name, nameLength, toNetworkOrder(data), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddIPAddr32(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jint data, jshort id, jobject)                        { setValue<quorlMsg_AddIPAddr32Ex>(env, handle, name, nameLength, toNetworkOrder(data), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddDateTime(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlong sec, jint nsec, jshort id, jobject)             { const quorlMsgDateTime date = toDateTime(sec, nsec); setValue<quorlMsg_AddDateTimeEx>(env, handle, name, nameLength, &date, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddMsg(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlong subHandle, jshort id, jobject, jobject)              { setValue<quorlMsg_AddMsgEx>(env, handle, name, nameLength, toMsg(subHandle), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddString(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyteArray value, jint valueLength, jshort id, jobject) { setString<quorlMsg_AddStringEx>(env, handle, name, nameLength, value, valueLength, id); }

// Adding by name as a string
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddBoolUTF(JNIEnv* env, jclass, jlong handle, jstring name, jboolean data, jshort id, jobject)            { setValueMadeFirst<quorlMsg_AddBoolEx, throwNoFieldName>(env, handle, name, toBool(data), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI8UTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyte data, jshort id, jobject)                 { setValue<quorlMsg_AddI8Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU8UTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyte data, jshort id, jobject)                 { setValue<quorlMsg_AddU8Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI16UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort data, jshort id, jobject)               { setValue<quorlMsg_AddI16Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU16UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort data, jshort id, jobject)               { setValue<quorlMsg_AddU16Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jint data, jshort id, jobject)                 { setValue<quorlMsg_AddI32Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jint data, jshort id, jobject)                 { setValue<quorlMsg_AddU32Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddI64UTF(JNIEnv* env, jclass, jlong handle, jstring name, jlong data, jshort id, jobject)                { setValue<quorlMsg_AddI64Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddU64UTF(JNIEnv* env, jclass, jlong handle, jstring name, jlong data, jshort id, jobject)                { setValue<quorlMsg_AddU64Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddF32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jfloat data, jshort id, jobject)               { setValue<quorlMsg_AddF32Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddF64UTF(JNIEnv* env, jclass, jlong handle, jstring name, jdouble data, jshort id, jobject)              { setValue<quorlMsg_AddF64Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddIPPort16UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort data, jshort id, jobject)          { setValue<quorlMsg_AddIPPort16Ex>(env, handle, name, toNetworkOrder(data), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddIPAddr32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jint data, jshort id, jobject)            { setValue<quorlMsg_AddIPAddr32Ex>(env, handle, name, toNetworkOrder(data), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddDateTimeUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlong sec, jint nsec, jshort id, jobject) { const quorlMsgDateTime date = toDateTime(sec, nsec); setValueMadeFirst<quorlMsg_AddDateTimeEx, throwNoMemoryStatus>(env, handle, name, &date, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddMsgUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlong subHandle, jshort id, jobject, jobject)  { setValueMadeFirst<quorlMsg_AddMsgEx, throwNoMemoryStatus>(env, handle, name, toMsg(subHandle), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddStringUTF(JNIEnv* env, jclass, jlong handle, jstring name, jstring value, jshort id, jobject)          { setString<quorlMsg_AddStringEx, true>(env, handle, name, value, id); }

// Updating by name in bytes
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateBool(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jboolean data, jshort id, jobject)                        { setValue<quorlMsg_UpdateBoolEx>(env, handle, name, nameLength, toBool(data), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI8(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyte data, jshort id, jobject)                             { setValue<quorlMsg_UpdateI8Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU8(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyte data, jshort id, jobject)                             { setValue<quorlMsg_UpdateU8Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI16(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort data, jshort id, jobject)                           { setValue<quorlMsg_UpdateI16Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU16(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort data, jshort id, jobject)                           { setValue<quorlMsg_UpdateU16Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI32(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jint data, jshort id, jobject)                             { setValue<quorlMsg_UpdateI32Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU32(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jint data, jshort id, jobject)                             { setValue<quorlMsg_UpdateU32Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI64(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlong data, jshort id, jobject)                            { setValue<quorlMsg_UpdateI64Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU64(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlong data, jshort id, jobject)                            { setValue<quorlMsg_UpdateU64Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateF32(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jfloat data, jshort id, jobject)                           { setValue<quorlMsg_UpdateF32Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateF64(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jdouble data, jshort id, jobject)                          { setValue<quorlMsg_UpdateF64Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateIPPort16(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jshort data, jshort id, jobject)                      { setValue<quorlMsg_UpdateIPPort16Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateIPAddr32(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jint data, jshort id, jobject)                        { setValue<quorlMsg_UpdateIPAddr32Ex>(env, handle, name, nameLength, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateDateTime(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlong sec, jint nsec, jshort id, jobject)             { const quorlMsgDateTime date = toDateTime(sec, nsec); setValue<quorlMsg_UpdateDateTimeEx>(env, handle, name, nameLength, &date, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateMsg(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlong subHandle, jshort id, jobject, jobject)              { setValue<quorlMsg_UpdateMsgEx>(env, handle, name, nameLength, toMsg(subHandle), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateString(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jbyteArray value, jint valueLength, jshort id, jobject) { setString<quorlMsg_UpdateStringEx>(env, handle, name, nameLength, value, valueLength, id); }

// Updating by name as a string
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateBoolUTF(JNIEnv* env, jclass, jlong handle, jstring name, jboolean data, jshort id, jobject)            { setValue<quorlMsg_UpdateBoolEx>(env, handle, name, toBool(data), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI8UTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyte data, jshort id, jobject)                 { setValue<quorlMsg_UpdateI8Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU8UTF(JNIEnv* env, jclass, jlong handle, jstring name, jbyte data, jshort id, jobject)                 { setValue<quorlMsg_UpdateU8Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI16UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort data, jshort id, jobject)               { setValue<quorlMsg_UpdateI16Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU16UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort data, jshort id, jobject)               { setValue<quorlMsg_UpdateU16Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jint data, jshort id, jobject)                 { setValue<quorlMsg_UpdateI32Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jint data, jshort id, jobject)                 { setValue<quorlMsg_UpdateU32Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateI64UTF(JNIEnv* env, jclass, jlong handle, jstring name, jlong data, jshort id, jobject)                { setValue<quorlMsg_UpdateI64Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateU64UTF(JNIEnv* env, jclass, jlong handle, jstring name, jlong data, jshort id, jobject)                { setValue<quorlMsg_UpdateU64Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateF32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jfloat data, jshort id, jobject)               { setValue<quorlMsg_UpdateF32Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateF64UTF(JNIEnv* env, jclass, jlong handle, jstring name, jdouble data, jshort id, jobject)              { setValue<quorlMsg_UpdateF64Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateIPPort16UTF(JNIEnv* env, jclass, jlong handle, jstring name, jshort data, jshort id, jobject)          { setValue<quorlMsg_UpdateIPPort16Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateIPAddr32UTF(JNIEnv* env, jclass, jlong handle, jstring name, jint data, jshort id, jobject)            { setValue<quorlMsg_UpdateIPAddr32Ex>(env, handle, name, data, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateDateTimeUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlong sec, jint nsec, jshort id, jobject) { const quorlMsgDateTime date = toDateTime(sec, nsec); setValue<quorlMsg_UpdateDateTimeEx>(env, handle, name, &date, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateMsgUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlong subHandle, jshort id, jobject, jobject)  { setValue<quorlMsg_UpdateMsgEx>(env, handle, name, toMsg(subHandle), id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateStringUTF(JNIEnv* env, jclass, jlong handle, jstring name, jstring value, jshort id, jobject)          { setString<quorlMsg_UpdateStringEx, false>(env, handle, name, value, id); }

// clang-format on

}  // extern "C"
