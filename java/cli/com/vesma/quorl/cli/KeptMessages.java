package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlCmSubject;
import com.vesma.quorl.QuorlCmTransport;
import com.vesma.quorl.QuorlMsg;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.TreeSet;
import java.util.stream.Collectors;

/** What a ledger kept when a command opened it, and what has become of that since. */
final class KeptMessages {
    /** What was given up for a listener. */
    private record GivenUp(String subject, long first, long last, String listener, String reason) {}

    private final QuorlCmTransport through;

    /** Every subject as it was when the ledger was opened. Empty without a ledger, where nothing can be old. */
    private final Map<String, QuorlCmSubject> before = new LinkedHashMap<>();

    /** Guarded by itself. */
    private final List<GivenUp> givenUp = new ArrayList<>();

    /** Opens the certified transport of a command that sends. */
    KeptMessages(Session session, TransportOptions transport, CertifiedOptions options) {
        // What expired while nobody had the ledger open is told when it is opened.
        if (options.ledger != null) session.hearUndelivered(advisory -> hear(options.name, advisory));
        through = session.certified(transport, options, false);
        if (options.ledger != null) through.review(null).forEach(subject -> before.put(subject.subject(), subject));
    }

    QuorlCmTransport through() {
        return through;
    }

    private void hear(String name, QuorlMsg advisory) {
        if (!name.equals(advisory.getString("name"))) return;
        synchronized (givenUp) {
            givenUp.add(new GivenUp(advisory.getString("subject"), advisory.getU64("first"), advisory.getU64("last"),
                    advisory.getString("listener"), advisory.has("reason") ? advisory.getString("reason") : ""));
        }
    }

    /** Messages that were kept when the ledger was opened. */
    long count() {
        return before.values().stream().mapToLong(QuorlCmSubject::messages).sum();
    }

    /** Those of them that are kept still. */
    long left() {
        return count() == 0 ? 0 : through.review(null).mapToLong(this::left).sum();
    }

    private long left(QuorlCmSubject now) {
        QuorlCmSubject then = before.get(now.subject());
        if (then == null || now.messages() == 0 || now.first() > then.last()) return 0;
        return Math.min(Math.min(now.messages(), then.messages()), then.last() - now.first() + 1);
    }

    /** What was given up, by the listeners' names, with the first reason; only of what is older than the command. */
    private Map<String, Long> givenUp(List<String> reasons) {
        Map<String, Long> messages = new TreeMap<>();
        synchronized (givenUp) {
            for (GivenUp each : givenUp) {
                QuorlCmSubject then = before.get(each.subject);
                if (then == null || each.first > then.last()) continue;
                messages.merge(each.listener, Math.min(each.last, then.last()) - each.first + 1, Long::sum);
                reasons.add(each.reason);
            }
        }
        return messages;
    }

    /** "2 older messages were given up for billing (the time limit has passed)"; null when none was. */
    String failure() {
        List<String> reasons = new ArrayList<>();
        Map<String, Long> messages = givenUp(reasons);
        if (messages.isEmpty()) return null;
        String reason = reasons.get(0);
        return messages.entrySet().stream().map(each -> Texts.were(each.getValue(), "older message") + " given up for " + each.getKey())
                .collect(Collectors.joining(", ")) + (reason.isEmpty() ? "" : " (" + reason + ")");
    }

    /** Of the messages that were kept at first, how many each listener has confirmed since. */
    Map<String, Long> confirmations() {
        Map<String, QuorlCmSubject> now = through.review(null).collect(Collectors.toMap(QuorlCmSubject::subject, each -> each));
        Map<String, Long> confirmed = new TreeMap<>();
        for (QuorlCmSubject then : before.values()) {
            Map<String, QuorlCmSubject.Listener> still = new HashMap<>();
            QuorlCmSubject subject = now.get(then.subject());
            if (subject != null) subject.listeners().forEach(listener -> still.put(listener.name(), listener));
            for (QuorlCmSubject.Listener listener : then.listeners()) {
                QuorlCmSubject.Listener same = still.get(listener.name());
                long open = same == null ? 0 : Math.min(same.unconfirmed(), Math.max(0, then.last() - same.confirmedUpTo()));
                confirmed.merge(listener.name(), listener.unconfirmed() - Math.min(open, listener.unconfirmed()), Long::sum);
            }
        }
        givenUp(new ArrayList<>()).forEach((name, messages) -> confirmed.merge(name, -messages, Long::sum));
        confirmed.values().removeIf(messages -> messages <= 0);
        return confirmed;
    }

    /** "3 messages were not confirmed by billing within 10 s". */
    static String unconfirmed(long messages, Set<String> lacking, double seconds) {
        return Texts.were(messages, "message") + " not confirmed " + (lacking.isEmpty() ? "" : "by " + Texts.names(lacking) + " ") + "within "
                + Texts.number(seconds) + " s";
    }

    /** Who has not confirmed everything that is kept now, old or new. */
    static Set<String> lacking(QuorlCmTransport through) {
        return through.review(null).flatMap(subject -> subject.listeners().stream()).filter(listener -> listener.unconfirmed() > 0)
                .map(QuorlCmSubject.Listener::name).collect(Collectors.toCollection(TreeSet::new));
    }

    /**
     * {"subject":...,"first":...,"last":...,"messages":...,"confirmed":[...],"waiting":[...],"undelivered":{name:reason}} for each
     * subject that something was kept of; the last two only when there is something.
     */
    List<String> lines() {
        Map<String, QuorlCmSubject> now = through.review(null).collect(Collectors.toMap(QuorlCmSubject::subject, each -> each));
        List<String> lines = new ArrayList<>();
        for (QuorlCmSubject then : before.values()) {
            if (then.messages() == 0) continue;
            Map<String, String> undelivered = new TreeMap<>();
            synchronized (givenUp) {
                for (GivenUp each : givenUp) {
                    if (each.subject.equals(then.subject()) && each.first <= then.last()) undelivered.putIfAbsent(each.listener, each.reason);
                }
            }
            Set<String> confirmed = new TreeSet<>();
            then.listeners().stream().filter(listener -> listener.unconfirmed() > 0).forEach(listener -> confirmed.add(listener.name()));
            Set<String> waiting = new TreeSet<>();
            QuorlCmSubject subject = now.get(then.subject());
            if (subject != null) waiting.addAll(waiting(subject, then.last()));
            waiting.retainAll(confirmed);
            confirmed.removeAll(waiting);
            confirmed.removeAll(undelivered.keySet());
            StringBuilder line = new StringBuilder("{\"subject\":");
            Json.string(line, then.subject());
            line.append(",\"first\":").append(then.first()).append(",\"last\":").append(then.last()).append(",\"messages\":")
                    .append(then.messages());
            lines.add(CmSendCommand.outcome(line, confirmed, waiting, undelivered));
        }
        return lines;
    }

    /** Who has not confirmed all messages up to a number. */
    static Set<String> waiting(QuorlCmSubject subject, long number) {
        return subject.listeners().stream().filter(listener -> listener.unconfirmed() > 0 && listener.confirmedUpTo() < number)
                .map(QuorlCmSubject.Listener::name).collect(Collectors.toCollection(TreeSet::new));
    }
}
