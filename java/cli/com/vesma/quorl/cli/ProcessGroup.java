package com.vesma.quorl.cli;

import java.io.IOException;
import java.lang.ProcessBuilder.Redirect;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/**
 * How a program is run in a process group of its own, so that it is signalled with all that it has started, and a terminal's Ctrl-C is
 * for the command alone. The system kills it when the thread ends that has started it.
 */
final class ProcessGroup {
    private static final Path SETSID = Path.of("/usr/bin/setsid");
    private static final Path SETPRIV = Path.of("/usr/bin/setpriv");

    private ProcessGroup() {}

    /** Without, programs have the command's group, and are signalled alone. */
    static boolean isPossible() {
        return Files.isExecutable(SETSID);
    }

    /** The words that run a program so. The calling thread must live for as long as the program is to. */
    static List<String> running(List<String> program) {
        List<String> words = new ArrayList<>();
        if (isPossible()) words.add(SETSID.toString());
        if (Files.isExecutable(SETPRIV)) words.addAll(List.of(SETPRIV.toString(), "--pdeathsig", "KILL", "--"));
        words.addAll(program);
        return words;
    }

    /** A shell that reads from this process, with a group of its own; null when there is none. */
    static Process shell(String script, String... arguments) {
        if (!isPossible()) return null;
        List<String> words = new ArrayList<>(List.of(SETSID.toString(), "/bin/sh", "-c", script));
        words.addAll(List.of(arguments));
        try {
            return new ProcessBuilder(words).redirectOutput(Redirect.DISCARD).redirectError(Redirect.DISCARD).start();
        } catch (IOException e) {
            return null;
        }
    }

    /** To the program and all that it has started. Java signals single processes alone. */
    static void signal(Process process, String name) {
        boolean done = false;
        if (isPossible()) {
            try {
                Process kill = new ProcessBuilder("/bin/sh", "-c", "kill -s \"$0\" -- \"-$1\"", name, Long.toString(process.pid()))
                        .redirectErrorStream(true).redirectOutput(Redirect.DISCARD).start();
                done = exited(kill) == 0;
            } catch (IOException e) {
                done = false;
            }
        }
        if (done || !process.isAlive()) return;
        if (name.equals("KILL")) {
            process.destroyForcibly();
        } else {
            process.destroy();
        }
    }

    /** The exit code of a process that ends soon, whatever interrupts this thread. */
    static int exited(Process brief) {
        boolean interrupted = false;
        try {
            for (;;) {
                try {
                    return brief.waitFor();
                } catch (InterruptedException e) {
                    interrupted = true;
                }
            }
        } finally {
            if (interrupted) Thread.currentThread().interrupt();
        }
    }
}
