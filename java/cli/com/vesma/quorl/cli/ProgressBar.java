package com.vesma.quorl.cli;

import java.io.PrintWriter;
import java.util.Locale;
import java.util.concurrent.TimeUnit;

/** How far a long work is, as one line of standard error that is written over, where that is a terminal. */
final class ProgressBar implements AutoCloseable {
    private static final int WIDTH = 24;

    /** Nanoseconds between two states that are shown. */
    private static final long PAUSE = TimeUnit.MILLISECONDS.toNanos(100);

    private final PrintWriter err;
    private final boolean shown;
    private long last = System.nanoTime() - PAUSE;
    private boolean drawn;

    ProgressBar(PrintWriter err) {
        this(err, Screen.isTerminal(2));
    }

    ProgressBar(PrintWriter err, boolean shown) {
        this.err = err;
        this.shown = shown;
    }

    /** "[######..................]  25 %  5 of 20 messages confirmed". */
    static String line(long done, long all, String what) {
        long part = all == 0 ? WIDTH : Math.min(WIDTH, (long) ((double) done / all * WIDTH));
        long percent = all == 0 ? 100 : Math.min(100, (long) ((double) done / all * 100));
        return "[" + "#".repeat((int) part) + ".".repeat((int) (WIDTH - part)) + "] " + String.format(Locale.ROOT, "%3d", percent) + " %  "
                + done + " of " + all + " " + what;
    }

    /** Shows it, not too often. */
    void show(long done, long all, String what) {
        if (!shown || (System.nanoTime() - last < PAUSE && done < all)) return;
        last = System.nanoTime();
        drawn = true;
        synchronized (err) {
            err.print("\r" + line(done, all, what) + "\u001b[K");
            err.flush();
        }
    }

    /** Takes the line away. */
    @Override
    public void close() {
        if (!drawn) return;
        synchronized (err) {
            err.print("\r\u001b[K");
            err.flush();
        }
    }
}
