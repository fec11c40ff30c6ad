package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicLong;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** What a program in Java sees of a daemon that is killed and comes back, and of a cluster that loses servers. */
class DaemonLossTest {
    private static final Duration LIMIT = OpenLibrary.LIMIT;
    private static final Duration SHORT = Duration.ofMillis(20);
    private static final int KILLS = Integer.parseInt(System.getenv().getOrDefault("QUORL_SYSTEM_KILLS", "3"));

    private Quorl quorl;
    private QuorlQrdTransport local;
    private QuorlQueue told;
    private QuorlDispatcher telling;

    /** What the library has told of daemons. */
    private record Told(String subject, String daemon, String reason, long unconfirmed, long lost) {}

    private final List<Told> advisories = Collections.synchronizedList(new ArrayList<>());

    @BeforeEach
    void open() {
        quorl = Quorl.open();
        local = new QuorlQrdTransport(null, null, "");
        told = new QuorlQueue();
        new QuorlListener(told, local, "_QUORL.*.daemon.*", (l, m) -> {
            boolean loss = m.getSendSubject().endsWith(".lost");
            advisories.add(new Told(m.getSendSubject(), m.getString("daemon"), loss ? m.getString("reason") : "",
                    m.getU64("unconfirmed"), m.has("lost") ? m.getU64("lost") : 0));
        });
        telling = new QuorlDispatcher(told);
    }

    @AfterEach
    void close() {
        quorl.close();
    }

    private long count(String subject) {
        synchronized (advisories) {
            return advisories.stream().filter(each -> each.subject.equals(subject)).count();
        }
    }

    private void awaitTold(long lost, long back) throws InterruptedException {
        OpenLibrary.await(() -> count("_QUORL.WARN.daemon.lost") >= lost && count("_QUORL.INFO.daemon.back") >= back);
    }

    private static void send(QuorlTransport through, String subject, long number) {
        try (QuorlMsg message = new QuorlMsg(subject).addI64("n", number)) {
            through.send(message);
        }
    }

    /** Returns when what was sent on the transport has come in where this process listens on the same connection. */
    private static void settle(QuorlTransport through) throws InterruptedException {
        String inbox = through.createInbox();
        try (QuorlQueue own = new QuorlQueue(); QuorlListener listener = new QuorlListener(own, through, inbox, (l, m) -> {});
                QuorlMsg message = new QuorlMsg(inbox)) {
            through.send(message);
            assertTrue(own.dispatch(LIMIT));
        }
    }

    /** No wait may be longer than its limit, whatever the daemon does, and each ends with a reason. */
    private static void requestsEndInTime(QuorlTransport through) throws Exception {
        try (QuorlMsg question = new QuorlMsg("nobody")) {
            CompletableFuture<QuorlMsg> waiting = through.requestAsync(question, SHORT);
            try {
                assertNull(through.request(question, SHORT));
            } catch (QuorlDaemonException e) {
                assertEquals(QuorlException.DAEMON_NOT_CONNECTED, e.getStatus());
            }
            Throwable why = assertThrows(ExecutionException.class, () -> waiting.get(LIMIT.toSeconds(), TimeUnit.SECONDS)).getCause();
            assertTrue(why instanceof QuorlTimeoutException || why instanceof QuorlDaemonException, why.toString());
        }
    }

    @Test
    void theLastCloseNamesTheDaemonsOfTransportsThatAreStillOpen() throws Exception {
        try (NatsServer server = new NatsServer("")) {
            QuorlQrdTransport transport = new QuorlQrdTransport(server.url());
            server.kill();
            awaitTold(1, 0);
            try (QuorlMsg message = new QuorlMsg("a")) {
                transport.send(message);
            }
            QuorlException told = assertThrows(QuorlException.class, quorl::close);
            assertEquals(QuorlException.DAEMON_NOT_CONNECTED, told.getStatus());
            assertTrue(told.getDetail().contains(server.url()) && told.getDetail().matches("(?s).*\\b1 message.*"), told.getDetail());
            assertFalse(Quorl.isOpen());
        } finally {
            quorl = Quorl.open();
        }
    }

