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

// Whether the record is that of a value which stands in the record itself: a getter of another type that takes it for an
// address would read memory that is not the message's. What is no such record of this library is believed to be what the
// getter is for.
inline bool standsInRecord(const quorlMsgField& field) {
    if (field.count != 1) {
        return false;
    }
    switch (field.type) {
        case QUORLMSG_BOOL:
            return field.size == sizeof(quorl_bool);
        case QUORLMSG_I8:
        case QUORLMSG_U8:
            return field.size == sizeof(quorl_u8);
        case QUORLMSG_I16:
        case QUORLMSG_U16:
        case QUORLMSG_IPPORT16:
            return field.size == sizeof(quorl_u16);
        case QUORLMSG_I32:
        case QUORLMSG_U32:
        case QUORLMSG_F32:
        case QUORLMSG_IPADDR32:
            return field.size == sizeof(quorl_u32);
        case QUORLMSG_I64:
        case QUORLMSG_U64:
        case QUORLMSG_F64:
            return field.size == sizeof(quorl_u64);
        case QUORLMSG_DATETIME:
            return field.size == sizeof(quorlMsgDateTime);
        default:
            return false;
    }
}

// readField for a value that is read through an address. A field whose value is none is QUORL_CONVERSION_FAILED, which the
// library itself may answer.
inline quorl_status readPointed(jlong handle, jint index, quorlMsgField* field) {
    const quorl_status status = readField(handle, index, field);
    if (status == QUORL_OK && (standsInRecord(*field) || field->type == QUORLMSG_MSG)) {
        return QUORL_CONVERSION_FAILED;
    }
    return status;
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
