// The cache of Java classes and methods, the slots, and how both are set up when the Java side loads.
#include "native.h"

#include <cstdlib>

extern "C" {

// The index of a row is how the natives address it: rows keep their places, also those that no native uses.
_quorl_class _quorl_classes[23] = {
    {nullptr, "java/lang/Object"},
    {nullptr, "java/lang/Throwable"},
    {nullptr, "java/lang/UnknownError"},
    {nullptr, "java/lang/InternalError"},
    {nullptr, "java/lang/OutOfMemoryError"},
    {nullptr, "java/lang/NoClassDefFoundError"},
    {nullptr, "java/lang/ClassFormatError"},
    {nullptr, "java/lang/ClassCircularityError"},
    {nullptr, "java/lang/ExceptionInInitializerError"},
    {nullptr, "java/lang/NoSuchFieldError"},
    {nullptr, "java/lang/NoSuchMethodError"},
    {nullptr, "java/lang/NullPointerException"},
    {nullptr, "java/lang/ArrayIndexOutOfBoundsException"},
    {nullptr, "java/lang/NegativeArraySizeException"},
    {nullptr, "java/lang/ArithmeticException"},
    {nullptr, "java/lang/ClassCastException"},
    {nullptr, "java/lang/String"},
    {nullptr, "com/vesma/quorl/QuorlException"},
    {nullptr, "com/vesma/quorl/QuorlListener"},
    {nullptr, "com/vesma/quorl/QuorlTimer"},
    {nullptr, "com/vesma/quorl/QuorlCmReviewLedgerInfo"},
    {nullptr, "com/vesma/quorl/QuorlEvent"},
    {nullptr, "com/vesma/quorl/QuorlVectorListener"},  // never loaded
};

_quorl_method _quorl_methods[8] = {
    {nullptr, &_quorl_classes[0], 0, "hashCode", "()I"},
    {nullptr, &_quorl_classes[1], 0, "getMessage", "()Ljava/lang/String;"},
    {nullptr, &_quorl_classes[4], 0, "<init>", "(Ljava/lang/String;)V"},
    {nullptr, &_quorl_classes[11], 0, "<init>", "(Ljava/lang/String;)V"},
    {nullptr, &_quorl_classes[16], 0, "intern", "()Ljava/lang/String;"},
    {nullptr, &_quorl_classes[17], 0, "<init>", "(I)V"},
    {nullptr, &_quorl_classes[20], 0, "invokeReviewCallback", "(J)Z"},
    {nullptr, &_quorl_classes[21], 0, "<init>", "()V"},
};

int criticalMethodsAreAvailable = 0;

_quorlThreadLocal _eventThreadKey = 0;
_quorlThreadLocal _msgThreadKey = 0;
_quorlThreadLocal _envThreadKey = 0;
_quorlThreadLocal _actionThreadKey = 0;
_quorlThreadLocal _activeMembersThreadKey = 0;
_quorlThreadLocal _msgArrayThreadKey = 0;

}  // extern "C"

