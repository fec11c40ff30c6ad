// The natives of QuorlVcTransport: the two ends of a virtual circuit and the wait for the circuit.
#include <cstring>

#include "com_vesma_quorl_QuorlVcTransport.h"
#include "native.h"

extern "C" {

// One number carries both results: the circuit in the high 32 bits, the length of the connect subject in the low ones.
// 0 when the library refuses.
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_QuorlVcTransport_quorlTransport_1CreateAcceptVc(JNIEnv* env, jclass,
                                                                                             jint parentTransport,
                                                                                             jbyteArray subjectBytes) {
    quorlTransport vcTransport = 0;
    const char* subject = nullptr;
    const quorl_status status =
        quorlTransport_CreateAcceptVc(&vcTransport, &subject, static_cast<quorlTransport>(parentTransport));
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    const quorl_u32 length = static_cast<quorl_u32>(std::strlen(subject));
    env->SetByteArrayRegion(subjectBytes, 0, static_cast<jsize>(length), reinterpret_cast<const jbyte*>(subject));
    return static_cast<jlong>(static_cast<quorl_u64>(vcTransport) << 32 | length);
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlVcTransport_quorlTransport_1CreateConnectVc(JNIEnv* env, jclass,
                                                                                             jint parentTransport,
                                                                                             jbyteArray subjectBytes,
                                                                                             jint subjectBytesLength) {
    Text subject;
    quorlTransport vcTransport = 0;
    const quorl_status status =
        copyText(env, subjectBytes, subjectBytesLength, &subject)
            ? quorlTransport_CreateConnectVc(&vcTransport, subject.text, static_cast<quorlTransport>(parentTransport))
            : QUORL_NO_MEMORY;
    freeText(subject);
    if (status != QUORL_OK) {
        throwStatusUnlessPending(env, status);
        return 0;
    }
    return static_cast<jint>(vcTransport);
}

// A time-out is thrown like every other status; only a request answers it quietly.
JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlVcTransport_quorlTransport_1WaitForVcConnection(JNIEnv* env, jclass,
                                                                                                 jint id,
                                                                                                 jdouble timeout) {
    callOrThrow<quorlTransport_WaitForVcConnection>(env, id, timeout);
}

}  // extern "C"
