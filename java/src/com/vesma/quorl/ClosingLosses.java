package com.vesma.quorl;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.locks.ReentrantLock;

/**
 * What daemons did not take before the transports to them were closed, for the exception of the library's last close. A
 * transport's own close reports nothing.
 */
final class ClosingLosses {
    /** Sentences that are kept: a program that closes thousands of transports needs no more. */
    private static final int MOST = 8;

    private static final ReentrantLock LOCK = new ReentrantLock();

    /** The library's sentences, each about one daemon. Guarded by LOCK. */
    private static final List<String> TOLD = new ArrayList<>();

    /** Those that were not kept. Guarded by LOCK. */
    private static int further;

    private ClosingLosses() {}

    /** Destroys a transport to a daemon. That gives no status, but what it does not succeed in is the thread's last failure. */
    static void destroy(int id) {
        String before = FailureDetail.last();
        QuorlTransport.quorlTransport_Destroy(id);
        String after = FailureDetail.last();
        if (after == null || after.equals(before)) {
            return;
        }
        LOCK.lock();
        try {
            if (TOLD.size() < MOST) {
                TOLD.add(after);
            } else {
                further++;
            }
        } finally {
            LOCK.unlock();
        }
    }

    /** The daemons that transports are open to, for {@link #take}. */
    static List<String> daemonsInUse() {
        List<String> daemons = new ArrayList<>();
        try {
            for (QuorlStatistics.Daemon daemon : QuorlStatistics.take().daemons()) {
                if (!daemons.contains(daemon.daemon())) {
                    daemons.add(daemon.daemon());
                }
            }
        } catch (RuntimeException e) {
            // The close goes on, and says less.
        }
        return daemons;
    }

    /**
     * What was told, which is forgotten with this.
     *
     * @param total the library's own count of all that was dropped; null for none
     * @param left the daemons whose transports the library's close has closed
     */
    static String take(String total, List<String> left) {
        LOCK.lock();
        try {
            List<String> text = new ArrayList<>(TOLD);
            if (further > 0) {
                text.add("and " + further + " more transports");
            }
            if (text.isEmpty() || !left.isEmpty()) {
                text.add(0, (total == null ? "messages for daemons were dropped when the transports to them closed, or may not have arrived"
                        : total) + (left.isEmpty() ? "" : "; closed with the library: the transports to " + String.join(", ", left)));
            }
            return String.join("; ", text);
        } finally {
            forget();
            LOCK.unlock();
        }
    }

    private static void forget() {
        TOLD.clear();
        further = 0;
    }

    /** After a close that has dropped nothing. */
    static void clear() {
        LOCK.lock();
        try {
            forget();
        } finally {
            LOCK.unlock();
        }
    }
}
