package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.TreeSet;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import picocli.CommandLine;
import picocli.CommandLine.Model.OptionSpec;

/** The completion of the shell offers what the command has, no more and no less. */
class CompletionTest {
    @TempDir
    Path folder;

    /** What bash offers behind these words, the last of which is being typed. */
    private Set<String> offers(String... words) throws Exception {
        List<String> command = new ArrayList<>(List.of("bash", "--norc", "-c",
                "source \"$0\"; COMP_WORDS=(quorl \"$@\"); COMP_CWORD=$#; _quorl; printf '%s\\n' \"${COMPREPLY[@]}\"",
                Path.of(System.getProperty("cli.packaging"), "quorl.bash").toString()));
        command.addAll(List.of(words));
        Process bash = new ProcessBuilder(command).directory(folder.toFile()).redirectErrorStream(true).start();
        String said = new String(bash.getInputStream().readAllBytes(), StandardCharsets.UTF_8);
        assertTrue(bash.waitFor(60, TimeUnit.SECONDS));
        Set<String> offered = new TreeSet<>(said.lines().toList());
        offered.remove("");
        return offered;
    }

    @Test
    void everyCommandAndOptionIsOffered() throws Exception {
        CommandLine all = new CommandLine(new Main(InputStream.nullInputStream()));
        Set<String> first = new TreeSet<>(all.getSubcommands().keySet());
        first.addAll(all.getCommandSpec().optionsMap().keySet());
        assertEquals(first, offers(""));
        for (String command : all.getSubcommands().keySet()) {
            CommandLine outer = all.getSubcommands().get(command);
            assertEquals(optionsOf(outer), offers(command, "-"), command);
            for (String inner : outer.getSubcommands().keySet()) {
                assertEquals(optionsOf(outer.getSubcommands().get(inner)), offers(command, inner, "-"), command + " " + inner);
            }
            if (!outer.getSubcommands().isEmpty()) {
                Set<String> both = optionsOf(outer);
                both.addAll(outer.getSubcommands().keySet());
                assertEquals(both, offers(command, ""), command);
            }
        }
        Set<String> helped = new TreeSet<>(all.getSubcommands().keySet());
        helped.addAll(List.of("-h", "--help"));
        assertEquals(helped, offers("help", ""));
    }

    private static Set<String> optionsOf(CommandLine command) {
        Set<String> options = new TreeSet<>();
        for (OptionSpec option : command.getCommandSpec().options()) {
            if (!option.hidden()) options.addAll(List.of(option.names()));
        }
        return options;
    }

    @Test
    void filesAreOfferedWhereAnOptionTakesOne() throws Exception {
        Files.writeString(folder.resolve("table.csv"), "");
        for (String[] words : new String[][] {{"send", "a", "--csv", "t"}, {"send", "--json-file", "t"}, {"listen", "a", "--csv", "t"},
                {"doctor", "--trust", "t"}, {"cm", "send", "a", "--ledger", "t"}, {"run", "t"}}) {
            assertEquals(Set.of("table.csv"), offers(words));
        }
        assertEquals(Set.of("--timeout", "--trust"), offers("listen", "a", "--json", "--t"));
        assertEquals(Set.of("listen"), offers("l"));
        assertEquals(Set.of("power", "process"), offers("cm", "send", "a", "--durability", ""));
        assertEquals(Set.of(), offers("cm", "listen", "--name", ""));
        assertEquals(Set.of(), offers("send", "--rate", ""));
    }
}
