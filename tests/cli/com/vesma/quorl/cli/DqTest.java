package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.QuorlMsg;
import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.io.Writer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** quorl dq: work, submit and status. */
class DqTest {
    private static final String WORK = "dq work crew 'work.*' --heartbeat 0.05 --activation 0.2 ";

    @Test
    void aProgramRunsForEachTask() {
        Cli worked = Cli.withInput(WORK + "--count 3 -- sh -c 'echo $TASK_SUBJECT $TASK_FIELD_n \"$TASK_FIELD_two_words\"'\n"
                + "dq submit crew work.x 'n:i32={n}' 'two words:string=a b' --count 3\n", "run");
        assertEquals("", worked.err());
        assertEquals(List.of("3 tasks were done", "work.x 1 a b", "work.x 2 a b", "work.x 3 a b"), worked.out().lines().sorted().toList());
        assertEquals(0, worked.code());
    }

    @Test
    void theMessageComesAsJson() {
        Cli worked = Cli.withInput(WORK + "--count 1 cat\ndq submit crew work.x 'list:i32[]=[1,2]' n:u64=18446744073709551615\n", "run");
        assertTrue(worked.out().contains("\"subject\":\"work.x\""), worked.out());
        assertTrue(worked.out().contains("\"list:i32[]\":[1,2]"), worked.out());
        assertEquals(0, worked.code(), worked.err());
    }

    @Test
    void aTaskWhoseProgramFailsIsDoneByTheNext(@TempDir Path folder) throws IOException {
        Path first = folder.resolve("first");
        Cli worked = Cli.withInput(WORK + "--count 1 -- sh -c 'test -e " + first + " || { touch " + first + "; exit 3; }; echo done'\n"
                + "dq submit crew work.x\ndq status crew --json\n", "run");
        assertEquals(0, worked.code(), worked.err());
        assertTrue(worked.out().contains("done\n"), worked.out());
        assertTrue(worked.err().contains("ended with 3"), worked.err());
        assertTrue(Files.exists(first));
    }

    @Test
    void aProgramThatIsNotThereIsAFailure() {
        Cli worked = Cli.withInput(WORK + "--count 1 /not/there\ndq submit crew work.x --timeout 0.5\n", "run");
        assertEquals(1, worked.code());
        assertTrue(worked.err().contains("/not/there") || worked.err().contains("not done"), worked.err());
    }

    @Test
    void tasksThatNobodyDoesAreAFailure() {
        Cli submitted = Cli.run("dq", "submit", "nobody", "work.x", "--timeout", "0.05");
        assertEquals(1, submitted.code());
        assertTrue(submitted.err().contains("1 task was not done within 0.05 s; without --ledger nobody keeps it"), submitted.err());
        Cli status = Cli.run("dq", "status", "nobody", "--timeout", "0.05");
        assertEquals(1, status.code());
        assertTrue(status.err().contains("no scheduler answers"), status.err());
    }

    @Test
    void theStatusSaysWhoWorks() {
        Cli text = Cli.withInput(WORK + "--tasks 4 --weight 2 true\ndq status crew\ndq status crew --json\n", "run");
        assertTrue(text.out().startsWith("crew: 1 member; 0 waiting, 0 assigned, "), text.out() + text.err());
        assertTrue(text.out().contains("weight 2, holds 0 of 4"), text.out());
        assertTrue(text.out().contains("{\"queue\":\"crew\",\"members\":1,"), text.out());
    }

    @Test
    void argumentsAreChecked() {
        for (String wrong : List.of("--tasks 0", "--weight 0", "--scheduler-weight 65536", "--heartbeat 0", "--activation 0.5",
                "--count 0", "--complete-time -1")) {
            Cli refused = Cli.run("run", "-e", "dq work crew 'work.*' true " + wrong);
            assertEquals(2, refused.code(), wrong + refused.err());
        }
        assertEquals(2, Cli.run("dq").code());
        assertEquals(2, Cli.run("dq", "work", "crew", "work.*").code());
        assertEquals(2, Cli.run("dq", "work", "crew", "a..b", "true").code());
        assertEquals(2, Cli.run("dq", "submit", "crew").code());
        assertEquals(2, Cli.run("dq", "submit", "crew", "work.*").code());
        assertEquals(2, Cli.run("dq", "status", "crew.*").code());
        for (String name : List.of("", "crew.*", "a..b", "_x", "n".repeat(201))) {
            assertEquals(2, Cli.run("dq", "work", name, "work.*", "true", "--timeout", "0").code(), name);
            assertEquals(2, Cli.run("dq", "submit", name, "work.x", "--timeout", "0.05").code(), name);
            assertEquals(2, Cli.run("dq", "status", name, "--timeout", "0.05").code(), name);
        }
        assertEquals(2, Cli.run("dq", "submit", "crew", "work.x", "--name", "crew", "--timeout", "0.05").code());
    }

