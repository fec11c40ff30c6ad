package com.vesma.quorl.internal.threads;

import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.Condition;

/**
 * What the machine's shutdown means for a close that waits for a handler.
 *
 * <p>A handler that calls {@link System#exit} does not return: it waits for the machine's shutdown hooks. A hook that closes
 * what the handler belongs to, or waits for a thread that does, must then not wait for the handler. A thread that is inside
 * the exit is known by its stack. A handler may wait for such a thread in ways that nobody sees, so from the first wait
 * that notices the shutdown all waits together have a limit.
 */
public final class Shutdown {
    /** In nanoseconds. Less than those who end programs by a signal commonly wait before they kill them. */
    private static final long LIMIT = TimeUnit.SECONDS.toNanos(5);

    /** A wait looks this often whether the machine shuts down, in nanoseconds: it tells those alone who leave a hook with it. */
    private static final long SLICE = TimeUnit.MILLISECONDS.toNanos(50);

    /** A thread that is never started, to ask with. */
    private static final Thread NEVER_A_HOOK = new Thread(null, () -> {}, "quorl-never", 0, false);

    private static volatile boolean begun;

    /** When waits end, by the machine's clock; once begun. */
    private static volatile long end;

    private Shutdown() {}

    /** Whether the machine shuts down. */
    public static boolean hasBegun() {
        if (begun) {
            return true;
        }
        try {
            Runtime.getRuntime().removeShutdownHook(NEVER_A_HOOK);
            return false;
        } catch (IllegalStateException e) {
            begin();
            return true;
        } catch (SecurityException e) {
            return false;
        }
    }

    private static synchronized void begin() {
        if (!begun) {
            end = System.nanoTime() + LIMIT;
            begun = true;
        }
    }

    /** Whether no wait for a handler is to go on, since the time for them all is over. */
    public static boolean isOver() {
        return begun && end - System.nanoTime() <= 0;
    }

    /** Whether the thread waits for the end of the machine and never returns. */
    public static boolean holds(Thread thread) {
        if (!hasBegun()) {
            return false;
        }
        for (StackTraceElement frame : thread.getStackTrace()) {
            if (frame.getClassName().equals("java.lang.Shutdown")) {
                return true;
            }
        }
        return false;
    }

    /** Waits for a signal, or until there is reason to look for a shutdown. An interrupt neither ends it nor is lost. */
    public static void await(Condition signal) {
        boolean interrupted = false;
        long from = System.nanoTime();
        for (long left = SLICE; left > 0; left = SLICE - (System.nanoTime() - from)) {
            try {
                signal.awaitNanos(left);
                break;
            } catch (InterruptedException e) {
                interrupted = true;
            }
        }
        if (interrupted) {
            Thread.currentThread().interrupt();
        }
    }
}
