package com.vesma.quorl;

/** One review of a certified transport's ledger. */
class QuorlCmReviewLedgerInfo {
    QuorlCmReviewLedgerInfo() {}

    /** Called by the bridge on the reviewing thread, once for each entry; true ends the review. */
    boolean invokeReviewCallback(long handle) {
        return true;
    }
}
