package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.time.Duration;
import java.util.List;
import java.util.Objects;
import java.util.Queue;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.function.IntConsumer;
import java.util.function.LongBinaryOperator;

/**
 * A way for messages to leave and to arrive. {@link QuorlQrdTransport} makes one.
 *
 * <p>A message that is sent stays the program's: it may be changed, sent again or closed at once. Messages that one
 * thread sends on one subject arrive in that order. All methods may be called from any thread.
 *
 * <p>Closing a transport silences its listeners, which are to be closed too, in any order, and ends requests that wait
 * on it. It waits for actions of asynchronous requests that run on the transport's own thread for replies, except for one
 * that it is called from. The last transport of a connection to a daemon waits until the daemon has what was sent, for
 * {@code connect.timeout} seconds at most, also for a daemon that is away. The advisory {@code _QUORL.WARN.daemon.dropped}, which
 * listeners of other transports hear, reports what is dropped then, and so does the library's last
 * {@linkplain Quorl#close close}.
 *
 * <pre>{@code
 * try (QuorlMsg question = new QuorlMsg("time.now");
 *      QuorlMsg answer = transport.request(question, Duration.ofSeconds(2))) {
 *     System.out.println(answer == null ? "nobody answers" : answer.getString("time"));
 * }
 * }</pre>
 */
public abstract class QuorlTransport extends LibraryObject {
    private static final int OBJECT_TYPE = 4;

    /** What the bridge writes of an inbox, the rest of the array zero. */
    private static final int INBOX_BYTES = 255;

    /** Queues of earlier requests: as many as there ever were requests at once. A forgotten one is cleaned up. */
    private final Queue<QuorlQueue> idleQueues = new ConcurrentLinkedQueue<>();

    /** The queues of requests that wait. */
    private final Set<QuorlQueue> requests = ConcurrentHashMap.newKeySet();

    private final Requests asynchronous = new Requests(this);

    @Override
    final int kind() {
        return OBJECT_TYPE;
    }

    QuorlTransport(int id, IntConsumer destroy) {
        super(id, destroy);
    }

    /**
     * Sends a message to its send subject. Does not wait for whoever listens: with the bus of this process the message is
     * in the listeners' queues when this returns, and with a daemon it is on its way, or in the buffer for a lost
     * connection. A daemon that does not let this user publish there says so later, by the advisory
     * {@code _QUORL.WARN.daemon.refused} and in the {@linkplain Quorl#statistics statistics}.
     *
     * @param message with a send subject without wildcards
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT} when it has none or one with wildcards
     * @throws QuorlDaemonException when the connection is lost and the buffer for it is full
     */
    public void send(QuorlMsg message) {
        long handle = Objects.requireNonNull(message, "message").enter();
        try {
            quorlTransport_Send(id(), handle, message);
        } catch (QuorlException e) {
            throw refusal(e);
        } finally {
            message.leave();
            Reference.reachabilityFence(this);
        }
    }

    /**
     * Sends a message if it can be taken now. As {@link #send(QuorlMsg)}, but that the message cannot be taken now, while
     * the same call may succeed later, is a result instead of an exception.
     *
     * <p>With a daemon the answer is false while the connection is lost and the buffer for it is full; the virtual
     * circuit's is false while it is not connected. The bus of this process takes every message, as long as there is
     * memory: it hands it to the queues of all listeners, and a queue that is full drops by its own
     * {@linkplain QuorlQueue#limit limit policy}, which counts and tells of it. One slow listener so never stops a sender
     * or another listener.
     *
     * @param message with a send subject without wildcards
     * @return true when the message was taken; false when nothing was sent, the message being as it was
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT} when it has no send subject or one with wildcards
     */
    public boolean trySend(QuorlMsg message) {
        try {
            send(message);
            return true;
        } catch (QuorlException e) {
            switch (e.getStatus()) {
                case QuorlException.DAEMON_NOT_CONNECTED:
                case QuorlException.VC_NOT_CONNECTED:
                case QuorlException.NO_MEMORY:
                    return false;
                default:
                    throw e;
            }
        }
    }

    /**
     * Sends messages in order. Ends at the first that is refused: those before it are sent.
     *
     * @param messages each with a send subject without wildcards
     */
    public void send(List<QuorlMsg> messages) {
        for (QuorlMsg message : Objects.requireNonNull(messages, "messages")) {
            send(message);
        }
    }

