package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
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
        assertTrue(sent.err().endsWith("quorl: 1 message was not confirmed within 0.1 s; the ledger keeps it\n"), sent.err());
        Cli review = Cli.run("cm", "review", "--name", "orders", "--ledger", ledger, "--json");
        assertEquals(0, review.code(), review.err());
        assertTrue(review.out().startsWith("{\"subject\":\"orders.new\",\"first\":1,\"last\":1,\"messages\":1,\"bytes\":"), review.out());
        assertTrue(review.out().endsWith("\"listeners\":[{\"name\":\"billing\",\"confirmed\":0,\"unconfirmed\":1,\"registered\":false}]}\n"),
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
                                + n + "}}", listener.out.readLine());
                    }
                }
                // Nobody listens, and the ledger keeps it.
                assertEquals(1, Cli.run("cm", "send", "orders.new", "n:u32={n}", "--count", "5", "--name", "orders", "--ledger",
                        file("orders.ledger"), "--timeout", "0.2", "--daemon", daemon.address).code());
                try (ChildCommand sender = new ChildCommand(folder, "cm", "send", "orders.last", "n:u32=0", "--name", "orders", "--ledger",
                        file("orders.ledger"), "--timeout", "60", "--daemon", daemon.address);
                        ChildCommand listener = new ChildCommand(folder, listen)) {
                    // Two subjects have no order among them.
                    List<String> lines = new ArrayList<>();
                    for (int n = 0; n <= 5; n++) lines.add(listener.out.readLine());
                    assertTrue(lines.removeIf(line -> line.contains("\"subject\":\"orders.last\"")), lines.toString());
                    for (int n = 1; n <= 5; n++) {
                        assertTrue(lines.get(n - 1).contains("\"number\":" + (10 * round + 5 + n) + ","), lines.toString());
                    }
                }
            }
        }
    }
}
