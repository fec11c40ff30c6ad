package com.vesma.quorl;

import java.nio.ByteBuffer;
import java.nio.CharBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.HashSet;
import java.util.Set;

/**
 * The credentials that this process shows to secure daemons, and the certificates that it trusts them by.
 *
 * <p>Set them before the transport is made. They are used by every connection that is made afterwards, also when a lost one
 * is made again, so keep the context as long as there are transports. There is one set of credentials in a process: a later
 * setting replaces an earlier one, whichever context made it. {@link #close} takes away what this context has set, the
 * last {@link Quorl#close} everything.
 *
 * <pre>{@code
 * try (QuorlSdContext credentials = new QuorlSdContext()) {
 *     credentials.setDaemonCert("db1.example:4222", Files.readString(Path.of("authority.pem")));
 *     credentials.setUserNameWithPassword("ada", password);
 *     try (QuorlQrdTransport transport = new QuorlQrdTransport(null, null, "tls://db1.example:4222")) {
 *         ...
 *     }
 * }
 * }</pre>
 *
 * <p>What is set is checked at once, and a refusal changes nothing:
 * <ul>
 *   <li>{@link QuorlException#INVALID_ARG}: no PEM, no PKCS #12, no certificate, no key, or a damaged one; an empty name or
 *       password of a user,
 *   <li>{@link QuorlException#ARG_CONFLICT}: the key belongs to none of the certificates,
 *   <li>{@link QuorlException#INVALID_NAME}: a malformed name of a daemon,
 *   <li>{@link QuorlException#INVALID_SIZE}: more than 1 MiB,
 *   <li>{@link QuorlException#USERPASS_MISMATCH}: the password of the key is wrong or missing.
 * </ul>
 *
 * <p>Passwords are arrays, so that the program can overwrite them; the copies that are made here are overwritten before a
 * method returns, and the library's own when they are replaced. No exception repeats a credential. All methods may be
 * called from any thread, also while the library is not open.
 */
public final class QuorlSdContext implements AutoCloseable {
    /** The name that holds for every daemon without certificates of its own. */
    public static final String ANY_DAEMON = "*";

    /** The daemons, the identity and the user that this context has set. Guarded by this. */
    private final Set<String> daemons = new HashSet<>();
    private boolean identity;
    private boolean user;
    private boolean closed;

    /** Makes a context that has set nothing yet. */
    public QuorlSdContext() {
        Library.load();
    }

    /**
     * Trusts a daemon by its certificate, or by that of the authority that signed it.
     *
     * @param daemonName {@code host:port} or {@code host}; null or {@link #ANY_DAEMON} for daemons that have none of their
     *     own
     * @param daemonCert one certificate or more, PEM; null takes away what was set for the daemon
     */
    public synchronized void setDaemonCert(String daemonName, String daemonCert) {
        requireOpen();
        String name = daemonName == null ? ANY_DAEMON : daemonName;
        setDaemon(name, daemonCert);
        if (daemonCert == null) {
            daemons.remove(name);
        } else {
            daemons.add(name);
        }
    }

    private static void setDaemon(String name, String certificate) {
        byte[] nameBytes = Texts.encode(name, "the daemon's name");
        byte[] certBytes = certificate == null ? null : Texts.encode(certificate, "the certificate");
        quorlSecureDaemon_SetDaemonCert(nameBytes, nameBytes.length, certBytes, Texts.length(certBytes));
    }

    /**
     * Shows a certificate with its private key.
     *
     * @param userCertWithKey PEM: the certificate, others of its chain, and the key, in any order; null takes away what was
     *     set, here or by {@link #setUserCertWithKeyBin}
     * @param password the key's; null for none. Not looked at when the key is not encrypted
     */
    public synchronized void setUserCertWithKey(byte[] userCertWithKey, char[] password) {
        requireOpen();
        if (userCertWithKey != null) {
            requireNoZero(userCertWithKey, "the certificate");
        }
        byte[] passwordBytes = encode(password);
        try {
            quorlSecureDaemon_SetUserCertWithKey(
                    userCertWithKey, Texts.length(userCertWithKey), passwordBytes, Texts.length(passwordBytes));
        } finally {
            wipe(passwordBytes);
        }
        identity = userCertWithKey != null;
    }

