package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.ref.WeakReference;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Certified senders and listeners of this process, over its own bus or a daemon. */
class CertifiedDeliveryTest extends OpenLibrary {
    @TempDir
    Path folder;

    private QuorlCmTransport open(String name) {
        return QuorlCmTransport.builder(transport).name(name).requestOld(true).open();
    }

    private QuorlCmTransport openWithLedger(String name) {
        return QuorlCmTransport.builder(transport).name(name).ledger(folder.resolve(name + ".ledger")).open();
    }

    private static long send(QuorlCmTransport sender, String subject, int number) {
        try (QuorlMsg message = new QuorlMsg(subject).addI32("n", number)) {
            return sender.send(message);
        }
    }

    private static CompletableFuture<QuorlCmDelivery> track(QuorlCmTransport sender, String subject, int number) {
        try (QuorlMsg message = new QuorlMsg(subject).addI32("n", number)) {
            return sender.sendTracked(message);
        }
    }

    private static <T> T get(CompletableFuture<T> future) throws Exception {
        return future.get(LIMIT.toSeconds(), TimeUnit.SECONDS);
    }

    /** A listener with a thread of its own, and the numbers that it has heard. */
    private final class Hearing implements AutoCloseable {
        final List<Integer> heard = new ArrayList<>();
        final QuorlQueue own = new QuorlQueue();
        final QuorlCmListener listener;
        final QuorlDispatcher dispatcher;

        Hearing(QuorlCmTransport by, String subject, QuorlCmListener.Confirmation confirmation, QuorlCmListener.Handler then) {
            listener = new QuorlCmListener(own, by, subject, confirmation, (l, message) -> {
                synchronized (heard) {
                    heard.add(message.getI32("n"));
                }
                then.onMessage(l, message);
            });
            dispatcher = QuorlDispatcher.builder(own).uncaughtExceptionHandler((thread, thrown) -> {}).start();
        }

        Hearing(QuorlCmTransport by, String subject) {
            this(by, subject, QuorlCmListener.Confirmation.AUTOMATIC, (l, message) -> {});
        }

        List<Integer> heard() {
            synchronized (heard) {
                return List.copyOf(heard);
            }
        }

        void await(int count) throws InterruptedException {
            OpenLibrary.await(() -> heard().size() >= count);
        }

        @Override
        public void close() {
            listener.close();
            dispatcher.close();
            own.close();
        }
    }

    private static List<Integer> numbers(int first, int last) {
        return IntStream.rangeClosed(first, last).boxed().collect(Collectors.toList());
    }

    @Test
    void everybodyThatIsKeptForConfirmsAndIsNamed() throws Exception {
        try (QuorlCmTransport orders = open("orders"); QuorlCmTransport billing = open("billing");
                QuorlCmTransport archive = open("archive")) {
            orders.addListener("billing", "orders.>");
            orders.addListener("archive", "orders.>");
            try (Hearing one = new Hearing(billing, "orders.>"); Hearing other = new Hearing(archive, "orders.new")) {
                QuorlCmDelivery delivery = get(track(orders, "orders.new", 1));
                assertEquals(new QuorlCmDelivery("orders.new", 1, Set.of("billing", "archive"), Map.of()), delivery);
                assertEquals(List.of(1), one.heard());
                assertEquals(List.of(1), other.heard());
            }
        }
    }

    @Test
    void withoutAListenerADeliveryIsDoneAtOnce() throws Exception {
        try (QuorlCmTransport orders = open("orders")) {
            assertEquals(Set.of(), get(track(orders, "orders.new", 1)).confirmedBy());
        }
    }

    @Test
    void attributesTellSenderNumberAndLimit() throws Exception {
        try (QuorlCmTransport orders = open("orders"); QuorlCmTransport billing = open("billing");
                QuorlMsg message = QuorlCmMsg.setTimeLimit(new QuorlMsg("orders.new").addI32("n", 1), Duration.ofMinutes(5))) {
            assertFalse(QuorlCmMsg.isCertified(message));
            assertNull(QuorlCmMsg.getSender(message));
            orders.addListener("billing", "orders.>");
            CompletableFuture<List<Object>> said = new CompletableFuture<>();
            try (Hearing hearing = new Hearing(billing, "orders.>", QuorlCmListener.Confirmation.AUTOMATIC, (l, m) -> said.complete(
                    List.of(QuorlCmMsg.isCertified(m), QuorlCmMsg.getSender(m), QuorlCmMsg.getSequence(m), QuorlCmMsg.getTimeLimit(m))))) {
                assertEquals(1, orders.send(message));
                assertEquals(1, QuorlCmMsg.getSequence(message));
                assertEquals(List.of(true, "orders", 1L, Duration.ofMinutes(5)), get(said));
            }
        }
    }

