package com.vesma.quorl.internal.threads;

import java.util.ArrayDeque;
import java.util.concurrent.ScheduledFuture;
import java.util.concurrent.ScheduledThreadPoolExecutor;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.locks.Condition;
import java.util.concurrent.locks.ReentrantLock;

/**
 * Runs what is to happen when a time limit has passed, for the whole process.
 *
 * <p>One thread keeps the clock and runs nothing of the program's. What is due it gives to a second one, which ends when it
 * has long been idle. A program's step that blocks there holds up nobody for longer than {@link #STALL}: the clock's
 * thread then starts another for what is due behind it. The machine's own means do not give that: its thread for delays
 * also runs the program's steps, and its common pool has no spare thread, or starts one for each task on a small machine.
 */
public final class TimeLimits {
    /** A step that takes longer lets another thread go on, in nanoseconds. */
    private static final long STALL = TimeUnit.MILLISECONDS.toNanos(20);

    /** A thread without work ends after this, in nanoseconds. */
    private static final long KEPT_IDLE = TimeUnit.SECONDS.toNanos(10);

    private static final AtomicInteger COUNT = new AtomicInteger();

    private static final ScheduledThreadPoolExecutor CLOCK = clock();

    /** Guards all below. */
    private static final ReentrantLock LOCK = new ReentrantLock();
    private static final Condition ADDED = LOCK.newCondition();
    private static final ArrayDeque<Runnable> DUE = new ArrayDeque<>();

    /** Threads that wait for something to be due. */
    private static int idle;

    /** When something due was taken last, or a thread was started for it. */
    private static long progress = System.nanoTime() - STALL;

    /** Whether the clock will look at the progress. */
    private static boolean looking;

    private TimeLimits() {}

    private static ScheduledThreadPoolExecutor clock() {
        ScheduledThreadPoolExecutor made = new ScheduledThreadPoolExecutor(1, task -> daemon(task, "quorl-clock"));
        made.setRemoveOnCancelPolicy(true);
        return made;
    }

    /** Belongs to nobody: it inherits nothing of the thread that happens to start it. */
    private static Thread daemon(Runnable work, String name) {
        Thread thread = new Thread(null, work, name, 0, false);
        thread.setDaemon(true);
        thread.setContextClassLoader(ClassLoader.getSystemClassLoader());
        return thread;
    }

    /** Runs action on a thread of this class, unless what comes back is cancelled before. */
    public static ScheduledFuture<?> after(long nanos, Runnable action) {
        return CLOCK.schedule(() -> due(action), nanos, TimeUnit.NANOSECONDS);
    }

    /** On the clock's thread. */
    private static void due(Runnable action) {
        LOCK.lock();
        try {
            DUE.add(action);
            if (idle > 0) {
                ADDED.signal();
            } else if (!looking) {
                help();
            }
            look();
        } finally {
            LOCK.unlock();
        }
    }

    private static void look() {
        if (!looking && !DUE.isEmpty()) {
            looking = true;
            CLOCK.schedule(TimeLimits::looked, STALL, TimeUnit.NANOSECONDS);
        }
    }

    private static void looked() {
        LOCK.lock();
        try {
            looking = false;
            if (!DUE.isEmpty() && idle == 0) {
                help();
            }
            look();
        } finally {
            LOCK.unlock();
        }
    }

    /** One thread more, when those that there are have taken nothing for a while. */
    private static void help() {
        long now = System.nanoTime();
        if (now - progress < STALL) {
            return;
        }
        try {
            daemon(TimeLimits::work, "quorl-time-out-" + COUNT.incrementAndGet()).start();
            progress = now;
        } catch (OutOfMemoryError e) {
            // No further thread: the next look tries again, unless one that there is has come back meanwhile.
            return;
        }
    }

    private static void work() {
        for (Runnable next = next(); next != null; next = next()) {
            try {
                next.run();
            } catch (Throwable e) {
                Uncaught.report(Thread.currentThread().getUncaughtExceptionHandler(), e);
            }
            // A step that interrupted its own thread has not meant the next one's.
            Thread.interrupted();
        }
    }

    /** Null when nothing came for long. */
    private static Runnable next() {
        LOCK.lock();
        try {
            idle++;
            long left = KEPT_IDLE;
            while (DUE.isEmpty() && left > 0) {
                try {
                    left = ADDED.awaitNanos(left);
                } catch (InterruptedException e) {
                    // By a program that kept the thread of a step which has returned.
                    continue;
                }
            }
            idle--;
            progress = System.nanoTime();
            return DUE.poll();
        } finally {
            LOCK.unlock();
        }
    }
}
