package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
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
import java.util.ArrayList;
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
        assertTrue(submitted.err().contains("no member of nobody answers: 'quorl dq work' joins one"), submitted.err());
        Cli status = Cli.run("dq", "status", "nobody", "--timeout", "0.05");
        assertEquals(1, status.code());
        assertTrue(status.err().contains("no scheduler answers within 0.05 s; 'quorl dq work' joins it"), status.err());
    }

    @Test
    void whatTheLedgerKeepsIsSaidWithTheWayToGoOn(@TempDir Path folder) {
        String ledger = folder.resolve("boss.ledger").toString();
        Cli submitted = Cli.withInput(WORK + "true\ndq submit crew other.x --count 2 --name boss --ledger " + ledger + " --timeout 0.05\n", "run");
        assertEquals(1, submitted.code());
        assertTrue(submitted.err().contains("2 tasks were not done within 0.05 s; the ledger keeps them, and 'quorl cm resume --name boss --ledger "
                + ledger + "' goes on; "), submitted.err());
    }

    @Test
    void aTaskThatIsGivenUpIsNotDone() {
        Cli submitted = Cli.withInput(WORK + "--pause 0 -- sh -c '[ $TASK_FIELD_n = 2 ]'\ndq submit crew work.x 'n:i32={n}' --count 3\n", "run");
        assertEquals(1, submitted.code(), submitted.out());
        assertTrue(submitted.err().contains("2 tasks were given up by the workers, and went to _QUORL.DEADLETTER.crew"), submitted.err());
        assertFalse(submitted.out().contains("done"), submitted.out());
    }

    @Test
    void theStatusSaysWhoWorks() {
        Cli text = Cli.withInput(WORK + "--tasks 4 --weight 2 true\ndq status crew\ndq status crew --json\n", "run");
        assertTrue(text.out().startsWith("crew: 1 member; 0 waiting, 0 assigned, "), text.out() + text.err());
        assertTrue(text.out().contains("weight 2, holds 0 of 4"), text.out());
        assertTrue(text.out().contains("{\"queue\":\"crew\",\"scheduler\":\""), text.out());
        assertTrue(text.out().contains("was given 0, the scheduler"), text.out());
    }

    @Test
    void theStatusIsWatched() {
        Cli watched = Cli.withInput(WORK + "true\ndq status crew --watch 0.01 --count 3 --json\n", "run");
        assertEquals(3, watched.out().lines().filter(line -> line.contains("\"members\":1")).count(), watched.out() + watched.err());
        Cli nobody = Cli.run("dq", "status", "nobody", "--watch", "0.01", "--count", "2", "--timeout", "0.01");
        assertEquals(0, nobody.code());
        assertEquals(2, nobody.err().lines().filter(line -> line.contains("no scheduler answers")).count(), nobody.err());
        assertEquals(2, Cli.run("dq", "status", "nobody", "--count", "2").code());
    }

    @Test
    void argumentsAreChecked() {
        for (String wrong : List.of("--tasks 0", "--weight 0", "--scheduler-weight 65536", "--heartbeat 0", "--activation 0.5",
                "--count 0", "--complete-time -1", "--tasks 1001", "--weight 1000001", "--pause -1", "--grace -1", "--activation 2592001",
                "--complete-time 0.0001", "--complete-time 2592001")) {
            Cli refused = Cli.run("run", "-e", "dq work crew 'work.*' true " + wrong);
            assertEquals(2, refused.code(), wrong + refused.err());
        }
        assertEquals(2, Cli.run("dq").code());
        assertEquals(2, Cli.run("dq", "work", "crew", "work.*").code());
        assertEquals(2, Cli.run("dq", "work", "crew", "a..b", "true").code());
        assertEquals(2, Cli.run("dq", "submit", "crew").code());
        assertEquals(2, Cli.run("dq", "submit", "crew", "work.*").code());
        assertEquals(2, Cli.run("dq", "status", "crew.*").code());
        assertEquals(2, Cli.run("dq", "submit", "crew", "work.x", "--name", "crew", "--timeout", "0.05").code());
        for (String name : List.of("_x", "", "a.*", "a..b", "x".repeat(201))) {
            for (Cli refused : List.of(Cli.run("dq", "work", name, "work.*", "true", "--timeout", "0"), Cli.run("dq", "submit", name, "work.x"),
                    Cli.run("dq", "status", name), Cli.run("cm", "listen", "a.b", "--name", name),
                    Cli.run("cm", "send", "a.b", "--listener", name, "--timeout", "0"))) {
                assertEquals(2, refused.code(), name + refused.err());
            }
        }
    }

    private static ChildCommand work(Path folder, ChildDaemon daemon, String... more) throws IOException {
        List<String> words = new ArrayList<>(List.of("dq", "work", "crew", "work.*", "--heartbeat", "0.2", "--activation", "1", "--daemon",
                daemon.address));
        words.addAll(List.of(more));
        ChildCommand child = new ChildCommand(folder, words.toArray(String[]::new));
        child.awaitSaid("working on work.* for crew");
        return child;
    }

    private static ChildCommand submit(Path folder, ChildDaemon daemon, String... more) throws IOException {
        List<String> words = new ArrayList<>(List.of("dq", "submit", "crew", "work.x", "--daemon", daemon.address));
        words.addAll(List.of(more));
        return new ChildCommand(folder, words.toArray(String[]::new));
    }

    @Test
    void ctrlCIsNotForThePrograms(@TempDir Path folder) throws Exception {
        Path finish = folder.resolve("finish");
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand worker = work(folder, daemon, "--", "sh", "-c", "read -r a b c d group rest < /proc/$$/stat; echo $$ $group; "
                        + "while [ ! -e " + finish + " ]; do sleep 0.02; done; echo finished");
                ChildCommand submitted = submit(folder, daemon, "--count", "2", "--timeout", "50")) {
            String[] ids = worker.line().split(" ");
            assertEquals(ids[0], ids[1], "a terminal's Ctrl-C goes to the whole process group of the command");
            worker.interrupt();
            worker.awaitSaid("leaving crew; a program runs, and gets SIGTERM after 10 s");
            Files.createFile(finish);
            assertEquals("finished", worker.line());
            assertEquals(130, worker.code());
            assertTrue(worker.said().endsWith("quorl: interrupted; 1 task was done\n"), worker.said());
            try (ChildCommand next = work(folder, daemon, "--count", "1", "true")) {
                assertEquals(0, next.code(), next.said());
            }
            assertEquals("2 tasks were done", submitted.line());
        }
    }

    @Test
    void aProgramThatTakesLongerThanTheGraceIsEndedAndItsTaskGoesOn(@TempDir Path folder) throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand worker = work(folder, daemon, "--grace", "0.1", "--", "sh", "-c", "echo $$; while :; do sleep 0.02; done");
                ChildCommand submitted = submit(folder, daemon, "--timeout", "50")) {
            String pid = worker.line();
            worker.interrupt();
            assertEquals(130, worker.code());
            ChildCommand.awaitGone(pid);
            assertTrue(worker.said().endsWith("quorl: interrupted; 0 tasks were done, 1 not finished\n"), worker.said());
            try (ChildCommand next = work(folder, daemon, "--count", "1", "--", "sh", "-c", "echo next")) {
                assertEquals("next", next.line());
                assertEquals("1 task was done", submitted.line());
            }
        }
    }

    @Test
    void aWorkerThatIsKilledLeavesNoProgram(@TempDir Path folder) throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand worker = work(folder, daemon, "--", "sh", "-c", "sleep 1000 & echo $$ $!; wait");
                ChildCommand submitted = submit(folder, daemon, "--timeout", "50")) {
            String[] pids = worker.line().split(" ");
            worker.process.destroyForcibly();
            ChildCommand.awaitGone(pids[0]);
            ChildCommand.awaitGone(pids[1]);
            assertTrue(submitted.process.isAlive(), submitted.said());
        }
    }

    @Test
    void theCommandSaysHowOftenATaskIsTried(@TempDir Path folder) throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand worker = work(folder, daemon, "--reassignments", "1", "--pause", "0", "--", "sh", "-c", "echo try; exit 1");
                ChildCommand submitted = submit(folder, daemon, "--timeout", "50")) {
            assertEquals(1, submitted.code());
            assertTrue(submitted.said().contains("1 task was given up by the workers"), submitted.said());
            worker.awaitSaid("was taken away 2 times and is given up; it went to _QUORL.DEADLETTER.crew");
            worker.interrupt();
            assertEquals(List.of("try", "try"), worker.out.lines().toList());
        }
        Cli line = Cli.withInput(WORK + "--reassignments 1 true\n", "run");
        assertTrue(line.err().contains("--reassignments is a setting of the process"), line.err());
        assertEquals(2, Cli.run("dq", "work", "crew", "a.b", "true", "--reassignments", "1000001").code());
    }

    @Test
    void aWorkerWhoseProgramFailsPauses(@TempDir Path folder) throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand failing = work(folder, daemon, "--pause", "1000", "--", "sh", "-c", "echo try; exit 1");
                ChildCommand submitted = submit(folder, daemon, "--count", "3", "--timeout", "50")) {
            failing.awaitSaid("task 1 on work.x: \"sh\" ended with 1; the task is given back");
            try (ChildCommand next = work(folder, daemon, "--", "sh", "-c", "echo done")) {
                assertEquals("done", next.line());
                assertEquals("done", next.line());
                failing.interrupt();
                assertEquals(130, failing.code());
                assertEquals("try", failing.line());
                assertNull(failing.out.readLine());
                assertEquals("done", next.line());
                assertEquals("3 tasks were done", submitted.line());
            }
        }
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
