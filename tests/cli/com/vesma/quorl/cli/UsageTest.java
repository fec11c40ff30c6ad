package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** What the command says to wrong calls: exit code 2, one line of complaint, one of advice. */
class UsageTest {
    @Test
    void aloneItSaysThatACommandIsMissing() {
        Cli.expectUsage("no command is given", "quorl");
    }

    @Test
    void anUnknownCommandOrOptionIsNamed() {
        Cli.expectUsage("there is no command 'publish'", "quorl", "publish", "a.b");
        Cli.expectUsage("there is no command 'lisen'; did you mean listen?", "quorl", "lisen", "a.b");
        Cli option = Cli.run("send", "a.b", "--fast");
        assertEquals(2, option.code());
        assertTrue(option.err().contains("'--fast'") && option.err().contains("quorl send --help"), option.err());
    }

    /** As for any other argument: exit code 2, and no status of the library's. */
    @Test
    void anAddressThatIsNoneIsAWrongCall() {
        Cli.expectUsage("--daemon: \"a:0\" is not a valid daemon address: its port is not a number from 1 to 65535",
                "quorl send", "send", "a.b", "--daemon", "a:0");
        Cli.expectUsage("--daemon: \"nats://...@h\" is not a valid daemon address: credentials do not belong in it",
                "quorl listen", "listen", "a.b", "--daemon", "nats://u:secret@h");
        Cli.expectUsage("--daemon: \"h?...\" is not a valid daemon address: nothing follows host and port in one",
                "quorl stats", "stats", "a.b", "--daemon", "h?password=secret");
    }

    @ParameterizedTest
    @ValueSource(strings = {"send", "listen", "request", "reply", "run", "stats", "demo", "doctor"})
    void everyCommandHasHelpWithItsTransportOptions(String command) {
        Cli help = Cli.run(command, "--help");
        assertEquals(0, help.code());
        assertEquals("", help.err());
        assertTrue(help.out().startsWith("Usage: quorl " + command), help.out());
        for (String option : new String[] {"--daemon", "--service", "--network"}) {
            assertTrue(help.out().contains(option), help.out());
        }
    }

    @ParameterizedTest
    @ValueSource(strings = {"send", "listen", "request", "reply", "run", "cm", "ft", "stats", "demo", "daemon", "doctor", "help"})
    void helpShowsWhatTheOptionShows(String command) {
        Cli help = Cli.run("help", command);
        assertEquals(Cli.run(command, "--help"), help);
        assertEquals(0, help.code());
        assertTrue(help.out().contains("\nExample"), help.out());
    }

    @Test
    void helpAloneListsTheCommands() {
        assertEquals(Cli.run("--help"), Cli.run("help"));
        Cli.expectUsage("there is no command 'nothing'", "quorl", "help", "nothing");
    }

    @Test
    void theHelpNamesEveryCommand() {
        Cli help = Cli.run("--help");
        assertEquals(0, help.code());
        for (String command : new String[] {"send", "listen", "request", "reply", "run", "cm", "ft", "stats", "demo", "daemon", "doctor", "help"}) {
            assertTrue(help.out().contains("\n  " + command + " "), help.out());
        }
    }

    @Test
    void aMalformedSubjectIsShownWithTheReason() {
        Cli.expectUsage("subject \"a..b\": element 2 is empty", "quorl send", "send", "a..b");
        Cli.expectUsage("subject \"a.*\": \"*\" is a wildcard; a message is sent to one subject", "quorl request", "request", "a.*");
        Cli.expectUsage("subject \"a.>.b\": \">\" stands for all that follows, so it must be the last element", "quorl listen",
                "listen", "a.b", "a.>.b");
        Cli.expectUsage("subject \"\": it is empty", "quorl reply", "reply", "");
    }

    @Test
    void aBadFieldIsShownWithTheReason() {
        Cli.expectUsage("field \"speed\": type u8 takes a whole number from 0 to 255, not \"300\"", "quorl send", "send", "a",
                "speed:u8=300");
        Cli.expectUsage("field \"speed\": unknown type \"int\"; the types are " + FieldType.all(), "quorl request", "request",
                "a", "speed:int=3");
        Cli.expectUsage("field \"speed\" has no value; write name:type=value", "quorl reply", "reply", "a", "speed");
        Cli.expectUsage("field \"n\": type u8 takes a whole number from 0 to 255, not \"256\"", "quorl send", "send", "a",
                "n:u8={n}", "--count", "256");
    }

    @Test
    void aBadNumberIsShownWithItsBounds() {
        Cli.expectUsage("--count takes a number of at least 1, not 0", "quorl send", "send", "a", "--count", "0");
        Cli.expectUsage("--rate takes a number above 0, not -1", "quorl send", "send", "a", "--rate", "-1");
        Cli.expectUsage("--count takes a number of at least 1, not 0", "quorl listen", "listen", "a", "--count", "0");
        Cli.expectUsage("--timeout takes a number of at least 0, not -2.5", "quorl listen", "listen", "a", "--timeout",
                "-2.5");
        Cli.expectUsage("--timeout takes a number of at least 0, not NaN", "quorl request", "request", "a", "--timeout", "NaN");
        Cli.expectUsage("--seconds takes a number above 0, not 0", "quorl demo", "demo", "--seconds", "0");
        Cli.expectUsage("--timeout takes a number above 0, not 0", "quorl demo", "demo", "--timeout", "0");
        Cli.expectUsage("Invalid value for option '--count': 'many' is not a number that fits", "quorl send", "send", "a",
                "--count", "many");
        Cli.expectUsage("Invalid value for option '--timeout': 'soon' is not a number that fits", "quorl listen", "listen", "a",
                "--timeout", "soon");
    }

    @Test
    void subjectsAreNeeded() {
        for (String command : new String[] {"send", "listen", "request", "reply"}) {
            Cli missing = Cli.run(command);
            assertEquals(2, missing.code());
            assertTrue(missing.err().contains("SUBJECT"), missing.err());
        }
    }
}
