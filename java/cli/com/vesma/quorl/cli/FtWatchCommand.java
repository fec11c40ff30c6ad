package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import java.time.Duration;
import java.time.Instant;
import java.time.temporal.ChronoUnit;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;

/** quorl ft watch: shows a group's members, and how many are active. */
@Command(name = "watch", description = {"Shows the members of a group without joining it: their states, weights, since when, and how "
        + "many are active.",
        "On a terminal the table stays in place; otherwise each change is a line."},
        footer = {"", "Examples:", "  quorl ft watch plant.archive --daemon nats://127.0.0.1:4222",
                "  quorl ft watch plant.archive --json --lost 10 --daemon nats://127.0.0.1:4222 > archive.json"})
final class FtWatchCommand extends Action {
    private static final double REDRAW = 0.5;

    @Parameters(arity = "1", paramLabel = "GROUP", description = "the group's name")
    String group;

    @Option(names = "--lost", paramLabel = "SECONDS", defaultValue = "4",
            description = "silence after which a member counts as lost; longer than two heartbeats (${DEFAULT-VALUE})")
    double lost;

    @Option(names = "--timeout", paramLabel = "SECONDS", description = "end after that time")
    Double timeout;

    @Option(names = "--json", description = "print each change as a JSON object in one line")
    boolean json;

    private final GroupTable table = new GroupTable();
    private boolean draws;

    @Override
    void check() {
        FtJoinCommand.checkGroup(this, group);
        checkAtLeast("--lost", lost, 0.001);
        if (timeout != null) checkAtLeast("--timeout", timeout, 0);
    }

    @Override
    String aloneOnTheBus() {
        return "no member in another process can be heard here.";
    }

    @Override
    boolean inScripts() {
        return false;
    }

    @Override
    void begin(Session session) throws InterruptedException {
        draws = Screen.isTerminal() && !json;
        Duration interval = FtJoinCommand.duration(lost);
        try {
            session.monitor(transport, group, interval, advisory -> told(session, advisory), count -> counted(session, count));
        } catch (QuorlException e) {
            if (e.getStatus() == QuorlException.INVALID_ARG) throw usage(e.getDetail());
            throw e;
        }
        session.checkListening();
    }

    private void told(Session session, QuorlMsg advisory) {
        String subject = advisory.getSendSubject();
        String event = subject.substring(subject.lastIndexOf('.') + 1);
        boolean ofAMember = switch (event) {
            case "joined", "left", "changed", "lost" -> advisory.has("monitor") && advisory.getString("group").equals(group);
            default -> false;
        };
        if (!ofAMember) return;
        if (draws) {
            table.told(event, advisory, System.nanoTime());
            return;
        }
        String state = event.equals("lost") ? "lost" : advisory.getString("state");
        String token = Long.toUnsignedString(advisory.getU64("token"));
        if (!json) {
            session.print(now() + " " + FtAdvisoryText.nameOf(advisory) + " " + state + ", weight " + advisory.getU32("weight")
                    + (token.equals("0") ? "" : ", token " + token));
            return;
        }
        StringBuilder line = begun("member");
        Json.string(line.append(",\"peer\":"), advisory.getString("peer"));
        Json.string(line.append(",\"label\":"), advisory.has("label") ? advisory.getString("label") : "");
        Json.string(line.append(",\"state\":"), state);
        line.append(",\"weight\":").append(advisory.getU32("weight")).append(",\"goal\":").append(advisory.getU32("goal"));
        // Programs that read JSON keep whole numbers to 53 bits; a token has 64.
        if (!token.equals("0")) line.append(",\"token\":\"").append(token).append('"');
        session.print(line.append('}').toString());
    }

    private void counted(Session session, int count) {
        if (draws) {
            table.count(count);
            return;
        }
        session.print(json ? begun("count").append(",\"active\":").append(count).append('}').toString() : now() + " " + count + " active");
    }

    private StringBuilder begun(String event) {
        StringBuilder line = new StringBuilder("{\"time\":\"").append(now()).append("\",\"group\":");
        Json.string(line, group);
        return line.append(",\"event\":\"").append(event).append('"');
    }

    private static String now() {
        return Instant.now().truncatedTo(ChronoUnit.MILLIS).toString();
    }

    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        tellReady(session, "watching " + group);
        if (!draws) {
            session.pause(timeout);
            return;
        }
        long end = timeout == null ? Long.MAX_VALUE : System.nanoTime() + FtJoinCommand.duration(timeout).toNanos();
        try (Screen screen = new Screen(out())) {
            for (;;) {
                screen.draw(table.lines(group, System.nanoTime(), Screen.height() - 1));
                double left = (end - System.nanoTime()) / 1e9;
                if (timeout != null && left <= 0) return;
                session.pause(timeout == null ? REDRAW : Double.valueOf(Math.min(REDRAW, left)));
            }
        }
    }
}
