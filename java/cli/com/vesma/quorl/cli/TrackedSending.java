package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmDelivery;
import com.vesma.quorl.QuorlCmDeliveryException;
import com.vesma.quorl.QuorlCmMsg;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlMsg;
import java.util.HashMap;
import java.util.Map;
import java.util.concurrent.CompletableFuture;
import java.util.function.LongConsumer;

/** Sends messages by certified delivery, and counts what becomes of them. */
final class TrackedSending {
    private final QuorlCmTransport through;

    /** The first number on each subject. Guarded by this, as all below. */
    private final Map<String, Long> firsts = new HashMap<>();
    private String sender;
    private long confirmed;
    private long failed;
    private String firstFailure;

    TrackedSending(QuorlCmTransport through) {
        this.through = through;
    }

    void send(QuorlMsg message) {
        CompletableFuture<QuorlCmDelivery> told = through.sendTracked(message);
        synchronized (this) {
            sender = QuorlCmMsg.getSender(message);
            firsts.putIfAbsent(message.getSendSubject(), QuorlCmMsg.getSequence(message));
        }
        told.whenComplete((delivery, failure) -> {
            if (delivery != null) {
                ended(null);
            } else if (failure instanceof QuorlCmDeliveryException undelivered) {
                ended(undelivered);
            }
        });
    }

    /** Whether one of those that were sent here is meant. */
    synchronized boolean isOurs(String who, String subject, long number) {
        Long first = firsts.get(subject);
        return who.equals(sender) && first != null && Long.compareUnsigned(number, first) >= 0;
    }

    private synchronized void ended(QuorlCmDeliveryException failure) {
        if (failure == null) {
            confirmed++;
        } else {
            failed++;
            if (firstFailure == null) firstFailure = failure.getDetail();
        }
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
}
