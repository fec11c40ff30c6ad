package com.vesma.quorl;

import java.io.File;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;

/** Another virtual machine, for what can happen once in a process. */
final class ChildProcess {
    final int exit;
    final String output;

    private ChildProcess(int exit, String output) {
        this.exit = exit;
        this.output = output;
    }

    /** Runs main of a class with options of the machine; "-cp" is this one's. Ends it when it takes too long. */
    static ChildProcess run(Class<?> main, List<String> options, String... arguments) throws Exception {
        Path out = Files.createTempFile("quorl-child", ".out");
        try {
            Process process = builder(main, options, arguments).redirectOutput(out.toFile()).start();
            boolean ended = process.waitFor(OpenLibrary.LIMIT.toSeconds() * 2, TimeUnit.SECONDS);
            if (!ended) {
                process.destroyForcibly().waitFor();
            }
            String text = Files.readString(out, StandardCharsets.UTF_8);
            if (!ended) {
                throw new AssertionError("the child did not end: " + text);
            }
            return new ChildProcess(process.exitValue(), text);
        } finally {
            Files.delete(out);
        }
    }

    /** One to be started, with what it says on its output. */
    static ProcessBuilder builder(Class<?> main, List<String> options, String... arguments) {
        List<String> command = new ArrayList<>();
        command.add(System.getProperty("java.home") + File.separator + "bin" + File.separator + "java");
        command.add("-Xcheck:jni");
        command.add("-Xmx128m");
        command.addAll(options);
        if (!options.contains("-cp")) {
            command.addAll(List.of("-cp", System.getProperty("java.class.path")));
        }
        command.add(main.getName());
        command.addAll(List.of(arguments));
        return new ProcessBuilder(command).redirectErrorStream(true);
    }

    static List<String> withLibrary() {
        return List.of("-Dcom.vesma.quorl.library=" + System.getProperty("com.vesma.quorl.library"));
    }
}
