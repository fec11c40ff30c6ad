package com.vesma.quorl.cli;

import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl listen: prints the messages on subjects. */
@Command(name = "listen", description = "Prints the messages on subjects as they come.",
        footer = {"", "Examples:", "  quorl listen 'plant.*.temp' 'plant.alarm.>' --daemon nats://127.0.0.1:4222",
                "  quorl listen 'plant.>' --json --daemon nats://127.0.0.1:4222 > recorded.json",
                "  quorl listen 'plant.>' --csv recorded.csv --daemon nats://127.0.0.1:4222"})
final class ListenCommand extends Action {
    @Parameters(arity = "1..*", paramLabel = "SUBJECT",
            description = "what to listen to; * stands for one element, > at the end for one or more")
    List<String> subjects;

    @Option(names = {"-n", "--count"}, paramLabel = "N", description = "end after N messages")
    Long count;

    @Option(names = "--timeout", paramLabel = "SECONDS",
            description = "end after that time; it is a failure when --count is given and not reached")
    Double timeout;

    @Option(names = "--share", paramLabel = "NAME",
            description = "of those that share the name, one gets each message; what waits for one that ends is lost")
    String share;

    @Mixin
    OutputOptions output;

    private Session.Counter received;

    @Override
    void check() {
        subjects.forEach(subject -> checkListenable(subject, share));
        if (count != null) checkAtLeast("--count", count, 1);
        if (timeout != null) checkAtLeast("--timeout", timeout, 0);
        output.check(this);
    }

    @Override
    String aloneOnTheBus() {
        return "no message of another process can arrive here.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        output.open(session);
        received = session.listen(transport, share, subjects, count, message -> output.print(session, message));
        session.checkListening();
    }

    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        if (alone) tellReady(session, "listening to " + String.join(", ", subjects));
        if (count == null && !alone) return;
        Double limit = timeout == null && !alone ? Double.valueOf(Session.PATIENCE) : timeout;
        if (!received.await(limit) && count != null) {
            throw new Failure("listen " + String.join(" ", subjects) + ": " + received.count() + " of " + count
                    + " messages came within " + Texts.number(limit) + " s");
        }
    }
}
