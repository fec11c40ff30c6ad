package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.concurrent.CountDownLatch;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Opening, closing and parameters. */
class QuorlTest {
    @AfterEach
    void isClosed() {
        assertFalse(Quorl.isOpen());
    }

    @Test
    void opensNest() {
        Quorl outer = Quorl.open();
        Quorl inner = Quorl.open();
        inner.close();
        inner.close();
        assertTrue(Quorl.isOpen());
        assertTrue(Quorl.isInProcess());
        outer.close();
        outer.close();
        assertFalse(Quorl.isOpen());
        assertFalse(Quorl.isInProcess());
    }

    @Test
    void nothingWorksBeforeOpening() {
        assertStatus(QuorlException.NOT_INITIALIZED, QuorlQueue::new);
        assertStatus(QuorlException.NOT_INITIALIZED, QuorlQueueGroup::new);
        assertStatus(QuorlException.NOT_INITIALIZED, QuorlQrdTransport::new);
        assertThrows(QuorlException.class, () -> QuorlQueue.getDefault().poll());
    }

    @Test
    void theVersionHasThreeParts() {
        assertTrue(Quorl.getVersion().matches("1\\.\\d+\\.\\d+"), Quorl.getVersion());
    }

    @Test
    void closingEndsWhatIsLeft() throws Exception {
        Quorl quorl = Quorl.open();
        QuorlQrdTransport transport = new QuorlQrdTransport();
        QuorlQueue queue = new QuorlQueue();
        QuorlQueueGroup group = new QuorlQueueGroup();
        group.add(queue);
        QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> {});
        QuorlTimer timer = new QuorlTimer(queue, Duration.ofDays(1), t -> {});
        QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
        QuorlDispatcher ofGroup = new QuorlDispatcher(group);
        CountDownLatch begun = new CountDownLatch(1);
        OpenLibrary.Worker own = new OpenLibrary.Worker(() -> {
            begun.countDown();
            assertThrows(QuorlException.class, queue::dispatch);
        });
        OpenLibrary.await(begun);
        quorl.close();
        own.join();
        dispatcher.getThread().join(OpenLibrary.LIMIT.toMillis());
        ofGroup.getThread().join(OpenLibrary.LIMIT.toMillis());
        assertFalse(dispatcher.getThread().isAlive() || ofGroup.getThread().isAlive());
        assertTrue(listener.isClosed() && timer.isClosed());
        try (QuorlMsg message = new QuorlMsg("a")) {
            assertThrows(QuorlException.class, () -> transport.send(message));
        }
        assertThrows(QuorlException.class, queue::getCount);
        // In the order that try-with-resources would have, after the library.
        ofGroup.close();
        dispatcher.close();
        timer.close();
        listener.close();
        group.close();
        queue.close();
        transport.close();
    }

    @Test
    void whatWasBeforeStaysDeadAfterReopening() {
        Quorl first = Quorl.open();
        QuorlQueue queue = new QuorlQueue();
        QuorlQrdTransport transport = new QuorlQrdTransport();
        first.close();
        try (Quorl second = Quorl.open(); QuorlQueue other = new QuorlQueue(); QuorlQrdTransport third = new QuorlQrdTransport()) {
            assertStatus(QuorlException.INVALID_QUEUE, queue::getCount);
            assertStatus(QuorlException.INVALID_TRANSPORT, transport::createInbox);
            queue.close();
            transport.close();
            assertEquals(0, other.getCount());
            third.createInbox();
        }
    }

    @Test
    void theDefaultQueueIsAlwaysThere() throws Exception {
        for (int i = 0; i < 2; i++) {
            try (Quorl quorl = Quorl.open(); QuorlQrdTransport transport = new QuorlQrdTransport()) {
                QuorlQueue queue = QuorlQueue.getDefault();
                assertSame(queue, QuorlQueue.getDefault());
                queue.close();
                assertFalse(queue.isClosed());
                int[] got = new int[1];
                try (QuorlListener listener = new QuorlListener(queue, transport, "a", (l, m) -> got[0]++);
                        QuorlMsg message = new QuorlMsg("a")) {
                    transport.send(message);
                    assertTrue(queue.dispatch(OpenLibrary.LIMIT));
                }
                assertEquals(1, got[0]);
            }
        }
    }

    @Test
    void closingInsideAHandler() throws Exception {
        Quorl quorl = Quorl.open();
        QuorlQrdTransport transport = new QuorlQrdTransport();
        QuorlQueue queue = new QuorlQueue();
        CountDownLatch closed = new CountDownLatch(1);
        new QuorlListener(queue, transport, "a", (l, m) -> {
            quorl.close();
            assertFalse(Quorl.isOpen());
            assertEquals(5, m.getI32("n"));
            closed.countDown();
        });
        QuorlDispatcher dispatcher = new QuorlDispatcher(queue);
        try (QuorlMsg message = new QuorlMsg("a").addI32("n", 5)) {
            transport.send(message);
        }
        OpenLibrary.await(closed);
        dispatcher.close();
    }

    @Test
    void parametersAreCheckedAndClosedToAnOpenLibrary(@TempDir Path directory) throws Exception {
        assertStatus(QuorlException.INVALID_ARG, () -> Quorl.setParameters("no such name=1"));
        assertStatus(QuorlException.INVALID_ARG, () -> Quorl.setParameters("no equals sign"));
        assertThrows(NullPointerException.class, () -> Quorl.setParameters("daemon=", null));
        assertThrows(IllegalArgumentException.class, () -> Quorl.setParameters("daemon=\0"));
        Quorl.setParameters();
        try (Quorl quorl = Quorl.open()) {
            assertStatus(QuorlException.NOT_PERMITTED, () -> Quorl.setParameters("connect.timeout=1"));
        }
        assertStatus(QuorlException.FILE_NOT_FOUND, () -> Quorl.open(directory.resolve("none")));
        // Java can name such a file in no other locale than one of UTF-8.
        boolean anyName = "UTF-8".equals(System.getProperty("sun.jnu.encoding"));
        Path file = directory.resolve(anyName ? "parameters 😀" : "parameters");
        Files.writeString(file, "this is no parameter\n");
        assertStatus(QuorlException.INVALID_FILE, () -> Quorl.open(file));
        Files.writeString(file, "# nothing but a comment\n\n");
        Quorl.open(file).close();
        Quorl.disableReadyCheck();
    }

    @Test
    void threadsOpenAndCloseAtOnce() throws Exception {
        OpenLibrary.Worker[] workers = new OpenLibrary.Worker[4];
        for (int i = 0; i < workers.length; i++) {
            workers[i] = new OpenLibrary.Worker(() -> {
                for (int n = 0; n < 100; n++) {
                    try (Quorl quorl = Quorl.open(); QuorlQueue queue = new QuorlQueue();
                            QuorlDispatcher dispatcher = new QuorlDispatcher(queue)) {
                        assertTrue(Quorl.isOpen());
                    }
                }
            });
        }
        for (OpenLibrary.Worker worker : workers) {
            worker.join();
        }
    }
}
