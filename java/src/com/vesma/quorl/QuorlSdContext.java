package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.nio.ByteBuffer;
import java.nio.CharBuffer;
import java.nio.charset.CharsetEncoder;
import java.nio.charset.CoderResult;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;
import java.util.HashMap;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.locks.ReentrantLock;

/**
 * The credentials that this process shows to secure daemons, and the certificates that it trusts them by.
 *
 * <p>Set them before the transport is made. They are used by every connection that is made afterwards, also when a lost one
 * is made again, so keep the context as long as there are transports. There is one set of credentials in a process: a later
 * setting replaces an earlier one, whichever context made it. {@link #close} takes away what this context has set, unless
 * another has replaced it, the last {@link Quorl#close} everything.
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

    /** Characters that a password may have: more than the library takes. */
    private static final int LONGEST_PASSWORD = 1 << 20;

    /** Held while credentials are set, so that what holds and who has set it agree. */
    private static final ReentrantLock LOCK = new ReentrantLock();

    /** The contexts that have set what holds: certificates by the daemon's name, the identity, the user. Guarded by LOCK. */
    private static final Map<String, QuorlSdContext> DAEMONS_OF = new HashMap<>();
    private static QuorlSdContext identityOf;
    private static QuorlSdContext userOf;

    /** Guarded by LOCK. */
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
    public void setDaemonCert(String daemonName, String daemonCert) {
        String name = daemonName == null ? ANY_DAEMON : daemonName;
        LOCK.lock();
        try {
            requireOpen();
            setDaemon(name, daemonCert);
            if (daemonCert == null) {
                DAEMONS_OF.remove(plain(name));
            } else {
                DAEMONS_OF.put(plain(name), this);
            }
        } finally {
            LOCK.unlock();
        }
    }

    /** The name as the library compares it: without a scheme, in small letters. */
    private static String plain(String name) {
        int scheme = name.indexOf("://");
        return (scheme < 0 ? name : name.substring(scheme + 3)).toLowerCase(Locale.ROOT);
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
    public void setUserCertWithKey(byte[] userCertWithKey, char[] password) {
        if (userCertWithKey != null) {
            requireNoZero(userCertWithKey, "the certificate");
        }
        setIdentity(userCertWithKey, password, QuorlSdContext::quorlSecureDaemon_SetUserCertWithKey);
    }

    /**
     * Shows a certificate with its private key, both in a PKCS #12 container.
     *
     * @param userCertWithKey the container; null takes away what was set, here or by {@link #setUserCertWithKey}
     * @param password the container's; null or empty for none
     */
    public void setUserCertWithKeyBin(byte[] userCertWithKey, char[] password) {
        setIdentity(userCertWithKey, password, QuorlSdContext::quorlSecureDaemon_SetUserCertWithKeyBin);
    }

    /** One of the natives that take a credential and its password. */
    private interface Setter {
        void set(byte[] credential, int length, byte[] password, int passwordLength);
    }

    private void setIdentity(byte[] userCertWithKey, char[] password, Setter setter) {
        LOCK.lock();
        try {
            set(userCertWithKey, password, setter);
            identityOf = userCertWithKey == null ? null : this;
        } finally {
            LOCK.unlock();
        }
    }

    /** Under LOCK. */
    private void set(byte[] credential, char[] password, Setter setter) {
        requireOpen();
        byte[] passwordBytes = encode(password);
        try {
            setter.set(credential, Texts.length(credential), passwordBytes, Texts.length(passwordBytes));
        } finally {
            wipe(passwordBytes);
        }
    }

    /**
     * Shows a name and a password.
     *
     * @param userName 1 to 255 bytes of UTF-8; null takes away what was set
     * @param password the same; not looked at when there is no name
     */
    public void setUserNameWithPassword(String userName, char[] password) {
        byte[] nameBytes = userName == null ? null : Texts.encode(userName, "the user name");
        LOCK.lock();
        try {
            set(nameBytes, password, QuorlSdContext::quorlSecureDaemon_SetUserNameWithPassword);
            userOf = userName == null ? null : this;
        } finally {
            LOCK.unlock();
        }
    }

    /**
     * Takes away what this context has set and no other has replaced. Closing again does nothing.
     */
    @Override
    public void close() {
        LOCK.lock();
        try {
            closed = true;
            DAEMONS_OF.entrySet().removeIf(each -> {
                if (each.getValue() != this) {
                    return false;
                }
                setDaemon(each.getKey(), null);
                return true;
            });
            if (identityOf == this) {
                quorlSecureDaemon_SetUserCertWithKey(null, 0, null, 0);
                identityOf = null;
            }
            if (userOf == this) {
                quorlSecureDaemon_SetUserNameWithPassword(null, 0, null, 0);
                userOf = null;
            }
        } finally {
            LOCK.unlock();
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
        if (password.length > LONGEST_PASSWORD) {
            throw new QuorlException(
                    QuorlException.INVALID_SIZE, "the password has more than " + LONGEST_PASSWORD + " characters");
        }
        // Room for three bytes of every character: the encoder's own buffer grows, and leaves the smaller ones behind.
        byte[] room = new byte[3 * password.length];
        try {
            CharsetEncoder encoder = StandardCharsets.UTF_8.newEncoder().onMalformedInput(CodingErrorAction.REPORT);
            ByteBuffer encoded = ByteBuffer.wrap(room);
            CoderResult result = encoder.encode(CharBuffer.wrap(password), encoded, true);
            if (result.isError()) {
                throw new IllegalArgumentException("the password has half a surrogate pair");
            }
            for (int i = 0; i < encoded.position(); i++) {
                if (room[i] == 0) {
                    throw new IllegalArgumentException("the password has a zero character, where the library would end it");
                }
            }
            return Arrays.copyOf(room, encoded.position());
        } finally {
            wipe(room);
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
