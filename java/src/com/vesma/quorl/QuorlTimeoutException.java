package com.vesma.quorl;

/**
 * The outcome of an asynchronous request that nobody answered in time.
 *
 * <p>Its status is {@link QuorlException#TIMEOUT}. Calls that wait themselves, {@link QuorlTransport#request} and
 * {@link QuorlQueue#dispatch(java.time.Duration)}, say the same by their result.
 *
 * <pre>{@code
 * transport.requestAsync(question, Duration.ofSeconds(2)).whenComplete((answer, failure) -> {
 *     if (failure instanceof QuorlTimeoutException) {
 *         askAgain();
 *     }
 * });
 * }</pre>
 */
public final class QuorlTimeoutException extends QuorlException {
    private static final long serialVersionUID = 1L;

    QuorlTimeoutException(String detail) {
        super(TIMEOUT, detail);
    }
}
