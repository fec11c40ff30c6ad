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

    /** Where a task's subject says to the library that it is given back. */
    private static final String RETURN = "_QUORL.DQ.RETURN";

    /** The same of a plain task: a bit of its number. */
    private static final long RETURNED = 1L << 31;

    /** The queue whose task the thread's handler works on. */
    private static final ThreadLocal<QuorlCmQueueTransport> WORKING = new ThreadLocal<>();

    /** One of the two is null. */
    private final QuorlCmTransport transport;
    private final QuorlCmQueueTransport workers;
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
        this(queue, Objects.requireNonNull(transport, "transport"), null, subject, confirmation, handler);
    }

    /**
     * Takes tasks of a distributed queue; each is complete when the handler has returned, and goes to another worker when the
     * handler throws.
     *
     * @param queue where the tasks wait to be dispatched
     * @param workers the member of the distributed queue that takes them
     * @param subject the subject or pattern; of several listeners of a member that match, the first that was made gets a task
     * @param handler what is run for each
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT}, {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the member is closed
     */
    public QuorlCmListener(QuorlQueue queue, QuorlCmQueueTransport workers, String subject, Handler handler) {
        this(queue, workers, subject, Confirmation.AUTOMATIC, handler);
    }

    /**
     * Takes tasks of a distributed queue.
     *
     * @param queue where the tasks wait to be dispatched
     * @param workers the member of the distributed queue that takes them
     * @param subject the subject or pattern; of several listeners of a member that match, the first that was made gets a task
     * @param confirmation who says that a task is complete
     * @param handler what is run for each
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT}, {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the member is closed
     */
    public QuorlCmListener(
            QuorlQueue queue, QuorlCmQueueTransport workers, String subject, Confirmation confirmation, Handler handler) {
        this(queue, null, Objects.requireNonNull(workers, "workers"), subject, confirmation, handler);
    }

    private QuorlCmListener(QuorlQueue queue, QuorlCmTransport transport, QuorlCmQueueTransport workers, String subject,
            Confirmation confirmation, Handler handler) {
        super(Objects.requireNonNull(queue, "queue"));
        this.transport = transport;
        this.workers = workers;
        this.subject = Objects.requireNonNull(subject, "subject");
        this.confirmation = Objects.requireNonNull(confirmation, "confirmation");
        this.handler = Objects.requireNonNull(handler, "handler");
        LibraryObject from = transport != null ? transport : workers;
        byte[] bytes = Texts.cached(subject, "the subject");
        try {
            create(() -> quorlcmEvent_CreateListener(queue.id(), from.id(), bytes, bytes.length));
        } catch (QuorlException e) {
            throw refusal(e, queue, from);
        } finally {
            Reference.reachabilityFence(from);
            Reference.reachabilityFence(queue);
        }
    }

    /**
     * The transport that the messages come from.
     *
     * @return the transport given to the constructor; null when it was a member of a distributed queue
     */
    public QuorlCmTransport getTransport() {
        return transport;
    }

    /**
     * The member of a distributed queue that the tasks come to.
     *
     * @return what was given to the constructor; null when that was a certified transport
     */
    public QuorlCmQueueTransport getQueueTransport() {
        return workers;
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
     * <p>Of a distributed queue, certified or not, the task is complete; when another worker has it meanwhile, nothing happens.
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
            confirmNatively(event, handle, message);
        } catch (QuorlException e) {
            // A plain message that the program has sent on by certified delivery, or one of a sender that is forgotten.
            if (e.getStatus() != QuorlException.NOT_FOUND) {
                throw refusal(e);
            }
        } finally {
            message.leave();
        }
    }

    /**
     * Gives a task of a distributed queue back: it goes to another worker, or comes here again when there is none, and counts as
     * reassigned. A handler that throws does the same. Without effect when another worker has it already.
     *
     * @param task what this listener was given; one that is given back behind its handler was {@linkplain QuorlMsg#keep kept}
     * @throws IllegalStateException if the listener is not one of a distributed queue
     * @throws QuorlClosedException if the listener or the message is closed
     */
    public void giveBack(QuorlMsg task) {
        int event = id();
        Objects.requireNonNull(task, "task").enter();
        task.leave();
        if (workers == null) {
            throw new IllegalStateException("only tasks of a distributed queue are given back");
        }
        returnNatively(event, task);
    }

    private void returnNatively(int event, QuorlMsg task) {
        try (QuorlMsg returned = task.copy()) {
            long handle = returned.setSendSubject(RETURN).enter();
            try {
                if (QuorlCmMsg.quorlMsg_GetCMSequence(handle, returned) != 0) {
                    quorlcmEvent_ConfirmMsg(event, handle, returned);
                    return;
                }
            } finally {
                returned.leave();
            }
            QuorlMsgField number = returned.getField("dqsn");
            if (number != null) {
                returned.updateU32("dqsn", returned.getU32("dqsn") | RETURNED);
                handle = returned.enter();
                try {
                    quorlcmEvent_CompleteNonCertifiedMsg(workers.memberId(), handle);
                } finally {
                    returned.leave();
                }
            }
        } catch (QuorlException e) {
            if (e.getStatus() != QuorlException.NOT_FOUND) {
                throw refusal(e);
            }
        }
    }

    private void confirmNatively(int event, long handle, QuorlMsg message) {
        if (QuorlCmMsg.quorlMsg_GetCMSequence(handle, message) != 0) {
            quorlcmEvent_ConfirmMsg(event, handle, message);
        } else if (workers != null) {
            quorlcmEvent_CompleteNonCertifiedMsg(workers.memberId(), handle);
        }
    }

    /** Whether the calling thread is inside a handler that works on a task of that queue. */
    static boolean isInsideHandlerOf(QuorlCmQueueTransport member) {
        return WORKING.get() == member;
    }

    private QuorlException refusal(QuorlException e) {
        int status = e.getStatus();
        boolean gone = status == QuorlException.INVALID_EVENT || status == QuorlException.NOT_INITIALIZED
                || (workers != null && status == QuorlException.INVALID_TRANSPORT);
        return gone ? new QuorlClosedException(QuorlException.INVALID_EVENT, "the event") : QuorlLedgerException.typed(e);
    }

    /** Behind a handler, also one of a listener that was closed meanwhile. */
    private void confirmHandled(QuorlMsg message) {
        if (message.isClosed()) {
            throw QuorlClosedException.says(QuorlException.INVALID_MSG,
                    "the handler of " + this + " has closed the message, which cannot be confirmed any more and "
                            + (workers == null ? "will come again"
                                    : "goes to another worker when the complete time has passed or the listener is closed"));
        }
        long handle = message.enter();
        try {
            int event = idOrZero();
            if (event != 0) {
                confirmNatively(event, handle, message);
            }
        } catch (QuorlException e) {
            QuorlException refusal = refusal(e);
            // The library was closed, or the transport: the message comes again. Or there was nothing to confirm.
            if (!(refusal instanceof QuorlClosedException) && refusal.getStatus() != QuorlException.NOT_FOUND) {
                throw refusal;
            }
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
        awaitId();
        synchronized (this) {
            running++;
        }
        try {
            if (isDropped()) {
                return;
            }
            handle(message);
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

    /** A task whose handler throws is for another worker. */
    private void handle(QuorlMsg message) throws Exception {
        if (workers == null) {
            handler.onMessage(this, message);
            return;
        }
        QuorlCmQueueTransport outer = WORKING.get();
        WORKING.set(workers);
        boolean done = false;
        try {
            handler.onMessage(this, message);
            done = true;
        } finally {
            if (outer == null) {
                WORKING.remove();
            } else {
                WORKING.set(outer);
            }
            int event = idOrZero();
            if (!done && confirmation == Confirmation.AUTOMATIC && event != 0 && !message.isClosed()) {
                returnNatively(event, message);
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
