package com.vesma.quorl;

import com.vesma.quorl.internal.threads.Uncaught;
import java.lang.reflect.UndeclaredThrowableException;
import java.nio.channels.SelectionKey;
import java.nio.channels.Selector;
import java.nio.channels.spi.AbstractSelectableChannel;
import java.nio.channels.spi.AbstractSelector;
import java.util.Set;
import java.util.function.BooleanSupplier;
import java.util.function.Predicate;

/**
 * One thread's part in dispatching: what it is inside, and the way to wake it there.
 *
 * <p>A dispatch has two halves. {@link #takeOnce} is inside the library, which hands out the event's Java object as the
 * global reference that the event itself holds; {@link #deliver} runs the handler, in Java alone, or leaves it to an executor. The reference would be
 * invalid if the event were destroyed between the library's callback and the return to Java, so an event is destroyed
 * only while no thread is in the first half with its queue: {@link DestructionBarrier} closes, wakes the threads that sleep there,
 * waits until they are out, destroys, and opens. What a thread does is told by one volatile member, {@link #now}, whose
 * writes are the only cost that a dispatch pays for this: two fences, a few nanoseconds.
 */
final class Dispatching {
    private static final ThreadLocal<Dispatching> CURRENT = ThreadLocal.withInitial(Dispatching::register);

    /** A dispatching thread that has no key cannot be woken, so it looks for closed barriers this often, in seconds. */
    private static final double WITHOUT_KEY = 0.05;

    /**
     * The first of the slices, in seconds, that a wait is cut into; each is twice the one before. The machine may set a
     * thread's interrupt flag a moment after it has looked for somebody to wake: an interrupt that falls into the moment in
     * which a wait begins is then seen at the end of a slice, and a long wait has few.
     */
    private static final double FIRST_SLICE = 0.01;

    /** Results of {@link #takeOnce} that are no event's object. */
    private static final Object NOTHING = new Object();
    private static final Object SIGNALLED = new Object();
    private static final Object EMPTY_EVENT = new Object();

    private static final BooleanSupplier NEVER = () -> false;

    final Thread thread = Thread.currentThread();

    /**
     * What the thread is inside: a {@link Dispatchable} in the library's dispatch of it, a {@link QuorlEvent} in its
     * handler, null in neither. Written by the thread itself.
     */
    volatile Object now;

    /** The handlers around the innermost one, when a handler dispatches. Written by the thread itself. */
    volatile Outer outer;

    /** The dispatcher whose thread this is, null for a thread of the program's. */
    private volatile QuorlDispatcher dispatcher;

    /** Whether the thread was a dispatcher's and its loop has ended. */
    volatile boolean over;

    /** What a close on this thread waits for, null when none does. Guarded by the barrier's lock of waits. */
    Object waitingFor;

    /** The cell through which the library's dispatch is woken, 0 for none. Guarded by this. */
    private long key;

    /** What {@link #interruption} wakes. Guarded by this. */
    private Dispatchable interruptible;

    private Interruption interruption;

    private long[] handles;

    /** A handler that is not the innermost. */
    static final class Outer {
        final QuorlEvent event;
        final Outer next;

        Outer(QuorlEvent event, Outer next) {
            this.event = event;
            this.next = next;
        }
    }

    private Dispatching() {}

    private static Dispatching register() {
        Dispatching created = new Dispatching();
        DestructionBarrier.add(created);
        return created;
    }

    static Dispatching current() {
        return CURRENT.get();
    }

    // ---- one dispatch on a thread of the program's ----------------------------------------------------------------

    boolean poll(Dispatchable target) {
        Object taken = takeOnce(target, 0);
        while (taken == SIGNALLED) {
            taken = takeOnce(target, 0);
        }
        return finish(taken);
    }

    /** seconds below 0 wait for ever. */
    boolean dispatch(Dispatchable target, double seconds) throws InterruptedException {
        return dispatch(target, seconds, 0, NEVER);
    }

    /**
     * The same, but that stop may end the wait: it is asked before each part of it, and what came before is still taken.
     * longest: seconds of a part; 0 leaves its length open, and asks nobody.
     */
    boolean dispatch(Dispatchable target, double seconds, double longest, BooleanSupplier stop)
            throws InterruptedException {
        if (Thread.interrupted()) {
            throw new InterruptedException();
        }
        Object taken = takeOnce(target, 0);
        if ((taken == NOTHING && seconds != 0) || taken == SIGNALLED) {
            taken = takeBlocking(target, seconds, longest, longest == 0 ? NEVER : stop);
            if (taken == NOTHING && longest != 0) {
                return poll(target);
            }
        }
        return finish(taken);
    }

