package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Who is let in with which credentials, and what the refusal says. Certificates are made by the openssl command. */
class DaemonTlsTest {
    private static final String PASSWORD = "pass wörd";

    @TempDir
    static Path folder;

    private Quorl quorl;
    private QuorlSdContext credentials;

    @BeforeAll
    static void makeCertificates() throws Exception {
        authority("ca");
        authority("other-ca");
        // 0x7f.1 is a name for whoever compares certificates, and the C library knows its address without asking anybody.
        issue("server", "ca", "DNS:0x7f.1,IP:127.0.0.1");
        issue("elsewhere", "ca", "DNS:db1.example");
        issue("client", "ca", "DNS:client");
        issue("stranger", "other-ca", "DNS:stranger");
        // Not as an argument, which could not be written in every locale.
        Files.writeString(folder.resolve("password"), PASSWORD + "\n");
        openssl("rsa", "-aes128", "-passout", "file:password", "-in", "client.key", "-out", "client-locked.key");
        openssl("pkcs12", "-export", "-in", "client.pem", "-inkey", "client.key", "-passout", "file:password", "-out",
                "client.p12");
        expire("expired");
    }

    private static void openssl(String... arguments) throws Exception {
        ProcessBuilder builder = new ProcessBuilder("openssl").directory(folder.toFile()).redirectErrorStream(true);
        builder.command().addAll(List.of(arguments));
        Process process = builder.start();
        String said = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertTrue(process.waitFor(OpenLibrary.LIMIT.toSeconds(), TimeUnit.SECONDS));
        assertEquals(0, process.exitValue(), said);
    }

