import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Stream;
import javax.tools.JavaCompiler;
import javax.tools.ToolProvider;
import org.junit.jupiter.api.DynamicTest;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.TestFactory;
import org.junit.jupiter.api.io.TempDir;

/** Compiles and runs the Java program that the README and the guide begin with, compiles the fragments of a guide, follows the links
 * of the documents, and looks the functions that they name up in the headers. */
class DocumentsTest {
    private static final Path ROOT = Path.of(System.getProperty("examples.sources")).getParent();
    private static final String FIRST_LINE = "import com.vesma.quorl.*;";
    private static final Pattern LINK = Pattern.compile("\\]\\(([^)#]+)(#[^)]*)?\\)");
    // Families such as quorlMsg_Add<Type>Ex are no names.
    private static final Pattern FUNCTION = Pattern.compile("\\bquorl[A-Za-z]*_[A-Z][A-Za-z0-9]*\\b(?!<)");
    private static final int LIMIT_SECONDS = 60;

    @TempDir
    Path temporary;

    @TestFactory
    Stream<DynamicTest> theFirstProgramRuns() {
        return Stream.of("README.md", "docs/guide/first-program.md")
                .map(document -> DynamicTest.dynamicTest(document, () -> runFirstProgram(document)));
    }

    private void runFirstProgram(String document) throws Exception {
        Path folder = Files.createTempDirectory(temporary, "program");
        Path source = folder.resolve("Greeting.java");
        Files.write(source, program(document));
        String path = System.getProperty("examples.classpath");
        compile(source, folder);

        Path out = folder.resolve("out");
        Process process = new ProcessBuilder(Path.of(System.getProperty("java.home"), "bin", "java").toString(),
                "-Dcom.vesma.quorl.library=" + System.getProperty("com.vesma.quorl.library"), "-cp", path + ":" + folder,
                "Greeting").redirectErrorStream(true).redirectOutput(out.toFile()).start();
        if (!process.waitFor(LIMIT_SECONDS, TimeUnit.SECONDS)) {
            process.destroyForcibly().waitFor();
            throw new AssertionError("the program did not end; it printed:\n" + Files.readString(out));
        }
        assertEquals("greeting.morning Hello\n", Files.readString(out));
        assertEquals(0, process.exitValue());
    }

    /** What the fragments of a document are pasted into: a method each, with what they use. */
    private static final Map<String, String> AROUND = Map.of("docs/guide/certified.md", """
            static void book(QuorlMsg order) {}
            static void fragment%d(QuorlTransport transport, QuorlQueue queue, QuorlCmTransport orders, QuorlCmTransport billing,
                    QuorlMsg order, Executor workers) throws Exception {
            """);

    @TestFactory
    Stream<DynamicTest> theFragmentsCompile() {
        return AROUND.keySet().stream().map(document -> DynamicTest.dynamicTest(document, () -> compileFragments(document)));
    }

    private void compileFragments(String document) throws Exception {
        String around = AROUND.get(document);
        int end = around.indexOf("static void fragment");
        StringBuilder source = new StringBuilder("import com.vesma.quorl.*;\nimport java.nio.file.Path;\nimport java.time.Duration;\n"
                + "import java.util.concurrent.Executor;\nclass Fragments {\n" + around.substring(0, end));
        List<String> fragments = fragments(document);
        assertTrue(fragments.size() > 3, document + " has " + fragments.size() + " fragments");
        for (int i = 0; i < fragments.size(); i++) {
            // What a fragment opens itself hides what it is given.
            String head = around.substring(end).formatted(i);
            for (String opened : List.of("orders", "billing")) {
                if (fragments.get(i).contains("QuorlCmTransport " + opened + " =")) head = head.replace("QuorlCmTransport " + opened + ",", "");
            }
            if (fragments.get(i).matches("(?s).*(QuorlMsg order =|\\(l, order\\)).*")) head = head.replace("QuorlMsg order,", "");
            source.append(head).append(fragments.get(i)).append("}\n");
        }
        Path folder = Files.createTempDirectory(temporary, "fragments");
        compile(Files.writeString(folder.resolve("Fragments.java"), source.append("}\n")), folder);
    }

    /** The blocks of a document that hold Java statements. */
    private static List<String> fragments(String document) throws IOException {
        List<String> fragments = new ArrayList<>();
        StringBuilder block = new StringBuilder();
        for (String line : Files.readAllLines(ROOT.resolve(document))) {
            if (line.startsWith("    ")) {
                block.append(line).append('\n');
                continue;
            }
            if (block.toString().stripTrailing().matches("(?s).*[;}]")  && !block.toString().contains("$ ") && block.indexOf("{number=") < 0) {
                fragments.add(block.toString());
            }
            block.setLength(0);
        }
        return fragments;
    }

