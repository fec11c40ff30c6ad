package com.vesma.quorl;

import java.lang.ref.ReferenceQueue;
import java.lang.ref.WeakReference;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.locks.ReentrantLock;

/**
 * Tells circuits that they have lost their peers, for the requests that wait on them.
 *
 * <p>The library tells of a lost circuit by an advisory, behind the last message that came from the peer. One listener of the
 * process hears them all, on a daemon thread of its own, from the first request on a circuit until the library's last close.
 */
final class CircuitWatch {
    private static final String SUBJECT = "_QUORL.WARN.circuit.lost";

    /** Those that a request was ever made on, by the circuit's id. */
    private static final Map<Integer, Watched> CIRCUITS = new ConcurrentHashMap<>();

    /** Those that the program forgot. */
    private static final ReferenceQueue<QuorlVcTransport> FORGOTTEN = new ReferenceQueue<>();

    private static final ReentrantLock MAKING = new ReentrantLock();

    /** The queue of the listener, null when there is none. Guarded by MAKING. */
    private static QuorlQueue queue;

    private CircuitWatch() {}

    private static final class Watched extends WeakReference<QuorlVcTransport> {
        private final int id;

        Watched(QuorlVcTransport circuit, int id) {
            super(circuit, FORGOTTEN);
            this.id = id;
        }
    }

    /** Returns when a loss that is noticed from now on will be told. {@link QuorlException} when the library is not open. */
    static void begin(QuorlVcTransport circuit) {
        int id = circuit.id();
        listen();
        for (Watched gone = (Watched) FORGOTTEN.poll(); gone != null; gone = (Watched) FORGOTTEN.poll()) {
            CIRCUITS.remove(gone.id, gone);
        }
        CIRCUITS.put(id, new Watched(circuit, id));
    }

    static void end(int id) {
        CIRCUITS.remove(id);
    }

    private static void listen() {
        MAKING.lock();
        try {
            if (queue != null && queue.exists()) {
                return;
            }
            // Nobody closes these: the library's last close ends them with everything else.
            QuorlQueue made = new QuorlQueue("quorl.circuit.watch");
            made.limit(QuorlQueue.DISCARD_NONE, 0, 0);
            QuorlQrdTransport inside = new QuorlQrdTransport(null, null, "");
            new QuorlListener(made, inside, SUBJECT, (listener, lost) -> tell((int) lost.getU32("transport")));
            QuorlDispatcher.builder(made).name("quorl-circuit-watch").start();
            queue = made;
        } finally {
            MAKING.unlock();
        }
    }

    private static void tell(int id) {
        Watched watched = CIRCUITS.remove(id);
        QuorlVcTransport circuit = watched == null ? null : watched.get();
        if (circuit != null) {
            circuit.peerIsLost();
        }
    }

    /** Before the library's last close. */
    static void libraryCloses() {
        MAKING.lock();
        try {
            queue = null;
            CIRCUITS.clear();
        } finally {
            MAKING.unlock();
        }
    }
}
