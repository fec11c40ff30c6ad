package com.vesma.quorl;

/**
 * What is shown each subject of a ledger while {@link QuorlCmTransport#review(String, QuorlCmReviewLedgerInfo)} goes through it.
 *
 * <p>It runs on the reviewing thread. What it throws ends the review and comes out of that.
 *
 * <pre>{@code
 * certified.review("prices.>", new QuorlCmReviewLedgerInfo() {
 *     @Override
 *     protected boolean onSubject(QuorlCmSubject subject) {
 *         System.out.println(subject.subject() + ": " + subject.messages());
 *         return true;
 *     }
 * });
 * }</pre>
 */
public abstract class QuorlCmReviewLedgerInfo {
    /** What {@link #onSubject} threw, until the review has ended. */
    private Throwable thrown;

    /** Makes one, for one review at a time. */
    protected QuorlCmReviewLedgerInfo() {}

    /**
     * Takes one subject.
     *
     * @param subject what is kept for it
     * @return whether to go on
     */
    protected abstract boolean onSubject(QuorlCmSubject subject);

    /**
     * Called by the bridge on the reviewing thread, once for each subject; true ends the review. Nothing is thrown over the
     * bridge, which would go on with the exception pending.
     */
    final boolean invokeReviewCallback(long handle) {
        try {
            // The message is the library's, and ends when this returns.
            return !onSubject(QuorlCmSubject.of(new QuorlMsg(handle).view()));
        } catch (Throwable e) {
            thrown = e;
            return true;
        }
    }

    /** Behind the review, which may have ended with an exception of its own. */
    final void rethrow() {
        Throwable e = thrown;
        thrown = null;
        if (e instanceof Error error) {
            throw error;
        }
        if (e instanceof RuntimeException exception) {
            throw exception;
        }
    }
}
