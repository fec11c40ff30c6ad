package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.PrintWriter;
import java.lang.ProcessBuilder.Redirect;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;

/**
 * A program that runs while a member is active. It has a process group of its own, so that it ends with all that it has started.
 *
 * <p>However this process ends, the program does too: the system kills it when the thread ends that has started it; and a shell that
 * reads from this process finds the end of its input then, and kills the whole group. The shell is there before the program, which may
 * start others at once.
 */
final class ActiveProgram {
    private static final Path SETSID = Path.of("/usr/bin/setsid");
    private static final Path SETPRIV = Path.of("/usr/bin/setpriv");

    private final List<String> command;
    private final String group;
    private final Duration grace;
    private final PrintWriter err;
    private final Runnable ended;

    /** Null when none runs that this has not ended. */
    private Process process;

    /** The shell that waits for this process's end; null when there is none. */
    private Process guard;

    /** ended: run when the program has ended, on any thread. */
    ActiveProgram(List<String> command, String group, Duration grace, PrintWriter err, Runnable ended) {
        this.command = command;
        this.group = group;
        this.grace = grace;
        this.err = err;
        this.ended = ended;
    }

    /** Starts it. The calling thread must live for as long as the program is to. */
    void start(long token) {
        List<String> words = new ArrayList<>();
        // A terminal's Ctrl-C is for this process, which then ends the program.
        if (Files.isExecutable(SETSID)) words.add(SETSID.toString());
        if (Files.isExecutable(SETPRIV)) words.addAll(List.of(SETPRIV.toString(), "--pdeathsig", "KILL", "--"));
        words.addAll(command);
        ProcessBuilder builder = new ProcessBuilder(words).redirectInput(Redirect.from(Path.of("/dev/null").toFile()))
                .redirectOutput(Redirect.INHERIT).redirectError(Redirect.INHERIT);
        builder.environment().put("QUORL_FT_TOKEN", Long.toUnsignedString(token));
        builder.environment().put("QUORL_FT_GROUP", group);
        guard = guard();
        try {
            process = builder.start();
        } catch (IOException e) {
            endGuard();
            throw new Failure("cannot run " + Texts.quoted(command.get(0)) + ": " + e.getMessage());
        }
        tellGuard();
        process.onExit().thenRun(ended);
    }

    /** Null when there is none: then the system ends the program alone, and not what it has started. */
    private static Process guard() {
        if (!Files.isExecutable(SETSID)) return null;
        try {
            return new ProcessBuilder(SETSID.toString(), "/bin/sh", "-c", "read -r group && { read -r end; kill -s KILL -- \"-$group\"; }")
                    .redirectOutput(Redirect.DISCARD).redirectError(Redirect.DISCARD).start();
        } catch (IOException e) {
            return null;
        }
    }

    private void tellGuard() {
        if (guard == null) return;
        try {
            guard.getOutputStream().write((process.pid() + "\n").getBytes(StandardCharsets.US_ASCII));
            guard.getOutputStream().flush();
        } catch (IOException e) {
            // Somebody has killed the shell; it is as if there had been none.
            endGuard();
        }
    }

    private void endGuard() {
        if (guard == null) return;
        guard.destroyForcibly();
        exited(guard);
        guard = null;
    }

    boolean endedByItself() {
        return process != null && !process.isAlive();
    }

    /** The exit code of one that has ended by itself; 128 and the signal's number when a signal ended it. */
    int code() {
        return process.exitValue();
    }

    /** Ends it: SIGTERM, and SIGKILL when the grace is over. Returns when it has ended, whatever interrupts this thread. */
    void end() {
        if (process == null) return;
        boolean interrupted = false;
        long deadline = System.nanoTime() + grace.toNanos();
        signal("TERM");
        boolean killed = false;
        while (process.isAlive()) {
            long left = deadline - System.nanoTime();
            try {
                if (killed) {
                    process.waitFor();
                } else if (left <= 0 || !process.waitFor(left, TimeUnit.NANOSECONDS)) {
                    killed = true;
                    synchronized (err) {
                        err.println("quorl: " + Texts.quoted(command.get(0)) + " has not ended within " + Texts.number(grace.toNanos() / 1e9)
                                + " s of SIGTERM, and is killed");
                        err.flush();
                    }
                    signal("KILL");
                }
            } catch (InterruptedException e) {
                interrupted = true;
            }
        }
        // What it has started and left.
        signal("KILL");
        endGuard();
        process = null;
        if (interrupted) Thread.currentThread().interrupt();
    }

    /** To the whole process group. Java signals single processes alone. */
    private void signal(String name) {
        boolean done = false;
        if (Files.isExecutable(SETSID)) {
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

    private static int exited(Process brief) {
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
