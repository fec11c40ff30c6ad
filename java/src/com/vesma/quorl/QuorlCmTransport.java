package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.nio.file.Path;
import java.time.Duration;
import java.util.Objects;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ExecutionException;
import java.util.function.IntConsumer;
import java.util.stream.Stream;

/**
 * Certified delivery over a plain transport: what is sent here is kept until every registered listener has confirmed it, and
 * what is listened to here comes in order, each message once, however often either side dies.
 *
 * <p>A certified transport has a lasting <b>name</b>, which senders and listeners know each other by, and a <b>ledger</b>, a file
 * that remembers what was sent and not confirmed, who listens, and what was received. One program at a time has them. Without
 * a ledger everything lives in memory and ends with the transport; without a name the library makes one that does.
 *
 * <p>Each message has a {@linkplain QuorlCmMsg#getSequence number} among those of its sender and subject. Plain listeners hear
 * certified messages too, without any of this. What {@link #send} promises when it returns depends on the ledger's
 * {@link QuorlDurability}.
 *
 * <pre>{@code
 * try (QuorlCmTransport certified = QuorlCmTransport.builder(transport)
 *         .name("orders").ledger(Path.of("orders.ledger")).durability(QuorlDurability.POWER).open();
 *      QuorlMsg order = new QuorlMsg("orders.new").addI64("number", 4711)) {
 *     certified.addListener("billing", "orders.>");
 *     certified.send(order);
 * }
 * }</pre>
 *
 * <p>All methods may be called from any thread. {@link #close} returns when the library has finished with the ledger; it closes
 * the transport's listeners too, and it may come before or behind theirs and that of the plain transport.
 */
public final class QuorlCmTransport extends LibraryObject {
    private static final int OBJECT_TYPE = 100;

    /** Reviews that the thread is inside. */
    private static final ThreadLocal<Integer> REVIEWS = ThreadLocal.withInitial(() -> 0);

    /** What carries the messages; also so that it is not cleaned up while this is in use. */
    private final QuorlTransport transport;

    private final String name;

    private final CmDeliveries deliveries = new CmDeliveries(this::existing, this::send, this::closedException);

    /** What a certified transport is to be like; {@link #builder} makes one. */
    public static final class Builder {
        private final QuorlTransport transport;
        private String name;
        private Path ledger;
        private QuorlDurability durability;
        /** Null: when there is a ledger. */
        private Boolean requestOld;
        private String relayAgent;

        private Builder(QuorlTransport transport) {
            this.transport = Objects.requireNonNull(transport, "transport");
        }

        /**
         * Gives it a lasting name. No two programs may have the same at a time: the later one does nothing until the other is
         * gone, and the advisories say so.
         *
         * @param name a subject without wildcards, of at most 200 bytes of UTF-8
         * @return this
         */
        public Builder name(String name) {
            this.name = Objects.requireNonNull(name, "name");
            return this;
        }

        /**
         * Keeps what is to outlive the process in a file, which is made when it is not there.
         *
         * @param file one for each name, on a local disk
         * @return this
         */
        public Builder ledger(Path file) {
            ledger = Objects.requireNonNull(file, "file");
            return this;
        }

        /**
         * Says what a message survives once it has been sent.
         *
         * @param durability {@link QuorlDurability#PROCESS} without this call
         * @return this
         */
        public Builder durability(QuorlDurability durability) {
            this.durability = Objects.requireNonNull(durability, "durability");
            return this;
        }

        /**
         * Says whether senders are asked for what they kept for this name before this transport was opened. When they are not,
         * they give that up, and listeners get what is sent from then on.
         *
         * @param request without this call true if there is a ledger, and otherwise false
         * @return this
         */
        public Builder requestOld(boolean request) {
            requestOld = request;
            return this;
        }

        /**
         * Names the relay agent that keeps messages for this transport while it is
         * {@linkplain QuorlCmTransport#disconnectFromRelayAgent disconnected}: a program {@code quorl-relay} of that name.
         * It needs a {@link #name} and a {@link #ledger}. The transport hears and sends nothing until
         * {@link QuorlCmTransport#connectToRelayAgent}.
         *
         * @param name the relay agent's name
         * @return this
         */
        public Builder relayAgent(String name) {
            relayAgent = Objects.requireNonNull(name, "name");
            return this;
        }

