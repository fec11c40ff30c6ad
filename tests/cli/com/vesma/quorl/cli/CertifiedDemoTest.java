package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The demo of certified delivery, and what it counts. */
class CertifiedDemoTest {
    private static DeliveryCheck check(List<String> sender, List<String> receiver) {
        DeliveryCheck check = new DeliveryCheck();
        check.sender(sender);
        check.receiver(receiver);
        return check;
    }

    private static final List<String> THREE_SENT = List.of("accepted 1 1000", "accepted 2 2000", "confirmed 1 2100", "accepted 3 3000",
            "confirmed 2 3100", "confirmed 3 3200", "stopped 0 3300");

    @Test
    void whatArrivesOnceInOrderIsRight() {
        DeliveryCheck check = check(THREE_SENT, List.of("started 0 900", "delivered 1 1001", "done 1 1002", "started 0 2500",
                "delivered 2 2501", "started 0 2600", "delivered 2 2601", "done 2 2602", "delivered 3 3001", "done 3 3002"));
        assertNull(check.complaint());
        assertTrue(check.complete());
        assertEquals(List.of(3L, 3L, 3L, 0L, 0L, 0L, 1L, 1L), List.of(check.accepted(), check.confirmed(), check.delivered(), check.lost(),
                check.duplicated(), check.overtaken(), check.recovered(), check.again()));
        assertEquals(3, check.starts());
    }

    @Test
    void whatIsMissingOrComesAgainIsFound() {
        assertEquals("no message was accepted", check(List.of(), List.of()).complaint());
        assertEquals("1 messages were lost", check(THREE_SENT, List.of("delivered 1 1001", "done 1 1002", "delivered 2 1003")).complaint());
        assertEquals("1 messages came again after they were confirmed", check(THREE_SENT, List.of("delivered 1 1001", "done 1 1002",
                "delivered 1 1003", "delivered 2 1004", "delivered 3 1005")).complaint());
        assertEquals("3 messages came out of order",
                check(THREE_SENT, List.of("delivered 2 1001", "delivered 1 1002", "delivered 3 1003")).complaint());
        assertEquals("1 messages were not confirmed", check(List.of("accepted 1 1000", "stopped 0 1001"), List.of("delivered 1 1000"))
                .complaint());
        assertFalse(check(List.of("accepted 1 1000"), List.of()).complete());
    }

    @Test
    void aReceiverThatIsKilledLosesNothing(@TempDir Path folder, @TempDir Path temporary) throws Exception {
        try (ChildCommand demo = new ChildCommand(folder, Map.of(), List.of("-Djava.io.tmpdir=" + temporary),
                List.of("cm", "demo", "--seconds", "4", "--kill-every", "1.5"))) {
            String said = String.join("\n", demo.out.lines().toList());
            assertEquals(0, demo.code(), () -> said + demo.said());
            assertEquals("", demo.said());
            Matcher table = Pattern.compile("accepted +([0-9]+) .*\nconfirmed +([0-9]+) .*\nkills +2 (?s:.*)\nlost +0\nduplicated +0 .*").matcher(said);
            assertTrue(table.find() && table.group(1).equals(table.group(2)), said);
            assertTrue(Long.parseLong(table.group(1)) > 0, said);
        }
        try (Stream<Path> left = Files.list(temporary)) {
            assertEquals(List.of(), left.toList());
        }
    }
}
