package com.vesma.quorl.cli;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Map;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** quorl cm resume: sends what a ledger keeps. */
@Command(name = "resume", description = {"Sends what a ledger keeps to those that have not confirmed it, and waits for their confirmations.",
        "Nothing new is sent."},
        footer = {"", "Examples:", "  quorl cm resume --name orders --ledger orders.ledger --daemon nats://127.0.0.1:4222",
                "  quorl cm resume --name orders --ledger orders.ledger --timeout 3600 --json --daemon nats://127.0.0.1:4222"})
final class CmResumeCommand extends Action {
    @Mixin
    CertifiedOptions certified;

    @Option(names = "--timeout", paramLabel = "SECONDS", defaultValue = "10",
            description = "how long to wait for the confirmations (${DEFAULT-VALUE})")
    double timeout;

    @Option(names = "--json", description = "print what has become of the messages of each subject, as a JSON object in one line")
    boolean json;

    private KeptMessages kept;

    @Override
    void check() {
        certified.check(this);
        if (certified.ledger == null) throw usage("resume needs a --name and its --ledger");
        checkAtLeast("--timeout", timeout, 0);
    }

    @Override
    String aloneOnTheBus() {
        return "nobody in another process can hear these messages.";
    }

    @Override
    void begin(Session session) {
        // One that is not there is not to be made.
        if (!Files.exists(Path.of(certified.ledger))) throw new Failure("there is no ledger " + Texts.quoted(certified.ledger));
        kept = new KeptMessages(session, transport, certified);
    }

    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        long left = await();
        // What was given up has been told before, and is heard now.
        session.flush();
        if (json) kept.lines().forEach(session::print);
        String trouble = kept.failure();
        if (left > 0) {
            String why = session.whyNothingDone(certified.name);
            trouble = (trouble == null ? "" : trouble + "; ") + KeptMessages.unconfirmed(left, KeptMessages.lacking(kept.through()), timeout)
                    + "; the ledger keeps " + (left == 1 ? "it" : "them") + (why == null ? "" : "; " + why);
        }
        if (trouble != null) throw new Failure(trouble);
        if (!json) session.print(summary());
    }

    /** The messages that are not confirmed in time. */
    private long await() throws InterruptedException {
        long end = System.nanoTime() + (long) (timeout * 1e9);
        try (ProgressBar bar = new ProgressBar(err())) {
            for (;;) {
                long left = kept.left();
                bar.show(kept.count() - left, kept.count(), "messages confirmed");
                long time = (end - System.nanoTime()) / 1_000_000 + 1;
                if (left == 0 || time <= 0) return left;
                Thread.sleep(Math.min(time, 200));
            }
        }
    }

    /** "5 messages were kept; billing has confirmed 5". */
    private String summary() {
        if (kept.count() == 0) return certified.ledger + " keeps no message";
        StringBuilder text = new StringBuilder(Texts.were(kept.count(), "message")).append(" kept");
        String between = "; ";
        for (Map.Entry<String, Long> each : kept.confirmations().entrySet()) {
            text.append(between).append(each.getKey()).append(" has confirmed ").append(each.getValue());
            between = ", ";
        }
        return text.toString();
    }

    @Override
    String progress() {
        return kept == null ? null : kept.count() - kept.left() + " of " + Texts.were(kept.count(), "kept message") + " confirmed";
    }
}