    /**
     * Sends a request and waits for the first reply. The request's reply subject is replaced by a fresh inbox. The wait
     * dispatches no queue of the program's, so it works in handlers too.
     *
     * @param request with a send subject
     * @param limit the longest wait, 0 or more
     * @return the reply, to be closed by the caller; null when none came in time, also when a daemon has refused the request
     * @throws InterruptedException if the thread is interrupted before or during the wait
     * @throws QuorlException as {@link #send(QuorlMsg)}
     * @throws QuorlClosedException when the transport or the library is closed, before or meanwhile
     */
    public QuorlMsg request(QuorlMsg request, Duration limit) throws InterruptedException {
        double seconds = Dispatchable.seconds(limit, "limit");
        Objects.requireNonNull(request, "request");
        try {
            return ask(request, seconds);
        } catch (QuorlException e) {
            throw isGone(e) ? closedException() : e;
        }
    }

    private QuorlMsg ask(QuorlMsg request, double seconds) throws InterruptedException {
        String inbox = createInbox();
        QuorlMsg[] reply = new QuorlMsg[1];
        QuorlQueue idle = idleQueues.poll();
        QuorlQueue queue = idle == null ? new QuorlQueue() : idle;
        Dispatching thread = Dispatching.current();
        requests.add(queue);
        try (QuorlListener listener = new QuorlListener(queue, this, inbox, (l, message) -> reply[0] = message.keep())) {
            request.setReplySubject(listener.getSubject());
            send(request);
            return thread.dispatch(queue, seconds, requestSlice(), this::isPeerLost) ? reply[0] : null;
        } finally {
            // The listener is closed by now, with whatever came after the first reply, so the queue is empty.
            requests.remove(queue);
            if (!isClosed() && !queue.isClosed()) {
                idleQueues.add(queue);
            } else {
                queue.close();
            }
        }
    }

    /**
     * Sends a request without waiting for the reply. The request's reply subject is replaced by a fresh inbox; the request
     * itself stays the program's, who may close it at once.
     *
     * <p>The future completes with the first reply, which is to be closed by whoever takes it; later ones are dropped. It
     * completes exceptionally with
     * <ul>
     *   <li>{@link QuorlTimeoutException} when no reply came in time; its detail has the daemon's words when a daemon has
     *       refused the request,
     *   <li>{@link QuorlDaemonException} when there is no connection and no room to wait for one,
     *   <li>{@link QuorlClosedException} when the transport or the library is closed, before or meanwhile,
     *   <li>{@link QuorlException#VC_NOT_CONNECTED} when the transport is a circuit that has no peer, or loses it,
     *   <li>another {@link QuorlException} when the request could not be sent, such as one without a subject,
     *   <li>{@link java.util.concurrent.CancellationException} when the program cancels it; a reply that comes later is
     *       dropped. Cancel a request whose reply nobody wants any more.
     * </ul>
     *
     * <p>One thread of the transport completes its futures when replies come, and runs the actions attached to them. While an
     * action runs there, further replies wait, so give a slow one to an executor: {@code thenAcceptAsync(action, executor)}. A
     * time limit that passes completes the future on another thread of the library, on time whatever the actions do; a close
     * completes it on the thread that closes.
     *
     * @param request with a send subject
     * @param limit the longest wait, 0 or more
     * @return the reply to come
     */
    public CompletableFuture<QuorlMsg> requestAsync(QuorlMsg request, Duration limit) {
        Objects.requireNonNull(request, "request");
        Dispatchable.seconds(limit, "limit");
        return asynchronous.request(request, limit);
    }

