package com.vesma.quorl.cli;

import java.util.Locale;

/** Writes texts as JSON. The library writes the messages. */
final class Json {
    private Json() {}

    /** Appends a text as a JSON string; what is no legal text (half a surrogate pair) is escaped as it is. */
    static void string(StringBuilder out, CharSequence text) {
        out.append('"');
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            switch (c) {
                case '"' -> out.append("\\\"");
                case '\\' -> out.append("\\\\");
                case '\n' -> out.append("\\n");
                case '\r' -> out.append("\\r");
                case '\t' -> out.append("\\t");
                default -> {
                    boolean pair = Character.isHighSurrogate(c) && i + 1 < text.length()
                            && Character.isLowSurrogate(text.charAt(i + 1));
                    if (pair) {
                        out.append(c).append(text.charAt(++i));
                    } else if (c < 0x20 || c == 0x7f || Character.isSurrogate(c) || c == '\u2028' || c == '\u2029') {
                        out.append(String.format(Locale.ROOT, "\\u%04x", (int) c));
                    } else {
                        out.append(c);
                    }
                }
            }
        }
        out.append('"');
    }
}
