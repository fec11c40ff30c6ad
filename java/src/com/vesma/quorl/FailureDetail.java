package com.vesma.quorl;

import java.util.concurrent.locks.ReentrantLock;

/**
 * Asks the library what it knows of the calling thread's last failure beyond its status: a request to a subject of the
 * library's own, which it answers at once and inside the process.
 *
 * <p>Asked while an exception is made, so nothing here may fail in turn: whatever goes wrong means that nothing more is
 * known. Costs microseconds, as making the exception does.
 */
final class FailureDetail {
    private static final String SUBJECT = "_QUORL.LASTERROR";

    /** Set while the thread asks: a failure inside asks no more. */
    private static final ThreadLocal<Boolean> ASKING = new ThreadLocal<>();

    private static final ReentrantLock MAKING = new ReentrantLock();

    /** The transport to ask through, 0 before the first failure and after the library's close. Written under MAKING. */
    private static volatile int transport;

    private FailureDetail() {}

    /** The detail, null for none. The status is the one that the library has just given. */
    static String of(int status) {
        // The first two are no failures where they occur; and without the open library there is nobody to ask.
        if (status == QuorlException.INTR || status == QuorlException.TIMEOUT || status == QuorlException.NOT_INITIALIZED
                || ASKING.get() != null) {
            return null;
        }
        ASKING.set(Boolean.TRUE);
        try {
            return ask();
        } catch (RuntimeException | Error e) {
            return null;
        } finally {
            ASKING.remove();
        }
    }

    private static String ask() {
        if (!Quorl.quorl_IsOpen()) {
            return null;
        }
        int through = transport();
        try (QuorlMsg question = new QuorlMsg(SUBJECT)) {
            long answer = QuorlTransport.quorlTransport_SendRequest(through, question.ownHandle(), 0, question);
            if (answer == 0) {
                return null;
            }
            try (QuorlMsg reply = new QuorlMsg(answer)) {
                String text = reply.getString("text");
                return text.isEmpty() ? null : text;
            }
        } catch (QuorlException e) {
            forget(through);
            return null;
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
                byte[] none = new byte[0];
                transport = QuorlQrdTransport.quorlTransport_Create(null, 0, null, 0, none, 0);
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
        MAKING.lock();
        try {
            transport = 0;
        } finally {
            MAKING.unlock();
        }
    }
}
