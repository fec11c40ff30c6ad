package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmMsg;
import com.vesma.quorl.QuorlMsg;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** quorl cm listen: prints messages and confirms them. */
@Command(name = "listen", description = {"Prints the messages on subjects as they come, and confirms each when it is printed.",
        "With a --name and a --ledger nothing is missed while no such command runs, and nothing comes again that was confirmed.",
        "A command that is killed between printing a message and confirming it leaves that one to be printed again."},
        footer = {"", "Examples:",
                "  quorl cm listen 'orders.>' --name billing --ledger billing.ledger --daemon nats://127.0.0.1:4222",
                "  quorl cm listen 'orders.>' --name billing --ledger billing.ledger --json --daemon nats://127.0.0.1:4222 > orders.json"})
final class CmListenCommand extends ListeningAction {
    @Mixin
    CertifiedOptions certified;

    @Option(names = "--only-new", description = "do not ask senders for what they kept for the name before")
    boolean onlyNew;

    @Option(names = "--cancel", description = "at the end, let the senders keep nothing for the name any more")
    boolean cancel;

    @Override
    void check() {
        super.check();
        certified.check(this);
    }

    @Override
    Session.Counter listen(Session session) throws InterruptedException {
        return session.listenCertified(transport, certified, !onlyNew, cancel, subjects, count, message -> print(session, message));
    }

    @Override
    String whyDeaf(Session session) throws InterruptedException {
        return certified.name == null ? null : session.whyNothingDone(certified.name);
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
}
