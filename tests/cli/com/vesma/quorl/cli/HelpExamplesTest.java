package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.InputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.DynamicTest;
import org.junit.jupiter.api.TestFactory;
import org.junit.jupiter.api.io.TempDir;
import picocli.CommandLine;

/** The examples of the help texts work as they stand, but for the daemon's port. */
class HelpExamplesTest {
    @TempDir
    static Path folder;

    private static ChildDaemon daemon;
    private static ChildCommand answering;

    @BeforeAll
    static void startAll() throws Exception {
        daemon = new ChildDaemon(folder);
        answering = ChildCommand.listening(folder, daemon.address, "ready", "reply clock.time --echo --count 100000 --timeout 100");
        Files.writeString(folder.resolve("measured.csv"), "celsius:f64\n71.5\n");
        Files.writeString(folder.resolve("zones.csv"), "zone:string\nUTC\n");
        Files.writeString(folder.resolve("recorded.json"), "{\"subject\":\"a\",\"message\":{\"n:i32\":1}}\n");
    }

    @AfterAll
    static void endAll() {
        if (answering != null) answering.close();
        if (daemon != null) daemon.close();
    }

    /** The words behind "quorl" in each example. */
    private static List<List<String>> examples() {
        List<List<String>> examples = new ArrayList<>();
        List<CommandLine> commands = new ArrayList<>();
        for (CommandLine command : new CommandLine(new Main(InputStream.nullInputStream())).getSubcommands().values()) {
            commands.add(command);
            commands.addAll(command.getSubcommands().values());
        }
        for (CommandLine command : commands) {
            for (String line : command.getCommandSpec().usageMessage().footer()) {
                if (!line.startsWith("  quorl ")) continue;
                List<String> words = ScriptLine.words(line.replaceFirst(" > .*$", ""));
                examples.add(words.subList(1, words.size()));
            }
        }
        return examples;
    }

    @TestFactory
    List<DynamicTest> everyExampleWorks() {
        List<DynamicTest> tests = new ArrayList<>();
        for (List<String> words : examples()) tests.add(DynamicTest.dynamicTest(String.join(" ", words), () -> works(words)));
        assertTrue(tests.size() > 15, tests.size() + " examples");
        return tests;
    }

    private void works(List<String> words) throws IOException, InterruptedException {
        // Everything is parsed; what ends by itself within a moment is run too.
        new CommandLine(new Main(InputStream.nullInputStream())).parseArgs(words.toArray(String[]::new));
        boolean brief = switch (words.get(0)) {
            case "send", "request", "run", "doctor", "help" -> true;
            default -> false;
        };
        if (!brief) return;
        List<String> arguments = words.stream().map(word -> word.equals("nats://127.0.0.1:4222") ? daemon.address : word).toList();
        try (ChildCommand child = new ChildCommand(folder, Map.of(), List.of(), arguments)) {
            String said = String.join("\n", child.out.lines().toList());
            assertEquals(0, child.code(), () -> said + child.said());
        }
    }
}
