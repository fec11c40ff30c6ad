package com.vesma.quorl;

import java.lang.ref.Reference;
import java.time.Duration;
import java.util.Objects;

/**
 * An event at a fixed interval, without drift.
 *
 * <p>At most one event of a timer waits at a time: a queue that is dispatched late gets one event, not a burst. With
 * interval 0 it fires as often as it is dispatched. The handler runs on the threads that dispatch the queue, until the
 * timer is closed.
 *
 * <pre>{@code
 * try (QuorlTimer timer = new QuorlTimer(queue, Duration.ofSeconds(10), t -> report())) {
 *     queue.dispatch();
 * }
 * }</pre>
 */
public final class QuorlTimer extends QuorlEvent {
    /** What is run each time. */
    @FunctionalInterface
    public interface Handler {
        /**
         * Takes one tick.
         *
         * @param timer the timer that fired
         * @throws Exception for the dispatching thread to deal with
         */
        void onTimer(QuorlTimer timer) throws Exception;
    }

    private final Handler handler;

    /**
     * Starts a timer; it fires first after one interval.
     *
     * @param queue where the events wait to be dispatched
     * @param interval 0 or more
     * @param handler what is run each time
     * @throws QuorlException {@link QuorlException#NOT_INITIALIZED} when the library is not open
     * @throws QuorlClosedException if the queue is closed
     */
    public QuorlTimer(QuorlQueue queue, Duration interval, Handler handler) {
        super(Objects.requireNonNull(queue, "queue"));
        this.handler = Objects.requireNonNull(handler, "handler");
        double seconds = Dispatchable.seconds(interval, "interval");
        try {
            create(() -> quorlEvent_CreateTimer(queue.id(), seconds));
        } catch (QuorlException e) {
            throw queue.refused(e);
        } finally {
            Reference.reachabilityFence(queue);
        }
    }

    /**
     * The interval.
     *
     * @return as it was set, to the nanosecond
     */
    public Duration getInterval() {
        return Duration.ofNanos(Math.round(quorlEvent_GetInterval(id()) * 1e9));
    }

    /**
     * Sets the interval and starts it anew from now.
     *
     * @param interval 0 or more
     */
    public void setInterval(Duration interval) {
        quorlEvent_ResetTimerInterval(id(), Dispatchable.seconds(interval, "interval"));
    }

    @Override
    Object take() {
        return this;
    }

    @Override
    void run(Object taken) throws Exception {
        if (!isDropped()) {
            handler.onTimer(this);
        }
    }

    @Override
    public String toString() {
        return "QuorlTimer[" + (isClosed() ? "closed" : getInterval()) + "]";
    }

    native int quorlEvent_CreateTimer(int queueId, double interval);
    static native double quorlEvent_GetInterval(int timerId);
    static native void quorlEvent_ResetTimerInterval(int timerId, double interval);
}
