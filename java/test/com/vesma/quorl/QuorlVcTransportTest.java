package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.internal.image.Texts;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;
import org.junit.jupiter.api.Test;

/** Circuits: connecting, sending, requests, waiting, and every order of closing. */
class QuorlVcTransportTest extends OpenLibrary {
    private static void sendOn(QuorlTransport through, String subject, int number) {
        try (QuorlMsg message = new QuorlMsg(subject).addI32("n", number)) {
            through.send(message);
        }
    }

    /** The status of the first send that is refused. */
    private static int sendUntilRefused(QuorlTransport through) {
        long end = System.nanoTime() + LIMIT.toNanos();
        for (;;) {
            try {
                sendOn(through, "a", 0);
            } catch (QuorlException e) {
                return e.getStatus();
            }
            assertTrue(System.nanoTime() < end, "the peer is not missed");
        }
    }

    @Test
    void carriesMessagesBothWaysInOrder() throws Exception {
        try (QuorlQrdTransport other = new QuorlQrdTransport();
                QuorlVcTransport accepting = QuorlVcTransport.accept(transport);
                QuorlVcTransport connecting = QuorlVcTransport.connect(other, accepting.getConnectSubject())) {
            List<Integer> here = new ArrayList<>();
            List<Integer> there = new ArrayList<>();
            try (QuorlListener a = new QuorlListener(queue, accepting, "n.*", (l, m) -> here.add(m.getI32("n")));
                    QuorlListener b = new QuorlListener(queue, connecting, "n.*", (l, m) -> there.add(m.getI32("n")));
                    QuorlListener bus = new QuorlListener(queue, transport, ">", (l, m) -> here.add(-1))) {
                assertTrue(connecting.waitForConnection(LIMIT));
                assertTrue(accepting.waitForConnection(LIMIT));
                assertTrue(accepting.waitForConnection(Duration.ZERO));
                for (int i = 0; i < 2000; i++) {
                    sendOn(connecting, "n.x", i);
                    sendOn(accepting, "n.y", i);
                }
                while (here.size() < 2000 || there.size() < 2000) {
                    assertTrue(queue.dispatch(LIMIT));
                }
            }
            for (int i = 0; i < 2000; i++) {
                assertEquals(i, here.get(i));
                assertEquals(i, there.get(i));
            }
            assertSame(transport, accepting.getParent());
            assertNull(connecting.getConnectSubject());
        }
    }

    @Test
    void answersRequestsAndSaysWhenThePeerIsGone() throws Exception {
        try (QuorlVcTransport accepting = QuorlVcTransport.accept(transport);
                QuorlVcTransport connecting = QuorlVcTransport.connect(transport, accepting.getConnectSubject());
                QuorlListener listener = new QuorlListener(queue, accepting, "double", (l, m) -> {
                    try (QuorlMsg answer = new QuorlMsg().addI32("n", 2 * m.getI32("n"))) {
                        accepting.reply(answer, m);
                    }
                });
                QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            assertTrue(connecting.waitForConnection(LIMIT));
            try (QuorlMsg question = new QuorlMsg("double").addI32("n", 21);
                    QuorlMsg answer = connecting.request(question, LIMIT)) {
                assertEquals(42, answer.getI32("n"));
            }
            try (QuorlMsg question = new QuorlMsg("nobody")) {
                assertNull(connecting.request(question, Duration.ofMillis(10)));
                accepting.close();
                assertEquals(QuorlException.VC_NOT_CONNECTED, sendUntilRefused(connecting));
                QuorlException gone = assertThrows(
                        QuorlException.class, () -> connecting.request(question, Duration.ofMillis(10)));
                assertEquals(QuorlException.VC_NOT_CONNECTED, gone.getStatus());
                assertTrue(gone.getMessage().contains("the peer closed"), gone.getMessage());
                assertFalse(connecting.trySend(question));
            }
        }
    }

