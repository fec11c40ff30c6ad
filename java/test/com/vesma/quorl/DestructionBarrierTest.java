package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicBoolean;
import org.junit.jupiter.api.Test;

/** The gate between destruction and delivery, with threads that stand still where real ones pass in nanoseconds. */
class DestructionBarrierTest extends OpenLibrary {
    /** Stands inside the library with target, as far as the gate can tell, until released. */
    private static final class Inside {
        private final CountDownLatch in = new CountDownLatch(1);
        private final CountDownLatch out = new CountDownLatch(1);
        private final Worker worker;

        Inside(Object target) throws Exception {
            worker = new Worker(() -> {
                Dispatching.current().now = target;
                in.countDown();
                await(out);
                Dispatching.current().now = null;
            });
            await(in);
        }

        void leave() throws Exception {
            out.countDown();
            worker.join();
        }
    }

    private static void assertWaits(QuorlQueue queue, Object target, boolean waits) throws Exception {
        Inside inside = new Inside(target);
        List<String> order = Collections.synchronizedList(new ArrayList<>());
        Worker closer = new Worker(() -> DestructionBarrier.destroy(queue, () -> order.add("destroyed")));
        if (waits) {
            await(() -> closer.thread.getState() == Thread.State.TIMED_WAITING);
        } else {
            closer.join();
        }
        order.add("left");
        inside.leave();
        closer.join();
        assertEquals(waits ? List.of("left", "destroyed") : List.of("destroyed", "left"), order);
    }

    @Test
    void destructionWaitsForThreadsInsideWithTheQueue() throws Exception {
        assertWaits(queue, queue, true);
    }

    @Test
    void destructionPassesThreadsElsewhere() throws Exception {
        try (QuorlQueue other = new QuorlQueue(); QuorlQueueGroup group = new QuorlQueueGroup();
                QuorlTimer timer = new QuorlTimer(queue, LIMIT, t -> {})) {
            assertWaits(queue, other, false);
            assertWaits(queue, timer, false);
            group.add(other);
            assertWaits(queue, group, false);
        }
    }

    @Test
    void destructionWaitsForGroupsThatHaveHeldTheQueue() throws Exception {
        try (QuorlQueueGroup group = new QuorlQueueGroup()) {
            group.add(queue);
            assertWaits(queue, group, true);
            group.remove(queue);
            assertWaits(queue, group, true);
        }
    }

    @Test
    void nobodyGoesInWhileTheGateIsClosed() throws Exception {
        send("a", 1);
        CountDownLatch closed = new CountDownLatch(1);
        CountDownLatch open = new CountDownLatch(1);
        AtomicBoolean heard = new AtomicBoolean();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> heard.set(true));
                QuorlQueue other = new QuorlQueue();
                QuorlListener elsewhere = new QuorlListener(other, transport, "a", (l, m) -> {})) {
            send("a", 1);
            Worker closer = new Worker(() -> DestructionBarrier.destroy(queue, () -> {
                closed.countDown();
                try {
                    await(open);
                } catch (InterruptedException e) {
                    throw new IllegalStateException(e);
                }
            }));
            await(closed);
            Worker dispatching = new Worker(queue::poll);
            await(() -> dispatching.thread.getState() == Thread.State.WAITING);
            assertFalse(heard.get());
            assertTrue(other.poll(), "another queue's dispatch does not wait");
            open.countDown();
            closer.join();
            dispatching.join();
            assertTrue(heard.get());
        }
    }

    @Test
    void sleepersAreWokenForADestruction() throws Exception {
        Worker sleeper = new Worker(() -> {
            while (queue.dispatch(LIMIT)) {}
        });
        await(() -> {
            StackTraceElement[] stack = sleeper.thread.getStackTrace();
            return stack.length > 0 && stack[0].isNativeMethod();
        });
        long start = System.nanoTime();
        DestructionBarrier.destroy(queue, () -> {});
        assertTrue(System.nanoTime() - start < LIMIT.toNanos() / 2, "the sleeper was not woken");
        sleeper.thread.interrupt();
        sleeper.thread.join();
    }

    @Test
    void noneIsMissedWhereHandlersNest() throws Exception {
        List<String> seen = Collections.synchronizedList(new ArrayList<>());
        Dispatching self = Dispatching.current();
        QuorlListener[] inner = new QuorlListener[1];
        try (QuorlQueue other = new QuorlQueue();
                QuorlListener outer = new QuorlListener(queue, transport, "outer", (l, m) -> {
                    other.poll();
                    seen.add("outer " + self.runs(l) + self.runs(inner[0]) + self.runsEventOf(queue));
                });
                QuorlListener nested = new QuorlListener(other, transport, "inner",
                        (l, m) -> seen.add("inner " + self.runs(outerOf(self)) + self.runs(l) + self.runsEventOf(queue)))) {
            inner[0] = nested;
            send("inner", 1);
            send("outer", 1);
            queue.poll();
            assertEquals(List.of("inner truetruetrue", "outer truefalsetrue"), seen);
            assertFalse(self.runs(outer) || self.runs(nested) || self.runsEventOf(queue));
        }
    }

    private static QuorlEvent outerOf(Dispatching thread) {
        return thread.outer.event;
    }
}
