package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmDelivery;
import com.vesma.quorl.QuorlCmDeliveryException;
import com.vesma.quorl.QuorlCmMsg;
import com.vesma.quorl.QuorlCmSubject;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlMsg;
import java.time.Duration;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.TreeSet;
import java.util.concurrent.CompletableFuture;
import java.util.stream.Collectors;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.ParentCommand;

/** quorl cm send: sends messages that are kept until they are confirmed. */
@Command(name = "send", description = {"Sends messages that are kept until every registered listener has confirmed them, and waits for that.",
        "What is not confirmed in time stays in the ledger. It is sent again when a command or program opens that: the next "
                + "'quorl cm send' sends it too, 'quorl cm resume' nothing else."},
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

    /** A message that is not settled. */
    private record Open(String subject, long number) {}

    private Session session;
    private KeptMessages kept;
    private QuorlCmTransport through;

    /** Confirmed messages by the listeners' names. Guarded by this, as all below. */
    private final Map<String, Long> confirmations = new TreeMap<>();

    /** Only kept for --json, in the order of the sends. */
    private final Set<Open> open = new LinkedHashSet<>();
    private long confirmed;
    private long failed;
    private String firstFailure;

    @Override
    void check() {
        if (subject == null && source.csv == null && jsonFile == null) {
            throw usage("Missing required parameter: 'SUBJECT'" + (certified.ledger == null ? "" : "; 'quorl cm resume' sends what the ledger keeps"));
        }
        if (subject != null) checkSendable(subject);
        certified.check(this);
        for (String listener : listeners) CertifiedOptions.checkName(this, "--listener", listener);
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
    void begin(Session with) throws InterruptedException {
        session = with;
        kept = new KeptMessages(with, transport, certified);
        through = kept.through();
        if (kept.count() > 0) tell(certified.ledger + " keeps " + (kept.count() == 1 ? "1 older message, which is sent too" : kept.count() + " older messages, which are sent too"));
        for (String listener : listeners) through.addListener(listener, subject == null ? ">" : subject);
        source.forEach(this::send);
    }

    private void send(QuorlMsg message) {
        if (expire != null) QuorlCmMsg.setTimeLimit(message, Duration.ofNanos((long) (expire * 1e9)));
        CompletableFuture<QuorlCmDelivery> told = through.sendTracked(message);
        Open one = new Open(message.getSendSubject(), QuorlCmMsg.getSequence(message));
        if (json) {
            synchronized (this) {
                open.add(one);
            }
        }
        told.whenComplete((delivery, failure) -> {
            if (delivery != null) {
                delivered(one, delivery);
            } else if (failure instanceof QuorlCmDeliveryException undelivered) {
                undelivered(one, undelivered);
            }
        });
    }

    private synchronized void delivered(Open one, QuorlCmDelivery delivery) {
        confirmed++;
        for (String name : delivery.confirmedBy()) confirmations.merge(name, 1L, Long::sum);
        settled(one, delivery);
    }

    private synchronized void undelivered(Open one, QuorlCmDeliveryException failure) {
        failed++;
        if (firstFailure == null) firstFailure = failure.getDetail();
        settled(one, failure.getDelivery());
    }

    private void settled(Open one, QuorlCmDelivery delivery) {
        if (json) {
            open.remove(one);
            session.print(line(delivery));
        }
        notifyAll();
    }

    /** {"subject":...,"number":...,"confirmed":[...],"undelivered":{name:reason}}, the last one only when there is something. */
    static String line(QuorlCmDelivery delivery) {
        return outcome(head(delivery.subject(), delivery.number()), delivery.confirmedBy(), Set.of(), delivery.undelivered());
    }

    private static StringBuilder head(String subject, long number) {
        StringBuilder head = new StringBuilder("{\"subject\":");
        Json.string(head, subject);
        return head.append(",\"number\":").append(number);
    }

    /** Behind the head of a line: the names, in their order, and the end. */
    static String outcome(StringBuilder line, Set<String> confirmed, Set<String> waiting, Map<String, String> undelivered) {
        names(line.append(",\"confirmed\":"), confirmed);
        if (!waiting.isEmpty()) names(line.append(",\"waiting\":"), waiting);
        if (!undelivered.isEmpty()) {
            String between = ",\"undelivered\":{";
            for (Map.Entry<String, String> each : new TreeMap<>(undelivered).entrySet()) {
                Json.string(line.append(between), each.getKey());
                Json.string(line.append(':'), each.getValue());
                between = ",";
            }
            line.append('}');
        }
        return line.append('}').toString();
    }

    private static void names(StringBuilder line, Set<String> names) {
        line.append('[');
        String between = "";
        for (String name : new TreeSet<>(names)) {
            Json.string(line.append(between), name);
            between = ",";
        }
        line.append(']');
    }

    @Override
    void finish(Session with, boolean alone) throws InterruptedException {
        long sent = source.done();
        await(sent);
        if (alone && !with.isEmbedded(transport)) with.confirm(sent);
        // What was given up has been told before, and is heard now.
        with.flush();
        // What is looked up now may be confirmed meanwhile, and then counts as that.
        Set<String> lacking = KeptMessages.lacking(through);
        long older = kept.left();
        String taken = certified.name == null ? null : with.whyNothingDone(certified.name);
        if (json) printOpen();
        synchronized (this) {
            long left = sent - confirmed - failed;
            String trouble = failed == 0 ? "" : Texts.were(failed, "message") + " given up (" + firstFailure + ")";
            String olderTrouble = kept.failure();
            if (olderTrouble != null) trouble += (trouble.isEmpty() ? "" : "; ") + olderTrouble;
            if (left + older > 0 && timeout > 0) trouble += (trouble.isEmpty() ? "" : "; ") + unconfirmed(left, older, lacking);
            if (!trouble.isEmpty() && taken != null) trouble += "; " + taken;
            if (!trouble.isEmpty()) throw new Failure(trouble);
            if (!json) session.print(summary(sent, left, older, lacking));
        }
    }

    /** For --json: what waits for a confirmation, and what the ledger kept before. */
    private void printOpen() {
        Map<String, QuorlCmSubject> now = through.review(null).collect(Collectors.toMap(QuorlCmSubject::subject, each -> each));
        synchronized (this) {
            for (Open one : open) {
                QuorlCmSubject subject = now.get(one.subject);
                Set<String> waiting = subject == null ? Set.of() : KeptMessages.waiting(subject, one.number);
                session.print(outcome(head(one.subject, one.number), Set.of(), waiting, Map.of()));
            }
        }
        kept.lines().forEach(session::print);
    }

    private void await(long sent) throws InterruptedException {
        long end = System.nanoTime() + (long) (timeout * 1e9);
        long all = sent + kept.count();
        try (ProgressBar bar = new ProgressBar(err())) {
            for (;;) {
                long older = kept.left();
                synchronized (this) {
                    long done = confirmed + failed + kept.count() - older;
                    bar.show(done, all, "messages confirmed");
                    long left = (end - System.nanoTime()) / 1_000_000 + 1;
                    if (done >= all || left <= 0) return;
                    // The bar goes on to be drawn, also when nothing is confirmed.
                    wait(Math.min(left, 200));
                }
            }
        }
    }

    /** "3 messages were not confirmed by billing within 10 s, 2 of them older; the ledger keeps them". */
    private String unconfirmed(long left, long older, Set<String> lacking) {
        return KeptMessages.unconfirmed(left + older, lacking, timeout)
                + (older == 0 ? "" : left == 0 ? (older == 1 ? ", an older one" : ", all of them older") : ", " + older + " of them older") + "; "
                + (certified.ledger == null ? "without --ledger nobody keeps " : "the ledger keeps ") + (left + older == 1 ? "it" : "them");
    }

    /** "3 messages were sent, and 2 older ones; billing has confirmed 5". */
    private String summary(long sent, long left, long older, Set<String> lacking) {
        StringBuilder text = new StringBuilder(Texts.were(sent, "message")).append(" sent");
        if (kept.count() > 0) text.append(", and ").append(kept.count()).append(kept.count() == 1 ? " older one" : " older ones");
        Map<String, Long> by = kept.count() > 0 ? kept.confirmations() : new TreeMap<>();
        confirmations.forEach((name, messages) -> by.merge(name, messages, Long::sum));
        if (by.isEmpty() && left + older == 0) return text.append("; nobody was registered for ").append(sent == 1 ? "it" : "them").toString();
        String between = "; ";
        for (Map.Entry<String, Long> each : by.entrySet()) {
            text.append(between).append(each.getKey()).append(" has confirmed ").append(each.getValue());
            between = ", ";
        }
        if (left + older == 0) return text.toString();
        text.append("; ").append(left + older).append(left + older == 1 ? " waits" : " wait").append(" for ");
        return text.append(lacking.isEmpty() ? "a confirmation" : Texts.names(lacking)).toString();
    }

    @Override
    long sentSoFar() {
        return source.done();
    }

    @Override
    String progress() {
        synchronized (this) {
            return Texts.were(source.done(), "message") + " sent, " + confirmed + " confirmed";
        }
    }
}
