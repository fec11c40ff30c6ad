package com.vesma.quorl;

/**
 * A ledger that cannot be opened or written: the file is in use, damaged, of another kind, name or version, or the disk is full.
 *
 * <p>Its status is {@link QuorlException#NOT_FILE_OWNER}, {@link QuorlException#INVALID_FILE},
 * {@link QuorlException#FILE_NOT_FOUND}, {@link QuorlException#IO_FAILED}, {@link QuorlException#VERSION_MISMATCH},
 * {@link QuorlException#EOF} or {@link QuorlException#OS_ERROR}. The file is as it was. A send that fails so was not
 * accepted; what had been accepted before is kept, and sends work again when the ledger can be written again.
 *
 * <pre>{@code
 * try (QuorlCmTransport certified = QuorlCmTransport.builder(transport).name("orders").ledger(path).open()) {
 *     serve(certified);
 * } catch (QuorlLedgerException e) {
 *     System.err.println(e.getMessage());
 * }
 * }</pre>
 */
public final class QuorlLedgerException extends QuorlException {
    private static final long serialVersionUID = 1L;

    private QuorlLedgerException(QuorlException cause) {
        super(cause);
    }

    /** The same failure, as this class when it is one of a ledger; of a certified transport's calls. */
    static QuorlException typed(QuorlException e) {
        switch (e.getStatus()) {
            case NOT_FILE_OWNER:
            case INVALID_FILE:
            case FILE_NOT_FOUND:
            case IO_FAILED:
            case VERSION_MISMATCH:
            case EOF:
            case OS_ERROR:
                return e instanceof QuorlLedgerException ? e : new QuorlLedgerException(e);
            default:
                return QuorlDaemonException.typed(e);
        }
    }
}
