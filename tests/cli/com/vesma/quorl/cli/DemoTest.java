package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The demo on this machine and on canned counters. */
class DemoTest {
    private static final Pattern SUMMARY = Pattern.compile(
            "(\\d+) sent, (\\d+) received, (\\d+) lost, (\\d+) out of order, [0-9.]+ messages a second\n\\z");

    private static void file(Path proc, String name, String text) throws IOException {
        Path path = proc.resolve(name);
        Files.createDirectories(path.getParent());
        Files.writeString(path, text);
    }

    @Test
    void aSecondOfThisMachineLosesNothing() {
        Cli demo = Cli.run("demo", "--seconds", "1");
        assertEquals("", demo.err());
        assertEquals(0, demo.code(), demo.out());
        Matcher summary = SUMMARY.matcher(demo.out());
        assertTrue(summary.find(), demo.out());
        long sent = Long.parseLong(summary.group(1));
        // Ten samples with at least memory, load and one core.
        assertTrue(sent >= 30, demo.out());
        assertEquals(sent, Long.parseLong(summary.group(2)), demo.out());
        assertEquals("0", summary.group(3));
        assertEquals("0", summary.group(4));
        assertTrue(demo.out().contains("  cpu ") && demo.out().contains(" messages on "), demo.out());
    }

    @Test
    void theFiguresAreThoseOfTheCounters(@TempDir Path proc) throws IOException {
        file(proc, "sys/kernel/hostname", "oven.3\n");
        file(proc, "meminfo", "MemTotal: 1000 kB\nMemFree: 500 kB\nMemAvailable: 750 kB\n");
        file(proc, "loadavg", "0.53 1.16 12.05 2/98 7313\n");
        Cli demo = Cli.run("demo", "--seconds", "0.1", "--proc", proc.toString());
        assertEquals(0, demo.code(), demo.err());
        assertTrue(demo.out().contains("memory 25.0 %  load 0.53  2 messages on 2 subjects, 0 lost, 0 out of order\n"),
                demo.out());
        assertTrue(demo.out().contains("2 sent, 2 received, 0 lost"), demo.out());
    }

    @Test
    void aMachineWithoutCountersIsAFailure(@TempDir Path proc) {
        Cli demo = Cli.run("demo", "--seconds", "0.1", "--proc", proc.toString());
        assertEquals(1, demo.code());
        assertEquals("quorl: none of this machine's counters could be read\n", demo.err());
    }

    @Test
    void anythingButEveryMessageOnceInOrderIsAFailure() {
        assertNull(new DemoResult(10, 10, 0, 0).complaint());
        assertEquals("1 messages were lost", new DemoResult(10, 9, 0, 0).complaint());
        assertEquals("2 messages came twice", new DemoResult(10, 10, 0, 2).complaint());
        assertEquals("3 messages came out of order", new DemoResult(10, 10, 3, 0).complaint());
        assertEquals("10 sent, 8 received, 2 lost, 1 out of order, 4.0 messages a second",
                new DemoResult(10, 8, 1, 0).summary(2.5));
    }
}
