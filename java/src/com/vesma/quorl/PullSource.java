package com.vesma.quorl;

import java.util.Objects;
import java.util.Queue;
import java.util.Spliterator;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.Flow;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.function.BooleanSupplier;
import java.util.function.Consumer;
import java.util.stream.Stream;
import java.util.stream.StreamSupport;

/**
 * The messages of a listener without a handler, for the one stream or subscriber that asks for them.
 *
 * <p>Asking dispatches the listener's queue, so what nobody has asked for waits there, under the queue's limit. When
 * another thread of the program dispatches that queue all the same, what it takes waits here instead; nothing is lost.
 */
final class PullSource {
    private final QuorlListener listener;

    /** Whether there is a stream or a subscriber. */
    private final AtomicBoolean begun = new AtomicBoolean();

    /** Messages that another thread has dispatched, or the asking one beyond what it may pass on. */
    private final Queue<QuorlMsg> waiting = new ConcurrentLinkedQueue<>();

    /** The thread that asks, null while none waits for a message. */
    private volatile Dispatching asking;

    /** Who takes the messages on the asking thread, null for a stream, which takes them from waiting. */
    private volatile Subscription subscription;

    PullSource(QuorlListener listener) {
        this.listener = listener;
    }

    /** A message of the listener, on the thread that dispatched it, as its handler. */
    void arrived(QuorlMsg message) {
        Subscription to = subscription;
        if (to != null && to.passOn(message)) {
            return;
        }
        waiting.add(message);
        if (listener.isDropped()) {
            // Whoever has ended the listener may have looked before.
            drain();
            return;
        }
        Dispatching other = asking;
        if (other != null && other != Dispatching.current()) {
            other.signal(listener.getQueue());
        }
    }

    QuorlMsg poll() {
        return waiting.poll();
    }

    /**
     * Dispatches one event of the queue on this thread, unless a message waits, the listener has ended, or stop says so.
     * What another event's handler throws comes out of here.
     */
    void dispatchOne(BooleanSupplier stop) throws InterruptedException {
        Dispatching self = Dispatching.current();
        asking = self;
        try {
            self.dispatchUnless(listener.getQueue(),
                    () -> listener.isDropped() || !waiting.isEmpty() || stop.getAsBoolean());
        } catch (QuorlException e) {
            if (!listener.isDropped() && listener.getQueue().exists()) {
                throw e;
            }
            listener.close();
        } finally {
            asking = null;
        }
    }

    /** The listener or its queue was closed. */
    void ended() {
        drain();
        Subscription to = subscription;
        if (to != null) {
            to.listenerEnded();
        }
    }

    private void drain() {
        for (QuorlMsg message = waiting.poll(); message != null; message = waiting.poll()) {
            message.close();
        }
    }

    private void begin() {
        if (!begun.compareAndSet(false, true)) {
            throw new IllegalStateException("the listener's messages go to a stream or a subscriber already");
        }
    }

    // ---- stream ---------------------------------------------------------------------------------------------------

    Stream<QuorlMsg> stream() {
        begin();
        Items items = new Items();
        return StreamSupport.stream(items, false).onClose(() -> {
            listener.close();
            items.endLast();
        });
    }

    private final class Items implements Spliterator<QuorlMsg> {
        /** Valid until the next is asked for. */
        private QuorlMsg last;

        @Override
        public boolean tryAdvance(Consumer<? super QuorlMsg> action) {
            endLast();
            QuorlMsg next = next();
            if (next == null) {
                return false;
            }
            last = next;
            action.accept(next);
            return true;
        }

        private QuorlMsg next() {
            for (;;) {
                QuorlMsg next = poll();
                if (next != null || listener.isDropped()) {
                    return next;
                }
                try {
                    dispatchOne(() -> false);
                } catch (InterruptedException e) {
                    Thread.currentThread().interrupt();
                    throw new QuorlException(QuorlException.INTR, "while waiting for a message of " + listener);
                }
            }
        }

        void endLast() {
            QuorlMsg ended = last;
            last = null;
            if (ended != null) {
                ended.endOfHandler();
            }
        }

        /** One thread at a time takes messages, also of a parallel stream. */
        @Override
        public Spliterator<QuorlMsg> trySplit() {
            return null;
        }

        @Override
        public long estimateSize() {
            return Long.MAX_VALUE;
        }

        @Override
        public int characteristics() {
            return ORDERED | NONNULL;
        }
    }

    // ---- publisher ------------------------------------------------------------------------------------------------

    void subscribe(Flow.Subscriber<? super QuorlMsg> subscriber) {
        Objects.requireNonNull(subscriber, "subscriber");
        if (!begun.compareAndSet(false, true)) {
            Subscription.refuse(subscriber, "the listener's messages go to a stream or a subscriber already");
            return;
        }
        Subscription made = new Subscription(listener, this, subscriber);
        subscription = made;
        made.start();
    }
}