    /** Two ends, and a server at the accepting one that answers some questions and closes its end at others. */
    private final class Pair implements AutoCloseable {
        final QuorlQrdTransport below = new QuorlQrdTransport();
        final QuorlVcTransport accepting = QuorlVcTransport.accept(below);
        final QuorlVcTransport connecting = QuorlVcTransport.connect(transport, accepting.getConnectSubject());
        final QuorlQueue questions = new QuorlQueue();
        final CountDownLatch asked = new CountDownLatch(3);
        final QuorlListener listener = new QuorlListener(questions, accepting, "*", (l, m) -> {
            if (m.getSendSubject().startsWith("answer")) {
                try (QuorlMsg answer = new QuorlMsg().addI32("n", 1)) {
                    accepting.reply(answer, m);
                }
            }
            if (m.getSendSubject().endsWith("leave")) {
                accepting.close();
            }
            asked.countDown();
        });
        final QuorlDispatcher dispatcher = new QuorlDispatcher(questions);

        Pair() throws InterruptedException {
            assertTrue(connecting.waitForConnection(LIMIT));
        }

        @Override
        public void close() {
            for (AutoCloseable each : List.of(connecting, accepting, below, dispatcher, listener, questions)) {
                try {
                    each.close();
                } catch (Exception e) {
                    throw new AssertionError(e);
                }
            }
        }
    }

    private static void assertLost(String says, Throwable failure) {
        QuorlException lost = assertInstanceOf(QuorlException.class, failure);
        assertEquals(QuorlException.VC_NOT_CONNECTED, lost.getStatus(), lost.getMessage());
        assertTrue(lost.getDetail().contains(says), lost.getMessage());
    }

    /** No wait here may reach its limit: a day. */
    private void requestsEndWhen(String says, Consumer<Pair> lose) throws Exception {
        try (Pair pair = new Pair()) {
            List<CompletableFuture<QuorlMsg>> waiting = new ArrayList<>();
            Worker waiter = new Worker(() -> {
                try (QuorlMsg question = new QuorlMsg("ask")) {
                    assertLost(says, assertThrows(
                            QuorlException.class, () -> pair.connecting.request(question, Duration.ofDays(1))));
                }
            });
            try (QuorlMsg question = new QuorlMsg("ask")) {
                for (int i = 0; i < 2; i++) {
                    waiting.add(pair.connecting.requestAsync(question, Duration.ofDays(1)));
                }
                await(pair.asked);
                lose.accept(pair);
                for (CompletableFuture<QuorlMsg> each : waiting) {
                    assertLost(says, assertThrows(ExecutionException.class,
                            () -> each.get(LIMIT.toSeconds(), TimeUnit.SECONDS)).getCause());
                }
                waiter.join();
                assertEquals(0, pair.connecting.waitingRequests());
                assertLost(says, assertThrows(
                        QuorlException.class, () -> pair.connecting.request(question, Duration.ofDays(1))));
                assertLost(says, assertThrows(ExecutionException.class,
                        () -> pair.connecting.requestAsync(question, LIMIT).get()).getCause());
            }
        }
    }

    @Test
    void aPeerThatClosesEndsTheRequestsThatWait() throws Exception {
        requestsEndWhen("the peer closed", pair -> pair.accepting.close());
    }

    @Test
    void aPeerWhoseTransportClosesEndsTheRequestsThatWait() throws Exception {
        requestsEndWhen("the peer closed", pair -> pair.below.close());
    }

    @Test
    void theTransportBelowEndsTheRequestsThatWait() throws Exception {
        requestsEndWhen("the transport below was closed", pair -> transport.close());
    }

    private static void assertAnswered(Pair pair) {
        try (QuorlMsg question = new QuorlMsg("answer");
                QuorlMsg reply = pair.connecting.request(question, LIMIT)) {
            assertEquals(1, reply.getI32("n"));
        } catch (InterruptedException e) {
            throw new AssertionError(e);
        }
    }

    /** Anybody in the process may send one. */
    @Test
    void anAdvisoryEndsNoRequest() throws Exception {
        requestsEndWhen("the peer closed", pair -> {
            try (QuorlMsg forged = new QuorlMsg("_QUORL.WARN.circuit.lost")) {
                transport.send(forged.addI32("transport", pair.connecting.id()));
            }
            for (int i = 0; i < 20; i++) {
                assertAnswered(pair);
            }
            pair.accepting.close();
        });
    }

