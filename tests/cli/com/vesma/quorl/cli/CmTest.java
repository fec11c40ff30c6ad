package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The commands of certified delivery, in one process and over a daemon. */
class CmTest {
    @TempDir
    Path folder;

    private String file(String name) {
        return folder.resolve(name).toString();
    }

    @Test
    void aScriptSendsAndConfirms() {
        Cli run = Cli.withInput("cm listen orders.* --name billing --count 2 --timeout 30\n"
                + "cm send orders.new 'n:u32={n}' --count 2 --name orders --listener billing --timeout 30\n", "run");
        assertEquals("", run.err());
        assertEquals("orders 1: orders.new {n=1}\norders 2: orders.new {n=2}\n2 messages were sent; billing has confirmed 2\n",
                run.out().lines().sorted().map(line -> line + "\n").reduce("", String::concat).replaceAll("(?s)^(2 messages[^\n]*\n)(.*)$", "$2$1"));
        assertEquals(0, run.code());
    }

    @Test
    void whatIsNotConfirmedStaysInTheLedger() {
        String ledger = file("orders.ledger");
        Cli sent = Cli.run("cm", "send", "orders.new", "n:u32=7", "--name", "orders", "--ledger", ledger, "--listener", "billing", "--timeout",
                "0.1", "--daemon", "");
        assertEquals(1, sent.code());
        assertTrue(sent.err().endsWith("quorl: 1 message was not confirmed by billing within 0.1 s; the ledger keeps it\n"), sent.err());
        Cli review = Cli.run("cm", "review", "--name", "orders", "--ledger", ledger, "--json");
        assertEquals(0, review.code(), review.err());
        assertTrue(review.out().startsWith("{\"subject\":\"orders.new\",\"first\":1,\"last\":1,\"messages\":1,\"bytes\":"), review.out());
        assertTrue(review.out().endsWith("\"listeners\":[{\"name\":\"billing\",\"confirmed_up_to\":0,\"unconfirmed\":1,\"registered\":false}]}\n"),
                review.out());
        Cli verified = Cli.run("cm", "verify", ledger);
        assertEquals(0, verified.code(), verified.err());
        assertTrue(verified.out().matches(".*: the ledger of orders keeps 1 message of [0-9]+ bytes on 1 subject; no damage\\n"), verified.out());
        Cli exported = Cli.run("cm", "export", ledger);
        assertEquals(new Cli(0, "{\"subject\":\"orders.new\",\"number\":1,\"message\":{\"n:u32\":7}}\n", ""), exported);
        Cli other = Cli.run("cm", "review", "--name", "prices", "--ledger", ledger);
        assertEquals(1, other.code());
        assertTrue(other.err().startsWith("quorl: " + ledger + ": "), other.err());
    }

