package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** Dispatchers. */
class QuorlDispatcherTest extends OpenLibrary {
    @Test
    void oneDispatcherKeepsTheOrder() throws Exception {
        List<Integer> got = Collections.synchronizedList(new ArrayList<>());
        CountDownLatch done = new CountDownLatch(10_000);
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            got.add(m.getI32("n"));
            done.countDown();
        }); QuorlDispatcher dispatcher = new QuorlDispatcher(queue, "mine")) {
            assertEquals("mine", dispatcher.getThread().getName());
            assertTrue(dispatcher.getThread().isDaemon());
            for (int i = 0; i < 10_000; i++) {
                send("a", i);
            }
            await(done);
        }
        assertEquals(IntStream.range(0, 10_000).boxed().collect(Collectors.toList()), got);
    }

    @Test
    void severalDispatchersShareAQueue() throws Exception {
        Set<Thread> threads = ConcurrentHashMap.newKeySet();
        CountDownLatch both = new CountDownLatch(2);
        AtomicInteger count = new AtomicInteger();
        try (QuorlQueueGroup group = new QuorlQueueGroup();
                QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
                    threads.add(Thread.currentThread());
                    count.incrementAndGet();
                    both.countDown();
                    await(both);
                })) {
            group.add(queue);
            try (QuorlDispatcher first = new QuorlDispatcher(queue); QuorlDispatcher second = new QuorlDispatcher(group)) {
                for (int i = 0; i < 100; i++) {
                    send("a", i);
                }
                await(() -> count.get() == 100);
                assertEquals(Set.of(first.getThread(), second.getThread()), threads);
            }
        }
    }

    @Test
    void itEndsWithItsQueue() throws Exception {
        try (QuorlQueue closing = new QuorlQueue(); QuorlQueueGroup group = new QuorlQueueGroup()) {
            QuorlDispatcher first = new QuorlDispatcher(closing);
            QuorlDispatcher second = new QuorlDispatcher(group, "group");
            closing.close();
            group.close();
            first.getThread().join(LIMIT.toMillis());
            second.getThread().join(LIMIT.toMillis());
            assertFalse(first.getThread().isAlive() || second.getThread().isAlive());
            first.close();
            second.close();
        }
    }

    @Test
    void closingEndsTheThreadFromAnywhere() throws Exception {
        for (int i = 0; i < 200; i++) {
            QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
            if (i % 2 == 0) {
                await(() -> dispatcher.getThread().getState() != Thread.State.NEW);
            }
            Worker other = new Worker(dispatcher::close);
            dispatcher.close();
            other.join();
            dispatcher.getThread().join(LIMIT.toMillis());
            assertFalse(dispatcher.getThread().isAlive());
        }
    }

    @Test
    void closingInsideItsOwnHandler() throws Exception {
        QuorlDispatcher[] dispatcher = new QuorlDispatcher[1];
        CountDownLatch made = new CountDownLatch(1);
        AtomicInteger count = new AtomicInteger();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            await(made);
            dispatcher[0].close();
            count.incrementAndGet();
        })) {
            send("a", 1);
            send("a", 2);
            dispatcher[0] = new QuorlDispatcher(queue);
            made.countDown();
            dispatcher[0].getThread().join(LIMIT.toMillis());
            assertFalse(dispatcher[0].getThread().isAlive());
        }
        assertEquals(1, count.get());
    }

    @Test
    void dispatchersThatCloseEachOtherEnd() throws Exception {
        for (int i = 0; i < 50; i++) {
            CountDownLatch both = new CountDownLatch(2);
            try (QuorlQueue otherQueue = new QuorlQueue()) {
                QuorlDispatcher[] dispatchers = new QuorlDispatcher[2];
                CountDownLatch made = new CountDownLatch(1);
                try (QuorlListener first = new QuorlListener(queue, transport, "a", (l, m) -> {
                    both.countDown();
                    await(both);
                    await(made);
                    dispatchers[1].close();
                }); QuorlListener second = new QuorlListener(otherQueue, transport, "a", (l, m) -> {
                    both.countDown();
                    await(both);
                    await(made);
                    dispatchers[0].close();
                })) {
                    dispatchers[0] = new QuorlDispatcher(queue);
                    dispatchers[1] = new QuorlDispatcher(otherQueue);
                    made.countDown();
                    send("a", 1);
                    for (QuorlDispatcher dispatcher : dispatchers) {
                        dispatcher.getThread().join(LIMIT.toMillis());
                        assertFalse(dispatcher.getThread().isAlive());
                    }
                }
            }
        }
    }

    @Test
    void whatAHandlerThrowsGoesToTheThreadsHandler() throws Exception {
        List<Throwable> caught = Collections.synchronizedList(new ArrayList<>());
        CountDownLatch three = new CountDownLatch(3);
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            switch (m.getI32("n")) {
                case 0:
                    throw new Exception("checked");
                case 1:
                    throw new IllegalStateException("unchecked");
                default:
                    throw new StackOverflowError("error");
            }
        }); QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            dispatcher.getThread().setUncaughtExceptionHandler((thread, e) -> {
                caught.add(e);
                three.countDown();
            });
            for (int i = 0; i < 3; i++) {
                send("a", i);
            }
            await(three);
        }
        assertEquals(List.of("checked", "unchecked", "error"), caught.stream()
                .map(e -> e.getCause() == null ? e.getMessage() : e.getCause().getMessage()).collect(Collectors.toList()));
    }

    @Test
    void nullsAreRefused() {
        assertThrows(NullPointerException.class, () -> new QuorlDispatcher((QuorlQueue) null));
        assertThrows(NullPointerException.class, () -> new QuorlDispatcher((QuorlQueueGroup) null));
    }
}
