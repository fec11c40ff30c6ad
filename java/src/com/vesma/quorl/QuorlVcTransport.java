package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;
import java.time.Duration;
import java.util.Objects;

/**
 * A virtual circuit: a transport to exactly one peer, over another transport. Messages arrive once each and in order, and
 * a peer that is gone is noticed.
 *
 * <p>One side accepts, and hands its connect subject to the other in any way it likes; the other connects to it. Listen
 * before the peer may send: the accepting side before it gives the subject out, the connecting side before it sends what
 * the peer answers.
 *
 * <pre>{@code
 * try (QuorlVcTransport circuit = QuorlVcTransport.accept(transport);
 *      QuorlListener listener = new QuorlListener(queue, circuit, "order.*", (l, order) -> book(order))) {
 *     invite(circuit.getConnectSubject());                        // to QuorlVcTransport.connect(transport, subject)
 *     if (!circuit.waitForConnection(Duration.ofSeconds(10))) {
 *         throw new IllegalStateException("nobody came");
 *     }
 * }
 * }</pre>
 *
 * <p>Sending before the peer is there, and when it is gone, is {@link QuorlException#VC_NOT_CONNECTED}; the message of the
 * exception says which. A send waits while more than 64 MiB wait for the peer. A circuit that is lost stays lost. Closing
 * it brings home what was sent, in the background; closing the transport below ends it, and may come first.
 */
public final class QuorlVcTransport extends QuorlTransport {
    /** Bytes that a connect subject takes at most. */
    private static final int SUBJECT_BYTES = 255;

    /**
     * How long a wait stays in the library before it looks whether the thread was interrupted, or the peer is gone, in
     * seconds. Short enough for a program that is told to stop, long enough to cost nothing.
     */
    private static final double SLICE = 0.05;

    /** The transport below; also so that it is not cleaned up while the circuit is in use. */
    private final QuorlTransport parent;

    /** Of the accepting end; null of a connecting one. */
    private final String connectSubject;

    private QuorlVcTransport(int id, QuorlTransport parent, String connectSubject) {
        super(id, QuorlTransport::quorlTransport_Destroy);
        this.parent = parent;
        this.connectSubject = connectSubject;
    }

    /**
     * Makes the accepting end of a circuit. It accepts one peer.
     *
     * @param parent the transport that carries the circuit
     * @return the circuit, which is not connected yet
     * @throws QuorlClosedException when the parent is closed
     */
    public static QuorlVcTransport accept(QuorlTransport parent) {
        Objects.requireNonNull(parent, "parent");
        byte[] subject = new byte[SUBJECT_BYTES];
        try {
            long packed = quorlTransport_CreateAcceptVc(parent.id(), subject);
            return new QuorlVcTransport((int) (packed >>> 32), parent, Texts.decode(subject, (int) packed));
        } catch (QuorlException e) {
            throw parent.refused(e);
        } finally {
            Reference.reachabilityFence(parent);
        }
    }

    /**
     * Makes the connecting end of a circuit, and returns at once.
     *
     * @param parent the transport that carries the circuit
     * @param connectSubject what {@link #getConnectSubject} gave on the accepting side
     * @return the circuit, which goes on asking until it is answered or closed
     * @throws QuorlException {@link QuorlException#INVALID_SUBJECT} when no accepting end gives out such a subject
     * @throws QuorlClosedException when the parent is closed
     */
    public static QuorlVcTransport connect(QuorlTransport parent, String connectSubject) {
        Objects.requireNonNull(parent, "parent");
        byte[] subject = Texts.encode(Objects.requireNonNull(connectSubject, "connectSubject"), "the connect subject");
        try {
            return new QuorlVcTransport(
                    quorlTransport_CreateConnectVc(parent.id(), subject, subject.length), parent, null);
        } catch (QuorlException e) {
            throw parent.refused(e);
        } finally {
            Reference.reachabilityFence(parent);
        }
    }

    /**
     * What the peer connects to.
     *
     * @return the subject, null of a connecting end
     */
    public String getConnectSubject() {
        return connectSubject;
    }

    /**
     * The transport that carries the circuit.
     *
     * @return what the circuit was made over
     */
    public QuorlTransport getParent() {
        return parent;
    }

    /**
     * Waits until the circuit is up.
     *
     * @param limit the longest wait, 0 or more; 0 looks without waiting
     * @return whether the peer is there; false when it did not come in time
     * @throws InterruptedException if the thread is interrupted before or during the wait
     * @throws QuorlException {@link QuorlException#VC_NOT_CONNECTED} when the peer is gone, or refused
     * @throws QuorlClosedException when the circuit or the library is closed, also during the wait
     */
    public boolean waitForConnection(Duration limit) throws InterruptedException {
        double seconds = Dispatchable.seconds(limit, "limit");
        long start = System.nanoTime();
        for (;;) {
            if (Thread.interrupted()) {
                throw new InterruptedException("waiting for a circuit");
            }
            double left = seconds - (System.nanoTime() - start) / 1e9;
            if (isUp(Math.max(0, Math.min(left, SLICE)))) {
                return true;
            }
            if (left <= SLICE) {
                return false;
            }
        }
    }

    /** Waits in the library. False: not in time. */
    private boolean isUp(double seconds) {
        try {
            quorlTransport_WaitForVcConnection(id(), seconds);
            return true;
        } catch (QuorlException e) {
            if (e.getStatus() == QuorlException.TIMEOUT) {
                return false;
            }
            // A wait is only interrupted by the circuit's end, also by that of the library.
            throw isGone(e) || e.getStatus() == QuorlException.INTR ? closedException() : e;
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    /**
     * As {@link QuorlTransport#request}, but that a peer that is gone, or goes meanwhile, is
     * {@link QuorlException#VC_NOT_CONNECTED} at once.
     */
    @Override
    public QuorlMsg request(QuorlMsg request, Duration limit) throws InterruptedException {
        QuorlMsg reply = super.request(request, limit);
        if (reply == null) {
            isUp(0);
        }
        return reply;
    }

    @Override
    double requestSlice() {
        return SLICE;
    }

    /** What the peer has sent is in the queues of its listeners when the library says so. */
    @Override
    boolean isPeerLost() {
        try {
            isUp(0);
        } catch (QuorlException e) {
            return e.getStatus() == QuorlException.VC_NOT_CONNECTED;
        }
        return false;
    }

    @Override
    QuorlException peerLoss() {
        try {
            isUp(0);
        } catch (QuorlException e) {
            return e;
        }
        return closedException();
    }

    @Override
    QuorlClosedException closedException() {
        return new QuorlClosedException(QuorlException.INVALID_TRANSPORT, "the circuit");
    }

    static native long quorlTransport_CreateAcceptVc(int parentTransport, byte[] subjectBytes);
    static native int quorlTransport_CreateConnectVc(int parentTransport, byte[] subjectBytes, int subjectBytesLength);
    static native void quorlTransport_WaitForVcConnection(int id, double timeout);
}
