package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmTransport;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.ParentCommand;

/** quorl dq submit: gives tasks to a distributed queue. */
@Command(name = "submit", description = {"Gives tasks to a distributed queue, and waits until all are done.",
        "What is not done in time stays in the ledger, if there is one, and is given again when a command or program opens it."},
        footer = {"", "Examples:", "  quorl dq submit crew orders.new number:i64=4711 --daemon nats://127.0.0.1:4222",
                "  quorl dq submit crew orders.new --csv orders.csv --name boss --ledger boss.ledger --timeout 600 "
                        + "--daemon nats://127.0.0.1:4222"})
final class DqSubmitCommand extends Action {
    @Parameters(index = "0", paramLabel = "QUEUE", description = "the queue's name")
    String queue;

    @Parameters(index = "1", arity = "0..1", paramLabel = "SUBJECT",
            description = "where to send; no wildcards. Not needed when the table or the JSON says it")
    String subject;

    @Parameters(index = "2..*", arity = "0..*", paramLabel = "FIELD",
            description = "name:type=value; {n} in a value is the task's number, from 1")
    List<String> arguments = List.of();

    @Mixin
    CertifiedOptions certified;

    @Mixin
    SourceOptions source;

    @Option(names = "--json-file", paramLabel = "FILE",
            description = "a task for each line of JSON, as 'quorl listen --json' prints messages; - is standard input")
    String jsonFile;

    @Option(names = "--timeout", paramLabel = "SECONDS", defaultValue = "60",
            description = "how long to wait for the tasks to be done (${DEFAULT-VALUE})")
    double timeout;

    @ParentCommand
    Object parent;

    private TrackedSending sending;

    @Override
    void check() {
        if (subject == null && source.csv == null && jsonFile == null) throw usage("Missing required parameter: 'SUBJECT'");
        checkQueue(queue);
        if (queue.equals(certified.name)) throw usage("--name is that of the queue, which its members have; give the sender another");
        if (subject != null) checkSendable(subject);
        certified.check(this);
        checkAtLeast("--timeout", timeout, 0.001);
        Object main = parent instanceof DqCommand dq ? dq.parent : null;
        source.check(this, subject, fields(arguments), jsonFile, main instanceof Main command ? command.in : null);
    }

    @Override
    String aloneOnTheBus() {
        return "no worker in another process can hear this task.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        QuorlCmTransport through = session.certified(transport, certified, false);
        through.addListener(queue, subject == null ? ">" : subject);
        sending = new TrackedSending(through);
        source.forEach(sending::send);
    }

    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        long sent = source.done();
        try (ProgressBar bar = new ProgressBar(err())) {
            sending.await(sent, timeout, done -> bar.show(done, sent, "tasks done"));
        }
        long failed = sending.failed();
        long left = sent - sending.confirmed() - failed;
        if (failed > 0) throw new Failure(Texts.were(failed, "task") + " given up (" + sending.firstFailure() + ")");
        if (left > 0) {
            throw new Failure(Texts.were(left, "task") + " not done within " + Texts.number(timeout) + " s; "
                    + (certified.ledger == null ? "without --ledger nobody keeps " + (left == 1 ? "it" : "them")
                            : "the ledger keeps " + (left == 1 ? "it" : "them")));
        }
        session.print(Texts.were(sent, "task") + " done");
    }

    @Override
    long sentSoFar() {
        return source.done();
    }

    @Override
    String progress() {
        return Texts.were(source.done(), "task") + " submitted, " + (sending == null ? 0 : sending.confirmed()) + " done";
    }
}
