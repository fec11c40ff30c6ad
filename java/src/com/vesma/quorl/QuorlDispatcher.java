package com.vesma.quorl;

/** A thread that dispatches a queue or a group. */
public final class QuorlDispatcher {
    QuorlDispatcher() {}

    static native long quorlDispatchable_SetThreadKey();
    static native void quorlDispatchable_ClearThreadKey(long handle);
    static native void quorlDispatchable_Signal(int id, long threadKeyHandle);
}
