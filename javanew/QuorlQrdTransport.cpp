// The natives of QuorlQrdTransport: transports that are made from service, network and daemon.
#include "com_vesma_quorl_QuorlQrdTransport.h"
#include "native.h"

namespace {

// The parameters of a creation that a failed copy ended. They outlive that call.
thread_local ThreadBlock leftService;
thread_local ThreadBlock leftNetwork;
thread_local ThreadBlock leftDaemon;

// One parameter; null for an absent one. False: it found no memory, and an exception is pending. A copy that fails
// leaves it empty, with the machine's exception pending.
bool extractParameter(JNIEnv* env, jbyteArray bytes, jint length, jbyte** parameter, const char* text) {
    if (bytes == nullptr) {
        return true;
    }
    *parameter = reinterpret_cast<jbyte*>(allocateText(length));
    if (*parameter == nullptr) {
        throwOutOfMemoryUnlessPending(env, text);
        return false;
    }
    env->GetByteArrayRegion(bytes, 0, length, *parameter);
    return true;
}

void freeParameter(jbyte** parameter) {
    std::free(*parameter);
    *parameter = nullptr;
}

}  // namespace

extern "C" {

void extract_transport_parameters(JNIEnv* env, jbyteArray serviceBytes, jint serviceLength, jbyteArray networkBytes,
                                  jint networkLength, jbyteArray daemonBytes, jint daemonLength, jbyte** service,
                                  jbyte** network, jbyte** daemon) {
    *service = nullptr;
    *network = nullptr;
    *daemon = nullptr;
    if (!extractParameter(env, serviceBytes, serviceLength, service, "Cannot allocate memory for service parameter.")) {
        return;
    }
    if (!extractParameter(env, networkBytes, networkLength, network, "Cannot allocate memory for network parameter.")) {
        freeParameter(service);
        return;
    }
    if (!extractParameter(env, daemonBytes, daemonLength, daemon, "Cannot allocate memory for daemon parameter.")) {
        freeParameter(service);
        freeParameter(network);
    }
}

// With an exception pending after the extraction the library is not called. The buffers are then null when memory was
// short; after a copy that failed they stay until the thread creates again or ends.
JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlQrdTransport_quorlTransport_1Create(
    JNIEnv* env, jclass, jbyteArray serviceBytes, jint serviceLength, jbyteArray networkBytes, jint networkLength,
    jbyteArray daemonBytes, jint daemonLength) {
    jbyte* service;
    jbyte* network;
    jbyte* daemon;
    extract_transport_parameters(env, serviceBytes, serviceLength, networkBytes, networkLength, daemonBytes,
                                 daemonLength, &service, &network, &daemon);
    if (env->ExceptionOccurred() != nullptr) {
        leaveBehind(&leftService, service);
        leaveBehind(&leftNetwork, network);
        leaveBehind(&leftDaemon, daemon);
        return 0;
    }
    quorlTransport transport = 0;
    const quorl_status status =
        quorlTransport_Create(&transport, reinterpret_cast<char*>(service), reinterpret_cast<char*>(network),
                              reinterpret_cast<char*>(daemon));
    std::free(service);
    std::free(network);
    std::free(daemon);
    if (status != QUORL_OK) {
        throwStatus(env, status);
        return 0;
    }
    return static_cast<jint>(transport);
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlQrdTransport_quorlTransport_1SetBatchMode(JNIEnv* env, jclass,
                                                                                           jint transportId,
                                                                                           jint mode) {
    callOrThrow<quorlTransport_SetBatchMode>(env, transportId, static_cast<quorlTransportBatchMode>(mode));
}

}  // extern "C"
