package com.vesma.quorl;

/**
 * The use of an object after its close.
 *
 * <p>The status is that of the object's kind, for example {@link QuorlException#INVALID_QUEUE}. Closing twice is no use:
 * it does nothing.
 *
 * <pre>{@code
 * try {
 *     queue.dispatch();
 * } catch (QuorlClosedException e) {
 *     return; // the program is ending
 * }
 * }</pre>
 */
public final class QuorlClosedException extends QuorlException {
    private static final long serialVersionUID = 1L;

    QuorlClosedException(int status, String what) {
        super(status, what + " is closed");
    }

    /** This one: its class is what a caller asks for, and it says what is closed. */
    @Override
    QuorlException about(String what) {
        return this;
    }
}
