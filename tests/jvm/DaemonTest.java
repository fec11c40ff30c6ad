package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.time.Duration;
import java.util.List;
import java.util.concurrent.CompletionException;
import org.junit.jupiter.api.Test;

/** What a program in Java sees of a daemon that is there, and of one that is gone. */
class DaemonTest {
    private static final Duration LIMIT = OpenLibrary.LIMIT;

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
            } catch (QuorlException e) {
                // Of the last close: what was kept for the daemon is dropped.
                check(e.getStatus() == QuorlException.DAEMON_NOT_CONNECTED && !Quorl.isOpen(), e.toString());
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
                QuorlStatistics statistics = QuorlStatistics.of(answer);
                check(statistics.process() == ProcessHandle.current().pid(), "statistics");
                check(statistics.daemons().size() == 1, "one connection, shared by the transports");
                QuorlStatistics.Daemon daemon = statistics.daemons().get(0);
                check(daemon.phase().equals("connected") && daemon.messagesOut() >= 40 && daemon.messagesIn() >= 40,
                        daemon.toString());
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

    @Test
    void aDaemonThatGoesAwayIsTold() throws Exception {
        try (NatsServer server = new NatsServer("")) {
            ChildProcess child = ChildProcess.run(
                    Program.class, ChildProcess.withLibrary(), server.url(), String.valueOf(server.pid()));
            assertEquals(0, child.exit, child.output);
            // The daemon's client has the process ignore broken pipes, which the machine remarks on.
            assertEquals("done", child.output.trim().lines().reduce((before, last) -> last).orElse(""), child.output);
        }
    }

    @Test
    void aDaemonThatIsNotThereIsTold() {
        try (NatsServer server = new NatsServer(""); Quorl quorl = Quorl.open()) {
            server.kill();
            QuorlDaemonException e = assertThrows(
                    QuorlDaemonException.class, () -> new QuorlQrdTransport(null, null, server.url()));
            assertEquals(List.of(QuorlException.DAEMON_NOT_FOUND, true),
                    List.of(e.getStatus(), e.getDetail().contains(server.hostAndPort())), e.getMessage());
        }
    }
}