    /** Sender and listener share a connection, so what it does not confirm is all that can be lost. */
    @Test
    void killedInMidStreamItLosesNoMoreThanIsTold() throws Exception {
        AtomicLong sent = new AtomicLong();
        AtomicLong received = new AtomicLong();
        AtomicLong last = new AtomicLong(-1);
        AtomicLong wrong = new AtomicLong();
        AtomicBoolean over = new AtomicBoolean();
        try (NatsServer server = new NatsServer(""); QuorlQrdTransport transport = new QuorlQrdTransport(null, null, server.url());
                QuorlQueue queue = new QuorlQueue();
                QuorlListener listener = new QuorlListener(queue, transport, "stream", (l, m) -> {
                    long number = m.getI64("n");
                    if (number <= last.getAndSet(number)) {
                        wrong.incrementAndGet();
                    }
                    received.incrementAndGet();
                });
                QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            settle(transport);
            OpenLibrary.Worker sender = new OpenLibrary.Worker(() -> {
                try (QuorlMsg message = new QuorlMsg("stream").addI64("n", 0)) {
                    for (long number = 0; !over.get(); number++) {
                        if (transport.trySend(message.updateI64("n", number))) {
                            sent.incrementAndGet();
                        }
                        if (number % 50 == 0) {
                            Thread.yield();
                        }
                    }
                }
            });
            try {
                for (int kill = 1; kill <= KILLS; kill++) {
                    long before = received.get();
                    OpenLibrary.await(() -> received.get() >= before + 1000);
                    server.kill();
                    requestsEndInTime(transport);
                    server.start();
                    awaitTold(kill, kill);
                    long after = received.get();
                    OpenLibrary.await(() -> received.get() >= after + 100);
                }
            } finally {
                over.set(true);
                sender.join();
            }
            settle(transport);
            OpenLibrary.await(() -> queue.getCount() == 0);
            dispatcher.close();
            assertEquals(0, wrong.get());
            long unconfirmed = advisories.stream().filter(each -> each.subject.endsWith(".lost")).mapToLong(Told::unconfirmed).sum();
            assertTrue(sent.get() - received.get() <= unconfirmed,
                    sent + " sent, " + received + " received, " + unconfirmed + " unconfirmed");
            for (Told each : advisories) {
                assertEquals(server.url(), each.daemon);
                assertTrue(!each.subject.endsWith(".lost") || !each.reason.isEmpty(), each.toString());
            }
        }
    }

    @Test
    void requestsThatWaitWhileTheDaemonComesBackAreAnswered() throws Exception {
        try (NatsServer server = new NatsServer(""); QuorlQrdTransport transport = new QuorlQrdTransport(null, null, server.url());
                QuorlQueue queue = new QuorlQueue();
                QuorlListener answering = new QuorlListener(queue, transport, "ask", (l, m) -> {
                    try (QuorlMsg answer = new QuorlMsg().addI64("n", m.getI64("n") + 1)) {
                        transport.reply(answer, m);
                    }
                });
                QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            settle(transport);
            server.kill();
            awaitTold(1, 0);
            List<CompletableFuture<QuorlMsg>> waiting = new ArrayList<>();
            for (int n = 0; n < 10; n++) {
                try (QuorlMsg question = new QuorlMsg("ask").addI64("n", n)) {
                    waiting.add(transport.requestAsync(question, LIMIT));
                }
            }
            server.start();
            for (int n = 0; n < 10; n++) {
                try (QuorlMsg answer = waiting.get(n).get(LIMIT.toSeconds(), TimeUnit.SECONDS)) {
                    assertEquals(n + 1, answer.getI64("n"));
                }
            }
            // The transport is closed while a request waits and the daemon is away.
            server.kill();
            awaitTold(2, 1);
            try (QuorlMsg question = new QuorlMsg("nobody")) {
                CompletableFuture<QuorlMsg> last = transport.requestAsync(question, Duration.ofDays(1));
                transport.close();
                assertInstanceOf(QuorlClosedException.class, assertThrows(
                        ExecutionException.class, () -> last.get(LIMIT.toSeconds(), TimeUnit.SECONDS)).getCause());
            }
        }
        // That question was dropped when its transport closed, which the last close says.
        OpenLibrary.await(() -> count("_QUORL.WARN.daemon.dropped") == 1);
        QuorlException told = assertThrows(QuorlException.class, quorl::close);
        assertEquals(QuorlException.DAEMON_NOT_CONNECTED, told.getStatus());
        assertTrue(told.getDetail().matches("(?s).*nats://127\\.0\\.0\\.1:[0-9]+\\D.*\\b1 message.*"), told.getDetail());
        assertFalse(Quorl.isOpen());
        quorl = Quorl.open();
        quorl.close();
        quorl = Quorl.open();
    }

    @Test
    void aCircuitBringsEverythingHomeWhenTheDaemonIsBack() throws Exception {
        try (NatsServer server = new NatsServer(""); QuorlQrdTransport here = new QuorlQrdTransport(null, null, server.url());
                QuorlQrdTransport there = new QuorlQrdTransport(null, null, "nats://127.1:" + server.port());
                QuorlVcTransport accepting = QuorlVcTransport.accept(here);
                QuorlVcTransport connecting = QuorlVcTransport.connect(there, accepting.getConnectSubject());
                QuorlQueue queue = new QuorlQueue()) {
            List<Long> came = Collections.synchronizedList(new ArrayList<>());
            try (QuorlListener listener = new QuorlListener(queue, accepting, "n", (l, m) -> came.add(m.getI64("n")));
                    QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
                assertTrue(connecting.waitForConnection(LIMIT));
                for (int n = 0; n < 3000; n++) {
                    send(connecting, "n", n);
                    if (n == 1000) {
                        server.kill();
                    }
                    if (n == 2000) {
                        server.start();
                    }
                }
                OpenLibrary.await(() -> came.size() >= 3000);
            }
            for (int n = 0; n < 3000; n++) {
                assertEquals(n, came.get(n));
            }
            assertEquals(3000, came.size());
        }
    }

