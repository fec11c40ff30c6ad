package com.vesma.quorl;

/** The credentials shown to a secure daemon. */
final class QuorlSdContext {
    private QuorlSdContext() {}

    static native void quorlSecureDaemon_SetDaemonCert(
            byte[] daemonNameBytes, int daemonNameBytesLength, byte[] daemonCertBytes, int daemonCertBytesLength);
    static native void quorlSecureDaemon_SetUserCertWithKey(
            byte[] userCertWithKeyBytes, int userCertWithKeyBytesLength, byte[] passwordBytes, int passwordBytesLength);
    static native void quorlSecureDaemon_SetUserCertWithKeyBin(
            byte[] userCertWithKeyBytes, int userCertWithKeyBytesLength, byte[] passwordBytes, int passwordBytesLength);
    static native void quorlSecureDaemon_SetUserNameWithPassword(
            byte[] userNameBytes, int userNameBytesLength, byte[] passwordBytes, int passwordBytesLength);
}
