package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.internal.image.Texts;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Set;
import java.util.concurrent.CancellationException;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;

/** Asynchronous requests: replies, and each way in which they fail. */
class RequestsTest extends OpenLibrary {
    private static <T extends Throwable> T assertFails(Class<T> type, CompletableFuture<QuorlMsg> future) {
        ExecutionException e = assertThrows(
                ExecutionException.class, () -> future.get(LIMIT.toSeconds(), TimeUnit.SECONDS).close());
        assertTrue(type.isInstance(e.getCause()), e.toString());
        return type.cast(e.getCause());
    }

    private QuorlListener doubling(QuorlQueue on) {
        return new QuorlListener(on, transport, "double", (l, m) -> {
            try (QuorlMsg answer = new QuorlMsg().addI32("n", 2 * m.getI32("n"))) {
                transport.reply(answer, m);
            }
        });
    }

    private static long listeners() {
        return Quorl.statistics().objects().listeners();
    }

    @Test
    void eachReplyReachesItsRequest() throws Exception {
        Set<Thread> threads = ConcurrentHashMap.newKeySet();
        List<CompletableFuture<Integer>> answers = new ArrayList<>();
        try (QuorlListener server = doubling(queue); QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            long before = listeners();
            for (int i = 0; i < 1000; i++) {
                try (QuorlMsg question = new QuorlMsg("double").addI32("n", i)) {
                    answers.add(transport.requestAsync(question, LIMIT).thenApply(reply -> {
                        threads.add(Thread.currentThread());
                        try (reply) {
                            return reply.getI32("n");
                        }
                    }));
                }
            }
            for (int i = 0; i < 1000; i++) {
                assertEquals(2 * i, answers.get(i).get(LIMIT.toSeconds(), TimeUnit.SECONDS));
            }
            threads.remove(Thread.currentThread());
            assertTrue(threads.size() <= 1, "one thread serves all: " + threads);
            assertEquals(0, transport.waitingRequests());
            assertEquals(before + 1, listeners(), "one listener serves all");
            transport.close();
            assertEquals(before, listeners(), "which goes with the transport");
        }
    }

    /** The inboxes of many requests pass by the table of encoded names. */
    @Test
    void namesStayEncodedWhileRequestsPass() throws Exception {
        Texts.Encoded name = Texts.encoded("n", "the name");
        try (QuorlMsg question = new QuorlMsg("nobody")) {
            for (int i = 0; i < 20_000; i++) {
                transport.requestAsync(question, LIMIT).cancel(false);
            }
            assertNull(transport.request(question, Duration.ZERO));
        }
        assertSame(name, Texts.encoded("n", "the name"));
    }

    @Test
    void manyThreadsAsk() throws Exception {
        try (QuorlListener server = doubling(queue); QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            List<Worker> workers = new ArrayList<>();
            for (int w = 0; w < 4; w++) {
                workers.add(new Worker(() -> {
                    for (int i = 0; i < 200; i++) {
                        try (QuorlMsg question = new QuorlMsg("double").addI32("n", i);
                                QuorlMsg reply = transport.requestAsync(question, LIMIT).get()) {
                            assertEquals(2 * i, reply.getI32("n"));
                        }
                    }
                }));
            }
            for (Worker worker : workers) {
                worker.join();
            }
        }
    }

    @Test
    void nobodyAnswersInTime() throws Exception {
        try (QuorlMsg question = new QuorlMsg("nobody")) {
            for (Duration limit : List.of(Duration.ZERO, Duration.ofMillis(1), Duration.ofMillis(20))) {
                QuorlTimeoutException e =
                        assertFails(QuorlTimeoutException.class, transport.requestAsync(question, limit));
                assertEquals(QuorlException.TIMEOUT, e.getStatus());
                assertTrue(e.getMessage().contains("no reply to "), e.getMessage());
            }
            await(() -> transport.waitingRequests() == 0);
            CompletableFuture<QuorlMsg> patient = transport.requestAsync(question, Duration.ofSeconds(Long.MAX_VALUE));
            assertFalse(patient.isDone());
            patient.cancel(false);
            assertThrows(IllegalArgumentException.class, () -> transport.requestAsync(question, Duration.ofNanos(-1)));
            assertThrows(NullPointerException.class, () -> transport.requestAsync(question, null));
            assertThrows(NullPointerException.class, () -> transport.requestAsync(null, LIMIT));
        }
    }

    /** Keeps what it is asked, and answers nothing of itself. */
    private static final class Silent implements AutoCloseable {
        private final List<QuorlMsg> questions = Collections.synchronizedList(new ArrayList<>());
        private final QuorlListener listener;
        private final QuorlDispatcher dispatcher;

