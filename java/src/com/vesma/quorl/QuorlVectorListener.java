package com.vesma.quorl;

/** Interest in a subject, served in batches. */
public final class QuorlVectorListener extends QuorlEvent {
    QuorlVectorListener() {}

    native int quorlEvent_CreateVectorListener(int queueId, int transportId, byte[] subjectBytes, int subjectBytesLength, int cb);
    static native int getDispatchedMsgsHandle(long[] msgArray);
}
