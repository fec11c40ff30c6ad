package com.vesma.quorl;

/** The library as a whole. */
public final class Quorl {
    private Quorl() {}

    static native String getCmVersion();
    static native String getFtVersion();
    static native boolean quorl_IsOpen();
    static native int quorl_Open();
    static native int quorl_Close();
    static native boolean quorl_IsValid(int id, int type);
    static native int quorl_InitializeNative();
    static native void quorl_DisableQRDMReadyCheck();
    static native int quorl_SetQRParameters(String[] array, int arrayLength);
    static native int quorl_OpenEx(byte[] pathnameBytes, int pathnameLength);
    static native boolean quorl_IsIPM();
}
