package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.QuorlCmDelivery;
import com.vesma.quorl.QuorlCmSubject;
import com.vesma.quorl.QuorlMsg;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Instant;
import java.util.Base64;
import java.util.List;
import java.util.Map;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** What the commands of certified delivery say to wrong calls, and how they write what they find. */
class CmUsageTest {
    @TempDir
    Path folder;

    @ParameterizedTest
    @ValueSource(strings = {"send", "resume", "listen", "review", "verify", "export", "demo"})
    void helpShowsWhatTheOptionShows(String command) {
        Cli help = Cli.run("help", "cm", command);
        assertEquals(Cli.run("cm", command, "--help"), help);
        assertEquals(0, help.code());
        assertTrue(help.out().startsWith("Usage: quorl cm " + command) && help.out().contains("\nExamples:"), help.out());
    }

    @Test
    void wrongCallsAreExplained() {
        Cli.expectUsage("no command is given; there are send, resume, listen, review, verify, export, demo", "quorl cm", "cm");
        Cli.expectUsage("there is no command 'lisen'; did you mean listen?", "quorl cm", "cm", "lisen");
        Cli.expectUsage("there is no command 'cm nothing'", "quorl", "help", "cm", "nothing");
        Cli.expectUsage("--ledger needs a --name, whose ledger it is", "quorl cm send", "cm", "send", "a", "--ledger", "l");
        Cli.expectUsage("--durability is about the --ledger; there is none", "quorl cm listen", "cm", "listen", "a", "--durability", "power");
        Cli.expectUsage("--durability takes process or power, not \"disk\"", "quorl cm send", "cm", "send", "a", "--name", "n", "--ledger", "l",
                "--durability", "disk");
        Cli.expectUsage("subject \"a..b\": element 2 is empty", "quorl cm review", "cm", "review", "a..b", "--name", "n", "--ledger", "l");
        Cli.expectUsage("--timeout takes a number of at least 0, not -1", "quorl cm send", "cm", "send", "a", "--timeout", "-1");
        Cli.expectUsage("Missing required parameter: 'SUBJECT'", "quorl cm send", "cm", "send");
        Cli.expectUsage("Missing required parameter: 'SUBJECT'; 'quorl cm resume' sends what the ledger keeps", "quorl cm send", "cm", "send",
                "--name", "n", "--ledger", "l");
        Cli.expectUsage("resume needs a --name and its --ledger", "quorl cm resume", "cm", "resume", "--name", "n");
        Cli.expectUsage("--seconds takes a number above 0, not 0", "quorl cm demo", "cm", "demo", "--seconds", "0");
        Cli.expectUsage("--timeout takes a number above 0, not 0", "quorl cm demo", "cm", "demo", "--timeout=0");
        Cli.expectUsage("-e line 1: 'cm review' is for the command line, not for a script", "quorl run", "run", "-e",
                "cm review --name n --ledger l");
    }

    @Test
    void aLedgerThatIsNotThereIsNotMade() {
        assertEquals(new Cli(1, "", "quorl: there is no ledger \"/nonexistent/l\"\n"), Cli.run("cm", "review", "--name", "n", "--ledger",
                "/nonexistent/l"));
    }

    @Test
    void whatIsNoLedgerIsNotLookedInto() throws Exception {
        String file = Files.writeString(folder.resolve("letter"), "this is a letter".repeat(100)).toString();
        for (String command : List.of("verify", "export")) {
            Cli none = Cli.run("cm", command, folder.resolve("none").toString());
            assertEquals(new Cli(1, "", "quorl: there is no ledger " + folder.resolve("none") + "\n"), none);
            assertEquals(new Cli(1, "", "quorl: the file " + file + " is no ledger; it is left as it is\n"), Cli.run("cm", command, file));
        }
        assertEquals(2, Cli.run("cm", "export", file, "a..b").code());
    }