    /** Waits for the next event and runs its handler, unless stop says before each wait that it is to end. */
    void dispatchUnless(Dispatchable target, BooleanSupplier stop) throws InterruptedException {
        if (Thread.interrupted()) {
            throw new InterruptedException();
        }
        if (stop.getAsBoolean()) {
            return;
        }
        Object taken = takeOnce(target, 0);
        if (taken == NOTHING || taken == SIGNALLED) {
            taken = takeBlocking(target, -1, 0, stop);
        }
        finish(taken);
    }

    private Object takeBlocking(Dispatchable target, double seconds, double longest, BooleanSupplier stop)
            throws InterruptedException {
        long start = System.nanoTime();
        boolean mine = openKey();
        if (interruption == null) {
            interruption = new Interruption();
        }
        synchronized (this) {
            interruptible = target;
        }
        interruption.beginWait();
        try {
            for (double slice = FIRST_SLICE;; slice *= 2) {
                if (Thread.interrupted()) {
                    throw new InterruptedException();
                }
                if (stop.getAsBoolean()) {
                    return NOTHING;
                }
                double left = seconds < 0 ? Double.MAX_VALUE : Math.max(0, seconds - (System.nanoTime() - start) / 1e9);
                double wait = Math.min(left, !hasKey() ? WITHOUT_KEY : longest == 0 ? slice : Math.min(slice, longest));
                Object taken = takeOnce(target, wait);
                if (taken != SIGNALLED && !(taken == NOTHING && wait < left)) {
                    return taken;
                }
            }
        } finally {
            interruption.endWait();
            synchronized (this) {
                interruptible = null;
            }
            if (mine) {
                closeKey();
            }
        }
    }

    private boolean finish(Object taken) {
        if (taken == NOTHING) {
            return false;
        }
        if (taken != EMPTY_EVENT) {
            deliver((QuorlEvent) taken);
        }
        return true;
    }

    // ---- the loop of a dispatcher ---------------------------------------------------------------------------------

    /** Dispatches until the dispatcher is told to stop or target is gone. Runs on the dispatcher's own thread. */
    void loop(QuorlDispatcher owner) {
        Dispatchable target = owner.target();
        ExecutorDelivery delivery = owner.delivery();
        dispatcher = owner;
        openKey();
        try {
            while (!owner.stopping()) {
                try {
                    if (delivery != null && !delivery.awaitRoom()) {
                        return;
                    }
                    Object taken = takeOnce(target, hasKey() ? -1 : WITHOUT_KEY);
                    if (!(taken instanceof QuorlEvent)) {
                        continue;
                    }
                    if (delivery == null) {
                        deliver((QuorlEvent) taken);
                    } else {
                        deliverTo(delivery, (QuorlEvent) taken);
                    }
                } catch (Throwable e) {
                    if (targetIsGone(target, e)) {
                        return;
                    }
                    Uncaught.report(thread.getUncaughtExceptionHandler(), e);
                }
            }
        } finally {
            closeKey();
            if (delivery != null) {
                delivery.end();
            }
            over = true;
            dispatcher = null;
            DestructionBarrier.handlerReturned();
        }
    }

    /** A handler may throw the same statuses of its own, so the target itself is asked. */
    private static boolean targetIsGone(Dispatchable target, Throwable e) {
        return e instanceof QuorlException && !target.exists();
    }

    // ---- the two halves -------------------------------------------------------------------------------------------

    /** Inside the library. An event that comes out is in {@link #now} before the dispatchable is out of it. */
    private Object takeOnce(Dispatchable target, double seconds) {
        Object before = now;
        if (before != null) {
            outer = new Outer((QuorlEvent) before, outer);
        }
        QuorlEvent came = null;
        try {
            now = target;
            while (DestructionBarrier.isClosedFor(target)) {
                now = before;
                DestructionBarrier.awaitOpen();
                now = target;
            }
            Object returned = target.dispatchNative(seconds);
            if (returned == null) {
                return EMPTY_EVENT;
            }
            if (returned.getClass() == QuorlEvent.class) {
                return NOTHING;
            }
            came = (QuorlEvent) returned;
            return came;
        } catch (QuorlException e) {
            if (e.getStatus() == QuorlException.INTR) {
                return SIGNALLED;
            }
            throw target.refused(e);
        } finally {
            if (came != null) {
                now = came;
            } else {
                now = before;
                if (before != null) {
                    outer = outer.next;
                }
            }
        }
    }

    /** In Java. Ends what {@link #takeOnce} began, also when the handler throws. */
    private void deliver(QuorlEvent event) {
        try {
            Object taken = event.take();
            if (taken != null) {
                runHandler(event, taken);
            }
        } finally {
            leave(event);
        }
    }

    /** As {@link #deliver}, with the handler left to others. The event is let go first: an executor may block. */
    private void deliverTo(ExecutorDelivery delivery, QuorlEvent event) {
        Runnable task;
        try {
            Object taken = event.take();
            task = taken == null ? null : delivery.add(event, taken);
        } finally {
            leave(event);
        }
        if (task != null) {
            delivery.submit(task);
        }
    }

