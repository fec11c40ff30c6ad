// The cache of Java classes and methods, the flag and the slots that all natives share, and the steps that are the same
// in every native: throwing, pinning, and carrying texts and message handles.
#pragma once

#include <jni.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

#include "quorl/private.h"
#include "quorl/quorl.h"

extern "C" {

// ---- cache ----------------------------------------------------------------------------------------------------------

// A Java class: its global reference, null until it is loaded, and its name with slashes.
typedef struct __quorl_class {
    jclass id;
    const char* name;
} _quorl_class;

// A Java method: its identifier, null until it is loaded, the row of its class, and its name and descriptor.
typedef struct __quorl_method {
    jmethodID id;
    _quorl_class* class_;
    int is_static;
    const char* name;
    const char* signature;
} _quorl_method;

// Filled once by _quorlNative_Initialize, read by every thread afterwards without a lock.
extern JNIEXPORT _quorl_class _quorl_classes[23];
extern JNIEXPORT _quorl_method _quorl_methods[8];

// 1: Java arrays are pinned as critical ones; 0: through the typed element calls.
extern JNIEXPORT int criticalMethodsAreAvailable;

// ---- slots ----------------------------------------------------------------------------------------------------------

// What a callback of the library leaves for the Java thread that it runs on. One value per thread each.
extern JNIEXPORT _quorlThreadLocal _eventThreadKey;          // the event's Java object, a global reference
extern JNIEXPORT _quorlThreadLocal _msgThreadKey;            // the detached message
extern JNIEXPORT _quorlThreadLocal _envThreadKey;            // the JNIEnv of a ledger review
extern JNIEXPORT _quorlThreadLocal _actionThreadKey;         // a heap cell: the pending action of a member
extern JNIEXPORT _quorlThreadLocal _activeMembersThreadKey;  // a heap cell: the pending count of a monitor
extern JNIEXPORT _quorlThreadLocal _msgArrayThreadKey;       // the thread's _quorl_msgs, freed as the thread ends

// Message handles of the last vector on a thread. The library delivers 128 at most in one vector.
typedef struct {
    jint size;
    jlong msgIds[QUORL_VECTOR_MAX];
} * _quorl_msgs;

// ---- functions ------------------------------------------------------------------------------------------------------

// Loads the cache and makes the slots. 1: done; 0: failed, with a Java exception pending unless a slot was refused.
JNIEXPORT int _quorlNative_Initialize(JNIEnv* env);

// Frees what a slot holds as its thread ends.
JNIEXPORT void destructor(void* ptr);

// Callbacks handed to the library. Each runs on the thread that dispatches, and none of them calls Java.
JNIEXPORT void listenerCallback(quorlEvent event, quorlMsg message, void* closure);
JNIEXPORT void timer_callback(quorlEvent event, quorlMsg message, void* closure);
JNIEXPORT void vectorListenerCallback(quorlMsg* msgs, unsigned int size);

// The calling thread's container, a new one when the thread has none. QUORL_NO_MEMORY.
JNIEXPORT quorl_status getContainer(_quorl_msgs* msgContainer);

// Copies the three parameters of a transport into heap buffers that are the caller's to free; null for an absent one.
// A failure shows only as the pending Java exception.
JNIEXPORT void extract_transport_parameters(JNIEnv* env, jbyteArray serviceBytes, jint serviceLength,
                                            jbyteArray networkBytes, jint networkLength, jbyteArray daemonBytes,
                                            jint daemonLength, jbyte** service, jbyte** network, jbyte** daemon);

}  // extern "C"

// Rows of _quorl_classes and _quorl_methods that natives use.
enum ClassRow {
    kUnknownError = 2,
    kOutOfMemoryError = 4,
    kNoClassDefFoundError = 5,
    kClassFormatError = 6,
    kClassCircularityError = 7,
    kExceptionInInitializerError = 8,
    kNoSuchMethodError = 10,
    kQuorlException = 17,
    kQuorlEvent = 21,
};
enum MethodRow {
    kNewNullPointerException = 3,
    kNewQuorlException = 5,
    kInvokeReviewCallback = 6,
    kNewQuorlEvent = 7,
};

// ---- exceptions -----------------------------------------------------------------------------------------------------

// A QuorlException that carries status; null, with the machine's own exception pending, when it cannot be made.
inline jthrowable newStatusException(JNIEnv* env, quorl_status status) {
    return static_cast<jthrowable>(env->NewObject(_quorl_classes[kQuorlException].id,
                                                  _quorl_methods[kNewQuorlException].id, static_cast<jint>(status)));
}

// Throws an exception made before; nothing when it could not be made.
inline void throwIfMade(JNIEnv* env, jthrowable exception) {
    if (exception != nullptr) {
        env->Throw(exception);
    }
}