    @Test
    void anExportedMessageCanBeSentAgain() throws Exception {
        String image;
        try (QuorlMsg message = new QuorlMsg().addI32("n", 7)) {
            image = Base64.getEncoder().encodeToString(message.toBytes());
        }
        assertEquals("{\"subject\":\"a.b\",\"number\":3,\"message\":{\"n:i32\":7}}", CmExportCommand.json("3\t0\ta.b\t\t" + image));
        String line = CmExportCommand.json("4\t1500000000\ta.b\t_INBOX.x\t" + image);
        assertEquals("{\"subject\":\"a.b\",\"reply\":\"_INBOX.x\",\"number\":4,\"expires\":\"1970-01-01T00:00:01.500Z\","
                + "\"message\":{\"n:i32\":7}}", line);
        String file = Files.writeString(folder.resolve("exported.json"), line.replace("_INBOX.x", "r") + "\n").toString();
        Cli.expect("a.b {n=7}\n", "listen a.b --count 1", "send --json-file '" + file + "'");
    }

    @Test
    void aDeliveryIsOneLine() {
        assertEquals("{\"subject\":\"a\",\"number\":7,\"confirmed\":[\"archive\",\"billing\"]}",
                CmSendCommand.line(new QuorlCmDelivery("a", 7, Set.of("billing", "archive"), Map.of())));
        assertEquals("{\"subject\":\"a\",\"number\":7,\"confirmed\":[],\"undelivered\":{\"billing\":\"too \\\"late\\\"\"}}",
                CmSendCommand.line(new QuorlCmDelivery("a", 7, Set.of(), Map.of("billing", "too \"late\""))));
    }

    @Test
    void aSentenceListsNames() {
        assertEquals("", Texts.names(Set.of()));
        assertEquals("a", Texts.names(Set.of("a")));
        assertEquals("a and b", Texts.names(Set.of("b", "a")));
        assertEquals("a, b, c, d, e and f", Texts.names(Set.of("a", "b", "c", "d", "e", "f")));
        assertEquals("a, b, c, d, e and 2 others", Texts.names(Set.of("a", "b", "c", "d", "e", "f", "g")));
    }

    @Test
    void aReviewTellsWhoLacksWhat() {
        QuorlCmSubject kept = new QuorlCmSubject("orders.new", 3, 9, 7, 700, List.of(
                new QuorlCmSubject.Listener("archive", 0, 7, null, false),
                new QuorlCmSubject.Listener("billing", 8, 1, Instant.EPOCH, true)));
        assertEquals("""
                orders.new: 7 messages of 700 bytes kept, from 3 to 9
                  archive: confirmed up to 0, lacks 7, added and not yet registered
                  billing: confirmed up to 8, lacks 1, last heard 1970-01-01T00:00:00Z
                """, CmReviewCommand.text(kept));
        assertEquals("{\"subject\":\"orders.new\",\"first\":3,\"last\":9,\"messages\":7,\"bytes\":700,\"listeners\":["
                + "{\"name\":\"archive\",\"confirmed_up_to\":0,\"unconfirmed\":7,\"registered\":false},"
                + "{\"name\":\"billing\",\"confirmed_up_to\":8,\"unconfirmed\":1,\"heard\":\"1970-01-01T00:00:00Z\",\"registered\":true}]}",
                CmReviewCommand.json(kept));
        assertEquals("a: nothing is kept of 4\n", CmReviewCommand.text(new QuorlCmSubject("a", 5, 4, 0, 0, List.of())));
    }

    @Test
    void aBarShowsHowFarItIs() {
        assertEquals("[######..................]  25 %  5 of 20 messages confirmed", ProgressBar.line(5, 20, "messages confirmed"));
        assertEquals("[########################] 100 %  0 of 0 messages confirmed", ProgressBar.line(0, 0, "messages confirmed"));
        StringWriter err = new StringWriter();
        try (ProgressBar bar = new ProgressBar(new PrintWriter(err), true)) {
            bar.show(1, 2, "messages confirmed");
            bar.show(2, 2, "messages confirmed");
        }
        assertEquals("\r" + ProgressBar.line(1, 2, "messages confirmed") + "\u001b[K\r" + ProgressBar.line(2, 2, "messages confirmed")
                + "\u001b[K\r\u001b[K", err.toString());
        StringWriter elsewhere = new StringWriter();
        try (ProgressBar bar = new ProgressBar(new PrintWriter(elsewhere), false)) {
            bar.show(1, 2, "messages confirmed");
        }
        assertEquals("", elsewhere.toString());
    }
}
