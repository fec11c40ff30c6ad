package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTimeoutPreemptively;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.time.Duration;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import java.util.function.ToLongFunction;
import org.junit.jupiter.api.Test;

/** Futures of deliveries, with a sender of the test's own and advisories that the test sends. */
class CmDeliveriesTest extends OpenLibrary {
    private static final int ID = 4711;

    private long last;

    private CmDeliveries deliveries(ToLongFunction<QuorlMsg> sender) {
        return new CmDeliveries(() -> ID, sender, () -> new QuorlClosedException(QuorlException.INVALID_TRANSPORT, "the certified transport"));
    }

    private static QuorlMsg message(String subject) {
        return new QuorlMsg(subject);
    }

    /** What the library tells. */
    private void tell(String level, String kind, int id, String subject, long first, long upTo, String peer, String reason) {
        try (QuorlMsg advisory = new QuorlMsg("_QUORL." + level + ".certified." + kind)
                .addU32("transport", id).addString("name", "orders").addString("subject", subject)
                .addU64("first", first).addU64("last", upTo)) {
            if (peer != null) {
                advisory.addString("listener", peer);
            }
            if (reason != null) {
                advisory.addString("reason", reason);
            }
            transport.send(advisory);
        }
    }

    private void confirmed(String subject, long first, long upTo, String peer) {
        tell("INFO", "confirmed", ID, subject, first, upTo, peer, null);
    }

    private void settled(String subject, long first, long upTo) {
        tell("INFO", "settled", ID, subject, first, upTo, null, null);
    }

    private static QuorlCmDelivery get(CompletableFuture<QuorlCmDelivery> future) throws Exception {
        return future.get(LIMIT.toSeconds(), TimeUnit.SECONDS);
    }

    @Test
    void aDeliveryNamesWhoHasConfirmed() throws Exception {
        CmDeliveries deliveries = deliveries(message -> ++last);
        try (QuorlMsg one = message("a"); QuorlMsg other = message("b")) {
            CompletableFuture<QuorlCmDelivery> first = deliveries.send(one);
            CompletableFuture<QuorlCmDelivery> second = deliveries.send(other);
            confirmed("a", 1, 5, "billing");
            confirmed("a", 1, 1, "archive");
            confirmed("b", 1, 2, "billing");
            settled("a", 1, 1);
            assertEquals(new QuorlCmDelivery("a", 1, Set.of("billing", "archive"), Map.of()), get(first));
            assertFalse(second.isDone());
            settled("b", 2, 2);
            assertEquals(new QuorlCmDelivery("b", 2, Set.of("billing"), Map.of()), get(second));
            assertEquals(0, deliveries.waiting());
        }
    }

    @Test
    void whatIsToldBeforeTheSendReturnsCounts() throws Exception {
        CountDownLatch heard = new CountDownLatch(1);
        CmDeliveries deliveries = deliveries(message -> {
            if (message.getSendSubject().equals("mark")) {
                return 1;
            }
            confirmed("a", 7, 7, "billing");
            settled("a", 7, 7);
            // What is told is heard in its order.
            settled("mark", 1, 1);
            try {
                await(heard);
            } catch (InterruptedException e) {
                throw new AssertionError(e);
            }
            return 7;
        });
        try (QuorlMsg mark = message("mark"); QuorlMsg one = message("a")) {
            deliveries.send(mark).thenRun(heard::countDown);
            assertEquals(new QuorlCmDelivery("a", 7, Set.of("billing"), Map.of()), get(deliveries.send(one)));
            // A delivery is forgotten behind what hangs on it.
            assertTimeoutPreemptively(Duration.ofSeconds(30), () -> {
                while (deliveries.waiting() != 0) {
                    Thread.onSpinWait();
                }
            });
        }
    }

    @Test
    void anotherTransportsConfirmationsDoNotCount() throws Exception {
        CmDeliveries deliveries = deliveries(message -> ++last);
        try (QuorlMsg one = message("a")) {
            CompletableFuture<QuorlCmDelivery> future = deliveries.send(one);
            tell("INFO", "settled", ID + 1, "a", 1, 1, null, null);
            settled("a", 2, 9);
            settled("b", 1, 1);
            confirmed("a", 1, 1, "billing");
            settled("a", 1, 1);
            assertEquals(Set.of("billing"), get(future).confirmedBy());
        }
    }

