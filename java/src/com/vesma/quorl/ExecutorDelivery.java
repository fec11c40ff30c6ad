package com.vesma.quorl;

import com.vesma.quorl.internal.threads.Uncaught;
import java.util.ArrayDeque;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.Executor;
import java.util.concurrent.RejectedExecutionException;
import java.util.concurrent.locks.Condition;
import java.util.concurrent.locks.ReentrantLock;

/**
 * What a dispatcher has taken out of the library and given to an executor: handlers that wait there or run.
 *
 * <p>What is taken waits in lanes. The deliveries of a lane run one after the other, in the order in which they were
 * taken; each event has a lane of its own, or each delivery when no order is wanted. A lane that is not empty is one
 * task of the executor. A task that comes to an empty lane, or to one that another thread is in, does nothing, so it harms
 * nothing when the dispatcher's own thread runs a lane: where the executor refuses a task, and where the dispatcher ends.
 *
 * <p>Handlers run as they do on a dispatching thread: {@link Dispatching#now} names the event meanwhile, and an event that
 * was closed before is dropped. So a close needs to know of handlers only, not of what waits here.
 */
final class ExecutorDelivery {
    private final Executor executor;
    private final boolean ordered;
    private final int most;

    /** Lanes that are not empty, or were so a moment ago. Filled by the dispatcher's thread alone. */
    private final Map<Object, Lane> lanes = new ConcurrentHashMap<>();

    /** Threads that are inside a lane, with how often. */
    private final Map<Dispatching, Integer> inside = new ConcurrentHashMap<>();

    /** Guards the two below. */
    private final ReentrantLock lock = new ReentrantLock();

    /** Signalled when a delivery is done while the dispatcher waits, and when it is to stop. */
    private final Condition room = lock.newCondition();

    /** Deliveries that were taken and are not done. */
    private int inFlight;

    private boolean stopping;

    /** Whether what waits is to be dropped: the library is being closed. */
    private volatile boolean dropping;

    /** The dispatcher's own thread; what handlers throw goes to its handler. */
    private volatile Thread thread;

    ExecutorDelivery(Executor executor, boolean ordered, int most) {
        this.executor = executor;
        this.ordered = ordered;
        this.most = most;
    }

    private static final class Delivery {
        final QuorlEvent event;
        final Object taken;

        Delivery(QuorlEvent event, Object taken) {
            this.event = event;
            this.taken = taken;
        }
    }

    /** Deliveries that run one after the other. */
    private final class Lane implements Runnable {
        final Object key;

        /** Guarded by this. */
        private final ArrayDeque<Delivery> waiting = new ArrayDeque<>(4);

        /** Whether a thread is in here. Guarded by this. */
        private boolean claimed;

        /** Whether it was taken out of the lanes, empty. Guarded by this. */
        private boolean ended;

        Lane(QuorlEvent event) {
            key = ordered ? event : this;
        }

        /** False when the lane has ended. first[0] tells whether a task is needed for it. */
        synchronized boolean add(Delivery delivery, boolean[] first) {
            if (ended) {
                return false;
            }
            first[0] = waiting.isEmpty() && !claimed;
            waiting.add(delivery);
            return true;
        }

        @Override
        public void run() {
            Dispatching self = Dispatching.current();
            inside.merge(self, 1, Integer::sum);
            try {
                for (Delivery next = claim(); next != null; next = following()) {
                    perform(self, next);
                }
            } finally {
                inside.computeIfPresent(self, (each, depth) -> depth == 1 ? null : depth - 1);
                if (isStopping()) {
                    DestructionBarrier.handlerReturned();
                }
            }
        }

        private synchronized Delivery claim() {
            if (claimed || waiting.isEmpty()) {
                return null;
            }
            claimed = true;
            return waiting.poll();
        }

        private synchronized Delivery following() {
            Delivery next = waiting.poll();
            if (next == null) {
                claimed = false;
                ended = true;
                lanes.remove(key, this);
            }
            return next;
        }
    }

    /** Called first, by the dispatcher's own thread. */
    void begin(Thread dispatcher) {
        thread = dispatcher;
    }

    /** Waits until one more may be taken; false when the dispatcher is to stop. */
    boolean awaitRoom() {
        lock.lock();
        try {
            while (inFlight >= most && !stopping) {
                room.awaitUninterruptibly();
            }
            return !stopping;
        } finally {
            lock.unlock();
        }
    }

    /** Takes a delivery over. What comes back is to be submitted, when it is not null. */
    Runnable add(QuorlEvent event, Object taken) {
        lock.lock();
        inFlight++;
        lock.unlock();
        Delivery delivery = new Delivery(event, taken);
        boolean[] first = new boolean[1];
        for (;;) {
            Lane lane = ordered ? lanes.get(event) : null;
            if (lane == null) {
                lane = new Lane(event);
                lanes.put(lane.key, lane);
            }
            if (lane.add(delivery, first)) {
                return first[0] ? lane : null;
            }
            lanes.remove(lane.key, lane);
        }
    }

    /** Gives it to the executor, or runs it here when that does not take it. */
    void submit(Runnable lane) {
        try {
            executor.execute(lane);
        } catch (RejectedExecutionException e) {
            lane.run();
        } catch (Throwable e) {
            report(e);
            lane.run();
        }
    }

    private void perform(Dispatching self, Delivery delivery) {
        try {
            if (dropping) {
                delivery.event.drop(delivery.taken);
            } else {
                self.run(delivery.event, delivery.taken);
            }
        } catch (Throwable e) {
            report(e);
        } finally {
            lock.lock();
            if (inFlight-- == most) {
                room.signalAll();
            }
            lock.unlock();
        }
    }

    private void report(Throwable thrown) {
        Thread.UncaughtExceptionHandler handler = thread.getUncaughtExceptionHandler();
        Uncaught.report(handler == null ? Thread.currentThread().getUncaughtExceptionHandler() : handler, thrown);
    }

    /** Makes the dispatcher's thread stop taking. drop: what the executor has not begun is dropped, not run. */
    void stop(boolean drop) {
        lock.lock();
        try {
            stopping = true;
            dropping |= drop;
            room.signalAll();
        } finally {
            lock.unlock();
        }
    }

    private boolean isStopping() {
        lock.lock();
        try {
            return stopping;
        } finally {
            lock.unlock();
        }
    }

    /** Called last, by the dispatcher's own thread: runs what the executor has not begun, and waits for what it has. */
    void end() {
        stop(false);
        for (Lane lane : lanes.values()) {
            lane.run();
        }
        DestructionBarrier.awaitHandlers(this);
    }

    /** Whether that thread is inside a handler that was handed over, or about to be. */
    boolean runsOn(Dispatching other) {
        return inside.containsKey(other);
    }
}
