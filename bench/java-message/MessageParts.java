package com.vesma.quorl;

/**
 * What the operations of the Java message are made of, each alone and in C: crossing into native code, copying bytes in,
 * the engine's work. In libmessageparts.so. Each runs count times within one crossing, except where that is what is
 * measured.
 */
final class MessageParts {
    private MessageParts() {}

    /** Nothing, with the parameters of the native that adds a number. */
    static native void empty(long handle, byte[] name, int nameLength, int value, short id, QuorlMsg msg);

    /** GetByteArrayRegion of the whole array. */
    static native long copyBytes(byte[] bytes, int count);

    /** The engine's add of an I32 with a name; the message is emptied after each perMessage of them. */
    static native void addNumbers(long handle, byte[] name, int perMessage, int count);

    /** The same with the name copied for each of them, as a native must: the add reads what was just written. */
    static native void copyAndAddNumbers(long handle, byte[] name, int perMessage, int count);

    /** GetIntArrayRegion of the whole array of at most 1,000. */
    static native int copyIn(int[] array);

    /** SetIntArrayRegion of the field at a position. */
    static native void copyOut(long handle, int index, int[] array);
}
