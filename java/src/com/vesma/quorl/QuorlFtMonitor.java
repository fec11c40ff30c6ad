package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.time.Duration;
import java.util.Objects;
import java.util.OptionalInt;

/**
 * Watches a fault-tolerance group without joining it: how many of its members are active.
 *
 * <p>The handler gets the number whenever it changes, and never the same one twice in a row. The first one comes with the first
 * active member that is heard, or as 0 when none was for the lost interval: a new monitor does not guess. One that is cut off from
 * the members, as in an outage of the daemon, counts 0 as well. A program that is stepping back counts until it has done so.
 *
 * <p>The handler runs on the threads that dispatch the queue; let one thread do that, so that the numbers come in their order. What each
 * member does comes as advisories on {@code _QUORL.*.ft.*} to whoever listens to them.
 *
 * <pre>{@code
 * try (QuorlFtMonitor monitor = new QuorlFtMonitor(queue, transport, "plant.archive", Duration.ofSeconds(4),
 *         (m, active) -> lamp.set(active > 0))) {
 *     queue.dispatch();
 * }
 * }</pre>
 */
public final class QuorlFtMonitor extends QuorlEvent {
    /** What is run for each number. */
    @FunctionalInterface
    public interface Handler {
        /**
         * Takes a number.
         *
         * @param monitor the monitor that counts
         * @param activeMembers how many members are active
         * @throws Exception for the dispatching thread to deal with
         */
        void onActiveMembers(QuorlFtMonitor monitor, int activeMembers) throws Exception;
    }

    private final QuorlTransport transport;
    private final String group;
    private final Handler handler;

    /** Negative: none was told. */
    private volatile int last = -1;

    /**
     * Starts watching.
     *
     * @param queue where the numbers wait to be dispatched
     * @param transport that reaches the members
     * @param group the group's name: a subject without wildcards, of at most 244 bytes of UTF-8
     * @param lostInterval of silence, after which a member does not count any more: 1 ms to 30 days, and longer than two of the
     *     members' heartbeat intervals
     * @param handler what is run for each number
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT}, {@link QuorlException#INVALID_ARG},
     *     {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the transport is closed
     */
    public QuorlFtMonitor(QuorlQueue queue, QuorlTransport transport, String group, Duration lostInterval, Handler handler) {
        super(Objects.requireNonNull(queue, "queue"));
        this.transport = Objects.requireNonNull(transport, "transport");
        this.group = Objects.requireNonNull(group, "group");
        this.handler = Objects.requireNonNull(handler, "handler");
        double seconds = Dispatchable.seconds(lostInterval, "lostInterval");
        byte[] name = Texts.encode(group, "the group's name");
        try {
            create(() -> quorlftMonitor_Create(queue.id(), transport.id(), name, name.length, seconds));
        } catch (QuorlException e) {
            throw refusal(e, queue, transport);
        } finally {
            Reference.reachabilityFence(transport);
            Reference.reachabilityFence(queue);
        }
    }

    /**
     * The number that was told last.
     *
     * @return how many members were active then; empty before the first
     */
    public OptionalInt getActiveMembers() {
        int told = last;
        return told < 0 ? OptionalInt.empty() : OptionalInt.of(told);
    }

    /**
     * The group's name.
     *
     * @return as it was given to the constructor
     */
    public String getGroup() {
        return group;
    }

    /**
     * The transport that reaches the members.
     *
     * @return as it was given to the constructor
     */
    public QuorlTransport getTransport() {
        return transport;
    }

    /** 0 is a number like any other here: a dispatch that returns this monitor has left one. */
    @Override
    Object take() {
        return getActiveMembersCount();
    }

    @Override
    void run(Object taken) throws Exception {
        if (!isDropped()) {
            last = (Integer) taken;
            handler.onActiveMembers(this, last);
        }
    }

    @Override
    void destroyNative(int event) {
        quorlftMonitor_Destroy(event);
    }

    @Override
    public String toString() {
        return "QuorlFtMonitor[" + group + "]";
    }

    native int quorlftMonitor_Create(
            int queueId, int transportId, byte[] groupNameBytes, int groupNameBytesLength, double lostInterval);
    static native void quorlftMonitor_Destroy(int monitorId);
    static native int getActiveMembersCount();
}
