package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.net.Socket;
import java.net.URI;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** quorl ft: members that print or run a program, over a daemon, and what they leave behind however they end. */
class FtTest {
    /** Says its token and process, and whether somebody else runs; starts a child of its own. */
    private static final String PROGRAM = "exec 9>lock; flock -n 9 || echo two run; sleep 1000 9>&- & echo \"run $QUORL_FT_TOKEN $QUORL_FT_GROUP $$ $!\"; "
            + "trap 'echo end; exit 0' TERM; while :; do sleep 0.05 9>&-; done";

    @TempDir
    Path folder;

    private ChildCommand join(ChildDaemon daemon, String... more) throws IOException {
        List<String> arguments = new ArrayList<>(List.of("ft", "join", "g", "--heartbeat", "0.2", "--preparation", "0.5", "--activation", "1",
                "--daemon", daemon.address));
        arguments.addAll(List.of(more));
        return new ChildCommand(folder, arguments.toArray(String[]::new));
    }

    private static void terminate(ChildCommand child) throws Exception {
        Process kill = new ProcessBuilder("kill", "-TERM", Long.toString(child.process.pid())).start();
        assertTrue(kill.waitFor(ChildCommand.LIMIT, TimeUnit.SECONDS) && kill.exitValue() == 0);
    }

    /** The words of the line by which a program says that it runs. */
    private static String[] running(ChildCommand child) throws IOException {
        String line = child.out.readLine();
        assertTrue(line != null && line.matches("run [0-9]+ g [0-9]+ [0-9]+"), () -> line + "\n" + child.said());
        return line.split(" ");
    }

