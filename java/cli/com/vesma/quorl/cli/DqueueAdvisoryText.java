package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;

/** What the library tells of distributed queues, in a sentence. */
final class DqueueAdvisoryText {
    private final QuorlMsg advisory;

    private DqueueAdvisoryText(QuorlMsg advisory) {
        this.advisory = advisory;
    }

    static boolean isAbout(String subject) {
        return subject.matches("_QUORL\\.[A-Z]+\\.dqueue\\..*");
    }

    static String of(QuorlMsg advisory) {
        return new DqueueAdvisoryText(advisory).text();
    }

    private String text() {
        String subject = advisory.getSendSubject();
        return switch (subject.substring(subject.lastIndexOf('.') + 1)) {
            case "scheduler_changed" -> !advisory.has("member") ? queue() + " has no scheduler that this member hears"
                    : (advisory.has("label") ? value("label") : "another member") + " is the scheduler of " + queue();
            case "worker_joined" -> worker() + " works, on " + tasks("tasks") + " at once";
            case "worker_lost" -> worker() + " is silent" + (number("held") == 0 ? "" : "; " + tasks("held") + " of it " + (number("held") == 1 ? "goes" : "go")
                    + " to others");
            case "worker_left" -> worker() + " has left";
            case "task_reassigned" -> task() + " was taken from " + worker() + inBrackets() + ", for the " + ordinal(number("reassigned")) + " time";
            case "backlog_full" -> queue() + " is at its limit with " + tasks("messages") + " of " + number("bytes")
                    + " bytes waiting; more stay with their senders";
            case "backlog_cleared" -> queue() + " is down to " + tasks("messages") + " of " + number("bytes") + " bytes waiting";
            case "dead_letter" -> task() + " was taken away " + number("reassigned") + " times and is given up; it went to _QUORL.DEADLETTER."
                    + queue();
            case "completed_twice" -> worker() + " has done " + task() + ", which another had done";
            case "disagreement" -> worker() + " has other settings than this member" + inBrackets();
            case "crowded" -> queue() + " has " + number("members") + " members, and room for no more";
            case "newer_member" -> worker() + " is of a newer version, and is not understood";
            default -> subject + " " + advisory;
        };
    }

    private String queue() {
        return value("queue");
    }

    private String worker() {
        return value("label") + " in " + queue();
    }

    /** "task 3 of boss on orders.new", without the sender of a plain message. */
    private String task() {
        return "task " + number("number") + (advisory.has("sender") ? " of " + value("sender") : "") + " on " + value("subject");
    }

    private String tasks(String field) {
        return number(field) + (number(field) == 1 ? " task" : " tasks");
    }

    private static String ordinal(long n) {
        long tens = n % 100;
        String ending = tens >= 11 && tens <= 13 ? "th" : n % 10 == 1 ? "st" : n % 10 == 2 ? "nd" : n % 10 == 3 ? "rd" : "th";
        return n + ending;
    }

    private String inBrackets() {
        return advisory.has("reason") ? " (" + value("reason") + ")" : "";
    }

    private String value(String field) {
        return advisory.has(field) ? Texts.shown(advisory.getString(field)) : "";
    }

    private long number(String field) {
        return advisory.has(field) ? advisory.getU64(field) : 0;
    }
}