    /** The child: accepts a circuit, says where, and answers nothing. */
    static final class Peer {
        public static void main(String[] arguments) throws Exception {
            try (Quorl quorl = Quorl.open(); QuorlQrdTransport transport = new QuorlQrdTransport(null, null, arguments[0]);
                    QuorlVcTransport circuit = QuorlVcTransport.accept(transport)) {
                System.out.println(circuit.getConnectSubject());
                circuit.waitForConnection(LIMIT);
                try (QuorlQueue queue = new QuorlQueue(); QuorlListener listener = new QuorlListener(queue, circuit, "*", (l, m) -> {})) {
                    queue.dispatch(Duration.ofDays(1));
                    queue.dispatch(Duration.ofDays(1));
                }
            }
        }
    }

    @Test
    void aPeerThatIsKilledEndsTheRequestsThatWait() throws Exception {
        quorl.close();
        Quorl.setParameters("circuit.timeout=1");
        quorl = Quorl.open();
        try (NatsServer server = new NatsServer("")) {
            Process peer = ChildProcess.builder(Peer.class, ChildProcess.withLibrary(), server.url()).start();
            // The machine remarks on the daemon's client before.
            String subject = peer.inputReader().lines().filter(line -> line.startsWith("_INBOX.")).findFirst().orElseThrow();
            try (QuorlQrdTransport transport = new QuorlQrdTransport(null, null, server.url());
                    QuorlVcTransport circuit = QuorlVcTransport.connect(transport, subject);
                    QuorlMsg question = new QuorlMsg("ask"); QuorlMsg other = new QuorlMsg("ask")) {
                assertTrue(circuit.waitForConnection(LIMIT));
                CompletableFuture<QuorlMsg> waiting = circuit.requestAsync(question, Duration.ofDays(1));
                OpenLibrary.Worker asking = new OpenLibrary.Worker(() -> silent(
                        assertThrows(QuorlException.class, () -> circuit.request(other, Duration.ofDays(1)))));
                peer.destroyForcibly();
                asking.join();
                silent(assertThrows(ExecutionException.class, () -> waiting.get(LIMIT.toSeconds(), TimeUnit.SECONDS)).getCause());
            } finally {
                peer.destroyForcibly().waitFor();
            }
        } finally {
            quorl.close();
            Quorl.setParameters("circuit.timeout=10");
        }
    }

    private static void silent(Throwable why) {
        QuorlException lost = assertInstanceOf(QuorlException.class, why);
        assertEquals(QuorlException.VC_NOT_CONNECTED, lost.getStatus(), lost.getMessage());
        assertTrue(lost.getDetail().contains("silent"), lost.getMessage());
    }

    @Test
    void aClusterThatLosesServersGoesOn() throws Exception {
        String cluster = "cluster { name: c, host: 127.0.0.1, port: -1";
        try (NatsServer first = new NatsServer("server_name: a\n" + cluster + " }")) {
            String member = cluster + ", routes: [\"" + first.clusterUrl() + "\"] }";
            try (NatsServer second = new NatsServer("server_name: b\n" + member);
                    NatsServer third = new NatsServer("server_name: c\n" + member);
                    QuorlQrdTransport transport = new QuorlQrdTransport(
                            null, null, first.hostAndPort() + "," + second.hostAndPort() + "," + third.hostAndPort());
                    QuorlQrdTransport other = new QuorlQrdTransport(null, null, third.url());
                    QuorlQueue queue = new QuorlQueue();
                    QuorlListener answering = new QuorlListener(queue, other, "ask", (l, m) -> {
                        try (QuorlMsg answer = new QuorlMsg().addI64("n", m.getI64("n") + 1)) {
                            other.reply(answer, m);
                        }
                    });
                    QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
                answersInTheEnd(transport, 1);
                first.kill();
                awaitTold(1, 1);
                answersInTheEnd(transport, 2);
                second.kill();
                awaitTold(2, 2);
                answersInTheEnd(transport, 3);
            }
        }
    }

    /** Interest spreads through a cluster in its own time, so a question is asked until it is heard. */
    private static void answersInTheEnd(QuorlTransport through, long number) throws Exception {
        long end = System.nanoTime() + LIMIT.toNanos();
        try (QuorlMsg question = new QuorlMsg("ask").addI64("n", number)) {
            for (;;) {
                try (QuorlMsg answer = through.request(question, Duration.ofMillis(200))) {
                    if (answer != null) {
                        assertEquals(number + 1, answer.getI64("n"));
                        return;
                    }
                }
                assertTrue(System.nanoTime() < end, "nobody answers");
            }
        }
    }
}
