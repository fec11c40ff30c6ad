package com.vesma.quorl;

import java.util.concurrent.locks.ReentrantLock;

/**
 * Questions to the library itself: requests to subjects of its own, which it answers at once and inside the process.
 *
 * <p>They go through a transport of their own, a port on the bus of this process that lives as long as the library is open.
 */
final class EngineQueries {
    private static final ReentrantLock MAKING = new ReentrantLock();

    /** The transport, 0 before the first question and after the library's close. Written under MAKING. */
    private static volatile int transport;

    private EngineQueries() {}

    /** The answer, to be closed; null when there is none. {@link QuorlException} when the library is not open. */
    static QuorlMsg ask(String subject) {
        int through = transport();
        try (QuorlMsg question = new QuorlMsg(subject)) {
            long answer = QuorlTransport.quorlTransport_SendRequest(through, question.ownHandle(), 0, question);
            return answer == 0 ? null : new QuorlMsg(answer);
        } catch (QuorlException e) {
            forget(through);
            throw e;
        }
    }

    private static int transport() {
        int made = transport;
        if (made != 0) {
            return made;
        }
        MAKING.lock();
        try {
            if (transport == 0) {
                transport = QuorlQrdTransport.quorlTransport_Create(null, 0, null, 0, new byte[0], 0);
            }
            return transport;
        } finally {
            MAKING.unlock();
        }
    }

    /** The library was closed meanwhile, and its transports with it. */
    private static void forget(int gone) {
        MAKING.lock();
        try {
            if (transport == gone) {
                transport = 0;
            }
        } finally {
            MAKING.unlock();
        }
    }

    /** Before the library's last close. */
    static void libraryCloses() {
        forget(transport);
    }
}