        /**
         * Opens it.
         *
         * @return to be closed
         * @throws QuorlException {@link QuorlException#INVALID_NAME}
         * @throws QuorlLedgerException when the ledger cannot be used, is in use, or is that of another name; the file is
         *     unaltered then
         * @throws IllegalStateException for a ledger without a name, or a durability without a ledger
         * @throws QuorlClosedException when the plain transport is closed
         */
        public QuorlCmTransport open() {
            if (ledger != null && name == null) {
                throw new IllegalStateException("a ledger belongs to a lasting name: call name() too");
            }
            if (durability != null && ledger == null) {
                throw new IllegalStateException("without a ledger nothing survives: call ledger() too, or leave durability() out");
            }
            return new QuorlCmTransport(this);
        }
    }

    private QuorlCmTransport(Builder wanted) {
        // Destroyed by the cleaner, which may not wait.
        super(create(wanted), QuorlCmTransport::quorlcmTransport_Destroy);
        transport = wanted.transport;
        name = wanted.name;
    }

    private static int create(Builder wanted) {
        byte[] name = wanted.name == null ? null : Texts.encode(wanted.name, "the name");
        byte[] ledger = wanted.ledger == null ? null : Texts.encode(wanted.ledger.toString(), "the ledger's path");
        boolean old = wanted.requestOld == null ? wanted.ledger != null : wanted.requestOld;
        byte[] relay = wanted.relayAgent == null ? null : Texts.encode(wanted.relayAgent, "the relay agent's name");
        try {
            return quorlcmTransport_Create(wanted.transport.id(), name, Texts.length(name), old, ledger,
                    Texts.length(ledger), wanted.durability == QuorlDurability.POWER, relay, Texts.length(relay));
        } catch (QuorlException e) {
            throw wanted.transport.exists() ? QuorlLedgerException.typed(e) : wanted.transport.closedException();
        } finally {
            Reference.reachabilityFence(wanted.transport);
        }
    }

    /**
     * Begins a certified transport over a plain one, which carries its messages and must stay open for as long.
     *
     * @param transport any transport: a port on the bus of this process, to a daemon, a circuit
     * @return to be told more, and opened
     */
    public static Builder builder(QuorlTransport transport) {
        return new Builder(transport);
    }

    /**
     * The plain transport that carries the messages.
     *
     * @return what this was made over
     */
    public QuorlTransport getTransport() {
        return transport;
    }

    /**
     * The certified name.
     *
     * @return as it was given; null when the library has made one
     */
    public String getName() {
        return name;
    }

    // ---- sending ------------------------------------------------------------------------------------------------------

    /**
     * Sends a message that is kept until every listener that is registered for its subject has confirmed it, or its
     * {@linkplain QuorlCmMsg#setTimeLimit time limit} has passed. When this returns, the message is as safe as the ledger's
     * {@link QuorlDurability} says; when it throws, the message was not accepted.
     *
     * @param message with a send subject without wildcards
     * @return its number among those sent on its subject, from 1 on; 0 for a subject of the system's, where nothing is certified
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT}; {@link QuorlException#QUEUE_LIMIT} when too much is kept;
     *     {@link QuorlException#NOT_PERMITTED} when another program has the name
     * @throws QuorlLedgerException when the message cannot be stored
     */
    public long send(QuorlMsg message) {
        long handle = Objects.requireNonNull(message, "message").enter();
        try {
            quorlcmTransport_Send(id(), handle, message);
            return QuorlCmMsg.quorlMsg_GetCMSequence(handle, message);
        } catch (QuorlException e) {
            throw refusal(e);
        } finally {
            message.leave();
            Reference.reachabilityFence(this);
        }
    }

    /**
     * Sends a message as {@link #send} does and tells when everybody has confirmed it.
     *
     * <p>The future completes when every listener that the message was kept for has confirmed it, and names them; at once when
     * there is none. It completes exceptionally with
     * <ul>
     *   <li>{@link QuorlCmDeliveryException} when the message has expired, or a listener that it was kept for was removed,
     *   <li>{@link QuorlClosedException} when this transport or the library is closed; the message is delivered all the same,
     *   <li>{@link java.util.concurrent.CancellationException} when the program cancels it, which leaves the message as it is.
     * </ul>
     *
     * <p>One thread of the library completes these futures and runs the actions attached to them, so give a slow one to an
     * executor.
     *
     * @param message as {@link #send} takes it
     * @return what becomes of it
     * @throws QuorlException as {@link #send}
     */
    public CompletableFuture<QuorlCmDelivery> sendTracked(QuorlMsg message) {
        return deliveries.send(Objects.requireNonNull(message, "message"));
    }