    /**
     * Shows a certificate with its private key, both in a PKCS #12 container.
     *
     * @param userCertWithKey the container; null takes away what was set, here or by {@link #setUserCertWithKey}
     * @param password the container's; null or empty for none
     */
    public synchronized void setUserCertWithKeyBin(byte[] userCertWithKey, char[] password) {
        requireOpen();
        byte[] passwordBytes = encode(password);
        try {
            quorlSecureDaemon_SetUserCertWithKeyBin(
                    userCertWithKey, Texts.length(userCertWithKey), passwordBytes, Texts.length(passwordBytes));
        } finally {
            wipe(passwordBytes);
        }
        identity = userCertWithKey != null;
    }

    /**
     * Shows a name and a password.
     *
     * @param userName 1 to 255 bytes of UTF-8; null takes away what was set
     * @param password the same; not looked at when there is no name
     */
    public synchronized void setUserNameWithPassword(String userName, char[] password) {
        requireOpen();
        byte[] nameBytes = userName == null ? null : Texts.encode(userName, "the user name");
        byte[] passwordBytes = encode(password);
        try {
            quorlSecureDaemon_SetUserNameWithPassword(
                    nameBytes, Texts.length(nameBytes), passwordBytes, Texts.length(passwordBytes));
        } finally {
            wipe(passwordBytes);
        }
        user = userName != null;
    }

    /** Takes away what this context has set. Closing again does nothing. */
    @Override
    public synchronized void close() {
        if (closed) {
            return;
        }
        closed = true;
        for (String daemon : daemons) {
            setDaemon(daemon, null);
        }
        daemons.clear();
        if (identity) {
            quorlSecureDaemon_SetUserCertWithKey(null, 0, null, 0);
        }
        if (user) {
            quorlSecureDaemon_SetUserNameWithPassword(null, 0, null, 0);
        }
    }

    private void requireOpen() {
        if (closed) {
            throw new QuorlClosedException(QuorlException.NOT_PERMITTED, "the context of credentials");
        }
    }

    /** The library would end the text there. */
    private static void requireNoZero(byte[] bytes, String what) {
        for (byte b : bytes) {
            if (b == 0) {
                throw new IllegalArgumentException(what + " has a zero byte, so it is no PEM");
            }
        }
    }

    /** The bytes of a password, to be wiped; null for null. */
    private static byte[] encode(char[] password) {
        if (password == null) {
            return null;
        }
        ByteBuffer encoded = null;
        try {
            encoded = StandardCharsets.UTF_8.newEncoder().onMalformedInput(CodingErrorAction.REPORT)
                    .encode(CharBuffer.wrap(password));
            byte[] bytes = Arrays.copyOfRange(encoded.array(), encoded.arrayOffset(), encoded.arrayOffset() + encoded.limit());
            for (byte b : bytes) {
                if (b == 0) {
                    wipe(bytes);
                    throw new IllegalArgumentException("the password has a zero character, where the library would end it");
                }
            }
            return bytes;
        } catch (CharacterCodingException e) {
            throw new IllegalArgumentException("the password has half a surrogate pair", e);
        } finally {
            if (encoded != null) {
                wipe(encoded.array());
            }
        }
    }

    private static void wipe(byte[] bytes) {
        if (bytes != null) {
            Arrays.fill(bytes, (byte) 0);
        }
    }

    static native void quorlSecureDaemon_SetDaemonCert(
            byte[] daemonNameBytes, int daemonNameBytesLength, byte[] daemonCertBytes, int daemonCertBytesLength);
    static native void quorlSecureDaemon_SetUserCertWithKey(
            byte[] userCertWithKeyBytes, int userCertWithKeyBytesLength, byte[] passwordBytes, int passwordBytesLength);
    static native void quorlSecureDaemon_SetUserCertWithKeyBin(
            byte[] userCertWithKeyBytes, int userCertWithKeyBytesLength, byte[] passwordBytes, int passwordBytesLength);
    static native void quorlSecureDaemon_SetUserNameWithPassword(
            byte[] userNameBytes, int userNameBytesLength, byte[] passwordBytes, int passwordBytesLength);
}
