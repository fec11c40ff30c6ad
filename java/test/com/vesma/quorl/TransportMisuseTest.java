package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** Transports and circuits in wrong hands: odd arguments, use after close, closing at any moment and in any order. */
class TransportMisuseTest extends OpenLibrary {
    private static final String HUGE = "x".repeat(1 << 20);

    /** A circuit over this process's own bus, both ends here. */
    private final class Pair implements AutoCloseable {
        final QuorlVcTransport accepting = QuorlVcTransport.accept(transport);
        final QuorlVcTransport connecting = QuorlVcTransport.connect(transport, accepting.getConnectSubject());

        Pair() throws InterruptedException {
            assertTrue(connecting.waitForConnection(LIMIT));
            assertTrue(accepting.waitForConnection(LIMIT));
        }

        @Override
        public void close() {
            connecting.close();
            accepting.close();
        }
    }

    @Test
    void argumentsOfAnySizeAreRefusedWithAReason() {
        new QuorlQrdTransport("", "", "").close();
        assertStatus(QuorlException.SERVICE_NOT_FOUND, () -> new QuorlQrdTransport(HUGE, null, null));
        assertStatus(QuorlException.NETWORK_NOT_FOUND, () -> new QuorlQrdTransport(null, HUGE, null));
        for (String daemon : List.of(HUGE, "nats://", "nats://h:0", "nats://h:65536", "http://h:1", "a b", ",", "nats://é:4222")) {
            QuorlDaemonException e =
                    assertThrows(QuorlDaemonException.class, () -> new QuorlQrdTransport(null, null, daemon), daemon);
            assertEquals(QuorlException.DAEMON_NOT_FOUND, e.getStatus());
            assertFalse(e.getDetail().isEmpty());
            assertTrue(e.getMessage().length() < 3000, "the message repeats a huge argument");
        }
        for (int place = 0; place < 3; place++) {
            String[] texts = new String[3];
            for (String bad : List.of("a\0b", "\ud83d")) {
                texts[place] = bad;
                assertThrows(IllegalArgumentException.class, () -> new QuorlQrdTransport(texts[0], texts[1], texts[2]));
            }
        }
        assertStatus(QuorlException.INVALID_SUBJECT, () -> QuorlVcTransport.connect(transport, HUGE));
        assertStatus(QuorlException.INVALID_SUBJECT, () -> QuorlVcTransport.connect(transport, "_INBOX." + HUGE));
        assertThrows(NullPointerException.class, () -> QuorlVcTransport.connect(null, "_INBOX.a.1"));
        assertThrows(IllegalArgumentException.class, () -> QuorlVcTransport.connect(transport, "_INBOX.\ud83d"));
        assertStatus(QuorlException.INVALID_ARG, () -> transport.setDescription(HUGE));
        assertStatus(QuorlException.INVALID_ARG, () -> transport.setBatchMode(-1));
        transport.setBatchSize(Integer.MAX_VALUE);
        transport.requestReliability(Duration.ofSeconds(Long.MAX_VALUE, 999_999_999));
        assertThrows(NullPointerException.class, () -> transport.requestReliability(null));
        assertThrows(NullPointerException.class, () -> transport.request(null, LIMIT));
        try (QuorlMsg message = new QuorlMsg("a")) {
            assertThrows(NullPointerException.class, () -> transport.request(message, null));
            assertThrows(IllegalArgumentException.class, () -> transport.request(message, Duration.ofNanos(-1)));
            assertThrows(NullPointerException.class, () -> transport.send((QuorlMsg) null));
            assertThrows(NullPointerException.class, () -> transport.send((List<QuorlMsg>) null));
        }
    }

    @Test
    void everyUseOfAClosedCircuitIsRefused() throws Exception {
        QuorlVcTransport closed;
        try (Pair pair = new Pair()) {
            closed = pair.connecting;
        }
        closed.close();
        try (QuorlMsg message = new QuorlMsg("a"); QuorlMsg other = new QuorlMsg("b")) {
            for (Executable call : List.<Executable>of(() -> closed.send(message), () -> closed.send(List.of(message)),
                    () -> closed.trySend(message), () -> closed.request(message, LIMIT), () -> closed.reply(message, other),
                    closed::createInbox, () -> closed.setDescription("a"), () -> closed.requestReliability(Duration.ZERO),
                    () -> closed.setBatchSize(1), () -> closed.waitForConnection(Duration.ZERO),
                    () -> QuorlVcTransport.accept(closed), () -> QuorlVcTransport.connect(closed, "_INBOX.a.1"),
                    () -> new QuorlListener(queue, closed, "a", (l, m) -> {}))) {
                QuorlClosedException e = assertThrows(QuorlClosedException.class, call);
                assertEquals(QuorlException.INVALID_TRANSPORT, e.getStatus());
                assertTrue(e.getMessage().contains("the circuit is closed"), e.getMessage());
            }
            CompletableFuture<QuorlMsg> future = closed.requestAsync(message, LIMIT);
            assertInstanceOf(QuorlClosedException.class, assertThrows(ExecutionException.class, future::get).getCause());
        }
        assertEquals("QuorlVcTransport[closed]", closed.toString());
    }

