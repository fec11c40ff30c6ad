package com.vesma.quorl.cli;

import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl listen: prints the messages on subjects. */
@Command(name = "listen", description = "Prints the messages on subjects as they come.",
        footer = {"", "Example:", "  quorl listen 'plant.*.temp' 'plant.alarm.>' --json"})
final class ListenCommand extends Action {
    @Parameters(arity = "1..*", paramLabel = "SUBJECT",
            description = "what to listen to; * stands for one element, > at the end for one or more")
    List<String> subjects;

    @Option(names = {"-n", "--count"}, paramLabel = "N", description = "end after N messages")
    Long count;

    @Option(names = "--timeout", paramLabel = "SECONDS",
            description = "end after that time; it is a failure when --count is given and not reached")
    Double timeout;

    @Option(names = "--json", description = "print each message as a JSON object in one line, with the types of its fields")
    boolean json;

    private Session.Counter received;

    @Override
    void check() {
        subjects.forEach(this::checkListenable);
        if (count != null) checkAtLeast("--count", count, 1);
        if (timeout != null) checkAtLeast("--timeout", timeout, 0);
    }

    @Override
    String aloneOnTheBus() {
        return "no message of another process can arrive here.";
    }

    @Override
    void begin(Session session) {
        received = session.listen(transport, subjects, count, message -> session.print(Messages.line(message, json)));
    }

    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        if (count == null && !alone) return;
        Double limit = timeout == null && !alone ? Double.valueOf(Session.PATIENCE) : timeout;
        if (!received.await(limit) && count != null) {
            throw new Failure("listen " + String.join(" ", subjects) + ": " + received.count() + " of " + count
                    + " messages came within " + Texts.number(limit) + " s");
        }
    }
}
