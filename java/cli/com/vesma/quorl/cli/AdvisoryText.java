package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlMsg;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;

/** What the library tells of itself, in a sentence. What is not known here is shown as it is. */
final class AdvisoryText {
    private final QuorlMsg advisory;
    private final String server;

    private AdvisoryText(QuorlMsg advisory, String server) {
        this.advisory = advisory;
        this.server = server;
    }

    static String of(QuorlMsg advisory) {
        return of(advisory, "");
    }

    /** server: the one of the daemon's servers that is used now; "" when there is one alone, or it is not known. */
    static String of(QuorlMsg advisory, String server) {
        return new AdvisoryText(advisory, server).text();
    }

    private String text() {
        String subject = advisory.getSendSubject();
        String[] elements = subject.split("\\.", 3);
        return switch (elements.length == 3 ? elements[2] : subject) {
            case "daemon.lost" -> "the connection to " + daemon() + " is lost" + inBrackets("reason") + "; trying again";
            case "daemon.back" -> back();
            case "daemon.malformed" -> number("count") + " things that came from " + daemon() + " are not messages"
                    + inBrackets("reason");
            case "daemon.refused" -> refused();
            case "daemon.accepted" -> daemon() + " lets this process listen to " + patterns() + " now";
            case "daemon.denied" -> daemon() + " is there and does not take this process in any more" + inBrackets("reason")
                    + "; trying again";
            case "daemon.dropped" -> dropped();
            case "circuit.lost" -> "the circuit has no peer any more" + inBrackets("reason") + "; " + messages("undelivered")
                    + " may not have arrived";
            case "circuit.undelivered" -> "the circuit was closed before its peer took everything" + inBrackets("reason") + "; "
                    + messages("undelivered") + " may not have arrived";
            case "queue.limit_begin" -> queue() + " is at its limit of " + number("max_events") + " events and drops some";
            case "queue.limit_end" -> queue() + " has room again; " + number("lost") + " events were dropped";
            case "queue.highwater_begin" -> number("waiting") + " events wait in " + queue();
            case "queue.highwater_end" -> queue() + " is down to " + number("waiting") + " events";
            case "listener.slow_begin" -> "the listener on " + text("pattern") + " is too slow: " + queue() + " drops its messages";
            case "listener.slow_end" -> "the listener on " + text("pattern") + " has caught up; " + messages("lost")
                    + " of it were dropped";
            default -> subject + " " + advisory;
        };
    }

    private String back() {
        long lost = number("unconfirmed") + number("lost");
        return "the connection to " + daemon() + " is there again" + (server.isEmpty() ? "" : ", now at " + server)
                + (lost == 0 ? "" : "; up to " + lost + (lost == 1 ? " message is lost" : " messages are lost"));
    }

    private String refused() {
        List<String> what = new ArrayList<>();
        if (advisory.has("subject")) what.add("messages to " + text("subject"));
        if (advisory.has("patterns")) what.add("to let this process listen to " + patterns());
        if (what.isEmpty()) what.add("something");
        return daemon() + " refuses " + String.join(", and ", what) + inBrackets("reason");
    }

    private String dropped() {
        List<String> what = new ArrayList<>();
        if (number("dropped") != 0) what.add(messages("dropped") + " never went out");
        if (number("unconfirmed") != 0) what.add(messages("unconfirmed") + " may not have arrived");
        return "closing the transport to " + daemon() + ": " + String.join(", ", what) + inBrackets("reason");
    }

    private String daemon() {
        String name = text("daemon");
        return name.isEmpty() ? "the daemon" : name;
    }

    private String queue() {
        String name = text("name");
        return "queue " + (name.isEmpty() ? String.valueOf(number("queue")) : Texts.quoted(name));
    }

    /** Those that are named, and how many more. */
    private String patterns() {
        String[] named = advisory.has("patterns") ? advisory.getStringArray("patterns") : new String[0];
        long more = number("pattern_count") - named.length;
        return String.join(", ", named) + (more > 0 ? String.format(Locale.ROOT, " and %d more", more) : "");
    }

    private String messages(String field) {
        long count = number(field);
        return count + (count == 1 ? " message" : " messages");
    }

    private String inBrackets(String field) {
        String text = text(field);
        return text.isEmpty() ? "" : " (" + text + ")";
    }

    private String text(String field) {
        try {
            return advisory.has(field) ? advisory.getString(field) : "";
        } catch (QuorlException e) {
            return "";
        }
    }

    private long number(String field) {
        try {
            return advisory.has(field) ? advisory.getU64(field) : 0;
        } catch (QuorlException e) {
            return 0;
        }
    }
}