namespace {

constexpr int kLoadedClasses = 22;  // rows 0 to 21
constexpr int kMethods = 8;

// What is thrown for a pending exception that is an instance of one row: another row, with its text.
struct Translation {
    int pending;
    int thrown;
    const char* text;
};

// The order is that of the tests: the first match decides.
constexpr Translation kClassFailures[] = {
    {kClassFormatError, kClassFormatError, "A class has not been recognized by the Java VM as a valid Java class."},
    {kClassCircularityError, kClassCircularityError, "Is its own superclass"},
    {kNoClassDefFoundError, kNoClassDefFoundError, "A class is missing in the environment. Check your classpath."},
    {kOutOfMemoryError, kOutOfMemoryError, "A class cannot be loaded as the Java VM ran out of memory"},
};

// A missing method and a failed class initialiser both come out as a ClassFormatError: to the program the class is not
// the one that this library was built for.
constexpr Translation kMethodFailures[] = {
    {kNoSuchMethodError, kClassFormatError, "A method can't be found."},
    {kExceptionInInitializerError, kClassFormatError, "An exception occured during initialization of a class."},
    {kOutOfMemoryError, kOutOfMemoryError, "A method cannot be loaded as the Java VM ran out of memory"},
};

// Throws the class of row with text; while that class is not loaded, ends the machine with the text.
void throwOrDie(JNIEnv* env, int row, const char* text) {
    if (_quorl_classes[row].id != nullptr) {
        env->ThrowNew(_quorl_classes[row].id, text);
    } else {
        env->FatalError(text);
    }
}

// Puts our own text over the machine's exception of a failed lookup. Rows that are not loaded are passed over; without
// a match the machine's exception stays. It is pending while the new one is thrown, and is replaced by it.
template <size_t kRows>
void reportFailedLookup(JNIEnv* env, const Translation (&translations)[kRows]) {
    const jthrowable pending = env->ExceptionOccurred();
    if (pending == nullptr) {
        throwOrDie(env, kUnknownError, "Unknown error while initializing JNI layer.");
        return;
    }
    for (const Translation& translation : translations) {
        const jclass row = _quorl_classes[translation.pending].id;
        if (row != nullptr && env->IsInstanceOf(pending, row)) {
            env->ThrowNew(_quorl_classes[translation.thrown].id, translation.text);
            return;
        }
    }
}

// 1: the row holds a global reference; 0: an exception is pending. The local reference is left to the machine.
int __quorlNative_loadClass(JNIEnv* env, _quorl_class* row) {
    const jclass found = env->FindClass(row->name);
    if (found == nullptr) {
        reportFailedLookup(env, kClassFailures);
        return 0;
    }
    row->id = static_cast<jclass>(env->NewGlobalRef(found));
    if (row->id == nullptr) {
        throwOrDie(env, kOutOfMemoryError, "Out of memory while initializing JNI layer.");
        return 0;
    }
    return 1;
}

int __quorlNative_loadMethod(JNIEnv* env, _quorl_method* row) {
    if (row->class_->id == nullptr && __quorlNative_loadClass(env, row->class_) == 0) {
        return 0;
    }
    row->id = row->is_static != 0 ? env->GetStaticMethodID(row->class_->id, row->name, row->signature)
                                  : env->GetMethodID(row->class_->id, row->name, row->signature);
    if (row->id == nullptr) {
        reportFailedLookup(env, kMethodFailures);
        return 0;
    }
    return 1;
}

}  // namespace

extern "C" {

void destructor(void* ptr) {
    std::free(ptr);
}

int _quorlNative_Initialize(JNIEnv* env) {
    // Versions count from 0x00010001, so 1.1 and all later ones pass the first test; the second one is for numbers that
    // hold no more than a minor version.
    const jint version = env->GetVersion();
    criticalMethodsAreAvailable = version > 0x1FF || (version & 0xFFFF) > 1 ? 1 : 0;

    // Later rows report their failures with the classes of earlier ones. The last row is left out: its class may be
    // missing.
    for (int i = 0; i < kLoadedClasses; ++i) {
        if (__quorlNative_loadClass(env, &_quorl_classes[i]) == 0) {
            return 0;
        }
    }
    for (int i = 0; i < kMethods; ++i) {
        if (__quorlNative_loadMethod(env, &_quorl_methods[i]) == 0) {
            return 0;
        }
    }

    // A refused slot leaves those before it in place and shows only in the result.
    _quorlThreadLocal* const plainSlots[] = {&_eventThreadKey, &_msgThreadKey, &_envThreadKey, &_actionThreadKey,
                                             &_activeMembersThreadKey};
    for (_quorlThreadLocal* slot : plainSlots) {
        if (_quorlThreadLocal_Create(slot) != QUORL_OK) {
            return 0;
        }
    }
    return _quorlThreadLocal_CreateEx(&_msgArrayThreadKey, destructor) == QUORL_OK ? 1 : 0;
}

}  // extern "C"
