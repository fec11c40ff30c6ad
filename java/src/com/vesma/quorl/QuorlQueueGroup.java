package com.vesma.quorl;

import java.lang.ref.Reference;
import java.util.Objects;

/**
 * Queues that are dispatched together: the waiting event of the queue with the highest priority first, in turn among
 * queues of the same priority.
 *
 * <p>A queue may be in several groups, and may be dispatched on its own at the same time. Closing a group leaves its
 * queues alone and wakes the threads that dispatch it with {@link QuorlClosedException}. All methods may be called from
 * any thread.
 *
 * <pre>{@code
 * try (QuorlQueueGroup group = new QuorlQueueGroup()) {
 *     alarms.setPriority(2);
 *     group.add(alarms);
 *     group.add(readings);
 *     while (running) {
 *         group.dispatch(Duration.ofSeconds(1));
 *     }
 * }
 * }</pre>
 */
public final class QuorlQueueGroup extends Dispatchable {
    private static final int OBJECT_TYPE = 3;

    /**
     * Creates a group without queues.
     *
     * @throws QuorlException {@link QuorlException#NOT_INITIALIZED} when the library is not open
     */
    public QuorlQueueGroup() {
        super(create(), QuorlQueueGroup::quorlQueueGroup_Destroy);
    }

    private static int create() {
        Library.load();
        return quorlQueueGroup_Create();
    }

    /**
     * Adds a queue.
     *
     * @param queue an open queue
     * @throws QuorlException {@link QuorlException#ALREADY_EXISTS} when it is in the group already
     */
    public void add(QuorlQueue queue) {
        Objects.requireNonNull(queue, "queue").setGrouped();
        try {
            quorlQueueGroup_Add(id(), queue.id());
        } catch (QuorlException e) {
            throw exists() ? queue.refused(e) : closedException();
        } finally {
            Reference.reachabilityFence(queue);
            Reference.reachabilityFence(this);
        }
    }

    /**
     * Takes a queue out.
     *
     * @param queue an open queue
     * @throws QuorlException {@link QuorlException#INVALID_QUEUE} when it is not in the group
     */
    public void remove(QuorlQueue queue) {
        Objects.requireNonNull(queue, "queue");
        try {
            quorlQueueGroup_Remove(id(), queue.id());
        } catch (QuorlException e) {
            throw exists() ? queue.refused(e) : closedException();
        } finally {
            Reference.reachabilityFence(queue);
            Reference.reachabilityFence(this);
        }
    }

    /**
     * Closes the group; see the class.
     */
    @Override
    public void close() {
        destroy();
    }

    @Override
    Object dispatchNative(double seconds) {
        try {
            return quorlQueueGroup_TimedDispatch(id(), seconds);
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
        return new QuorlClosedException(QuorlException.INVALID_QUEUE_GROUP, "the queue group");
    }

    @Override
    public String toString() {
        return "QuorlQueueGroup[" + (isClosed() ? "closed" : idOrZero()) + "]";
    }

    static native int quorlQueueGroup_Create();
    static native boolean quorlQueueGroup_Destroy(int id);
    static native void quorlQueueGroup_Add(int groupId, int queueId);
    static native void quorlQueueGroup_Remove(int groupId, int queueId);
    static native Object quorlQueueGroup_TimedDispatch(int id, double timeout);
}