    @Test
    void aListenerThatIsKilledMissesNothing() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder)) {
            String[] listen = {"cm", "listen", "orders.>", "--name", "billing", "--ledger", file("billing.ledger"), "--json", "--daemon",
                daemon.address};
            for (int round = 0; round < 2; round++) {
                try (ChildCommand listener = new ChildCommand(folder, listen)) {
                    listener.awaitSaid("listening to");
                    assertEquals(new Cli(0, "5 messages were sent; billing has confirmed 5\n", ""), Cli.run("cm", "send", "orders.new", "n:u32={n}",
                            "--count", "5", "--name", "orders", "--ledger", file("orders.ledger"), "--listener", "billing", "--timeout", "60",
                            "--daemon", daemon.address));
                    for (int n = 1; n <= 5; n++) {
                        assertEquals("{\"sender\":\"orders\",\"number\":" + (10 * round + n) + ",\"subject\":\"orders.new\",\"message\":{\"n:u32\":"
                                + n + "}}", listener.line());
                    }
                }
                // Nobody listens, and the ledger keeps it.
                Cli kept = Cli.run("cm", "send", "orders.new", "n:u32={n}", "--count", "5", "--name", "orders", "--ledger",
                        file("orders.ledger"), "--timeout", "0.2", "--daemon", daemon.address);
                assertEquals(new Cli(1, "", "quorl: 5 messages were not confirmed by billing within 0.2 s; the ledger keeps them\n"), kept);
                try (ChildCommand sender = new ChildCommand(folder, "cm", "send", "orders.last", "n:u32=0", "--name", "orders", "--ledger",
                        file("orders.ledger"), "--timeout", "60", "--daemon", daemon.address);
                        ChildCommand listener = new ChildCommand(folder, listen)) {
                    // Two subjects have no order among them.
                    List<String> lines = new ArrayList<>();
                    for (int n = 0; n <= 5; n++) lines.add(listener.line());
                    assertTrue(lines.removeIf(line -> line.contains("\"subject\":\"orders.last\"")), lines.toString());
                    for (int n = 1; n <= 5; n++) {
                        assertTrue(lines.get(n - 1).contains("\"number\":" + (10 * round + 5 + n) + ","), lines.toString());
                    }
                    // A line is printed before it is confirmed, so the sender says when the listener may be killed and nothing comes twice.
                    assertEquals(0, sender.code(), sender::said);
                    assertEquals("1 message was sent, and 5 older ones; billing has confirmed 6", sender.line());
                    assertEquals("quorl: " + file("orders.ledger") + " keeps 5 older messages, which are sent too\n", sender.said());
                }
            }
        }
    }

    private Cli send(String subject, String... more) {
        List<String> arguments = new ArrayList<>(List.of("cm", "send", subject, "n:u32=7", "--name", "orders", "--ledger",
                file("orders.ledger"), "--listener", "billing"));
        arguments.addAll(List.of(more));
        return Cli.run(arguments.toArray(String[]::new));
    }

    private Cli resume(String... more) {
        List<String> arguments = new ArrayList<>(List.of("cm", "resume", "--name", "orders", "--ledger", file("orders.ledger")));
        arguments.addAll(List.of(more));
        return Cli.run(arguments.toArray(String[]::new));
    }

    @Test
    void aNameThatIsNeverOursIsAFailure() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand first = new ChildCommand(folder, "cm", "listen", "work", "--name", "billing", "--daemon", daemon.address)) {
            first.awaitSaid("listening to work");
            Cli second = Cli.run("cm", "listen", "work", "--name", "billing", "--timeout", "5", "--daemon", daemon.address);
            assertEquals(1, second.code(), second.err());
            assertTrue(second.err().endsWith("quorl: listen work: nothing could be heard within 5 s; another program, or a relay agent that "
                    + "stands in for it, has the name billing\n"), second.err());
        }
    }

    @Test
    void whatWaitsIsTold() {
        assertEquals("1 message was sent; 1 waits for billing\n", send("orders.new", "--timeout", "0", "--daemon", "").out());
        assertEquals("1 message was sent, and 1 older one; 2 wait for archive and billing\n",
                send("orders.new", "--timeout", "0", "--listener", "archive", "--daemon", "").out());
        Cli late = send("orders.old", "--timeout", "0.01", "--daemon", "");
        assertEquals(1, late.code());
        assertTrue(late.err().contains("quorl: " + file("orders.ledger") + " keeps 2 older messages, which are sent too\n"), late.err());
        assertTrue(late.err().endsWith("quorl: 3 messages were not confirmed by archive and billing within 0.01 s, 2 of them older; the ledger "
                + "keeps them\n"), late.err());
        Cli json = send("orders.new", "--timeout", "0", "--json", "--daemon", "");
        assertEquals(0, json.code());
        assertEquals("{\"subject\":\"orders.new\",\"number\":3,\"confirmed\":[],\"waiting\":[\"archive\",\"billing\"]}\n"
                + "{\"subject\":\"orders.new\",\"first\":1,\"last\":2,\"messages\":2,\"confirmed\":[],\"waiting\":[\"archive\",\"billing\"]}\n"
                + "{\"subject\":\"orders.old\",\"first\":1,\"last\":1,\"messages\":1,\"confirmed\":[],\"waiting\":[\"billing\"]}\n", json.out());
    }

    @Test
    void whatIsKeptIsSentWithoutAnythingNew() throws Exception {
        assertEquals(new Cli(1, "", "quorl: there is no ledger \"" + file("orders.ledger") + "\"\n"), resume("--daemon", "nats://127.0.0.1:1"));
        assertEquals(0, send("orders.new", "--timeout", "0", "--daemon", "").code());
        assertEquals(0, send("orders.old", "--timeout", "0", "--daemon", "").code());
        try (ChildDaemon daemon = new ChildDaemon(folder)) {
            assertEquals(new Cli(1, "", "quorl: 2 messages were not confirmed by billing within 0 s; the ledger keeps them\n"),
                    resume("--timeout", "0", "--daemon", daemon.address));
            try (ChildCommand listener = new ChildCommand(folder, "cm", "listen", "orders.>", "--name", "billing", "--ledger",
                    file("billing.ledger"), "--count", "2", "--timeout", "60", "--daemon", daemon.address)) {
                assertEquals(new Cli(0, "2 messages were kept; billing has confirmed 2\n", ""),
                        resume("--timeout", "60", "--daemon", daemon.address));
                assertEquals(Set.of("orders 1: orders.new {n=7}", "orders 1: orders.old {n=7}"), Set.of(listener.line(), listener.line()));
                assertEquals(0, listener.code(), listener::said);
            }
            assertEquals(new Cli(0, file("orders.ledger") + " keeps no message\n", ""), resume("--daemon", daemon.address));
        }
    }

    @Test
    void whatIsGivenUpIsAFailure() throws Exception {
        // Long enough that it has not expired when the command ends.
        for (int seconds = 1; send("orders.new", "--timeout", "0", "--expire", Integer.toString(seconds), "--daemon", "").code() != 0;) seconds *= 2;
        Cli gone = resume("--timeout", "60", "--daemon", "");
        assertEquals(1, gone.code());
        assertTrue(gone.err().endsWith("quorl: 1 older message was given up for billing (the time limit has passed)\n"), gone.err());
        assertEquals(0, resume("--daemon", "").code());
    }
}