    @Test
    void aPlainListenerHearsWithoutAttributes() throws Exception {
        try (QuorlCmTransport orders = open("orders")) {
            List<Boolean> certified = new ArrayList<>();
            try (QuorlListener plain = new QuorlListener(queue, transport, "orders.>", (l, m) -> certified.add(QuorlCmMsg.isCertified(m)))) {
                send(orders, "orders.new", 1);
                drain(queue);
                assertEquals(List.of(false), certified);
            }
        }
    }

    @Test
    void aPlainMessageNeedsNoConfirmation() throws Exception {
        try (QuorlCmTransport billing = open("billing")) {
            CompletableFuture<Boolean> certified = new CompletableFuture<>();
            try (Hearing hearing = new Hearing(billing, "orders.>", QuorlCmListener.Confirmation.EXPLICIT, (l, m) -> {
                l.confirm(m);
                certified.complete(QuorlCmMsg.isCertified(m));
            })) {
                settle();
                try (QuorlMsg message = new QuorlMsg("orders.new").addI32("n", 1)) {
                    transport.send(message);
                }
                assertFalse(get(certified));
            }
        }
    }

    @Test
    void whatIsConfirmedExplicitlyMayBeConfirmedLaterAndTwice() throws Exception {
        try (QuorlCmTransport orders = open("orders"); QuorlCmTransport billing = open("billing")) {
            orders.addListener("billing", "orders.>");
            CompletableFuture<QuorlMsg> kept = new CompletableFuture<>();
            try (Hearing hearing = new Hearing(billing, "orders.>", QuorlCmListener.Confirmation.EXPLICIT,
                    (l, m) -> kept.complete(m.keep()))) {
                CompletableFuture<QuorlCmDelivery> delivery = track(orders, "orders.new", 1);
                try (QuorlMsg message = get(kept)) {
                    assertFalse(delivery.isDone());
                    hearing.listener.confirm(message);
                    hearing.listener.confirm(message);
                    assertEquals(Set.of("billing"), get(delivery).confirmedBy());
                }
            }
        }
    }

    @Test
    void anotherListenersMessageCannotBeConfirmed() throws Exception {
        try (QuorlCmTransport orders = open("orders"); QuorlCmTransport billing = open("billing")) {
            orders.addListener("billing", "orders.>");
            CompletableFuture<QuorlMsg> kept = new CompletableFuture<>();
            try (Hearing hearing = new Hearing(billing, "orders.>", QuorlCmListener.Confirmation.EXPLICIT, (l, m) -> kept.complete(m.keep()));
                    Hearing other = new Hearing(billing, "prices.>")) {
                send(orders, "orders.new", 1);
                try (QuorlMsg message = get(kept)) {
                    QuorlException e = assertThrows(QuorlException.class, () -> other.listener.confirm(message));
                    assertEquals(QuorlException.NOT_PERMITTED, e.getStatus());
                }
            }
        }
    }

    @Test
    void aHandlerThatThrowsConfirmsNothingAndTheMessageComesAgain() throws Exception {
        try (QuorlCmTransport orders = open("orders"); QuorlCmTransport billing = open("billing")) {
            orders.addListener("billing", "orders.>");
            CompletableFuture<QuorlCmDelivery> delivery;
            try (Hearing failing = new Hearing(billing, "orders.>", QuorlCmListener.Confirmation.AUTOMATIC, (l, m) -> {
                throw new IllegalStateException("not today");
            })) {
                delivery = track(orders, "orders.new", 1);
                failing.await(1);
            }
            assertFalse(delivery.isDone());
            try (Hearing hearing = new Hearing(billing, "orders.>")) {
                assertEquals(Set.of("billing"), get(delivery).confirmedBy());
                assertEquals(List.of(1), hearing.heard());
            }
        }
    }

