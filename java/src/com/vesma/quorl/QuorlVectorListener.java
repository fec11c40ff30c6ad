package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import java.util.Objects;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * Interest in a subject, served in batches: the messages that wait are handed over together, 128 at most, in the order
 * of arrival. A batch never waits to fill.
 *
 * <p>Otherwise as {@link QuorlListener}. The messages are valid until the handler returns; each may be
 * {@linkplain QuorlMsg#keep kept}.
 *
 * <pre>{@code
 * try (QuorlVectorListener listener = new QuorlVectorListener(queue, transport, "log.>",
 *         (l, messages) -> store.writeAll(messages))) {
 *     queue.dispatch();
 * }
 * }</pre>
 */
public final class QuorlVectorListener extends QuorlEvent {
    /** The most messages in one batch. */
    public static final int BATCH_MAX = 128;

    /** What is run for each batch. */
    @FunctionalInterface
    public interface Handler {
        /**
         * Takes one batch.
         *
         * @param listener the listener that heard it
         * @param messages the messages, 1 or more, a list that cannot be changed; each valid until this returns unless
         *     it is kept
         * @throws Exception for the dispatching thread to deal with
         */
        void onMessages(QuorlVectorListener listener, List<QuorlMsg> messages) throws Exception;
    }

    /** Listeners of one group share batches, and a batch names one listener only, so each has a group of its own. */
    private static final AtomicInteger GROUPS = new AtomicInteger();

    private final Handler handler;
    private final QuorlTransport transport;
    private final String subject;

    /**
     * Starts listening.
     *
     * @param queue where the messages wait to be dispatched
     * @param transport where they come from
     * @param subject the subject or pattern, or an inbox of that transport
     * @param handler what is run for each batch
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT}, {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the transport is closed
     */
    public QuorlVectorListener(QuorlQueue queue, QuorlTransport transport, String subject, Handler handler) {
        super(Objects.requireNonNull(queue, "queue"));
        this.transport = Objects.requireNonNull(transport, "transport");
        this.subject = Objects.requireNonNull(subject, "subject");
        this.handler = Objects.requireNonNull(handler, "handler");
        byte[] bytes = Texts.cached(subject, "the subject");
        try {
            create(() -> quorlEvent_CreateVectorListener(
                    queue.id(), transport.id(), bytes, bytes.length, GROUPS.incrementAndGet()));
        } catch (QuorlException e) {
            throw refusal(e, queue, transport);
        } finally {
            Reference.reachabilityFence(transport);
            Reference.reachabilityFence(queue);
        }
    }

    /**
     * The transport that the messages come from.
     *
     * @return the transport given to the constructor
     */
    public QuorlTransport getTransport() {
        return transport;
    }

    /**
     * The subject that is listened to.
     *
     * @return the subject given to the constructor
     */
    public String getSubject() {
        return subject;
    }

    @Override
    Object take() {
        long[] handles = Dispatching.current().handles();
        int count = getDispatchedMsgsHandle(handles);
        if (count == 0) {
            return null;
        }
        QuorlMsg[] messages = new QuorlMsg[count];
        for (int i = 0; i < count; i++) {
            messages[i] = new QuorlMsg(handles[i]);
        }
        return messages;
    }

    @Override
    void run(Object taken) throws Exception {
        QuorlMsg[] messages = (QuorlMsg[]) taken;
        try {
            if (!isDropped()) {
                handler.onMessages(this, Collections.unmodifiableList(Arrays.asList(messages)));
            }
        } finally {
            for (QuorlMsg message : messages) {
                message.endOfHandler();
            }
        }
    }

    @Override
    void drop(Object taken) {
        for (QuorlMsg message : (QuorlMsg[]) taken) {
            message.close();
        }
    }

    @Override
    public String toString() {
        return "QuorlVectorListener[" + subject + "]";
    }

    native int quorlEvent_CreateVectorListener(
            int queueId, int transportId, byte[] subjectBytes, int subjectBytesLength, int cb);
    static native int getDispatchedMsgsHandle(long[] msgArray);
}
