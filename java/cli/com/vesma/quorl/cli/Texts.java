package com.vesma.quorl.cli;

import java.util.List;
import java.util.Locale;
import java.util.Set;

/** Small pieces of text that several commands print. */
final class Texts {
    /** Characters of somebody's text that a complaint repeats. */
    private static final int LONGEST = 200;

    /** Names that a sentence lists. */
    private static final int MOST_NAMES = 5;

    private Texts() {}

    /** A number without a needless ".0". */
    static String number(double value) {
        return value == Math.rint(value) && Math.abs(value) < 1e15 ? Long.toString((long) value) : Double.toString(value);
    }

    /** Somebody's text between quotes, on one line and not without end. */
    static String quoted(String text) {
        return '"' + shown(text) + '"';
    }

    /** The same without the quotes. */
    static String shown(String text) {
        StringBuilder shown = new StringBuilder();
        int end = Math.min(text.length(), LONGEST);
        for (int i = 0; i < end; i++) {
            char c = text.charAt(i);
            if (Character.isISOControl(c)) {
                shown.append(String.format(Locale.ROOT, "\\u%04x", (int) c));
            } else {
                shown.append(c);
            }
        }
        return shown.append(end < text.length() ? "..." : "").toString();
    }

    /** An address, or what was given in its place, without the credentials that do not belong in it. */
    static String withoutCredentials(String text) {
        int at = text.lastIndexOf('@');
        int tail = tailOf(text);
        String shown = tail < 0 ? text : text.substring(0, tail + 1) + "...";
        if (at < 0) return shown;
        String scheme = text.startsWith("nats://") ? "nats://" : text.startsWith("tls://") ? "tls://" : "";
        return scheme + "..." + (tail >= 0 && tail < at ? "" : shown.substring(at));
    }

    /** Where a query or a fragment begins; -1: nowhere. */
    private static int tailOf(String text) {
        for (int i = 0; i < text.length(); i++) {
            if (text.charAt(i) == '?' || text.charAt(i) == '#') return i;
        }
        return -1;
    }

    /** "1 message was", "2 messages were". */
    static String were(long count, String what) {
        return count + " " + what + (count == 1 ? " was" : "s were");
    }

    /** "archive", "archive, billing and prices", "a, b, c, d, e and 7 others". */
    static String names(Set<String> names) {
        List<String> shown = names.stream().sorted().limit(names.size() > MOST_NAMES + 1 ? MOST_NAMES : names.size()).toList();
        int others = names.size() - shown.size();
        if (others > 0) return String.join(", ", shown) + " and " + others + " others";
        if (shown.size() < 2) return String.join("", shown);
        return String.join(", ", shown.subList(0, shown.size() - 1)) + " and " + shown.get(shown.size() - 1);
    }
}
