package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.List;
import java.util.concurrent.CompletionException;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** What a program in Java sees of a daemon that is there, and of one that is gone. */
class DaemonTest {
    private static final Duration LIMIT = OpenLibrary.LIMIT;

    @TempDir
    Path folder;

    /** The child: asks over the daemon, kills it, and sends until nothing more is taken. */
    static final class Program {
        public static void main(String[] arguments) throws Exception {
            String daemon = arguments[0];
            Quorl.setParameters("reconnect.buffer=100000");
            try (Quorl quorl = Quorl.open(); QuorlQrdTransport here = new QuorlQrdTransport(null, null, daemon);
                    QuorlQrdTransport there = new QuorlQrdTransport(null, null, daemon); QuorlQueue queue = new QuorlQueue();
                    QuorlListener server = new QuorlListener(queue, there, "square", (l, m) -> {
                        int n = m.getI32("n");
                        try (QuorlMsg answer = new QuorlMsg().addI32("square", n * n)) {
                            there.reply(answer, m);
                        }
                    });
                    QuorlListener statistics = QuorlStatistics.answer(queue, there, "stats.there");
                    QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
                ask(here);
                ProcessHandle.of(Long.parseLong(arguments[1])).orElseThrow().destroyForcibly();
                sendUntilRefused(here);
            }
            System.out.println("done");
        }

        private static void ask(QuorlTransport transport) throws Exception {
            for (int n = 0; n < 20; n++) {
                try (QuorlMsg question = new QuorlMsg("square").addI32("n", n);
                        QuorlMsg answer = transport.requestAsync(question, LIMIT).get()) {
                    check(answer.getI32("square") == n * n, "square " + n);
                }
            }
            try (QuorlMsg question = new QuorlMsg("stats.there"); QuorlMsg answer = transport.request(question, LIMIT)) {
                check(QuorlStatistics.of(answer).process() == ProcessHandle.current().pid(), "statistics");
            }
        }

        private static void sendUntilRefused(QuorlTransport transport) {
            try (QuorlMsg message = new QuorlMsg("a").addOpaque("bytes", new byte[1000])) {
                long end = System.nanoTime() + LIMIT.toNanos();
                int refused = 0;
                // Until the loss is noticed, messages go to a socket that still takes some.
                while (refused < 3) {
                    check(System.nanoTime() < end, "everything is taken");
                    refused = transport.trySend(message) ? 0 : refused + 1;
                }
                try {
                    transport.send(message);
                    check(false, "send took what trySend had refused");
                } catch (QuorlDaemonException e) {
                    check(e.getStatus() == QuorlException.DAEMON_NOT_CONNECTED, e.toString());
                    check(e.getDetail() != null, e.toString());
                }
                try {
                    transport.requestAsync(message, LIMIT).join();
                    check(false, "a request was sent");
                } catch (CompletionException e) {
                    check(e.getCause() instanceof QuorlDaemonException, e.toString());
                }
            }
        }

        private static void check(boolean holds, String what) {
            if (!holds) {
                throw new AssertionError(what);
            }
        }
    }

    private Process start() throws Exception {
        Path configuration = folder.resolve("server.conf");
        Files.writeString(configuration, "host: 127.0.0.1\nport: -1\nports_file_dir: \"" + folder + "\"\n");
        Path own = Path.of("/usr/sbin/nats-server");
        return new ProcessBuilder(Files.exists(own) ? own.toString() : "nats-server", "-c", configuration.toString())
                .redirectErrorStream(true).redirectOutput(folder.resolve("server.log").toFile()).start();
    }

    private String address(Process server) throws Exception {
        Path ports = folder.resolve("nats-server_" + server.pid() + ".ports");
        Pattern address = Pattern.compile("nats://127\\.0\\.0\\.1:\\d+");
        for (long end = System.nanoTime() + LIMIT.toNanos(); System.nanoTime() < end;) {
            Matcher found = address.matcher(Files.exists(ports) ? Files.readString(ports) : "");
            if (found.find()) {
                return found.group();
            }
            Thread.onSpinWait();
        }
        throw new AssertionError("no server: " + Files.readString(folder.resolve("server.log")));
    }

    @Test
    void aDaemonThatGoesAwayIsTold() throws Exception {
        Process server = start();
        try {
            ChildProcess child = ChildProcess.run(
                    Program.class, ChildProcess.withLibrary(), address(server), String.valueOf(server.pid()));
            assertEquals(0, child.exit, child.output);
            // The daemon's client has the process ignore broken pipes, which the machine remarks on.
            assertEquals("done", child.output.trim().lines().reduce((before, last) -> last).orElse(""), child.output);
        } finally {
            server.destroyForcibly().waitFor(LIMIT.toSeconds(), TimeUnit.SECONDS);
        }
    }

    @Test
    void aDaemonThatIsNotThereIsTold() throws Exception {
        Process server = start();
        String address = address(server);
        server.destroyForcibly().waitFor(LIMIT.toSeconds(), TimeUnit.SECONDS);
        try (Quorl quorl = Quorl.open()) {
            QuorlDaemonException e = assertThrows(
                    QuorlDaemonException.class, () -> new QuorlQrdTransport(null, null, address));
            assertEquals(List.of(QuorlException.DAEMON_NOT_FOUND, true),
                    List.of(e.getStatus(), e.getDetail().contains(address.substring("nats://".length()))), e.getMessage());
        }
    }
}
