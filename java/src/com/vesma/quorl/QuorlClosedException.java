package com.vesma.quorl;

/**
 * The use of an object after its close, or after the library's last close, which ends them all but messages.
 *
 * <p>Every method of every class says so, if it can do nothing without the object; what an object knows by itself, such as a
 * listener's subject, it still tells. A message inside another, which ends as soon as that is changed, counts as closed then.
 * The status is that of the object's kind, for example {@link QuorlException#INVALID_QUEUE}. Closing twice is no use: it does
 * nothing.
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

    private QuorlClosedException(String text, int status) {
        super(status, text);
    }

    /** One with a text of its own. */
    static QuorlClosedException says(int status, String text) {
        return new QuorlClosedException(text, status);
    }

    /** This one: its class is what a caller asks for, and it says what is closed. */
    @Override
    QuorlException about(String what) {
        return this;
    }
}
