package com.vesma.quorl;

/** Certified delivery in tests. */
final class Certified {
    private Certified() {}

    /** Whether the library has certified delivery; one that has not permits no certified transport. */
    static boolean isThere(QuorlTransport transport) {
        try {
            QuorlCmTransport.builder(transport).open().close();
            return true;
        } catch (QuorlException e) {
            if (e.getStatus() == QuorlException.NOT_PERMITTED) {
                return false;
            }
            throw e;
        }
    }
}
