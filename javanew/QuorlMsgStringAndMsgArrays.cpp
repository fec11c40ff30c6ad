// The natives of QuorlMsg for fields that are arrays of strings or of messages: reading by position, adding and
// updating.
#include <atomic>
#include <cstring>

#include "QuorlMsg.h"
#include "com_vesma_quorl_QuorlMsg.h"

namespace {

constexpr char kNoArrayProcessing[] = "Cannot allocate memory for array processing.";
constexpr char kNoFieldValue[] = "Insufficient memory to retrieve field value.";

// The workers keep short names in a buffer of their own size.
using ShortText = TextBuffer<127>;

// ---- strings -------------------------------------------------------------------------------------------------------

// Copies of strings that a call on this thread left behind when it failed, linked through their first bytes. The next
// call of the kind or the thread's end frees them.
struct LeftStrings {
    void* first = nullptr;
    ~LeftStrings();
};

void takeBack(LeftStrings* left) {
    while (left->first != nullptr) {
        void* const string = left->first;
        std::memcpy(&left->first, string, sizeof left->first);
        std::free(string);
    }
}

LeftStrings::~LeftStrings() {
    takeBack(this);
}

thread_local LeftStrings leftStrings;

// The strings themselves, not the list of them.
void leaveStringsBehind(const char** strings, jint count) {
    for (jint i = 0; i < count; ++i) {
        void* const string = const_cast<char*>(strings[i]);
        std::memcpy(string, &leftStrings.first, sizeof leftStrings.first);
        leftStrings.first = string;
    }
}

// A zeroed buffer for a string, never too short for the link.
char* allocateString(jsize length) {
    constexpr jsize kLeast = sizeof(void*) - 1;
    return allocateText(length < kLeast ? kLeast : length);
}

// A name whose text a call left with the machine, with the global reference that it takes to give the text back.
struct LeftName {
    jobject string;
    const char* text;
    LeftName* next;
};

// Linked over all threads: only a thread of the machine can give texts back, and one that ends no longer is.
std::atomic<LeftName*> leftNames{nullptr};

// Before an exception is thrown: a reference cannot be made over one. Without memory or a reference the text is lost.
void leaveNameBehind(JNIEnv* env, jstring fieldName, const char* text) {
    LeftName* const left = static_cast<LeftName*>(std::malloc(sizeof(LeftName)));
    if (left == nullptr) {
        return;
    }
    left->string = env->NewGlobalRef(fieldName);
    if (left->string == nullptr) {
        std::free(left);
        return;
    }
    left->text = text;
    left->next = leftNames.load(std::memory_order_relaxed);
    while (!leftNames.compare_exchange_weak(left->next, left, std::memory_order_release, std::memory_order_relaxed)) {
    }
}

void takeBackNames(JNIEnv* env) {
    if (leftNames.load(std::memory_order_relaxed) == nullptr) {
        return;
    }
    LeftName* left = leftNames.exchange(nullptr, std::memory_order_acquire);
    while (left != nullptr) {
        LeftName* const next = left->next;
        env->ReleaseStringUTFChars(static_cast<jstring>(left->string), left->text);
        env->DeleteGlobalRef(left->string);
        std::free(left);
        left = next;
    }
}

enum class Copied { kAll, kNullElement, kNoElement, kNoMemory };

// Copies the byte arrays of a Java array into strings, with one reference at a time. What was copied before a failure is
// left behind. kNoElement: there is none, with an exception pending: the array is shorter than stated, or the name's copy
// failed before.
Copied copyStrings(JNIEnv* env, jobjectArray array, jint arrayLength, const char** strings) {
    for (jint i = 0; i < arrayLength; ++i) {
        const jbyteArray element = static_cast<jbyteArray>(env->GetObjectArrayElement(array, i));
        if (element == nullptr) {
            leaveStringsBehind(strings, i);
            return env->ExceptionOccurred() != nullptr ? Copied::kNoElement : Copied::kNullElement;
        }
        const jsize length = env->GetArrayLength(element);
        char* const copy = allocateString(length);
        if (copy == nullptr) {
            leaveStringsBehind(strings, i);
            return Copied::kNoMemory;
        }
        strings[i] = copy;
        env->GetByteArrayRegion(element, 0, length, reinterpret_cast<jbyte*>(copy));
        env->DeleteLocalRef(element);
    }
    return Copied::kAll;
}

// Adds or updates the field and frees the strings and their list.
quorl_status passStrings(jlong handle, const char* name, const char** strings, jint arrayLength, jint id,
                         quorl_bool add) {
    const auto library = add == QUORL_TRUE ? quorlMsg_AddStringArrayEx : quorlMsg_UpdateStringArrayEx;
    const quorl_status status =
        library(toMsg(handle), name, strings, static_cast<quorl_u32>(arrayLength), static_cast<quorl_u16>(id));
    for (jint i = 0; i < arrayLength; ++i) {
        std::free(const_cast<char*>(strings[i]));
    }
    std::free(strings);
    return status;
}

// An empty array is refused before anything else is looked at.
void _addOrUpdateStringArray(JNIEnv* env, jlong handle, jbyteArray fieldNameBytes, jint fieldNameBytesLength,
                             jobjectArray array, jint arrayLength, jint id, quorl_bool add) {
    takeBack(&leftStrings);
    if (arrayLength == 0) {
        throwStatus(env, QUORL_INVALID_ARG);
        return;
    }
    ShortText name;
    if (!copyTextOrThrow(env, fieldNameBytes, fieldNameBytesLength, &name)) {
        return;
    }
    const char** const strings = static_cast<const char**>(allocateZeroed(arrayLength, sizeof(const char*)));
    if (strings == nullptr) {
        freeText(name);
        throwOutOfMemoryUnlessPending(env, kNoArrayProcessing);
        return;
    }
    const Copied copied = copyStrings(env, array, arrayLength, strings);
    if (copied != Copied::kAll) {
        if (copied == Copied::kNullElement) {
            throwStatus(env, QUORL_INVALID_ARG);
        }
        std::free(strings);
        freeText(name);
        if (copied == Copied::kNoMemory) {
            throwOutOfMemoryUnlessPending(env, kNoArrayProcessing);
        }
        return;
    }
    const quorl_status status = passStrings(handle, name.text, strings, arrayLength, id, add);
    freeText(name);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

// A null element leaves the name's text with the machine, besides the copies; the next call gives it back.
void _addOrUpdateStringArrayUTF(JNIEnv* env, jlong handle, jstring fieldName, jobjectArray array, jint arrayLength,
                                jint id, quorl_bool add) {
    takeBack(&leftStrings);
    takeBackNames(env);
    if (arrayLength == 0) {
        throwStatus(env, QUORL_INVALID_ARG);
        return;
    }
    const char* const name = nameChars(env, fieldName, kNoArrayProcessing);
    if (name == nullptr) {
        return;
    }
    const char** const strings = static_cast<const char**>(allocateZeroed(arrayLength, sizeof(const char*)));
    if (strings == nullptr) {
        env->ReleaseStringUTFChars(fieldName, name);
        throwOutOfMemory(env, kNoArrayProcessing);
        return;
    }
    const Copied copied = copyStrings(env, array, arrayLength, strings);
    if (copied == Copied::kNullElement) {
        leaveNameBehind(env, fieldName, name);
        throwStatus(env, QUORL_INVALID_ARG);
        std::free(strings);
        return;
    }
    if (copied != Copied::kAll) {
        std::free(strings);
        env->ReleaseStringUTFChars(fieldName, name);
        if (copied == Copied::kNoMemory) {
            throwOutOfMemory(env, kNoArrayProcessing);
        }
        return;
    }
    const quorl_status status = passStrings(handle, name, strings, arrayLength, id, add);
    env->ReleaseStringUTFChars(fieldName, name);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
}

// ---- messages ------------------------------------------------------------------------------------------------------

// Copies the handles of a Java array, which is released again before the library is called. False: no pin.
bool copyHandles(JNIEnv* env, jlongArray array, jint arrayLength, quorlMsg* messages) {
    jlong* const handles = pin(env, array);
    if (handles == nullptr) {
        return false;
    }
    for (jint i = 0; i < arrayLength; ++i) {
        messages[i] = toMsg(handles[i]);
    }
    release(env, array, handles);
    return true;
}

quorl_status passMessages(jlong handle, const char* name, const quorlMsg* messages, jint arrayLength, jint id,
                          quorl_bool add) {
    const auto library = add == QUORL_TRUE ? quorlMsg_AddMsgArrayEx : quorlMsg_UpdateMsgArrayEx;
    return library(toMsg(handle), name, messages, static_cast<quorl_u32>(arrayLength), static_cast<quorl_u16>(id));
}

// A failing status releases the list of messages before its exception is made and again at the common exit, where there
// is nothing left to release.
void _addOrUpdateMsgArray(JNIEnv* env, jlong handle, jbyteArray fieldNameBytes, jint fieldNameBytesLength,
                          jlongArray array, jint arrayLength, jint id, quorl_bool add) {
    if (arrayLength == 0) {
        throwStatus(env, QUORL_INVALID_ARG);
        return;
    }
    ShortText name;
    if (!copyTextOrThrow(env, fieldNameBytes, fieldNameBytesLength, &name)) {
        return;
    }
    quorlMsg* messages = static_cast<quorlMsg*>(allocateZeroed(arrayLength, sizeof(quorlMsg)));
    if (messages == nullptr) {
        freeText(name);
        throwOutOfMemoryUnlessPending(env, kNoArrayProcessing);
        return;
    }
    if (!copyHandles(env, array, arrayLength, messages)) {
        std::free(messages);
        freeText(name);
        throwOutOfMemoryUnlessPending(env, kNoMessageArray);
        return;
    }
    const quorl_status status = passMessages(handle, name.text, messages, arrayLength, id, add);
    freeText(name);
    if (status != QUORL_OK) {
        std::free(messages);
        messages = nullptr;
        throwStatusUnlessPending(env, status);
    }
    std::free(messages);
}

void _addOrUpdateMsgArrayUTF(JNIEnv* env, jlong handle, jstring fieldName, jlongArray array, jint arrayLength, jint id,
                             quorl_bool add) {
    if (arrayLength == 0) {
        throwStatus(env, QUORL_INVALID_ARG);
        return;
    }
    const char* const name = nameChars(env, fieldName, kNoArrayProcessing);
    if (name == nullptr) {
        return;
    }
    quorlMsg* const messages = static_cast<quorlMsg*>(allocateZeroed(arrayLength, sizeof(quorlMsg)));
    if (messages == nullptr) {
        env->ReleaseStringUTFChars(fieldName, name);
        throwOutOfMemory(env, kNoArrayProcessing);
        return;
    }
    if (!copyHandles(env, array, arrayLength, messages)) {
        std::free(messages);
        env->ReleaseStringUTFChars(fieldName, name);
        throwOutOfMemory(env, kNoMessageArray);
        return;
    }
    const quorl_status status = passMessages(handle, name, messages, arrayLength, id, add);
    std::free(messages);
    env->ReleaseStringUTFChars(fieldName, name);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
}

}  // namespace

extern "C" {

// ---- reading -------------------------------------------------------------------------------------------------------

// Each string as a byte array of its own; their local references stay until the native returns. Without the class of
// byte arrays the exception carries the status of the read, which succeeded: 0.
JNIEXPORT jobjectArray JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetStringArray(JNIEnv* env, jclass, jlong handle,
                                                                                      jint index, jobject) {
    const quorlMsg message = toMsg(handle);
    quorlMsgField field;
    quorlMsg_MarkReferences(message);
    const quorl_status status = readPointed(handle, index, &field);
    if (status != QUORL_OK) {
        clearAndThrowStatus(env, handle, status);
        return nullptr;
    }
    const jclass byteArrayClass = env->FindClass("[B");
    if (byteArrayClass == nullptr) {
        clearAndThrowStatus(env, handle, status);
        return nullptr;
    }
    const jobjectArray result = env->NewObjectArray(static_cast<jsize>(field.count), byteArrayClass, nullptr);
    if (result == nullptr) {
        quorlMsg_ClearReferences(message);
        throwOutOfMemory(env, kNoFieldValue);
        return nullptr;
    }
    const char* const* const strings = static_cast<const char* const*>(field.data.array);
    jint frames = 0;
    for (quorl_u32 i = 0; i < field.count; ++i) {
        if (!reserveReference(env, static_cast<jint>(i), static_cast<jint>(field.count), &frames)) {
            quorlMsg_ClearReferences(message);
            giveBackReferences(env, frames);
            return nullptr;
        }
        const jsize length = static_cast<jsize>(std::strlen(strings[i]));
        const jbyteArray bytes = env->NewByteArray(length);
        if (bytes == nullptr) {
            quorlMsg_ClearReferences(message);
            throwOutOfMemory(env, kNoFieldValue);
            giveBackReferences(env, frames);
            return nullptr;
        }
        env->SetByteArrayRegion(bytes, 0, length, reinterpret_cast<const jbyte*>(strings[i]));
        env->SetObjectArrayElement(result, static_cast<jsize>(i), bytes);
    }
    quorlMsg_ClearReferences(message);
    giveBackReferences(env, frames);
    return result;
}

// The messages belong to the outer one. No bracket of references, as with the arrays of 8-bit numbers.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1GetMsgArray(JNIEnv* env, jclass, jlong handle,
                                                                           jint index, jlongArray array, jobject) {
    quorlMsgField field;
    const quorl_status status = readPointed(handle, index, &field);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return;
    }
    jlong* const handles = static_cast<jlong*>(std::malloc(static_cast<size_t>(field.count) * sizeof(jlong)));
    if (handles == nullptr) {
        throwOutOfMemory(env, kNoArray);
        return;
    }
    const quorlMsg* const messages = static_cast<const quorlMsg*>(field.data.array);
    for (quorl_u32 i = 0; i < field.count; ++i) {
        handles[i] = toHandle(messages[i]);
    }
    env->SetLongArrayRegion(array, 0, static_cast<jsize>(field.count), handles);
    std::free(handles);
}

