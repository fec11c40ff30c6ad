package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.QuorlMsg;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** What the commands of fault tolerance say to wrong calls, and how they show a group. */
class FtUsageTest {
    private static final long SECOND = 1_000_000_000L;

    @ParameterizedTest
    @ValueSource(strings = {"join", "watch"})
    void helpShowsWhatTheOptionShows(String command) {
        Cli help = Cli.run("help", "ft", command);
        assertEquals(Cli.run("ft", command, "--help"), help);
        assertEquals(0, help.code());
        assertTrue(help.out().startsWith("Usage: quorl ft " + command) && help.out().contains("\nExamples:"), help.out());
    }

    @Test
    void wrongCallsAreExplained() {
        Cli.expectUsage("no command is given; there are join, watch", "quorl ft", "ft");
        Cli.expectUsage("there is no command 'wach'; did you mean watch?", "quorl ft", "ft", "wach");
        Cli.expectUsage("group \"a..b\": element 2 is empty", "quorl ft join", "ft", "join", "a..b");
        Cli.expectUsage("group \"a.*\": \"*\" is a wildcard; a message is sent to one subject", "quorl ft watch", "ft", "watch", "a.*");
        for (String wrong : List.of("0", "65536", "-1")) {
            Cli.expectUsage("--weight takes a number from 1 to 65535, not " + wrong, "quorl ft join", "ft", "join", "g", "--weight", wrong);
            Cli.expectUsage("--goal takes a number from 1 to 65535, not " + wrong, "quorl ft join", "ft", "join", "g", "--goal", wrong);
        }
        for (String option : List.of("--heartbeat", "--activation")) {
            Cli.expectUsage(option + " takes a number of at least 0.001, not NaN", "quorl ft join", "ft", "join", "g", option, "NaN");
            Cli.expectUsage(option + " takes a number of at least 0.001, not 0", "quorl ft join", "ft", "join", "g", option, "0");
        }
        Cli.expectUsage("--preparation takes a number of at least 0, not -1", "quorl ft join", "ft", "join", "g", "--preparation", "-1");
        Cli.expectUsage("--lost takes a number of at least 0.001, not Infinity", "quorl ft watch", "ft", "watch", "g", "--lost", "Infinity");
        Cli.expectUsage("--grace is about the program of --exec; there is none", "quorl ft join", "ft", "join", "g", "--grace", "1");
        Cli.expectUsage("--grace takes less than --activation (4), after which the next member does not wait for the program's end any more",
                "quorl ft join", "ft", "join", "g", "--grace", "4", "--exec", "true");
        Cli.expectUsage("-e line 1: there is no command 'ft'", "quorl run", "run", "-e", "ft watch g");
    }

    /** The library knows which intervals go together; nothing of the network is used before. */
    @Test
    void intervalsThatDoNotFitAreWrongCalls() {
        for (String[] wrong : new String[][] {{"--heartbeat", "5", "the activation interval must be longer"},
                {"--preparation", "0.5", "the preparation interval must be longer"}, {"--activation", "1e300", "the activation interval must be from"}}) {
            Cli run = Cli.run("ft", "join", "g", wrong[0], wrong[1], "--daemon", "");
            assertEquals(2, run.code(), run.err());
            assertTrue(run.err().contains("quorl: " + wrong[2]), run.err());
        }
        Cli run = Cli.run("ft", "watch", "g", "--lost", "1e300", "--daemon", "");
        assertEquals(2, run.code(), run.err());
        assertTrue(run.err().contains("quorl: the lost interval must be from"), run.err());
    }

    private static QuorlMsg peer(String name, String state, long weight, long token) {
        return new QuorlMsg("_QUORL.INFO.ft.changed").addString("peer", name).addString("label", name).addString("state", state)
                .addU32("weight", weight).addU64("token", token);
    }

    @Test
    void aGroupIsDrawnByRank() {
        GroupTable table = new GroupTable();
        assertEquals(List.of("g: listening"), table.lines("g", 0, 24));
        try (QuorlMsg a = peer("host/1", "active", 1, -1); QuorlMsg b = peer("host/22", "joining", 5, 0); QuorlMsg c = peer("host/3", "standby", 1, 0);
                QuorlMsg standby = peer("host/22", "standby", 5, 0)) {
            table.told("joined", a, SECOND);
            table.told("joined", b, 61 * SECOND);
            table.told("joined", c, 61 * SECOND);
            table.count(1);
            table.told("changed", standby, 62 * SECOND);
            assertEquals(List.of("g: 1 active of 3 members",
                    "  MEMBER   STATE     WEIGHT         FOR  TOKEN",
                    "  host/22  standby        5         3 s",
                    "  host/1   active         1       >1:04  18446744073709551615",
                    "  host/3   standby        1        >4 s"), table.lines("g", 65 * SECOND, 24));
            table.told("lost", a, 66 * SECOND);
            table.count(0);
            assertEquals("  host/1   lost           1         1 s  18446744073709551615", table.lines("g", 67 * SECOND, 24).get(4));
            assertEquals("g: 0 active of 2 members", table.lines("g", 67 * SECOND, 24).get(0));
            assertEquals(4, table.lines("g", 77 * SECOND, 24).size(), "whoever is gone for long is not shown");
        }
        assertEquals("1:02:03", GroupTable.time(3723 * SECOND));
    }

