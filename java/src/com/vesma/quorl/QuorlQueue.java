package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.util.Objects;

/**
 * A queue of events: messages that arrived and timers that fired, in order, until a thread dispatches them.
 *
 * <p>Any number of threads may dispatch a queue, in a loop of their own or as {@link QuorlDispatcher}s; each takes the
 * next event and runs its handler. With one thread the handlers run one after the other, in the order of arrival.
 *
 * <p>Closing a queue drops the events that wait, wakes the threads that dispatch it with {@link QuorlClosedException} and
 * waits for handlers of its events on other threads. Its listeners and timers stay silent from then on and are to be
 * closed too, in any order. All methods may be called from any thread.
 *
 * <pre>{@code
 * try (QuorlQueue queue = new QuorlQueue("orders");
 *      QuorlListener listener = new QuorlListener(queue, transport, "orders.*", (l, message) -> handle(message))) {
 *     queue.limit(QuorlQueue.DISCARD_FIRST, 10_000, 100);
 *     while (running) {
 *         queue.dispatch(Duration.ofSeconds(1));
 *     }
 * }
 * }</pre>
 */
public final class QuorlQueue extends Dispatchable {
    /** No limit: the queue grows. */
    public static final int DISCARD_NONE = 0;
    /** A full queue drops its oldest events. */
    public static final int DISCARD_FIRST = 1;
    /** A full queue drops its newest events. */
    public static final int DISCARD_LAST = 2;
    /** A full queue drops the event that arrives. */
    public static final int DISCARD_NEW = 3;

    /** The library makes it when it is opened, always with this id. */
    private static final int DEFAULT_ID = 1;

    private static final int OBJECT_TYPE = 2;

    private static final QuorlQueue DEFAULT = new QuorlQueue(DEFAULT_ID);

    /** Whether it was ever in a group. A group's dispatch may then deliver its events, also after it was taken out. */
    private volatile boolean grouped;

    /**
     * Creates a queue without a limit, with priority 1 and no name.
     *
     * @throws QuorlException {@link QuorlException#NOT_INITIALIZED} when the library is not open
     */
    public QuorlQueue() {
        super(create(), QuorlQueue::quorlQueue_Destroy);
    }

    /**
     * Creates a queue with a name.
     *
     * @param name for advisories and statistics, as {@link #setName} takes it
     * @throws QuorlException {@link QuorlException#NOT_INITIALIZED} when the library is not open
     */
    public QuorlQueue(String name) {
        this();
        try {
            setName(name);
        } catch (RuntimeException e) {
            close();
            throw e;
        }
    }

    private QuorlQueue(int id) {
        super(id, null);
    }

    private static int create() {
        Library.load();
        return quorlQueue_Create();
    }

    /**
     * The queue that opening the library creates. It ends with the library; closing it does nothing.
     *
     * @return the same object each time
     */
    public static QuorlQueue getDefault() {
        Library.load();
        return DEFAULT;
    }

    /**
     * Names the queue for advisories and statistics.
     *
     * @param name at most 255 bytes of UTF-8; the empty name takes the name away
     */
    public void setName(String name) {
        byte[] bytes = Texts.encode(Objects.requireNonNull(name, "name"), "the queue's name");
        change(id -> quorlQueue_SetName(id, bytes, bytes.length));
    }

    /**
     * The queue's name.
     *
     * @return the name, empty when it has none
     */
    public String getName() {
        byte[] bytes = use(QuorlQueue::quorlQueue_GetName);
        if (bytes == null && !exists()) {
            throw closedException();
        }
        return bytes == null ? "" : Texts.decode(bytes, bytes.length);
    }

    /**
     * The number of events that wait. One whose handler runs no longer counts.
     *
     * @return 0 to 2<sup>32</sup>-1
     */
    public long getCount() {
        return use(id -> Integer.toUnsignedLong(quorlQueue_GetCount(id)));
    }

