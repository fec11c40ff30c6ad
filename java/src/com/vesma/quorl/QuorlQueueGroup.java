package com.vesma.quorl;

/** Queues that are dispatched together, by priority. */
public final class QuorlQueueGroup {
    QuorlQueueGroup() {}

    static native int quorlQueueGroup_Create();
    static native boolean quorlQueueGroup_Destroy(int id);
    static native void quorlQueueGroup_Add(int groupId, int queueId);
    static native void quorlQueueGroup_Remove(int groupId, int queueId);
    static native Object quorlQueueGroup_TimedDispatch(int id, double timeout);
}
