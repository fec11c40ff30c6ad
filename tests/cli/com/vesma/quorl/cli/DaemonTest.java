package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The daemon that the command starts, the other commands in processes of their own over it, and the doctor. */
class DaemonTest {
    @TempDir
    Path folder;

    private ChildCommand listening(ChildDaemon daemon, String ready, String line, String... options) throws Exception {
        return ChildCommand.listening(folder, daemon.address, ready, line, options);
    }

    @Test
    void commandsOfSeveralProcessesMeet() throws Exception {
        String table = Files.writeString(folder.resolve("t.csv"), "n:i32,text:string\n1,one\n2,\"two, three\"\n").toString();
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand listener = listening(daemon, "ready.text", "listen 'plant.>' --count 5 --timeout 60");
                ChildCommand json = listening(daemon, "ready.json", "listen 'plant.>' --count 1 --json --timeout 60");
                ChildCommand elsewhere = listening(daemon, "ready.other", "listen plant.c --count 1 --timeout 60", "--service", "other")) {
            assertEquals(0, Cli.run("send", "plant.a", "n:i32={n}", "--count", "3", "--daemon", daemon.address).code());
            assertEquals(0, Cli.run("send", "plant.b", "--csv", table, "--daemon", daemon.address).code());
            Cli other = Cli.run("send", "plant.c", "--daemon", daemon.address, "--service", "other");
            assertEquals(new Cli(0, "", ""), other);
            assertEquals(0, listener.code(), listener::said);
            assertEquals(0, json.code(), json::said);
            assertEquals(0, elsewhere.code(), elsewhere::said);
            assertEquals(List.of("plant.a {n=1}", "plant.a {n=2}", "plant.a {n=3}", "plant.b {n=1, text=\"one\"}",
                    "plant.b {n=2, text=\"two, three\"}"), listener.out.lines().toList());
            assertEquals(List.of("{\"subject\":\"plant.a\",\"message\":{\"n:i32\":1}}"), json.out.lines().toList());
            assertEquals(List.of("plant.c {}"), elsewhere.out.lines().toList());
        }
    }

    @Test
    void theDoctorSaysWhatIsThereAndWhatToDo() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder)) {
            Cli healthy = Cli.run("doctor", "--daemon", daemon.address);
            assertEquals(0, healthy.code(), healthy.out());
            for (String about : List.of("java", "library", "bus", "daemon", "connection", "nats-server")) {
                assertTrue(healthy.out().contains("ok     " + about + " "), healthy.out());
            }
            String missing = folder.resolve("none.pem").toString();
            Cli noFile = Cli.run("doctor", "--daemon", daemon.address, "--trust", missing);
            assertEquals(1, noFile.code());
            assertTrue(noFile.out().contains("wrong  credentials") && noFile.out().contains(missing), noFile.out());
            String noPem = Files.writeString(folder.resolve("no.pem"), "hello").toString();
            for (String option : List.of("--trust", "--identity")) {
                Cli wrong = Cli.run("doctor", "--json", "--daemon", daemon.address, option, noPem);
                assertEquals(1, wrong.code());
                assertTrue(wrong.out().contains("{\"state\":\"wrong\",\"about\":\"credentials\",\"text\":\"" + option), wrong.out());
                assertTrue(wrong.out().contains("\"advice\":"), wrong.out());
            }
            assertEquals(1, Cli.run("doctor", "--daemon", daemon.address, "--user", "ada").code());
            assertEquals(1, Cli.run("doctor", "--daemon", daemon.address, "--service", "two words").code());
        }
        Cli alone = Cli.run("doctor");
        assertEquals(0, alone.code(), alone.out());
        assertTrue(alone.out().contains("note   daemon") && alone.out().contains("quorl daemon"), alone.out());
        // Bound and not listening: nobody answers there, and nobody else can come to.
        try (Socket silent = new Socket()) {
            silent.bind(new InetSocketAddress(InetAddress.getByName("127.0.0.1"), 0));
            Cli away = Cli.run("doctor", "--daemon", "127.0.0.1:" + silent.getLocalPort());
            assertEquals(1, away.code());
            assertTrue(away.out().contains("wrong  daemon") && away.out().contains("-> is it running"), away.out());
        }
        for (String address : List.of("127.0.0.1:many", "127.0.0.1:70000", "nats://", "tls://", "127.0.0.1,nats://")) {
            Cli wrong = Cli.run("doctor", "--daemon", address);
            assertEquals(1, wrong.code(), wrong.out());
            assertTrue(wrong.out().contains("wrong  daemon") && wrong.out().contains("-> an address is written"), wrong.out());
            assertTrue(!wrong.out().contains("connection"), wrong.out());
        }
    }

    @Test
    void theDoctorRecognizesWhatIsNoDaemon() throws Exception {
        try (ServerSocket server = new ServerSocket(0, 1, InetAddress.getLoopbackAddress())) {
            Thread greeter = new Thread(() -> {
                try (Socket socket = server.accept(); OutputStream out = socket.getOutputStream()) {
                    out.write("220 mail\r\n".getBytes(StandardCharsets.US_ASCII));
                } catch (IOException e) {
                    throw new IllegalStateException(e);
                }
            });
            greeter.start();
            Cli wrong = Cli.run("doctor", "--daemon", "127.0.0.1:" + server.getLocalPort());
            greeter.join(TimeUnit.SECONDS.toMillis(ChildCommand.LIMIT));
            assertEquals(1, wrong.code());
            assertTrue(wrong.out().contains("is not a nats-server") && wrong.out().contains("-> another program has this port"), wrong.out());
        }
    }

    @Test
    void greetingsAreRead() {
        DaemonAddress place = new DaemonAddress(false, "h", 1);
        DaemonGreeting greeting = DaemonGreeting.parse(place,
                "INFO {\"server_id\":\"x\",\"version\":\"2.9.10\",\"max_payload\":1048576,\"auth_required\":true}");
        assertEquals(new DaemonGreeting("2.9.10", 1048576, false, false, true), greeting);
        assertEquals(new DaemonGreeting("unknown", 0, true, true, false),
                DaemonGreeting.parse(place, "INFO {\"tls_required\":true,\"tls_verify\":true}"));
        assertEquals("what listens at h:1 is not a nats-server: it ends the connection without a word",
                assertThrows(Failure.class, () -> DaemonGreeting.parse(place, "")).getMessage());
        assertEquals("what listens at h:1 is not a nats-server: it says \"SSH-2.0-x\"",
                assertThrows(Failure.class, () -> DaemonGreeting.parse(place, "SSH-2.0-x\r")).getMessage());
    }

    @Test
    void wrongCallsAreRefused() throws Exception {
        Cli.expectUsage("--port takes a number from 0 to 65535, not 70000", "quorl daemon", "daemon", "--port", "70000");
        Cli.expectUsage("--max-payload takes a number from 1 to 64, not 0", "quorl daemon", "daemon", "--max-payload", "0");
        Cli.expectUsage("--seconds takes a number above 0, not 0", "quorl daemon", "daemon", "--seconds", "0");
        Cli missing = Cli.run("daemon", "--server", folder.resolve("none").toString());
        assertEquals(1, missing.code());
        try (ServerSocket taken = new ServerSocket(0, 1, InetAddress.getByName("127.0.0.1"))) {
            Cli busy = Cli.run("daemon", "--port", Integer.toString(taken.getLocalPort()));
            assertEquals(1, busy.code(), busy.out());
            assertTrue(busy.err().contains("port " + taken.getLocalPort() + " is in use by another program; --port 0"), busy.err());
        }
        try (ChildDaemon daemon = new ChildDaemon(folder)) {
            Cli busy = Cli.run("daemon", "--port", daemon.address.replaceAll("^.*:", ""));
            assertEquals(1, busy.code(), busy.out());
            assertTrue(busy.err().contains("in use by a daemon of version ") && busy.err().contains("--daemon " + daemon.address),
                    busy.err());
        }
        Cli ended = Cli.run("daemon", "--port", "0", "--server", "/bin/false");
        assertEquals(new Cli(1, "", "quorl: the daemon ended, with exit code 1\n"), ended);
        Cli folderAsServer = Cli.run("daemon", "--port", "0", "--server", folder.toString());
        assertEquals(new Cli(1, "", "quorl: \"" + folder + "\" is not a program that may be run\n"), folderAsServer);
        Cli brief = Cli.run("daemon", "--port", "0", "--seconds", "0.2");
        assertEquals(0, brief.code(), brief.err());
        assertTrue(brief.out().contains("Stop:"), brief.out());
    }

    @Test
    void withoutAServerItNamesThePackage() {
        StringWriter err = new StringWriter();
        int code = Main.commandLine(new DaemonCommand(() -> null), new PrintWriter(new StringWriter()), new PrintWriter(err))
                .execute();
        assertEquals(1, code);
        assertTrue(err.toString().contains("'apt-get install nats-server' brings one"), err.toString());
    }

    @Test
    void theDaemonEndsWithTheCommandAndLeavesNothing() throws Exception {
        Path temporary = Files.createDirectory(folder.resolve("tmp"));
        List<String> options = List.of("-Djava.io.tmpdir=" + temporary);
        try (ChildDaemon daemon = new ChildDaemon(folder, options)) {
            assertTrue(daemon.serverRuns());
            daemon.child.process.destroy();
            assertEquals(143, daemon.child.code());
            assertEquals("", daemon.child.said());
            daemon.awaitEndOfServer();
        }
        try (ChildDaemon daemon = new ChildDaemon(folder, options)) {
            daemon.child.interrupt();
            assertEquals(130, daemon.child.code());
            assertEquals("", daemon.child.said());
            daemon.awaitEndOfServer();
        }
        // kill -9, which leaves the command no time to stop anything
        try (ChildDaemon daemon = new ChildDaemon(folder, options)) {
            daemon.child.process.destroyForcibly();
            daemon.awaitEndOfServer();
        }
        try (Stream<Path> left = Files.list(temporary)) {
            assertEquals(List.of(), left.toList());
        }
    }

    @Test
    void aServerThatIsKilledEndsTheCommand() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder)) {
            ProcessHandle.of(daemon.pid).orElseThrow().destroyForcibly();
            assertEquals(1, daemon.child.code());
            assertEquals("quorl: the daemon ended, with exit code 137\n", daemon.child.said());
        }
    }
}