    @Test
    void aHandlerThatClosesItsListenerConfirmsAllTheSame() throws Exception {
        try (QuorlCmTransport orders = open("orders"); QuorlCmTransport billing = open("billing")) {
            orders.addListener("billing", "orders.>");
            try (Hearing hearing = new Hearing(billing, "orders.>", QuorlCmListener.Confirmation.AUTOMATIC, (l, m) -> l.close())) {
                assertEquals(Set.of("billing"), get(track(orders, "orders.new", 1)).confirmedBy());
                assertTrue(hearing.listener.isClosed());
            }
        }
    }

    @Test
    void aListenerThatComesBackMissesNothing() throws Exception {
        try (QuorlCmTransport orders = openWithLedger("orders")) {
            orders.addListener("billing", "orders.>");
            List<Integer> heard = new ArrayList<>();
            for (int round = 0; round < 3; round++) {
                for (int n = 1; n <= 10; n++) {
                    send(orders, "orders.new", 20 * round + n);
                }
                try (QuorlCmTransport billing = openWithLedger("billing"); Hearing hearing = new Hearing(billing, "orders.>")) {
                    for (int n = 11; n <= 20; n++) {
                        send(orders, "orders.new", 20 * round + n);
                    }
                    hearing.await(20);
                    heard.addAll(hearing.heard());
                }
            }
            assertEquals(numbers(1, 60), heard);
        }
    }

    @Test
    void whoDoesNotAskForWhatIsOldGetsWhatIsNew() throws Exception {
        try (QuorlCmTransport orders = open("orders")) {
            orders.addListener("billing", "orders.>");
            // Who was only added has no session before.
            try (QuorlCmTransport billing = openWithLedger("billing"); Hearing hearing = new Hearing(billing, "orders.>")) {
                get(track(orders, "orders.new", 1));
            }
            CompletableFuture<QuorlCmDelivery> missed = track(orders, "orders.new", 2);
            try (QuorlCmTransport billing = QuorlCmTransport.builder(transport).name("billing")
                    .ledger(folder.resolve("billing.ledger")).requestOld(false).open(); Hearing hearing = new Hearing(billing, "orders.>")) {
                assertThrows(ExecutionException.class, () -> get(missed));
                get(track(orders, "orders.new", 3));
                assertEquals(List.of(3), hearing.heard());
            }
        }
    }

    @Test
    void aSenderThatComesBackSendsWhatItsLedgerKeeps() throws Exception {
        try (QuorlCmTransport orders = openWithLedger("orders")) {
            orders.addListener("billing", "orders.>");
            for (int n = 1; n <= 5; n++) {
                assertEquals(n, send(orders, "orders.new", n));
            }
        }
        try (QuorlCmTransport orders = openWithLedger("orders"); QuorlCmTransport billing = openWithLedger("billing");
                Hearing hearing = new Hearing(billing, "orders.>")) {
            hearing.await(5);
            assertEquals(6, send(orders, "orders.new", 6));
            hearing.await(6);
            assertEquals(numbers(1, 6), hearing.heard());
        }
    }

    @Test
    void aCancelledAgreementIsKeptForNoMore() throws Exception {
        try (QuorlCmTransport orders = open("orders"); QuorlCmTransport billing = open("billing")) {
            orders.addListener("billing", "orders.>");
            try (Hearing hearing = new Hearing(billing, "orders.>")) {
                assertEquals(Set.of("billing"), get(track(orders, "orders.new", 1)).confirmedBy());
                hearing.listener.close(true);
            }
            await(() -> orders.review("orders.new").allMatch(subject -> subject.listeners().isEmpty()));
            assertEquals(Set.of(), get(track(orders, "orders.new", 2)).confirmedBy());
        }
    }

    @Test
    void requestsAreAnswered() throws Exception {
        try (QuorlCmTransport asking = open("asking"); QuorlCmTransport answering = open("answering")) {
            asking.addListener("answering", "time.now");
            try (Hearing hearing = new Hearing(answering, "time.now", QuorlCmListener.Confirmation.AUTOMATIC, (l, m) -> {
                try (QuorlMsg answer = new QuorlMsg().addI32("n", 2 * m.getI32("n"))) {
                    answering.reply(answer, m);
                }
            }); QuorlMsg question = new QuorlMsg("time.now").addI32("n", 21); QuorlMsg answer = asking.request(question, LIMIT)) {
                assertNotNull(answer);
                assertEquals(42, answer.getI32("n"));
            }
        }
    }

    @Test
    void aRequestThatNobodyAnswersEndsInTime() throws Exception {
        try (QuorlCmTransport asking = open("asking"); QuorlMsg question = new QuorlMsg("time.now")) {
            assertNull(asking.request(question, Duration.ofMillis(1)));
        }
    }

