package com.vesma.quorl;

/**
 * What the library knows of the calling thread's last failure beyond its status.
 *
 * <p>Asked while an exception is made, so nothing here may fail in turn: whatever goes wrong means that nothing more is
 * known. Costs microseconds, as making the exception does.
 */
final class FailureDetail {
    private static final String SUBJECT = "_QUORL.LASTERROR";

    private static final String NOT_OPEN = "the library is not open; call Quorl.open() first, and close what it returns last";

    static final String CLOSED = "the library tells more only while it is open; call Quorl.open() first";

    /** Set while the thread asks: a failure inside asks no more. */
    private static final ThreadLocal<Boolean> ASKING = new ThreadLocal<>();

    private FailureDetail() {}

    /** The detail, null for none. The status is the one that the library has just given. */
    static String of(int status) {
        // Only an open library answers.
        if (status == QuorlException.NOT_INITIALIZED) {
            return NOT_OPEN;
        }
        // These two are no failures where they occur.
        if (status == QuorlException.INTR || status == QuorlException.TIMEOUT) {
            return null;
        }
        String known = last();
        return known == null && !Quorl.quorl_IsOpen() ? CLOSED : known;
    }

    /** The detail of the thread's last failure, null for none. */
    static String last() {
        if (ASKING.get() != null) {
            return null;
        }
        ASKING.set(Boolean.TRUE);
        try {
            return Quorl.quorl_IsOpen() ? ask() : null;
        } catch (RuntimeException | Error e) {
            return null;
        } finally {
            ASKING.remove();
        }
    }

    private static String ask() {
        try (QuorlMsg answer = EngineQueries.ask(SUBJECT)) {
            String text = answer == null ? "" : answer.getString("text");
            return text.isEmpty() ? null : text;
        }
    }
}
