package com.vesma.quorl;

/** An event at a fixed interval. */
public final class QuorlTimer extends QuorlEvent {
    QuorlTimer() {}

    native int quorlEvent_CreateTimer(int queueId, double interval);
    static native double quorlEvent_GetInterval(int timerId);
    static native void quorlEvent_ResetTimerInterval(int timerId, double interval);
}
