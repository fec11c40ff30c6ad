package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.lang.ref.Reference;

/**
 * A transport named by service, network and daemon.
 *
 * <p>Without a daemon it is a port on the bus of this process: messages go to listeners in the same process by
 * reference, without a copy. With one, {@code nats://host:4222} for example, it reaches every program that is connected to
 * it. Service and network separate buses: only transports with the same pair see each other.
 *
 * <pre>{@code
 * try (QuorlQrdTransport transport = new QuorlQrdTransport("nats://localhost:4222")) {
 *     transport.setDescription("order entry");
 *     transport.send(message);
 * }
 * }</pre>
 */
public final class QuorlQrdTransport extends QuorlTransport {
    /** Each send goes out at once. */
    public static final int DEFAULT_BATCH = 0;
    /** Sends gather until the batch size or a short timer. */
    public static final int TIMER_BATCH = 1;

    private final boolean toDaemon;

    /**
     * Creates a transport with the library's default parameters: a port on the bus of this process unless the
     * parameters say otherwise.
     *
     * @throws QuorlException {@link QuorlException#NOT_INITIALIZED} when the library is not open
     */
    public QuorlQrdTransport() {
        this(null, null, null);
    }

    /**
     * Creates a transport. May wait for the daemon, 2 seconds by default.
     *
     * @param service printable ASCII without spaces, 63 bytes at most, and no address; null for the default
     * @param network as service
     * @param daemon the daemon's address; null for the default, empty for the bus of this process
     * @throws QuorlException {@link QuorlException#SERVICE_NOT_FOUND}, {@link QuorlException#NETWORK_NOT_FOUND} for a name
     *     that is not valid, {@link QuorlException#NOT_INITIALIZED} when the library is not open
     * @throws QuorlDaemonException when the daemon cannot be reached
     */
    public QuorlQrdTransport(String service, String network, String daemon) {
        this(create(service, network, daemon), isToDaemon(daemon));
    }

    private QuorlQrdTransport(int id, boolean toDaemon) {
        super(id, toDaemon ? ClosingLosses::destroy : QuorlTransport::quorlTransport_Destroy);
        this.toDaemon = toDaemon;
    }

    /**
     * Creates a transport to a daemon, with the default service and network.
     *
     * @param daemon the daemon's address, such as {@code nats://localhost:4222}; null for the default, empty for the bus of
     *     this process
     * @throws QuorlException {@link QuorlException#NOT_INITIALIZED} when the library is not open
     * @throws QuorlDaemonException when the daemon cannot be reached
     */
    public QuorlQrdTransport(String daemon) {
        this(null, null, daemon);
    }

    @Override
    String refusalOf(String subject, String replySubject) {
        return toDaemon ? DaemonRefusals.ofRequest(subject, replySubject) : "";
    }

    private static boolean isToDaemon(String daemon) {
        return daemon == null ? !Quorl.quorl_IsIPM() : !daemon.isEmpty();
    }

    private static int create(String service, String network, String daemon) {
        byte[] serviceBytes = service == null ? null : Texts.encode(service, "the service");
        byte[] networkBytes = network == null ? null : Texts.encode(network, "the network");
        byte[] daemonBytes = daemon == null ? null : Texts.encode(daemon, "the daemon");
        Library.load();
        try {
            return quorlTransport_Create(serviceBytes, Texts.length(serviceBytes), networkBytes,
                    Texts.length(networkBytes), daemonBytes, Texts.length(daemonBytes));
        } catch (QuorlException e) {
            throw QuorlDaemonException.typed(e);
        }
    }

    /**
     * Sets how outgoing messages gather.
     *
     * @param mode {@link #DEFAULT_BATCH} or {@link #TIMER_BATCH}
     * @throws QuorlException {@link QuorlException#INVALID_ARG} for any other
     */
    public void setBatchMode(int mode) {
        try {
            quorlTransport_SetBatchMode(id(), mode);
        } catch (QuorlException e) {
            throw refusal(e);
        } finally {
            Reference.reachabilityFence(this);
        }
    }

    static native int quorlTransport_Create(
            byte[] serviceBytes, int serviceLength, byte[] networkBytes, int networkLength, byte[] daemonBytes,
            int daemonLength);
    static native void quorlTransport_SetBatchMode(int transportId, int mode);
}
