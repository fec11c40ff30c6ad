package com.vesma.quorl.cli;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;

/**
 * Turns Ctrl-C, or another end that the process is asked for, into an interruption of the thread that works, and lets it
 * finish in good order: what it has sent reaches the daemon before the process ends. The exit code is the signal's.
 */
final class Interruption implements AutoCloseable {
    /** Seconds that the work may take to end. */
    private static final double PATIENCE = 10;

    private final Thread worker = Thread.currentThread();
    private final CountDownLatch ended = new CountDownLatch(1);
    private final Thread atExit = new Thread(this::interrupt, "quorl-interrupt");
    private final long milliseconds;
    private volatile boolean requested;

    /** more: seconds that it may take beyond what is usual. */
    Interruption(double more) {
        milliseconds = (long) Math.min((PATIENCE + more) * 1000, Long.MAX_VALUE);
        Runtime.getRuntime().addShutdownHook(atExit);
    }

    boolean requested() {
        return requested;
    }

    private void interrupt() {
        requested = true;
        worker.interrupt();
        try {
            ended.await(milliseconds, TimeUnit.MILLISECONDS);
        } catch (InterruptedException e) {
            // The process ends in any case.
        }
    }

    @Override
    public void close() {
        ended.countDown();
        try {
            Runtime.getRuntime().removeShutdownHook(atExit);
        } catch (IllegalStateException e) {
            // The process is ending.
        }
    }
}
