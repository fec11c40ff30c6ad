package com.vesma.quorl;

import java.time.Duration;
import java.util.Objects;
import java.util.function.IntConsumer;

/**
 * What can be dispatched: a queue or a group of queues.
 */
abstract class Dispatchable extends LibraryObject {
    /** Beyond this the library waits for ever: some 292 years, the range of nanoseconds in a long. */
    private static final Duration LONGEST = Duration.ofNanos(Long.MAX_VALUE);

    Dispatchable(int id, IntConsumer destroy) {
        super(id, destroy);
    }

    /**
     * Runs the native dispatch: the event's Java object, null for an event that left none, or a plain
     * {@link QuorlEvent} for none in time. seconds below 0 wait for ever.
     */
    abstract Object dispatchNative(double seconds);

    /**
     * Waits for the next event and runs its handler on this thread.
     *
     * <p>What the handler throws comes out of this method; a checked exception comes wrapped in an
     * {@link java.lang.reflect.UndeclaredThrowableException}.
     *
     * @throws InterruptedException if the thread is interrupted before or during the wait
     * @throws QuorlClosedException if this is closed, also during the wait
     */
    public void dispatch() throws InterruptedException {
        Dispatching.current().dispatch(this, -1);
    }

    /**
     * Waits for the next event, but not longer than a limit, and runs its handler on this thread.
     *
     * @param limit the longest wait, 0 or more; 0 looks without waiting
     * @return whether an event came
     * @throws InterruptedException if the thread is interrupted before or during the wait
     * @throws QuorlClosedException if this is closed, also during the wait
     */
    public boolean dispatch(Duration limit) throws InterruptedException {
        return Dispatching.current().dispatch(this, seconds(limit, "limit"));
    }

    /**
     * Runs the handler of the next event that waits, if there is one, on this thread.
     *
     * @return whether there was one
     */
    public boolean poll() {
        return Dispatching.current().poll(this);
    }

    /** A time limit as the library takes it. */
    static double seconds(Duration limit, String what) {
        Objects.requireNonNull(limit, what);
        if (limit.isNegative()) {
            throw new IllegalArgumentException(what + " is negative: " + limit);
        }
        return nanos(limit) / 1e9;
    }

    /** A time limit of 0 or more in nanoseconds, or as many as there can be. */
    static long nanos(Duration limit) {
        return limit.compareTo(LONGEST) >= 0 ? Long.MAX_VALUE : limit.toNanos();
    }
}