inline void throwStatus(JNIEnv* env, quorl_status status) {
    throwIfMade(env, newStatusException(env, status));
}

inline void throwOutOfMemory(JNIEnv* env, const char* text) {
    env->ThrowNew(_quorl_classes[kOutOfMemoryError].id, text);
}

// The same two after a copy out of a Java array. When that copy failed, the machine's bounds exception is pending, and
// stays the one that Java sees: throwing would replace it.
inline void throwStatusUnlessPending(JNIEnv* env, quorl_status status) {
    if (env->ExceptionOccurred() == nullptr) {
        throwStatus(env, status);
    }
}
inline void throwOutOfMemoryUnlessPending(JNIEnv* env, const char* text) {
    if (env->ExceptionOccurred() == nullptr) {
        throwOutOfMemory(env, text);
    }
}

// ---- plain calls ----------------------------------------------------------------------------------------------------

// Whether a Java value reaches a parameter of the library as it is: same width, and both integers or both floating.
template <class Java, class Library>
constexpr bool kCarries =
    sizeof(Java) == sizeof(Library) && std::is_floating_point_v<Java> == std::is_floating_point_v<Library>;

template <class... Parameters, class... Arguments>
constexpr void assertCarried(quorl_status (*)(Parameters...), Arguments...) {
    static_assert((kCarries<Arguments, Parameters> && ...), "a value would change on its way to the library");
}

// Calls a function of the library once and throws a failing status.
template <auto library, class... Arguments>
inline void callOrThrow(JNIEnv* env, Arguments... arguments) {
    assertCarried(library, arguments...);
    const quorl_status status = library(arguments...);
    if (status != QUORL_OK) {
        throwStatus(env, status);
    }
}

// ---- heap -----------------------------------------------------------------------------------------------------------

// Zeroed memory for count elements; null when there is none, and for a negative count, which no memory holds.
inline void* allocateZeroed(jint count, size_t elementSize) {
    return count < 0 ? nullptr : std::calloc(static_cast<size_t>(count), elementSize);
}

// A zeroed buffer for length bytes of text and their terminator. A negative length counts as 0.
inline char* allocateText(jint length) {
    return static_cast<char*>(std::calloc(static_cast<size_t>(length < 0 ? 0 : length) + 1, 1));
}

// A block that a native leaves behind when it returns. The next call of the same native on the thread, or the thread's
// end, frees it.
struct ThreadBlock {
    void* block = nullptr;
    ~ThreadBlock() { std::free(block); }
};

inline void leaveBehind(ThreadBlock* left, void* block) {
    std::free(left->block);
    left->block = block;
}

// ---- texts ----------------------------------------------------------------------------------------------------------

// A name or subject on its way to the library: in the fixed buffer when it fits there with its terminator, in a heap
// buffer of the right size when it does not. Not zeroed: only the bytes that are used are written.
template <jint kFixedSize>
struct TextBuffer {
    const char* text = nullptr;  // what the library is given
    char* heap = nullptr;        // freed by freeText; null while the fixed buffer serves
    char fixed[kFixedSize];
};
using Text = TextBuffer<255>;

// Copies length bytes of a Java array and terminates them; a null array gives a null text. False when a long text finds
// no memory. No exception is looked for: a copy that failed leaves its exception pending and the text empty, and the
// native goes on with that text, in the machine as in the library. A negative length reaches the machine, which refuses
// it, and copies nothing.
template <jint kFixedSize>
inline bool copyText(JNIEnv* env, jbyteArray bytes, jint length, TextBuffer<kFixedSize>* buffer) {
    if (bytes == nullptr) {
        return true;
    }
    char* text = buffer->fixed;
    if (length >= kFixedSize) {
        text = buffer->heap = static_cast<char*>(std::malloc(static_cast<size_t>(length) + 1));
        if (text == nullptr) {
            return false;
        }
    }
    text[0] = '\0';
    env->GetByteArrayRegion(bytes, 0, length, reinterpret_cast<jbyte*>(text));
    if (length > 0) {
        text[length] = '\0';
    }
    buffer->text = text;
    return true;
}

template <jint kFixedSize>
inline void freeText(const TextBuffer<kFixedSize>& buffer) {
    if (buffer.heap != nullptr) {
        std::free(buffer.heap);
    }
}

// The same, for natives that have more to do than one call of the library. False: a long text found no memory, and the
// status that stands for that is thrown.
template <jint kFixedSize>
inline bool copyTextOrThrow(JNIEnv* env, jbyteArray bytes, jint length, TextBuffer<kFixedSize>* buffer) {
    if (!copyText(env, bytes, length, buffer)) {
        throwStatus(env, QUORL_NO_MEMORY);
        return false;
    }
    return true;
}

// ---- local references ------------------------------------------------------------------------------------------------

