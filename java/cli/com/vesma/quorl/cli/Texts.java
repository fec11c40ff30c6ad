package com.vesma.quorl.cli;

import java.util.Locale;

/** Small pieces of text that several commands print. */
final class Texts {
    /** Characters of somebody's text that a complaint repeats. */
    private static final int LONGEST = 200;

    private Texts() {}

    /** A number without a needless ".0". */
    static String number(double value) {
        return value == Math.rint(value) && Math.abs(value) < 1e15 ? Long.toString((long) value) : Double.toString(value);
    }

    /** Somebody's text between quotes, on one line and not without end. */
    static String quoted(String text) {
        StringBuilder quoted = new StringBuilder("\"");
        int end = Math.min(text.length(), LONGEST);
        for (int i = 0; i < end; i++) {
            char c = text.charAt(i);
            if (Character.isISOControl(c)) {
                quoted.append(String.format(Locale.ROOT, "\\u%04x", (int) c));
            } else {
                quoted.append(c);
            }
        }
        return quoted.append(end < text.length() ? "...\"" : "\"").toString();
    }

    /** An address, or what was given in its place, without the credentials that do not belong in it. */
    static String withoutCredentials(String text) {
        int at = text.lastIndexOf('@');
        int scheme = text.indexOf("://");
        return at < 0 ? text : (scheme >= 0 && scheme < at ? text.substring(0, scheme + 3) : "") + "..." + text.substring(at);
    }

    /** "1 message was", "2 messages were". */
    static String were(long count, String what) {
        return count + " " + what + (count == 1 ? " was" : "s were");
    }
}
