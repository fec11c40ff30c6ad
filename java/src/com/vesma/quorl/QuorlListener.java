package com.vesma.quorl;

import java.lang.ref.Reference;
import java.util.Objects;

/**
 * Interest in a subject: every message that a transport carries on a matching subject goes to the handler.
 *
 * <p>A subject is 1 to 254 bytes of UTF-8, elements separated by dots. A listener's subject may have {@code *} for any
 * one element and a last {@code >} for one or more: {@code plant.*.temp} hears {@code plant.line3.temp}.
 *
 * <p>The handler runs on the threads that dispatch the queue. The message is valid until the handler returns; to use it
 * longer, {@link QuorlMsg#keep} it and close it yourself. What a handler throws goes to the caller of
 * {@link QuorlQueue#dispatch()}, or to the uncaught exception handler of a {@link QuorlDispatcher}'s thread.
 *
 * <pre>{@code
 * try (QuorlListener listener = new QuorlListener(queue, transport, "plant.*.temp",
 *         (l, message) -> System.out.println(message.getSendSubject() + " " + message.getF64("celsius")))) {
 *     queue.dispatch();
 * }
 * }</pre>
 */
public final class QuorlListener extends QuorlEvent {
    /** What is run for each message. */
    @FunctionalInterface
    public interface Handler {
        /**
         * Takes one message.
         *
         * @param listener the listener that heard it
         * @param message the message, valid until this returns unless it is kept
         * @throws Exception for the dispatching thread to deal with
         */
        void onMessage(QuorlListener listener, QuorlMsg message) throws Exception;
    }

    private final Handler handler;
    private final QuorlTransport transport;
    private final String subject;

    /**
     * Starts listening.
     *
     * @param queue where the messages wait to be dispatched
     * @param transport where they come from
     * @param subject the subject or pattern, or an inbox of that transport
     * @param handler what is run for each
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT}, {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the transport is closed
     */
    public QuorlListener(QuorlQueue queue, QuorlTransport transport, String subject, Handler handler) {
        super(Objects.requireNonNull(queue, "queue"));
        this.transport = Objects.requireNonNull(transport, "transport");
        this.subject = Objects.requireNonNull(subject, "subject");
        this.handler = Objects.requireNonNull(handler, "handler");
        byte[] bytes = Texts.cached(subject, "the subject");
        try {
            created(quorlEvent_CreateListener(queue.id(), transport.id(), bytes, bytes.length));
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
        long handle = getDispatchedMsgHandle();
        return handle == 0 ? null : new QuorlMsg(handle);
    }

    @Override
    void run(Object taken) throws Exception {
        QuorlMsg message = (QuorlMsg) taken;
        if (isDropped()) {
            message.close();
            return;
        }
        try {
            handler.onMessage(this, message);
        } finally {
            message.endOfHandler();
        }
    }

    @Override
    void drop(Object taken) {
        ((QuorlMsg) taken).close();
    }

    @Override
    public String toString() {
        return "QuorlListener[" + subject + "]";
    }

    native int quorlEvent_CreateListener(int queueId, int transportId, byte[] subjectBytes, int subjectBytesLength);
    static native long getDispatchedMsgHandle();
}
