package com.vesma.quorl.cli;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.ParseResult;

/** What was given as arguments. Finds those that are not UTF-8: Java has replaced their bytes, and nobody would notice what was sent in their place. */
final class Arguments {
    private static final char REPLACEMENT = '\uFFFD';

    private Arguments() {}

    /** Which of an option's two names the user has given; the second one when neither was. */
    static String given(CommandSpec command, String name, String otherwise) {
        ParseResult parsed = command.commandLine().getParseResult();
        if (parsed == null) return otherwise;
        return parsed.originalArgs().stream().anyMatch(word -> word.equals(name) || word.startsWith(name + "=")) ? name : otherwise;
    }

    /** What is wrong with the arguments of this process; null for nothing. */
    static String whyNotText(String... arguments) {
        if (String.join("", arguments).indexOf(REPLACEMENT) < 0) return null;
        try {
            return whyNotText(Files.readAllBytes(Path.of("/proc/self/cmdline")), arguments);
        } catch (IOException e) {
            // Somebody may have written that character, as far as can be told.
            return null;
        }
    }

    /** commandLine: each word of it ends with a zero byte, and the arguments come last. */
    static String whyNotText(byte[] commandLine, String... arguments) {
        List<ByteBuffer> words = new ArrayList<>();
        int begin = 0;
        for (int i = 0; i < commandLine.length; i++) {
            if (commandLine[i] != 0) continue;
            words.add(ByteBuffer.wrap(commandLine, begin, i - begin));
            begin = i + 1;
        }
        for (int i = 0; i < arguments.length; i++) {
            int word = words.size() - arguments.length + i;
            if (arguments[i].indexOf(REPLACEMENT) < 0 || word < 0) continue;
            try {
                StandardCharsets.UTF_8.newDecoder().decode(words.get(word));
            } catch (CharacterCodingException e) {
                return "argument " + (i + 1) + ", " + Texts.quoted(arguments[i])
                        + ", is not UTF-8; set the terminal to UTF-8, or give bytes as an opaque field in hexadecimal";
            }
        }
        return null;
    }
}