    private static void authority(String name) throws Exception {
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2", "-subj", "/CN=" + name,
                "-keyout", name + ".key", "-out", name + ".pem");
    }

    private static void ask(String name) throws Exception {
        openssl("req", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=" + name, "-keyout", name + ".key", "-out", name + ".csr");
    }

    private static void issue(String name, String by, String names) throws Exception {
        ask(name);
        Files.writeString(folder.resolve(name + ".ext"), "subjectAltName=" + names + "\n");
        openssl("x509", "-req", "-in", name + ".csr", "-CA", by + ".pem", "-CAkey", by + ".key", "-CAcreateserial", "-days", "2",
                "-extfile", name + ".ext", "-out", name + ".pem");
    }

    /** One whose time has passed; openssl takes dates only from its ca command. */
    private static void expire(String name) throws Exception {
        ask(name);
        Files.writeString(folder.resolve("expired.conf"), "[ca]\ndefault_ca=one\n[one]\ndatabase=index.txt\nnew_certs_dir=.\n"
                + "serial=serial.txt\ndefault_md=sha256\npolicy=any\nx509_extensions=names\n[any]\ncommonName=supplied\n"
                + "[names]\nsubjectAltName=DNS:0x7f.1,IP:127.0.0.1\n");
        Files.writeString(folder.resolve("index.txt"), "");
        Files.writeString(folder.resolve("serial.txt"), "01\n");
        openssl("ca", "-batch", "-config", "expired.conf", "-cert", "ca.pem", "-keyfile", "ca.key", "-startdate", "20200101000000Z",
                "-enddate", "20200102000000Z", "-in", name + ".csr", "-out", name + ".pem", "-notext");
    }

    private static String text(String name) throws IOException {
        return Files.readString(folder.resolve(name));
    }

    private static byte[] both(String certificate, String key) throws IOException {
        return (text(certificate) + text(key)).getBytes(StandardCharsets.UTF_8);
    }

    /** What a server is configured with. */
    private static String tls(String name, String more) {
        return "tls { cert_file: \"" + folder.resolve(name + ".pem") + "\", key_file: \"" + folder.resolve(name + ".key") + "\""
                + more + " }";
    }

    private static String verifying() {
        return ", ca_file: \"" + folder.resolve("ca.pem") + "\", verify: true";
    }

    private static String address(NatsServer server) {
        return "tls://0x7f.1:" + server.port();
    }

    @BeforeEach
    void open() {
        quorl = Quorl.open();
        credentials = new QuorlSdContext();
    }

    @AfterEach
    void close() {
        credentials.close();
        quorl.close();
    }

    /** A request and its reply. */
    private static void works(String address) throws Exception {
        try (QuorlQrdTransport transport = new QuorlQrdTransport(null, null, address); QuorlQueue queue = new QuorlQueue();
                QuorlListener listener = new QuorlListener(queue, transport, "ask", (l, m) -> {
                    try (QuorlMsg answer = new QuorlMsg()) {
                        transport.reply(answer, m);
                    }
                });
                QuorlDispatcher dispatcher = new QuorlDispatcher(queue); QuorlMsg question = new QuorlMsg("ask");
                QuorlMsg answer = transport.request(question, OpenLibrary.LIMIT)) {
            assertNotNull(answer);
        }
    }

    private static void refused(String address, int status, String says) {
        QuorlException e = assertThrows(QuorlException.class, () -> new QuorlQrdTransport(null, null, address));
        assertEquals(status, e.getStatus(), e.getMessage());
        assertEquals(status == QuorlException.DAEMON_NOT_FOUND, e instanceof QuorlDaemonException, e.toString());
        assertTrue(e.getDetail().contains(says) && e.getDetail().contains("connect "), e.getMessage());
        assertFalse(e.toString().contains(PASSWORD) || e.toString().contains("-----"), e.toString());
    }

    @Test
    void aTrustedDaemonIsUsed() throws Exception {
        try (NatsServer server = new NatsServer(tls("server", ""))) {
            refused(address(server), QuorlException.DAEMON_NOT_FOUND, "unable to get local issuer certificate");
            credentials.setDaemonCert(null, text("other-ca.pem"));
            refused(address(server), QuorlException.DAEMON_NOT_FOUND, "certificate");
            credentials.setDaemonCert("0x7f.1:" + server.port(), text("ca.pem"));
            works(address(server));
            refused("tls://127.0.0.1:" + server.port(), QuorlException.DAEMON_NOT_FOUND, "certificate");
            refused(server.url(), QuorlException.DAEMON_NOT_FOUND, "the daemon demands TLS");
            credentials.close();
            refused(address(server), QuorlException.DAEMON_NOT_FOUND, "unable to get local issuer certificate");
        }
    }

    @Test
    void aCertificateOfAnotherTimeOrHostIsRefused() throws Exception {
        credentials.setDaemonCert(QuorlSdContext.ANY_DAEMON, text("ca.pem"));
        try (NatsServer expired = new NatsServer(tls("expired", "")); NatsServer elsewhere = new NatsServer(tls("elsewhere", ""));
                NatsServer clear = new NatsServer("")) {
            refused(address(expired), QuorlException.DAEMON_NOT_FOUND, "certificate has expired");
            refused(address(elsewhere), QuorlException.DAEMON_NOT_FOUND, "hostname mismatch");
            refused(address(clear), QuorlException.DAEMON_NOT_FOUND, "the daemon offers no TLS");
        }
    }

    @Test
    void aCertificateIsShownWhenItIsDemanded() throws Exception {
        credentials.setDaemonCert(null, text("ca.pem"));
        try (NatsServer server = new NatsServer(tls("server", verifying()))) {
            refused(address(server), QuorlException.USERPASS_MISMATCH, "a certificate of the program is demanded");
            credentials.setUserCertWithKey(both("stranger.pem", "stranger.key"), null);
            refused(address(server), QuorlException.USERPASS_MISMATCH, "the certificate of the program is refused");
            credentials.setUserCertWithKey(both("client.pem", "client.key"), null);
            works(address(server));
            credentials.setUserCertWithKey(both("client.pem", "client-locked.key"), PASSWORD.toCharArray());
            works(address(server));
            QuorlException wrong = assertThrows(QuorlException.class,
                    () -> credentials.setUserCertWithKey(both("client.pem", "client-locked.key"), "other".toCharArray()));
            assertEquals(QuorlException.USERPASS_MISMATCH, wrong.getStatus());
            works(address(server));
            credentials.setUserCertWithKey(null, null);
            refused(address(server), QuorlException.USERPASS_MISMATCH, "a certificate of the program is demanded");
            credentials.setUserCertWithKeyBin(Files.readAllBytes(folder.resolve("client.p12")), PASSWORD.toCharArray());
            works(address(server));
        }
    }

    @Test
    void aUserHasANameAndAPassword() throws Exception {
        credentials.setDaemonCert(null, text("ca.pem"));
        try (NatsServer server = new NatsServer(
                tls("server", "") + "\nauthorization { user: ada, password: \"" + PASSWORD + "\" }")) {
            refused(address(server), QuorlException.USERPASS_MISMATCH, "is demanded");
            credentials.setUserNameWithPassword("ada", "wrong".toCharArray());
            refused(address(server), QuorlException.USERPASS_MISMATCH, "is refused");
            credentials.setUserNameWithPassword("bob", PASSWORD.toCharArray());
            refused(address(server), QuorlException.USERPASS_MISMATCH, "is refused");
            credentials.setUserNameWithPassword("ada", PASSWORD.toCharArray());
            works(address(server));
            // A later context's setting outlives the earlier context, and goes with its own.
            try (QuorlSdContext later = new QuorlSdContext()) {
                later.setUserNameWithPassword("ada", PASSWORD.toCharArray());
                later.setDaemonCert("TLS://0X7F.1:" + server.port(), text("ca.pem"));
                credentials.close();
                works(address(server));
            }
            credentials = new QuorlSdContext();
            credentials.setDaemonCert(null, text("ca.pem"));
            refused(address(server), QuorlException.USERPASS_MISMATCH, "is demanded");
        }
    }
}
