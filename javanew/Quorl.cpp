// The natives of Quorl: the library's environment, its versions and its in-process parameters.
#include "com_vesma_quorl_Quorl.h"
#include "native.h"
#include "quorl/quorlcm.h"
#include "quorl/quorlft.h"

namespace {

// A version text; the empty string where the library gives none.
template <auto version>
jstring versionOf(JNIEnv* env) {
    const char* const text = version();
    return env->NewStringUTF(text != nullptr ? text : "");
}

// The string at a place of the array and its text, which the machine lends; elements are not checked for null. The
// references to the strings stay until the texts have gone back through them. False: the machine has left
// an exception, after which it must not be called on.
bool convertParameter(JNIEnv* env, jobjectArray array, jint index, jint count, jint* frames, jstring* string,
                      const char** text) {
    if (!reserveReference(env, index, count, frames)) {
        return false;
    }
    *string = static_cast<jstring>(env->GetObjectArrayElement(array, index));
    if (*string == nullptr && env->ExceptionOccurred() != nullptr) {
        return false;
    }
    *text = env->GetStringUTFChars(*string, nullptr);
    return *text != nullptr || env->ExceptionOccurred() == nullptr;
}

}  // namespace

extern "C" {

// clang-format off

// Versions
JNIEXPORT jstring JNICALL Java_com_vesma_quorl_Quorl_getCmVersion(JNIEnv* env, jclass) { return versionOf<quorlcm_Version>(env); }
JNIEXPORT jstring JNICALL Java_com_vesma_quorl_Quorl_getFtVersion(JNIEnv* env, jclass) { return versionOf<quorlft_Version>(env); }

// clang-format on

// Open and close. Statuses are the results here; nothing is thrown.

// The default queue exists exactly while the library is open.
JNIEXPORT jboolean JNICALL Java_com_vesma_quorl_Quorl_quorl_1IsOpen(JNIEnv*, jclass) {
    return _quorlObjectId_Verify(QUORL_DEFAULT_QUEUE, QUORL_OBJECT_QUEUE) == QUORL_OK ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_Quorl_quorl_1Open(JNIEnv*, jclass) {
    return quorl_Open();
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_Quorl_quorl_1Close(JNIEnv*, jclass) {
    return quorl_Close();
}

JNIEXPORT jboolean JNICALL Java_com_vesma_quorl_Quorl_quorl_1IsValid(JNIEnv*, jclass, jint id, jint type) {
    return _quorlObjectId_Verify(static_cast<quorl_u32>(id), static_cast<quorl_u32>(type)) == QUORL_OK ? JNI_TRUE
                                                                                                       : JNI_FALSE;
}

// 0 is success for Java, and 1 for the initialisation.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_Quorl_quorl_1InitializeNative(JNIEnv* env, jclass) {
    return _quorlNative_Initialize(env) != 0 ? 0 : 1;
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_Quorl_quorl_1DisableQRDMReadyCheck(JNIEnv*, jclass) {
    quorl_DisableQRDMReadyCheck();
}

// The one native that both throws and answers a status: when the list finds no memory. An element that is not there, or
// a text or a reference that cannot be had, ends it when the machine has left an exception: the library is not asked
// then.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_Quorl_quorl_1SetQRParameters(JNIEnv* env, jclass, jobjectArray array,
                                                                         jint arrayLength) {
    if (arrayLength < 1) {
        return quorl_SetQRParameters(0, nullptr);
    }
    // The texts for the library, then the strings that they came from, in one block.
    void* const block = allocateZeroed(arrayLength, 2 * sizeof(void*));
    if (block == nullptr) {
        throwOutOfMemory(env, "Cannot allocate memory for IPM parameters.");
        return QUORL_NO_MEMORY;
    }
    const char** const texts = static_cast<const char**>(block);
    jstring* const strings = static_cast<jstring*>(static_cast<void*>(texts + arrayLength));
    jint frames = 0;
    bool copied = true;
    for (jint i = 0; i < arrayLength && copied; ++i) {
        copied = convertParameter(env, array, i, arrayLength, &frames, &strings[i], &texts[i]);
    }
    const quorl_status status =
        copied ? quorl_SetQRParameters(static_cast<quorl_u32>(arrayLength), texts) : QUORL_INVALID_ARG;
    for (jint i = 0; i < arrayLength; ++i) {
        if (texts[i] != nullptr) {
            env->ReleaseStringUTFChars(strings[i], texts[i]);
        }
    }
    giveBackReferences(env, frames);
    std::free(block);
    return status;
}

// Without memory for the path this one answers the status and throws nothing.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_Quorl_quorl_1OpenEx(JNIEnv* env, jclass, jbyteArray pathnameBytes,
                                                                jint pathnameLength) {
    char* const pathname = allocateText(pathnameLength);
    if (pathname == nullptr) {
        return QUORL_NO_MEMORY;
    }
    env->GetByteArrayRegion(pathnameBytes, 0, pathnameLength, reinterpret_cast<jbyte*>(pathname));
    const quorl_status status = quorl_OpenEx(pathname);
    std::free(pathname);
    return status;
}

JNIEXPORT jboolean JNICALL Java_com_vesma_quorl_Quorl_quorl_1IsIPM(JNIEnv*, jclass) {
    return quorl_IsIPM() != QUORL_FALSE ? JNI_TRUE : JNI_FALSE;
}

}  // extern "C"
