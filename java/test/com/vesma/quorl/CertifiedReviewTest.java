package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.List;
import java.util.Set;
import java.util.TreeSet;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;

/**
 * Reviews of several subjects. The bridge calls Java for each without a look for an exception, of which a machine that checks
 * warns, so this is left to one that does not.
 */
class CertifiedReviewTest extends OpenLibrary {
    private QuorlCmTransport open(String name) {
        return QuorlCmTransport.builder(transport).name(name).open();
    }

    private static void send(QuorlCmTransport sender, String subject, int number) {
        try (QuorlMsg message = new QuorlMsg(subject).addI32("n", number)) {
            sender.send(message);
        }
    }

    @Test
    void aReviewTellsWhoLacksWhat() throws Exception {
        try (QuorlCmTransport orders = open("orders")) {
            orders.addListener("billing", "orders.>");
            send(orders, "orders.a", 1);
            send(orders, "orders.a", 2);
            send(orders, "orders.b", 3);
            send(orders, "other", 4);
            List<QuorlCmSubject> kept = orders.review("orders.*").sorted((a, b) -> a.subject().compareTo(b.subject())).toList();
            assertEquals(List.of("orders.a", "orders.b"), kept.stream().map(QuorlCmSubject::subject).toList());
            QuorlCmSubject a = kept.get(0);
            assertEquals(1, a.first());
            assertEquals(2, a.last());
            assertEquals(2, a.messages());
            assertTrue(a.bytes() > 0);
            assertEquals(List.of(new QuorlCmSubject.Listener("billing", 0, 2, null, false)), a.listeners());
            assertEquals(0, orders.review("nothing.>").count());
        }
    }

    @Test
    void aReviewOfManySubjectsShowsEachOnceAndStopsEarly() throws Exception {
        try (QuorlCmTransport orders = open("orders")) {
            orders.addListener("billing", ">");
            Set<String> sent = new TreeSet<>();
            for (int n = 0; n < 500; n++) {
                send(orders, "s" + n, n);
                sent.add("s" + n);
            }
            List<String> shown = orders.review(null).map(QuorlCmSubject::subject).toList();
            assertEquals(500, shown.size());
            assertEquals(sent, new TreeSet<>(shown));
            assertEquals(3, orders.review(null).limit(3).count());
            AtomicInteger calls = new AtomicInteger();
            orders.review(null, new QuorlCmReviewLedgerInfo() {
                @Override
                protected boolean onSubject(QuorlCmSubject subject) {
                    return calls.incrementAndGet() < 2;
                }
            });
            assertEquals(2, calls.get());
        }
    }
}
