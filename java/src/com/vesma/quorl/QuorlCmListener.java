package com.vesma.quorl;

/** Certified interest in a subject. */
final class QuorlCmListener extends QuorlEvent {
    QuorlCmListener() {}

    native int quorlcmEvent_CreateListener(int queueId, int transportId, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlcmEvent_Destroy(int eventId, boolean cancelAgreements);
    static native void quorlcmEvent_SetExplicitConfirm(int eventId);
    static native void quorlcmEvent_ConfirmMsg(int eventId, long handle, QuorlMsg msg);
    static native void quorlcmEvent_CompleteNonCertifiedMsg(int transportId, long handle);
}
