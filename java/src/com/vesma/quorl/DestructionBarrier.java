package com.vesma.quorl;

import com.vesma.quorl.internal.threads.Shutdown;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.locks.Condition;
import java.util.concurrent.locks.LockSupport;
import java.util.concurrent.locks.ReentrantLock;

/**
 * Keeps the destruction of events and their delivery apart; {@link Dispatching} says why.
 *
 * <p>A close has two waits. The first, under the barrier, is for threads to leave the library's dispatch: it is short,
 * since those that sleep there are woken and no code of the program runs in there. The second, behind the barrier, is for
 * handlers that run on other threads to return, and is as long as they are. A close inside a handler does not wait for
 * that handler; when two handlers close each other's events, the one that would complete the circle does not wait.
 * {@link Shutdown} says how the second ends when a handler ends the machine.
 */
final class DestructionBarrier {
    private static final int FEW = 16;

    /** Held while events are destroyed; a thread that finds the barrier closed waits for it. */
    private static final ReentrantLock DESTRUCTION = new ReentrantLock();

    /** The queue whose events are being destroyed, null when the barrier is open. Written under DESTRUCTION. */
    private static volatile QuorlQueue closedFor;

    /** Every thread that has ever dispatched and lives. */
    private static final Map<Dispatching, Boolean> THREADS = new ConcurrentHashMap<>();

    /** So many of them make it worth looking for those that have ended; an executor may use a new thread for each task. */
    private static final AtomicInteger ENOUGH = new AtomicInteger(FEW);

    /** Guards waitingFor in all threads, and the circles among them. */
    private static final ReentrantLock WAITING = new ReentrantLock();

    /** Signalled by {@link #handlerReturned}. */
    private static final Condition RETURNED = WAITING.newCondition();

    private DestructionBarrier() {}

    static void add(Dispatching created) {
        THREADS.put(created, Boolean.TRUE);
        int enough = ENOUGH.get();
        if (THREADS.size() > enough && ENOUGH.compareAndSet(enough, Integer.MAX_VALUE)) {
            THREADS.keySet().removeIf(known -> !known.thread.isAlive());
            ENOUGH.set(2 * THREADS.size() + FEW);
        }
    }

    /** For a thread of the library's, which ends: it would hold what it dispatched until somebody looks for threads. */
    static void remove(Dispatching ended) {
        THREADS.remove(ended);
    }

    // ---- dispatching threads --------------------------------------------------------------------------------------

    /** Asked after the thread has published what it dispatches. */
    static boolean isClosedFor(Dispatchable target) {
        QuorlQueue queue = closedFor;
        return queue != null && queue.isDispatchedBy(target);
    }

    static void awaitOpen() {
        DESTRUCTION.lock();
        DESTRUCTION.unlock();
    }

    /** Called by a thread whose handler of a closed event or queue, or whose loop, has returned. */
    static void handlerReturned() {
        WAITING.lock();
        try {
            RETURNED.signalAll();
        } finally {
            WAITING.unlock();
        }
    }

    // ---- closing threads ------------------------------------------------------------------------------------------

    /**
     * Runs destroy while no thread is inside the library with that queue or with a group. destroy must not block.
     */
    static void destroy(QuorlQueue queue, Runnable destroy) {
        DESTRUCTION.lock();
        try {
            closedFor = queue;
            for (Dispatching thread : THREADS.keySet()) {
                awaitOutside(thread, queue);
            }
            destroy.run();
        } finally {
            closedFor = null;
            DESTRUCTION.unlock();
        }
    }

    /** A thread that comes out sees the barrier before it can go in again. */
    private static void awaitOutside(Dispatching thread, QuorlQueue queue) {
        Dispatchable inside = insideWith(thread, queue);
        if (inside == null) {
            return;
        }
        thread.signal(inside);
        for (int turn = 0; insideWith(thread, queue) != null; turn++) {
            if (turn < 100) {
                Thread.onSpinWait();
            } else {
                LockSupport.parkNanos(20_000);
                if (turn % 100 == 0) {
                    if (!thread.thread.isAlive()) {
                        return;
                    }
                    thread.signal(inside);
                }
            }
        }
        thread.repeatSignals();
    }

    private static Dispatchable insideWith(Dispatching thread, QuorlQueue queue) {
        Object now = thread.now;
        return now instanceof Dispatchable && queue.isDispatchedBy(now) ? (Dispatchable) now : null;
    }

    /**
     * Returns when no other thread that can still return runs what: a {@link QuorlEvent}'s handler, the handler of any event
     * of a {@link QuorlQueue}, the loop of a dispatcher for a {@link Dispatching}, or what a dispatcher has handed over for
     * a {@link ExecutorDelivery}. what must be marked closed or stopped before.
     */
    static void awaitHandlers(Object what) {
        if (!runsElsewhere(what, null)) {
            return;
        }
        Dispatching self = Dispatching.current();
        boolean givenUp = false;
        WAITING.lock();
        try {
            Object before = self.waitingFor;
            self.waitingFor = what;
            // No return is missed: the one who returns writes now and then reads the close, this thread has written the
            // close and then reads now, so one of the two sees the other.
            while (runsElsewhere(what, self) && !leadsTo(what, self, THREADS.size()) && !givenUp) {
                Shutdown.await(RETURNED);
                givenUp = Shutdown.isOver();
            }
            self.waitingFor = before;
        } finally {
            WAITING.unlock();
        }
        if (givenUp) {
            System.getLogger("com.vesma.quorl").log(System.Logger.Level.WARNING,
                    "the virtual machine ends, so a close has not waited for a handler that still runs");
        }
    }

    private static boolean runsElsewhere(Object what, Dispatching self) {
        for (Dispatching thread : THREADS.keySet()) {
            if (thread != self && thread.thread.isAlive() && runs(thread, what) && !Shutdown.holds(thread.thread)) {
                return true;
            }
        }
        return false;
    }

    private static boolean runs(Dispatching thread, Object what) {
        return what instanceof QuorlEvent ? thread.runs((QuorlEvent) what)
                : what instanceof QuorlQueue ? thread.runsEventOf((QuorlQueue) what)
                : what instanceof ExecutorDelivery ? ((ExecutorDelivery) what).runsOn(thread)
                : thread == what && !thread.over;
    }

    /** Whether a thread that runs what waits, over any number of others, for something that self runs. */
    private static boolean leadsTo(Object what, Dispatching self, int depth) {
        for (Dispatching thread : THREADS.keySet()) {
            if (thread == self || !runs(thread, what)) {
                continue;
            }
            Object next = thread.waitingFor;
            if (next != null && (runs(self, next) || (depth > 0 && leadsTo(next, self, depth - 1)))) {
                return true;
            }
        }
        return false;
    }
}
