package com.vesma.quorl;

/** A call that the library refused, with the library's status. */
public class QuorlException extends RuntimeException {
    private static final long serialVersionUID = 1L;

    private final int status;

    /** The bridge calls this constructor. */
    QuorlException(int status) {
        super("status " + status);
        this.status = status;
    }

    /** The library's status, never 0. */
    public int getStatus() {
        return status;
    }
}
