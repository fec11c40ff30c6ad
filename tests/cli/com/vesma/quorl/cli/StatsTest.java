package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlStatistics;
import java.time.Duration;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;

/** quorl stats: this process's own, another's that answers, once and again and again. */
class StatsTest {
    private static final Pattern QUEUE =
            Pattern.compile("^\\d+ quorl command +0 +\\d+ +[1-9]\\d* +0 +0  none$", Pattern.MULTILINE);

    private static void assertStatistics(String text) {
        assertTrue(text.startsWith("process " + ProcessHandle.current().pid() + ", library "), text);
        assertTrue(text.contains("\nsent      ") && text.contains("\nreceived  ") && text.contains("\nwaited    "), text);
        assertTrue(text.contains("\nlive      "), text);
        assertTrue(QUEUE.matcher(text).find(), text);
    }

    @Test
    void aScriptPrintsItsOwn() {
        Cli run = Cli.run("run", "-e", "listen a", "-e", "send a x:i32=1", "-e", "stats");
        assertEquals("", run.err());
        assertTrue(run.out().startsWith("a {x=1}\n"), run.out());
        assertStatistics(run.out().substring("a {x=1}\n".length()));
    }

    @Test
    void theCommandsOwnMessagesAreNotCounted() {
        Cli run = Cli.run("run", "-e", "listen a", "-e", "stats", "-e", "send a --count 3", "-e", "stats");
        for (String word : List.of("sent", "received")) {
            Matcher counted = Pattern.compile("^" + word + " +(\\d+) messages", Pattern.MULTILINE).matcher(run.out());
            assertTrue(counted.find(), run.toString());
            long before = Long.parseLong(counted.group(1));
            assertTrue(counted.find(), run.toString());
            assertEquals(3, Long.parseLong(counted.group(1)) - before, word);
        }
    }

    @Test
    void aProgramThatAnswersIsAsked() {
        Cli run = Cli.run("run", "-e", "stats stats.here --answer", "-e", "stats stats.here --json", "-e", "send stats.here",
                "-e", "stats stats.here");
        assertEquals("", run.err());
        String[] parts = run.out().split("\n", 2);
        assertTrue(parts[0].startsWith("{") && parts[0].contains("\"messages_out:u64\""), parts[0]);
        assertStatistics(parts[1]);
    }

    @Test
    void watchingPrintsRates() {
        Cli run = Cli.run("run", "-e", "stats --watch 0.05 --count 3");
        assertEquals("", run.err());
        assertEquals(3, Pattern.compile("^process ", Pattern.MULTILINE).matcher(run.out()).results().count(), run.out());
        assertEquals(4, Pattern.compile(" a second$", Pattern.MULTILINE).matcher(run.out()).results().count(), run.out());
    }

    @Test
    void nobodyAnswers() {
        Cli asked = Cli.run("stats", "stats.nobody", "--timeout", "0.05");
        assertEquals(1, asked.code());
        assertTrue(asked.err().endsWith("quorl: stats stats.nobody: no answer within 0.05 s\n"), asked.err());
        assertTrue(asked.err().contains("no other process can be asked here"), asked.err());
    }

    @Test
    void aLoneCommandSaysWhoseTheyAre() {
        Cli own = Cli.run("stats");
        assertEquals(0, own.code());
        assertTrue(own.err().contains("these are this command's own statistics"), own.err());
        assertTrue(own.out().startsWith("process "), own.out());
    }

    @Test
    void theDemoPrintsThemAtItsEnd() {
        Cli demo = Cli.run("demo", "--seconds", "0.2", "--stats");
        assertEquals(0, demo.code(), demo.err());
        assertTrue(demo.out().contains("\nprocess ") && demo.out().contains("\nlive      "), demo.out());
    }

