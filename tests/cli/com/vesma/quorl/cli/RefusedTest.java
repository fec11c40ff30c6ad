package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Commands at a daemon that refuses something, or does not answer: nothing is claimed that the daemon did not confirm. */
class RefusedTest {
    @TempDir
    Path folder;

    private static void refused(Cli ran, String says) {
        assertEquals(1, ran.code(), ran.toString());
        assertTrue(ran.err().contains(says), ran.err());
        assertFalse(ran.err().contains("is there again"), ran.err());
    }

    @Test
    void whatTheDaemonForbidsFails() throws Exception {
        try (ConfiguredServer server = new ConfiguredServer(folder, ConfiguredServer.userWith(
                "publish: { deny: \"quorl.*.*.secret.>\" }, subscribe: { deny: \"quorl.*.*.hidden.>\" }"))) {
            String at = server.address;
            assertEquals(new Cli(0, "", ""), Cli.run("send", "open", "--daemon", at));
            String publishing = "(Permissions Violation for Publish to \"quorl.default.default.secret.x\")";
            for (String[] command : new String[][] {{"send", "secret.x"}, {"request", "secret.x", "--timeout", "5"}}) {
                List<String> arguments = new ArrayList<>(List.of(command));
                arguments.addAll(List.of("--daemon", at));
                Cli sent = Cli.run(arguments.toArray(String[]::new));
                refused(sent, publishing);
                assertTrue(sent.err().contains("quorl: " + at + " refused it"), sent.err());
                assertTrue(sent.err().contains("; the user needs that permission"), sent.err());
                assertEquals(1, sent.err().split("Permissions Violation", -1).length - 1, "the daemon's words once: " + sent.err());
            }
            refused(Cli.run("send", "secret.x", "n:i32={n}", "--count", "20", "--rate", "1000", "--daemon", at), " refused ");
            refused(Cli.run("run", "--daemon", at, "-e", "send open", "-e", "send secret.x", "-e", "send open"),
                    "quorl: -e line 2: " + at + " refused it");
            String listening = "(Permissions Violation for Subscription to \"quorl.default.default.hidden.*\")";
            refused(Cli.run("listen", "open", "hidden.*", "--daemon", at), listening);
            refused(Cli.run("reply", "hidden.*", "--daemon", at), listening);
        }
        try (ConfiguredServer server = new ConfiguredServer(folder, "max_subscriptions: 3")) {
            refused(Cli.run("listen", "a", "b", "c", "d", "--daemon", server.address), "raise max_subscriptions");
        }
    }

    @Test
    void theDoctorNamesThePermissionThatIsMissing() throws Exception {
        String probes = "\"quorl.*.*._PROBE.>\", \"quorl.*.*._INBOX.>\"";
        try (ConfiguredServer server = new ConfiguredServer(folder, ConfiguredServer.userWith("publish: [ " + probes + " ]"))) {
            Cli doctor = Cli.run("doctor", "--daemon", server.address, "--service", "lab");
            assertEquals(1, doctor.code(), doctor.out());
            assertTrue(doctor.out().contains("wrong  permissions  this user may not publish on"), doctor.out());
            assertTrue(doctor.out().contains("permissions: { publish: \"quorl.default.lab.>\", subscribe: \"quorl.default.lab.>\" }"),
                    doctor.out());
        }
        try (ConfiguredServer server = new ConfiguredServer(folder, ConfiguredServer.userWith("subscribe: [ " + probes + " ]"))) {
            Cli doctor = Cli.run("doctor", "--daemon", server.address);
            assertEquals(1, doctor.code(), doctor.out());
            assertTrue(doctor.out().contains("wrong  permissions  this user may not subscribe on"), doctor.out());
        }
        try (ConfiguredServer server = new ConfiguredServer(folder, ConfiguredServer.userWith(
                "publish: [ " + probes + " ], subscribe: [ " + probes + " ]"))) {
            Cli doctor = Cli.run("doctor", "--daemon", server.address);
            assertEquals(1, doctor.code(), doctor.out());
            assertTrue(doctor.out().contains("wrong  permissions  this user may not publish and subscribe on"), doctor.out());
        }
        // Not even the library's own subjects.
        try (ConfiguredServer server = new ConfiguredServer(folder, ConfiguredServer.userWith("publish: \"other.>\""))) {
            Cli doctor = Cli.run("doctor", "--daemon", server.address);
            assertEquals(1, doctor.code(), doctor.out());
            assertTrue(doctor.out().contains("wrong  permissions  this user may not publish what the library itself needs"), doctor.out());
            assertTrue(doctor.out().contains("publish: \"quorl.default.default.>\""), doctor.out());
            assertTrue(doctor.out().contains("'nats-server --signal reload=PID'"), doctor.out());
        }
        try (ConfiguredServer server = new ConfiguredServer(folder, ConfiguredServer.userWith("publish: \"quorl.>\""))) {
            Cli doctor = Cli.run("doctor", "--daemon", server.address);
            assertEquals(0, doctor.code(), doctor.out());
            assertTrue(doctor.out().contains("ok     permissions"), doctor.out());
        }
    }

    @Test
    void ctrlCClaimsNothingThatADaemonWithoutAnAnswerHas() throws Exception {
        try (ConfiguredServer server = new ConfiguredServer(folder);
                ChildCommand listener = ChildCommand.listening(folder, server.address, "ready", "listen c --count 100000 --timeout 60");
                ChildCommand sender = new ChildCommand(folder, "send", "c", "n:i32={n}", "--count", "1000000", "--rate", "100",
                        "--daemon", server.address)) {
            for (int i = 1; i <= 5; i++) assertEquals("c {n=" + i + "}", listener.line());
            server.signal("STOP");
            sender.interrupt();
            assertEquals(130, sender.code());
            String said = sender.said();
            assertTrue(said.contains("quorl: interrupted; ") && said.contains("; the daemon did not confirm within 2 s that it has all "),
                    said);
            // One sentence with one number; what the close says would be about the command's own messages too.
            assertTrue(said.matches("(?s)quorl: interrupted; (\\d+) messages were sent; [^;]* all \\1 messages; some may be lost\n"), said);
        }
    }
}
