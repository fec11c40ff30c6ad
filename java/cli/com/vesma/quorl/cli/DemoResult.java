package com.vesma.quorl.cli;

import java.util.Locale;

/** What the demo's publisher sent, held against what its listener received, duplicates not counted. */
record DemoResult(long sent, long received, long outOfOrder, long duplicates) {
    long lost() {
        return sent - received;
    }

    String summary(double seconds) {
        return String.format(Locale.ROOT, "%d sent, %d received, %d lost, %d out of order, %.1f messages a second", sent,
                received, lost(), outOfOrder, sent / seconds);
    }

    /** What makes the demo a failure, or null. */
    String complaint() {
        if (sent == 0) return "none of this machine's counters could be read";
        if (lost() != 0) return lost() + " messages were lost";
        if (duplicates != 0) return duplicates + " messages came twice";
        if (outOfOrder != 0) return outOfOrder + " messages came out of order";
        return null;
    }
}
