package com.vesma.quorl;

/** A point-to-point circuit over another transport. */
final class QuorlVcTransport extends QuorlTransport {
    QuorlVcTransport(int id) {
        super(id);
    }

    static native long quorlTransport_CreateAcceptVc(int parentTransport, byte[] subjectBytes);
    static native int quorlTransport_CreateConnectVc(int parentTransport, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlTransport_WaitForVcConnection(int id, double timeout);
}
