package com.vesma.quorl.cli;

import java.util.concurrent.locks.LockSupport;

/**
 * When each message of a stream goes out: the n-th of a rate r goes (n - 1) / r seconds after the first, so that what one is
 * late is not added to the next. After a pause of more than a second, when the input had nothing, the time begins anew: what
 * was not sent meanwhile is not made up for in one rush.
 */
final class Pace {
    private static final long SECOND = 1_000_000_000L;

    /** The time, so that a test can be the clock. Nanoseconds. */
    interface Clock {
        long now();

        /** Returns at that time or later, as the system likes. */
        void sleepUntil(long time) throws InterruptedException;
    }

    private static final Clock SYSTEM = new Clock() {
        @Override
        public long now() {
            return System.nanoTime();
        }

        @Override
        public void sleepUntil(long time) throws InterruptedException {
            for (long left = time - now(); left > 0; left = time - now()) {
                LockSupport.parkNanos(left);
                if (Thread.interrupted()) throw new InterruptedException();
            }
        }
    };

    private final double rate;
    private final Clock clock;
    private long start;
    private long turns;

    Pace(double rate) {
        this(rate, SYSTEM);
    }

    Pace(double rate, Clock clock) {
        this.rate = rate;
        this.clock = clock;
    }

    /** Waits until the next message is due. */
    void await() throws InterruptedException {
        long now = clock.now();
        if (turns == 0) start = now;
        // The largest that a clock can be asked to wait for, where a rate is far below one a century.
        long due = start + (long) Math.min(turns / rate * SECOND, Long.MAX_VALUE / 4.0);
        if (now - due > SECOND) {
            start = now;
            turns = 0;
        } else if (due - now > 0) {
            clock.sleepUntil(due);
        }
        turns++;
    }
}
