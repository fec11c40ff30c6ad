package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlMsgField;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.OutputStream;
import java.net.InetAddress;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.function.Consumer;
import java.util.stream.Collectors;

/**
 * A program that does a task: it gets the message's fields as environment variables and the whole message as JSON on its standard
 * input, and has done the task when it ends with 0.
 */
final class TaskProgram {
    /** In front of the names of fields, so that none of them is one that the system looks at. */
    static final String PREFIX = "TASK_";

    /** Characters of a value; longer ones are in the JSON alone, since the system limits what a program can be started with. */
    static final int LONGEST = 32_000;

    /** Bytes of all variables of fields; what goes beyond is in the JSON alone. Linux takes 128 KiB from everybody, and usually 2 MiB. */
    static final int ROOM = 100_000;

    /** Seconds between SIGTERM and SIGKILL. */
    static final double LAST_SECONDS = 2;

    /** Kills the groups of the last line that it was told when this process is gone, with all that programs have started. */
    private static final String GUARD = "while read -r line; do groups=$line; done; for group in $groups; do kill -s KILL -- \"-$group\"; done";

    private final List<String> command;

    /** Those that run. Guarded by this, as all below. */
    private final Set<Process> running = new LinkedHashSet<>();

    /** Null before the first program, and where there is none. */
    private Process guard;

    /** Whether those that run were told to end. */
    private boolean ending;

    TaskProgram(List<String> command) {
        this.command = List.copyOf(command);
    }

    private synchronized void begun(Process process) {
        running.add(process);
        if (guard == null) guard = ProcessGroup.shell(GUARD);
        tellGuard();
        // One that began behind the signals.
        if (ending) ProcessGroup.signal(process, "KILL");
    }

    private synchronized void gone(Process process) {
        running.remove(process);
        tellGuard();
        notifyAll();
    }

    private void tellGuard() {
        if (guard == null) return;
        String groups = running.stream().map(process -> Long.toString(process.pid())).collect(Collectors.joining(" ")) + "\n";
        try {
            OutputStream input = guard.getOutputStream();
            input.write(groups.getBytes(StandardCharsets.US_ASCII));
            input.flush();
        } catch (IOException e) {
            // Somebody has killed it; the system still ends the programs, without what they have started.
        }
    }

    /** How many run. */
    synchronized int running() {
        return running.size();
    }

    /** Whether those that ran to the last were ended from here. */
    synchronized boolean isEnding() {
        return ending;
    }

    /** Waits for those that run; those that do so for longer than the grace are ended. Returns when none runs, whatever interrupts. */
    synchronized void end(double grace) {
        boolean interrupted = await(grace);
        ending = true;
        if (!running.isEmpty()) {
            running.forEach(process -> ProcessGroup.signal(process, "TERM"));
            interrupted |= await(LAST_SECONDS);
            running.forEach(process -> ProcessGroup.signal(process, "KILL"));
            interrupted |= await(Double.POSITIVE_INFINITY);
        }
        if (guard != null) {
            guard.destroyForcibly();
            ProcessGroup.exited(guard);
            guard = null;
        }
        if (interrupted) Thread.currentThread().interrupt();
    }

    /** Until none runs, or so many seconds have passed; whether this thread was interrupted meanwhile. */
    private boolean await(double seconds) {
        boolean interrupted = false;
        long limit = (long) Math.min(seconds * 1e9, Long.MAX_VALUE / 2);
        long begin = System.nanoTime();
        while (!running.isEmpty()) {
            long left = limit - (System.nanoTime() - begin);
            if (left <= 0) break;
            try {
                wait(left / 1_000_000 + 1);
            } catch (InterruptedException e) {
                interrupted = true;
            }
        }
        return interrupted;
    }

    /**
     * Does a task.
     *
     * @param lines what is done with each line that the program prints
     * @return the program's exit code
     */
    int run(QuorlMsg task, Consumer<String> lines) throws InterruptedException {
        ProcessBuilder builder = new ProcessBuilder(ProcessGroup.running(command)).redirectError(ProcessBuilder.Redirect.INHERIT);
        variables(task, builder.environment());
        Process process;
        try {
            process = builder.start();
        } catch (IOException e) {
            throw new Failure("cannot start " + Texts.quoted(command.get(0)) + ": " + e.getMessage());
        }
        begun(process);
        try {
            write(process, Messages.line(task, true) + "\n");
            try (BufferedReader reader = new BufferedReader(new InputStreamReader(process.getInputStream(), StandardCharsets.UTF_8))) {
                for (String line = reader.readLine(); line != null; line = reader.readLine()) lines.accept(line);
            } catch (IOException e) {
                // The program has ended, and says by its code how.
            }
            return process.waitFor();
        } finally {
            // Where its output is not taken any more.
            if (process.isAlive()) ProcessGroup.signal(process, "KILL");
            gone(process);
        }
    }

    /** From another thread, since a program may print before it reads, and need not read at all. */
    private static void write(Process process, String json) {
        byte[] bytes = json.getBytes(StandardCharsets.UTF_8);
        Thread writer = new Thread(() -> {
            try (OutputStream input = process.getOutputStream()) {
                input.write(bytes);
            } catch (IOException e) {
                // It does not want it.
            }
        }, "quorl-task-input");
        writer.setDaemon(true);
        writer.start();
    }

    /** TASK_SUBJECT, TASK_REPLY, and TASK_FIELD_<name> for each field that has one value; of several of one name, the first. */
    static void variables(QuorlMsg task, Map<String, String> to) {
        to.keySet().removeIf(name -> name.startsWith(PREFIX));
        to.put(PREFIX + "SUBJECT", task.getSendSubject());
        if (task.getReplySubject() != null) to.put(PREFIX + "REPLY", task.getReplySubject());
        int left = ROOM;
        for (QuorlMsgField field : task) {
            if (field.getName() == null || field.getName().isEmpty()) continue;
            String value = textOf(field);
            if (value == null || value.length() > LONGEST || value.indexOf('\0') >= 0) continue;
            String variable = variable(field.getName());
            // Each has a character between name and value, one behind them, and a pointer.
            int size = variable.length() + value.getBytes(StandardCharsets.UTF_8).length + 10;
            if (size <= left && to.putIfAbsent(variable, value) == null) left -= size;
        }
    }

    /** A name of a variable has letters, digits and underlines; other characters become underlines. */
    static String variable(String field) {
        return PREFIX + "FIELD_" + field.replaceAll("[^A-Za-z0-9_]", "_");
    }

    /** Null for arrays, messages and bytes. */
    private static String textOf(QuorlMsgField field) {
        Object value = field.getValue();
        if (value instanceof Long number && field.getType() == QuorlMsgField.U64) return Long.toUnsignedString(number);
        if (value instanceof InetAddress address) return address.getHostAddress();
        boolean scalar = value instanceof Number || value instanceof String || value instanceof Boolean || value instanceof Instant;
        return scalar ? value.toString() : null;
    }
}
