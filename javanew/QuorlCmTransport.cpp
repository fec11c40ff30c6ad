// The natives of QuorlCmTransport: the life of a certified transport, certified sending, and the ledger.
#include "com_vesma_quorl_QuorlCmTransport.h"
#include "native.h"
#include "quorl/quorlcm.h"

namespace {

// ---- blocking destruction -------------------------------------------------------------------------------------------

// Lives on the stack of the thread that waits in DestroyEx, for that one call.
struct __destroyExGuard {
    _quorlCondition condition;
    _quorlMutex mutex;
};

// Runs on a thread of the library. The waiter holds the mutex from before the destruction starts until its wait gives
// it up, so the signal cannot come before the wait.
void signalReadyToReturn(quorlcmTransport, void* closure) {
    __destroyExGuard* const guard = static_cast<__destroyExGuard*>(closure);
    pthread_mutex_lock(&guard->mutex->mutex);
    _quorlCondition_Signal(guard->condition);
    pthread_mutex_unlock(&guard->mutex->mutex);
}

// One wait and no flag: whatever ends the wait ends the call. A refusal is thrown before the lock is given back.
void destroyAndWait(JNIEnv* env, quorlcmTransport transport, __destroyExGuard* guard) {
    pthread_mutex_lock(&guard->mutex->mutex);
    const quorl_status status = quorlcmTransport_DestroyEx(transport, signalReadyToReturn, guard);
    if (status == QUORL_OK) {
        _quorlCondition_Wait(guard->condition, guard->mutex);
    } else {
        throwStatus(env, status);
    }
    pthread_mutex_unlock(&guard->mutex->mutex);
}

// ---- ledger review --------------------------------------------------------------------------------------------------

// The one callback that calls Java: it runs on the Java thread inside the review, whose environment waits in the slot.
// An exception of the Java method is left pending; the method then answers false and the review goes on.
void* reviewLedgerCallback(quorlcmTransport, const char*, quorlMsg message, void* closure) {
    void* const stop = reinterpret_cast<void*>(1);
    void* slot = nullptr;
    if (_quorlThreadLocal_Get(_envThreadKey, &slot) != QUORL_OK) {
        return stop;
    }
    JNIEnv* const env = static_cast<JNIEnv*>(slot);
    const jboolean stopped = env->CallBooleanMethod(static_cast<jobject>(closure),
                                                    _quorl_methods[kInvokeReviewCallback].id, toHandle(message));
    return stopped != JNI_FALSE ? stop : nullptr;
}

// ---- calls with texts -----------------------------------------------------------------------------------------------

// Calls the library with the id, one text and what follows it.
template <auto library, class... Arguments>
void callWithText(JNIEnv* env, jint id, jbyteArray bytes, jint length, Arguments... arguments) {
    Text text;
    const quorl_status status = copyText(env, bytes, length, &text)
                                    ? library(static_cast<quorlcmTransport>(id), text.text, arguments...)
                                    : QUORL_NO_MEMORY;
    freeText(text);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

// Calls the library with the id, a listener's name and a subject.
template <auto library>
void callWithListener(JNIEnv* env, jint id, jbyteArray nameBytes, jint nameLength, jbyteArray subjectBytes,
                      jint subjectLength) {
    Text name;
    Text subject;
    const quorl_status status =
        copyText(env, nameBytes, nameLength, &name) && copyText(env, subjectBytes, subjectLength, &subject)
            ? library(static_cast<quorlcmTransport>(id), name.text, subject.text)
            : QUORL_NO_MEMORY;
    freeText(name);
    freeText(subject);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

// A zeroed copy of a Java array with its terminator; null when there is no memory.
char* copyName(JNIEnv* env, jbyteArray bytes, jint length) {
    char* const copy = allocateText(length);
    if (copy != nullptr) {
        env->GetByteArrayRegion(bytes, 0, length, reinterpret_cast<jbyte*>(copy));
    }
    return copy;
}

}  // namespace

extern "C" {

// The certified name has no error text of its own: without memory for it the library is not asked, and the status that
// stands for that is thrown, after the other two have been looked at.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1Create(
    JNIEnv* env, jclass, jint transportId, jbyteArray cmNameBytes, jint cmNameBytesLength, jboolean requestOld,
    jbyteArray ledgerNameBytes, jint ledgerNameBytesLength, jboolean syncLedger, jbyteArray relayAgentBytes,
    jint relayAgentBytesLength) {
    char* const cmName = cmNameBytes != nullptr ? copyName(env, cmNameBytes, cmNameBytesLength) : nullptr;
    char* ledgerName = nullptr;
    if (ledgerNameBytes != nullptr) {
        ledgerName = copyName(env, ledgerNameBytes, ledgerNameBytesLength);
        if (ledgerName == nullptr) {
            std::free(cmName);
            throwOutOfMemoryUnlessPending(env, "Cannot allocate memory for ledgerName parameter.");
            return 0;
        }
    }
    char* relayAgent = nullptr;
    if (relayAgentBytes != nullptr) {
        relayAgent = copyName(env, relayAgentBytes, relayAgentBytesLength);
        if (relayAgent == nullptr) {
            std::free(cmName);
            std::free(ledgerName);
            throwOutOfMemoryUnlessPending(env, "Cannot allocate memory for relay agent parameter.");
            return 0;
        }
    }
    quorlcmTransport id = 0;
    const quorl_status status =
        cmNameBytes != nullptr && cmName == nullptr
            ? QUORL_NO_MEMORY
            : quorlcmTransport_Create(&id, static_cast<quorlTransport>(transportId), cmName, toBool(requestOld),
                                      ledgerName, toBool(syncLedger), relayAgent);
    std::free(cmName);
    std::free(ledgerName);
    std::free(relayAgent);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return static_cast<jint>(id);
}

// Reports nothing.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1Destroy(JNIEnv*, jclass, jint id) {
    quorlcmTransport_Destroy(static_cast<quorlcmTransport>(id));
}

// Returns when the library has finished with the transport. The calling thread owns the guard and frees both parts;
// must not be called on the thread that runs the library's completions. Without a guard nothing is destroyed.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1DestroyEx(JNIEnv* env, jclass, jint id) {
    __destroyExGuard guard = {nullptr, nullptr};
    _quorlCondition_Create(&guard.condition);
    _quorlMutex_Create(&guard.mutex);
    if (guard.condition != nullptr && guard.mutex != nullptr) {
        destroyAndWait(env, static_cast<quorlcmTransport>(id), &guard);
    } else {
        throwStatus(env, QUORL_NO_MEMORY);
    }
    _quorlMutex_Destroy(guard.mutex);
    _quorlCondition_Destroy(guard.condition);
}