    /** Runs the handler of an event that this or another thread has taken. */
    void run(QuorlEvent event, Object taken) {
        Object before = now;
        if (before != null) {
            outer = new Outer((QuorlEvent) before, outer);
        }
        now = event;
        try {
            runHandler(event, taken);
        } finally {
            leave(event);
        }
    }

    private static void runHandler(QuorlEvent event, Object taken) {
        try {
            event.run(taken);
        } catch (RuntimeException | Error e) {
            throw e;
        } catch (Exception e) {
            throw new UndeclaredThrowableException(e, "a handler of " + event + " threw a checked exception");
        }
    }

    /** Behind the handler, or behind the one that did not come to run. */
    private void leave(QuorlEvent event) {
        Outer around = outer;
        if (around == null) {
            now = null;
        } else {
            now = around.event;
            outer = around.next;
        }
        if (event.isClosed() || event.queueIsClosed()) {
            DestructionBarrier.handlerReturned();
        }
    }

    /** Where a batch's handles are put; read before the next dispatch of this thread. */
    long[] handles() {
        if (handles == null) {
            handles = new long[QuorlVectorListener.BATCH_MAX];
        }
        return handles;
    }

    /** Whether this thread runs a handler of that event, innermost or not. Any thread may ask. */
    boolean runs(QuorlEvent event) {
        return runsAny(running -> running == event);
    }

    /** Whether this thread runs a handler of any event of that queue. */
    boolean runsEventOf(QuorlQueue queue) {
        return runsAny(running -> running.isOn(queue));
    }

    private boolean runsAny(Predicate<QuorlEvent> wanted) {
        // The writer pushes before it replaces now and pops after it has restored it, so both belong together when the
        // stack is the same before and after now was read: every push makes a new node.
        for (;;) {
            Outer around = outer;
            Object innermost = now;
            if (around == outer) {
                boolean found = innermost instanceof QuorlEvent && wanted.test((QuorlEvent) innermost);
                while (!found && around != null) {
                    found = wanted.test(around.event);
                    around = around.next;
                }
                return found;
            }
        }
    }

    // ---- waking ---------------------------------------------------------------------------------------------------

    /** True when this call made the key, which closeKey must then take away on the same thread. */
    private boolean openKey() {
        synchronized (this) {
            if (key != 0) {
                return false;
            }
            key = QuorlDispatcher.quorlDispatchable_SetThreadKey();
            return key != 0;
        }
    }

    private void closeKey() {
        synchronized (this) {
            long last = key;
            key = 0;
            if (last != 0) {
                QuorlDispatcher.quorlDispatchable_ClearThreadKey(last);
            }
        }
    }

    /** On the thread itself, which alone writes the key. */
    private boolean hasKey() {
        return key != 0;
    }

    /**
     * Wakes the thread from its dispatch of target, or from its next one; it then looks again. The monitor keeps the
     * cell alive meanwhile, and the library does not block in a signal.
     */
    void signal(Dispatchable target) {
        int id = target.idOrZero();
        synchronized (this) {
            if (key != 0 && id != 0) {
                QuorlDispatcher.quorlDispatchable_Signal(id, key);
            }
        }
    }

    /** A cell holds one signal, so one that was given for another reason may have taken a place; gives those again. */
    void repeatSignals() {
        QuorlDispatcher stopped = dispatcher;
        if (stopped != null && stopped.stopping()) {
            signal(stopped.target());
        }
        if (thread.isInterrupted()) {
            wakeInterrupted();
        }
    }

    private void wakeInterrupted() {
        Dispatchable target;
        synchronized (this) {
            target = interruptible;
        }
        if (target != null) {
            signal(target);
        }
    }

    /**
     * Lets Thread.interrupt() wake a thread that blocks in the library, by way of the hook that selectors have; no
     * channel is ever registered with it.
     */
    private final class Interruption extends AbstractSelector {
        Interruption() {
            super(null);
        }

        void beginWait() {
            begin();
        }

        void endWait() {
            end();
        }

        @Override
        public Selector wakeup() {
            wakeInterrupted();
            return this;
        }

        @Override
        protected void implCloseSelector() {}

        @Override
        protected SelectionKey register(AbstractSelectableChannel channel, int operations, Object attachment) {
            throw new UnsupportedOperationException();
        }

        @Override
        public Set<SelectionKey> keys() {
            return Set.of();
        }

        @Override
        public Set<SelectionKey> selectedKeys() {
            return Set.of();
        }

        @Override
        public int selectNow() {
            return 0;
        }

        @Override
        public int select(long timeout) {
            return 0;
        }

        @Override
        public int select() {
            return 0;
        }
    }
}