    @Test
    void actionsArePrintedAsTheyCome() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder); ChildCommand light = join(daemon)) {
            assertEquals("prepare", light.out.readLine());
            assertTrue(light.out.readLine().matches("activate, token [1-9][0-9]*"));
            try (ChildCommand heavy = join(daemon, "--weight", "2", "--json")) {
                assertEquals("deactivate", light.out.readLine());
                assertEquals("{\"group\":\"g\",\"action\":\"prepare\"}", heavy.out.readLine());
                assertTrue(heavy.out.readLine().matches("\\{\"group\":\"g\",\"action\":\"activate\",\"token\":\"[1-9][0-9]*\"}"));
                terminate(heavy);
                assertEquals(143, heavy.code());
            }
            assertTrue(light.out.readLine().matches("prepare|activate, .*"));
        }
    }

    @Test
    void aStandbyTakesOverFromOneThatIsKilledAndNothingIsLeft() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand first = join(daemon, "--weight", "2", "--exec", "sh", "-c", PROGRAM)) {
            String[] one = running(first);
            try (ChildCommand next = join(daemon, "--exec", "sh", "-c", PROGRAM)) {
                next.awaitSaid("joined g");
                first.process.destroyForcibly();
                ChildCommand.awaitGone(one[3]);
                ChildCommand.awaitGone(one[4]);
                String[] other = running(next);
                assertTrue(Long.compareUnsigned(Long.parseUnsignedLong(other[1]), Long.parseUnsignedLong(one[1])) > 0);
                terminate(next);
                assertEquals("end", next.out.readLine());
                assertEquals(143, next.code());
                ChildCommand.awaitGone(other[3]);
                ChildCommand.awaitGone(other[4]);
            }
        }
    }

    @Test
    void whatKillsAProgramsChildrenIsThereBeforeTheProgram() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand child = join(daemon, "--exec", "sh", "-c", "echo $$ $(cat /proc/$PPID/task/*/children)")) {
            String line = child.out.readLine();
            // The children of the command, the eldest first: the shell that waits for its end, and the program.
            assertTrue(line != null && line.matches("([0-9]+) [0-9]+ \\1"), () -> line + "\n" + child.said());
            assertEquals(0, child.code());
        }
    }

    @Test
    void theNextRunsWhenTheProgramHasEnded() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder); ChildCommand light = join(daemon, "--exec", "sh", "-c", PROGRAM)) {
            String[] one = running(light);
            try (ChildCommand heavy = join(daemon, "--weight", "2", "--exec", "sh", "-c", PROGRAM)) {
                assertEquals("end", light.out.readLine());
                running(heavy);
                ChildCommand.awaitGone(one[3]);
                ChildCommand.awaitGone(one[4]);
                heavy.interrupt();
                assertEquals("end", heavy.out.readLine());
                assertEquals(130, heavy.code());
            }
            running(light);
            terminate(light);
            assertEquals("end", light.out.readLine());
        }
    }

    @Test
    void aProgramThatEndsByItselfEndsTheCommandWithItsCode() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder)) {
            for (String[] each : new String[][] {{"exit 7", "7"}, {"exit 0", "0"}, {"kill -9 $$", "137"}}) {
                try (ChildCommand child = join(daemon, "--exec", "sh", "-c", each[0])) {
                    assertEquals(Integer.parseInt(each[1]), child.code());
                    assertTrue(child.said().endsWith("quorl: \"sh\" has ended by itself, with exit code " + each[1] + "; leaving g\n"), child.said());
                }
            }
            try (ChildCommand child = join(daemon, "--exec", "/nonexistent/program", "--help", "-x")) {
                assertEquals(1, child.code());
                assertTrue(child.said().contains("/nonexistent/program"), child.said());
            }
        }
    }

    @Test
    void aProgramThatDoesNotEndIsKilled() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand child = join(daemon, "--grace", "0.2", "--exec", "sh", "-c", "trap '' TERM; echo $$; while :; do sleep 0.05; done")) {
            String pid = child.out.readLine();
            terminate(child);
            assertEquals(143, child.code());
            assertFalse(ProcessHandle.of(Long.parseLong(pid)).map(ProcessHandle::isAlive).orElse(false));
            assertTrue(child.said().contains("quorl: \"sh\" has not ended within 0.2 s of SIGTERM, and is killed\n"), child.said());
        }
    }

    /** The daemon falls silent while the command waits to hear that it may listen; meanwhile the member is told to act. */
    @Test
    void oneThatIsInterruptedWhileItJoinsEnds() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder); SilentProxy proxy = new SilentProxy(daemon.address, "_QUORL.FT.g")) {
            Thread command = new Thread(() -> Cli.run("ft", "join", "g", "--heartbeat", "0.05", "--preparation", "0", "--activation", "0.2",
                    "--daemon", proxy.address));
            command.setDaemon(true);
            command.start();
            long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(ChildCommand.LIMIT);
            while (!waitsForItsOrder() && System.nanoTime() < end) Thread.onSpinWait();
            assertTrue(waitsForItsOrder() && command.isAlive());
            command.interrupt();
            command.join(TimeUnit.SECONDS.toMillis(ChildCommand.LIMIT));
            assertFalse(command.isAlive());
        }
    }

    private static boolean waitsForItsOrder() {
        return Thread.getAllStackTraces().entrySet().stream().filter(each -> each.getKey().getState() == Thread.State.WAITING)
                .flatMap(each -> Arrays.stream(each.getValue()))
                .anyMatch(frame -> frame.getClassName().equals(FtJoinCommand.class.getName()) && frame.getMethodName().equals("order"));
    }

    @Test
    void watchingTellsOfEachMemberAndOfEachCount() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand watch = new ChildCommand(folder, "ft", "watch", "g", "--lost", "1", "--json", "--daemon", daemon.address)) {
            String start = "{\"time\":\"[-0-9T:.]+Z\",\"group\":\"g\",\"event\":";
            assertTrue(watch.out.readLine().matches("\\" + start + "\"count\",\"active\":0}"));
            try (ChildCommand member = join(daemon, "--weight", "9", "--goal", "2")) {
                String one = "\"member\",\"peer\":\"[0-9a-f]{16}\",\"label\":\"[^\"]+/" + member.process.pid() + "\",\"state\":\"";
                String joining = watch.out.readLine();
                assertTrue(joining.matches("\\" + start + one + "joining\",\"weight\":9,\"goal\":2}"), joining);
                String active = watch.out.readLine();
                // One whose last step of joining comes late is a standby first.
                if (active.contains("\"standby\"")) active = watch.out.readLine();
                assertTrue(active.matches("\\" + start + one + "active\",\"weight\":9,\"goal\":2,\"token\":\"[0-9]+\"}"), active);
                assertTrue(watch.out.readLine().matches("\\" + start + "\"count\",\"active\":1}"));
                member.process.destroyForcibly();
                String lost = watch.out.readLine();
                assertTrue(lost.matches("\\" + start + one + "lost\",\"weight\":9,\"goal\":2,\"token\":\"[0-9]+\"}"), lost);
                assertTrue(watch.out.readLine().matches("\\" + start + "\"count\",\"active\":0}"));
            }
            assertFalse(watch.said().contains("_QUORL"), watch.said());
        }
    }

    /** A member's sign of life as it travels over a daemon, of an active one that calls itself nothing. */
    private static byte[] namelessFrame() {
        ByteBuffer frame = ByteBuffer.allocate(256).order(ByteOrder.LITTLE_ENDIAN);
        frame.put(new byte[] {0x51, 0x4e, 1, 4}).putInt(1).putLong(0x1234567890L).put((byte) 0);
        frame.put(new byte[] {0x51, 0x4d, 1, 0}).putInt(12).putInt(0);
        ByteBuffer attributes = ByteBuffer.allocate(128).order(ByteOrder.LITTLE_ENDIAN);
        attributes.put(new byte[] {3, 1, 4}).putLong(0xabL).putLong(1);
        // Weight, goal, place, activation, latest; 0.2, 0.5 and 1 s in microseconds; no label.
        for (long number : new long[] {1, 1, 1, 5, 5, 200_000, 500_000, 1_000_000, 0}) {
            for (; number >= 128; number >>= 7) attributes.put((byte) (number & 127 | 128));
            attributes.put((byte) number);
        }
        attributes.flip();
        frame.put(new byte[] {0x51, 0x41, 1, 1}).putInt(attributes.remaining()).put(attributes);
        return Arrays.copyOf(frame.array(), frame.position());
    }

    @Test
    void aMemberWithoutALabelEndsNoWatching() throws Exception {
        try (ChildDaemon daemon = new ChildDaemon(folder);
                ChildCommand watch = new ChildCommand(folder, "ft", "watch", "g", "--lost", "1", "--json", "--daemon", daemon.address);
                ChildCommand plain = new ChildCommand(folder, "ft", "watch", "g", "--lost", "1", "--daemon", daemon.address)) {
            assertTrue(watch.out.readLine().endsWith("\"count\",\"active\":0}"));
            assertTrue(plain.out.readLine().endsWith(" 0 active"));
            URI address = URI.create(daemon.address);
            try (Socket socket = new Socket(address.getHost(), address.getPort())) {
                byte[] frame = namelessFrame();
                socket.getOutputStream().write(("CONNECT {\"verbose\":false}\r\nPUB quorl.default.default._QUORL.FT.g " + frame.length
                        + "\r\n").getBytes(StandardCharsets.US_ASCII));
                socket.getOutputStream().write(frame);
                socket.getOutputStream().write("\r\n".getBytes(StandardCharsets.US_ASCII));
                String member = watch.out.readLine();
                assertTrue(member != null && member.contains("\"peer\":\"00000000000000ab\",\"label\":\"\",\"state\":\"active\""), () -> watch.said());
                assertTrue(watch.out.readLine().endsWith("\"count\",\"active\":1}"));
                assertTrue(watch.out.readLine().contains("\"state\":\"lost\""));
                assertTrue(watch.out.readLine().endsWith("\"count\",\"active\":0}"));
                List<String> lines = List.of(plain.out.readLine(), plain.out.readLine());
                assertTrue(lines.stream().anyMatch(line -> line.endsWith(" 00000000000000ab active, weight 1, token 327851")), lines.toString());
            }
        }
    }

    @Test
    void watchingNobodyEndsAfterItsTime() {
        Cli run = Cli.run("ft", "watch", "g", "--lost", "0.05", "--timeout", "0.5", "--daemon", "");
        assertEquals(0, run.code(), run.err());
        assertTrue(run.out().matches("[-0-9T:.]+Z 0 active\n"), run.out());
        assertTrue(run.err().contains("no member in another process can be heard here"), run.err());
    }

    @Test
    void aMemberThatIsAloneSaysSo() {
        Cli run = Cli.run("ft", "join", "g", "--heartbeat", "0.01", "--preparation", "0", "--activation", "0.05", "--timeout", "1.5", "--daemon",
                "");
        assertEquals(0, run.code(), run.err());
        assertTrue(run.out().matches("(?s)activate, token [0-9]+\n.*"), run.out());
        assertTrue(run.err().contains("the group has no other member than this one"), run.err());
        // Where it is not taken.
        assertFalse(run.err().contains("quorl run"), run.err());
    }
}
