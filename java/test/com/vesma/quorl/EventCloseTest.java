package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Random;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;

/** Closing while messages are under way: from any thread, in any order, inside handlers. */
class EventCloseTest extends OpenLibrary {
    @Test
    void noHandlerRunsAfterClose() throws Exception {
        AtomicBoolean end = new AtomicBoolean();
        Worker sender = new Worker(() -> {
            while (!end.get()) {
                send("a", 1);
            }
        });
        queue.limit(QuorlQueue.DISCARD_NEW, 1000, 1);
        try (QuorlQueueGroup group = new QuorlQueueGroup()) {
            group.add(queue);
            AtomicBoolean stop = new AtomicBoolean();
            try (QuorlDispatcher first = new QuorlDispatcher(queue); QuorlDispatcher second = new QuorlDispatcher(group)) {
                Worker own = new Worker(() -> {
                    while (!stop.get()) {
                        queue.dispatch(Duration.ofMillis(1));
                    }
                });
                for (int i = 0; i < 500; i++) {
                    AtomicBoolean closed = new AtomicBoolean();
                    AtomicInteger late = new AtomicInteger();
                    AtomicInteger heard = new AtomicInteger();
                    QuorlEvent event = i % 3 == 0
                            ? new QuorlVectorListener(queue, transport, "a", (l, m) -> {
                                heard.incrementAndGet();
                                late.addAndGet(closed.get() ? 1 : 0);
                            })
                            : new QuorlListener(queue, transport, "a", (l, m) -> {
                                heard.incrementAndGet();
                                late.addAndGet(closed.get() ? 1 : 0);
                            });
                    if (i % 2 == 0) {
                        await(() -> heard.get() > 0);
                    }
                    event.close();
                    closed.set(true);
                    if (i % 50 == 0) {
                        System.gc();
                    }
                    assertEquals(0, late.get());
                }
                stop.set(true);
                own.join();
            }
        } finally {
            end.set(true);
            sender.join();
        }
    }