        Silent(QuorlQueue queue, QuorlTransport transport) {
            listener = new QuorlListener(queue, transport, "slow", (l, m) -> questions.add(m.keep()));
            dispatcher = new QuorlDispatcher(queue);
        }

        QuorlMsg question(int number) throws InterruptedException {
            await(() -> questions.size() > number);
            return questions.get(number);
        }

        @Override
        public void close() {
            listener.close();
            dispatcher.close();
            questions.forEach(QuorlMsg::close);
        }
    }

    @Test
    void aCancelledRequestLetsGo() throws Exception {
        try (Silent server = new Silent(queue, transport); QuorlMsg question = new QuorlMsg("slow")) {
            CompletableFuture<QuorlMsg> future = transport.requestAsync(question, LIMIT);
            assertEquals(1, transport.waitingRequests());
            QuorlMsg asked = server.question(0);
            assertTrue(future.cancel(true));
            assertEquals(0, transport.waitingRequests());
            assertThrows(CancellationException.class, future::join);
            CompletableFuture<QuorlMsg> next = transport.requestAsync(question, LIMIT);
            try (QuorlMsg late = new QuorlMsg().addI32("n", 1); QuorlMsg answer = new QuorlMsg().addI32("n", 2)) {
                transport.reply(late, asked);
                transport.reply(answer, server.question(1));
            }
            try (QuorlMsg reply = next.get(LIMIT.toSeconds(), TimeUnit.SECONDS)) {
                assertEquals(2, reply.getI32("n"), "the late reply reaches nobody");
            }
            assertTrue(future.isCancelled());
        }
    }

    @Test
    void whatComesToTheInboxAndIsNoReplyIsDropped() throws Exception {
        try (Silent server = new Silent(queue, transport); QuorlMsg question = new QuorlMsg("slow");
                QuorlQrdTransport stranger = new QuorlQrdTransport()) {
            CompletableFuture<QuorlMsg> future = transport.requestAsync(question, LIMIT);
            String subject = server.question(0).getReplySubject();
            String inbox = subject.substring(0, subject.lastIndexOf('.'));
            long messages = Quorl.statistics().objects().messages();
            for (String key : List.of("x", "0", "01", "+1", "-1", "1x", "1.1", "9".repeat(18), "9".repeat(19), "9".repeat(150))) {
                try (QuorlMsg stray = new QuorlMsg(inbox + "." + key)) {
                    stranger.send(stray);
                }
            }
            try (QuorlMsg stray = new QuorlMsg(inbox); QuorlMsg reply = new QuorlMsg(subject).addI32("n", 7)) {
                stranger.send(stray);
                stranger.send(reply);
            }
            try (QuorlMsg reply = future.get(LIMIT.toSeconds(), TimeUnit.SECONDS)) {
                assertEquals(7, reply.getI32("n"));
            }
            await(() -> Quorl.statistics().objects().messages() == messages);
        }
    }

    @Test
    void onlyTheFirstReplyCounts() throws Exception {
        try (QuorlListener one = doubling(queue); QuorlListener two = doubling(queue); QuorlListener three = doubling(queue);
                QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
                QuorlMsg question = new QuorlMsg("double").addI32("n", 4)) {
            String last = null;
            for (int i = 0; i < 50; i++) {
                try (QuorlMsg reply = transport.requestAsync(question, LIMIT).get(LIMIT.toSeconds(), TimeUnit.SECONDS)) {
                    assertEquals(8, reply.getI32("n"));
                    assertNotEquals(last, reply.getSendSubject(), "each request has an inbox of its own");
                    last = reply.getSendSubject();
                }
            }
        }
    }

    @Test
    void closingTheTransportFailsWhatWaits() throws Exception {
        try (QuorlMsg question = new QuorlMsg("nobody")) {
            List<CompletableFuture<QuorlMsg>> waiting = new ArrayList<>();
            for (int i = 0; i < 10; i++) {
                waiting.add(transport.requestAsync(question, Duration.ofDays(1)));
            }
            transport.close();
            for (CompletableFuture<QuorlMsg> each : waiting) {
                assertEquals(QuorlException.INVALID_TRANSPORT, assertFails(QuorlClosedException.class, each).getStatus());
            }
            assertFails(QuorlClosedException.class, transport.requestAsync(question, LIMIT));
        }
    }

    @Test
    void closingTheLibraryFailsWhatWaits() throws Exception {
        try (QuorlMsg question = new QuorlMsg("nobody")) {
            CompletableFuture<QuorlMsg> waiting = transport.requestAsync(question, Duration.ofDays(1));
            quorl.close();
            assertFails(QuorlClosedException.class, waiting);
            assertFails(QuorlClosedException.class, transport.requestAsync(question, LIMIT));
        }
    }

