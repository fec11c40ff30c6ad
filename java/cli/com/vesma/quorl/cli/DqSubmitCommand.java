package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmQueueTransport;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.ParentCommand;

/** quorl dq submit: gives tasks to a distributed queue. */
@Command(name = "submit", description = {"Gives tasks to a distributed queue, and waits until all are done.",
        "What is not done in time stays in the ledger, if there is one: 'quorl cm resume' goes on with it, while running this command again "
                + "gives all its tasks anew.",
        "A task that failed too often is a dead letter: the command then fails, and 'quorl listen _QUORL.DEADLETTER.QUEUE' prints those "
                + "that come."},
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

    private Session session;
    private TrackedSending sending;

    /** Tasks of this command that workers have failed too often. Guarded by this. */
    private long deadLetters;

    @Override
    void check() {
        DqWorkCommand.checkQueue(this, queue);
        if (subject == null && source.csv == null && jsonFile == null) throw usage("Missing required parameter: 'SUBJECT'");
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
    void begin(Session with) throws InterruptedException {
        session = with;
        QuorlCmTransport through = session.certified(transport, certified, false);
        sending = new TrackedSending(through);
        // The scheduler sends them before it confirms the task.
        session.listen(transport, List.of("_QUORL.DEADLETTER." + queue), null, this::buried);
        through.addListener(queue, subject == null ? ">" : subject);
        source.forEach(sending::send);
    }

    private void buried(QuorlMsg letter) {
        try (QuorlMsg about = letter.getMsg("deadletter")) {
            if (!sending.isOurs(about.getString("sender"), about.getString("subject"), about.getU64("number"))) return;
        } catch (QuorlException e) {
            return; // Somebody else's message.
        }
        synchronized (this) {
            deadLetters++;
        }
    }

    @Override
    void finish(Session with, boolean alone) throws InterruptedException {
        long sent = source.done();
        try (ProgressBar bar = new ProgressBar(err())) {
            sending.await(sent, timeout, done -> bar.show(done, sent, "tasks done"));
        }
        session.flush();
        long failed = sending.failed();
        long left = sent - sending.confirmed() - failed;
        List<String> trouble = new ArrayList<>();
        synchronized (this) {
            if (deadLetters > 0) {
                trouble.add(Texts.were(deadLetters, "task") + " given up by the workers, and went to _QUORL.DEADLETTER." + queue);
            }
        }
        if (failed > 0) trouble.add(Texts.were(failed, "task") + " given up (" + sending.firstFailure() + ")");
        if (left > 0) trouble.add(Texts.were(left, "task") + " not done within " + Texts.number(timeout) + " s; " + kept(left) + "; " + whyNotDone());
        if (!trouble.isEmpty()) throw new Failure(String.join("; ", trouble));
        session.print(Texts.were(sent, "task") + " done");
    }

    /** Who has the tasks that are not done, and how to go on. */
    private String kept(long left) {
        String them = left == 1 ? "it" : "them";
        return certified.ledger == null ? "without --ledger nobody keeps " + them
                : "the ledger keeps " + them + ", and 'quorl cm resume --name " + certified.name + " --ledger " + certified.ledger
                        + "' goes on";
    }

    private String whyNotDone() throws InterruptedException {
        QuorlCmQueueTransport.Status status = QuorlCmQueueTransport.status(session.transport(transport), queue,
                Duration.ofNanos((long) (Math.min(1, timeout) * 1e9)));
        if (status == null) return "no member of " + queue + " answers: 'quorl dq work' joins one";
        return "'quorl dq status " + queue + "' shows who works; tasks on a subject that no worker listens to wait";
    }

    /** With a ledger the daemon need not have them. */
    @Override
    long sentSoFar() {
        return certified.ledger == null ? source.done() : 0;
    }

    @Override
    String progress() {
        long done = sending == null ? 0 : sending.confirmed();
        long left = source.done() - done;
        return Texts.were(source.done(), "task") + " submitted, " + done + " done" + (left == 0 ? "" : "; " + kept(left));
    }
}
