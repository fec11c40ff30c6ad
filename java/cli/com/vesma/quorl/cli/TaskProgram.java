package com.vesma.quorl.cli;

import com.vesma.quorl.QuorlMsg;
import com.vesma.quorl.QuorlMsgField;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.OutputStream;
import java.net.InetAddress;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Instant;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;

/**
 * A program that does a task: it gets the message's fields as environment variables and the whole message as JSON on its standard
 * input, and has done the task when it ends with 0. Each has a process group of its own, which is killed when this process ends, however
 * it does.
 */
final class TaskProgram implements AutoCloseable {
    /** In front of the names of fields, so that none of them is one that the system looks at. */
    static final String PREFIX = "TASK_";

    /** Characters of a value; longer ones are in the JSON alone, since the system limits what a program can be started with. */
    static final int LONGEST = 32_000;

    /** Bytes of all variables of fields; what goes beyond is in the JSON alone. Linux takes 128 KiB from everybody, and usually 2 MiB. */
    static final int ROOM = 100_000;

    private static final Path SETSID = Path.of("/usr/bin/setsid");

    /** Reads which groups there are, and when its input ends kills those that are left. */
    private static final String GUARD = "all=' '; while read -r what group; do case $what in "
            + "+) all=\"$all$group \";; *) all=\"${all%%\" $group \"*} ${all#*\" $group \"}\";; esac; done; "
            + "for group in $all; do kill -s KILL -- \"-$group\"; done";

    private final List<String> command;

    /** Null when none was needed yet, or there can be none. Guarded by this, as the next. */
    private Process guard;
    private boolean ended;

    TaskProgram(List<String> command) {
        this.command = List.copyOf(command);
    }

    /**
     * Does a task.
     *
     * @param lines what is done with each line that the program prints
     * @return the program's exit code
     */
    int run(QuorlMsg task, Consumer<String> lines) throws InterruptedException {
        List<String> words = new ArrayList<>();
        // A terminal's Ctrl-C is for this process, which lets the programs end in their time.
        if (Files.isExecutable(SETSID)) words.add(SETSID.toString());
        words.addAll(command);
        ProcessBuilder builder = new ProcessBuilder(words).redirectError(ProcessBuilder.Redirect.INHERIT);
        variables(task, builder.environment());
        Process process = start(builder);
        try {
            write(process, Messages.line(task, true) + "\n");
            try (BufferedReader reader = new BufferedReader(new InputStreamReader(process.getInputStream(), StandardCharsets.UTF_8))) {
                for (String line = reader.readLine(); line != null; line = reader.readLine()) lines.accept(line);
            } catch (IOException e) {
                // The program has ended, and says by its code how.
            }
            int code = process.waitFor();
            tell('-', process);
            return code;
        } finally {
            process.destroyForcibly();
        }
    }

    private synchronized Process start(ProcessBuilder builder) {
        if (ended) throw new Failure("the command ends, and starts nothing more");
        try {
            ProgramFile.check(command.get(0));
            if (guard == null && Files.isExecutable(SETSID)) {
                guard = new ProcessBuilder(SETSID.toString(), "/bin/sh", "-c", GUARD).redirectOutput(ProcessBuilder.Redirect.DISCARD)
                        .redirectError(ProcessBuilder.Redirect.DISCARD).start();
            }
            Process process = builder.start();
            tell('+', process);
            return process;
        } catch (IOException e) {
            throw new Failure("cannot start " + Texts.quoted(command.get(0)) + ": " + e.getMessage());
        }
    }

    private synchronized void tell(char what, Process process) {
        if (guard == null) return;
        try {
            guard.getOutputStream().write((what + " " + process.pid() + "\n").getBytes(StandardCharsets.US_ASCII));
            guard.getOutputStream().flush();
        } catch (IOException e) {
            // It was killed: the programs then end by themselves.
        }
    }

    /** Kills the programs that still run, and starts no others. */
    @Override
    public synchronized void close() {
        ended = true;
        if (guard == null) return;
        try {
            guard.getOutputStream().close();
        } catch (IOException e) {
            // It was killed.
        }
    }

    synchronized boolean hasEnded() {
        return ended;
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