// Every native may hold 16 local references; one that keeps a reference for each element of an array reserves more, in
// frames, because a machine bounds what it reserves at once.
constexpr jint kElementsUnreserved = 12;  // the natives hold up to four others besides
constexpr jint kElementsInFrame = 4096;

// To be called before the reference for each element i is taken. False: the machine refuses, with its exception pending.
// A refusal without one leaves the machine to give what it can.
inline bool reserveReference(JNIEnv* env, jint i, jint count, jint* frames) {
    if (count <= kElementsUnreserved || i % kElementsInFrame != 0) {
        return true;
    }
    const jint left = count - i;
    if (env->PushLocalFrame(left < kElementsInFrame ? left : kElementsInFrame) == JNI_OK) {
        ++*frames;
        return true;
    }
    return env->ExceptionCheck() == JNI_FALSE;  // it takes no reference, which a full frame has no room for
}

// The references of the elements end; those that were taken before stay.
inline void giveBackReferences(JNIEnv* env, jint frames) {
    for (jint i = 0; i < frames; ++i) {
        env->PopLocalFrame(nullptr);
    }
}

// ---- pointers and message handles ---------------------------------------------------------------------------------

// Java has no pointers: they travel as numbers.
inline void* toPointer(jlong number) {
    return reinterpret_cast<void*>(static_cast<uintptr_t>(number));  // NOLINT(performance-no-int-to-ptr)
}

// A handle travels as the pointer's value, zero-extended; 0 is no message.
inline quorlMsg toMsg(jlong handle) {
    return static_cast<quorlMsg>(toPointer(handle));
}
inline jlong toHandle(quorlMsg message) {
    return static_cast<jlong>(reinterpret_cast<uintptr_t>(message));
}

// ---- closures -------------------------------------------------------------------------------------------------------

// The closure of an event: the global reference to the Java object that created it.
inline jobject toReference(const void* closure) {
    return static_cast<jobject>(const_cast<void*>(closure));
}

// The booleans of the library: 0 or 1.
inline quorl_bool toBool(jboolean value) {
    return value != JNI_FALSE ? QUORL_TRUE : QUORL_FALSE;
}

// ---- pinned arrays --------------------------------------------------------------------------------------------------

// clang-format off
inline jbyte*   elementsOf(JNIEnv* env, jbyteArray array)   { return env->GetByteArrayElements(array, nullptr); }
inline jshort*  elementsOf(JNIEnv* env, jshortArray array)  { return env->GetShortArrayElements(array, nullptr); }
inline jint*    elementsOf(JNIEnv* env, jintArray array)    { return env->GetIntArrayElements(array, nullptr); }
inline jlong*   elementsOf(JNIEnv* env, jlongArray array)   { return env->GetLongArrayElements(array, nullptr); }
inline jfloat*  elementsOf(JNIEnv* env, jfloatArray array)  { return env->GetFloatArrayElements(array, nullptr); }
inline jdouble* elementsOf(JNIEnv* env, jdoubleArray array) { return env->GetDoubleArrayElements(array, nullptr); }

inline void releaseElements(JNIEnv* env, jbyteArray array, jbyte* pin)     { env->ReleaseByteArrayElements(array, pin, JNI_ABORT); }
inline void releaseElements(JNIEnv* env, jshortArray array, jshort* pin)   { env->ReleaseShortArrayElements(array, pin, JNI_ABORT); }
inline void releaseElements(JNIEnv* env, jintArray array, jint* pin)       { env->ReleaseIntArrayElements(array, pin, JNI_ABORT); }
inline void releaseElements(JNIEnv* env, jlongArray array, jlong* pin)     { env->ReleaseLongArrayElements(array, pin, JNI_ABORT); }
inline void releaseElements(JNIEnv* env, jfloatArray array, jfloat* pin)   { env->ReleaseFloatArrayElements(array, pin, JNI_ABORT); }
inline void releaseElements(JNIEnv* env, jdoubleArray array, jdouble* pin) { env->ReleaseDoubleArrayElements(array, pin, JNI_ABORT); }
// clang-format on

// Pins an array for reading. Between pin and release no call into the machine is made. The flag is read each time: it
// does not change once the natives are initialised, so the two always pair.
template <class Array>
inline auto pin(JNIEnv* env, Array array) -> decltype(elementsOf(env, array)) {
    if (criticalMethodsAreAvailable != 0) {
        return static_cast<decltype(elementsOf(env, array))>(env->GetPrimitiveArrayCritical(array, nullptr));
    }
    return elementsOf(env, array);
}

// Nothing is written back: the natives never change a pinned array.
template <class Array, class Element>
inline void release(JNIEnv* env, Array array, Element* pinned) {
    if (criticalMethodsAreAvailable != 0) {
        env->ReleasePrimitiveArrayCritical(array, pinned, JNI_ABORT);
    } else {
        releaseElements(env, array, pinned);
    }
}