    @Test
    void wrongCallsAreRefused() {
        Cli.expectUsage("subject \"a..b\": element 2 is empty", "quorl stats", "stats", "a..b");
        Cli.expectUsage("--answer needs a SUBJECT to answer on", "quorl stats", "stats", "--answer");
        Cli.expectUsage("--count says how often to --watch", "quorl stats", "stats", "--count", "2");
        Cli.expectUsage("--watch takes a number of at least 0.01, not 0", "quorl stats", "stats", "--watch", "0");
        Cli.expectUsage("--answer prints nothing, so --watch and --json say nothing", "quorl stats", "stats", "a", "--answer",
                "--json");
    }

    @Test
    void daemonsHaveLinesOfTheirOwn() {
        try (QuorlMsg plain = new QuorlMsg().addString("daemon", "a:1").addString("phase", "connecting");
                QuorlMsg full = new QuorlMsg().addString("daemon", "b:2").addString("service", "s").addString("network", "n")
                        .addString("phase", "away").addString("server", "nats://b:2").addU64("messages_out", 1)
                        .addU64("bytes_out", 2000).addU64("messages_in", 3).addU64("bytes_in", 4).addU64("waiting", 5)
                        .addU64("reconnects", 7).addU64("lost", 8)
                        .addU64("unconfirmed", 9).addU64("malformed", 10);
                QuorlMsg message = new QuorlMsg().addMsgArray("daemons", List.of(plain, full))) {
            List<String> lines = StatisticsText.lines(QuorlStatistics.of(message), null, 0);
            assertEquals(List.of("", "daemon a:1: connecting", "  sent      0 messages, 0 bytes, 0 bytes wait",
                    "  received  0 messages, 0 bytes", "  back      0 times; 0 lost, 0 unconfirmed, 0 malformed",
                    "daemon b:2, service s, network n: away, at nats://b:2", "  sent      1 messages, 2.0 kB, 5 bytes wait",
                    "  received  3 messages, 4 bytes",
                    "  back      7 times; 8 lost, 9 unconfirmed, 10 malformed"), lines.subList(lines.size() - 9, lines.size()));
        }
    }

    @Test
    void numbersAreShownInUnits() {
        assertEquals("999 bytes", StatisticsText.bytes(999));
        assertEquals("1.0 kB", StatisticsText.bytes(1000));
        assertEquals("2.5 GB", StatisticsText.bytes(2_500_000_000L));
        assertEquals("12.0 us", StatisticsText.time(Duration.ofNanos(12_000)));
        assertEquals("1.5 ms", StatisticsText.time(Duration.ofNanos(1_500_000)));
        assertEquals("61.0 s", StatisticsText.time(Duration.ofSeconds(61)));
    }

    @Test
    void everyPolicyIsShown() {
        try (QuorlMsg empty = new QuorlMsg()) {
            QuorlStatistics none = QuorlStatistics.of(empty);
            List<QuorlStatistics.Queue> queues = List.of(queue(0), queue(1), queue(2), queue(3), queue(9));
            List<String> lines = StatisticsText.lines(new QuorlStatistics("9.9.9", 7, 0, 0, 0, 0, 0, none.lag(), none.objects(),
                    queues, List.of()), null, 0);
            assertTrue(lines.contains("waited    nothing was timed"), lines.toString());
            List<String> ends = List.of("none", "10, the oldest 2 go", "10, the newest 2 go", "10, the new one goes",
                    "10, policy 9");
            for (int i = 0; i < ends.size(); i++) {
                assertTrue(lines.get(6 + i).endsWith("  " + ends.get(i)), lines.get(6 + i));
            }
        }
    }

    @Test
    void whatIsLostIsShownWhenThereIsSome() {
        try (QuorlMsg empty = new QuorlMsg(); QuorlMsg some = new QuorlMsg().addU64("messages_lost", 12)) {
            assertFalse(StatisticsText.lines(QuorlStatistics.of(empty), null, 0).stream().anyMatch(line -> line.startsWith("lost")));
            assertTrue(StatisticsText.lines(QuorlStatistics.of(some), null, 0).contains("lost      up to 12 messages on the way to daemons"));
        }
    }

    private static QuorlStatistics.Queue queue(int policy) {
        return new QuorlStatistics.Queue(3, "", 1, 0, 0, 0, 0, 0, policy, 10, 2);
    }
}
