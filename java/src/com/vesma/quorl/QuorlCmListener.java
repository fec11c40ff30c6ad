package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.util.Objects;

/**
 * Certified interest in a subject: the messages that certified senders send there are kept until this listener has confirmed
 * them, and come in the order of their numbers, each once.
 *
 * <p>The listener registers with each sender under the certified name of its transport. From then on the sender keeps what it
 * sends for that name, also while no program has it: a program that opens a transport with the name and the same ledger, and
 * listens to the subject again, gets what it has missed. Messages of other senders, and those that come before a sender has
 * registered the listener, come too; {@link QuorlCmMsg#isCertified} tells them apart.
 *
 * <p><b>Confirmation.</b> A message is confirmed when the handler has returned. When the handler throws, it is not, and is
 * delivered again after the listener has been closed and made anew, in this process or the next. A handler that only passes
 * messages on confirms {@linkplain Confirmation#EXPLICIT explicitly}, with {@link #confirm}, when the work is done.
 *
 * <p><b>Close.</b> {@link #close()} keeps the agreements with the senders, so that nothing is missed until somebody listens
 * again; {@link #close(boolean) close(true)} ends them. It waits for the handlers on other threads, whose messages are
 * confirmed first, as in {@link QuorlEvent}.
 *
 * <pre>{@code
 * try (QuorlCmTransport certified = QuorlCmTransport.builder(transport).name("billing").ledger(Path.of("billing.ledger")).open();
 *      QuorlCmListener listener = new QuorlCmListener(queue, certified, "orders.>", (l, order) -> book(order))) {
 *     queue.dispatch();
 * }
 * }</pre>
 */
public final class QuorlCmListener extends QuorlEvent {
    /** What is run for each message. */
    @FunctionalInterface
    public interface Handler {
        /**
         * Takes one message.
         *
         * @param listener the listener that heard it
         * @param message the message, valid until this returns unless it is kept; do not close it, it is confirmed behind this
         * @throws Exception for the dispatching thread to deal with; the message then stays unconfirmed
         */
        void onMessage(QuorlCmListener listener, QuorlMsg message) throws Exception;
    }

    /** Who confirms the messages. */
    public enum Confirmation {
        /** The listener, each when its handler has returned. */
        AUTOMATIC,
        /** The program, by {@link QuorlCmListener#confirm}. */
        EXPLICIT
    }

    private final QuorlCmTransport transport;
    private final String subject;
    private final Confirmation confirmation;
    private final Handler handler;

    /** Handlers that run. Guarded by this. */
    private int running;

    /** Whether the last of them ends the library's listener, since one has closed it. Guarded by this. */
    private boolean endsBehindHandlers;

    /** Whether the senders are to forget the name. */
    private volatile boolean cancels;

    /**
     * Starts listening; messages are confirmed when the handler has returned.
     *
     * @param queue where the messages wait to be dispatched
     * @param transport where they come from
     * @param subject the subject or pattern
     * @param handler what is run for each
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT}, {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the transport is closed
     */
    public QuorlCmListener(QuorlQueue queue, QuorlCmTransport transport, String subject, Handler handler) {
        this(queue, transport, subject, Confirmation.AUTOMATIC, handler);
    }

