package com.vesma.quorl.cli;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;

/**
 * Turns Ctrl-C, or another end that the process is asked for, into an interruption of the thread that works, and lets it
 * finish in good order: what it has sent reaches the daemon before the process ends. The exit code is the signal's.
 */
final class Interruption implements AutoCloseable {
    /** Seconds that the work may take to end. */
    private static final long PATIENCE = 10;

    private final Thread worker = Thread.currentThread();
    private final CountDownLatch ended = new CountDownLatch(1);
    private final Thread atExit = new Thread(this::interrupt, "quorl-interrupt");
    private volatile boolean requested;

    Interruption() {
        Runtime.getRuntime().addShutdownHook(atExit);
    }

    boolean requested() {
        return requested;
    }

    private void interrupt() {
        requested = true;
        worker.interrupt();
        try {
            ended.await(PATIENCE, TimeUnit.SECONDS);
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
