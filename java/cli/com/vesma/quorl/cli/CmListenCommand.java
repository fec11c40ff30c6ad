package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmMsg;
import com.vesma.quorl.QuorlMsg;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl cm listen: prints messages and confirms them. */
@Command(name = "listen", description = {"Prints the messages on subjects as they come, and confirms each when it is printed.",
        "With a --name and a --ledger nothing is missed while no such command runs, and nothing comes again that was confirmed.",
        "A command that is killed between printing a message and confirming it leaves that one to be printed again."},
        footer = {"", "Examples:",
                "  quorl cm listen 'orders.>' --name billing --ledger billing.ledger --daemon nats://127.0.0.1:4222",
                "  quorl cm listen 'orders.>' --name billing --ledger billing.ledger --json --daemon nats://127.0.0.1:4222 > orders.json"})
final class CmListenCommand extends Action {
    @Parameters(arity = "1..*", paramLabel = "SUBJECT",
            description = "what to listen to; * stands for one element, > at the end for one or more")
    List<String> subjects;

    @Mixin
    CertifiedOptions certified;

    @Option(names = {"-n", "--count"}, paramLabel = "N", description = "end after N messages")
    Long count;

    @Option(names = "--timeout", paramLabel = "SECONDS",
            description = "end after that time; it is a failure when --count is given and not reached")
    Double timeout;

    @Option(names = "--only-new", description = "do not ask senders for what they kept for the name before")
    boolean onlyNew;

    @Option(names = "--cancel", description = "at the end, let the senders keep nothing for the name any more")
    boolean cancel;

    @Mixin
    OutputOptions output;

    private Session.Counter received;

    @Override
    void check() {
        subjects.forEach(this::checkListenable);
        certified.check(this);
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
        received = session.listenCertified(transport, certified, !onlyNew, cancel, subjects, count, message -> print(session, message));
        session.checkListening();
    }

    private void print(Session session, QuorlMsg message) {
        if (output.csv != null) {
            output.print(session, message);
        } else {
            session.print(line(message, output.json));
        }
    }

    /** As {@link Messages#line}, with the sender and the number of a message that is certified. */
    static String line(QuorlMsg message, boolean json) {
        String line = Messages.line(message, json);
        if (!QuorlCmMsg.isCertified(message)) return line;
        String number = Long.toUnsignedString(QuorlCmMsg.getSequence(message));
        if (!json) return QuorlCmMsg.getSender(message) + " " + number + ": " + line;
        StringBuilder attributes = new StringBuilder("{\"sender\":");
        Json.string(attributes, QuorlCmMsg.getSender(message));
        return attributes.append(",\"number\":").append(number).append(',').append(line, 1, line.length()).toString();
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
