package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;

class SequenceCheckTest {
    private final SequenceCheck check = new SequenceCheck();

    private void receive(String subject, long... sequences) {
        for (long sequence : sequences) check.received(subject, sequence);
    }

    private void expect(long received, long missing, long outOfOrder, long duplicates) {
        assertEquals("received " + received + ", missing " + missing + ", out of order " + outOfOrder + ", duplicates "
                + duplicates, "received " + check.received() + ", missing " + check.missing() + ", out of order "
                + check.outOfOrder() + ", duplicates " + check.duplicates());
    }

    @Test
    void countsEachSubjectFromOne() {
        receive("a", 1, 2, 3);
        receive("b", 1);
        receive("a", 4);
        receive("b", 2);
        expect(6, 0, 0, 0);
        assertEquals(2, check.subjects());
    }

    @Test
    void seesGapsAlsoAtTheStart() {
        receive("a", 3, 4, 7);
        expect(3, 4, 0, 0);
    }

    @Test
    void aLateArrivalFillsItsGapAndIsOutOfOrder() {
        receive("a", 1, 4, 2);
        expect(3, 1, 1, 0);
        receive("a", 3);
        expect(4, 0, 2, 0);
    }

    @Test
    void aDuplicateIsNeitherReceivedNorOutOfOrder() {
        receive("a", 1, 1, 3, 2, 2);
        expect(3, 0, 1, 2);
    }

    @Test
    void waitingEndsWhenTheCountIsReached() throws Exception {
        Thread sender = new Thread(() -> receive("a", 1, 2, 3));
        sender.start();
        assertTrue(check.awaitReceived(3, 30));
        sender.join();
        assertFalse(check.awaitReceived(4, 0));
    }
}
