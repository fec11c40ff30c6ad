package com.vesma.quorl;

import java.util.List;
import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.IntSupplier;

/**
 * Something that a queue delivers: a message that arrived ({@link QuorlListener}, {@link QuorlVectorListener},
 * {@link QuorlCmListener}), a timer that fired ({@link QuorlTimer}), what a member of a fault-tolerance group is to do
 * ({@link QuorlFtMember}), how many of its members are active ({@link QuorlFtMonitor}).
 *
 * <p>An event lives until it is closed, also when the program keeps no reference to it. Its handler runs on the threads
 * that dispatch its queue, on several at once when several dispatch it.
 *
 * <p>{@link #close} may be called from any thread at any time, also inside handlers. When it has returned, no handler of
 * the event runs and none will: it waits for those that run on other threads, and does not wait for a handler that it is
 * called from. When two handlers on two threads close each other's events, one of the two closes returns early. Do not
 * close an event while holding a lock that its handler wants.
 *
 * <pre>{@code
 * try (QuorlListener listener = new QuorlListener(queue, transport, "plant.>", (l, message) -> System.out.println(message))) {
 *     queue.dispatch(Duration.ofSeconds(1));
 * }
 * }</pre>
 */
public class QuorlEvent implements AutoCloseable {
    /** The open events. They are reachable anyway, through the references that the bridge holds for the library. */
    private static final Set<QuorlEvent> OPEN = ConcurrentHashMap.newKeySet();

    /** Threads that make one. */
    private static final AtomicInteger MAKING = new AtomicInteger();

    /** Whether none may be made, since the library's last close is past those that are open. */
    private static volatile boolean refused;

    private final QuorlQueue queue;

    /** The library's id, 0 before creation and after destruction. Written by the creator, then behind the barrier. */
    private volatile int id;

    private volatile boolean closed;

    /** Whether create has ended: an event is delivered before that, perhaps, on other threads. */
    private volatile boolean settled;

    /** The bridge makes one to say that a dispatch found nothing in time. */
    QuorlEvent() {
        queue = null;
    }

    QuorlEvent(QuorlQueue queue) {
        this.queue = queue;
    }

    /**
     * Makes the library's event. Called once, by the subclass's constructor as its last step. The event may have been
     * delivered before this returns, and its handler may have closed it.
     *
     * <p>An event that nobody here knows would keep its reference for ever when the library ends it, so the last close waits
     * for those that are being made, and lets none be made behind its back.
     */
    final void create(IntSupplier library) {
        MAKING.incrementAndGet();
        try {
            if (refused) {
                throw new QuorlException(QuorlException.NOT_INITIALIZED, "the library is being closed");
            }
            int made = library.getAsInt();
            OPEN.add(this);
            id = made;
        } finally {
            settled = true;
            MAKING.decrementAndGet();
        }
        if (closed) {
            destroy();
        }
    }

    /** What the library's refusal to make an event is: what the event needs may be closed. */
    static QuorlException refusal(QuorlException e, QuorlQueue queue, LibraryObject transport) {
        return queue.exists() ? transport.refused(e) : queue.closedException();
    }

    /** Takes what the library has left for this thread, null for nothing; on the dispatching thread, once a dispatch. */
    Object take() {
        return null;
    }

    /** Runs the handler with what was taken, or drops it when the event is closed; on any thread. */
    void run(Object taken) throws Exception {}

    /** Ends what was taken without a handler. */
    void drop(Object taken) {}

    /** Whether what comes for this event is to be dropped. */
    final boolean isDropped() {
        return closed || queue.isClosed();
    }

    final boolean queueIsClosed() {
        return queue.isClosed();
    }

    final boolean isOn(QuorlQueue other) {
        return queue == other;
    }

    /** The id for a native; the library refuses one whose event is gone. */
    final int id() {
        if (closed) {
            throw new QuorlClosedException(QuorlException.INVALID_EVENT, "the event");
        }
        return id;
    }

    /** The id while the library has the event, also when it was closed and a handler of it runs; else 0. */
    final int idOrZero() {
        return id;
    }

    /** For what handlers do: waits while another thread is about to note the id, having got it from the library. */
    final void awaitId() {
        while (!settled) {
            Thread.onSpinWait();
        }
    }

    /** The open events of a class. */
    static <T extends QuorlEvent> List<T> open(Class<T> type) {
        return OPEN.stream().filter(type::isInstance).map(type::cast).toList();
    }

    /**
     * The queue that delivers the event.
     *
     * @return the queue given to the constructor
     */
    public final QuorlQueue getQueue() {
        return queue;
    }

    /**
     * Whether {@link #close} was called.
     *
     * @return true from the beginning of the first close
     */
    public final boolean isClosed() {
        return closed;
    }

    /**
     * Ends the event: nothing that arrives or fires from now on is delivered, and what waits in the queue is dropped.
     * Waits for the event's handlers on other threads. Closing again waits too and does nothing else.
     */
    @Override
    public void close() {
        if (queue == null) {
            return;
        }
        markClosed();
        destroy();
        DestructionBarrier.awaitHandlers(this);
    }

    /** From now on what comes for this event is dropped. */
    final void markClosed() {
        closed = true;
    }

    /** Ends the library's event, the first time; while nobody can be handed it. */
    final void destroy() {
        DestructionBarrier.destroy(queue, this::destroyOnce);
    }

    private void destroyOnce() {
        if (id != 0) {
            destroyNative(id);
            id = 0;
            OPEN.remove(this);
        }
    }

    /** Has the library end it and the bridge give back its reference. Behind the barrier: must not block. */
    void destroyNative(int event) {
        quorlEvent_Destroy(event);
    }

    /** Behind the close of its queue, which leaves the event itself open. */
    void queueClosed() {}

    static void queueClosed(QuorlQueue queue) {
        for (QuorlEvent event : OPEN) {
            if (event.isOn(queue)) {
                event.queueClosed();
            }
        }
    }

    /** Before the library's last close. */
    static void closeAll() {
        refused = true;
        while (MAKING.get() != 0) {
            Thread.onSpinWait();
        }
        RuntimeException first = null;
        for (QuorlEvent event : OPEN) {
            try {
                event.close();
            } catch (RuntimeException e) {
                first = e;
            }
        }
        if (first != null) {
            throw first;
        }
    }

    /** Behind it. */
    static void libraryClosed() {
        refused = false;
    }

    static native void quorlEvent_Destroy(int id);
}
