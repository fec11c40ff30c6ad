package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import org.junit.jupiter.api.Test;

/** What the Java classes of certified delivery refuse before the library is asked. */
class QuorlCmTransportTest extends OpenLibrary {
    private QuorlCmTransport.Builder builder() {
        return QuorlCmTransport.builder(transport);
    }

    @Test
    void aLedgerNeedsAName() {
        IllegalStateException e = assertThrows(IllegalStateException.class, () -> builder().ledger(Path.of("a.ledger")).open());
        assertEquals("a ledger belongs to a lasting name: call name() too", e.getMessage());
    }

    @Test
    void durabilityNeedsALedger() {
        for (QuorlDurability durability : QuorlDurability.values()) {
            assertThrows(IllegalStateException.class, () -> builder().name("orders").durability(durability).open());
        }
    }

    @Test
    void textsThatWouldEndEarlyAreRefusedByName() {
        assertText("the name has a zero character", () -> builder().name("or\0ders").open());
        assertText("the relay agent's name has half a surrogate pair", () -> builder().relayAgent("\ud800").open());
    }

    private static void assertText(String expected, org.junit.jupiter.api.function.Executable call) {
        IllegalArgumentException e = assertThrows(IllegalArgumentException.class, call);
        assertTrue(e.getMessage().startsWith(expected), e.getMessage());
    }

    @Test
    void aClosedTransportCarriesNothingCertified() {
        QuorlQrdTransport closed = new QuorlQrdTransport();
        QuorlCmTransport.Builder builder = QuorlCmTransport.builder(closed);
        closed.close();
        assertThrows(QuorlClosedException.class, builder::open);
    }
}
