package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl reply: answers the requests on a subject. */
@Command(name = "reply", description = "Answers each request on a subject with the same fields, and prints the requests.",
        footer = {"", "Examples:", "  quorl reply clock.time answer:string=noon --daemon nats://127.0.0.1:4222",
                "  quorl reply 'echo.>' --echo --quiet --daemon nats://127.0.0.1:4222",
                "  quorl reply clock.time answer:string=noon --share clocks --daemon nats://127.0.0.1:4222"})
final class ReplyCommand extends Action {
    @Parameters(index = "0", paramLabel = "SUBJECT", description = "what to answer; wildcards are welcome")
    String subject;

    @Parameters(index = "1..*", arity = "0..*", paramLabel = "FIELD",
            description = "name:type=value of the reply; {n} in a value is the request's number, from 1")
    List<String> arguments = List.of();

    @Option(names = "--echo", description = "put the request's own fields into the reply first")
    boolean echo;

    @Option(names = {"-n", "--count"}, paramLabel = "N", description = "end after N requests")
    Long count;

    @Option(names = "--timeout", paramLabel = "SECONDS",
            description = "end after that time; it is a failure when --count is given and not reached")
    Double timeout;

    @Option(names = "--share", paramLabel = "NAME",
            description = "of those that share the name, one gets each request; what waits for one that ends is lost")
    String share;

    @Option(names = "--quiet", description = "do not print the requests")
    boolean quiet;

    @Mixin
    OutputOptions output;

    private List<FieldArgument> fields;
    private Session.Counter answered;

    /** The request's number. Only the dispatching thread uses it. */
    private long number;

    @Override
    void check() {
        checkListenable(subject, share);
        if (count != null) checkAtLeast("--count", count, 1);
        if (timeout != null) checkAtLeast("--timeout", timeout, 0);
        output.check(this);
        fields = fields(arguments);
    }

    @Override
    String aloneOnTheBus() {
        return "no request of another process can arrive here.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        output.open(session);
        answered = session.listen(transport, share, List.of(subject), count, request -> answer(session, request));
        session.checkListening();
    }

    private void answer(Session session, QuorlMsg request) {
        if (!quiet) output.print(session, request);
        // A message that asks for no answer gets none.
        if (request.getReplySubject() == null) return;
        try (QuorlMsg reply = echo ? request.copy().setReplySubject(null) : new QuorlMsg()) {
            Messages.add(reply, fields, ++number);
            session.reply(transport, reply, request);
        }
    }

    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        if (alone) tellReady(session, "answering requests on " + subject);
        if (count == null && !alone) return;
        Double limit = timeout == null && !alone ? Double.valueOf(Session.PATIENCE) : timeout;
        if (!answered.await(limit) && count != null) {
            throw new Failure("reply " + subject + ": " + answered.count() + " of " + count + " requests came within "
                    + Texts.number(limit) + " s");
        }
        if (alone && !session.isEmbedded(transport)) session.confirm(answered.count());
    }
}
