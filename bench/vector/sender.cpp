// The C side of the vector case: sends messages that Java listeners hear.
#include <sched.h>

#include <atomic>
#include <string>

#include "com_vesma_quorl_VectorBenchmark.h"
#include "support/measure.h"
#include "support/quorl.h"

namespace {

using namespace bench;

constexpr quorl_u32 kSize = 256;  // bytes of the field

struct Sender {
    quorlTransport transport;
    std::string subject;
    int64_t* came;  // written by the listener's side
    int64_t start = 0;

    int64_t cameSoFar() const { return std::atomic_ref(*came).load(std::memory_order_acquire); }

    void send() const {
        static const char payload[kSize] = {};
        quorlMsg message;
        need(quorlMsg_Create(&message), "create message");
        need(quorlMsg_AddOpaqueEx(message, "payload", payload, kSize, 0), "add field");
        need(quorlMsg_SetSendSubject(message, subject.c_str()), "set subject");
        need(quorlTransport_Send(transport, message), "send");
        need(quorlMsg_Destroy(message), "destroy message");
    }
};

Sender& senderOf(jlong handle) {
    return *reinterpret_cast<Sender*>(handle);
}

}  // namespace

extern "C" {

// For the rest of the program's life.
JNIEXPORT jlong JNICALL Java_com_vesma_quorl_VectorBenchmark_open(JNIEnv* env, jclass, jint transport, jstring subject,
                                                                  jobject reports) {
    const char* text = env->GetStringUTFChars(subject, nullptr);
    auto* sender = new Sender{static_cast<quorlTransport>(transport), text,
                              static_cast<int64_t*>(env->GetDirectBufferAddress(reports))};
    env->ReleaseStringUTFChars(subject, text);
    return reinterpret_cast<jlong>(sender);
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_VectorBenchmark_send(JNIEnv*, jclass, jlong handle, jint count) {
    for (jint i = 0; i < count; ++i) senderOf(handle).send();
}

JNIEXPORT jlong JNICALL Java_com_vesma_quorl_VectorBenchmark_sendStream(JNIEnv*, jclass, jlong handle, jdouble seconds,
                                                                        jlong window) {
    Sender& sender = senderOf(handle);
    sender.start = nowNs();
    const int64_t stop = sender.start + static_cast<int64_t>(seconds * 1e9);
    int64_t sent = 0;
    for (;; ++sent) {
        if (sent % 32 == 0) {
            if (nowNs() >= stop) break;
            while (sent - sender.cameSoFar() > window) sched_yield();
        }
        sender.send();
    }
    return sent;
}

JNIEXPORT jdouble JNICALL Java_com_vesma_quorl_VectorBenchmark_lastReport(JNIEnv*, jclass, jlong handle, jlong sent) {
    Sender& sender = senderOf(handle);
    while (sender.cameSoFar() < sent) sched_yield();
    return static_cast<double>(nowNs() - sender.start) * 1e-9;
}

}  // extern "C"
