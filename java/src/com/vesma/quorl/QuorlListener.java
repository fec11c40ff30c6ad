package com.vesma.quorl;

/** Interest in a subject. */
public final class QuorlListener extends QuorlEvent {
    QuorlListener() {}

    native int quorlEvent_CreateListener(int queueId, int transportId, byte[] subjectBytes, int subjectBytesLength);
    static native long getDispatchedMsgHandle();
}
