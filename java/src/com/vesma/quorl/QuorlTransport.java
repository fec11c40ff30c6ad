package com.vesma.quorl;

/** A way for messages to leave and to arrive. */
public abstract class QuorlTransport {
    QuorlTransport() {}

    static native void quorlTransport_SetDescription(int transportId, byte[] descriptionBytes, int descriptionLength);
    static native void quorlTransport_RequestReliability(int transportId, double reliability);
    static native int quorlTransport_CreateInbox(int transportId, byte[] subjectBytes);
    static native void quorlTransport_Send(int transportId, long messagePointer, QuorlMsg msg);
    static native void quorlTransport_Sendv(int transportId, long[] handleArray, int handleArrayLength, Object[] msgArray);
    static native long quorlTransport_SendRequest(int transportId, long requestPointer, double timeout, QuorlMsg request);
    static native void quorlTransport_SendReply(int transportId, long replyPointer, long requestPointer, QuorlMsg reply, QuorlMsg request);
    static native void quorlTransport_Destroy(int transportId);
    static native void quorlTransport_SetBatchSize(int transportId, int numBytes);
}
