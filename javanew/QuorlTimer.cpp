// The natives of QuorlTimer and the callback of timers.
#include "com_vesma_quorl_QuorlTimer.h"
#include "native.h"

extern "C" {

// A timer has no message; one that a listener left on this thread stays to be taken.
void timer_callback(quorlEvent, quorlMsg, void* closure) {
    _quorlThreadLocal_Set(_eventThreadKey, closure);
}

JNIEXPORT jint JNICALL Java_com_vesma_quorl_QuorlTimer_quorlEvent_1CreateTimer(JNIEnv* env, jobject self, jint queueId,
                                                                               jdouble interval) {
    const jobject timerRef = env->NewGlobalRef(self);
    if (timerRef == nullptr) {
        throwOutOfMemory(env, "Cannot allocate memory for timer reference.");
        return 0;
    }
    quorlEvent timer_id = 0;
    const quorl_status status =
        quorlEvent_CreateTimer(&timer_id, static_cast<quorlQueue>(queueId), timer_callback, interval, timerRef);
    if (status != QUORL_OK) {
        env->DeleteGlobalRef(timerRef);
        throwStatus(env, status);
        return 0;
    }
    return static_cast<jint>(timer_id);
}

// Quiet: 0 for a timer that is not there. The reset throws.
JNIEXPORT jdouble JNICALL Java_com_vesma_quorl_QuorlTimer_quorlEvent_1GetInterval(JNIEnv*, jclass, jint timerId) {
    quorl_f64 interval = 0.0;
    quorlEvent_GetTimerInterval(static_cast<quorlEvent>(timerId), &interval);
    return interval;
}

JNIEXPORT void JNICALL Java_com_vesma_quorl_QuorlTimer_quorlEvent_1ResetTimerInterval(JNIEnv* env, jclass, jint timerId,
                                                                                      jdouble interval) {
    callOrThrow<quorlEvent_ResetTimerInterval>(env, timerId, interval);
}

}  // extern "C"