    @Test
    void aMemberWithoutALabelIsShownByItsNumber() {
        GroupTable table = new GroupTable();
        try (QuorlMsg nameless = new QuorlMsg("_QUORL.INFO.ft.joined").addString("peer", "00000000000000ab").addString("state", "active")
                .addU32("weight", 1).addU64("token", 5).addString("group", "g")) {
            table.told("joined", nameless, 0);
            assertEquals("  00000000000000ab  active         1        >1 s  5", table.lines("g", SECOND, 24).get(2));
            nameless.setSendSubject("_QUORL.WARN.ft.lost");
            assertEquals("00000000000000ab in group g is silent, and counts as gone", FtAdvisoryText.of(nameless));
        }
    }

    @Test
    void aTallGroupIsCutWhereTheTerminalEnds() {
        GroupTable table = new GroupTable();
        for (int i = 10; i < 30; i++) {
            try (QuorlMsg each = peer("host/" + i, i == 12 ? "active" : "standby", 30 - i, i == 12 ? 5 : 0)) {
                table.told("joined", each, 0);
            }
        }
        try (QuorlMsg gone = peer("host/10", "standby", 20, 0)) {
            table.told("lost", gone, 0);
        }
        table.count(1);
        String head = "  MEMBER   STATE     WEIGHT         FOR  TOKEN";
        String active = "  host/12  active        18        >1 s  5";
        assertEquals(List.of("g: 1 active of 19 members", head, "  host/11  standby       19        >1 s", active, "  and 18 more"),
                table.lines("g", SECOND, 5));
        assertEquals(List.of("g: 1 active of 19 members", head, active, "  and 19 more"), table.lines("g", SECOND, 4));
        assertEquals(List.of("g: 1 active of 19 members", "  and 20 more"), table.lines("g", SECOND, 3));
        assertEquals(List.of("g: 1 active of 19 members"), table.lines("g", SECOND, 1));
        assertEquals(22, table.lines("g", SECOND, 22).size());
        assertEquals(21, table.lines("g", SECOND, 21).size());
    }

    private static String told(String name, QuorlMsg advisory) {
        try (advisory) {
            advisory.setSendSubject("_QUORL." + name);
            assertTrue(FtAdvisoryText.isAbout(advisory.getSendSubject()));
            return FtAdvisoryText.of(advisory);
        }
    }

    private static QuorlMsg about() {
        return new QuorlMsg().addString("group", "g").addString("label", "host/1").addString("reason", "too short").addU32("goal", 2)
                .addF64("heartbeat", 0.5).addF64("preparation", 1).addF64("activation", 2).addU64("members", 3).addF64("seconds", 1.23456);
    }

    @Test
    void faultsAreToldInSentences() {
        for (String quiet : List.of("joined", "left", "changed", "activated", "deactivated")) assertNull(told("INFO.ft." + quiet, about()));
        assertNull(told("WARN.ft.lost", about().addU32("monitor", 1)));
        assertEquals("host/1 in group g is silent, and counts as gone", told("WARN.ft.lost", about()));
        assertEquals("host/1 in group g has the goal 2 and the intervals 0.5, 1 and 2 s, which do not fit those given here",
                told("WARN.ft.disagreement", about()));
        assertEquals("3 members of group g are active, more than the goal", told("WARN.ft.too_many", about()));
        assertEquals("host/1 in group g stays active for 1.235 s, although this member is above it; it may not hear this one",
                told("WARN.ft.unheard", about()));
        assertEquals("the deactivation was not done within 1.235 s; another member of group g may be active", told("WARN.ft.slow", about()));
        assertEquals("this process stood still for 1.235 s; another member of group g may have taken over", told("WARN.ft.paused", about()));
        assertEquals("somebody sends in the name of this member of group g", told("WARN.ft.impostor", about()));
        assertEquals("group g has more than 3 members; the others are not heard", told("WARN.ft.crowded", about()));
        assertEquals("what comes on the subject of group g is not from a member (too short)", told("WARN.ft.malformed", about()));
        assertEquals("_QUORL.INFO.ft.new {group=\"g\"}", told("INFO.ft.new", new QuorlMsg().addString("group", "g")));
    }
}
