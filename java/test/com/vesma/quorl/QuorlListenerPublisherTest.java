package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Flow;
import java.util.concurrent.SubmissionPublisher;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** A listener's messages as a publisher, held against the rules of reactive streams. */
class QuorlListenerPublisherTest extends OpenLibrary {
    /** Records what it is called with, and whether two calls overlap. */
    private class Recorder implements Flow.Subscriber<QuorlMsg> {
        final List<Integer> got = Collections.synchronizedList(new ArrayList<>());
        final List<String> signals = Collections.synchronizedList(new ArrayList<>());
        final AtomicInteger inside = new AtomicInteger();
        final AtomicInteger overlaps = new AtomicInteger();
        final CountDownLatch ended = new CountDownLatch(1);
        volatile Flow.Subscription subscription;
        volatile Throwable error;

        private void enter(String signal) {
            overlaps.addAndGet(inside.incrementAndGet() - 1);
            signals.add(signal);
        }

        @Override
        public void onSubscribe(Flow.Subscription made) {
            enter("subscribe");
            subscription = made;
            inside.decrementAndGet();
        }

        @Override
        public void onNext(QuorlMsg message) {
            enter("next");
            try {
                got.add(message.getI32("n"));
                next(message);
            } finally {
                inside.decrementAndGet();
            }
        }

        void next(QuorlMsg message) {}

        @Override
        public void onError(Throwable thrown) {
            enter("error");
            error = thrown;
            inside.decrementAndGet();
            ended.countDown();
        }

        @Override
        public void onComplete() {
            enter("complete");
            inside.decrementAndGet();
            ended.countDown();
        }
    }

    private static List<Integer> upTo(int end) {
        return IntStream.range(0, end).boxed().collect(Collectors.toList());
    }

    private void sendAll(int from, int to) {
        for (int i = from; i < to; i++) {
            send("a", i);
        }
    }

