package com.vesma.quorl;

import java.util.List;
import java.util.concurrent.TimeUnit;

/**
 * What daemons have refused last, for requests that end without a reply. A daemon says it some time after the send, which has
 * returned by then.
 */
final class DaemonRefusals {
    /** Requests that end within this time of one another share an answer: many may end at once, and statistics may be long. */
    private static final long FRESH = TimeUnit.MILLISECONDS.toNanos(100);

    private record Known(long since, List<QuorlStatistics.Daemon> daemons) {}

    private static volatile Known known;

    private DaemonRefusals() {}

    /**
     * The daemon's words when its last refusal names the subject of a request, or the inbox of its reply.
     *
     * @return text to be added to a sentence, "" when no daemon has refused this
     */
    static String ofRequest(String subject, String replySubject) {
        for (QuorlStatistics.Daemon daemon : daemons()) {
            String words = daemon.reason();
            String bus = "\"quorl." + element(daemon.network()) + "." + element(daemon.service()) + ".";
            if (daemon.refused() != 0
                    && (words.contains(bus + escaped(subject) + "\"") || words.contains(bus + escaped(inbox(replySubject)) + "."))) {
                return "; " + daemon.daemon() + " has refused it: " + words;
            }
        }
        return "";
    }

    /** The part of an inbox that a transport has for itself: its first two elements. */
    private static String inbox(String replySubject) {
        int first = replySubject.indexOf('.');
        int second = replySubject.indexOf('.', first + 1);
        return second < 0 ? replySubject : replySubject.substring(0, second);
    }

    /** A service or network as it is on the wire, which docs/reference/daemon-wire.md describes. */
    private static String element(String name) {
        if (name.isEmpty()) {
            return "default";
        }
        return name.equals("default") ? "%64efault" : escaped(name).replace(".", "%2E");
    }

    /** A subject as it is on the wire; one that is sent to has no wildcards. */
    private static String escaped(String subject) {
        StringBuilder wire = new StringBuilder();
        for (int i = 0; i < subject.length(); i++) {
            char c = subject.charAt(i);
            if (c <= ' ' || c == 0x7f || c == '%' || c == '*' || c == '>') {
                wire.append(String.format("%%%02X", (int) c));
            } else {
                wire.append(c);
            }
        }
        return wire.toString();
    }

    private static List<QuorlStatistics.Daemon> daemons() {
        Known last = known;
        long now = System.nanoTime();
        if (last == null || now - last.since > FRESH) {
            last = new Known(now, read());
            known = last;
        }
        return last.daemons;
    }

    private static List<QuorlStatistics.Daemon> read() {
        try {
            return QuorlStatistics.take().daemons();
        } catch (RuntimeException e) {
            // The library is being closed.
            return List.of();
        }
    }
}
