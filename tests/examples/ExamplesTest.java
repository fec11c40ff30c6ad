import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;
import org.junit.jupiter.api.DynamicTest;
import org.junit.jupiter.api.TestFactory;
import org.junit.jupiter.api.io.TempDir;

/** Runs every program of the examples folder in a process of its own and compares what it prints. */
class ExamplesTest {
    private static final Path SOURCES = Path.of(System.getProperty("examples.sources"));
    private static final Path BUILT = Path.of(System.getProperty("examples.built"));
    private static final Path EXPECTED = Path.of(System.getProperty("examples.expected"));
    private static final int LIMIT_SECONDS = 60;
    private static final int MAX_LINES = 75;

    @TempDir
    Path temporary;

    @TestFactory
    Stream<DynamicTest> everyExamplePrintsWhatIsExpected() throws IOException {
        List<Path> programs;
        try (Stream<Path> files = Files.list(SOURCES)) {
            programs = files.sorted().toList();
        }
        assertFalse(programs.isEmpty(), "no examples in " + SOURCES);
        return programs.stream()
                .map(program -> DynamicTest.dynamicTest(program.getFileName().toString(), () -> run(program)));
    }

    private static List<String> java(String... arguments) {
        List<String> command = new ArrayList<>(List.of(Path.of(System.getProperty("java.home"), "bin", "java").toString(),
                "-Dcom.vesma.quorl.library=" + System.getProperty("com.vesma.quorl.library"), "-cp",
                System.getProperty("examples.classpath") + ":" + BUILT.resolve("java")));
        command.addAll(List.of(arguments));
        return command;
    }

    private void run(Path program) throws Exception {
        assertTrue(Files.readAllLines(program).size() < MAX_LINES, program + " is no small program");
        String file = program.getFileName().toString();
        String name = file.substring(0, file.lastIndexOf('.'));
        List<String> command = switch (file.substring(name.length())) {
            case ".c" -> List.of(BUILT.resolve("c").resolve(name).toString());
            case ".java" -> java(name);
            case ".quorl" -> java("com.vesma.quorl.cli.Main", "run", program.toString());
            default -> throw new AssertionError("no known way to run " + program);
        };
        Path folder = Files.createDirectory(temporary.resolve(name));
        Path out = temporary.resolve(name + ".out");
        Path err = temporary.resolve(name + ".err");
        Process process = new ProcessBuilder(command).directory(folder.toFile()).redirectOutput(out.toFile()).redirectError(err.toFile()).start();
        if (!process.waitFor(LIMIT_SECONDS, TimeUnit.SECONDS)) {
            process.destroyForcibly().waitFor();
            throw new AssertionError(name + " did not end; it printed:\n" + Files.readString(out) + Files.readString(err));
        }
        assertEquals("", Files.readString(err), "standard error of " + name);
        assertEquals(Files.readString(EXPECTED.resolve(name + ".txt")), Files.readString(out), "output of " + name);
        assertEquals(0, process.exitValue(), "exit code of " + name);
    }
}