    @Test
    void closingTheLibraryEndsAThreadThatWaits() throws Exception {
        try (Silent server = new Silent(queue, transport); QuorlMsg question = new QuorlMsg("slow")) {
            Worker waiting = new Worker(
                    () -> assertThrows(QuorlClosedException.class, () -> transport.request(question, Duration.ofDays(1))));
            server.question(0);
            quorl.close();
            waiting.join();
            assertThrows(QuorlClosedException.class, () -> transport.request(question, LIMIT));
        }
    }

    @Test
    void whatCannotBeSentFailsAtOnce() {
        try (QuorlMsg question = new QuorlMsg()) {
            CompletableFuture<QuorlMsg> future = transport.requestAsync(question, LIMIT);
            assertTrue(future.isCompletedExceptionally());
            assertEquals(QuorlException.INVALID_SUBJECT, assertFails(QuorlException.class, future).getStatus());
        }
        QuorlMsg closed = new QuorlMsg("a");
        closed.close();
        assertFails(QuorlClosedException.class, transport.requestAsync(closed, LIMIT));
    }

    @Test
    void aStepMayDoAnything() throws Exception {
        CountDownLatch done = new CountDownLatch(1);
        List<Throwable> failures = Collections.synchronizedList(new ArrayList<>());
        try (QuorlListener server = doubling(queue); QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
                QuorlMsg question = new QuorlMsg("double").addI32("n", 1)) {
            transport.requestAsync(question, LIMIT).thenAccept(reply -> {
                try (reply; QuorlMsg next = new QuorlMsg("double").addI32("n", reply.getI32("n"));
                        QuorlMsg second = transport.request(next, LIMIT)) {
                    assertEquals(4, second.getI32("n"));
                    // The step may be on another thread than the replies: only one that nobody answers surely waits.
                    CompletableFuture<QuorlMsg> waiting = transport.requestAsync(next.setSendSubject("nobody"), LIMIT);
                    transport.close();
                    assertFails(QuorlClosedException.class, waiting);
                } catch (Throwable e) {
                    failures.add(e);
                } finally {
                    done.countDown();
                }
            });
            await(done);
        }
        assertEquals(List.of(), failures);
    }

    @Test
    void requestsThatEndInAllWaysAtOnceLeaveNothing() throws Exception {
        long messages = Quorl.statistics().objects().messages();
        List<QuorlMsg> replies = Collections.synchronizedList(new ArrayList<>());
        try (QuorlListener server = doubling(queue); QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            List<Worker> workers = new ArrayList<>();
            for (int w = 0; w < 3; w++) {
                int way = w;
                workers.add(new Worker(() -> {
                    for (int i = 0; i < 300; i++) {
                        try (QuorlMsg question = new QuorlMsg("double").addI32("n", i)) {
                            CompletableFuture<QuorlMsg> future =
                                    transport.requestAsync(question, way == 0 ? Duration.ofNanos(i * 1000L) : LIMIT);
                            if (way == 1) {
                                future.cancel(false);
                            }
                            future.handle((reply, failure) -> {
                                if (reply != null) {
                                    replies.add(reply);
                                    reply.close();
                                }
                                return null;
                            }).get(LIMIT.toSeconds(), TimeUnit.SECONDS);
                        }
                    }
                }));
            }
            for (Worker worker : workers) {
                worker.join();
            }
            assertTrue(replies.size() >= 300, "those with time to wait were answered");
        }
        await(() -> transport.waitingRequests() == 0);
        await(() -> Quorl.statistics().objects().messages() == messages);
        assertSame(false, replies.stream().anyMatch(m -> !m.isClosed()));
    }

    @Test
    void aMessageThatCanBeTakenIsTaken() {
        try (QuorlMsg message = new QuorlMsg("a"); QuorlMsg nowhere = new QuorlMsg()) {
            assertTrue(transport.trySend(message), "also when nobody listens");
            queue.limit(QuorlQueue.DISCARD_NEW, 2, 1);
            try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {})) {
                for (int i = 0; i < 5; i++) {
                    assertTrue(transport.trySend(message), "a full queue drops, it does not stop the sender");
                }
                settle();
                assertEquals(2, queue.getCount());
            }
            QuorlMsgTest.assertStatus(QuorlException.INVALID_SUBJECT, () -> transport.trySend(nowhere));
            assertThrows(NullPointerException.class, () -> transport.trySend(null));
            transport.close();
            assertThrows(QuorlClosedException.class, () -> transport.trySend(message));
        }
    }
}
