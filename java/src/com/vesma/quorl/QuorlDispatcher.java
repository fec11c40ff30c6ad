package com.vesma.quorl;

import java.util.Objects;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * A thread that dispatches a queue or a group until it is closed, or until the queue or group is.
 *
 * <p>It starts one daemon thread, which sleeps while nothing waits and does not keep the program alive. Several
 * dispatchers may serve one queue. What a handler throws goes to the thread's uncaught exception handler, and the thread
 * goes on.
 *
 * <p>{@link #close} waits until the thread has ended, except when it is called from a handler on that thread. It may be
 * called from any thread.
 *
 * <pre>{@code
 * try (QuorlQueue queue = new QuorlQueue();
 *      QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
 *     Thread.sleep(60_000);
 * }
 * }</pre>
 */
public final class QuorlDispatcher implements AutoCloseable {
    /** The running dispatchers; their threads hold them anyway. */
    private static final Set<QuorlDispatcher> OPEN = ConcurrentHashMap.newKeySet();

    private static final AtomicInteger COUNT = new AtomicInteger();

    private final Dispatchable target;
    private final Thread thread;

    private volatile boolean stopping;

    /** The thread's part in dispatching; null until the thread runs. */
    private volatile Dispatching dispatching;

    /**
     * Starts a thread that dispatches a queue.
     *
     * @param queue the queue
     */
    public QuorlDispatcher(QuorlQueue queue) {
        this(queue, null);
    }

    /**
     * Starts a thread with a name of its own that dispatches a queue.
     *
     * @param queue the queue
     * @param name the thread's name, null for "quorl-dispatcher-" and a number
     */
    public QuorlDispatcher(QuorlQueue queue, String name) {
        this((Dispatchable) queue, name);
    }

    /**
     * Starts a thread that dispatches a group.
     *
     * @param group the group
     */
    public QuorlDispatcher(QuorlQueueGroup group) {
        this(group, null);
    }

    /**
     * Starts a thread with a name of its own that dispatches a group.
     *
     * @param group the group
     * @param name the thread's name, null for "quorl-dispatcher-" and a number
     */
    public QuorlDispatcher(QuorlQueueGroup group, String name) {
        this((Dispatchable) group, name);
    }

    private QuorlDispatcher(Dispatchable target, String name) {
        this.target = Objects.requireNonNull(target, "target");
        target.id();
        thread = new Thread(this::run, name != null ? name : "quorl-dispatcher-" + COUNT.incrementAndGet());
        thread.setDaemon(true);
        OPEN.add(this);
        try {
            thread.start();
        } catch (Throwable e) {
            OPEN.remove(this);
            throw e;
        }
    }

    private void run() {
        try {
            Dispatching mine = Dispatching.current();
            dispatching = mine;
            mine.loop(this);
        } finally {
            OPEN.remove(this);
        }
    }

    boolean stopping() {
        return stopping;
    }

    Dispatchable target() {
        return target;
    }

    /**
     * The thread that dispatches, for its name, its priority or its uncaught exception handler.
     *
     * @return the thread
     */
    public Thread getThread() {
        return thread;
    }

    /**
     * Ends the thread and waits for it; see the class. Closing again waits too and does nothing else.
     */
    @Override
    public void close() {
        stopping = true;
        Dispatching running = dispatching;
        if (running == null) {
            // Not begun: it will see stopping before its first dispatch. No handler of it can run.
            return;
        }
        running.signal(target);
        if (Thread.currentThread() != thread) {
            Gate.awaitHandlers(running);
        }
    }

    static void closeAll() {
        for (QuorlDispatcher dispatcher : OPEN) {
            dispatcher.close();
        }
    }

    @Override
    public String toString() {
        return "QuorlDispatcher[" + thread.getName() + ", " + target + "]";
    }

    static native long quorlDispatchable_SetThreadKey();
    static native void quorlDispatchable_ClearThreadKey(long handle);
    static native void quorlDispatchable_Signal(int id, long threadKeyHandle);
}
