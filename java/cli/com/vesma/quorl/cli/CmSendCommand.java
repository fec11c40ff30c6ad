package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmDelivery;
import com.vesma.quorl.QuorlCmTransport;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.TreeSet;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.ParentCommand;

/** quorl cm send: sends messages that are kept until they are confirmed. */
@Command(name = "send", description = {"Sends messages that are kept until every registered listener has confirmed them, and waits for that.",
        "What is not confirmed in time stays in the ledger, and is sent again when a command or program opens it."},
        footer = {"", "Examples:",
                "  quorl cm send orders.new number:i64=4711 --name orders --ledger orders.ledger --listener billing "
                        + "--daemon nats://127.0.0.1:4222",
                "  quorl cm send orders.new 'number:u32={n}' --count 1000 --name orders --ledger orders.ledger --durability power "
                        + "--listener billing --timeout 60 --daemon nats://127.0.0.1:4222"})
final class CmSendCommand extends Action {
    @Parameters(index = "0", arity = "0..1", paramLabel = "SUBJECT",
            description = "where to send; no wildcards. Not needed when the table or the JSON says it")
    String subject;

    @Parameters(index = "1..*", arity = "0..*", paramLabel = "FIELD",
            description = "name:type=value; {n} in a value is the message's number, from 1")
    List<String> arguments = List.of();

    @Mixin
    CertifiedOptions certified;

    @Mixin
    SourceOptions source;

    @Option(names = "--json-file", paramLabel = "FILE",
            description = "a message for each line of JSON, as 'quorl listen --json' prints them; - is standard input")
    String jsonFile;

    @Option(names = "--listener", paramLabel = "NAME",
            description = "keep the messages for the listener of that name, although it may not be there yet; may be given often")
    List<String> listeners = List.of();

    @Option(names = "--expire", paramLabel = "SECONDS", description = "give up what is not confirmed after that time")
    Double expire;

    @Option(names = "--timeout", paramLabel = "SECONDS", defaultValue = "10",
            description = "how long to wait for the confirmations (${DEFAULT-VALUE}); 0 does not wait")
    double timeout;

    @Option(names = "--json", description = "print what has become of each message, as a JSON object in one line")
    boolean json;

    @ParentCommand
    Object parent;

    private TrackedSending sending;

    @Override
    void check() {
        if (subject == null && source.csv == null && jsonFile == null) throw usage("Missing required parameter: 'SUBJECT'");
        if (subject != null) checkSendable(subject);
        certified.check(this);
        checkAtLeast("--timeout", timeout, 0);
        if (expire != null) checkAtLeast("--expire", expire, 0.001);
        Object main = parent instanceof CmCommand cm ? cm.parent : null;
        source.check(this, subject, fields(arguments), jsonFile, main instanceof Main command ? command.in : null);
    }

    @Override
    String aloneOnTheBus() {
        return "nobody in another process can hear this message.";
    }

    @Override
    void begin(Session session) throws InterruptedException {
        QuorlCmTransport through = session.certified(transport, certified, false);
        for (String listener : listeners) through.addListener(listener, subject == null ? ">" : subject);
        sending = new TrackedSending(through, expire, json ? delivery -> session.print(line(delivery)) : delivery -> {});
        source.forEach(sending::send);
    }

    /** {"subject":...,"number":...,"confirmed":[...],"undelivered":{name:reason}}, the last one only when there is something. */
    static String line(QuorlCmDelivery delivery) {
        StringBuilder out = new StringBuilder("{\"subject\":");
        Json.string(out, delivery.subject());
        out.append(",\"number\":").append(delivery.number()).append(",\"confirmed\":[");
        String between = "";
        for (String name : new TreeSet<>(delivery.confirmedBy())) {
            Json.string(out.append(between), name);
            between = ",";
        }
        out.append(']');
        if (!delivery.undelivered().isEmpty()) {
            out.append(",\"undelivered\":{");
            between = "";
            for (Map.Entry<String, String> each : new TreeMap<>(delivery.undelivered()).entrySet()) {
                Json.string(out.append(between), each.getKey());
                Json.string(out.append(':'), each.getValue());
                between = ",";
            }
            out.append('}');
        }
        return out.append('}').toString();
    }

    @Override
    void finish(Session session, boolean alone) throws InterruptedException {
        long sent = source.done();
        try (ProgressBar bar = new ProgressBar(err())) {
            sending.await(sent, timeout, done -> bar.show(done, sent, "messages confirmed"));
        }
        if (alone && !session.isEmbedded(transport)) session.confirm(sent);
        long failed = sending.failed();
        long left = sent - sending.confirmed() - failed;
        if (failed > 0) {
            throw new Failure(Texts.were(failed, "message") + " given up (" + sending.firstFailure() + ")"
                    + (left > 0 ? "; " + unconfirmed(left) : ""));
        }
        if (left > 0 && timeout > 0) throw new Failure(unconfirmed(left));
        if (!json) session.print(summary(sent, left));
    }

    private String unconfirmed(long left) {
        return Texts.were(left, "message") + " not confirmed within " + Texts.number(timeout) + " s; "
                + (certified.ledger == null ? "without --ledger nobody keeps " + (left == 1 ? "it" : "them")
                        : "the ledger keeps " + (left == 1 ? "it" : "them"));
    }

    /** "3 messages were sent; billing has confirmed 3". */
    private String summary(long sent, long left) {
        Map<String, Long> confirmations = sending.confirmations();
        StringBuilder text = new StringBuilder(Texts.were(sent, "message")).append(" sent");
        if (confirmations.isEmpty() && left == 0) return text.append("; nobody was registered for ").append(sent == 1 ? "it" : "them").toString();
        String between = "; ";
        for (Map.Entry<String, Long> each : confirmations.entrySet()) {
            text.append(between).append(each.getKey()).append(" has confirmed ").append(each.getValue());
            between = ", ";
        }
        return left == 0 ? text.toString() : text.append("; ").append(left).append(left == 1 ? " waits" : " wait").append(" for a confirmation").toString();
    }

    @Override
    long sentSoFar() {
        return source.done();
    }

    @Override
    String progress() {
        return Texts.were(source.done(), "message") + " sent, " + (sending == null ? 0 : sending.confirmed()) + " confirmed";
    }
}
