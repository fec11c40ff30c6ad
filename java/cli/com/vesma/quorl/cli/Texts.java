package com.vesma.quorl.cli;

/** Small pieces of text that several commands print. */
final class Texts {
    private Texts() {}

    /** A number without a needless ".0". */
    static String number(double value) {
        return value == Math.rint(value) && Math.abs(value) < 1e15 ? Long.toString((long) value) : Double.toString(value);
    }
}