    private static void compile(Path source, Path folder) {
        JavaCompiler compiler = ToolProvider.getSystemJavaCompiler();
        ByteArrayOutputStream complaints = new ByteArrayOutputStream();
        int compiled = compiler.run(null, complaints, complaints, "-encoding", "UTF-8", "-cp", System.getProperty("examples.classpath"), "-d",
                folder.toString(), source.toString());
        assertEquals(0, compiled, complaints.toString(StandardCharsets.UTF_8));
    }

    /** The lines of the program, without the document's indentation. */
    private static List<String> program(String document) throws IOException {
        List<String> program = new ArrayList<>();
        String indentation = null;
        for (String line : Files.readAllLines(ROOT.resolve(document))) {
            if (indentation == null && line.strip().equals(FIRST_LINE)) {
                indentation = line.substring(0, line.indexOf(FIRST_LINE));
            }
            if (indentation == null) continue;
            if (line.startsWith("```") || !(line.isBlank() || line.startsWith(indentation))) break;
            program.add(line.isBlank() ? "" : line.substring(indentation.length()));
        }
        assertFalse(program.isEmpty(), document + " has no Java program");
        return program;
    }

    @TestFactory
    Stream<DynamicTest> everyLinkLeadsSomewhere() throws IOException {
        List<Path> documents = new ArrayList<>(List.of(ROOT.resolve("README.md"), ROOT.resolve("CONTRIBUTING.md")));
        try (Stream<Path> files = Files.walk(ROOT.resolve("docs"))) {
            files.filter(file -> file.toString().endsWith(".md")).sorted().forEach(documents::add);
        }
        return documents.stream().map(document -> DynamicTest.dynamicTest(ROOT.relativize(document).toString(), () -> {
            Matcher link = LINK.matcher(Files.readString(document));
            while (link.find()) {
                if (link.group(1).contains("://")) continue;
                Path target = document.resolveSibling(link.group(1));
                assertTrue(Files.exists(target), "a link to " + link.group(1));
                if (link.group(2) != null) {
                    assertTrue(headings(target).contains(link.group(2).substring(1)), "a link to " + link.group(1) + link.group(2));
                }
            }
        }));
    }

    /** The headings of a document as links name them. */
    private static List<String> headings(Path document) throws IOException {
        return Files.readAllLines(document).stream().filter(line -> line.matches("#+ .*"))
                .map(line -> line.replaceFirst("^#+ ", "").toLowerCase(Locale.ROOT).replaceAll("[^a-z0-9 -]", "").replace(' ', '-'))
                .toList();
    }

    /** A block that starts something in the background fails when it is pasted: what follows does not wait for it. */
    @Test
    void whatServesHasATerminalOfItsOwn() throws IOException {
        List<Path> documents = new ArrayList<>(List.of(ROOT.resolve("README.md")));
        try (Stream<Path> files = Files.list(ROOT.resolve("docs/guide"))) {
            files.filter(file -> file.toString().endsWith(".md")).sorted().forEach(documents::add);
        }
        for (Path document : documents) {
            for (String line : Files.readAllLines(document)) assertFalse(line.matches(" {4}.*[^&]&"), document + ": " + line);
        }
    }

    @TestFactory
    Stream<DynamicTest> everyFunctionNamedIsDeclared() throws IOException {
        StringBuilder headers = new StringBuilder();
        try (Stream<Path> files = Files.list(ROOT.resolve("include/quorl"))) {
            for (Path header : files.toList()) headers.append(Files.readString(header));
        }
        List<Path> documents;
        try (Stream<Path> guide = Files.list(ROOT.resolve("docs/guide"));
                Stream<Path> reference = Files.list(ROOT.resolve("docs/reference"))) {
            documents = Stream.concat(guide, reference).filter(file -> file.toString().endsWith(".md")).sorted().toList();
        }
        return documents.stream().map(document -> DynamicTest.dynamicTest(ROOT.relativize(document).toString(), () -> {
            Matcher function = FUNCTION.matcher(Files.readString(document));
            while (function.find()) {
                assertTrue(headers.indexOf(function.group() + "(") >= 0, function.group() + " is in no header");
            }
        }));
    }
}
