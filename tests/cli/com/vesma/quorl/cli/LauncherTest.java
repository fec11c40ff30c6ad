package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The command as it is installed: text is UTF-8 in arguments, files and output, whatever the locale. */
class LauncherTest {
    @TempDir
    static Path folder;

    @BeforeAll
    static void install() throws Exception {
        run(Map.of(), "cmake --install \"$1\" --prefix prefix", System.getProperty("cli.build"));
    }

    /** What a shell script prints. The script is a file, so that its letters do not pass through this process's locale. */
    private static String run(Map<String, String> environment, String script, String argument) throws Exception {
        Path file = Files.writeString(folder.resolve("script"), "set -e\n" + script + "\n", StandardCharsets.UTF_8);
        Path out = folder.resolve("out");
        ProcessBuilder builder = new ProcessBuilder("sh", file.toString(), argument).directory(folder.toFile())
                .redirectErrorStream(true).redirectOutput(out.toFile());
        String path = System.getenv("PATH");
        builder.environment().clear();
        builder.environment().put("PATH", path);
        builder.environment().putAll(environment);
        Process process = builder.start();
        assertTrue(process.waitFor(ChildCommand.LIMIT, TimeUnit.SECONDS));
        // It may hold anything when something is wrong.
        String said = new String(Files.readAllBytes(out), StandardCharsets.UTF_8);
        assertEquals(0, process.exitValue(), said);
        return said;
    }

    @Test
    void textIsUtf8InEveryLocale() throws Exception {
        String script = """
                printf 'text:string\\nz\u00e4hlt\\n' > 'gr\u00f6\u00dfe.csv'
                prefix/bin/quorl run -e "listen 'gr\u00f6\u00dfe.>' --count 2" \\
                    -e "send gr\u00f6\u00dfe.\u00e4 text:string=\u201e\u03b1\u201c" -e "send gr\u00f6\u00dfe.b --csv gr\u00f6\u00dfe.csv"
                printf "listen '\u00e4'\\nsend \u00e4 n:i32=1\\n" | prefix/bin/quorl run
                """;
        String expected = "gr\u00f6\u00dfe.\u00e4 {text=\"\u201e\u03b1\u201c\"}\ngr\u00f6\u00dfe.b {text=\"z\u00e4hlt\"}\n\u00e4 {n=1}\n";
        for (Map<String, String> environment : List.of(Map.<String, String>of(), Map.of("LC_ALL", "C"), Map.of("LANG", "POSIX"),
                Map.of("LC_ALL", "xx_YY.UTF-8"), Map.of("LC_CTYPE", "de_DE.ISO-8859-1", "LANG", "C.UTF-8"))) {
            assertEquals(expected, run(environment, script, ""), environment::toString);
        }
    }
}
