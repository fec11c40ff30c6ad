package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.security.KeyStore;
import java.util.Base64;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Credentials: what is taken, what is refused with which status, and that nothing repeats a secret. */
class QuorlSdContextTest extends OpenLibrary {
    private static final String PASSWORD = "correct horse";

    @TempDir
    static Path folder;

    private static byte[] container;
    private static String certificate;
    private static String key;
    private static String otherKey;

    private final QuorlSdContext context = new QuorlSdContext();

    @BeforeAll
    static void makeCertificates() throws Exception {
        Path first = makeStore("first.p12");
        container = Files.readAllBytes(first);
        certificate = pem("CERTIFICATE", load(first).getCertificate("program").getEncoded());
        key = pem("PRIVATE KEY", load(first).getKey("program", PASSWORD.toCharArray()).getEncoded());
        otherKey = pem("PRIVATE KEY",
                load(makeStore("second.p12")).getKey("program", PASSWORD.toCharArray()).getEncoded());
    }

    private static Path makeStore(String name) throws Exception {
        Path file = folder.resolve(name);
        Process keytool = new ProcessBuilder(Path.of(System.getProperty("java.home"), "bin", "keytool").toString(),
                "-genkeypair", "-alias", "program", "-keyalg", "EC", "-groupname", "secp256r1", "-dname", "CN=program",
                "-storetype", "PKCS12", "-storepass", PASSWORD, "-keystore", file.toString())
                .redirectErrorStream(true).start();
        String said = new String(keytool.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertTrue(keytool.waitFor(LIMIT.toSeconds(), TimeUnit.SECONDS));
        assertEquals(0, keytool.exitValue(), said);
        return file;
    }

    private static KeyStore load(Path file) throws Exception {
        return KeyStore.getInstance(file.toFile(), PASSWORD.toCharArray());
    }

    private static String pem(String label, byte[] bytes) {
        return "-----BEGIN " + label + "-----\n"
                + Base64.getMimeEncoder(64, new byte[] {'\n'}).encodeToString(bytes) + "\n-----END " + label + "-----\n";
    }

    @AfterEach
    void takeAway() {
        context.close();
        context.close();
    }

    private void refused(int status, String says, Runnable call) {
        QuorlException e = assertThrows(QuorlException.class, call::run);
        assertEquals(status, e.getStatus(), e.getMessage());
        assertTrue(e.getMessage().contains(says), e.getMessage());
        assertFalse(e.getMessage().contains(PASSWORD) || e.getMessage().contains("-----"), e.getMessage());
    }

    private static byte[] bytes(String text) {
        return text.getBytes(StandardCharsets.UTF_8);
    }

    @Test
    void nullsTakeAwayAndAreLegalWhenNothingIsThere() {
        for (int i = 0; i < 2; i++) {
            context.setDaemonCert(null, null);
            context.setDaemonCert("host:4222", null);
            context.setUserCertWithKey(null, null);
            context.setUserCertWithKeyBin(null, null);
            context.setUserNameWithPassword(null, null);
            context.setDaemonCert("host:4222", certificate);
            context.setUserCertWithKey(bytes(certificate + key), null);
            context.setUserNameWithPassword("ada", PASSWORD.toCharArray());
        }
    }

    @Test
    void daemonCertificatesAreChecked() {
        context.setDaemonCert(QuorlSdContext.ANY_DAEMON, certificate);
        context.setDaemonCert("tls://Host.Example:4222", certificate + certificate);
        refused(QuorlException.INVALID_ARG, "no certificate", () -> context.setDaemonCert(null, ""));
        refused(QuorlException.INVALID_ARG, "no certificate", () -> context.setDaemonCert(null, "hello"));
        refused(QuorlException.INVALID_ARG, "no certificate", () -> context.setDaemonCert(null, key));
        refused(QuorlException.INVALID_ARG, "damaged",
                () -> context.setDaemonCert(null, certificate.substring(0, certificate.length() / 2)));
        refused(QuorlException.INVALID_NAME, "name", () -> context.setDaemonCert("", certificate));
        refused(QuorlException.INVALID_NAME, "name", () -> context.setDaemonCert("two words", certificate));
        refused(QuorlException.INVALID_NAME, "name", () -> context.setDaemonCert("x".repeat(256), certificate));
        assertThrows(IllegalArgumentException.class, () -> context.setDaemonCert("a\0b", certificate));
        assertThrows(IllegalArgumentException.class, () -> context.setDaemonCert("a", certificate + "\0"));
    }

    @Test
    void certificatesMatchTheirKeys() {
        context.setUserCertWithKey(bytes(key + certificate), null);
        context.setUserCertWithKey(bytes(certificate + key), PASSWORD.toCharArray());
        refused(QuorlException.ARG_CONFLICT, "not belong",
                () -> context.setUserCertWithKey(bytes(certificate + otherKey), null));
        refused(QuorlException.INVALID_ARG, "no private key", () -> context.setUserCertWithKey(bytes(certificate), null));
        refused(QuorlException.INVALID_ARG, "no certificate", () -> context.setUserCertWithKey(bytes(key), null));
        refused(QuorlException.INVALID_ARG, "no certificate", () -> context.setUserCertWithKey(new byte[0], null));
        refused(QuorlException.INVALID_SIZE, "longer",
                () -> context.setUserCertWithKey(bytes("x".repeat(2 << 20)), null));
        assertThrows(IllegalArgumentException.class, () -> context.setUserCertWithKey(container, null));
    }

    @Test
    void containersOpenWithTheirPassword() {
        char[] password = PASSWORD.toCharArray();
        context.setUserCertWithKeyBin(container, password);
        assertArrayEquals(PASSWORD.toCharArray(), password, "the program's array is the program's to wipe");
        refused(QuorlException.USERPASS_MISMATCH, "password",
                () -> context.setUserCertWithKeyBin(container, "battery staple".toCharArray()));
        refused(QuorlException.USERPASS_MISMATCH, "none was given",
                () -> context.setUserCertWithKeyBin(container, new char[0]));
        refused(QuorlException.USERPASS_MISMATCH, "none was given", () -> context.setUserCertWithKeyBin(container, null));
        refused(QuorlException.INVALID_ARG, "not a PKCS #12 container", () -> context.setUserCertWithKeyBin(bytes("hello"), null));
        refused(QuorlException.INVALID_ARG, "not a PKCS #12 container", () -> context.setUserCertWithKeyBin(new byte[0], null));
        assertThrows(IllegalArgumentException.class,
                () -> context.setUserCertWithKeyBin(container, new char[] {'a', 0}));
        assertThrows(IllegalArgumentException.class,
                () -> context.setUserCertWithKeyBin(container, new char[] {'\ud83d'}));
    }

    @Test
    void usersHaveANameAndAPassword() {
        context.setUserNameWithPassword("ada", PASSWORD.toCharArray());
        context.setUserNameWithPassword("grüße \ud83d\ude00", "pässwörd \ud83d\ude00".toCharArray());
        refused(QuorlException.INVALID_ARG, "password is empty",
                () -> context.setUserNameWithPassword("ada", new char[0]));
        refused(QuorlException.INVALID_ARG, "name is empty",
                () -> context.setUserNameWithPassword("", PASSWORD.toCharArray()));
        refused(QuorlException.INVALID_ARG, "needs its password", () -> context.setUserNameWithPassword("ada", null));
        refused(QuorlException.INVALID_ARG, "longer",
                () -> context.setUserNameWithPassword("x".repeat(256), PASSWORD.toCharArray()));
        assertThrows(IllegalArgumentException.class,
                () -> context.setUserNameWithPassword("a\0b", PASSWORD.toCharArray()));
    }

    @Test
    void refusesUseAfterClose() {
        context.close();
        assertThrows(QuorlClosedException.class, () -> context.setDaemonCert("a", certificate));
        assertThrows(QuorlClosedException.class, () -> context.setUserCertWithKey(null, null));
        assertThrows(QuorlClosedException.class, () -> context.setUserCertWithKeyBin(null, null));
        assertThrows(QuorlClosedException.class, () -> context.setUserNameWithPassword(null, null));
    }

    /** An absent array is an absent credential; an empty one is an empty text, and empty bytes. */
    @Test
    void theNativesTellNullFromEmpty() {
        byte[] none = new byte[0];
        QuorlSdContext.quorlSecureDaemon_SetDaemonCert(null, 0, null, 0);
        QuorlSdContext.quorlSecureDaemon_SetUserCertWithKey(null, 0, null, 0);
        QuorlSdContext.quorlSecureDaemon_SetUserCertWithKeyBin(null, 7, null, 0);
        QuorlSdContext.quorlSecureDaemon_SetUserNameWithPassword(null, 0, null, 0);
        refused(QuorlException.INVALID_NAME, "name",
                () -> QuorlSdContext.quorlSecureDaemon_SetDaemonCert(none, 0, null, 0));
        refused(QuorlException.INVALID_ARG, "password is empty",
                () -> QuorlSdContext.quorlSecureDaemon_SetUserNameWithPassword(bytes("ada"), 3, none, 0));
        refused(QuorlException.INVALID_ARG, "needs its password",
                () -> QuorlSdContext.quorlSecureDaemon_SetUserNameWithPassword(bytes("ada"), 3, null, 0));
        QuorlSdContext.quorlSecureDaemon_SetUserCertWithKeyBin(
                container, container.length, bytes(PASSWORD), PASSWORD.length());
        QuorlSdContext.quorlSecureDaemon_SetUserCertWithKeyBin(null, 0, none, 0);
        // More than the array has: the machine's own exception, and nothing is set.
        assertThrows(IndexOutOfBoundsException.class,
                () -> QuorlSdContext.quorlSecureDaemon_SetDaemonCert(null, 0, bytes(certificate), 1 << 20));
    }
}
