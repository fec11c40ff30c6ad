package com.vesma.quorl.cli;

/** Nobody reads standard output any more, as in "quorl listen | head -1": the command ends and says nothing. */
final class OutputClosed extends RuntimeException {
    private static final long serialVersionUID = 1;

    OutputClosed() {
        super("standard output is closed", null, false, false);
    }
}