    @Test
    void anInterruptEndsTheWaitForAReply() throws Exception {
        try (QuorlCmTransport asking = open("asking"); QuorlMsg question = new QuorlMsg("time.now")) {
            CountDownLatch begun = new CountDownLatch(1);
            Worker worker = new Worker(() -> {
                begun.countDown();
                assertThrows(InterruptedException.class, () -> asking.request(question, Duration.ofMinutes(5)));
            });
            await(begun);
            worker.thread.interrupt();
            worker.join();
        }
    }

    @Test
    void whatAReviewThrowsComesOut() {
        try (QuorlCmTransport orders = open("orders")) {
            orders.addListener("billing", ">");
            send(orders, "a", 1);
            IllegalStateException thrown = new IllegalStateException("enough");
            QuorlCmReviewLedgerInfo info = new QuorlCmReviewLedgerInfo() {
                @Override
                protected boolean onSubject(QuorlCmSubject subject) {
                    throw thrown;
                }
            };
            assertSame(thrown, assertThrows(IllegalStateException.class, () -> orders.review(null, info)));
        }
    }

    @Test
    void aTransportMayBeClosedInsideItsReview() {
        QuorlCmTransport orders = open("orders");
        orders.addListener("billing", ">");
        send(orders, "a", 1);
        orders.review(null, new QuorlCmReviewLedgerInfo() {
            @Override
            protected boolean onSubject(QuorlCmSubject subject) {
                orders.close();
                return true;
            }
        });
        assertTrue(orders.isClosed());
    }

    @Test
    void whatIsGivenUpFailsItsDelivery() throws Exception {
        try (QuorlCmTransport orders = open("orders")) {
            orders.addListener("billing", ">");
            CompletableFuture<QuorlCmDelivery> expired = track(orders, "a", 1);
            orders.expireMessages("a", 1);
            ExecutionException e = assertThrows(ExecutionException.class, () -> get(expired));
            assertEquals(QuorlException.DELIVERY_FAILED, ((QuorlCmDeliveryException) e.getCause()).getStatus());
            try (QuorlMsg brief = QuorlCmMsg.setTimeLimit(new QuorlMsg("a").addI32("n", 2), Duration.ofMillis(20))) {
                CompletableFuture<QuorlCmDelivery> late = orders.sendTracked(brief);
                assertThrows(ExecutionException.class, () -> get(late));
            }
            CompletableFuture<QuorlCmDelivery> removed = track(orders, "a", 3);
            orders.removeListener("billing", ">");
            e = assertThrows(ExecutionException.class, () -> get(removed));
            assertEquals(Set.of("billing"), ((QuorlCmDeliveryException) e.getCause()).getDelivery().undelivered().keySet());
        }
    }

    @Test
    void controlsAreCarriedOut() throws Exception {
        try (QuorlCmTransport orders = openWithLedger("orders")) {
            orders.allowListener("billing");
            orders.disallowListener("archive");
            orders.setDefaultTimeLimit(Duration.ofHours(1));
            orders.setDefaultTimeLimit(Duration.ZERO);
            orders.setPublisherInactivityDiscardInterval(Duration.ofMinutes(1));
            assertThrows(IllegalArgumentException.class, () -> orders.setPublisherInactivityDiscardInterval(Duration.ofMillis(1500)));
            orders.addListener("billing", "a");
            send(orders, "a", 1);
            orders.syncLedger();
            orders.removeSendState("a");
            assertEquals(0, orders.review("a").count());
            for (Runnable call : List.<Runnable>of(orders::connectToRelayAgent, orders::disconnectFromRelayAgent)) {
                assertEquals(QuorlException.NOT_PERMITTED, assertThrows(QuorlException.class, call::run).getStatus());
            }
        }
    }

    /** On the bus of the process, where there is none. */
    @Test
    void aRelayAgentThatDoesNotAnswerIsNamed() {
        try (QuorlCmTransport orders = QuorlCmTransport.builder(transport).name("orders").ledger(folder.resolve("orders.ledger"))
                .relayAgent("office").open()) {
            QuorlException e = assertThrows(QuorlException.class, orders::connectToRelayAgent);
            assertEquals(QuorlException.TIMEOUT, e.getStatus());
            assertEquals("the relay agent \"office\" does not answer \"orders\"; see that quorl-relay runs, and try again", e.getDetail());
        }
    }

