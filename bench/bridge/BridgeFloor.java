package com.vesma.quorl;

/**
 * What the natives of QuorlMsg cannot do without: the same parameters, the same calls of the virtual machine and of the
 * library, and nothing else, no check of a status among it. In libbridgefloor.so.
 */
final class BridgeFloor {
    private BridgeFloor() {}

    static native int byIndex(long handle, int index, QuorlMsg msg);
    static native int byName(long handle, byte[] name, int nameLength, short id, QuorlMsg msg);
    static native int byNameUtf(long handle, String name, short id, QuorlMsg msg);
    static native long find(long handle, byte[] name, int nameLength, short id, QuorlMsg msg);
    static native void update(long handle, byte[] name, int nameLength, int value, short id, QuorlMsg msg);
    static native void updateString(
            long handle, byte[] name, int nameLength, byte[] value, int valueLength, short id, QuorlMsg msg);
    static native void updateArray(
            long handle, byte[] name, int nameLength, int[] array, int arrayLength, short id, QuorlMsg msg);
    static native void updateOpaque(
            long handle, byte[] name, int nameLength, byte[] bytes, int bytesLength, short id, QuorlMsg msg);
    static native void getArray(long handle, int index, int[] array, QuorlMsg msg);
    static native void getOpaque(long handle, int index, byte[] bytes, QuorlMsg msg);
    static native byte[] fieldName(long handle, int index, QuorlMsg msg);
    static native byte[] asBytes(long handle, QuorlMsg msg);
    static native String subjectUtf8(long handle, QuorlMsg msg);
}
