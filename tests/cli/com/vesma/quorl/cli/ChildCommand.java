package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.BufferedReader;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.TimeUnit;

/** The command in a process of its own; killed when the test ends. */
final class ChildCommand implements AutoCloseable {
    /** Seconds that anything may take. */
    static final long LIMIT = 60;

    /** Seconds after which it is killed. */
    private static final long LIFE = 5 * LIMIT;

    final Process process;
    final BufferedReader out;
    final Path err;

    ChildCommand(Path folder, String... arguments) throws IOException {
        this(folder, Map.of(), List.of(), List.of(arguments));
    }

    /** With the folder as its working folder, and with variables and options of the virtual machine. */
    ChildCommand(Path folder, Map<String, String> environment, List<String> options, List<String> arguments)
            throws IOException {
        List<String> command = new ArrayList<>(List.of(Path.of(System.getProperty("java.home"), "bin", "java").toString(),
                "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1", "-Xmx128m",
                "-Dcom.vesma.quorl.library=" + System.getProperty("com.vesma.quorl.library")));
        command.addAll(List.of("-cp", System.getProperty("java.class.path")));
        // The last of an option counts.
        command.addAll(options);
        command.add(Main.class.getName());
        command.addAll(arguments);
        err = Files.createTempFile(folder, "child", ".err");
        ProcessBuilder builder = new ProcessBuilder(command).directory(folder.toFile()).redirectError(err.toFile());
        builder.environment().putAll(environment);
        process = builder.start();
        // So that a test that waits for a line which does not come fails, and says so.
        CompletableFuture.delayedExecutor(LIFE, TimeUnit.SECONDS).execute(process::destroyForcibly);
        out = process.inputReader(StandardCharsets.UTF_8);
    }

    /** The exit code, when it ends. */
    int code() throws InterruptedException {
        assertTrue(process.waitFor(LIMIT, TimeUnit.SECONDS), () -> "it does not end: " + said());
        return process.exitValue();
    }

    /** What it wrote to standard error so far. */
    String said() {
        try {
            return Files.readString(err);
        } catch (IOException e) {
            return e.toString();
        }
    }

    /** Returns when it has written this to standard error. */
    void awaitSaid(String text) {
        long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(LIMIT);
        while (!said().contains(text)) {
            assertTrue(process.isAlive() && System.nanoTime() < end, this::said);
            Thread.onSpinWait();
        }
    }

    /** Ctrl-C. */
    void interrupt() throws IOException, InterruptedException {
        Process kill = new ProcessBuilder("kill", "-INT", Long.toString(process.pid())).start();
        assertTrue(kill.waitFor(LIMIT, TimeUnit.SECONDS) && kill.exitValue() == 0);
    }

    /** Returns when a process that was started there is gone. */
    static void awaitGone(String pid) {
        ProcessHandle.of(Long.parseLong(pid)).ifPresent(each -> each.onExit().orTimeout(LIMIT, TimeUnit.SECONDS).join());
    }

    /** A process that listens, and then answers one request on a subject of its own: so it is known to listen. */
    static ChildCommand listening(Path folder, String address, String ready, String line, String... options) throws Exception {
        List<String> arguments = new ArrayList<>(List.of("run", "--daemon", address, "-e", line, "-e",
                "reply " + ready + " --count 1 --timeout 60 --quiet"));
        arguments.addAll(List.of(options));
        ChildCommand child = new ChildCommand(folder, arguments.toArray(String[]::new));
        List<String> request = new ArrayList<>(List.of("request", ready, "--daemon", address, "--timeout", "1"));
        request.addAll(List.of(options));
        for (int asked = 0; Cli.run(request.toArray(String[]::new)).code() != 0; asked++) {
            assertTrue(child.process.isAlive() && asked < LIMIT, child::said);
        }
        return child;
    }

    /** A line that it prints. */
    String line() throws IOException {
        String line = out.readLine();
        assertNotNull(line, this::said);
        return line;
    }

    /** Returns when it is gone, with its files and connections. */
    @Override
    public void close() {
        process.destroyForcibly().onExit().orTimeout(LIMIT, TimeUnit.SECONDS).join();
    }
}
