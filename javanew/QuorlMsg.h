// What the families of message natives have in common: the rules for names, marks and field indexes, and their texts.
#pragma once

#include "native.h"

// Every native ends with the Java message that owns the handle, or takes two of them; none of them is ever read.

// The texts name what the first of their natives ran out of memory for; others use them as they are.
inline constexpr char kNoMessageBytes[] = "Cannot allocate memory for message bytes.";
inline constexpr char kNoFieldName[] = "Cannot allocate memory for message field name.";
inline constexpr char kNoMessageArray[] = "Cannot allocate memory for message array.";
inline constexpr char kNoArray[] = "Cannot allocate memory for array.";

// Reads a field by its position. Positions and ids travel in their low 16 bits.
inline quorl_status readField(jlong handle, jint index, quorlMsgField* field) {
    return quorlMsg_GetFieldByIndex(toMsg(handle), field, static_cast<quorl_u16>(index));
}

// Closes the bracket of references between making an exception and throwing it.
inline void clearAndThrowStatus(JNIEnv* env, jlong handle, quorl_status status) {
    const jthrowable exception = newStatusException(env, status);
    quorlMsg_ClearReferences(toMsg(handle));
    throwIfMade(env, exception);
}

// A field's name that arrives as a Java string; null, with the text thrown, when it cannot be converted.
inline const char* nameChars(JNIEnv* env, jstring fieldName, const char* text) {
    const char* const name = env->GetStringUTFChars(fieldName, nullptr);
    if (name == nullptr) {
        throwOutOfMemory(env, text);
    }
    return name;
}
