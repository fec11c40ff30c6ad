package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.function.BooleanSupplier;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;

/**
 * A test with the library open, a transport and a queue. The transport is a port on the bus of this process, or with the
 * environment variable {@code QUORL_OVER=daemon} one on a nats-server, as are all that are made without a daemon.
 */
abstract class OpenLibrary {
    /** Longer than anything here takes on a loaded machine; only a failure waits for it. */
    static final Duration LIMIT = Duration.ofSeconds(30);

    static final boolean OVER_DAEMON = "daemon".equals(System.getenv("QUORL_OVER"));

    Quorl quorl;
    QuorlQrdTransport transport;
    QuorlQueue queue;

    @BeforeEach
    void openLibrary() {
        if (OVER_DAEMON) {
            Quorl.setParameters("daemon=" + NatsServer.shared().url());
        }
        quorl = Quorl.open();
        assertEquals(!OVER_DAEMON, Quorl.isInProcess());
        transport = new QuorlQrdTransport();
        queue = new QuorlQueue();
    }

    @AfterEach
    void closeLibrary() {
        queue.close();
        transport.close();
        quorl.close();
        assertFalse(Quorl.isOpen());
    }

    void send(String subject, int number) {
        try (QuorlMsg message = new QuorlMsg(subject).addI32("n", number)) {
            transport.send(message);
        }
    }

    /**
     * Returns when all that was sent is in the queues of its listeners: at once on the bus of this process; over a daemon
     * when a message to itself has come back. For transports that share a connection with the test's own.
     */
    void settle() {
        settle(transport);
    }

    static void settle(QuorlTransport through) {
        if (!OVER_DAEMON) {
            return;
        }
        String inbox = through.createInbox();
        try (QuorlQueue own = new QuorlQueue(); QuorlListener listener = new QuorlListener(own, through, inbox, (l, m) -> {});
                QuorlMsg message = new QuorlMsg(inbox)) {
            through.send(message);
            assertTrue(own.dispatch(LIMIT));
        } catch (InterruptedException e) {
            throw new AssertionError(e);
        }
    }

    /** Runs the handlers of all that was sent, and of what they send. */
    void drain(Dispatchable from) {
        do {
            settle();
        } while (from.poll());
    }

    static void await(CountDownLatch latch) throws InterruptedException {
        if (!latch.await(LIMIT.toSeconds(), TimeUnit.SECONDS)) {
            throw new AssertionError("waited " + LIMIT);
        }
    }

    static void await(BooleanSupplier condition) throws InterruptedException {
        long end = System.nanoTime() + LIMIT.toNanos();
        while (!condition.getAsBoolean()) {
            if (System.nanoTime() > end) {
                throw new AssertionError("waited " + LIMIT);
            }
            Thread.onSpinWait();
        }
    }

    /** A thread that is joined, and whose failure is the test's. */
    static final class Worker {
        interface Work {
            void run() throws Exception;
        }

        final Thread thread;
        private volatile Throwable failure;

        Worker(Work work) {
            thread = new Thread(() -> {
                try {
                    work.run();
                } catch (Throwable e) {
                    failure = e;
                }
            });
            thread.setDaemon(true);
            thread.start();
        }

        void join() throws Exception {
            joinWithin(0);
        }

        /** With so many more milliseconds to finish in. */
        void joinWithin(long more) throws Exception {
            thread.join(LIMIT.toMillis() + more);
            if (thread.isAlive()) {
                AssertionError stuck = new AssertionError("stuck: " + thread);
                stuck.setStackTrace(thread.getStackTrace());
                throw stuck;
            }
            if (failure != null) {
                throw new AssertionError("a worker failed", failure);
            }
        }
    }
}
