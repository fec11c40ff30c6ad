package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Queue;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Executor;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.ForkJoinPool;
import java.util.concurrent.RejectedExecutionException;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** Dispatchers with several threads, and with an executor for the handlers. */
class ExecutorDeliveryTest extends OpenLibrary {
    private static final int COUNT = 2_000;

    /** Keeps tasks until they are asked for. */
    private static final class Shelf implements Executor {
        final Queue<Runnable> tasks = new ConcurrentLinkedQueue<>();

        @Override
        public void execute(Runnable task) {
            tasks.add(task);
        }

        void runAll() {
            for (Runnable task = tasks.poll(); task != null; task = tasks.poll()) {
                task.run();
            }
        }
    }

    /** Four listeners, each of which must hear its messages in order and one at a time. */
    private void assertOrderWith(Executor executor) throws Exception {
        List<QuorlListener> listeners = new ArrayList<>();
        List<List<Integer>> heard = new ArrayList<>();
        AtomicInteger overlaps = new AtomicInteger();
        CountDownLatch done = new CountDownLatch(4 * COUNT);
        for (int i = 0; i < 4; i++) {
            List<Integer> mine = Collections.synchronizedList(new ArrayList<>());
            AtomicBoolean busy = new AtomicBoolean();
            heard.add(mine);
            listeners.add(new QuorlListener(queue, transport, "a." + i, (l, m) -> {
                overlaps.addAndGet(busy.getAndSet(true) ? 1 : 0);
                mine.add(m.getI32("n"));
                busy.set(false);
                done.countDown();
            }));
        }
        try (QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).executor(executor).inFlight(64).start()) {
            for (int n = 0; n < COUNT; n++) {
                for (int i = 0; i < 4; i++) {
                    send("a." + i, n);
                }
            }
            await(done);
        }
        listeners.forEach(QuorlListener::close);
        List<Integer> expected = IntStream.range(0, COUNT).boxed().collect(Collectors.toList());
        heard.forEach(each -> assertEquals(expected, each));
        assertEquals(0, overlaps.get());
    }

    @Test
    void aPoolKeepsTheOrderOfEachListener() throws Exception {
        ExecutorService pool = Executors.newFixedThreadPool(4);
        try {
            assertOrderWith(pool);
        } finally {
            pool.shutdown();
        }
        assertOrderWith(ForkJoinPool.commonPool());
    }

    @Test
    void aThreadForEachTaskKeepsTheOrder() throws Exception {
        AtomicInteger threads = new AtomicInteger();
        assertOrderWith(task -> {
            threads.incrementAndGet();
            new Thread(task).start();
        });
        assertTrue(threads.get() > 0);
    }

    @Test
    void theCallersOwnThreadIsAnExecutorToo() throws Exception {
        assertOrderWith(Runnable::run);
    }

    @Test
    void whatTheExecutorRefusesRunsOnTheDispatchersThread() throws Exception {
        assertOrderWith(task -> {
            throw new RejectedExecutionException();
        });
        AtomicInteger turn = new AtomicInteger();
        ExecutorService pool = Executors.newFixedThreadPool(2);
        try {
            assertOrderWith(task -> {
                if (turn.incrementAndGet() % 3 == 0) {
                    throw new RejectedExecutionException();
                }
                pool.execute(task);
            });
        } finally {
            pool.shutdown();
        }
    }

    @Test
    void aBrokenExecutorIsReportedAndLosesNothing() throws Exception {
        List<Throwable> reported = Collections.synchronizedList(new ArrayList<>());
        CountDownLatch done = new CountDownLatch(3);
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> done.countDown());
                QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue)
                        .uncaughtExceptionHandler((thread, e) -> {
                            reported.add(e);
                            throw new IllegalStateException("a handler that throws harms nothing");
                        })
                        .executor(task -> {
                            throw new IllegalArgumentException("broken");
                        }).start()) {
            for (int i = 0; i < 3; i++) {
                send("a", i);
            }
            await(done);
        }
        assertEquals(3, reported.size());
        assertTrue(reported.stream().allMatch(e -> e instanceof IllegalArgumentException), reported.toString());
    }

    @Test
    void severalThreadsDispatch() throws Exception {
        Set<Thread> threads = ConcurrentHashMap.newKeySet();
        CountDownLatch all = new CountDownLatch(3);
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            threads.add(Thread.currentThread());
            all.countDown();
            await(all);
        }); QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).name("pool").threads(3).start()) {
            assertEquals(List.of("pool-1", "pool-2", "pool-3"),
                    dispatcher.getThreads().stream().map(Thread::getName).collect(Collectors.toList()));
            assertEquals("pool", dispatcher.getName());
            assertTrue(dispatcher.getThreads().stream().allMatch(Thread::isDaemon));
            for (int i = 0; i < 3; i++) {
                send("a", i);
            }
            await(all);
            assertEquals(Set.copyOf(dispatcher.getThreads()), threads);
            dispatcher.close();
            for (Thread thread : dispatcher.getThreads()) {
                thread.join(LIMIT.toMillis());
                assertFalse(thread.isAlive());
            }
        }
    }

    @Test
    void theMessageLivesUntilItsHandlerReturns() throws Exception {
        Shelf shelf = new Shelf();
        List<QuorlMsg> seen = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            seen.add(m);
            if (m.getI32("n") == 1) {
                m.keep();
            }
        }); QuorlVectorListener vector = new QuorlVectorListener(queue, transport, "a", (l, batch) -> {
            batch.forEach(m -> m.getI32("n"));
            seen.addAll(batch);
        }); QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).executor(shelf).start()) {
            for (int i = 0; i < 3; i++) {
                send("a", i);
            }
            await(() -> {
                shelf.runAll();
                return seen.size() == 6;
            });
        }
        assertEquals(1, seen.stream().filter(m -> !m.isClosed()).count());
        QuorlMsg kept = seen.stream().filter(m -> !m.isClosed()).findFirst().orElseThrow();
        assertEquals(1, kept.getI32("n"));
        kept.close();
    }

    @Test
    void whatIsNotInFlightStaysUnderTheQueuesLimit() throws Exception {
        Shelf shelf = new Shelf();
        List<Integer> heard = new ArrayList<>();
        queue.limit(QuorlQueue.DISCARD_NEW, 10, 1);
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> heard.add(m.getI32("n")));
                QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).executor(shelf).inFlight(4).start()) {
            for (int i = 0; i < 4; i++) {
                send("a", i);
            }
            settle();
            await(() -> queue.getCount() == 0);
            for (int i = 4; i < 30; i++) {
                send("a", i);
            }
            settle();
            assertEquals(10, queue.getCount());
            await(() -> {
                shelf.runAll();
                return heard.size() == 14;
            });
        }
        assertEquals(IntStream.range(0, 14).boxed().collect(Collectors.toList()), heard);
    }

    @Test
    void closingRunsWhatTheExecutorHasNotBegun() throws Exception {
        Shelf shelf = new Shelf();
        List<Integer> heard = new ArrayList<>();
        Set<Thread> threads = ConcurrentHashMap.newKeySet();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            heard.add(m.getI32("n"));
            threads.add(Thread.currentThread());
        })) {
            QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).executor(shelf).start();
            for (int i = 0; i < 20; i++) {
                send("a", i);
            }
            settle();
            await(() -> queue.getCount() == 0);
            dispatcher.close();
            assertEquals(IntStream.range(0, 20).boxed().collect(Collectors.toList()), heard);
            assertEquals(Set.of(dispatcher.getThread()), threads);
            shelf.runAll();
            assertEquals(20, heard.size(), "tasks that come late find nothing");
        }
    }

    @Test
    void aClosedListenersHandOversAreDropped() throws Exception {
        Shelf shelf = new Shelf();
        AtomicInteger heard = new AtomicInteger();
        QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> heard.incrementAndGet());
        QuorlTimer timer = new QuorlTimer(queue, Duration.ZERO, t -> heard.incrementAndGet());
        QuorlVectorListener vector = new QuorlVectorListener(queue, transport, "a", (l, m) -> heard.incrementAndGet());
        try (QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).executor(shelf).unordered().start()) {
            send("a", 1);
            await(() -> shelf.tasks.size() >= 10);
            listener.close();
            timer.close();
            vector.close();
            shelf.runAll();
        }
        shelf.runAll();
        assertEquals(0, heard.get());
    }

    @Test
    void closeWaitsForAHandlerInTheExecutor() throws Exception {
        for (int kind = 0; kind < 3; kind++) {
            CountDownLatch inside = new CountDownLatch(1);
            CountDownLatch leave = new CountDownLatch(1);
            AtomicBoolean left = new AtomicBoolean();
            QuorlQueue mine = new QuorlQueue();
            QuorlListener listener = new QuorlListener(mine, transport, "a", (l, m) -> {
                inside.countDown();
                await(leave);
                left.set(true);
            });
            QuorlDispatcher dispatcher =
                    QuorlDispatcher.builder(mine).executor(task -> new Thread(task).start()).start();
            AutoCloseable closing = List.<AutoCloseable>of(listener, mine, dispatcher).get(kind);
            send("a", 1);
            await(inside);
            AtomicBoolean early = new AtomicBoolean();
            Worker closer = new Worker(() -> {
                closing.close();
                early.set(!left.get());
            });
            await(() -> closer.thread.getState() == Thread.State.TIMED_WAITING);
            leave.countDown();
            closer.join();
            assertFalse(early.get());
            listener.close();
            mine.close();
            dispatcher.close();
        }
    }

    @Test
    void aHandlerInTheExecutorMayCloseEverything() throws Exception {
        ExecutorService one = Executors.newSingleThreadExecutor();
        try {
            for (int i = 0; i < 100; i++) {
                QuorlQueue mine = new QuorlQueue();
                CountDownLatch ended = new CountDownLatch(1);
                CountDownLatch made = new CountDownLatch(1);
                List<AutoCloseable> all = Collections.synchronizedList(new ArrayList<>());
                all.add(mine);
                all.add(new QuorlListener(mine, transport, "a", (l, m) -> {
                    await(made);
                    for (AutoCloseable each : all) {
                        each.close();
                    }
                    ended.countDown();
                }));
                all.add(QuorlDispatcher.builder(mine).executor(one).start());
                Collections.rotate(all, i);
                made.countDown();
                send("a", 1);
                send("a", 2);
                await(ended);
            }
        } finally {
            one.shutdown();
        }
    }

    @Test
    void handlersThatCloseEachOthersDispatchersEnd() throws Exception {
        ExecutorService pool = Executors.newCachedThreadPool();
        try {
            for (int i = 0; i < 50; i++) {
                CountDownLatch both = new CountDownLatch(2);
                CountDownLatch done = new CountDownLatch(2);
                try (QuorlQueue other = new QuorlQueue();
                        QuorlDispatcher first = QuorlDispatcher.builder(queue).executor(pool).start();
                        QuorlDispatcher second = QuorlDispatcher.builder(other).executor(pool).start();
                        QuorlListener one = new QuorlListener(queue, transport, "a", (l, m) -> {
                            both.countDown();
                            await(both);
                            second.close();
                            done.countDown();
                        });
                        QuorlListener two = new QuorlListener(other, transport, "a", (l, m) -> {
                            both.countDown();
                            await(both);
                            first.close();
                            done.countDown();
                        })) {
                    send("a", 1);
                    await(done);
                }
            }
        } finally {
            pool.shutdown();
        }
    }

    @Test
    void anExecutorThatWasShutDownLosesNothing() throws Exception {
        ExecutorService pool = Executors.newSingleThreadExecutor();
        CountDownLatch inside = new CountDownLatch(1);
        AtomicInteger heard = new AtomicInteger();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            inside.countDown();
            heard.incrementAndGet();
        }); QuorlListener other = new QuorlListener(queue, transport, "b", (l, m) -> heard.incrementAndGet())) {
            QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).executor(pool).start();
            send("a", 1);
            await(inside);
            pool.shutdownNow();
            for (int i = 0; i < 20; i++) {
                send(i % 2 == 0 ? "a" : "b", i);
            }
            settle();
            await(() -> queue.getCount() == 0);
            dispatcher.close();
            assertEquals(21, heard.get());
        }
    }

    @Test
    void withoutOrderOneListenerRunsSideBySide() throws Exception {
        CountDownLatch all = new CountDownLatch(4);
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            all.countDown();
            await(all);
        }); QuorlDispatcher dispatcher =
                QuorlDispatcher.builder(queue).executor(task -> new Thread(task).start()).unordered().start()) {
            for (int i = 0; i < 4; i++) {
                send("a", i);
            }
            await(all);
        }
    }

    @Test
    void whatAHandlerThrowsIsReported() throws Exception {
        List<String> reported = Collections.synchronizedList(new ArrayList<>());
        CountDownLatch two = new CountDownLatch(2);
        Thread[] ran = new Thread[1];
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            ran[0] = Thread.currentThread();
            throw new Exception("number " + m.getI32("n"));
        }); QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).executor(task -> new Thread(task).start())
                .uncaughtExceptionHandler((thread, e) -> {
                    assertSame(ran[0], thread);
                    reported.add(e.getCause().getMessage());
                    two.countDown();
                }).start()) {
            send("a", 1);
            send("a", 2);
            await(two);
        }
        assertEquals(List.of("number 1", "number 2"), reported);
    }

    @Test
    void theLastCloseDropsWhatTheExecutorHasNotBegun() throws Exception {
        Shelf shelf = new Shelf();
        AtomicInteger heard = new AtomicInteger();
        new QuorlListener(queue, transport, "a", (l, m) -> heard.incrementAndGet());
        QuorlDispatcher dispatcher = QuorlDispatcher.builder(queue).executor(shelf).start();
        send("a", 1);
        await(() -> queue.getCount() == 0);
        quorl.close();
        dispatcher.getThread().join(LIMIT.toMillis());
        assertFalse(dispatcher.getThread().isAlive());
        shelf.runAll();
        assertEquals(0, heard.get());
    }

    @Test
    void groupsAreServedTheSameWay() throws Exception {
        ExecutorService pool = Executors.newFixedThreadPool(2);
        CountDownLatch done = new CountDownLatch(200);
        try (QuorlQueueGroup group = new QuorlQueueGroup(); QuorlQueue other = new QuorlQueue();
                QuorlListener one = new QuorlListener(queue, transport, "a", (l, m) -> done.countDown());
                QuorlListener two = new QuorlListener(other, transport, "a", (l, m) -> done.countDown());
                QuorlDispatcher dispatcher = QuorlDispatcher.builder(group).executor(pool).start()) {
            group.add(queue);
            group.add(other);
            for (int i = 0; i < 100; i++) {
                send("a", i);
            }
            await(done);
        } finally {
            pool.shutdown();
        }
    }

    @Test
    void whatMakesNoSenseIsRefused() {
        QuorlDispatcher.Builder builder = QuorlDispatcher.builder(queue);
        assertThrows(IllegalArgumentException.class, () -> builder.threads(0));
        assertThrows(IllegalArgumentException.class, () -> builder.threads(1025));
        assertThrows(IllegalArgumentException.class, () -> builder.inFlight(0));
        assertThrows(NullPointerException.class, () -> builder.executor(null));
        assertThrows(NullPointerException.class, () -> builder.uncaughtExceptionHandler(null));
        assertThrows(NullPointerException.class, () -> QuorlDispatcher.builder((QuorlQueue) null));
        assertThrows(IllegalStateException.class, () -> builder.threads(2).executor(Runnable::run).start());
        queue.close();
        assertThrows(QuorlClosedException.class, () -> QuorlDispatcher.builder(queue).start());
    }
}
