package com.vesma.quorl.cli;

import java.util.ArrayList;
import java.util.List;

/** Cuts one line of a script into words as a shell does: blanks, quotes, backslashes and comments. */
final class ScriptLine {
    private ScriptLine() {}

    /**
     * The words of a line. '...' is literal; "..." knows \" and \\; outside quotes a backslash takes the next character
     * as it is; # at the start of a word begins a comment.
     */
    static List<String> words(String line) {
        List<String> words = new ArrayList<>();
        StringBuilder word = null;
        for (int i = 0; i < line.length(); i++) {
            char c = line.charAt(i);
            if (c == ' ' || c == '\t' || c == '\r') {
                if (word != null) words.add(word.toString());
                word = null;
                continue;
            }
            if (c == '#' && word == null) break;
            if (word == null) word = new StringBuilder();
            if (c == '\'') {
                int end = line.indexOf('\'', i + 1);
                if (end < 0) throw new IllegalArgumentException("a single quote is not closed");
                word.append(line, i + 1, end);
                i = end;
            } else if (c == '"') {
                i = quoted(line, i + 1, word);
            } else if (c == '\\') {
                if (++i == line.length()) throw new IllegalArgumentException("the line ends in a backslash");
                word.append(line.charAt(i));
            } else {
                word.append(c);
            }
        }
        if (word != null) words.add(word.toString());
        return words;
    }

    /** Appends what stands between double quotes; the index of the closing one. */
    private static int quoted(String line, int start, StringBuilder word) {
        for (int i = start; i < line.length(); i++) {
            char c = line.charAt(i);
            if (c == '"') return i;
            if (c == '\\' && i + 1 < line.length() && (line.charAt(i + 1) == '"' || line.charAt(i + 1) == '\\')) {
                c = line.charAt(++i);
            }
            word.append(c);
        }
        throw new IllegalArgumentException("a double quote is not closed");
    }
}
