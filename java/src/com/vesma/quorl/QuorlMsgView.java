package com.vesma.quorl;

/** A read-only view of a message's bytes. */
final class QuorlMsgView {
    QuorlMsgView() {}

    static native Object quorlMsg_GetByteBuffer(long handle, Object view);
}