    @Test
    void aCircuitThatClosesEndsItsOwnRequests() throws Exception {
        try (Pair pair = new Pair(); QuorlMsg question = new QuorlMsg("ask"); QuorlMsg other = new QuorlMsg("ask")) {
            Worker waiter = new Worker(() -> assertThrows(
                    QuorlClosedException.class, () -> pair.connecting.request(other, Duration.ofDays(1))));
            List<CompletableFuture<QuorlMsg>> waiting = List.of(pair.connecting.requestAsync(question, Duration.ofDays(1)),
                    pair.connecting.requestAsync(question, Duration.ofDays(1)));
            await(pair.asked);
            pair.connecting.close();
            waiter.join();
            for (CompletableFuture<QuorlMsg> each : waiting) {
                assertInstanceOf(QuorlClosedException.class, assertThrows(
                        ExecutionException.class, () -> each.get(LIMIT.toSeconds(), TimeUnit.SECONDS)).getCause());
            }
            assertThrows(QuorlClosedException.class, () -> pair.connecting.request(question, LIMIT));
        }
    }

    /** What the peer sent before it closed arrives, replies too. */
    @Test
    void aReplyThatCameBeforeTheLossIsTheReply() throws Exception {
        for (int round = 0; round < 50; round++) {
            try (Pair pair = new Pair(); QuorlMsg question = new QuorlMsg("answer-and-leave")) {
                if (round % 2 == 0) {
                    try (QuorlMsg reply = pair.connecting.request(question, Duration.ofDays(1))) {
                        assertEquals(1, reply.getI32("n"));
                    }
                } else {
                    try (QuorlMsg reply = pair.connecting.requestAsync(question, Duration.ofDays(1))
                            .get(LIMIT.toSeconds(), TimeUnit.SECONDS)) {
                        assertEquals(1, reply.getI32("n"));
                    }
                }
                assertLost("", assertThrows(QuorlException.class, () -> {
                    try (QuorlMsg next = new QuorlMsg("leave")) {
                        pair.connecting.request(next, Duration.ofDays(1));
                    }
                }));
            }
        }
    }

    @Test
    void requestsOnCircuitsWorkAgainWhenTheLibraryIsOpenedAgain() throws Exception {
        for (int i = 0; i < 3; i++) {
            requestsEndWhen("the peer closed", pair -> pair.accepting.close());
            closeLibrary();
            openLibrary();
        }
    }

    @Test
    void waitingEndsByTimeInterruptAndClose() throws Exception {
        try (QuorlVcTransport lonely = QuorlVcTransport.accept(transport)) {
            assertFalse(lonely.waitForConnection(Duration.ZERO));
            assertFalse(lonely.waitForConnection(Duration.ofMillis(120)));
            assertThrows(IllegalArgumentException.class, () -> lonely.waitForConnection(Duration.ofMillis(-1)));
            assertThrows(NullPointerException.class, () -> lonely.waitForConnection(null));
            assertStatus(QuorlException.VC_NOT_CONNECTED, () -> sendOn(lonely, "a", 0));
            Worker waiter = new Worker(() -> assertThrows(
                    InterruptedException.class, () -> lonely.waitForConnection(Duration.ofDays(1))));
            waiter.thread.interrupt();
            waiter.join();
            CountDownLatch waiting = new CountDownLatch(1);
            Worker second = new Worker(() -> {
                waiting.countDown();
                assertThrows(QuorlClosedException.class, () -> lonely.waitForConnection(Duration.ofDays(1)));
            });
            await(waiting);
            lonely.close();
            second.join();
            assertThrows(QuorlClosedException.class, () -> lonely.waitForConnection(LIMIT));
            assertThrows(QuorlClosedException.class, () -> sendOn(lonely, "a", 0));
            lonely.close();
        }
    }

    @Test
    void refusesWhatIsNoConnectSubjectAndASecondPeer() throws Exception {
        for (String subject : List.of("", "a.b", "_INBOX.*", "_INBOX.x..y", "_INBOX." + "x".repeat(300))) {
            assertStatus(QuorlException.INVALID_SUBJECT, () -> QuorlVcTransport.connect(transport, subject));
        }
        assertThrows(NullPointerException.class, () -> QuorlVcTransport.connect(transport, null));
        assertThrows(NullPointerException.class, () -> QuorlVcTransport.accept(null));
        assertThrows(IllegalArgumentException.class, () -> QuorlVcTransport.connect(transport, "_INBOX.a\0b"));
        QuorlQrdTransport gone = new QuorlQrdTransport();
        gone.close();
        assertThrows(QuorlClosedException.class, () -> QuorlVcTransport.accept(gone));
        assertThrows(QuorlClosedException.class, () -> QuorlVcTransport.connect(gone, "_INBOX.a.1"));
        try (QuorlVcTransport accepting = QuorlVcTransport.accept(transport);
                QuorlVcTransport first = QuorlVcTransport.connect(transport, accepting.getConnectSubject())) {
            assertTrue(first.waitForConnection(LIMIT));
            try (QuorlVcTransport second = QuorlVcTransport.connect(transport, accepting.getConnectSubject())) {
                QuorlException refused =
                        assertThrows(QuorlException.class, () -> second.waitForConnection(LIMIT));
                assertEquals(QuorlException.VC_NOT_CONNECTED, refused.getStatus());
                assertTrue(refused.getMessage().contains("refused"), refused.getMessage());
            }
        }
    }