    /**
     * Sends a request as {@link #send} does and waits for the first reply.
     *
     * @param request with a send subject; its reply subject is replaced
     * @param limit the longest wait, 0 or more
     * @return the reply, to be closed by the caller; null when none came in time. The request itself is kept until it is confirmed
     * @throws InterruptedException if the thread is interrupted before or during the wait
     * @throws QuorlException as {@link #send}
     */
    public QuorlMsg request(QuorlMsg request, Duration limit) throws InterruptedException {
        double seconds = Dispatchable.seconds(limit, "limit");
        Objects.requireNonNull(request, "request");
        if (Thread.interrupted()) {
            throw new InterruptedException();
        }
        int id = id();
        // The library's wait cannot be interrupted, so it is another thread's, which has a copy of its own.
        QuorlMsg asked = request.copy();
        CompletableFuture<QuorlMsg> answer = new CompletableFuture<>();
        Thread waiting = new Thread(() -> {
            try (asked) {
                long handle = asked.enter();
                long reply;
                try {
                    reply = quorlcmTransport_SendRequest(id, handle, seconds, asked);
                } finally {
                    asked.leave();
                    Reference.reachabilityFence(this);
                }
                QuorlMsg came = reply == 0 ? null : new QuorlMsg(reply);
                if (!answer.complete(came) && came != null) {
                    came.close();
                }
            } catch (Throwable e) {
                answer.completeExceptionally(e);
            }
        }, "quorl-certified-request");
        waiting.setDaemon(true);
        waiting.start();
        try {
            return answer.get();
        } catch (InterruptedException e) {
            if (!answer.cancel(false)) {
                QuorlMsg late = answer.getNow(null);
                if (late != null) {
                    late.close();
                }
            }
            throw e;
        } catch (ExecutionException e) {
            if (e.getCause() instanceof QuorlException refused) {
                throw refusal(refused);
            }
            if (e.getCause() instanceof Error error) {
                throw error;
            }
            throw (RuntimeException) e.getCause();
        }
    }

