package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertFalse;

import java.time.Duration;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.function.BooleanSupplier;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;

/** A test with the library open, a transport in this process and a queue. */
abstract class OpenLibrary {
    /** Longer than anything here takes on a loaded machine; only a failure waits for it. */
    static final Duration LIMIT = Duration.ofSeconds(30);

    Quorl quorl;
    QuorlQrdTransport transport;
    QuorlQueue queue;

    @BeforeEach
    void openLibrary() {
        quorl = Quorl.open();
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