    /** Uses through until that is refused for good; returns the refusal. */
    private static QuorlException useUntilRefused(QuorlTransport through, QuorlListener.Handler answer) throws Exception {
        try (QuorlQueue own = new QuorlQueue(); QuorlMsg message = new QuorlMsg("a.b").addI32("n", 1);
                QuorlMsg request = new QuorlMsg("a.c").setReplySubject("a.d")) {
            for (;;) {
                try (QuorlListener listener = new QuorlListener(own, through, "a.*", answer)) {
                    through.send(message);
                    through.trySend(message);
                    through.reply(message, request);
                    through.createInbox();
                    through.setDescription("busy");
                    through.setBatchSize(100);
                    through.requestReliability(Duration.ofSeconds(1));
                    through.requestAsync(message, Duration.ofSeconds(1)).cancel(false);
                    through.request(message, Duration.ofNanos(1));
                    new QuorlVectorListener(own, through, "a.*", (l, m) -> {}).close();
                    own.poll();
                } catch (QuorlException e) {
                    return e;
                }
            }
        }
    }

    private void closeWhileUsed(QuorlTransport victim, AutoCloseable closing, List<Integer> allowed) throws Exception {
        List<Worker> workers = new ArrayList<>();
        for (int i = 0; i < 3; i++) {
            workers.add(new Worker(() -> {
                QuorlException e = useUntilRefused(victim, (l, m) -> {});
                assertTrue(e instanceof QuorlClosedException || allowed.contains(e.getStatus()), e.toString());
            }));
        }
        for (int i = 0; i < 3; i++) {
            workers.add(new Worker(closing::close));
        }
        for (Worker worker : workers) {
            worker.join();
        }
    }

    @Test
    void aTransportMayBeClosedWhileItIsUsed() throws Exception {
        for (int i = 0; i < 20; i++) {
            QuorlQrdTransport victim = new QuorlQrdTransport();
            closeWhileUsed(victim, victim, List.of());
        }
    }

    @Test
    void aCircuitMayBeClosedWhileItIsUsed() throws Exception {
        for (int i = 0; i < 20; i++) {
            try (Pair pair = new Pair()) {
                switch (i % 2) {
                    case 0:
                        closeWhileUsed(pair.connecting, pair.connecting, List.of());
                        break;
                    default:
                        closeWhileUsed(pair.connecting, pair.accepting, List.of(QuorlException.VC_NOT_CONNECTED));
                        break;
                }
            }
        }
    }

    @Test
    void theTransportBelowMayBeClosedWhileACircuitIsUsed() throws Exception {
        for (int i = 0; i < 10; i++) {
            QuorlQrdTransport below = new QuorlQrdTransport();
            try (QuorlVcTransport accepting = QuorlVcTransport.accept(transport);
                    QuorlVcTransport connecting = QuorlVcTransport.connect(below, accepting.getConnectSubject())) {
                assertTrue(connecting.waitForConnection(LIMIT));
                closeWhileUsed(connecting, below, List.of(QuorlException.VC_NOT_CONNECTED));
                assertFalse(connecting.isClosed());
            }
        }
    }

