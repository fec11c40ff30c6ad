package com.vesma.quorl.internal.threads;

/** What the program's code threw where nobody called it who could be told. */
public final class Uncaught {
    private Uncaught() {}

    /** Tells of it as the machine does of what ends a thread: what comes out of the handler goes nowhere. */
    public static void report(Thread.UncaughtExceptionHandler handler, Throwable thrown) {
        try {
            handler.uncaughtException(Thread.currentThread(), thrown);
        } catch (Throwable e) {
            return;
        }
    }
}
