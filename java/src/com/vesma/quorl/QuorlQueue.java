package com.vesma.quorl;

/** A queue of events. */
public final class QuorlQueue {
    QuorlQueue() {}

    static native int quorlQueue_Create();
    static native void quorlQueue_Destroy(int id);
    static native void quorlQueue_SetName(int id, byte[] nameBytes, int nameBytesLength);
    static native byte[] quorlQueue_GetName(int id);
    static native int quorlQueue_GetCount(int id);
    static native Object quorlQueue_TimedDispatch(int id, double timeout);
    static native void quorlQueue_SetPriority(int id, int priority);
    static native int quorlQueue_GetPriority(int id);
    static native void quorlQueue_SetLimitPolicy(int id, int limitPolicy, int maxEvents, int discardAmount);
    static native int quorlQueue_GetLimitPolicy(int id);
    static native int quorlQueue_GetMaxEvents(int id);
    static native int quorlQueue_GetDiscardAmount(int id);
}