    @Test
    void aLedgerInUseIsRefused() {
        try (QuorlCmTransport orders = openWithLedger("orders")) {
            QuorlLedgerException e = assertThrows(QuorlLedgerException.class, () -> openWithLedger("orders"));
            assertEquals(QuorlException.NOT_FILE_OWNER, e.getStatus());
            assertNotNull(e.getDetail());
        }
    }

    @Test
    void whatIsNoLedgerIsRefusedAndLeftAsItIs() throws Exception {
        Path file = folder.resolve("orders.ledger");
        byte[] before = "this is a letter".repeat(1000).getBytes();
        Files.write(file, before);
        QuorlLedgerException e = assertThrows(QuorlLedgerException.class, () -> openWithLedger("orders"));
        assertEquals(QuorlException.INVALID_FILE, e.getStatus());
        assertArrayEquals(before, Files.readAllBytes(file));
        assertThrows(QuorlException.class,
                () -> QuorlCmTransport.builder(transport).name("a").ledger(folder).open());
        assertThrows(QuorlException.class,
                () -> QuorlCmTransport.builder(transport).name("a").ledger(folder.resolve("none/a.ledger")).open());
    }

    @Test
    void namesThatAreNoneAreRefused() {
        for (String name : List.of("", "a..b", "a.*", ">", "x".repeat(201))) {
            QuorlException e = assertThrows(QuorlException.class, () -> open(name), name);
            assertEquals(QuorlException.INVALID_NAME, e.getStatus(), name);
        }
    }

    @Test
    void closingComesInAnyOrderAndTwice() throws Exception {
        QuorlQrdTransport below = new QuorlQrdTransport();
        QuorlCmTransport orders = QuorlCmTransport.builder(below).name("orders").ledger(folder.resolve("o.ledger")).open();
        QuorlCmListener listener = new QuorlCmListener(queue, orders, "a", (l, m) -> {});
        below.close();
        orders.close();
        orders.close();
        assertTrue(listener.isClosed());
        listener.close();
        listener.close(true);
        // The ledger is free.
        QuorlCmTransport.builder(transport).name("orders").ledger(folder.resolve("o.ledger")).open().close();
    }

    @Test
    void aCloseEndsWhatWaitsForADelivery() {
        QuorlCmTransport orders = open("orders");
        orders.addListener("billing", ">");
        CompletableFuture<QuorlCmDelivery> delivery = track(orders, "a", 1);
        orders.close();
        ExecutionException e = assertThrows(ExecutionException.class, () -> get(delivery));
        assertTrue(e.getCause() instanceof QuorlClosedException);
    }

    @Test
    void aListenerThatWasClosedIsNotHeldByTheLibrary() throws Exception {
        try (QuorlCmTransport billing = open("billing")) {
            WeakReference<QuorlCmListener> gone = closed(billing);
            await(() -> {
                System.gc();
                return gone.get() == null;
            });
        }
    }

    private WeakReference<QuorlCmListener> closed(QuorlCmTransport by) {
        QuorlCmListener listener = new QuorlCmListener(queue, by, "a", (l, m) -> {});
        listener.close();
        return new WeakReference<>(listener);
    }

    /** Waits for the library each time, while messages come in and are confirmed. */
    @Test
    void closingUnderLoadReturnsEveryTime() throws Exception {
        int closings = Integer.getInteger("quorl.closings", 1000);
        // Listeners have names of the library's, which need not be asked for. A sender remembers each for some minutes, so there is
        // another one for each fifty of them, which is closed under load too.
        for (int n = 0; n < closings;) {
            try (QuorlCmTransport orders = QuorlCmTransport.builder(transport).open()) {
                AtomicBoolean stop = new AtomicBoolean();
                Worker sending = new Worker(() -> {
                    for (int number = 1; !stop.get(); number++) {
                        send(orders, "orders.new", number);
                        Thread.yield();
                    }
                });
                for (int last = Math.min(closings, n + 50); n < last; n++) {
                    QuorlCmTransport billing = QuorlCmTransport.builder(transport).open();
                    Hearing hearing = new Hearing(billing, "orders.>");
                    hearing.await(1);
                    if (n % 2 == 0) {
                        billing.close();
                        hearing.close();
                    } else {
                        hearing.listener.close(n % 4 == 1);
                        hearing.close();
                        billing.close();
                    }
                }
                stop.set(true);
                sending.join();
            }
        }
    }
}
