package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmDelivery;
import com.vesma.quorl.QuorlCmDeliveryException;
import com.vesma.quorl.QuorlCmMsg;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlMsg;
import java.time.Duration;
import java.util.Map;
import java.util.TreeMap;
import java.util.function.Consumer;
import java.util.function.LongConsumer;

/** Sends messages by certified delivery, and counts what becomes of them. */
final class TrackedSending {
    private final QuorlCmTransport through;
    private final Double expire;
    private final Consumer<QuorlCmDelivery> outcome;

    /** Confirmed messages by the listeners' names. Guarded by this, as all below. */
    private final Map<String, Long> confirmations = new TreeMap<>();
    private long confirmed;
    private long failed;
    private String firstFailure;

    /**
     * Begins to count.
     *
     * @param expire seconds after which what is not confirmed is given up; null for the transport's own
     * @param outcome told of each message when its fate is known
     */
    TrackedSending(QuorlCmTransport through, Double expire, Consumer<QuorlCmDelivery> outcome) {
        this.through = through;
        this.expire = expire;
        this.outcome = outcome;
    }

    void send(QuorlMsg message) {
        if (expire != null) QuorlCmMsg.setTimeLimit(message, Duration.ofNanos((long) (expire * 1e9)));
        through.sendTracked(message).whenComplete((delivery, failure) -> {
            if (delivery != null) {
                delivered(delivery);
            } else if (failure instanceof QuorlCmDeliveryException undelivered) {
                undelivered(undelivered);
            }
        });
    }

    private synchronized void delivered(QuorlCmDelivery delivery) {
        confirmed++;
        for (String name : delivery.confirmedBy()) confirmations.merge(name, 1L, Long::sum);
        outcome.accept(delivery);
        notifyAll();
    }

    private synchronized void undelivered(QuorlCmDeliveryException failure) {
        failed++;
        if (firstFailure == null) firstFailure = failure.getDetail();
        if (failure.getDelivery() != null) outcome.accept(failure.getDelivery());
        notifyAll();
    }

    /** Waits until the fate of so many is known, or the time has passed; tells how far it is meanwhile. */
    synchronized void await(long sent, double seconds, LongConsumer progress) throws InterruptedException {
        long end = System.nanoTime() + (long) (seconds * 1e9);
        for (;;) {
            long done = confirmed + failed;
            progress.accept(done);
            long left = (end - System.nanoTime()) / 1_000_000 + 1;
            if (done >= sent || left <= 0) return;
            // Progress goes on to be shown, also when nothing is confirmed.
            wait(Math.min(left, 200));
        }
    }

    synchronized long confirmed() {
        return confirmed;
    }

    synchronized long failed() {
        return failed;
    }

    synchronized String firstFailure() {
        return firstFailure;
    }

    synchronized Map<String, Long> confirmations() {
        return new TreeMap<>(confirmations);
    }
}
