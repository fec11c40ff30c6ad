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
import java.util.stream.Collectors;
import java.util.stream.Stream;
import javax.tools.JavaCompiler;
import javax.tools.ToolProvider;
import org.junit.jupiter.api.DynamicTest;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.TestFactory;
import org.junit.jupiter.api.io.TempDir;

/** Compiles and runs the Java program that the README and the guide begin with, compiles the fragments of the documents, follows the links
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

    /** What the fragments of a document use and do not make themselves: members of a class, and parameters of a method for each fragment. */
    private record Given(String members, List<String> parameters) {}

    private static final List<String> ALWAYS = List.of("QuorlTransport transport", "QuorlQueue queue");

    private static final Map<String, Given> GIVEN = Map.of(
            "docs/guide/certified.md", new Given("static void book(QuorlMsg order) {}",
                    List.of("QuorlCmTransport orders", "QuorlCmTransport billing", "QuorlMsg order", "Executor workers")),
            "docs/guide/distributed-queues.md", new Given("record Order(int number, String what) {} static void book(Order order) {} "
                    + "static void store(String subject, QuorlMsg task) {}",
                    List.of("QuorlCmQueueTransport crew", "Executor executor", "QuorlQueue health")),
            "docs/guide/listening.md", new Given("static void show(Object... what) {} static void process(QuorlMsg order) {} "
                    + "static void report() {} static class Store { void writeAll(List<QuorlMsg> messages) {} } static Store store;", List.of()),
            "docs/guide/requests.md", new Given("static void show(Object... what) {} static void answer(QuorlMsg question) {}",
                    List.of("QuorlMsg question")),
            "docs/guide/queues-and-dispatch.md", new Given("static void show(QuorlMsg message) {} static boolean running;",
                    List.of("QuorlQueue alarms", "QuorlQueue measurements")),
            "docs/guide/back-pressure.md", new Given("static void show(int n) {} static void spool(QuorlMsg message) {}",
                    List.of("QuorlMsg message", "QuorlListener listener", "Flow.Subscriber<QuorlMsg> subscriber")),
            "docs/guide/health.md", new Given("", List.of()),
            "docs/guide/messages.md", new Given("", List.of("QuorlMsg message")),
            "docs/reference/certified.md", new Given("static void book(QuorlMsg order) {}", List.of()));

    @TestFactory
    Stream<DynamicTest> theFragmentsCompile() {
        return GIVEN.keySet().stream().sorted().map(document -> DynamicTest.dynamicTest(document, () -> compileFragments(document)));
    }

    private void compileFragments(String document) throws Exception {
        Given given = GIVEN.get(document);
        StringBuilder source = new StringBuilder("import com.vesma.quorl.*;\nimport java.nio.file.*;\nimport java.time.*;\nimport java.util.*;\n"
                + "import java.util.concurrent.*;\nimport java.util.stream.*;\nclass Fragments {\n" + given.members + "\n");
        List<String> fragments = fragments(document).stream().filter(fragment -> !isC(fragment)).toList();
        assertFalse(fragments.isEmpty(), document + " has no fragments");
        for (int i = 0; i < fragments.size(); i++) {
            String fragment = fragments.get(i);
            String parameters = Stream.concat(ALWAYS.stream(), given.parameters.stream()).filter(each -> !makes(fragment, each))
                    .collect(Collectors.joining(", "));
            source.append("static void fragment").append(i).append('(').append(parameters).append(") throws Exception {\n").append(fragment)
                    .append("}\n");
        }
        Path folder = Files.createTempDirectory(temporary, "fragments");
        compile(Files.writeString(folder.resolve("Fragments.java"), source.append("}\n")), folder);
    }

    /** Whether a fragment declares a variable or a lambda's parameter of that name. */
    private static boolean makes(String fragment, String parameter) {
        String name = parameter.substring(parameter.lastIndexOf(' ') + 1);
        return Pattern.compile("\\w[>\\]]? " + name + " [=:]|\\w, " + name + "\\) ->|\\b" + name + " ->").matcher(fragment).find();
    }

    /** Functions of the interface begin with a small letter. */
    private static boolean isC(String fragment) {
        return FUNCTION.matcher(fragment).find();
    }

    /** What the fragments in C use. One that begins with "static" is a function, others are statements, which may use it. */
    private static final String C_GIVEN = """
            #include <quorl/quorlcmq.h>
            #include <quorl/quorlft.h>
            static volatile int running;
            static int resize(quorlMsg task) { return task != 0; }
            static void onGone(quorlcmTransport gone, void* closure) { (void)gone, (void)closure; }
            static void* onSubject(quorlcmTransport of, const char* subject, quorlMsg message, void* closure) {
                (void)of, (void)subject, (void)message;
                return closure;
            }
            static void use(void) { (void)resize, (void)onGone, (void)onSubject, (void)running; }
            """;

    @TestFactory
    Stream<DynamicTest> theFragmentsInCCompile() throws IOException {
        List<DynamicTest> tests = new ArrayList<>();
        for (Path document : pages()) {
            String name = ROOT.relativize(document).toString();
            List<String> fragments = fragments(name).stream().filter(DocumentsTest::isC).toList();
            if (!fragments.isEmpty()) tests.add(DynamicTest.dynamicTest(name, () -> compileC(fragments)));
        }
        assertTrue(tests.size() > 3, "there are " + tests.size());
        return tests.stream();
    }

    private void compileC(List<String> fragments) throws Exception {
        StringBuilder source = new StringBuilder(C_GIVEN);
        int n = 0;
        for (String fragment : fragments) {
            if (fragment.startsWith("    static ")) {
                source.append(fragment);
                continue;
            }
            String given = Stream.of("quorlTransport transport", "quorlQueue queue", "quorlMsg message")
                    .filter(each -> !fragment.contains(each + ";")).collect(Collectors.joining(", "));
            source.append("void fragment").append(n).append('(').append(given).append(");\nvoid fragment").append(n++).append('(').append(given)
                    .append(") {\nuse();\n").append(fragment).append("}\n");
        }
        Path folder = Files.createTempDirectory(temporary, "c");
        Path file = Files.writeString(folder.resolve("fragments.c"), source);
        Path out = folder.resolve("out");
        Process compiler = new ProcessBuilder("cc", "-std=c11", "-fsyntax-only", "-Wall", "-Wextra", "-Wno-unused-parameter", "-Werror", "-I",
                ROOT.resolve("include").toString(), file.toString()).redirectErrorStream(true).redirectOutput(out.toFile()).start();
        assertTrue(compiler.waitFor(LIMIT_SECONDS, TimeUnit.SECONDS));
        assertEquals(0, compiler.exitValue(), Files.readString(out) + source);
    }

    /** The pages of the guide and of the reference. */
    private static List<Path> pages() throws IOException {
        try (Stream<Path> guide = Files.list(ROOT.resolve("docs/guide"));
                Stream<Path> reference = Files.list(ROOT.resolve("docs/reference"))) {
            return Stream.concat(guide, reference).filter(file -> file.toString().endsWith(".md")).sorted().toList();
        }
    }

    /** The blocks of a document that hold statements. */
    private static List<String> fragments(String document) throws IOException {
        List<String> fragments = new ArrayList<>();
        StringBuilder block = new StringBuilder();
        for (String line : Files.readAllLines(ROOT.resolve(document))) {
            if (line.startsWith("    ") || (line.isEmpty() && !block.isEmpty())) {
                block.append(line).append('\n');
                continue;
            }
            add(fragments, block);
        }
        add(fragments, block);
        return fragments;
    }

    private static void add(List<String> fragments, StringBuilder block) {
        // A comment may stand behind the last statement.
        String code = block.toString().replaceAll("//[^\n]*|/\\*[^*]*\\*/", "").stripTrailing();
        if (code.matches("(?s).*[;}]") && !code.contains("$ ") && !code.contains("{number=") && !code.contains(FIRST_LINE)) {
            fragments.add(block.toString());
        }
        block.setLength(0);
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
        return pages().stream().map(document -> DynamicTest.dynamicTest(ROOT.relativize(document).toString(), () -> {
            Matcher function = FUNCTION.matcher(Files.readString(document));
            while (function.find()) {
                assertTrue(headers.indexOf(function.group() + "(") >= 0, function.group() + " is in no header");
            }
        }));
    }
}
