package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;

/** What the library tells of fault tolerance, in a sentence; null for what commands print themselves. */
final class FtAdvisoryText {
    private final QuorlMsg advisory;

    private FtAdvisoryText(QuorlMsg advisory) {
        this.advisory = advisory;
    }

    static boolean isAbout(String subject) {
        return subject.matches("_QUORL\\.[A-Z]+\\.ft\\..*");
    }

    static String of(QuorlMsg advisory) {
        return new FtAdvisoryText(advisory).text();
    }

    private String text() {
        String subject = advisory.getSendSubject();
        return switch (subject.substring(subject.lastIndexOf('.') + 1)) {
            case "joined", "left", "changed", "activated", "deactivated" -> null;
            case "lost" -> advisory.has("monitor") ? null : peer() + " is silent, and counts as gone";
            case "disagreement" -> peer() + " has the goal " + number("goal") + " and the intervals " + seconds("heartbeat") + ", "
                    + seconds("preparation") + " and " + seconds("activation") + " s, which do not fit those given here";
            case "too_many" -> number("members") + " members of " + group() + " are active, more than the goal";
            case "unheard" -> peer() + " stays active for " + seconds("seconds")
                    + " s, although this member is above it; it may not hear this one";
            case "slow" -> "the deactivation was not done within " + seconds("seconds") + " s; another member of " + group()
                    + " may be active";
            case "paused" -> "this process stood still for " + seconds("seconds") + " s; another member of " + group()
                    + " may have taken over";
            case "impostor" -> "somebody sends in the name of this member of " + group();
            case "crowded" -> group() + " has more than " + number("members") + " members; the others are not heard";
            case "malformed" -> "what comes on the subject of " + group() + " is not from a member (" + value("reason") + ")";
            default -> subject + " " + advisory;
        };
    }

    private String group() {
        return "group " + value("group");
    }

    private String peer() {
        return nameOf(advisory) + " in " + group();
    }

    /** Of the member that an advisory is about. What it calls itself may be nothing, and is then left out. */
    static String nameOf(QuorlMsg advisory) {
        for (String field : new String[] {"label", "peer"}) {
            if (advisory.has(field)) return Texts.shown(advisory.getString(field));
        }
        return "a member";
    }

    private String value(String field) {
        return advisory.has(field) ? Texts.shown(advisory.getString(field)) : "";
    }

    private long number(String field) {
        return advisory.has(field) ? advisory.getU64(field) : 0;
    }

    private String seconds(String field) {
        return Texts.number(Math.round((advisory.has(field) ? advisory.getF64(field) : 0) * 1000) / 1000.0);
    }
}
