package com.vesma.quorl;

import com.vesma.quorl.internal.threads.Uncaught;
import java.util.concurrent.Flow;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.locks.Condition;
import java.util.concurrent.locks.ReentrantLock;

/**
 * One subscriber to the messages of a listener: a thread that dispatches the listener's queue while there is demand.
 *
 * <p>The subscriber is called by that thread alone, once it was told of the subscription. A message is passed on as to a
 * handler, so a close of the listener waits for it.
 */
final class Subscription implements Flow.Subscription {
    private static final AtomicInteger COUNT = new AtomicInteger();

    private final QuorlListener listener;
    private final PullSource pull;
    private final Flow.Subscriber<? super QuorlMsg> subscriber;
    private final Thread thread;

    private final ReentrantLock lock = new ReentrantLock();
    private final Condition changed = lock.newCondition();

    /** Messages that may still be passed on. Guarded by lock. */
    private long demand;

    /** What the subscriber did wrong, null for nothing. Guarded by lock. */
    private Throwable misuse;

    /** Whether the subscriber wants nothing any more. Written under lock. */
    private volatile boolean cancelled;

    /** Whether the thread is to look at the above. Written under lock. */
    private volatile boolean ending;

    /** The thread's part in dispatching, null until it runs. */
    private volatile Dispatching worker;

    /** Whether the thread is inside onNext. Used by that thread alone. */
    private boolean passing;

    Subscription(QuorlListener listener, PullSource pull, Flow.Subscriber<? super QuorlMsg> subscriber) {
        this.listener = listener;
        this.pull = pull;
        this.subscriber = subscriber;
        thread = new Thread(this::run, "quorl-publisher-" + COUNT.incrementAndGet());
        thread.setDaemon(true);
    }

    /** Tells a subscriber that it gets nothing. */
    static void refuse(Flow.Subscriber<?> subscriber, String why) {
        subscriber.onSubscribe(new Flow.Subscription() {
            @Override
            public void request(long count) {}

            @Override
            public void cancel() {}
        });
        subscriber.onError(new IllegalStateException(why));
    }

    void start() {
        try {
            subscriber.onSubscribe(this);
        } catch (Throwable e) {
            cancel();
            listener.close();
            throw e;
        }
        thread.start();
    }

    @Override
    public void request(long count) {
        lock.lock();
        try {
            if (count <= 0) {
                if (misuse == null) {
                    misuse = new IllegalArgumentException("a subscriber asked for " + count + " messages, not for 1 or more");
                }
                ending = true;
            } else {
                demand = count > Long.MAX_VALUE - demand ? Long.MAX_VALUE : demand + count;
            }
            changed.signal();
        } finally {
            lock.unlock();
        }
        if (ending) {
            wake();
        }
    }

    @Override
    public void cancel() {
        lock.lock();
        try {
            cancelled = true;
            ending = true;
            changed.signal();
        } finally {
            lock.unlock();
        }
        wake();
    }

    void listenerEnded() {
        lock.lock();
        try {
            changed.signal();
        } finally {
            lock.unlock();
        }
        wake();
    }

    /** Out of the library's dispatch; whoever calls has told before what is to be looked at. */
    private void wake() {
        Dispatching inside = worker;
        if (inside != null && inside != Dispatching.current()) {
            inside.signal(listener.getQueue());
        }
    }

    /** Waits for demand; false when there is nothing more to do. */
    private boolean awaitDemand() {
        lock.lock();
        try {
            while (demand == 0 && !ending && !listener.isDropped()) {
                changed.awaitUninterruptibly();
            }
            return !ending && !listener.isDropped();
        } finally {
            lock.unlock();
        }
    }

    private void run() {
        worker = Dispatching.current();
        while (awaitDemand()) {
            try {
                QuorlMsg waiting = pull.poll();
                if (waiting != null) {
                    worker.run(listener, waiting);
                } else {
                    pull.dispatchOne(() -> ending);
                }
            } catch (InterruptedException e) {
                // Nobody but the program can have done it, and it says how to end this: by cancelling.
                continue;
            } catch (Throwable e) {
                // Of another event on the queue, or of onNext, which has cancelled then.
                Uncaught.report(thread.getUncaughtExceptionHandler(), e);
            }
        }
        listener.close();
        try {
            end();
        } catch (Throwable e) {
            Uncaught.report(thread.getUncaughtExceptionHandler(), e);
        }
        DestructionBarrier.remove(worker);
    }

    private void end() {
        if (cancelled) {
            return;
        }
        Throwable why;
        lock.lock();
        try {
            why = misuse;
        } finally {
            lock.unlock();
        }
        if (why != null) {
            subscriber.onError(why);
        } else {
            subscriber.onComplete();
        }
    }

    /** Passes a message on if this is the thread and the time for it; the message then ends here. */
    boolean passOn(QuorlMsg message) {
        if (Thread.currentThread() != thread || passing) {
            return false;
        }
        lock.lock();
        try {
            if (demand == 0 || ending) {
                return false;
            }
            if (demand != Long.MAX_VALUE) {
                demand--;
            }
        } finally {
            lock.unlock();
        }
        passing = true;
        try {
            subscriber.onNext(message);
        } catch (Throwable e) {
            cancel();
            throw e;
        } finally {
            passing = false;
            message.endOfHandler();
        }
        return true;
    }
}
