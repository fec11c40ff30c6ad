package com.vesma.quorl.cli;

/** A command failed for a reason of its own, told in its message; the exit code is 1. */
class Failure extends RuntimeException {
    private static final long serialVersionUID = 1;

    Failure(String message) {
        super(message, null, false, false);
    }
}