    @Test
    void demandDrivesTheDispatch() throws Exception {
        Recorder recorder = new Recorder();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a")) {
            listener.publisher().subscribe(recorder);
            sendAll(0, 20);
            settle();
            assertEquals(List.of("subscribe"), recorder.signals);
            assertEquals(20, queue.getCount(), "nothing was asked for");
            recorder.subscription.request(3);
            await(() -> recorder.got.size() == 3);
            recorder.subscription.request(4);
            recorder.subscription.request(1);
            await(() -> recorder.got.size() == 8);
            assertEquals(12, queue.getCount());
            recorder.subscription.request(Long.MAX_VALUE);
            recorder.subscription.request(Long.MAX_VALUE);
            await(() -> recorder.got.size() == 20);
            sendAll(20, 40);
            await(() -> recorder.got.size() == 40);
        }
        await(recorder.ended);
        assertEquals(upTo(40), recorder.got);
        assertEquals("complete", recorder.signals.get(recorder.signals.size() - 1));
        assertEquals(0, recorder.overlaps.get());
    }

    @Test
    void whatWasNotAskedForIsUnderTheQueuesLimit() throws Exception {
        Recorder recorder = new Recorder();
        queue.limit(QuorlQueue.DISCARD_FIRST, 10, 1);
        try (QuorlListener listener = new QuorlListener(queue, transport, "a")) {
            listener.publisher().subscribe(recorder);
            sendAll(0, 100);
            settle();
            assertEquals(10, queue.getCount());
            recorder.subscription.request(100);
            await(() -> recorder.got.size() == 10);
        }
        await(recorder.ended);
        assertEquals(IntStream.range(90, 100).boxed().collect(Collectors.toList()), recorder.got);
    }

    @Test
    void askingInsideOnNextIsNoRecursion() throws Exception {
        Recorder recorder = new Recorder() {
            @Override
            void next(QuorlMsg message) {
                subscription.request(1);
                assertEquals(1, inside.get());
            }
        };
        try (QuorlListener listener = new QuorlListener(queue, transport, "a")) {
            listener.publisher().subscribe(recorder);
            sendAll(0, 5000);
            recorder.subscription.request(1);
            await(() -> recorder.got.size() == 5000);
        }
        await(recorder.ended);
        assertEquals(upTo(5000), recorder.got);
        assertEquals(0, recorder.overlaps.get());
    }

    @Test
    void manyThreadsMayAsk() throws Exception {
        Recorder recorder = new Recorder();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a")) {
            listener.publisher().subscribe(recorder);
            List<Worker> workers = new ArrayList<>();
            for (int w = 0; w < 4; w++) {
                workers.add(new Worker(() -> {
                    for (int i = 0; i < 500; i++) {
                        recorder.subscription.request(1);
                    }
                }));
            }
            sendAll(0, 2100);
            for (Worker worker : workers) {
                worker.join();
            }
            await(() -> recorder.got.size() == 2000);
            assertEquals(100, queue.getCount());
        }
        await(recorder.ended);
        assertEquals(upTo(2000), recorder.got);
        assertEquals(0, recorder.overlaps.get());
    }

    @Test
    void nothingComesBehindACancelInsideOnNext() throws Exception {
        Recorder recorder = new Recorder() {
            @Override
            void next(QuorlMsg message) {
                if (got.size() == 3) {
                    subscription.cancel();
                    subscription.cancel();
                    subscription.request(5);
                }
            }
        };
        QuorlListener listener = new QuorlListener(queue, transport, "a");
        listener.publisher().subscribe(recorder);
        sendAll(0, 100);
        recorder.subscription.request(100);
        await(listener::isClosed);
        listener.close();
        assertEquals(upTo(3), recorder.got);
        assertEquals(List.of("subscribe", "next", "next", "next"), recorder.signals);
    }

    @Test
    void cancellingFromOutsideEndsTheListener() throws Exception {
        for (int i = 0; i < 50; i++) {
            Recorder recorder = new Recorder();
            QuorlListener listener = new QuorlListener(queue, transport, "a");
            listener.publisher().subscribe(recorder);
            if (i % 2 == 0) {
                recorder.subscription.request(10);
                send("a", 1);
            }
            recorder.subscription.cancel();
            await(listener::isClosed);
            listener.close();
            int last = recorder.signals.size();
            send("a", 2);
            while (queue.poll()) {}
            assertEquals(last, recorder.signals.size());
            assertTrue(recorder.signals.stream().noneMatch(s -> s.equals("complete") || s.equals("error")));
        }
    }

    @Test
    void asksForNothingAreErrors() throws Exception {
        for (long count : new long[] {0, -1, Long.MIN_VALUE}) {
            Recorder recorder = new Recorder();
            QuorlListener listener = new QuorlListener(queue, transport, "a");
            listener.publisher().subscribe(recorder);
            recorder.subscription.request(count);
            await(recorder.ended);
            assertTrue(recorder.error instanceof IllegalArgumentException, String.valueOf(recorder.error));
            assertTrue(recorder.error.getMessage().contains(String.valueOf(count)));
            assertEquals(List.of("subscribe", "error"), recorder.signals);
            assertTrue(listener.isClosed());
        }
    }

    @Test
    void asksInsideOnSubscribeCount() throws Exception {
        Recorder recorder = new Recorder() {
            @Override
            public void onSubscribe(Flow.Subscription made) {
                super.onSubscribe(made);
                made.request(2);
            }
        };
        try (QuorlListener listener = new QuorlListener(queue, transport, "a")) {
            sendAll(0, 5);
            listener.publisher().subscribe(recorder);
            await(() -> recorder.got.size() == 2);
            assertEquals(3, queue.getCount());
        }
        await(recorder.ended);
    }

    @Test
    void eachWayOfClosingCompletes() throws Exception {
        for (int way = 0; way < 3; way++) {
            for (long demand : new long[] {0, 5}) {
                QuorlQueue mine = new QuorlQueue();
                Recorder recorder = new Recorder();
                QuorlListener listener = new QuorlListener(mine, transport, "a");
                listener.publisher().subscribe(recorder);
                if (demand > 0) {
                    recorder.subscription.request(demand);
                }
                if (way == 0) {
                    listener.close();
                } else if (way == 1) {
                    mine.close();
                } else {
                    quorl.close();
                    await(recorder.ended);
                    openLibrary();
                }
                await(recorder.ended);
                assertEquals(List.of("subscribe", "complete"), recorder.signals);
                listener.close();
                mine.close();
            }
        }
    }

    @Test
    void closingWaitsForOnNextAndNothingFollows() throws Exception {
        for (int i = 0; i < 100; i++) {
            AtomicInteger late = new AtomicInteger();
            boolean[] closed = new boolean[1];
            Recorder recorder = new Recorder() {
                @Override
                void next(QuorlMsg message) {
                    synchronized (closed) {
                        late.addAndGet(closed[0] ? 1 : 0);
                    }
                }
            };
            QuorlListener listener = new QuorlListener(queue, transport, "a");
            listener.publisher().subscribe(recorder);
            recorder.subscription.request(Long.MAX_VALUE);
            sendAll(0, 20);
            listener.close();
            synchronized (closed) {
                closed[0] = true;
            }
            await(recorder.ended);
            assertEquals(0, late.get());
            while (queue.poll()) {}
        }
    }

    @Test
    void aSubscriberThatThrowsIsCancelled() throws Exception {
        List<Throwable> reported = Collections.synchronizedList(new ArrayList<>());
        Recorder recorder = new Recorder() {
            @Override
            void next(QuorlMsg message) {
                Thread.currentThread().setUncaughtExceptionHandler((thread, e) -> reported.add(e));
                throw new IllegalStateException("no more");
            }
        };
        QuorlListener listener = new QuorlListener(queue, transport, "a");
        listener.publisher().subscribe(recorder);
        recorder.subscription.request(10);
        sendAll(0, 3);
        await(listener::isClosed);
        await(() -> !reported.isEmpty());
        assertEquals("no more", reported.get(0).getMessage());
        assertEquals(List.of("subscribe", "next"), recorder.signals);
    }

    @Test
    void messagesEndWithOnNextUnlessKept() throws Exception {
        List<QuorlMsg> seen = Collections.synchronizedList(new ArrayList<>());
        Recorder recorder = new Recorder() {
            @Override
            void next(QuorlMsg message) {
                seen.add(got.size() == 2 ? message.keep() : message);
            }
        };
        try (QuorlListener listener = new QuorlListener(queue, transport, "a")) {
            listener.publisher().subscribe(recorder);
            sendAll(0, 3);
            recorder.subscription.request(3);
            await(() -> seen.size() == 3);
        }
        assertEquals(List.of(true, false, true), seen.stream().map(QuorlMsg::isClosed).collect(Collectors.toList()));
        seen.get(1).close();
    }

    @Test
    void whatAnotherThreadDispatchesStillWaitsForDemand() throws Exception {
        Recorder recorder = new Recorder();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a"); QuorlDispatcher rival = new QuorlDispatcher(queue)) {
            listener.publisher().subscribe(recorder);
            sendAll(0, 10);
            await(() -> queue.getCount() == 0);
            assertEquals(List.of("subscribe"), recorder.signals);
            recorder.subscription.request(4);
            await(() -> recorder.got.size() == 4);
            recorder.subscription.request(6);
            await(() -> recorder.got.size() == 10);
        }
        await(recorder.ended);
        assertEquals(0, recorder.overlaps.get());
    }

    @Test
    void aSecondSubscriberIsRefused() throws Exception {
        Recorder first = new Recorder();
        Recorder second = new Recorder();
        try (QuorlListener listener = new QuorlListener(queue, transport, "a")) {
            Flow.Publisher<QuorlMsg> publisher = listener.publisher();
            assertThrows(NullPointerException.class, () -> listener.publisher().subscribe(null));
            Recorder third = new Recorder();
            publisher.subscribe(first);
            publisher.subscribe(second);
            listener.publisher().subscribe(third);
            for (Recorder refused : List.of(second, third)) {
                assertEquals(List.of("subscribe", "error"), refused.signals);
                assertTrue(refused.error instanceof IllegalStateException);
                refused.subscription.request(1);
                refused.subscription.cancel();
            }
            first.subscription.request(1);
            send("a", 0);
            await(() -> first.got.size() == 1);
            assertThrows(IllegalStateException.class, listener::stream);
        }
        await(first.ended);
    }

    @Test
    void aSubscriberThatRefusesTheSubscriptionEndsIt() {
        IllegalStateException thrown = new IllegalStateException("not me");
        QuorlListener listener = new QuorlListener(queue, transport, "a");
        assertSame(thrown, assertThrows(IllegalStateException.class, () -> listener.publisher().subscribe(new Recorder() {
            @Override
            public void onSubscribe(Flow.Subscription made) {
                throw thrown;
            }
        })));
        assertTrue(listener.isClosed());
    }

    @Test
    void itWorksWithTheMachinesOwnProcessors() throws Exception {
        List<Integer> got = Collections.synchronizedList(new ArrayList<>());
        CountDownLatch done = new CountDownLatch(100);
        try (QuorlListener listener = new QuorlListener(queue, transport, "a");
                SubmissionPublisher<Integer> numbers = new SubmissionPublisher<>()) {
            numbers.consume(n -> {
                got.add(n);
                done.countDown();
            });
            listener.publisher().subscribe(new Recorder() {
                @Override
                public void onSubscribe(Flow.Subscription made) {
                    super.onSubscribe(made);
                    made.request(1);
                }

                @Override
                void next(QuorlMsg message) {
                    numbers.submit(message.getI32("n"));
                    subscription.request(1);
                }
            });
            sendAll(0, 100);
            settle();
            await(done);
        }
        assertEquals(upTo(100), got);
    }
}
