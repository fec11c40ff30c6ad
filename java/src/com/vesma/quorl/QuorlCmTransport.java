package com.vesma.quorl;

/** A transport with certified delivery over a plain one. */
final class QuorlCmTransport {
    QuorlCmTransport() {}

    static native int quorlcmTransport_Create(
            int transportId, byte[] cmNameBytes, int cmNameBytesLength, boolean requestOld, byte[] ledgerNameBytes,
            int ledgerNameBytesLength, boolean syncLedger, byte[] relayAgentBytes, int relayAgentBytesLength);
    static native void quorlcmTransport_Destroy(int id);
    static native void quorlcmTransport_DestroyEx(int id);
    static native void quorlcmTransport_Send(int id, long handle, QuorlMsg msg);
    static native long quorlcmTransport_SendRequest(int id, long handle, double timeout, QuorlMsg msg);
    static native void quorlcmTransport_SendReply(int id, long replyHandle, long requestHandle, QuorlMsg reply, QuorlMsg request);
    static native void quorlcmTransport_AllowListener(int id, byte[] cmNameBytes, int cmNameBytesLength);
    static native void quorlcmTransport_DisallowListener(int id, byte[] cmNameBytes, int cmNameBytesLength);
    static native void quorlcmTransport_AddListener(
            int id, byte[] cmNameBytes, int cmNameBytesLength, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlcmTransport_RemoveListener(
            int id, byte[] cmNameBytes, int cmNameBytesLength, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlcmTransport_RemoveSendState(int id, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlcmTransport_ExpireMessages(
            int id, byte[] subjectBytes, int subjectBytesLength, long sequenceNumber);
    static native void quorlcmTransport_SyncLedger(int id);
    static native void quorlcmTransport_ConnectToRelayAgent(int id);
    static native void quorlcmTransport_DisconnectFromRelayAgent(int id);
    static native void quorlcmTransport_SetDefaultCMTimeLimit(int id, double timeLimit);
    static native void quorlcmTransport_SetPublisherInactivityDiscardInterval(int id, int timeout);
    static native void quorlcmTransport_ReviewLedger(
            int id, byte[] subjectBytes, int subjectBytesLength, QuorlCmReviewLedgerInfo ledgerInfo);
}