    /** What a field is called cannot change what the program is, or what it loads. */
    @Test
    void fieldsBecomeVariablesOfTheirOwn() {
        Map<String, String> variables = new HashMap<>(Map.of("PATH", "/bin", "TASK_FIELD_old", "from outside"));
        try (QuorlMsg task = new QuorlMsg("a.b").setReplySubject("c").addString("PATH", "/evil").addU64("big number", -1L)
                .addBool("yes", true).addString("long", "x".repeat(TaskProgram.LONGEST + 1)).addI32Array("many", new int[] {1, 2})
                .addString("twice", "first").addString("twice", "second")) {
            TaskProgram.variables(task, variables);
        }
        assertEquals(Map.of("PATH", "/bin", "TASK_SUBJECT", "a.b", "TASK_REPLY", "c", "TASK_FIELD_PATH", "/evil",
                "TASK_FIELD_big_number", "18446744073709551615", "TASK_FIELD_yes", "true", "TASK_FIELD_twice", "first"), variables);
        assertFalse(variables.containsKey("TASK_FIELD_old"));
    }

    /** One task must not end the command that is to do it. */
    @Test
    void fieldsWithoutRoomAreInTheJsonAlone() {
        try (QuorlMsg task = new QuorlMsg("a.b")) {
            for (int i = 0; i < 100; i++) task.addString("field" + i, "\u20ac".repeat(TaskProgram.LONGEST / 2));
            task.addString("small", "fits");
            Map<String, String> variables = new HashMap<>();
            TaskProgram.variables(task, variables);
            assertTrue(variables.containsKey("TASK_FIELD_field0"));
            assertFalse(variables.containsKey("TASK_FIELD_field99"));
            assertEquals("fits", variables.get("TASK_FIELD_small"));
        }
        String big = "x".repeat(30_000);
        StringBuilder fields = new StringBuilder();
        for (int i = 0; i < 80; i++) fields.append(" f").append(i).append(":string=").append(big);
        Cli worked = Cli.withInput(WORK + "--count 1 -- sh -c 'wc -c'\ndq submit crew work.x" + fields + "\n", "run");
        assertEquals(0, worked.code(), worked.err());
        assertTrue(worked.out().lines().anyMatch(line -> line.trim().matches("24[0-9]{5}")), worked.out());
    }

    /** As in "quorl dq work ... | head -1". */
    @Test
    void endsWhenNobodyReadsItsOutput() {
        Writer closed = new Writer() {
            @Override
            public void write(char[] text, int from, int length) throws IOException {
                throw new IOException("closed");
            }

            @Override
            public void flush() {}

            @Override
            public void close() {}
        };
        StringWriter err = new StringWriter();
        String script = WORK + "--count 2 echo a\ndq submit crew work.x --count 2\n";
        int code = Main.run(new ByteArrayInputStream(script.getBytes(StandardCharsets.UTF_8)), new PrintWriter(closed), new PrintWriter(err), "run");
        assertEquals(1, code, err.toString());
        assertEquals("", err.toString());
    }

    /** Nothing goes on working on a task that goes to another worker. */
    @Test
    void noProgramSurvivesTheCommand(@TempDir Path folder) throws Exception {
        for (String signal : List.of("KILL", "TERM")) {
            String program = "sh -c 'trap \"\" INT TERM; sleep 600 & echo $$ $!; wait; wait'";
            try (ChildCommand child = new ChildCommand(folder, "run", "-e", WORK + "-- " + program, "-e", "dq submit crew work.x --timeout 300")) {
                String[] running = child.line().split(" ");
                Process kill = new ProcessBuilder("kill", "-s", signal, Long.toString(child.process.pid())).start();
                assertEquals(0, kill.waitFor());
                child.code();
                for (String pid : running) {
                    ProcessHandle.of(Long.parseLong(pid))
                            .ifPresent(each -> each.onExit().orTimeout(ChildCommand.LIMIT, TimeUnit.SECONDS).join());
                }
            }
        }
    }
}