// clang-format off

// Sending
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1Send(JNIEnv* env, jclass, jint id, jlong handle, jobject) { callOrThrow<quorlcmTransport_Send>(env, id, toMsg(handle)); }

// clang-format on

// No reply in time is an answer, 0, and no error; 0 stands beside every exception too.
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1SendRequest(JNIEnv* env, jclass,
                                                                                            jint id, jlong handle,
                                                                                            jdouble timeout, jobject) {
    quorlMsg reply = nullptr;
    const quorl_status status =
        quorlcmTransport_SendRequest(static_cast<quorlcmTransport>(id), toMsg(handle), &reply, timeout);
    if (status == QUORL_OK) {
        return toHandle(reply);
    }
    if (status != QUORL_TIMEOUT) {
        throwStatus(env, status);
    }
    return 0;
}

// clang-format off

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1SendReply(JNIEnv* env, jclass, jint id, jlong replyHandle, jlong requestHandle, jobject, jobject) { callOrThrow<quorlcmTransport_SendReply>(env, id, toMsg(replyHandle), toMsg(requestHandle)); }

// Listeners
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1AllowListener(JNIEnv* env, jclass, jint id, jbyteArray cmName, jint cmNameLength)                                                  { callWithText<quorlcmTransport_AllowListener>(env, id, cmName, cmNameLength); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1DisallowListener(JNIEnv* env, jclass, jint id, jbyteArray cmName, jint cmNameLength)                                               { callWithText<quorlcmTransport_DisallowListener>(env, id, cmName, cmNameLength); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1AddListener(JNIEnv* env, jclass, jint id, jbyteArray cmName, jint cmNameLength, jbyteArray subject, jint subjectLength)            { callWithListener<quorlcmTransport_AddListener>(env, id, cmName, cmNameLength, subject, subjectLength); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1RemoveListener(JNIEnv* env, jclass, jint id, jbyteArray cmName, jint cmNameLength, jbyteArray subject, jint subjectLength)         { callWithListener<quorlcmTransport_RemoveListener>(env, id, cmName, cmNameLength, subject, subjectLength); }

// Ledger and relay agent
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1RemoveSendState(JNIEnv* env, jclass, jint id, jbyteArray subject, jint subjectLength)                                              { callWithText<quorlcmTransport_RemoveSendState>(env, id, subject, subjectLength); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1ExpireMessages(JNIEnv* env, jclass, jint id, jbyteArray subject, jint subjectLength, jlong sequenceNumber)                         { callWithText<quorlcmTransport_ExpireMessages>(env, id, subject, subjectLength, static_cast<quorl_u64>(sequenceNumber)); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1SyncLedger(JNIEnv* env, jclass, jint id)                                                                                           { callOrThrow<quorlcmTransport_SyncLedger>(env, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1ConnectToRelayAgent(JNIEnv* env, jclass, jint id)                                                                                  { callOrThrow<quorlcmTransport_ConnectToRelayAgent>(env, id); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1DisconnectFromRelayAgent(JNIEnv* env, jclass, jint id)                                                                             { callOrThrow<quorlcmTransport_DisconnectFromRelayAgent>(env, id); }

// Limits
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1SetDefaultCMTimeLimit(JNIEnv* env, jclass, jint id, jdouble timeLimit)                                                             { callOrThrow<quorlcmTransport_SetDefaultCMTimeLimit>(env, id, timeLimit); }
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1SetPublisherInactivityDiscardInterval(JNIEnv* env, jclass, jint id, jint timeout)                                                  { callOrThrow<quorlcmTransport_SetPublisherInactivityDiscardInterval>(env, id, timeout); }

// clang-format on

// The closure is a local reference: it and the environment are good for as long as the review runs, on this thread. The
// slot keeps the environment afterwards, which stays that of the thread.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlCmTransport_quorlcmTransport_1ReviewLedger(
    JNIEnv* env, jclass, jint id, jbyteArray subjectBytes, jint subjectBytesLength, jobject ledgerInfo) {
    Text subject;
    if (!copyTextOrThrow(env, subjectBytes, subjectBytesLength, &subject)) {
        return;
    }
    quorl_status status = _quorlThreadLocal_Set(_envThreadKey, env);
    if (status == QUORL_OK) {
        status = quorlcmTransport_ReviewLedger(static_cast<quorlcmTransport>(id), reviewLedgerCallback, subject.text,
                                               ledgerInfo);
    }
    freeText(subject);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
    }
}

}  // extern "C"
