package com.vesma.quorl;

import com.vesma.quorl.internal.image.Texts;
import java.time.Duration;
import java.util.Objects;

/**
 * The attributes of a certified message: who sent it, its number among those that the sender has sent on that subject, and how
 * long it is kept for listeners that have not confirmed it.
 *
 * <p>They travel beside the fields, where no reader of fields sees them. A message that was received and is sent again has
 * those of its new send.
 *
 * <pre>{@code
 * new QuorlCmListener(queue, certified, "orders.>", (listener, message) ->
 *         System.out.println(QuorlCmMsg.getSender(message) + " sent number " + QuorlCmMsg.getSequence(message)));
 * }</pre>
 */
public final class QuorlCmMsg {
    /** More than a certified name can have. */
    private static final int NAME_BYTES = 255;

    private QuorlCmMsg() {}

    /**
     * Whether a message was sent by certified delivery, and is delivered so.
     *
     * @param message what a listener was given, or what a {@link QuorlCmTransport} has sent
     * @return false for one of a sender that is not certified, or that this listener has not registered with yet
     */
    public static boolean isCertified(QuorlMsg message) {
        return getSequence(message) != 0;
    }

    /**
     * The certified name of the sender.
     *
     * @param message what a listener was given
     * @return the name; null when the message is not certified
     */
    public static String getSender(QuorlMsg message) {
        byte[] bytes = new byte[NAME_BYTES];
        long handle = Objects.requireNonNull(message, "message").enter();
        try {
            int length = quorlMsg_GetCMSender(handle, bytes, message);
            return length < 0 ? null : Texts.decode(bytes, length);
        } finally {
            message.leave();
        }
    }

    /**
     * The number of the message among those that its sender has sent on its subject.
     *
     * @param message what a listener was given, or what was sent
     * @return from 1 on, without gaps; 0 when the message is not certified
     */
    public static long getSequence(QuorlMsg message) {
        long handle = Objects.requireNonNull(message, "message").enter();
        try {
            return quorlMsg_GetCMSequence(handle, message);
        } finally {
            message.leave();
        }
    }

    /**
     * How long the message is kept for listeners that have not confirmed it.
     *
     * @param message what a listener was given, or what is to be sent
     * @return from its send on; zero when there is no limit
     */
    public static Duration getTimeLimit(QuorlMsg message) {
        long handle = Objects.requireNonNull(message, "message").enter();
        try {
            return Duration.ofNanos(Math.round(quorlMsg_GetCMTimeLimit(handle, message) * 1e9));
        } finally {
            message.leave();
        }
    }

    /**
     * Limits how long a message is kept, instead of the transport's
     * {@linkplain QuorlCmTransport#setDefaultTimeLimit default}. What has not been confirmed by then has expired.
     *
     * @param message what is to be sent
     * @param limit from its send on; zero for no limit
     * @return the message
     */
    public static QuorlMsg setTimeLimit(QuorlMsg message, Duration limit) {
        double seconds = Dispatchable.seconds(limit, "limit");
        long handle = Objects.requireNonNull(message, "message").enter();
        try {
            quorlMsg_SetCMTimeLimit(handle, seconds, message);
            return message;
        } finally {
            message.leave();
        }
    }

    static native int quorlMsg_GetCMSender(long handle, byte[] senderBytes, QuorlMsg msg);
    static native long quorlMsg_GetCMSequence(long handle, QuorlMsg msg);
    static native double quorlMsg_GetCMTimeLimit(long handle, QuorlMsg msg);
    static native void quorlMsg_SetCMTimeLimit(long handle, double timeLimit, QuorlMsg msg);
}
