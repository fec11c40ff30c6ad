package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;

/** What the library tells of certified delivery, in a sentence; null for what is only of interest to programs. */
final class CertifiedAdvisoryText {
    private final QuorlMsg advisory;

    private CertifiedAdvisoryText(QuorlMsg advisory) {
        this.advisory = advisory;
    }

    static boolean isAbout(String subject) {
        return subject.matches("_QUORL\\.[A-Z]+\\.certified\\..*");
    }

    static String of(QuorlMsg advisory) {
        return new CertifiedAdvisoryText(advisory).text();
    }

    private String text() {
        String subject = advisory.getSendSubject();
        return switch (subject.substring(subject.lastIndexOf('.') + 1)) {
            // These come with each message and listener, and the command says itself what has become of its messages.
            case "registered", "ended", "confirmed", "completed", "settled", "listening" -> null;
            case "expired" -> messages() + " of " + name() + " given up";
            case "undelivered" -> messages() + " of " + name() + " never reached " + text("listener") + inBrackets();
            case "lagging" -> text("listener") + " does not confirm what " + name() + " has sent on " + text("subject") + "; "
                    + number("unconfirmed") + " wait";
            case "nearly_full" -> name() + " keeps " + number("bytes") + " of at most " + number("limit") + " bytes";
            case "no_longer_full" -> name() + " is down to " + number("bytes") + " bytes";
            case "refused" -> name() + " does not let " + text("listener") + " register for " + text("subject") + inBrackets();
            case "storage_failed" -> "the ledger of " + name() + " takes nothing" + inBrackets() + "; what was accepted stays";
            case "storage_works" -> "the ledger of " + name() + " takes messages again";
            case "damaged" -> "the ledger of " + name() + " is damaged" + inBrackets();
            case "skipped" -> messages() + " of " + text("sender") + " will never come" + inBrackets();
            case "stopped" -> text("sender") + " sends " + name() + " nothing more on " + text("subject") + inBrackets();
            case "sender_started_anew" -> text("sender") + " has lost its ledger and counts from the beginning";
            case "name_taken" -> "another program, or a relay agent that stands in for it, has the name " + name()
                    + "; this one does nothing until that is gone";
            case "name_contested" -> "another program has asked for the name " + name() + "; this one keeps it";
            case "name_free" -> "the other program with the name " + name() + " is gone, and this one goes on";
            case "newer_peer" -> "a message of a newer version has come on " + text("subject") + "; it was left out";
            default -> subject + " " + advisory;
        };
    }

    /** "message 3 on orders.new", "messages 3 to 9 on orders.new". */
    private String messages() {
        long first = number("first");
        long last = number("last");
        return (first == last ? "message " + first : "messages " + first + " to " + last) + " on " + text("subject");
    }

    private String name() {
        return text("name");
    }

    private String inBrackets() {
        String reason = text("reason");
        return reason.isEmpty() ? "" : " (" + reason + ")";
    }

    private String text(String field) {
        return advisory.has(field) ? advisory.getString(field) : "";
    }

    private long number(String field) {
        return advisory.has(field) ? advisory.getU64(field) : 0;
    }
}
