package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmQueueTransport;
import com.vesma.quorl.QuorlCmQueueTransport.Status;
import com.vesma.quorl.QuorlCmQueueTransport.Worker;
import java.time.Duration;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl dq status: prints how a distributed queue is. */
@Command(name = "status", description = "Prints how a distributed queue is, as its scheduler says: what waits, and who works.",
        footer = {"", "Examples:", "  quorl dq status crew --daemon nats://127.0.0.1:4222",
                "  quorl dq status crew --json --daemon nats://127.0.0.1:4222"})
final class DqStatusCommand extends Action {
    @Parameters(index = "0", paramLabel = "QUEUE", description = "the queue's name")
    String queue;

    @Option(names = "--timeout", paramLabel = "SECONDS", defaultValue = "5",
            description = "how long to wait for an answer (${DEFAULT-VALUE})")
    double timeout;

    @Option(names = "--json", description = "print a JSON object in one line")
    boolean json;

    @Override
    void check() {
        checkQueue(queue);
        checkAtLeast("--timeout", timeout, 0.001);
    }

    @Override
    String aloneOnTheBus() {
        return "no queue of another process answers here.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        Status status = QuorlCmQueueTransport.status(session.transport(transport), queue, Duration.ofNanos((long) (timeout * 1e9)));
        if (status == null) throw new Failure("status " + queue + ": no scheduler answers within " + Texts.number(timeout) + " s");
        session.print(json ? json(status) : text(status));
    }

    static String text(Status status) {
        StringBuilder text = new StringBuilder(status.queue()).append(": ").append(status.members())
                .append(status.members() == 1 ? " member; " : " members; ").append(status.unassigned()).append(" waiting, ")
                .append(status.assigned()).append(" assigned, ").append(status.completed()).append(" completed, ")
                .append(status.reassigned()).append(" reassigned, ").append(status.deadLetters()).append(" dead letters");
        for (Worker worker : status.workers()) {
            text.append("\n  ").append(worker.label()).append(": weight ").append(worker.weight()).append(", holds ")
                    .append(worker.held()).append(" of ").append(worker.tasks()).append(", was given ").append(worker.handedOut())
                    .append(worker.leaving() ? ", leaves" : "");
        }
        return text.toString();
    }

    static String json(Status status) {
        StringBuilder out = new StringBuilder("{\"queue\":");
        Json.string(out, status.queue());
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
