package com.vesma.quorl.cli;

import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlStatistics;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl stats: prints what the library has counted, in this process or in one that answers. */
@Command(name = "stats", description = {"Prints what the library has counted: messages, bytes, queues, objects, how long events "
        + "waited.", "With a SUBJECT it asks the program that answers there; without, it is the process's own, as a line of "
        + "'quorl run'."},
        footer = {"", "Examples:", "  quorl stats stats.order-entry --daemon nats://localhost:4222 --watch 2",
                "  quorl run -e \"listen 'a.>'\" -e 'send a.b --count 1000' -e stats"})
final class StatsCommand extends Action {
    private static final String OWN = "_QUORL.STATS";

    @Parameters(arity = "0..1", paramLabel = "SUBJECT", description = "where a program answers with its statistics")
    String subject;

    @Option(names = "--watch", paramLabel = "SECONDS", description = "print them again and again, with rates")
    Double watch;

    @Option(names = {"-n", "--count"}, paramLabel = "N", description = "end --watch after N times")
    Long count;

    @Option(names = "--answer", description = "answer requests on SUBJECT with this process's own instead")
    boolean answer;

    @Option(names = "--timeout", paramLabel = "SECONDS", defaultValue = "5",
            description = "how long to wait for the program's answer (${DEFAULT-VALUE})")
    double timeout;

    @Option(names = "--json", description = "print them as a JSON object in one line, with the types of its fields")
    boolean json;

    @Override
    void check() {
        if (subject != null) checkSendable(subject);
        checkAtLeast("--timeout", timeout, 0);
        if (watch != null) checkAtLeast("--watch", watch, 0.01);
        if (count != null) checkAtLeast("--count", count, 1);
        if (count != null && watch == null) throw usage("--count says how often to --watch");
        if (answer && subject == null) throw usage("--answer needs a SUBJECT to answer on");
        if (answer && (watch != null || json)) throw usage("--answer prints nothing, so --watch and --json say nothing");
    }

    @Override
    String aloneOnTheBus() {
        return subject == null ? "these are this command's own statistics." : "no other process can be asked here.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        if (answer) {
            session.answerStatistics(transport, subject);
            session.checkListening();
        } else if (watch == null) {
            take(session, null, null);
        } else {
            watch(session);
        }
    }

    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        if (!answer || !alone) return;
        tellReady(session, "answering requests on " + subject);
        session.listen(transport, List.of(subject), null, message -> {}).await(null);
    }

    private void watch(Session session) throws InterruptedException {
        boolean redraws = Screen.isTerminal() && !json;
        try (Screen screen = redraws ? new Screen(out()) : null) {
            long period = (long) (watch * 1e9);
            long next = System.nanoTime();
            QuorlStatistics before = null;
            for (long n = 0; count == null || n < count; n++) {
                long left = next - System.nanoTime();
                if (left > 0) Thread.sleep(left / 1_000_000, (int) (left % 1_000_000));
                next += period;
                before = take(session, screen, before);
            }
        }
    }

    /** Prints those of now; before: the last ones, for rates, null for none. */
    private QuorlStatistics take(Session session, Screen screen, QuorlStatistics before) throws InterruptedException {
        QuorlStatistics now;
        if (json || subject != null) {
            try (QuorlMsg message = ask(session)) {
                now = QuorlStatistics.of(message);
                if (json) {
                    session.print(message.toJson());
                    return now;
                }
            }
        } else {
            // Asked so, the library does not count the question.
            now = Quorl.statistics();
        }
        List<String> lines = StatisticsText.lines(now, before, watch == null ? 0 : watch);
        if (screen != null) {
            screen.draw(lines);
        } else {
            lines.forEach(session::print);
        }
        return now;
    }

    private QuorlMsg ask(Session session) throws InterruptedException {
        String where = subject == null ? OWN : subject;
        try (QuorlMsg question = new QuorlMsg(where)) {
            QuorlMsg answered = session.request(transport, question, timeout);
            if (answered == null) {
                throw new Failure("stats " + where + ": no answer within " + Texts.number(timeout) + " s");
            }
            return answered;
        }
    }
}
