package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.security.cert.CertificateFactory;
import java.security.cert.X509Certificate;
import java.time.Duration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import java.util.stream.Collectors;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** What the doctor finds wrong with the library and with files of credentials; without a daemon. */
class DoctorTest {
    @TempDir
    static Path folder;

    @BeforeAll
    static void makeCertificates() throws Exception {
        for (String name : List.of("a", "b")) {
            openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-days", name.equals("a") ? "90" : "5",
                    "-subj", "/CN=" + name, "-passout", "pass:open sesame", "-keyout", file(name + ".key"), "-out", file(name + ".crt"));
        }
        for (String[] pair : new String[][] {{"a", "a"}, {"a", "b"}, {"b", "b"}}) {
            Files.writeString(folder.resolve(pair[0] + pair[1] + ".pem"), Files.readString(folder.resolve(pair[0] + ".crt"))
                    + Files.readString(folder.resolve(pair[1] + ".key")));
        }
        openssl("pkcs12", "-export", "-in", file("a.crt"), "-inkey", file("a.key"), "-passin", "pass:open sesame", "-passout",
                "pass:open sesame", "-out", file("a.p12"));
        Files.writeString(folder.resolve("right"), "open sesame\n");
        Files.writeString(folder.resolve("wrong"), "open barley\n");
        for (String name : List.of("aa.pem", "ab.pem", "bb.pem", "a.p12", "right", "wrong")) {
            Files.setPosixFilePermissions(folder.resolve(name), PosixFilePermissions.fromString("rw-------"));
        }
    }

    private static String file(String name) {
        return folder.resolve(name).toString();
    }

    private static void openssl(String... arguments) throws Exception {
        List<String> command = new ArrayList<>(List.of("openssl"));
        command.addAll(List.of(arguments));
        Process process = new ProcessBuilder(command).redirectErrorStream(true).start();
        String said = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertTrue(process.waitFor(ChildCommand.LIMIT, TimeUnit.SECONDS));
        assertEquals(0, process.exitValue(), said);
    }

    /** The doctor's answer, which never shows a password. */
    private static String doctor(int code, String... options) {
        List<String> arguments = new ArrayList<>(List.of("doctor"));
        arguments.addAll(List.of(options));
        Cli asked = Cli.run(arguments.toArray(String[]::new));
        assertEquals(code, asked.code(), asked.out());
        assertTrue(!asked.out().contains("open sesame") && !asked.out().contains("open barley"), "a password is shown");
        return asked.out();
    }

    private static void shows(String said, String... parts) {
        for (String part : parts) assertTrue(said.contains(part), said);
    }

    @Test
    void whatIsRightIsShownWithItsEnd() {
        shows(doctor(0, "--trust", file("a.crt"), "--identity", file("aa.pem"), "--password-file", file("right")),
                "ok     credentials", "ok     certificate  --trust " + file("a.crt") + ": \"CN=a\" expires at 20",
                "ok     certificate  --identity " + file("aa.pem") + ": \"CN=a\" expires at 20");
        shows(doctor(0, "--identity", file("a.p12"), "--password-file", file("right")),
                "ok     certificate  --identity " + file("a.p12") + ": \"CN=a\" expires at 20");
        shows(doctor(0, "--identity", file("bb.pem"), "--password-file", file("right")), "note   certificate", "in 4 days",
                "-> ask its issuer for a new one in time");
    }

    @Test
    void credentialsThatCannotBeUsedFail() {
        shows(doctor(1, "--identity", file("ab.pem"), "--password-file", file("right")), "wrong  credentials", "key", "(status 5)");
        shows(doctor(1, "--identity", file("aa.pem"), "--password-file", file("wrong")), "wrong  credentials", "(status 81)");
        shows(doctor(1, "--identity", file("a.p12"), "--password-file", file("wrong")), "wrong  credentials", "(status 81)");
        shows(doctor(1, "--identity", file("aa.pem")), "wrong  credentials", "(status 81)");
        shows(doctor(1, "--identity", file("a.crt")), "wrong  credentials", "no private key");
        shows(doctor(1, "--trust", file("a.key")), "wrong  credentials", "no certificate");
        shows(doctor(1, "--trust", file("none")), "wrong  credentials", "there is no file");
        shows(doctor(1, "--trust", folder.toString()), "wrong  credentials", "Is a directory");
        shows(doctor(1, "--user", "plant"), "wrong  credentials", "--user needs --password-file");
    }

    @Test
    void aSecretThatEverybodyCanReadIsTold() throws Exception {
        Path open = Files.writeString(folder.resolve("open"), "open sesame\n");
        Files.setPosixFilePermissions(open, PosixFilePermissions.fromString("rw-r--r--"));
        shows(doctor(0, "--user", "plant", "--password-file", open.toString()), "note   credentials", "every user of this machine",
                "'chmod 600 " + open + "'");
    }

    @Test
    void aCertificateOutsideItsTimeIsWrong() throws Exception {
        X509Certificate certificate = (X509Certificate) CertificateFactory.getInstance("X.509")
                .generateCertificate(new ByteArrayInputStream(Files.readAllBytes(folder.resolve("a.crt"))));
        String[][] times = {{"91", "WRONG", "expired at"}, {"-1", "WRONG", "is valid from"}, {"80", "NOTE", "expires at"},
                {"1", "OK", "expires at"}};
        for (String[] time : times) {
            List<DoctorCommand.Finding> found = new ArrayList<>();
            Certificates.expiry(found, "f", List.of(certificate), Instant.now().plus(Duration.ofDays(Integer.parseInt(time[0]))));
            assertEquals(1, found.size());
            assertEquals(time[1], found.get(0).state().name());
            assertTrue(found.get(0).text().contains(time[2]), found.get(0).text());
        }
    }

    @Test
    void aLibraryThatIsNotThereIsWrong() throws Exception {
        try (ChildCommand child = new ChildCommand(folder, Map.of(), List.of("-Dcom.vesma.quorl.library=" + file("none")),
                List.of("doctor"))) {
            String said = child.out.lines().collect(Collectors.joining("\n"));
            assertEquals(1, child.code());
            shows(said, "wrong  library", file("none"), "-> name the folder");
            assertEquals("", child.said());
        }
        try (ChildCommand child = new ChildCommand(folder, Map.of(), List.of("-Dcom.vesma.quorl.library=" + file("none")),
                List.of("send", "a"))) {
            assertEquals(1, child.code());
            assertEquals(1, child.said().lines().filter(line -> line.contains("libquorlnativesd.so")).count(), child.said());
            assertTrue(!child.said().contains("\tat "), child.said());
        }
    }

    @Test
    void withoutTheJsonLibraryItNamesThePackage() throws Exception {
        String path = Arrays.stream(System.getProperty("java.class.path").split(":")).filter(jar -> !jar.endsWith("gson.jar"))
                .collect(Collectors.joining(":"));
        try (ChildCommand child = new ChildCommand(folder, Map.of(), List.of("-cp", path), List.of("doctor"))) {
            String said = child.out.lines().collect(Collectors.joining("\n"));
            shows(said, "note   json", "'apt-get install libgoogle-gson-java'");
            assertEquals(0, child.code(), said);
        }
    }

    @Test
    void aDaemonThatWantsACertificateIsTold() throws Exception {
        try (ServerSocket server = new ServerSocket(0, 1, InetAddress.getLoopbackAddress())) {
            Thread greeter = new Thread(() -> {
                // The doctor's look, and then the library's connection, which gets no further.
                for (int i = 0; i < 2; i++) {
                    try (Socket socket = server.accept(); OutputStream out = socket.getOutputStream()) {
                        out.write("INFO {\"version\":\"2.9.10\",\"tls_required\":true,\"tls_verify\":true}\r\n".getBytes(
                                StandardCharsets.US_ASCII));
                    } catch (IOException e) {
                        return;
                    }
                }
            });
            greeter.start();
            shows(doctor(1, "--daemon", "127.0.0.1:" + server.getLocalPort()), "wants TLS", "begin its address with tls://",
                    "wants a certificate of whoever connects", "-> give --identity FILE", "wrong  connection");
            server.close();
            greeter.join(TimeUnit.SECONDS.toMillis(ChildCommand.LIMIT));
        }
    }

    /** What a daemon says of itself reaches no terminal as it is. */
    @Test
    void aVersionIsShownHarmless() {
        DaemonAddress place = DaemonAddress.parse("127.0.0.1:1").get(0);
        String version = DaemonGreeting.parse(place, "INFO {\"version\":\"2\u001b[2J" + "9".repeat(5000) + "\"}").version();
        assertTrue(version.startsWith("2\\u001b[2J999") && version.endsWith("999...") && version.length() < 300, version);
    }

    @Test
    void eachServerOfAClusterIsLookedAt() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder); Socket silent = new Socket()) {
            silent.bind(new InetSocketAddress(InetAddress.getByName("127.0.0.1"), 0));
            String away = "127.0.0.1:" + silent.getLocalPort();
            // Programs use the one that is there.
            String said = doctor(0, "--daemon", daemon.address + "," + away);
            shows(said, "ok     daemon       " + daemon.address + ": version ", "note   daemon       " + away + ": ", "ok     connection");
            shows(doctor(1, "--daemon", away), "wrong  daemon       " + away + ": ");
            shows(doctor(0, "--daemon", daemon.address + ",tls://" + away), "note   daemon       the address mixes tls:// and nats://: with "
                    + daemon.address + " programs talk in the clear");
        }
    }

    @Test
    void whatDoesNotGreetIsNoDaemon() throws Exception {
        try (ServerSocket silent = new ServerSocket(0, 5, InetAddress.getLoopbackAddress())) {
            shows(doctor(1, "--daemon", "127.0.0.1:" + silent.getLocalPort()), "is not a nats-server: it does not greet who connects",
                    "-> another program has this port");
        }
    }
}