    /**
     * Answers a request.
     *
     * @param reply what to send; its send subject is replaced
     * @param request what a listener was given
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT} when the request has no reply subject
     * @throws QuorlDaemonException as {@link #send(QuorlMsg)}
     */
    public void reply(QuorlMsg reply, QuorlMsg request) {
        try {
            answer(reply, request, (replyHandle, requestHandle) -> {
                try {
                    quorlTransport_SendReply(id(), replyHandle, requestHandle, reply, request);
                    return 0;
                } catch (QuorlException e) {
                    throw refusal(e);
                }
            });
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    /** What the library says when it is given the handles of an answer and of what that answers. */
    static long answer(QuorlMsg reply, QuorlMsg request, LongBinaryOperator library) {
        Objects.requireNonNull(request, "request");
        if (Objects.requireNonNull(reply, "reply").isSameAs(request)) {
            throw new IllegalArgumentException("a message cannot answer itself; copy it first");
        }
        long replyHandle = reply.enter();
        try {
            long requestHandle = request.enter();
            try {
                return library.applyAsLong(replyHandle, requestHandle);
            } finally {
                request.leave();
            }
        } finally {
            reply.leave();
        }
    }

    /**
     * Makes a new subject that no other transport has, and that only listeners of this transport may listen to.
     *
     * @return the subject, to be put into requests as their reply subject
     */
    public String createInbox() {
        byte[] bytes = new byte[INBOX_BYTES];
        try {
            int length = quorlTransport_CreateInbox(id(), bytes);
            return Texts.decode(bytes, length);
        } catch (QuorlException e) {
            throw refusal(e);
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    /**
     * Describes the program for advisories and tools.
     *
     * @param description at most 255 bytes of UTF-8
     */
    public void setDescription(String description) {
        byte[] bytes = Texts.encode(Objects.requireNonNull(description, "description"), "the description");
        try {
            quorlTransport_SetDescription(id(), bytes, bytes.length);
        } catch (QuorlException e) {
            throw refusal(e);
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    /**
     * Asks for data to be kept for some time against loss. Without effect in one process, where nothing is lost.
     *
     * @param reliability 0 or more
     */
    public void requestReliability(Duration reliability) {
        double seconds = Dispatchable.seconds(reliability, "reliability");
        try {
            quorlTransport_RequestReliability(id(), seconds);
        } catch (QuorlException e) {
            throw refusal(e);
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    /**
     * Sets how many bytes a batch gathers before it goes out.
     *
     * @param bytes 0 or more; 0 turns batching by size off
     */
    public void setBatchSize(int bytes) {
        if (bytes < 0) {
            throw new IllegalArgumentException("the batch size is negative: " + bytes);
        }
        try {
            quorlTransport_SetBatchSize(id(), bytes);
        } catch (QuorlException e) {
            throw refusal(e);
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    /** What a daemon has said against a request, to be added to a sentence; "" for nothing. */
    String refusalOf(String subject, String replySubject) {
        return "";
    }

    /** Asynchronous requests that wait. */
    final int waitingRequests() {
        return asynchronous.waiting();
    }

    // ---- a transport to one peer, which can be lost --------------------------------------------------------------------

    /** How long a request waits before it looks after the peer again, in seconds; 0 of a transport to many, which has none. */
    double requestSlice() {
        return 0;
    }

    /** Whether replies that have not come will not come. */
    boolean isPeerLost() {
        return false;
    }

    /** What a request fails with when the peer is lost. */
    QuorlException peerLoss() {
        return closedException();
    }

    /** What the library's refusal is to the program: another thread may have closed the transport meanwhile. */
    final QuorlException refusal(QuorlException e) {
        return exists() ? QuorlDaemonException.typed(e) : closedException();
    }

    /** Whether a failure of a request says that the transport is closed, or was with the library. */
    final boolean isGone(QuorlException e) {
        int status = e.getStatus();
        return isClosed() || status == QuorlException.INVALID_TRANSPORT || status == QuorlException.INVALID_QUEUE
                || status == QuorlException.NOT_INITIALIZED;
    }

    /**
     * Closes the transport; see the class. Closing again does nothing.
     */
    @Override
    public void close() {
        destroy();
        QuorlFtMember.transportClosed(this);
        asynchronous.close();
        // A request that begins later finds no transport to send on.
        requests.forEach(QuorlQueue::close);
        for (QuorlQueue idle = idleQueues.poll(); idle != null; idle = idleQueues.poll()) {
            idle.close();
        }
    }

    @Override
    QuorlClosedException closedException() {
        return new QuorlClosedException(QuorlException.INVALID_TRANSPORT, "the transport");
    }

    @Override
    public String toString() {
        return getClass().getSimpleName() + "[" + (isClosed() ? "closed" : idOrZero()) + "]";
    }

    static native void quorlTransport_SetDescription(int transportId, byte[] descriptionBytes, int descriptionLength);
    static native void quorlTransport_RequestReliability(int transportId, double reliability);
    static native int quorlTransport_CreateInbox(int transportId, byte[] subjectBytes);
    static native void quorlTransport_Send(int transportId, long messagePointer, QuorlMsg msg);
    static native void quorlTransport_Sendv(
            int transportId, long[] handleArray, int handleArrayLength, Object[] msgArray);
    static native long quorlTransport_SendRequest(
            int transportId, long requestPointer, double timeout, QuorlMsg request);
    static native void quorlTransport_SendReply(
            int transportId, long replyPointer, long requestPointer, QuorlMsg reply, QuorlMsg request);
    static native void quorlTransport_Destroy(int transportId);
    static native void quorlTransport_SetBatchSize(int transportId, int numBytes);
}
