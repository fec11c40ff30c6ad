package com.vesma.quorl.cli;

import java.util.List;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** A command that prints what comes on subjects, until there is enough, the time is over, or it is ended. */
abstract class ListeningAction extends Action {
    @Parameters(arity = "1..*", paramLabel = "SUBJECT",
            description = "what to listen to; * stands for one element, > at the end for one or more")
    List<String> subjects;

    @Option(names = {"-n", "--count"}, paramLabel = "N", description = "end after N messages")
    Long count;

    @Option(names = "--timeout", paramLabel = "SECONDS",
            description = "end after that time; it is a failure when --count is given and not reached")
    Double timeout;

    @Mixin
    OutputOptions output;

    private Session.Counter received;

    @Override
    void check() {
        subjects.forEach(this::checkSubject);
        if (count != null) checkAtLeast("--count", count, 1);
        if (timeout != null) checkAtLeast("--timeout", timeout, 0);
        output.check(this);
    }

    void checkSubject(String subject) {
        checkListenable(subject);
    }

    /** Why it could not hear anything; null when it could. */
    String whyDeaf(Session session) throws InterruptedException {
        return null;
    }

    /** Begins to listen, and counts. */
    abstract Session.Counter listen(Session session) throws InterruptedException;

    @Override
    final String aloneOnTheBus() {
        return "no message of another process can arrive here.";
    }

    @Override
    final void begin(Session session) throws InterruptedException {
        output.open(session);
        received = listen(session);
        session.checkListening();
    }

    @Override
    final void finish(Session session, boolean alone) throws InterruptedException {
        if (alone) tellReady(session, "listening to " + String.join(", ", subjects));
        if (count == null && !alone) return;
        Double limit = timeout == null && !alone ? Double.valueOf(Session.PATIENCE) : timeout;
        if (received.await(limit)) return;
        String why = whyDeaf(session);
        if (count == null && why == null) return;
        throw new Failure("listen " + String.join(" ", subjects) + ": "
                + (count == null ? "nothing could be heard" : received.count() + " of " + count + " messages came") + " within "
                + Texts.number(limit) + " s" + (why == null ? "" : "; " + why));
    }
}
