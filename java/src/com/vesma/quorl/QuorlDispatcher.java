package com.vesma.quorl;

import java.util.ArrayList;
import java.util.List;
import java.util.Objects;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.Executor;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * Threads that dispatch a queue or a group until they are closed, or until the queue or group is.
 *
 * <p>A dispatcher starts one daemon thread, or as many as its {@linkplain Builder builder} is told, which sleep while
 * nothing waits and do not keep the program alive. Several dispatchers may serve one queue. What a handler throws goes to
 * the thread's uncaught exception handler, and the thread goes on.
 *
 * <p><b>Order.</b> With one thread, handlers run one after the other, in the order of the queue. With several threads, or
 * several dispatchers, handlers begin in that order and run side by side, those of one listener too. With an
 * {@linkplain Builder#executor executor}, the handlers of one listener or timer run one after the other, in the order of
 * the queue, and those of different ones side by side.
 *
 * <p>{@link #close} waits until the threads have ended and the handlers that were handed over have returned, except when
 * it is called from one of these handlers. It may be called from any thread.
 *
 * <pre>{@code
 * try (QuorlQueue queue = new QuorlQueue();
 *      QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
 *     Thread.sleep(60_000);
 * }
 *
 * ExecutorService workers = Executors.newFixedThreadPool(8);
 * QuorlDispatcher dispatcher = QuorlDispatcher.builder(orders).name("orders").executor(workers).start();
 * }</pre>
 */
public final class QuorlDispatcher implements AutoCloseable {
    /** The running dispatchers; their threads hold them anyway. */
    private static final Set<QuorlDispatcher> OPEN = ConcurrentHashMap.newKeySet();

    private static final AtomicInteger COUNT = new AtomicInteger();

    private final Dispatchable target;
    private final String name;
    private final List<Thread> threads = new ArrayList<>();

    /** Where the handlers run, null for on the threads themselves. */
    private final ExecutorDelivery delivery;

    private volatile boolean stopping;

    /** The parts in dispatching of those threads that run or have run. */
    private final Set<Dispatching> parts = ConcurrentHashMap.newKeySet();

    /** Threads that have not ended. */
    private final AtomicInteger running = new AtomicInteger();

    /** What a dispatcher is to be like; {@link #builder} makes one. */
    public static final class Builder {
        /** Enough to keep an executor's threads busy; few enough that a queue's limit is felt soon. */
        private static final int IN_FLIGHT = 256;

        private final Dispatchable target;
        private String name;
        private int threads = 1;
        private Executor executor;
        private boolean ordered = true;
        private int inFlight = IN_FLIGHT;
        private Thread.UncaughtExceptionHandler exceptionHandler;

        private Builder(Dispatchable target) {
            this.target = Objects.requireNonNull(target, "target");
        }

        /**
         * Names the dispatcher and its thread. The threads of several get a hyphen and a number more.
         *
         * @param name the name; null, as without this call, for "quorl-dispatcher-" and a number
         * @return this
         */
        public Builder name(String name) {
            this.name = name;
            return this;
        }

        /**
         * Makes several threads dispatch: handlers begin in the order of the queue and run side by side, those of one
         * listener too.
         *
         * @param count 1 to 1024; 1 without this call
         * @return this
         */
        public Builder threads(int count) {
            if (count < 1 || count > 1024) {
                throw new IllegalArgumentException("the number of threads is not in 1 to 1024: " + count);
            }
            threads = count;
            return this;
        }

        /**
         * Makes the handlers run in an executor, any: a pool, one that makes a new thread for each task, of the machine
         * or virtual, the event thread of a user interface. The dispatcher's own thread then only takes events and hands
         * them over, so it never waits for a handler.
         *
         * <p>The handlers of one listener or timer run one after the other, in the order in which they were taken, and
         * those of different ones side by side. The message is valid until the handler returns, as everywhere.
         *
         * <p>What the executor refuses runs on the dispatcher's own thread; so does, when the dispatcher is closed, what
         * the executor has not begun. So nothing is lost; close the listeners first when it is to be dropped. An executor
         * must run every task that it takes, or its listener's handlers wait until that close.
         *
         * @param executor where the handlers run; it stays the program's to shut down
         * @return this
         */
        public Builder executor(Executor executor) {
            this.executor = Objects.requireNonNull(executor, "executor");
            return this;
        }

        /**
         * Lets the handlers of one listener run side by side in the executor, in any order.
         *
         * @return this
         */
        public Builder unordered() {
            ordered = false;
            return this;
        }

        /**
         * Sets how many events may be with the executor, waiting or running. When there are as many, the rest stays in
         * the queue, where the queue's limit holds.
         *
         * @param most 1 to 1,000,000; 256 without this call
         * @return this
         */
        public Builder inFlight(int most) {
            if (most < 1 || most > 1_000_000) {
                throw new IllegalArgumentException("the number in flight is not in 1 to 1000000: " + most);
            }
            inFlight = most;
            return this;
        }

        /**
         * Takes what handlers throw, instead of the machine's default handler.
         *
         * @param handler called with the thread that the event's handler ran on
         * @return this
         */
        public Builder uncaughtExceptionHandler(Thread.UncaughtExceptionHandler handler) {
            exceptionHandler = Objects.requireNonNull(handler, "handler");
            return this;
        }

        /**
         * Starts the threads.
         *
         * @return to be closed
         * @throws QuorlClosedException if the queue or group is closed
         * @throws IllegalStateException for several threads and an executor together: the order that an executor keeps
         *     needs one thread to take the events
         */
        public QuorlDispatcher start() {
            if (executor != null && threads > 1) {
                throw new IllegalStateException("a dispatcher with an executor has one thread, not " + threads);
            }
            return new QuorlDispatcher(this);
        }
    }

    /**
     * Starts a thread that dispatches a queue.
     *
     * @param queue the queue
     */
    public QuorlDispatcher(QuorlQueue queue) {
        this(new Builder(queue));
    }

    /**
     * Starts a thread with a name of its own that dispatches a queue.
     *
     * @param queue the queue
     * @param name the thread's name, null for "quorl-dispatcher-" and a number
     */
    public QuorlDispatcher(QuorlQueue queue, String name) {
        this(new Builder(queue).name(name));
    }

    /**
     * Starts a thread that dispatches a group.
     *
     * @param group the group
     */
    public QuorlDispatcher(QuorlQueueGroup group) {
        this(new Builder(group));
    }

    /**
     * Starts a thread with a name of its own that dispatches a group.
     *
     * @param group the group
     * @param name the thread's name, null for "quorl-dispatcher-" and a number
     */
    public QuorlDispatcher(QuorlQueueGroup group, String name) {
        this(new Builder(group).name(name));
    }

    private QuorlDispatcher(Builder wanted) {
        target = wanted.target;
        if (!target.exists()) {
            throw target.closedException();
        }
        name = wanted.name != null ? wanted.name : "quorl-dispatcher-" + COUNT.incrementAndGet();
        delivery = wanted.executor == null ? null : new ExecutorDelivery(wanted.executor, wanted.ordered, wanted.inFlight);
        for (int i = 1; i <= wanted.threads; i++) {
            Thread thread = new Thread(this::run, wanted.threads == 1 ? name : name + "-" + i);
            thread.setDaemon(true);
            if (wanted.exceptionHandler != null) {
                thread.setUncaughtExceptionHandler(wanted.exceptionHandler);
            }
            threads.add(thread);
        }
        OPEN.add(this);
        running.set(wanted.threads);
        int started = 0;
        try {
            for (Thread thread : threads) {
                thread.start();
                started++;
            }
        } catch (Throwable e) {
            // No memory for another thread: those that were started find that they are to stop.
            if (running.addAndGet(started - wanted.threads) == 0) {
                OPEN.remove(this);
            }
            close();
            throw e;
        }
    }

    /**
     * Begins a dispatcher for a queue.
     *
     * @param queue the queue
     * @return to be told more, and started
     */
    public static Builder builder(QuorlQueue queue) {
        return new Builder(queue);
    }

    /**
     * Begins a dispatcher for a group.
     *
     * @param group the group
     * @return to be told more, and started
     */
    public static Builder builder(QuorlQueueGroup group) {
        return new Builder(group);
    }

    private void run() {
        try {
            Dispatching mine = Dispatching.current();
            parts.add(mine);
            if (delivery != null) {
                delivery.begin(Thread.currentThread());
            }
            mine.loop(this);
            DestructionBarrier.remove(mine);
        } finally {
            if (running.decrementAndGet() == 0) {
                OPEN.remove(this);
            }
        }
    }

    boolean stopping() {
        return stopping;
    }

    Dispatchable target() {
        return target;
    }

    /** Where handlers are handed over to, null when they run on the threads themselves. */
    ExecutorDelivery delivery() {
        return delivery;
    }

    /**
     * The dispatcher's name.
     *
     * @return as it was given, or made
     */
    public String getName() {
        return name;
    }

    /**
     * The thread that dispatches, the first of several, for its name, its priority or its uncaught exception handler.
     *
     * @return the thread
     */
    public Thread getThread() {
        return threads.get(0);
    }

    /**
     * The threads that dispatch.
     *
     * @return a list that cannot be changed
     */
    public List<Thread> getThreads() {
        return List.copyOf(threads);
    }

    /**
     * Ends the threads and waits for them; see the class. Closing again waits too and does nothing else.
     */
    @Override
    public void close() {
        close(false);
    }

    private void close(boolean drop) {
        stopping = true;
        if (delivery != null) {
            delivery.stop(drop);
        }
        // A thread that is not here yet will see stopping before its first dispatch. No handler of it can run.
        for (Dispatching part : parts) {
            part.signal(target);
        }
        for (Dispatching part : parts) {
            if (part.thread != Thread.currentThread()) {
                DestructionBarrier.awaitHandlers(part);
            }
        }
        if (delivery != null) {
            DestructionBarrier.awaitHandlers(delivery);
        }
    }

    static void closeAll() {
        for (QuorlDispatcher dispatcher : OPEN) {
            dispatcher.close(true);
        }
    }

    @Override
    public String toString() {
        return "QuorlDispatcher[" + name + ", " + target + "]";
    }

    static native long quorlDispatchable_SetThreadKey();
    static native void quorlDispatchable_ClearThreadKey(long handle);
    static native void quorlDispatchable_Signal(int id, long threadKeyHandle);
}
