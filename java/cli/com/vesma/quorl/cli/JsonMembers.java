package com.vesma.quorl.cli;

import java.util.ArrayList;
import java.util.List;

/** Cuts the text of a JSON object into its members without reading their values; the library reads those. */
final class JsonMembers {
    /** A member: its name as text, its value as it is written; at and valueAt are where they begin, from 0. */
    record Member(String name, String value, int at, int valueAt) {}

    private final String text;
    private int at;

    private JsonMembers(String text) {
        this.text = text;
    }

    /** The members; null when the text is no object, which whoever reads the values will say better. */
    static List<Member> of(String text) {
        try {
            return new JsonMembers(text).members();
        } catch (IndexOutOfBoundsException | NumberFormatException e) {
            return null;
        }
    }

    private List<Member> members() {
        List<Member> members = new ArrayList<>();
        if (next() != '{') return null;
        if (peek() == '}') {
            at++;
            return rest(members);
        }
        for (;;) {
            blanks();
            int begin = at;
            String name = string();
            if (name == null || next() != ':') return null;
            blanks();
            int value = at;
            skipValue();
            if (at == value) return null;
            members.add(new Member(name, text.substring(value, at).stripTrailing(), begin, value));
            char c = next();
            if (c == '}') return rest(members);
            if (c != ',') return null;
        }
    }

    private List<Member> rest(List<Member> members) {
        blanks();
        return at == text.length() ? members : null;
    }

    private void blanks() {
        while (at < text.length() && " \t\r\n".indexOf(text.charAt(at)) >= 0) at++;
    }

    private char peek() {
        blanks();
        return text.charAt(at);
    }

    private char next() {
        blanks();
        return text.charAt(at++);
    }

    private void skipValue() {
        for (int depth = 0;;) {
            char c = text.charAt(at);
            if (c == '"') {
                skipString();
                continue;
            }
            if (depth == 0 && (c == ',' || c == '}')) return;
            if (c == '{' || c == '[') depth++;
            if (c == '}' || c == ']') depth--;
            at++;
        }
    }

    private void skipString() {
        for (at++; text.charAt(at) != '"'; at++) {
            if (text.charAt(at) == '\\') at++;
        }
        at++;
    }

    private String string() {
        if (at >= text.length() || text.charAt(at) != '"') return null;
        int begin = at;
        skipString();
        return unquoted(text.substring(begin, at));
    }

    /** The text of a JSON string; null when it is none. */
    static String unquoted(String json) {
        if (json.length() < 2 || json.charAt(0) != '"' || json.charAt(json.length() - 1) != '"') return null;
        StringBuilder out = new StringBuilder();
        for (int i = 1; i < json.length() - 1; i++) {
            char c = json.charAt(i);
            if (c != '\\') {
                out.append(c);
                continue;
            }
            c = json.charAt(++i);
            int plain = "\"\\/".indexOf(c);
            int named = "nrtbf".indexOf(c);
            if (plain >= 0) {
                out.append(c);
            } else if (named >= 0) {
                out.append("\n\r\t\b\f".charAt(named));
            } else if (c == 'u') {
                out.append((char) Integer.parseInt(json.substring(i + 1, i + 5), 16));
                i += 4;
            } else {
                return null;
            }
        }
        return out.toString();
    }
}
