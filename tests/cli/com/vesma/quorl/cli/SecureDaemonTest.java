package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Commands at a daemon with a certificate and a user: let in and refused, each with the reason. */
class SecureDaemonTest {
    private static final long LIMIT = 60;

    @TempDir
    static Path folder;

    private static Process server;
    private static String address;

    @BeforeAll
    static void startServer() throws Exception {
        for (String name : List.of("daemon", "stranger")) {
            run("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2",
                    "-subj", "/CN=" + name, "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", file(name + ".key"), "-out",
                    file(name + ".pem"));
        }
        Files.writeString(folder.resolve("password"), "open sesame\n");
        Files.writeString(folder.resolve("wrong"), "open barley");
        for (String name : List.of("password", "wrong")) {
            Files.setPosixFilePermissions(folder.resolve(name), PosixFilePermissions.fromString("rw-------"));
        }
        int port;
        try (ServerSocket free = new ServerSocket(0, 1, InetAddress.getLoopbackAddress())) {
            port = free.getLocalPort();
        }
        Files.writeString(folder.resolve("server.conf"), String.join("\n", "host: \"127.0.0.1\"", "port: " + port,
                "tls { cert_file: \"" + file("daemon.pem") + "\", key_file: \"" + file("daemon.key") + "\" }",
                "authorization { user: \"plant\", password: \"open sesame\" }", ""));
        server = new ProcessBuilder(NatsServer.find().toString(), "-c", file("server.conf")).redirectErrorStream(true)
                .redirectOutput(folder.resolve("log").toFile()).start();
        address = "tls://127.0.0.1:" + port;
        long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(LIMIT);
        while (!answers(port)) {
            assertTrue(server.isAlive() && System.nanoTime() < end, Files.readString(folder.resolve("log")));
        }
    }

    @AfterAll
    static void stopServer() throws InterruptedException {
        if (server != null) server.destroyForcibly().waitFor();
    }

    private static boolean answers(int port) {
        try (Socket socket = new Socket()) {
            socket.connect(new InetSocketAddress(InetAddress.getLoopbackAddress(), port), 1000);
            return true;
        } catch (IOException e) {
            return false;
        }
    }

    private static String file(String name) {
        return folder.resolve(name).toString();
    }

    private static void run(String... command) throws Exception {
        Process process = new ProcessBuilder(command).redirectErrorStream(true).start();
        String said = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertTrue(process.waitFor(LIMIT, TimeUnit.SECONDS));
        assertEquals(0, process.exitValue(), said);
    }

    private static Cli at(String command, String subject, String... options) {
        List<String> arguments = new ArrayList<>(List.of(command));
        if (subject != null) arguments.add(subject);
        arguments.addAll(List.of("--daemon", address));
        arguments.addAll(List.of(options));
        Cli ran = Cli.run(arguments.toArray(String[]::new));
        for (String secret : List.of("open sesame", "open barley")) {
            assertTrue(!ran.out().contains(secret) && !ran.err().contains(secret), "a password is shown");
        }
        return ran;
    }

    @Test
    void theRightCredentialsAreLetIn() {
        Cli sent = at("send", "a", "--trust", file("daemon.pem"), "--user", "plant", "--password-file", file("password"));
        assertEquals(new Cli(0, "", ""), sent);
        Cli healthy = at("doctor", null, "--trust", file("daemon.pem"), "--user", "plant", "--password-file", file("password"));
        assertEquals(0, healthy.code(), healthy.out());
        assertTrue(healthy.out().contains("wants TLS, wants credentials"), healthy.out());
        assertTrue(healthy.out().contains("ok     connection"), healthy.out());
        assertTrue(healthy.out().contains("certificate  " + address + ": \"CN=daemon\" expires at 20"), healthy.out());
    }

    @Test
    void aFileOfSecretsThatEveryoneMayReadIsToldByEveryCommand() throws IOException {
        Path open = Files.writeString(folder.resolve("open-password"), "open sesame\n");
        Files.setPosixFilePermissions(open, PosixFilePermissions.fromString("rw-r--r--"));
        Cli sent = at("send", "a", "--trust", file("daemon.pem"), "--user", "plant", "--password-file", open.toString());
        assertEquals(new Cli(0, "", "quorl: warning: --password-file " + open + ": every user of this machine may read it; "
                + "'chmod 600 " + open + "' keeps it secret\n"), sent);
    }

    @Test
    void theWrongOnesAreRefusedWithTheReason() {
        Cli password = at("send", "a", "--trust", file("daemon.pem"), "--user", "plant", "--password-file", file("wrong"));
        assertEquals(1, password.code());
        assertTrue(password.err().contains("status 81"), password.err());
        Cli nobody = at("send", "a", "--trust", file("daemon.pem"));
        assertEquals(1, nobody.code());
        Cli stranger = at("send", "a", "--trust", file("stranger.pem"), "--user", "plant", "--password-file", file("password"));
        assertEquals(1, stranger.code());
        assertTrue(stranger.err().contains("status 18") && stranger.err().contains("certificate"), stranger.err());
        Cli untrusted = at("doctor", null, "--user", "plant", "--password-file", file("password"));
        assertEquals(1, untrusted.code());
        assertTrue(untrusted.out().contains("wrong  connection") && untrusted.out().contains("-> give with --trust FILE"), untrusted.out());
        Cli wrongly = at("doctor", null, "--trust", file("stranger.pem"), "--user", "plant", "--password-file", file("password"));
        assertTrue(wrongly.out().contains("-> does --trust hold"), wrongly.out());
        Cli clear = Cli.run("doctor", "--daemon", address.replace("tls://", "nats://"));
        assertTrue(clear.out().lines().anyMatch(line -> line.startsWith("wrong  connection") && line.contains("demands TLS")),
                clear.out());
        assertTrue(clear.out().contains("-> begin its address with tls://"), clear.out());
        assertTrue(untrusted.out().contains("\"CN=daemon\" expires at 20"), untrusted.out());
    }

    @Test
    void credentialsThatAreIncompleteAreRefusedBeforeConnecting() {
        assertTrue(at("send", "a", "--user", "plant").err().contains("--user needs --password-file"));
        assertTrue(at("send", "a", "--password-file", file("password")).err().contains("is for --user or --identity"));
        assertTrue(at("send", "a", "--identity", file("daemon.pem")).err().contains("no private key"));
        assertTrue(at("send", "a", "--trust", file("daemon.key")).err().contains("no certificate"));
        assertTrue(at("send", "a", "--trust", file("none")).err().contains("there is no file"));
    }
}