    @Test
    void anExpiredMessageNamesWhoIsMissing() {
        CmDeliveries deliveries = deliveries(message -> ++last);
        try (QuorlMsg one = message("a")) {
            CompletableFuture<QuorlCmDelivery> future = deliveries.send(one);
            confirmed("a", 1, 1, "billing");
            tell("WARN", "expired", ID, "a", 1, 1, null, null);
            tell("WARN", "undelivered", ID, "a", 1, 1, "archive", "the time limit has passed");
            settled("a", 1, 1);
            ExecutionException e = assertThrows(ExecutionException.class, () -> get(future));
            QuorlCmDeliveryException failure = (QuorlCmDeliveryException) e.getCause();
            assertEquals(QuorlException.DELIVERY_FAILED, failure.getStatus());
            assertEquals("message 1 on \"a\" has expired; archive: the time limit has passed", failure.getDetail());
            assertEquals(new QuorlCmDelivery("a", 1, Set.of("billing"), Map.of("archive", "the time limit has passed")),
                    failure.getDelivery());
        }
    }

    @Test
    void aRemovedListenerIsAFailure() {
        CmDeliveries deliveries = deliveries(message -> ++last);
        try (QuorlMsg one = message("a")) {
            CompletableFuture<QuorlCmDelivery> future = deliveries.send(one);
            tell("WARN", "undelivered", ID, "a", 1, 1, "archive", "the listener was removed");
            settled("a", 1, 1);
            ExecutionException e = assertThrows(ExecutionException.class, () -> get(future));
            assertEquals("message 1 on \"a\" was not confirmed by everybody; archive: the listener was removed",
                    ((QuorlException) e.getCause()).getDetail());
        }
    }

    @Test
    void aMessageThatIsNotCertifiedIsDoneAtOnce() throws Exception {
        try (QuorlMsg one = message("_INBOX.x")) {
            assertEquals(new QuorlCmDelivery("_INBOX.x", 0, Set.of(), Map.of()), get(deliveries(message -> 0).send(one)));
        }
    }

    @Test
    void aSendThatFailsTracksNothing() {
        CmDeliveries deliveries = deliveries(message -> {
            throw new QuorlException(QuorlException.INVALID_SUBJECT, "no");
        });
        try (QuorlMsg one = message("a")) {
            assertThrows(QuorlException.class, () -> deliveries.send(one));
            assertEquals(0, deliveries.waiting());
        }
    }

    @Test
    void cancellingForgets() {
        CmDeliveries deliveries = deliveries(message -> ++last);
        try (QuorlMsg one = message("a")) {
            CompletableFuture<QuorlCmDelivery> future = deliveries.send(one);
            assertEquals(1, deliveries.waiting());
            assertTrue(future.cancel(false));
            assertEquals(0, deliveries.waiting());
        }
    }

    @Test
    void aCloseFailsWhatWaits() {
        CmDeliveries deliveries = deliveries(message -> ++last);
        try (QuorlMsg one = message("a")) {
            CompletableFuture<QuorlCmDelivery> future = deliveries.send(one);
            deliveries.close();
            ExecutionException e = assertThrows(ExecutionException.class, () -> get(future));
            assertTrue(e.getCause() instanceof QuorlClosedException);
            assertThrows(QuorlClosedException.class, () -> deliveries.send(one));
        }
    }

    @Test
    void theLibrarysLastCloseFailsWhatWaits() throws Exception {
        CmDeliveries deliveries = deliveries(message -> ++last);
        CompletableFuture<QuorlCmDelivery> future;
        try (QuorlMsg one = message("a")) {
            future = deliveries.send(one);
        }
        quorl.close();
        ExecutionException e = assertThrows(ExecutionException.class, () -> get(future));
        assertTrue(e.getCause() instanceof QuorlClosedException);
    }

    @Test
    void manySendersAtOnceLoseNothing() throws Exception {
        CmDeliveries deliveries = deliveries(message -> {
            long number;
            synchronized (this) {
                number = ++last;
            }
            confirmed("a", number, number, "billing");
            settled("a", number, number);
            return number;
        });
        Worker[] workers = new Worker[4];
        for (int i = 0; i < workers.length; i++) {
            workers[i] = new Worker(() -> {
                for (int n = 0; n < 200; n++) {
                    try (QuorlMsg one = message("a")) {
                        assertEquals(Set.of("billing"), get(deliveries.send(one)).confirmedBy());
                    }
                }
            });
        }
        for (Worker worker : workers) {
            worker.join();
        }
        assertEquals(0, deliveries.waiting());
    }
}
