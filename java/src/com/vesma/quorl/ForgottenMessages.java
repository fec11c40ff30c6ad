package com.vesma.quorl;

import java.lang.ref.PhantomReference;
import java.lang.ref.ReferenceQueue;
import java.util.concurrent.atomic.AtomicLong;

/**
 * Frees the messages that came to be the program's, kept ones and replies, and that it forgot to close.
 *
 * <p>Messages that end with their handler, and those that the program makes, have none of this: it would cost them more than
 * all the rest of their lives in Java. A {@link java.lang.ref.Cleaner} would do the same with one lock for all threads.
 *
 * <p>The collector sees some bytes of Java of each message and not the library's memory behind it, so it may take its time.
 * When these messages hold as much of that as the heap may have, it is asked to run, as it is for buffers outside the heap.
 */
final class ForgottenMessages {
    /** A power of two: each thread takes one, so that threads seldom share. */
    private static final int LISTS = 16;

    private static final ReferenceQueue<QuorlMsg> FOUND = new ReferenceQueue<>();

    /** The heads of rings. What a ring holds is reachable, as the machine demands of a reference that it is to report. */
    private static final Watch[] RINGS = new Watch[LISTS];

    /** Bytes of the library's memory behind those that are open. */
    private static final AtomicLong HELD = new AtomicLong();

    private static final long HEAP = Runtime.getRuntime().maxMemory();

    /** With more than this held, the collector is asked. Twice of what was in use the last time, or it might be asked in vain. */
    private static volatile long enough = HEAP;

    static {
        for (int i = 0; i < LISTS; i++) {
            RINGS[i] = new Watch(null, 0, 0, null);
        }
        Thread thread = new Thread(null, ForgottenMessages::free, "quorl-forgotten", 0, false);
        thread.setDaemon(true);
        thread.setContextClassLoader(ClassLoader.getSystemClassLoader());
        thread.start();
    }

    private ForgottenMessages() {}

    /** What stays of a message that nobody knows any more. */
    static final class Watch extends PhantomReference<QuorlMsg> {
        private final long handle;
        private final long size;

        /** The head of the ring that this is in, and the lock for it; null for a head. */
        private final Watch ring;

        /** Guarded by ring, or by this of a head. */
        private Watch next = this;
        private Watch previous = this;

        private Watch(QuorlMsg message, long handle, long size, Watch ring) {
            super(message, FOUND);
            this.handle = handle;
            this.size = size;
            this.ring = ring;
        }

        /** The message is being closed, or was found. Called once. */
        void end() {
            clear();
            synchronized (ring) {
                previous.next = next;
                next.previous = previous;
            }
            HELD.addAndGet(-size);
        }
    }

    /** Begins to watch a message, which the caller has entered. */
    static Watch watch(QuorlMsg message, long handle) {
        long size = QuorlMsg.quorlMsg_GetByteSize(handle, message);
        Watch ring = RINGS[(int) Thread.currentThread().getId() & LISTS - 1];
        Watch made = new Watch(message, handle, size, ring);
        synchronized (ring) {
            made.previous = ring;
            made.next = ring.next;
            ring.next.previous = made;
            ring.next = made;
        }
        if (HELD.addAndGet(size) > enough) {
            collect();
        }
        return made;
    }

    private static void collect() {
        synchronized (FOUND) {
            long held = HELD.get();
            if (held <= enough) {
                return;
            }
            enough = 2 * held;
        }
        System.gc();
    }

    private static void free() {
        for (;;) {
            try {
                Watch found = (Watch) FOUND.remove();
                found.end();
                QuorlMsg.quorlMsg_Destroy(found.handle, null);
                enough = Math.max(HEAP, 2 * HELD.get());
            } catch (Throwable e) {
                // Of memory, or of an interrupt that nobody is in a position to mean: the next one is freed all the same.
                continue;
            }
        }
    }
}
