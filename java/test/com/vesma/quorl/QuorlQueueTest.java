package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.reflect.UndeclaredThrowableException;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** Queues and groups, and dispatching them on the test's own threads. */
class QuorlQueueTest extends OpenLibrary {
    @Test
    void attributesAreKept() {
        assertEquals("", queue.getName());
        queue.setName("orders 😀");
        assertEquals("orders 😀", queue.getName());
        queue.setName("");
        assertEquals("", queue.getName());
        assertThrows(IllegalArgumentException.class, () -> queue.setName("a\0"));
        assertStatus(QuorlException.INVALID_ARG, () -> queue.setName("x".repeat(256)));
        assertEquals(1, queue.getPriority());
        queue.setPriority(4294967295L);
        assertEquals(4294967295L, queue.getPriority());
        assertThrows(IllegalArgumentException.class, () -> queue.setPriority(-1));
        assertEquals(0, queue.getCount());
        try (QuorlQueue named = new QuorlQueue("named")) {
            assertEquals("named", named.getName());
        }
        assertStatus(QuorlException.INVALID_ARG, () -> new QuorlQueue("x".repeat(256)));
    }

    @Test
    void aFullQueueDrops() {
        assertEquals(QuorlQueue.DISCARD_NONE, queue.getLimitPolicy());
        queue.limit(QuorlQueue.DISCARD_FIRST, 3, 1);
        assertEquals(QuorlQueue.DISCARD_FIRST, queue.getLimitPolicy());
        assertEquals(3, queue.getMaxEvents());
        assertEquals(1, queue.getDiscardAmount());
        assertStatus(QuorlException.INVALID_ARG, () -> queue.limit(QuorlQueue.DISCARD_NEW, 0, 0));
        assertStatus(QuorlException.INVALID_ARG, () -> queue.limit(9, 1, 1));
        List<Integer> got = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> got.add(m.getI32("n")))) {
            for (int i = 0; i < 5; i++) {
                send("a", i);
            }
            settle();
            assertEquals(3, queue.getCount());
            drain(queue);
        }
        assertEquals(List.of(2, 3, 4), got);
        queue.limit(QuorlQueue.DISCARD_NONE, 0, 0);
    }

    @Test
    void dispatchWaitsAsLongAsItIsTold() throws Exception {
        assertFalse(queue.poll());
        assertFalse(queue.dispatch(Duration.ZERO));
        assertFalse(queue.dispatch(Duration.ofMillis(1)));
        assertThrows(IllegalArgumentException.class, () -> queue.dispatch(Duration.ofMillis(-1)));
        assertThrows(NullPointerException.class, () -> queue.dispatch(null));
        int[] got = new int[1];
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> got[0]++)) {
            Worker waiter = new Worker(queue::dispatch);
            send("a", 1);
            waiter.join();
            send("a", 2);
            assertTrue(queue.dispatch(Duration.ofSeconds(Long.MAX_VALUE)));
            send("a", 3);
            settle();
            assertTrue(queue.poll());
        }
        assertEquals(3, got[0]);
    }

    @Test
    void interruptsEndAWait() throws Exception {
        for (Duration limit : new Duration[] {null, Duration.ofDays(1)}) {
            Worker waiter = new Worker(() -> assertThrows(InterruptedException.class, () -> {
                if (limit == null) {
                    queue.dispatch();
                } else {
                    queue.dispatch(limit);
                }
            }));
            waiter.thread.interrupt();
            waiter.join();
        }
        for (int i = 0; i < 200; i++) {
            Worker waiter = new Worker(() -> assertThrows(InterruptedException.class, queue::dispatch));
            while (waiter.thread.getState() == Thread.State.NEW || (i % 2 == 0 && !isInNative(waiter.thread))) {
                Thread.onSpinWait();
            }
            waiter.thread.interrupt();
            waiter.join();
        }
        Thread.currentThread().interrupt();
        assertThrows(InterruptedException.class, () -> queue.dispatch(LIMIT));
        assertFalse(Thread.interrupted());
        assertFalse(queue.poll());
    }

    private static boolean isInNative(Thread thread) {
        StackTraceElement[] stack = thread.getStackTrace();
        return !thread.isAlive() || (stack.length > 0 && stack[0].isNativeMethod());
    }

    @Test
    void closingEndsAWait() throws Exception {
        for (int i = 0; i < 100; i++) {
            QuorlQueue closing = new QuorlQueue();
            QuorlQueueGroup group = new QuorlQueueGroup();
            Worker first = new Worker(() -> assertThrows(QuorlClosedException.class, closing::dispatch));
            Worker second = new Worker(() -> assertThrows(QuorlClosedException.class, () -> group.dispatch(LIMIT)));
            closing.close();
            group.close();
            first.join();
            second.join();
        }
    }

    @Test
    void useAfterCloseIsRefused() {
        QuorlQueueGroup group = new QuorlQueueGroup();
        group.add(queue);
        queue.close();
        queue.close();
        assertTrue(queue.isClosed());
        for (org.junit.jupiter.api.function.Executable call : List.<org.junit.jupiter.api.function.Executable>of(
                queue::dispatch, queue::poll, () -> queue.dispatch(Duration.ZERO), queue::getCount, queue::getName,
                () -> queue.setName("a"), queue::getPriority, () -> queue.setPriority(1), queue::getLimitPolicy,
                queue::getMaxEvents, queue::getDiscardAmount, () -> queue.limit(0, 0, 0), () -> group.add(queue),
                () -> group.remove(queue), () -> new QuorlDispatcher(queue),
                () -> new QuorlListener(queue, transport, "a", (l, m) -> {}),
                () -> new QuorlVectorListener(queue, transport, "a", (l, m) -> {}),
                () -> new QuorlTimer(queue, Duration.ZERO, t -> {}))) {
            assertEquals(QuorlException.INVALID_QUEUE, assertThrows(QuorlClosedException.class, call).getStatus());
        }
        assertEquals("QuorlQueue[closed]", queue.toString());
        group.close();
        group.close();
        assertThrows(QuorlClosedException.class, group::poll);
        assertThrows(QuorlClosedException.class, group::dispatch);
        assertThrows(QuorlClosedException.class, () -> new QuorlDispatcher(group));
        assertEquals("QuorlQueueGroup[closed]", group.toString());
    }

    @Test
    void groupsGoByPriority() {
        List<Integer> got = new ArrayList<>();
        try (QuorlQueue high = new QuorlQueue(); QuorlQueueGroup group = new QuorlQueueGroup();
                QuorlListener low = new QuorlListener(queue, transport, "low", (l, m) -> got.add(m.getI32("n")));
                QuorlListener up = new QuorlListener(high, transport, "high", (l, m) -> got.add(m.getI32("n")))) {
            high.setPriority(2);
            group.add(queue);
            group.add(high);
            assertStatus(QuorlException.ALREADY_EXISTS, () -> group.add(high));
            send("low", 1);
            send("high", 2);
            send("low", 3);
            send("high", 4);
            drain(group);
            assertEquals(List.of(2, 4, 1, 3), got);
            group.remove(high);
            assertStatus(QuorlException.INVALID_QUEUE, () -> group.remove(high));
            send("high", 5);
            settle();
            assertFalse(group.poll());
            assertTrue(high.poll());
            assertThrows(NullPointerException.class, () -> group.add(null));
        }
    }

    @Test
    void whatAHandlerThrowsComesOut() {
        RuntimeException unchecked = new RuntimeException("mine");
        Exception checked = new Exception("mine");
        Exception[] next = new Exception[1];
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            throw next[0];
        })) {
            next[0] = unchecked;
            send("a", 1);
            settle();
            assertSame(unchecked, assertThrows(RuntimeException.class, queue::poll));
            next[0] = checked;
            send("a", 2);
            settle();
            assertSame(checked, assertThrows(UndeclaredThrowableException.class, queue::poll).getCause());
            assertFalse(queue.poll());
        }
    }

    @Test
    void handlersMayDispatch() {
        List<Integer> got = new ArrayList<>();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            queue.poll();
            got.add(m.getI32("n"));
        })) {
            for (int i = 0; i < 5; i++) {
                send("a", i);
            }
            settle();
            assertTrue(queue.poll());
            assertEquals(List.of(4, 3, 2, 1, 0), got);
            assertFalse(queue.poll());
        }
    }

    @Test
    void interruptsLoseNothing() throws Exception {
        int count = 5_000;
        List<Integer> got = Collections.synchronizedList(new ArrayList<>());
        AtomicInteger interrupted = new AtomicInteger();
        try (QuorlQueueGroup group = new QuorlQueueGroup();
                QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> got.add(m.getI32("n")))) {
            group.add(queue);
            Worker reader = new Worker(() -> {
                for (int i = 0; got.size() < count; i++) {
                    try {
                        if (i % 2 == 0) {
                            queue.dispatch(LIMIT);
                        } else {
                            group.dispatch(LIMIT);
                        }
                    } catch (InterruptedException e) {
                        interrupted.incrementAndGet();
                    }
                }
            });
            for (int i = 0; i < count; i++) {
                send("a", i);
                if (i % 3 == 0) {
                    reader.thread.interrupt();
                }
                if (i % 100 == 0) {
                    int sent = i + 1;
                    await(() -> got.size() == sent);
                }
            }
            reader.join();
        }
        assertEquals(IntStream.range(0, count).boxed().collect(Collectors.toList()), got);
        assertTrue(interrupted.get() > 0);
    }
}
