package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The daemon that the command starts, the other commands in processes of their own over it, and the doctor. */
class DaemonTest {
    private static final long LIMIT = 60;

    @TempDir
    Path folder;

    /** The command in a process of its own; killed when the test ends. */
    private final class Child implements AutoCloseable {
        final Process process;
        final BufferedReader out;
        final Path err;

        Child(String... arguments) throws IOException {
            List<String> command = new ArrayList<>(List.of(Path.of(System.getProperty("java.home"), "bin", "java").toString(),
                    "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1", "-Xmx128m",
                    "-Dcom.vesma.quorl.library=" + System.getProperty("com.vesma.quorl.library"), "-cp",
                    System.getProperty("java.class.path"), Main.class.getName()));
            command.addAll(List.of(arguments));
            err = Files.createTempFile(folder, "child", ".err");
            process = new ProcessBuilder(command).redirectError(err.toFile()).start();
            out = process.inputReader(StandardCharsets.UTF_8);
        }

        int code() throws InterruptedException, IOException {
            assertTrue(process.waitFor(LIMIT, TimeUnit.SECONDS), () -> "it does not end: " + said());
            return process.exitValue();
        }

        String said() {
            try {
                return Files.readString(err);
            } catch (IOException e) {
                return e.toString();
            }
        }

        @Override
        public void close() {
            process.destroyForcibly();
        }
    }

    /** quorl daemon on a free port. */
    private final class Daemon implements AutoCloseable {
        final Child child;
        final String address;
        final long pid;

        Daemon() throws IOException {
            child = new Child("daemon", "--port", "0");
            String first = child.out.readLine();
            assertNotNull(first, child::said);
            assertTrue(first.matches("The daemon runs at nats://127\\.0\\.0\\.1:[0-9]+ \\(process [0-9]+\\)\\."), first);
            address = first.replaceAll("^.*(nats://\\S+) .*$", "$1");
            pid = Long.parseLong(first.replaceAll("^.*process ([0-9]+).*$", "$1"));
            assertTrue(child.out.readLine().contains("--daemon " + address));
            assertTrue(child.out.readLine().contains("kill " + child.process.pid()));
        }

        boolean serverRuns() {
            return ProcessHandle.of(pid).map(ProcessHandle::isAlive).orElse(false);
        }

        void awaitEndOfServer() {
            ProcessHandle.of(pid).ifPresent(server -> server.onExit().orTimeout(LIMIT, TimeUnit.SECONDS).join());
            assertFalse(serverRuns());
        }

        @Override
        public void close() {
            child.close();
            awaitEndOfServer();
        }
    }

    /** A process that listens, and then answers one request on a subject of its own: so it is known to listen. */
    private Child listening(Daemon daemon, String ready, String line, String... options) throws Exception {
        List<String> arguments = new ArrayList<>(List.of("run", "--daemon", daemon.address, "-e", line, "-e",
                "reply " + ready + " --count 1 --timeout 60 --quiet"));
        arguments.addAll(List.of(options));
        Child child = new Child(arguments.toArray(String[]::new));
        List<String> request = new ArrayList<>(List.of("request", ready, "--daemon", daemon.address, "--timeout", "1"));
        request.addAll(List.of(options));
        for (int asked = 0; Cli.run(request.toArray(String[]::new)).code() != 0; asked++) {
            assertTrue(child.process.isAlive() && asked < LIMIT, child::said);
        }
        return child;
    }

    @Test
    void commandsOfSeveralProcessesMeet() throws Exception {
        String table = Files.writeString(folder.resolve("t.csv"), "n:i32,text:string\n1,one\n2,\"two, three\"\n").toString();
        try (Daemon daemon = new Daemon();
                Child listener = listening(daemon, "ready.text", "listen 'plant.>' --count 5 --timeout 60");
                Child json = listening(daemon, "ready.json", "listen 'plant.>' --count 1 --json --timeout 60");
                Child elsewhere = listening(daemon, "ready.other", "listen plant.c --count 1 --timeout 60", "--service", "other")) {
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
        try (Daemon daemon = new Daemon()) {
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
        try (ServerSocket closed = new ServerSocket(0, 1, InetAddress.getLoopbackAddress())) {
            int port = closed.getLocalPort();
            closed.close();
            Cli away = Cli.run("doctor", "--daemon", "127.0.0.1:" + port);
            assertEquals(1, away.code());
            assertTrue(away.out().contains("wrong  daemon") && away.out().contains("-> is it running"), away.out());
        }
        for (String address : List.of("127.0.0.1:many", "127.0.0.1:70000", "nats://", "no-such-host.invalid")) {
            Cli wrong = Cli.run("doctor", "--daemon", address);
            assertEquals(1, wrong.code(), wrong.out());
            assertTrue(wrong.out().contains("wrong  daemon"), wrong.out());
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
            greeter.join(TimeUnit.SECONDS.toMillis(LIMIT));
            assertEquals(1, wrong.code());
            assertTrue(wrong.out().contains("no such daemon"), wrong.out());
        }
    }

    @Test
    void greetingsAndAddressesAreRead() {
        DaemonGreeting greeting = DaemonGreeting.parse(
                "INFO {\"server_id\":\"x\",\"version\":\"2.9.10\",\"max_payload\":1048576,\"auth_required\":true}");
        assertEquals(new DaemonGreeting("2.9.10", 1048576, false, true), greeting);
        assertEquals(new DaemonGreeting("unknown", 0, true, false), DaemonGreeting.parse("INFO {\"tls_required\":true}"));
        assertThrows(Failure.class, () -> DaemonGreeting.parse(""));
        assertEquals(new DaemonGreeting.Place("h", 4222), DaemonGreeting.Place.of("h"));
        assertEquals(new DaemonGreeting.Place("h", 5), DaemonGreeting.Place.of("tls://u:p@h:5,g:6"));
        assertEquals(new DaemonGreeting.Place("[::1]", 4222), DaemonGreeting.Place.of("nats://[::1]"));
        assertEquals(new DaemonGreeting.Place("[::1]", 7), DaemonGreeting.Place.of("nats://[::1]:7"));
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
            assertTrue(busy.err().contains("the daemon ended"), busy.err());
        }
        Cli brief = Cli.run("daemon", "--port", "0", "--seconds", "0.2");
        assertEquals(0, brief.code(), brief.err());
        assertTrue(brief.out().contains("Stop:"), brief.out());
    }

    @Test
    void theDaemonEndsWithTheCommand() throws Exception {
        try (Daemon daemon = new Daemon()) {
            assertTrue(daemon.serverRuns());
            daemon.child.process.destroy();
            daemon.awaitEndOfServer();
        }
        // kill -9, which leaves the command no time to stop anything
        try (Daemon daemon = new Daemon()) {
            daemon.child.process.destroyForcibly();
            daemon.awaitEndOfServer();
        }
    }
}
