package com.vesma.quorl.cli;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.nio.charset.CodingErrorAction;
import java.nio.charset.StandardCharsets;
import java.nio.file.AccessDeniedException;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;

/**
 * Text to read messages from: a file, or standard input under the name "-". It is UTF-8; in the place of bytes that are not
 * stands a low surrogate that follows no high one, so that whoever reads can say where they are.
 */
record TextSource(String name, InputStream standardInput) {
    static final String WRONG = "bytes that are no UTF-8";
    static final String TOO_LONG = "it is longer than a message can be";

    /** Characters of a line or a cell, so that a file without line ends does not fill the memory. */
    static final int LONGEST = 1 << 26;

    private static final String MARK = "\udc00";

    /** What to call it in complaints. */
    String title() {
        return name.equals("-") ? "standard input" : name;
    }

    /** Whether it can be read twice, or not at all. */
    boolean isFile() {
        if (name.equals("-")) return false;
        Path path = Path.of(name);
        return Files.isRegularFile(path) || Files.isDirectory(path) || !Files.exists(path);
    }

    BufferedReader open() throws IOException {
        InputStream bytes = name.equals("-") ? new InterruptibleInput(standardInput) : Files.newInputStream(Path.of(name));
        return new BufferedReader(new InputStreamReader(bytes, StandardCharsets.UTF_8.newDecoder()
                .onMalformedInput(CodingErrorAction.REPLACE).onUnmappableCharacter(CodingErrorAction.REPLACE).replaceWith(MARK)));
    }

    /** Whether a character that is to follow stands for bytes that are no UTF-8. */
    static boolean isWrong(CharSequence before, int next) {
        return next >= 0 && Character.isLowSurrogate((char) next)
                && (before.length() == 0 || !Character.isHighSurrogate(before.charAt(before.length() - 1)));
    }

    /** Why a file cannot be read or written. */
    static String why(IOException e) {
        if (e instanceof NoSuchFileException) return "there is no such file";
        if (e instanceof AccessDeniedException) return "permission denied";
        return e instanceof FileSystemException file && file.getReason() != null ? file.getReason() : e.getMessage();
    }

    Failure unreadable(IOException e) {
        return new Failure("cannot read " + (name.equals("-") ? "standard input" : Texts.quoted(name)) + ": " + why(e));
    }
}
