package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.util.Arrays;
import java.util.Objects;
import java.util.concurrent.Flow;
import java.util.stream.Stream;

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
 * <p>A listener without a handler is asked for its messages instead, by a {@link #stream} or a {@link #publisher}.
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

    /** Null for a listener whose messages are asked for. */
    private final Handler handler;

    /** Null for a listener with a handler. */
    private final PullSource pull;

    /** What the library takes in front of a subject, with the name behind it, for a listener that shares. */
    private static final String SHARE_PREFIX = "_QUORL.SHARE.";

    /** Null for a listener that shares with nobody. */
    private final String share;

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
        this(queue, transport, null, subject, Objects.requireNonNull(handler, "handler"), false);
    }

    /**
     * Starts listening without a handler. The messages are asked for, one after the other, by a {@link #stream} or by the
     * subscriber of a {@link #publisher}. Until then they wait in the queue, where the queue's
     * {@linkplain QuorlQueue#limit limit} holds. Give the listener a queue of its own, and let nothing else dispatch that.
     *
     * @param queue where the messages wait to be asked for
     * @param transport where they come from
     * @param subject the subject or pattern, or an inbox of that transport
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT}, {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the transport is closed
     */
    public QuorlListener(QuorlQueue queue, QuorlTransport transport, String subject) {
        this(queue, transport, null, subject, null, true);
    }

    /**
     * Starts listening and shares: of the listeners that share the name, in this program and in others on the same bus, and
     * whose subjects match, one gets each message. In this process they take turns; over a daemon, the daemon chooses a
     * process, and its listeners take turns. On a circuit, the listeners at this end share what its peer sends. Listeners
     * without a name, or under another, get each message as ever.
     *
     * <p>There is no redelivery: what waits in the queue of a listener that is closed, or of a process that ends, is lost.
     * Over a daemon, messages sent in quick succession may travel together and then come to one process, and messages of
     * more than 256 KiB do not come: the advisory {@code _QUORL.WARN.daemon.malformed} tells of these.
     *
     * <pre>{@code
     * QuorlListener.shared("crew", queue, transport, "orders.*", (l, order) -> process(order));
     * }</pre>
     *
     * @param share the name: 1 to 63 letters, digits and other printable ASCII characters, but blanks, {@code .},
     *     {@code *} and {@code >}
     * @param queue where the messages wait to be dispatched
     * @param transport where they come from
     * @param subject the subject or pattern, none that begins with {@code _}
     * @param handler what is run for each
     * @return the listener
     * @throws QuorlException {@link QuorlException#INVALID_NAME}, {@link QuorlException#INVALID_SUBJECT},
     *     {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the transport is closed
     */
    public static QuorlListener shared(
            String share, QuorlQueue queue, QuorlTransport transport, String subject, Handler handler) {
        return new QuorlListener(queue, transport, Objects.requireNonNull(share, "share"), subject,
                Objects.requireNonNull(handler, "handler"), false);
    }

    /**
     * Shares as {@link #shared(String, QuorlQueue, QuorlTransport, String, Handler)}, without a handler: the messages are
     * asked for by a {@link #stream} or by the subscriber of a {@link #publisher}.
     *
     * @param share the name
     * @param queue where the messages wait to be asked for
     * @param transport where they come from
     * @param subject the subject or pattern, none that begins with {@code _}
     * @return the listener
     * @throws QuorlException {@link QuorlException#INVALID_NAME}, {@link QuorlException#INVALID_SUBJECT},
     *     {@link QuorlException#NOT_INITIALIZED}
     * @throws QuorlClosedException if the queue or the transport is closed
     */
    public static QuorlListener shared(String share, QuorlQueue queue, QuorlTransport transport, String subject) {
        return new QuorlListener(queue, transport, Objects.requireNonNull(share, "share"), subject, null, true);
    }

    private QuorlListener(
            QuorlQueue queue, QuorlTransport transport, String share, String subject, Handler handler, boolean pulled) {
        super(Objects.requireNonNull(queue, "queue"));
        this.transport = Objects.requireNonNull(transport, "transport");
        this.subject = Objects.requireNonNull(subject, "subject");
        this.share = share;
        this.handler = handler;
        pull = pulled ? new PullSource(this) : null;
        byte[] bytes = share == null ? Texts.cached(subject, "the subject") : shared(share, subject);
        try {
            create(() -> quorlEvent_CreateListener(queue.id(), transport.id(), bytes, bytes.length));
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

    /**
     * The name that the listener shares.
     *
     * @return the name given to {@link #shared}; null for a listener that shares with nobody
     */
    public String getShare() {
        return share;
    }

    /** Behind the prefix, the name ends with the first point. */
    private static byte[] shared(String share, String subject) {
        if (share.indexOf('.') >= 0) {
            throw new QuorlException(QuorlException.INVALID_NAME,
                    "\"" + share + "\" is not a valid name to share under: it has a point");
        }
        byte[] name = Texts.encode(share, "the name to share under");
        byte[] rest = Texts.cached(subject, "the subject");
        byte[] prefix = Texts.cached(SHARE_PREFIX, "the prefix");
        byte[] bytes = Arrays.copyOf(prefix, prefix.length + name.length + 1 + rest.length);
        System.arraycopy(name, 0, bytes, prefix.length, name.length);
        bytes[prefix.length + name.length] = '.';
        System.arraycopy(rest, 0, bytes, prefix.length + name.length + 1, rest.length);
        return bytes;
    }

    /**
     * The messages of a listener without a handler, as a stream that waits for each.
     *
     * <p>The thread that reads the stream dispatches the listener's queue, one event for each message; handlers of other
     * events on that queue run meanwhile, on the same thread. A message is valid until the next one is asked for; to use
     * it longer, {@link QuorlMsg#keep} it and close it yourself, or map it to something else:
     * {@code stream().map(QuorlMsg::view)}.
     *
     * <p>The stream ends when the listener or its queue is closed, by any thread. Closing the stream closes the listener.
     * An interrupt ends the wait with {@link QuorlException#INTR} and leaves the thread's interrupt flag set. A parallel
     * stream works as a sequential one.
     *
     * <pre>{@code
     * try (QuorlListener listener = new QuorlListener(queue, transport, "plant.*.temp");
     *      Stream<QuorlMsg> messages = listener.stream()) {
     *     double highest = messages.limit(100).mapToDouble(m -> m.getF64("celsius")).max().getAsDouble();
     * }
     * }</pre>
     *
     * @return to be closed
     * @throws IllegalStateException if the listener has a handler, or a stream or subscriber already
     */
    public Stream<QuorlMsg> stream() {
        return pull().stream();
    }

    /**
     * The messages of a listener without a handler, for one subscriber that says how many it can take.
     *
     * <p>A daemon thread of the subscription dispatches the listener's queue while the subscriber has asked for more than
     * it has got, and sleeps otherwise. So the subscriber's demand drives the dispatch: what was not asked for waits in the
     * queue, and when there is more than the queue's {@linkplain QuorlQueue#limit limit}, the limit's policy acts.
     *
     * <p>That thread makes all calls of the subscriber but {@code onSubscribe}, one at a time. A message is valid until
     * {@code onNext} returns; to use it longer, {@link QuorlMsg#keep} it and close it yourself. The subscription completes
     * when the listener or its queue is closed. Cancelling it closes the listener, soon after the call. A request for less
     * than one message ends it with an {@link IllegalArgumentException}. What {@code onNext} throws cancels the
     * subscription and goes to the thread's uncaught exception handler. A second subscriber is refused with an
     * {@link IllegalStateException}.
     *
     * @return of one subscriber, whenever that comes
     * @throws IllegalStateException if the listener has a handler
     */
    public Flow.Publisher<QuorlMsg> publisher() {
        return pull()::subscribe;
    }

    private PullSource pull() {
        if (pull == null) {
            throw new IllegalStateException("the messages go to the listener's handler");
        }
        return pull;
    }

    @Override
    public void close() {
        super.close();
        queueClosed();
    }

    @Override
    void queueClosed() {
        if (pull != null) {
            pull.ended();
        }
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
        if (pull != null) {
            pull.arrived(message);
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
        return "QuorlListener[" + subject + (share == null ? "" : " shared as " + share) + "]";
    }

    native int quorlEvent_CreateListener(int queueId, int transportId, byte[] subjectBytes, int subjectBytesLength);
    static native long getDispatchedMsgHandle();
}
