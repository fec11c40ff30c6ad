// The natives of QuorlSdContext: credentials for secure daemons.
#include <cstring>

#include "com_vesma_quorl_QuorlSdContext.h"
#include "native.h"
#include "quorl/quorlsd.h"

namespace {

// The text is that of a transport's service: it stands for the memory of every credential.
void throwNoMemory(JNIEnv* env) {
    throwOutOfMemoryUnlessPending(env, "Cannot allocate memory for service parameter.");
}

// A zeroed buffer for a terminated text or for bare bytes; null when there is no memory.
template <bool isText>
char* allocateCredential(jint length) {
    return isText ? allocateText(length) : static_cast<char*>(allocateZeroed(length, 1));
}

void copyCredential(JNIEnv* env, jbyteArray bytes, jint length, char* copy) {
    env->GetByteArrayRegion(bytes, 0, length, reinterpret_cast<jbyte*>(copy));
}

// Wipes and frees a credential, so that freed memory holds none.
void freeCredential(char* copy, jint length) {
    if (copy != nullptr) {
        explicit_bzero(copy, static_cast<size_t>(length < 0 ? 0 : length));
        std::free(copy);
    }
}

// Hands two credentials to the library; an absent array is a null credential. A copy that fails leaves its credential
// zeroed and ends nothing; its exception stays the one that Java sees.
template <bool firstIsText, class Call>
void passCredentials(JNIEnv* env, jbyteArray firstBytes, jint firstLength, jbyteArray secondBytes, jint secondLength,
                     Call call) {
    char* first = nullptr;
    if (firstBytes != nullptr) {
        first = allocateCredential<firstIsText>(firstLength);
        if (first == nullptr) {
            throwNoMemory(env);
            return;
        }
        copyCredential(env, firstBytes, firstLength, first);
    }
    char* second = nullptr;
    if (secondBytes != nullptr) {
        second = allocateCredential<true>(secondLength);
        if (second == nullptr) {
            freeCredential(first, firstLength);
            throwNoMemory(env);
            return;
        }
        copyCredential(env, secondBytes, secondLength, second);
    }
    const quorl_status status = call(first, second);
    freeCredential(first, firstLength);
    freeCredential(second, secondLength);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

}  // namespace

extern "C" {

// clang-format off

// Texts
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlSdContext_quorlSecureDaemon_1SetDaemonCert(JNIEnv* env, jclass, jbyteArray name, jint nameLength, jbyteArray cert, jint certLength)                  { passCredentials<true>(env, name, nameLength, cert, certLength, quorlSecureDaemon_SetDaemonCert); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlSdContext_quorlSecureDaemon_1SetUserCertWithKey(JNIEnv* env, jclass, jbyteArray cert, jint certLength, jbyteArray password, jint passwordLength)     { passCredentials<true>(env, cert, certLength, password, passwordLength, quorlSecureDaemon_SetUserCertWithKey); }

// clang-format on

// Bytes with their length, which is passed on also beside a null array, and a text.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlSdContext_quorlSecureDaemon_1SetUserCertWithKeyBin(
    JNIEnv* env, jclass, jbyteArray cert, jint certLength, jbyteArray password, jint passwordLength) {
    passCredentials<false>(
        env, cert, certLength, password, passwordLength, [certLength](const char* certCopy, const char* passwordCopy) {
            return quorlSecureDaemon_SetUserCertWithKeyBin(certCopy, static_cast<quorl_u32>(certLength), passwordCopy);
        });
}

// clang-format off

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlSdContext_quorlSecureDaemon_1SetUserNameWithPassword(JNIEnv* env, jclass, jbyteArray name, jint nameLength, jbyteArray password, jint passwordLength) { passCredentials<true>(env, name, nameLength, password, passwordLength, quorlSecureDaemon_SetUserNameWithPassword); }

// clang-format on

}  // extern "C"