// clang-format off

// Strings
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddStringArray(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jobjectArray array, jint arrayLength, jshort id, jobject)    { _addOrUpdateStringArray(env, handle, name, nameLength, array, arrayLength, id, QUORL_TRUE); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateStringArray(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jobjectArray array, jint arrayLength, jshort id, jobject) { _addOrUpdateStringArray(env, handle, name, nameLength, array, arrayLength, id, QUORL_FALSE); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddStringArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jobjectArray array, jint arrayLength, jshort id, jobject)                     { _addOrUpdateStringArrayUTF(env, handle, name, array, arrayLength, id, QUORL_TRUE); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateStringArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jobjectArray array, jint arrayLength, jshort id, jobject)                  { _addOrUpdateStringArrayUTF(env, handle, name, array, arrayLength, id, QUORL_FALSE); }

// Messages
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddMsgArray(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlongArray array, jint arrayLength, jshort id, jobject)    { _addOrUpdateMsgArray(env, handle, name, nameLength, array, arrayLength, id, QUORL_TRUE); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateMsgArray(JNIEnv* env, jclass, jlong handle, jbyteArray name, jint nameLength, jlongArray array, jint arrayLength, jshort id, jobject) { _addOrUpdateMsgArray(env, handle, name, nameLength, array, arrayLength, id, QUORL_FALSE); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1AddMsgArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlongArray array, jint arrayLength, jshort id, jobject)                     { _addOrUpdateMsgArrayUTF(env, handle, name, array, arrayLength, id, QUORL_TRUE); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlMsg_quorlMsg_1UpdateMsgArrayUTF(JNIEnv* env, jclass, jlong handle, jstring name, jlongArray array, jint arrayLength, jshort id, jobject)                  { _addOrUpdateMsgArrayUTF(env, handle, name, array, arrayLength, id, QUORL_FALSE); }

// clang-format on

}  // extern "C"
