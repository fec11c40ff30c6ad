package com.vesma.quorl;

/** A transport named by service, network and daemon. */
public final class QuorlQrdTransport extends QuorlTransport {
    QuorlQrdTransport() {}

    static native int quorlTransport_Create(
            byte[] serviceBytes, int serviceLength, byte[] networkBytes, int networkLength, byte[] daemonBytes, int daemonLength);
    static native void quorlTransport_SetBatchMode(int transportId, int mode);
}