    @Test
    void closeWaitsForAHandlerElsewhere() throws Exception {
        CountDownLatch inside = new CountDownLatch(1);
        CountDownLatch leave = new CountDownLatch(1);
        AtomicBoolean left = new AtomicBoolean();
        try (QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
            QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
                inside.countDown();
                await(leave);
                left.set(true);
            });
            send("a", 1);
            await(inside);
            AtomicBoolean early = new AtomicBoolean();
            Worker closer = new Worker(() -> {
                listener.close();
                early.set(!left.get());
            });
            await(() -> closer.thread.getState() == Thread.State.TIMED_WAITING);
            leave.countDown();
            closer.join();
            assertFalse(early.get());
        }
    }

    @Test
    void queueCloseWaitsForAHandlerElsewhere() throws Exception {
        CountDownLatch inside = new CountDownLatch(1);
        CountDownLatch leave = new CountDownLatch(1);
        AtomicBoolean left = new AtomicBoolean();
        try (QuorlQueue closing = new QuorlQueue(); QuorlDispatcher dispatcher = new QuorlDispatcher(closing);
                QuorlListener listener = new QuorlListener(closing, transport, "a", (l, m) -> {
                    inside.countDown();
                    await(leave);
                    left.set(true);
                })) {
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
        }
    }

    @Test
    void aHandlerMayCloseItsOwnEvent() {
        int[] got = new int[2];
        try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {
            l.close();
            got[0]++;
            assertEquals(1, m.getI32("n"));
        }); QuorlTimer timer = new QuorlTimer(queue, Duration.ZERO, t -> {
            t.close();
            got[1]++;
        })) {
            send("a", 1);
            send("a", 2);
            drain(queue);
            assertTrue(listener.isClosed() && timer.isClosed());
        } finally {
            assertEquals(List.of(1, 1), List.of(got[0], got[1]));
        }
    }

    @Test
    void aHandlerMayCloseEverything() throws Exception {
        QuorlQrdTransport own = new QuorlQrdTransport();
        QuorlQueue first = new QuorlQueue();
        QuorlDispatcher dispatcher = new QuorlDispatcher(first);
        CountDownLatch done = new CountDownLatch(1);
        new QuorlListener(first, own, "a", (l, m) -> {
            first.close();
            own.close();
            l.close();
            dispatcher.close();
            assertEquals(7, m.getI32("n"));
            done.countDown();
        });
        try (QuorlMsg message = new QuorlMsg("a").addI32("n", 7)) {
            own.send(message);
        }
        await(done);
        dispatcher.getThread().join(LIMIT.toMillis());
        assertFalse(dispatcher.getThread().isAlive());
    }

    @Test
    void handlersThatCloseEachOthersEventsEnd() throws Exception {
        for (int i = 0; i < 100; i++) {
            int parties = 2 + i % 2;
            CountDownLatch all = new CountDownLatch(parties);
            CountDownLatch done = new CountDownLatch(parties);
            List<QuorlEvent> events = Collections.synchronizedList(new ArrayList<>());
            List<QuorlDispatcher> dispatchers = new ArrayList<>();
            try (QuorlQueue shared = new QuorlQueue()) {
                for (int p = 0; p < parties; p++) {
                    int next = (p + 1) % parties;
                    events.add(new QuorlListener(shared, transport, "a" + p, (l, m) -> {
                        all.countDown();
                        await(all);
                        events.get(next).close();
                        done.countDown();
                    }));
                    dispatchers.add(new QuorlDispatcher(shared));
                }
                for (int p = 0; p < parties; p++) {
                    send("a" + p, 1);
                }
                await(done);
                dispatchers.forEach(QuorlDispatcher::close);
            }
        }
    }

    @Test
    void everyOrderOfClosing() throws Exception {
        Random random = new Random(1);
        for (int i = 0; i < 200; i++) {
            Quorl nested = Quorl.open();
            QuorlQrdTransport own = new QuorlQrdTransport();
            QuorlQueue mine = new QuorlQueue();
            QuorlQueueGroup group = new QuorlQueueGroup();
            group.add(mine);
            List<AutoCloseable> all = new ArrayList<>(List.of(nested, own, mine, group, new QuorlDispatcher(mine),
                    new QuorlDispatcher(group), new QuorlListener(mine, own, "a.>", (l, m) -> m.getI32("n")),
                    new QuorlVectorListener(mine, own, ">", (l, m) -> m.get(0).getI32("n")),
                    new QuorlTimer(mine, Duration.ofNanos(100_000), t -> {})));
            try (QuorlMsg message = new QuorlMsg("a.b").addI32("n", 1)) {
                for (int n = 0; n < 10; n++) {
                    own.send(message);
                }
            }
            Collections.shuffle(all, random);
            for (AutoCloseable each : all) {
                each.close();
            }
            Collections.shuffle(all, random);
            for (AutoCloseable each : all) {
                each.close();
            }
        }
    }

    @Test
    void threadsCloseTheSameThings() throws Exception {
        for (int i = 0; i < 100; i++) {
            QuorlQueue mine = new QuorlQueue();
            QuorlQrdTransport own = new QuorlQrdTransport();
            List<AutoCloseable> all = List.of(own, mine, new QuorlDispatcher(mine),
                    new QuorlListener(mine, own, "a", (l, m) -> l.close()), new QuorlListener(mine, own, "a", (l, m) -> mine.close()));
            try (QuorlMsg message = new QuorlMsg("a")) {
                own.send(message);
            }
            List<Worker> workers = new ArrayList<>();
            for (int w = 0; w < 3; w++) {
                List<AutoCloseable> order = new ArrayList<>(all);
                Collections.shuffle(order, new Random(i * 3 + w));
                workers.add(new Worker(() -> {
                    for (AutoCloseable each : order) {
                        each.close();
                    }
                }));
            }
            for (Worker worker : workers) {
                worker.join();
            }
        }
    }

    @Test
    void forgottenQueuesAndTransportsAreCleanedUp() throws Exception {
        int queueId = forgetQueue();
        int transportId = forgetTransport();
        long end = System.nanoTime() + LIMIT.toNanos();
        while (Quorl.quorl_IsValid(queueId, 2) || Quorl.quorl_IsValid(transportId, 4)) {
            assertTrue(System.nanoTime() < end, "not cleaned up");
            System.gc();
            Thread.onSpinWait();
        }
    }

    private int forgetQueue() {
        return new QuorlQueue().idOrZero();
    }

    private int forgetTransport() {
        return new QuorlQrdTransport().idOrZero();
    }
}
