package com.vesma.quorl;

/**
 * A daemon that cannot be reached, or the connection to it that is lost and whose buffer is full.
 *
 * <p>Its status is {@link QuorlException#DAEMON_NOT_FOUND} or {@link QuorlException#DAEMON_NOT_CONNECTED}. Nothing is wrong
 * with the call; the same one may succeed later.
 *
 * <pre>{@code
 * try {
 *     transport.send(message);
 * } catch (QuorlDaemonException e) {
 *     later(message.copy());
 * }
 * }</pre>
 */
public final class QuorlDaemonException extends QuorlException {
    private static final long serialVersionUID = 1L;

    private QuorlDaemonException(QuorlException same) {
        super(same);
    }

    /** The same failure, as this class when it is one of a daemon. */
    static QuorlException typed(QuorlException e) {
        int status = e.getStatus();
        boolean daemon = status == DAEMON_NOT_FOUND || status == DAEMON_NOT_CONNECTED;
        return daemon && !(e instanceof QuorlDaemonException) ? new QuorlDaemonException(e) : e;
    }
}