    @Test
    void aCircuitMayBeClosedInItsOwnHandlersAndSteps() throws Exception {
        for (int round = 0; round < 10; round++) {
            boolean inHandler = round % 2 == 0;
            CountDownLatch done = new CountDownLatch(1);
            try (Pair pair = new Pair(); QuorlListener listener = new QuorlListener(queue, pair.accepting, "ask", (l, m) -> {
                if (inHandler) {
                    pair.accepting.close();
                    pair.accepting.close();
                    l.close();
                    transport.createInbox();
                    done.countDown();
                } else {
                    try (QuorlMsg answer = new QuorlMsg()) {
                        pair.accepting.reply(answer, m);
                    }
                }
            }); QuorlDispatcher dispatcher = new QuorlDispatcher(queue); QuorlMsg question = new QuorlMsg("ask")) {
                CompletableFuture<Void> ended = pair.connecting.requestAsync(question, LIMIT).handle((reply, failure) -> {
                    if (reply != null) {
                        reply.close();
                    }
                    pair.connecting.close();
                    done.countDown();
                    return null;
                });
                await(done);
                ended.get(LIMIT.toSeconds(), TimeUnit.SECONDS);
                assertTrue(pair.connecting.isClosed());
            }
            while (queue.poll()) {}
        }
    }

    @Test
    void circuitsOverCircuitsEndFromBelow() throws Exception {
        try (Pair pair = new Pair(); QuorlVcTransport inner = QuorlVcTransport.accept(pair.accepting);
                QuorlVcTransport outer = QuorlVcTransport.connect(pair.connecting, inner.getConnectSubject());
                QuorlMsg question = new QuorlMsg("nobody")) {
            assertTrue(outer.waitForConnection(LIMIT));
            CompletableFuture<QuorlMsg> waiting = outer.requestAsync(question, Duration.ofDays(1));
            pair.accepting.close();
            QuorlException lost = assertInstanceOf(QuorlException.class, assertThrows(
                    ExecutionException.class, () -> waiting.get(LIMIT.toSeconds(), TimeUnit.SECONDS)).getCause());
            assertEquals(QuorlException.VC_NOT_CONNECTED, lost.getStatus());
            assertStatus(QuorlException.VC_NOT_CONNECTED, () -> inner.send(question));
        }
    }

    @Test
    void aWaitForAPeerEndsForEveryReason() throws Exception {
        try (QuorlVcTransport lonely = QuorlVcTransport.accept(transport)) {
            Thread.currentThread().interrupt();
            assertThrows(InterruptedException.class, () -> lonely.waitForConnection(LIMIT));
            assertFalse(Thread.interrupted(), "the exception takes the flag with it");
            CountDownLatch waiting = new CountDownLatch(3);
            List<Worker> waiters = new ArrayList<>();
            for (int i = 0; i < 3; i++) {
                waiters.add(new Worker(() -> {
                    waiting.countDown();
                    QuorlException e = assertThrows(QuorlException.class, () -> lonely.waitForConnection(Duration.ofSeconds(Long.MAX_VALUE)));
                    assertEquals(QuorlException.VC_NOT_CONNECTED, e.getStatus(), e.getMessage());
                    assertTrue(e.getMessage().contains("the transport below was closed"), e.getMessage());
                }));
            }
            await(waiting);
            transport.close();
            for (Worker waiter : waiters) {
                waiter.join();
            }
        }
    }

    @Test
    void closingTheLibraryEndsAWaitForAPeer() throws Exception {
        QuorlVcTransport lonely = QuorlVcTransport.accept(transport);
        CountDownLatch waiting = new CountDownLatch(1);
        Worker waiter = new Worker(() -> {
            waiting.countDown();
            QuorlException e = assertThrows(QuorlException.class, () -> lonely.waitForConnection(Duration.ofDays(1)));
            assertTrue(e instanceof QuorlClosedException || e.getStatus() == QuorlException.VC_NOT_CONNECTED, e.toString());
        });
        await(waiting);
        quorl.close();
        waiter.join();
        lonely.close();
        lonely.close();
    }

    /** The safety net: also for circuits that requests were made on, which the library's advisories are watched for. */
    @Test
    void aForgottenCircuitIsCleanedUp() throws Exception {
        long before = Quorl.statistics().objects().transports();
        forgetCircuits();
        await(() -> {
            System.gc();
            // One more stays: that of the watch.
            return Quorl.statistics().objects().transports() <= before + 1;
        });
    }

    private void forgetCircuits() throws InterruptedException {
        for (int i = 0; i < 5; i++) {
            QuorlVcTransport accepting = QuorlVcTransport.accept(transport);
            QuorlVcTransport connecting = QuorlVcTransport.connect(transport, accepting.getConnectSubject());
            assertTrue(connecting.waitForConnection(LIMIT));
            try (QuorlMsg question = new QuorlMsg("nobody")) {
                assertEquals(null, connecting.request(question, Duration.ZERO));
            }
        }
    }
}
