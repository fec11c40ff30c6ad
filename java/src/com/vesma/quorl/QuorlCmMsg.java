package com.vesma.quorl;

/** The certified attributes of a message. */
final class QuorlCmMsg {
    private QuorlCmMsg() {}

    static native int quorlMsg_GetCMSender(long handle, byte[] senderBytes, QuorlMsg msg);
    static native long quorlMsg_GetCMSequence(long handle, QuorlMsg msg);
    static native double quorlMsg_GetCMTimeLimit(long handle, QuorlMsg msg);
    static native void quorlMsg_SetCMTimeLimit(long handle, double timeLimit, QuorlMsg msg);
}