    /**
     * The queue's priority in the groups that it is in: a higher one is dispatched first.
     *
     * @param priority 0 to 2<sup>32</sup>-1; 1 at the start
     */
    public void setPriority(long priority) {
        int number = unsigned(priority, "priority");
        change(id -> quorlQueue_SetPriority(id, number));
    }

    /**
     * The queue's priority.
     *
     * @return as {@link #setPriority} takes it
     */
    public long getPriority() {
        return use(id -> Integer.toUnsignedLong(quorlQueue_GetPriority(id)));
    }

    /**
     * Limits the number of events that wait.
     *
     * @param policy what a full queue does: one of the constants of this class
     * @param maxEvents the limit, 1 or more; 0 with {@link #DISCARD_NONE}
     * @param discardAmount how many events give way at once, 1 to maxEvents; 0 with {@link #DISCARD_NONE}
     * @throws QuorlException {@link QuorlException#INVALID_ARG} when the three do not go together
     */
    public void limit(int policy, long maxEvents, long discardAmount) {
        int max = unsigned(maxEvents, "maxEvents");
        int discard = unsigned(discardAmount, "discardAmount");
        change(id -> quorlQueue_SetLimitPolicy(id, policy, max, discard));
    }

    /**
     * What a full queue does.
     *
     * @return one of the constants of this class
     */
    public int getLimitPolicy() {
        return use(QuorlQueue::quorlQueue_GetLimitPolicy);
    }

    /**
     * How many events may wait.
     *
     * @return the limit, 0 for none
     */
    public long getMaxEvents() {
        return use(id -> Integer.toUnsignedLong(quorlQueue_GetMaxEvents(id)));
    }

    /**
     * How many events give way at once when the queue is full.
     *
     * @return the number, 0 without a limit
     */
    public long getDiscardAmount() {
        return use(id -> Integer.toUnsignedLong(quorlQueue_GetDiscardAmount(id)));
    }

    /**
     * Closes the queue; see the class. The default queue stays.
     */
    @Override
    public void close() {
        if (this == DEFAULT) {
            return;
        }
        destroy();
        QuorlEvent.queueClosed(this);
        DestructionBarrier.awaitHandlers(this);
    }

    void setGrouped() {
        grouped = true;
    }

    /** Whether a dispatch of target may deliver this queue's events. */
    boolean isDispatchedBy(Object target) {
        return target == this || (grouped && target instanceof QuorlQueueGroup);
    }

    @Override
    Object dispatchNative(double seconds) {
        try {
            return quorlQueue_TimedDispatch(id(), seconds);
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    @Override
    int kind() {
        return OBJECT_TYPE;
    }

    @Override
    QuorlClosedException closedException() {
        return new QuorlClosedException(QuorlException.INVALID_QUEUE, "the queue");
    }

    @Override
    public String toString() {
        return "QuorlQueue[" + (isClosed() ? "closed" : idOrZero()) + "]";
    }

    private static int unsigned(long value, String what) {
        if (value < 0 || value > 0xFFFF_FFFFL) {
            throw new IllegalArgumentException(what + " is not in 0 to 4294967295: " + value);
        }
        return (int) value;
    }

    static native int quorlQueue_Create();
    static native void quorlQueue_Destroy(int id);
    static native void quorlQueue_SetName(int id, byte[] nameBytes, int nameBytesLength);
    static native byte[] quorlQueue_GetName(int id);
    static native int quorlQueue_GetCount(int id);
    static native Object quorlQueue_TimedDispatch(int id, double timeout);
    static native void quorlQueue_SetPriority(int id, int priority);
    static native int quorlQueue_GetPriority(int id);
    static native void quorlQueue_SetLimitPolicy(int id, int limitPolicy, int maxEvents, int discardAmount);
    static native int quorlQueue_GetLimitPolicy(int id);
    static native int quorlQueue_GetMaxEvents(int id);
    static native int quorlQueue_GetDiscardAmount(int id);
}