    /**
     * Starts listening.
     *
     * @param queue where the messages wait to be dispatched
     * @param transport where they come from
     * @param subject the subject or pattern
     * @param confirmation who confirms them
     * @param handler what is run for each
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT}, {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the transport is closed
     */
    public QuorlCmListener(QuorlQueue queue, QuorlCmTransport transport, String subject, Confirmation confirmation, Handler handler) {
        super(Objects.requireNonNull(queue, "queue"));
        this.transport = Objects.requireNonNull(transport, "transport");
        this.subject = Objects.requireNonNull(subject, "subject");
        this.confirmation = Objects.requireNonNull(confirmation, "confirmation");
        this.handler = Objects.requireNonNull(handler, "handler");
        byte[] bytes = Texts.cached(subject, "the subject");
        try {
            create(() -> quorlcmEvent_CreateListener(queue.id(), transport.id(), bytes, bytes.length));
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
    public QuorlCmTransport getTransport() {
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

    /**
     * Who confirms the messages.
     *
     * @return as it was given to the constructor
     */
    public Confirmation getConfirmation() {
        return confirmation;
    }

    /**
     * Confirms a message to its sender, which then need not keep it for this listener any more. Confirming it again does
     * nothing, and so does confirming one that is not certified. Messages may be confirmed in any order, by any thread.
     *
     * @param message what this listener was given; one that is confirmed behind its handler was {@linkplain QuorlMsg#keep kept}
     * @throws QuorlException {@link QuorlException#NOT_PERMITTED} when another listener was given the message
     * @throws QuorlLedgerException when the confirmation cannot be stored
     * @throws QuorlClosedException if the listener or the message is closed
     */
    public void confirm(QuorlMsg message) {
        long handle = Objects.requireNonNull(message, "message").enter();
        try {
            int event = id();
            if (QuorlCmMsg.quorlMsg_GetCMSequence(handle, message) != 0) {
                quorlcmEvent_ConfirmMsg(event, handle, message);
            }
        } catch (QuorlException e) {
            throw refusal(e);
        } finally {
            message.leave();
        }
    }

    private QuorlException refusal(QuorlException e) {
        int status = e.getStatus();
        boolean gone = status == QuorlException.INVALID_EVENT || status == QuorlException.NOT_INITIALIZED;
        return gone ? new QuorlClosedException(QuorlException.INVALID_EVENT, "the event") : QuorlLedgerException.typed(e);
    }

    /** Behind a handler, also one of a listener that was closed meanwhile. */
    private void confirmHandled(QuorlMsg message) {
        if (message.isClosed()) {
            throw QuorlClosedException.says(QuorlException.INVALID_MSG,
                    "the handler of " + this + " has closed the message, which cannot be confirmed any more and will come again");
        }
        long handle = message.enter();
        try {
            int event = idOrZero();
            if (event != 0 && QuorlCmMsg.quorlMsg_GetCMSequence(handle, message) != 0) {
                quorlcmEvent_ConfirmMsg(event, handle, message);
            }
        } catch (QuorlException e) {
            QuorlException refusal = refusal(e);
            if (!(refusal instanceof QuorlClosedException)) {
                throw refusal;
            }
            // The library was closed, or the transport: the message comes again.
        } finally {
            message.leave();
        }
    }

    /**
     * Stops listening and keeps the agreements: senders keep messages for the certified name until it listens again.
     */
    @Override
    public void close() {
        close(false);
    }

    /**
     * Stops listening. A close inside a handler of this listener takes effect when that has returned, so that its message is
     * still confirmed. Closing again waits too and does nothing else.
     *
     * @param cancelAgreements whether the senders are to keep nothing for the certified name any more, on this subject
     */
    public void close(boolean cancelAgreements) {
        if (!isClosed()) {
            cancels = cancelAgreements;
        }
        markClosed();
        DestructionBarrier.awaitHandlers(this);
        synchronized (this) {
            if (running > 0) {
                endsBehindHandlers = true;
                return;
            }
        }
        destroy();
    }

    @Override
    void destroyNative(int event) {
        // Only this gives the reference of the bridge back; a certified listener itself it leaves alone.
        super.destroyNative(event);
        quorlcmEvent_Destroy(event, cancels);
    }

    @Override
    Object take() {
        long handle = QuorlListener.getDispatchedMsgHandle();
        return handle == 0 ? null : new QuorlMsg(handle);
    }

    @Override
    void run(Object taken) throws Exception {
        QuorlMsg message = (QuorlMsg) taken;
        synchronized (this) {
            running++;
        }
        try {
            if (isDropped()) {
                return;
            }
            handler.onMessage(this, message);
            if (confirmation == Confirmation.AUTOMATIC) {
                confirmHandled(message);
            }
        } finally {
            message.endOfHandler();
            boolean ends;
            synchronized (this) {
                ends = --running == 0 && endsBehindHandlers;
            }
            if (ends) {
                destroy();
            }
        }
    }

    @Override
    void drop(Object taken) {
        ((QuorlMsg) taken).close();
    }

    @Override
    public String toString() {
        return "QuorlCmListener[" + subject + "]";
    }

    native int quorlcmEvent_CreateListener(int queueId, int transportId, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlcmEvent_Destroy(int eventId, boolean cancelAgreements);
    static native void quorlcmEvent_SetExplicitConfirm(int eventId);
    static native void quorlcmEvent_ConfirmMsg(int eventId, long handle, QuorlMsg msg);
    static native void quorlcmEvent_CompleteNonCertifiedMsg(int transportId, long handle);
}