    @Test
    void isClosedInAnyOrder() throws Exception {
        for (int order = 0; order < 6; order++) {
            QuorlQrdTransport below = new QuorlQrdTransport();
            QuorlVcTransport accepting = QuorlVcTransport.accept(below);
            QuorlVcTransport connecting = QuorlVcTransport.connect(transport, accepting.getConnectSubject());
            assertTrue(connecting.waitForConnection(LIMIT));
            QuorlListener listener = new QuorlListener(queue, accepting, ">", (l, m) -> {});
            List<AutoCloseable> things = new ArrayList<>(List.of(below, accepting, connecting, listener));
            if (order % 2 == 1) {
                java.util.Collections.reverse(things);
            }
            java.util.Collections.rotate(things, order / 2);
            for (AutoCloseable thing : things) {
                sendOn(transport, "n", 1);
                thing.close();
            }
            assertTrue(accepting.isClosed());
        }
    }

    @Test
    void endsWithTheTransportBelow() throws Exception {
        QuorlQrdTransport below = new QuorlQrdTransport();
        try (QuorlVcTransport accepting = QuorlVcTransport.accept(below);
                QuorlVcTransport connecting = QuorlVcTransport.connect(transport, accepting.getConnectSubject())) {
            assertTrue(connecting.waitForConnection(LIMIT));
            below.close();
            assertStatus(QuorlException.VC_NOT_CONNECTED, () -> sendOn(accepting, "a", 1));
            assertEquals(QuorlException.VC_NOT_CONNECTED, sendUntilRefused(connecting));
        }
    }

    @Test
    void theNativesAnswerAsTheyAreDeclared() throws Exception {
        byte[] bytes = new byte[255];
        long packed = QuorlVcTransport.quorlTransport_CreateAcceptVc(transport.id(), bytes);
        int length = (int) packed;
        int acceptor = (int) (packed >>> 32);
        String subject = Texts.decode(bytes, length);
        assertTrue(subject.startsWith("_INBOX.") && bytes[length] == 0 && bytes[length - 1] != 0, subject);
        assertStatus(QuorlException.TIMEOUT, () -> QuorlVcTransport.quorlTransport_WaitForVcConnection(acceptor, 0));
        assertStatus(QuorlException.INVALID_ARG,
                () -> QuorlVcTransport.quorlTransport_WaitForVcConnection(acceptor, Double.NaN));
        assertStatus(QuorlException.INVALID_SUBJECT,
                () -> QuorlVcTransport.quorlTransport_CreateConnectVc(transport.id(), null, 0));
        assertStatus(QuorlException.INVALID_SUBJECT,
                () -> QuorlVcTransport.quorlTransport_CreateConnectVc(transport.id(), new byte[0], 0));
        assertStatus(QuorlException.INVALID_TRANSPORT, () -> QuorlVcTransport.quorlTransport_CreateAcceptVc(0, bytes));
        assertStatus(QuorlException.INVALID_TRANSPORT,
                () -> QuorlVcTransport.quorlTransport_CreateConnectVc(-1, bytes, length));
        assertStatus(QuorlException.INVALID_TRANSPORT,
                () -> QuorlVcTransport.quorlTransport_WaitForVcConnection(transport.id(), 0));
        int connector = QuorlVcTransport.quorlTransport_CreateConnectVc(transport.id(), bytes, length);
        QuorlVcTransport.quorlTransport_WaitForVcConnection(connector, LIMIT.toSeconds());
        QuorlVcTransport.quorlTransport_WaitForVcConnection(acceptor, LIMIT.toSeconds());
        QuorlTransport.quorlTransport_Destroy(connector);
        QuorlTransport.quorlTransport_Destroy(acceptor);
    }
}
