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
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;

/**
 * A program that does a task: it gets the message's fields as environment variables and the whole message as JSON on its standard
 * input, and has done the task when it ends with 0.
 */
final class TaskProgram {
    /** In front of the names of fields, so that none of them is one that the system looks at. */
    static final String PREFIX = "TASK_";

    /** Characters of a value; longer ones are in the JSON alone, since the system limits what a program can be started with. */
    static final int LONGEST = 32_000;

    private final List<String> command;

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
        ProcessBuilder builder = new ProcessBuilder(command).redirectError(ProcessBuilder.Redirect.INHERIT);
        variables(task, builder.environment());
        Process process;
        try {
            process = builder.start();
        } catch (IOException e) {
            throw new Failure("cannot start " + Texts.quoted(command.get(0)) + ": " + e.getMessage());
        }
        try {
            write(process, Messages.line(task, true) + "\n");
            try (BufferedReader reader = new BufferedReader(new InputStreamReader(process.getInputStream(), StandardCharsets.UTF_8))) {
                for (String line = reader.readLine(); line != null; line = reader.readLine()) lines.accept(line);
            } catch (IOException e) {
                // The program has ended, and says by its code how.
            }
            return process.waitFor();
        } finally {
            process.destroyForcibly();
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
        for (QuorlMsgField field : task) {
            if (field.getName() == null || field.getName().isEmpty()) continue;
            String value = textOf(field);
            if (value != null && value.length() <= LONGEST && value.indexOf('\0') < 0) to.putIfAbsent(variable(field.getName()), value);
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
