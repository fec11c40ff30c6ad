package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

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

    private int listeners() throws Exception {
        try (QuorlMsg question = new QuorlMsg("_QUORL.STATS"); QuorlMsg answer = transport.request(question, LIMIT);
                QuorlMsg objects = answer.getMsg("objects")) {
            return (int) objects.getU32("listeners");
        }
    }

    @Test
    void eachReplyReachesItsRequest() throws Exception {
        Set<Thread> threads = ConcurrentHashMap.newKeySet();
        List<CompletableFuture<Integer>> answers = new ArrayList<>();
        try (QuorlListener server = doubling(queue); QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            int before = listeners();
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
            for (long end = System.nanoTime() + LIMIT.toNanos(); listeners() != before;) {
                assertTrue(System.nanoTime() < end, "inboxes are left");
            }
        }
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
        int before = listeners();
        try (QuorlMsg question = new QuorlMsg("nobody")) {
            for (Duration limit : List.of(Duration.ZERO, Duration.ofMillis(1), Duration.ofMillis(20))) {
                QuorlTimeoutException e =
                        assertFails(QuorlTimeoutException.class, transport.requestAsync(question, limit));
                assertEquals(QuorlException.TIMEOUT, e.getStatus());
                assertTrue(e.getMessage().contains("no reply in"), e.getMessage());
            }
            await(() -> {
                try {
                    return listeners() == before;
                } catch (Exception e) {
                    throw new IllegalStateException(e);
                }
            });
            CompletableFuture<QuorlMsg> patient = transport.requestAsync(question, Duration.ofSeconds(Long.MAX_VALUE));
            assertFalse(patient.isDone());
            patient.cancel(false);
            assertThrows(IllegalArgumentException.class, () -> transport.requestAsync(question, Duration.ofNanos(-1)));
            assertThrows(NullPointerException.class, () -> transport.requestAsync(question, null));
            assertThrows(NullPointerException.class, () -> transport.requestAsync(null, LIMIT));
        }
    }

    @Test
    void aCancelledRequestLetsGo() throws Exception {
        List<String> inboxes = Collections.synchronizedList(new ArrayList<>());
        List<QuorlMsg> questions = Collections.synchronizedList(new ArrayList<>());
        CountDownLatch asked = new CountDownLatch(1);
        try (QuorlListener server = new QuorlListener(queue, transport, "slow", (l, m) -> {
            inboxes.add(m.getReplySubject());
            questions.add(m.keep());
            asked.countDown();
        }); QuorlDispatcher dispatcher = new QuorlDispatcher(queue); QuorlMsg question = new QuorlMsg("slow")) {
            int before = listeners();
            CompletableFuture<QuorlMsg> future = transport.requestAsync(question, LIMIT);
            assertEquals(before + 1, listeners());
            await(asked);
            assertTrue(future.cancel(true));
            assertEquals(before, listeners());
            assertThrows(CancellationException.class, future::join);
            try (QuorlMsg late = new QuorlMsg()) {
                transport.reply(late, questions.get(0));
            }
            questions.get(0).close();
            assertTrue(future.isCancelled());
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
    void whatCannotBeSentFailsAtOnce() {
        try (QuorlMsg question = new QuorlMsg("a.*")) {
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
        int before = listeners();
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
        for (long end = System.nanoTime() + LIMIT.toNanos(); listeners() != before;) {
            assertTrue(System.nanoTime() < end, "inboxes are left");
        }
        assertSame(false, replies.stream().anyMatch(m -> !m.isClosed()));
    }

    @Test
    void aMessageThatCanBeTakenIsTaken() {
        try (QuorlMsg message = new QuorlMsg("a"); QuorlMsg wild = new QuorlMsg("a.*")) {
            assertTrue(transport.trySend(message), "also when nobody listens");
            queue.limit(QuorlQueue.DISCARD_NEW, 2, 1);
            try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {})) {
                for (int i = 0; i < 5; i++) {
                    assertTrue(transport.trySend(message), "a full queue drops, it does not stop the sender");
                }
                assertEquals(2, queue.getCount());
            }
            QuorlMsgTest.assertStatus(QuorlException.INVALID_SUBJECT, () -> transport.trySend(wild));
            assertThrows(NullPointerException.class, () -> transport.trySend(null));
            transport.close();
            assertThrows(QuorlClosedException.class, () -> transport.trySend(message));
        }
    }
}
