package com.vesma.quorl.cli;

import java.nio.charset.StandardCharsets;

/** Checks subjects given on the command line and says what is wrong with them. The library checks them again. */
final class Subjects {
    /** Bytes of UTF-8 that a subject may have. */
    static final int MAX_BYTES = 254;

    /** The same of a certified name, which is the name of a queue too. */
    static final int MAX_CERTIFIED_NAME_BYTES = 200;

    /** Characters of a name to share under. */
    private static final int MAX_SHARE_NAME = 63;

    private Subjects() {}

    /** What keeps a subject from being sent to, or null. */
    static String whyNotSendable(String subject) {
        String malformed = malformed(subject);
        if (malformed != null) return malformed;
        for (String element : subject.split("\\.", -1)) {
            if (element.equals("*") || element.equals(">")) {
                return "\"" + element + "\" is a wildcard; a message is sent to one subject";
            }
        }
        return subject.startsWith("_INBOX.") ? null : whyReserved(subject);
    }

    /** What keeps a subject from being listened to, or null. */
    static String whyNotListenable(String subject) {
        String malformed = malformed(subject);
        if (malformed != null) return malformed;
        String[] elements = subject.split("\\.", -1);
        for (int i = 0; i < elements.length - 1; i++) {
            if (elements[i].equals(">")) return "\">\" stands for all that follows, so it must be the last element";
        }
        return whyReserved(subject);
    }

    /** What keeps a name from being shared under, or null. */
    static String whyNotShareName(String name) {
        if (name.isEmpty()) return "the name is empty";
        if (name.length() > MAX_SHARE_NAME) return "the name has " + name.length() + " characters, more than " + MAX_SHARE_NAME;
        for (char c : name.toCharArray()) {
            if (c <= ' ' || c >= 0x7f || ".*>".indexOf(c) >= 0) {
                return "a name has printable ASCII characters only, without blanks, \".\", \"*\" and \">\"";
            }
        }
        return null;
    }

    /** What keeps a text from being a certified name, or null. */
    static String whyNotCertifiedName(String name) {
        String malformed = malformed(name);
        if (malformed != null) return malformed;
        if (name.getBytes(StandardCharsets.UTF_8).length > MAX_CERTIFIED_NAME_BYTES) {
            return "it has more than " + MAX_CERTIFIED_NAME_BYTES + " bytes";
        }
        if (name.startsWith("_")) return "it begins with \"_\", as the system's names do";
        for (String element : name.split("\\.", -1)) {
            if (element.equals("*") || element.equals(">")) return "it has the wildcard \"" + element + "\"";
        }
        return null;
    }

    /** A program listens to its own inboxes, and nobody can name those on a command line. */
    private static String whyReserved(String subject) {
        return subject.startsWith("_") && !subject.startsWith("_QUORL.")
                ? "what starts with \"_\" belongs to the system" : null;
    }

    private static String malformed(String subject) {
        if (subject.isEmpty()) return "it is empty";
        int bytes = subject.getBytes(StandardCharsets.UTF_8).length;
        if (bytes > MAX_BYTES) return "it has " + bytes + " bytes; a subject has at most " + MAX_BYTES;
        String[] elements = subject.split("\\.", -1);
        for (int i = 0; i < elements.length; i++) {
            if (elements[i].isEmpty()) return "element " + (i + 1) + " is empty";
            if (elements[i].length() > 1 && (elements[i].contains("*") || elements[i].contains(">"))) {
                return "element " + (i + 1) + ", " + Texts.quoted(elements[i]) + ", has a wildcard inside; a wildcard is a whole element";
            }
        }
        return null;
    }

    /**
     * Text as one subject element: dots, wildcards, blanks, control characters and a leading underscore become "-", so that
     * any machine's or interface's name can stand in a subject.
     */
    static String element(String text) {
        StringBuilder element = new StringBuilder();
        text.codePoints().limit(63).forEach(c -> {
            boolean unsafe = c == '.' || c == '*' || c == '>' || Character.isWhitespace(c) || Character.isISOControl(c)
                    || (c >= Character.MIN_SURROGATE && c <= Character.MAX_SURROGATE) || (c == '_' && element.isEmpty());
            element.appendCodePoint(unsafe ? '-' : c);
        });
        return element.isEmpty() ? "-" : element.toString();
    }
}
