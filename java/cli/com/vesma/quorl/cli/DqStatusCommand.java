package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmQueueTransport;
import com.vesma.quorl.QuorlCmQueueTransport.Status;
import com.vesma.quorl.QuorlCmQueueTransport.Worker;
import java.util.List;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl dq status: prints how a distributed queue is. */
@Command(name = "status", description = "Prints how a distributed queue is, as its scheduler says: what waits, and who works.",
        footer = {"", "Examples:", "  quorl dq status crew --daemon nats://127.0.0.1:4222",
                "  quorl dq status crew --json --daemon nats://127.0.0.1:4222",
                "  quorl dq status crew --watch 1 --daemon nats://127.0.0.1:4222"})
final class DqStatusCommand extends Action {
    @Parameters(index = "0", paramLabel = "QUEUE", description = "the queue's name")
    String queue;

    @Option(names = "--timeout", paramLabel = "SECONDS", defaultValue = "5",
            description = "how long to wait for an answer (${DEFAULT-VALUE})")
    double timeout;

    @Option(names = "--json", description = "print a JSON object in one line")
    boolean json;

    @Option(names = "--watch", paramLabel = "SECONDS", description = "print it again and again; on a terminal it stays in place")
    Double watch;

    @Option(names = {"-n", "--count"}, paramLabel = "N", description = "end --watch after N times")
    Long count;

    @Override
    void check() {
        DqWorkCommand.checkQueue(this, queue);
        checkAtLeast("--timeout", timeout, 0.001);
        if (watch != null) checkAtLeast("--watch", watch, 0.01);
        if (count != null) checkAtLeast("--count", count, 1);
        if (count != null && watch == null) throw usage("--count says how often to --watch");
    }

    @Override
    String aloneOnTheBus() {
        return "no queue of another process answers here.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        if (watch == null) {
            Status status = ask(session);
            if (status == null) throw new Failure(unanswered() + "; 'quorl dq work' joins it");
            session.print(json ? json(status) : text(status));
            return;
        }
        try (Screen screen = Screen.isTerminal() && !json ? new Screen(out()) : null) {
            long next = System.nanoTime();
            for (long n = 0; count == null || n < count; n++) {
                long left = next - System.nanoTime();
                if (left > 0) Thread.sleep(left / 1_000_000, (int) (left % 1_000_000));
                next += (long) (watch * 1e9);
                show(session, screen, ask(session));
            }
        }
    }

    private Status ask(Session session) throws InterruptedException {
        return QuorlCmQueueTransport.status(session.transport(transport), queue, FtJoinCommand.duration(timeout));
    }

    private String unanswered() {
        return "status " + queue + ": no scheduler answers within " + Texts.number(timeout) + " s";
    }

    /** Who watches waits for a scheduler that is to come. */
    private void show(Session session, Screen screen, Status status) {
        if (status == null && screen == null) {
            tell(unanswered());
        } else if (screen != null) {
            screen.draw(List.of((status == null ? unanswered() : text(status)).split("\n")));
        } else {
            session.print(json ? json(status) : text(status));
        }
    }

    static String text(Status status) {
        StringBuilder text = new StringBuilder(status.queue()).append(": ").append(status.members())
                .append(status.members() == 1 ? " member; " : " members; ").append(status.unassigned()).append(" waiting, ")
                .append(status.assigned()).append(" assigned, ").append(status.completed()).append(" completed, ")
                .append(status.reassigned()).append(" reassigned, ").append(status.deadLetters())
                .append(status.deadLetters() == 1 ? " dead letter" : " dead letters");
        for (Worker worker : status.workers()) {
            text.append("\n  ").append(worker.label()).append(": weight ").append(worker.weight()).append(", holds ")
                    .append(worker.held()).append(" of ").append(worker.tasks()).append(", was given ").append(worker.handedOut())
                    .append(worker.leaving() ? ", leaves" : "").append(worker.member().equals(status.scheduler()) ? ", the scheduler" : "");
        }
        return text.toString();
    }

    static String json(Status status) {
        StringBuilder out = new StringBuilder("{\"queue\":");
        Json.string(out, status.queue());
        Json.string(out.append(",\"scheduler\":"), status.scheduler());
        out.append(",\"members\":").append(status.members()).append(",\"unassigned\":").append(status.unassigned())
                .append(",\"unassigned_bytes\":").append(status.unassignedBytes()).append(",\"assigned\":").append(status.assigned())
                .append(",\"completed\":").append(status.completed()).append(",\"completed_twice\":").append(status.completedTwice())
                .append(",\"reassigned\":").append(status.reassigned()).append(",\"dead_letters\":").append(status.deadLetters())
                .append(",\"workers\":[");
        String between = "";
        for (Worker worker : status.workers()) {
            out.append(between).append("{\"member\":");
            Json.string(out, worker.member());
            Json.string(out.append(",\"label\":"), worker.label());
            out.append(",\"weight\":").append(worker.weight()).append(",\"tasks\":").append(worker.tasks()).append(",\"held\":")
                    .append(worker.held()).append(",\"handed_out\":").append(worker.handedOut()).append(",\"leaving\":")
                    .append(worker.leaving()).append('}');
            between = ",";
        }
        return out.append("]}").toString();
    }
}