    /**
     * Answers a request, as {@link #send} sends. A requester that is certified is registered for the answer without asking.
     *
     * @param reply what to send; its send subject is replaced
     * @param request what a listener was given
     * @return as {@link #send} gives it
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT} when the request has no reply subject, and as {@link #send}
     */
    public long reply(QuorlMsg reply, QuorlMsg request) {
        try {
            return QuorlTransport.answer(reply, request, (replyHandle, requestHandle) -> {
                try {
                    quorlcmTransport_SendReply(id(), replyHandle, requestHandle, reply, request);
                    return QuorlCmMsg.quorlMsg_GetCMSequence(replyHandle, reply);
                } catch (QuorlException e) {
                    throw refusal(e);
                }
            });
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    // ---- who listens --------------------------------------------------------------------------------------------------

    /**
     * Lets listeners of a name register, which they may unless they were {@linkplain #disallowListener disallowed}.
     *
     * @param listener its certified name
     */
    public void allowListener(String listener) {
        byte[] bytes = nameOf(listener);
        call(id -> quorlcmTransport_AllowListener(id, bytes, bytes.length));
    }

    /**
     * Refuses listeners of a name, and ends what was agreed with them.
     *
     * @param listener its certified name
     */
    public void disallowListener(String listener) {
        byte[] bytes = nameOf(listener);
        call(id -> quorlcmTransport_DisallowListener(id, bytes, bytes.length));
    }

    /**
     * Keeps messages for a listener from now on, although it has not registered yet, and may not exist yet.
     *
     * @param listener its certified name
     * @param subject what it will listen to, a subject or a pattern
     */
    public void addListener(String listener, String subject) {
        byte[] bytes = nameOf(listener);
        byte[] pattern = subjectOf(subject);
        call(id -> quorlcmTransport_AddListener(id, bytes, bytes.length, pattern, pattern.length));
    }

    /**
     * Keeps nothing for a listener any more.
     *
     * @param listener its certified name
     * @param subject what it listens to, as it was added or as it has registered
     */
    public void removeListener(String listener, String subject) {
        byte[] bytes = nameOf(listener);
        byte[] pattern = subjectOf(subject);
        call(id -> quorlcmTransport_RemoveListener(id, bytes, bytes.length, pattern, pattern.length));
    }

    // ---- what is kept -------------------------------------------------------------------------------------------------

    /**
     * Forgets a subject: its messages, their numbers, and who listens.
     *
     * @param subject one that was sent on
     */
    public void removeSendState(String subject) {
        byte[] bytes = subjectOf(subject);
        call(id -> quorlcmTransport_RemoveSendState(id, bytes, bytes.length));
    }

    /**
     * Gives messages up, confirmed or not.
     *
     * @param subject what they were sent on
     * @param upTo the number of the last of them
     */
    public void expireMessages(String subject, long upTo) {
        byte[] bytes = subjectOf(subject);
        call(id -> quorlcmTransport_ExpireMessages(id, bytes, bytes.length, upTo));
    }

    /**
     * Returns when the ledger, as it is now, would survive the loss of power, whatever its durability.
     *
     * @throws QuorlLedgerException when it cannot be written
     */
    public void syncLedger() {
        call(QuorlCmTransport::quorlcmTransport_SyncLedger);
    }

    /**
     * Limits how long messages that are sent from now on, and have no limit of their own, are kept.
     *
     * @param limit from their send on; zero for no limit, as without this call
     */
    public void setDefaultTimeLimit(Duration limit) {
        double seconds = Dispatchable.seconds(limit, "limit");
        call(id -> quorlcmTransport_SetDefaultCMTimeLimit(id, seconds));
    }

    /**
     * Forgets senders that are silent for long, with the numbers that were received from them.
     *
     * @param silence how long, at least a second and at most 68 years, in whole seconds; zero for never, as without this call
     */
    public void setPublisherInactivityDiscardInterval(Duration silence) {
        double seconds = Dispatchable.seconds(silence, "silence");
        if (seconds != Math.rint(seconds) || seconds > Integer.MAX_VALUE) {
            throw new IllegalArgumentException("silence is " + silence + ", not whole seconds up to " + Integer.MAX_VALUE);
        }
        call(id -> quorlcmTransport_SetPublisherInactivityDiscardInterval(id, (int) seconds));
    }

    /**
     * Puts this transport on the network. The relay agent stands in for it no longer, and what it has kept comes in. Waits up
     * to 10 seconds for the relay agent.
     *
     * @throws QuorlException {@link QuorlException#NOT_PERMITTED} when this transport has none; {@link QuorlException#TIMEOUT}
     *     when it does not answer, and this transport is still off the network
     */
    public void connectToRelayAgent() {
        callRelayAgent(QuorlCmTransport::quorlcmTransport_ConnectToRelayAgent);
    }

    /**
     * Takes this transport off the network, and leaves a copy of what it keeps with the relay agent, which stands in for it until it
     * connects again. When this returns, the program may end. Sends are still accepted, and go out at the next connection.
     *
     * @throws QuorlException {@link QuorlException#NOT_PERMITTED} when this transport has none; {@link QuorlException#TIMEOUT}
     *     when it does not answer, and this transport stays on the network
     */
    public void disconnectFromRelayAgent() {
        callRelayAgent(QuorlCmTransport::quorlcmTransport_DisconnectFromRelayAgent);
    }

    // ---- review -------------------------------------------------------------------------------------------------------

    /**
     * What is kept, a subject at a time. The stream looks as far into the ledger as it is read, in parts: a subject that comes
     * meanwhile may be missing, none comes twice.
     *
     * @param subject the subject or pattern; null for all
     * @return to be read once; needs no close
     */
    public Stream<QuorlCmSubject> review(String subject) {
        if (subject != null) {
            subjectOf(subject);
        }
        existing();
        return CmReview.stream(this, subject);
    }

    /**
     * Shows what is kept, a subject at a time, and returns behind the last.
     *
     * @param subject the subject or pattern; null for all
     * @param info what is shown each subject, on this thread, and may end the review
     */
    public void review(String subject, QuorlCmReviewLedgerInfo info) {
        byte[] bytes = subject == null ? null : subjectOf(subject);
        Objects.requireNonNull(info, "info");
        REVIEWS.set(REVIEWS.get() + 1);
        try {
            call(id -> quorlcmTransport_ReviewLedger(id, bytes, Texts.length(bytes), info));
        } finally {
            int outer = REVIEWS.get() - 1;
            if (outer == 0) {
                REVIEWS.remove();
            } else {
                REVIEWS.set(outer);
            }
            info.rethrow();
        }
    }

    // ---- life ---------------------------------------------------------------------------------------------------------

    /**
     * Closes the transport and its listeners, which keep their agreements, and waits until the library has finished with the
     * ledger, so that it may be opened again at once. What was not confirmed is kept in the ledger. Inside a review the wait is
     * left out, since the review itself would be waited for. Closing again does nothing.
     */
    @Override
    public void close() {
        if (!isClosed()) {
            for (QuorlCmListener listener : QuorlEvent.open(QuorlCmListener.class)) {
                if (listener.getTransport() == this) {
                    listener.close();
                }
            }
        }
        destroy(REVIEWS.get() == 0 ? QuorlCmTransport::destroyAndWait : QuorlCmTransport::quorlcmTransport_Destroy);
        deliveries.close();
    }

    static void destroyAndWait(int id) {
        try {
            quorlcmTransport_DestroyEx(id);
        } catch (QuorlException e) {
            int status = e.getStatus();
            // The library's last close has destroyed it.
            if (status != QuorlException.INVALID_TRANSPORT && status != QuorlException.NOT_INITIALIZED) {
                throw e;
            }
        }
    }

    @Override
    QuorlClosedException closedException() {
        return new QuorlClosedException(QuorlException.INVALID_TRANSPORT, "the certified transport");
    }

    @Override
    int kind() {
        return OBJECT_TYPE;
    }

    /** Messages whose delivery the program waits for. */
    int waitingDeliveries() {
        return deliveries.waiting();
    }

    private int existing() {
        if (!exists()) {
            throw closedException();
        }
        return id();
    }

    private void call(IntConsumer library) {
        try {
            library.accept(id());
        } catch (QuorlException e) {
            throw refusal(e);
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    /** Time that has passed is a failure here, with a text that says whose answer is missing. */
    private void callRelayAgent(IntConsumer library) {
        try {
            call(library);
        } catch (QuorlException e) {
            throw e.getStatus() == QuorlException.TIMEOUT ? new QuorlException(e.getStatus(), FailureDetail.last()) : e;
        }
    }

    /** What the library's refusal is to the program: another thread may have closed the transport meanwhile. */
    private QuorlException refusal(QuorlException e) {
        return exists() ? QuorlLedgerException.typed(e) : closedException();
    }

    private static byte[] nameOf(String listener) {
        return Texts.encode(Objects.requireNonNull(listener, "listener"), "the listener's name");
    }

    private static byte[] subjectOf(String subject) {
        return Texts.encode(Objects.requireNonNull(subject, "subject"), "the subject");
    }

    @Override
    public String toString() {
        return "QuorlCmTransport[" + (isClosed() ? "closed" : name == null ? Integer.toString(idOrZero()) : name) + "]";
    }

    static native int quorlcmTransport_Create(
            int transportId, byte[] cmNameBytes, int cmNameBytesLength, boolean requestOld, byte[] ledgerNameBytes,
            int ledgerNameBytesLength, boolean syncLedger, byte[] relayAgentBytes, int relayAgentBytesLength);
    static native void quorlcmTransport_Destroy(int id);
    static native void quorlcmTransport_DestroyEx(int id);
    static native void quorlcmTransport_Send(int id, long handle, QuorlMsg msg);
    static native long quorlcmTransport_SendRequest(int id, long handle, double timeout, QuorlMsg msg);
    static native void quorlcmTransport_SendReply(int id, long replyHandle, long requestHandle, QuorlMsg reply, QuorlMsg request);
    static native void quorlcmTransport_AllowListener(int id, byte[] cmNameBytes, int cmNameBytesLength);
    static native void quorlcmTransport_DisallowListener(int id, byte[] cmNameBytes, int cmNameBytesLength);
    static native void quorlcmTransport_AddListener(
            int id, byte[] cmNameBytes, int cmNameBytesLength, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlcmTransport_RemoveListener(
            int id, byte[] cmNameBytes, int cmNameBytesLength, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlcmTransport_RemoveSendState(int id, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlcmTransport_ExpireMessages(
            int id, byte[] subjectBytes, int subjectBytesLength, long sequenceNumber);
    static native void quorlcmTransport_SyncLedger(int id);
    static native void quorlcmTransport_ConnectToRelayAgent(int id);
    static native void quorlcmTransport_DisconnectFromRelayAgent(int id);
    static native void quorlcmTransport_SetDefaultCMTimeLimit(int id, double timeLimit);
    static native void quorlcmTransport_SetPublisherInactivityDiscardInterval(int id, int timeout);
    static native void quorlcmTransport_ReviewLedger(
            int id, byte[] subjectBytes, int subjectBytesLength, QuorlCmReviewLedgerInfo ledgerInfo);
}
