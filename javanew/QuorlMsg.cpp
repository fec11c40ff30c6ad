// The natives of QuorlMsg for whole messages, and that of QuorlMsgView; the fields stand in the QuorlMsg... files
// beside it.
#include "QuorlMsg.h"

#include <cstring>

#include "com_vesma_quorl_QuorlMsg.h"
#include "com_vesma_quorl_QuorlMsgView.h"

namespace {

// A message that a library function makes from another one; 0 beside an exception.
template <auto library>
jlong messageFrom(JNIEnv* env, jlong handle) {
    quorlMsg made = nullptr;
    const quorl_status status = library(toMsg(handle), &made);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    return toHandle(made);
}

// A subject as bytes, without terminator; a Java array that is too short leaves the machine's exception. Quiet
// otherwise.
template <auto library>
jint subjectBytesOf(JNIEnv* env, jlong handle, jbyteArray subjectBytes) {
    const quorlMsg message = toMsg(handle);
    const char* subject = nullptr;
    quorlMsg_MarkReferences(message);
    if (library(message, &subject) != QUORL_OK) {
        quorlMsg_ClearReferences(message);
        return 0;
    }
    const jint length = static_cast<jint>(std::strlen(subject));
    env->SetByteArrayRegion(subjectBytes, 0, length, reinterpret_cast<const jbyte*>(subject));
    quorlMsg_ClearReferences(message);
    return env->ExceptionOccurred() != nullptr ? 0 : length;
}

// A subject as a string, null when there is none. Quiet. clearsOnFailure: a failure closes the bracket once more before
// the common exit does; a second close is harmless to the library.
template <auto library, bool clearsOnFailure>
jstring subjectStringOf(JNIEnv* env, jlong handle) {
    const quorlMsg message = toMsg(handle);
    const char* subject = nullptr;
    jstring result = nullptr;
    quorlMsg_MarkReferences(message);
    if (library(message, &subject) == QUORL_OK) {
        if (subject != nullptr) {
            result = env->NewStringUTF(subject);
        }
    } else if constexpr (clearsOnFailure) {
        quorlMsg_ClearReferences(message);
    }
    quorlMsg_ClearReferences(message);
    return result;
}

// An absent subject is told by the length -1, not by a null array.
template <auto library>
void setSubject(JNIEnv* env, jlong handle, jbyteArray subjectBytes, jint subjectBytesLength) {
    Text subject;
    const quorl_status status = subjectBytesLength == -1 || copyText(env, subjectBytes, subjectBytesLength, &subject)
                                    ? library(toMsg(handle), subject.text)
                                    : QUORL_NO_MEMORY;
    freeText(subject);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

// A string that cannot be converted is reported as a status. The string is released between making an exception and
// throwing it.
template <auto library>
void setStringSubject(JNIEnv* env, jlong handle, jstring subject) {
    const char* const chars = env->GetStringUTFChars(subject, nullptr);
    if (chars == nullptr) {
        throwStatus(env, QUORL_NO_MEMORY);
        return;
    }
    const quorl_status status = library(toMsg(handle), chars);
    const jthrowable exception = status != QUORL_OK ? newStatusException(env, status) : nullptr;
    env->ReleaseStringUTFChars(subject, chars);
    throwIfMade(env, exception);
}

// The wire image and its size: two calls of the library.
quorl_status wireImage(quorlMsg message, const void** bytes, quorl_u32* size) {
    const quorl_status status = quorlMsg_GetAsBytes(message, bytes);
    return status == QUORL_OK ? quorlMsg_GetByteSize(message, size) : status;
}

}  // namespace

extern "C" {

// ---- making --------------------------------------------------------------------------------------------------------

// Quiet: 0 when the library refuses.
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Create(JNIEnv*, jclass) {
    quorlMsg message = nullptr;
    return quorlMsg_Create(&message) == QUORL_OK ? toHandle(message) : 0;
}

// The library is given the bytes alone: their own header says how many there are, and the caller has checked it against
// the array. The result is what the library left, also beside an exception.
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1CreateFromBytes(JNIEnv* env, jclass,
                                                                                jbyteArray messageBytes, jint) {
    jbyte* const bytes = pin(env, messageBytes);
    if (bytes == nullptr) {
        throwOutOfMemory(env, kNoMessageBytes);
        return 0;
    }
    quorlMsg message = nullptr;
    const quorl_status status = quorlMsg_CreateFromBytes(&message, bytes);
    release(env, messageBytes, bytes);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
    return toHandle(message);
}

// The Java object of the event that delivered the message. A failing status goes to the constructor of method row 3,
// not to that of the other natives, so callers must not come here with a handle that the library refuses.
JNIEXPORT jobject JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetEvent(JNIEnv* env, jobject, jlong message) {
    void* eventObj = nullptr;
    const quorl_status status = quorlMsg_GetClosure(toMsg(message), &eventObj);
    if (status != QUORL_OK) {
        throwIfMade(env, static_cast<jthrowable>(env->NewObject(_quorl_classes[kQuorlException].id,
                                                                _quorl_methods[kNewNullPointerException].id,
                                                                static_cast<jint>(status))));
    }
    return toReference(eventObj);
}

// clang-format off

// Whole messages
JNIEXPORT void  JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Detach(JNIEnv* env, jclass, jlong handle)               { callOrThrow<quorlMsg_Detach>(env, toMsg(handle)); }
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1CreateCopy(JNIEnv* env, jclass, jlong handle, jobject)  { return messageFrom<quorlMsg_CreateCopy>(env, handle); }
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetEnvelope(JNIEnv* env, jclass, jlong handle, jobject) { return messageFrom<quorlMsg_GetEnvelope>(env, handle); }

// clang-format on

// Reports nothing.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Destroy(JNIEnv*, jclass, jlong handle, jobject) {
    quorlMsg_Destroy(toMsg(handle));
}

// clang-format off

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1Reset(JNIEnv* env, jclass, jlong handle, jobject) { callOrThrow<quorlMsg_Reset>(env, toMsg(handle)); }

// Subjects
JNIEXPORT jint    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetSendSubject(JNIEnv* env, jclass, jlong handle, jbyteArray subjectBytes, jobject)               { return subjectBytesOf<quorlMsg_GetSendSubject>(env, handle, subjectBytes); }
JNIEXPORT jstring JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetSendSubjectUTF8(JNIEnv* env, jclass, jlong handle, jobject)                                    { return subjectStringOf<quorlMsg_GetSendSubject, true>(env, handle); }
JNIEXPORT void    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1SetSendSubject(JNIEnv* env, jclass, jlong handle, jbyteArray subjectBytes, jint length, jobject)  { setSubject<quorlMsg_SetSendSubject>(env, handle, subjectBytes, length); }
JNIEXPORT void    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1SetSendStringSubject(JNIEnv* env, jclass, jlong handle, jstring subject, jobject)                 { setStringSubject<quorlMsg_SetSendSubject>(env, handle, subject); }
JNIEXPORT jint    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetReplySubject(JNIEnv* env, jclass, jlong handle, jbyteArray subjectBytes, jobject)              { return subjectBytesOf<quorlMsg_GetReplySubject>(env, handle, subjectBytes); }
JNIEXPORT jstring JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetReplySubjectUTF8(JNIEnv* env, jclass, jlong handle, jobject)                                   { return subjectStringOf<quorlMsg_GetReplySubject, false>(env, handle); }
JNIEXPORT void    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1SetReplySubject(JNIEnv* env, jclass, jlong handle, jbyteArray subjectBytes, jint length, jobject) { setSubject<quorlMsg_SetReplySubject>(env, handle, subjectBytes, length); }
JNIEXPORT void    JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1SetReplyStringSubject(JNIEnv* env, jclass, jlong handle, jstring subject, jobject)                { setStringSubject<quorlMsg_SetReplySubject>(env, handle, subject); }

// clang-format on

// ---- reading -------------------------------------------------------------------------------------------------------

JNIEXPORT jbyteArray JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1ConvertToString(JNIEnv* env, jclass, jlong handle,
                                                                                     jobject) {
    const quorlMsg message = toMsg(handle);
    const char* string = nullptr;
    quorlMsg_MarkReferences(message);
    const quorl_status status = quorlMsg_ConvertToString(message, &string);
    if (status != QUORL_OK) {
        clearAndThrowStatus(env, handle, status);
        return nullptr;
    }
    const jsize length = static_cast<jsize>(std::strlen(string));
    const jbyteArray bytes = env->NewByteArray(length);
    if (bytes == nullptr) {
        quorlMsg_ClearReferences(message);
        throwOutOfMemory(env, "Cannot allocate memory for message converted to string.");
        return nullptr;
    }
    env->SetByteArrayRegion(bytes, 0, length, reinterpret_cast<const jbyte*>(string));
    quorlMsg_ClearReferences(message);
    return env->ExceptionOccurred() != nullptr ? nullptr : bytes;
}

// Quiet: 0 when the library refuses.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetNumFields(JNIEnv*, jclass, jlong handle, jobject) {
    quorl_u32 count = 0;
    return quorlMsg_GetNumFields(toMsg(handle), &count) == QUORL_OK ? static_cast<jint>(count) : 0;
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetByteSize(JNIEnv* env, jclass, jlong handle, jobject) {
    quorl_u32 size = 0;
    const quorl_status status = quorlMsg_GetByteSize(toMsg(handle), &size);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    return static_cast<jint>(size);
}

JNIEXPORT jbyteArray JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetAsBytes(JNIEnv* env, jclass, jlong handle,
                                                                                jobject) {
    const void* image = nullptr;
    quorl_u32 size = 0;
    const quorl_status status = wireImage(toMsg(handle), &image, &size);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return nullptr;
    }
    const jbyteArray bytes = env->NewByteArray(static_cast<jsize>(size));
    if (bytes == nullptr) {
        throwOutOfMemory(env, kNoMessageBytes);
        return nullptr;
    }
    env->SetByteArrayRegion(bytes, 0, static_cast<jsize>(size), static_cast<const jbyte*>(image));
    return env->ExceptionOccurred() != nullptr ? nullptr : bytes;
}

// A buffer over the message's own storage: good only while the message lives and is not changed. When there is nothing
// to show, or no buffer to be had, the exception carries the status of the last call, which succeeded: 0.
JNIEXPORT jobject JNICALL Java_com_vesma_quorl_QuorlMsgView_quorlMsg_1GetByteBuffer(JNIEnv* env, jclass, jlong handle,
                                                                                    jobject) {
    const void* image = nullptr;
    quorl_u32 size = 0;
    const quorl_status status = wireImage(toMsg(handle), &image, &size);
    if (status == QUORL_OK && static_cast<jint>(size) > 0) {
        const jobject buffer = env->NewDirectByteBuffer(const_cast<void*>(image), static_cast<jint>(size));
        if (buffer != nullptr) {
            return buffer;
        }
    }
    throwStatus(env, status);
    return nullptr;
}

}  // extern "C"
