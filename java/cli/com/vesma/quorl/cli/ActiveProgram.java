package com.vesma.quorl.cli;

import java.io.IOException;
import java.io.PrintWriter;
import java.lang.ProcessBuilder.Redirect;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.time.Duration;
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
    private final List<String> command;
    private final String group;
    private final Duration grace;
    private final PrintWriter err;
    private final Runnable ended;

    /** Null when none runs that this has not ended. */
    private Process process;

    /** The shell that waits for this process's end; null when there is none: then the system ends the program alone. */
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
        ProcessBuilder builder = new ProcessBuilder(ProcessGroup.running(command))
                .redirectInput(Redirect.from(Path.of("/dev/null").toFile()))
                .redirectOutput(Redirect.INHERIT).redirectError(Redirect.INHERIT);
        builder.environment().put("QUORL_FT_TOKEN", Long.toUnsignedString(token));
        builder.environment().put("QUORL_FT_GROUP", group);
        // Null when there is none: then the system ends the program alone, and not what it has started.
        guard = ProcessGroup.shell("read -r group && { read -r end; kill -s KILL -- \"-$group\"; }");
        try {
            process = builder.start();
        } catch (IOException e) {
            endGuard();
            throw new Failure("cannot run " + Texts.quoted(command.get(0)) + ": " + e.getMessage());
        }
        tellGuard();
        process.onExit().thenRun(ended);
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
        ProcessGroup.exited(guard);
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
        ProcessGroup.signal(process, "TERM");
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
                    ProcessGroup.signal(process, "KILL");
                }
            } catch (InterruptedException e) {
                interrupted = true;
            }
        }
        // What it has started and left.
        ProcessGroup.signal(process, "KILL");
        endGuard();
        process = null;
        if (interrupted) Thread.currentThread().interrupt();
    }
}
