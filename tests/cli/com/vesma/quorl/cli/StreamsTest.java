package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.OutputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Streams of messages between processes over a daemon: recorded, played back, cut off in the middle. */
class StreamsTest {
    @TempDir
    static Path folder;

    private static ChildDaemon daemon;

    @BeforeAll
    static void startDaemon() throws IOException {
        daemon = new ChildDaemon(folder);
    }

    @AfterAll
    static void stopDaemon() {
        if (daemon != null) daemon.close();
    }

    private static ChildCommand listening(String ready, String line) throws Exception {
        return ChildCommand.listening(folder, daemon.address, ready, line);
    }

    @Test
    void whatOneProcessRecordsAnotherSendsAgain() throws Exception {
        String table = folder.resolve("recorded.csv").toString();
        String json;
        try (ChildCommand recorder = listening("ready.a", "listen 'a.>' --count 300 --timeout 60 --csv '" + table + "'");
                ChildCommand printer = listening("ready.b", "listen 'a.>' --count 300 --timeout 60 --json")) {
            String[] fields = {"n:i64={n}", "s:string=größe, \"{n}\"", "l:f64[]=[{n},0.5]", "m:msg={\"x:opaque\":\"AMr+\"}"};
            for (int i = 0; i < 3; i++) {
                assertEquals(new Cli(0, "", ""), Cli.run("send", "a." + i, fields[i], fields[i + 1], "--count", "100", "--daemon",
                        daemon.address));
            }
            assertEquals(0, recorder.code(), recorder::said);
            json = String.join("\n", printer.out.lines().toList()) + "\n";
            assertEquals(0, printer.code(), printer::said);
        }
        Path text = Files.writeString(folder.resolve("recorded.json"), json);
        for (String[] form : new String[][] {{"--csv", table}, {"--json-file", text.toString()}}) {
            try (ChildCommand again = listening("ready.c", "listen 'a.>' --count 300 --timeout 60 --json")) {
                assertEquals(new Cli(0, "", ""), Cli.run("send", form[0], form[1], "--daemon", daemon.address));
                assertEquals(json, String.join("\n", again.out.lines().toList()) + "\n");
                assertEquals(0, again.code(), again::said);
            }
        }
    }

    @Test
    void requestsOfATableAreAnsweredByAnotherProcess() throws Exception {
        String questions = Files.writeString(folder.resolve("q.json"), "{\"a:i32\":1}\n{\"subject\":\"x\",\"message\":{}}\n").toString();
        try (ChildCommand replier = listening("ready.q", "reply q --echo 'n:i32={n}' --count 3 --timeout 60 --csv -")) {
            assertEquals(new Cli(0, "{\"a:i32\":1,\"n:i32\":1}\n{\"n:i32\":2}\n", ""), Cli.run("request", "q", "--json-file",
                    questions, "--json", "--daemon", daemon.address));
            assertEquals(new Cli(0, "{a=7, n=3}\n", ""), Cli.run("request", "q", "a:i32=7", "--daemon", daemon.address));
            List<String> heard = replier.out.lines().toList();
            assertEquals("subject,reply,a:i32", heard.get(0));
            assertEquals(4, heard.size());
            assertEquals(0, replier.code(), replier::said);
        }
    }

    @Test
    void aBadLineSaysHowManyWereSentAndTheyWere() throws Exception {
        try (ChildCommand listener = listening("ready.bad", "listen bad --count 2 --timeout 60")) {
            Cli sent = Cli.withInput("n:i32\n1\n2\nthree\n4\n", "send", "bad", "--csv", "-", "--daemon", daemon.address);
            assertEquals(1, sent.code());
            assertEquals("quorl: standard input line 4 column 1: field \"n\": type i32 takes a whole number from -2147483648 to "
                    + "2147483647, not \"three\"; 2 messages were sent before it\n", sent.err());
            assertEquals(List.of("bad {n=1}", "bad {n=2}"), listener.out.lines().toList());
            assertEquals(0, listener.code(), listener::said);
        }
    }

    @Test
    void ctrlCEndsASenderAndWhatItHasSentArrives() throws Exception {
        try (ChildCommand listener = listening("ready.c", "listen c --count 100000 --timeout 60");
                ChildCommand sender = new ChildCommand(folder, "send", "c", "n:i32={n}", "--count", "1000000", "--rate", "200",
                        "--daemon", daemon.address)) {
            BufferedReader heard = listener.out;
            for (int i = 1; i <= 20; i++) assertEquals("c {n=" + i + "}", heard.readLine());
            sender.interrupt();
            assertEquals(130, sender.code());
            assertTrue(sender.said().matches("quorl: interrupted; [0-9]+ messages were sent, and the daemon has confirmed all of them\n"), sender.said());
            int sent = Integer.parseInt(sender.said().replaceAll("[^0-9]", ""));
            for (int i = 21; i <= sent; i++) assertEquals("c {n=" + i + "}", heard.readLine());
            Cli.run("send", "c", "--daemon", daemon.address);
            assertEquals("c {}", heard.readLine());
        }
    }

    @Test
    void ctrlCEndsASenderThatWaitsForInput() throws Exception {
        try (ChildCommand listener = listening("ready.i", "listen i --count 100000 --timeout 60");
                ChildCommand sender = new ChildCommand(folder, "send", "i", "--csv", "-", "--daemon", daemon.address)) {
            OutputStream typed = sender.process.getOutputStream();
            typed.write("n:i32\n1\n".getBytes(StandardCharsets.UTF_8));
            typed.flush();
            assertEquals("i {n=1}", listener.line());
            sender.interrupt();
            assertEquals(130, sender.code());
            assertEquals("quorl: interrupted; 1 message was sent, and the daemon has confirmed it\n", sender.said());
            listener.interrupt();
            assertEquals(130, listener.code());
            assertEquals("", listener.said());
        }
    }

    @Test
    void aCommandThatServesSaysWhenItDoes() throws Exception {
        try (ChildCommand listener = new ChildCommand(folder, "listen", "s.>", "t", "--count", "1", "--daemon", daemon.address);
                ChildCommand replier = new ChildCommand(folder, "reply", "u", "a:i32=1", "--count", "1", "--daemon", daemon.address);
                ChildCommand answering = new ChildCommand(folder, "stats", "stats.s", "--answer", "--daemon", daemon.address)) {
            listener.awaitSaid("quorl: listening to s.>, t\n");
            replier.awaitSaid("quorl: answering requests on u\n");
            answering.awaitSaid("quorl: answering requests on stats.s\n");
            // What is sent from then on is heard.
            assertEquals(new Cli(0, "", ""), Cli.run("send", "t", "--daemon", daemon.address));
            assertEquals(0, listener.code(), listener::said);
            assertEquals(new Cli(0, "{a=1}\n", ""), Cli.run("request", "u", "--daemon", daemon.address));
            assertEquals(0, Cli.run("stats", "stats.s", "--daemon", daemon.address).code());
        }
    }

    @Test
    void theServerThatTakesOverIsNamed() throws Exception {
        try (ChildDaemon first = new ChildDaemon(folder); ChildDaemon second = new ChildDaemon(folder);
                ChildCommand listener = new ChildCommand(folder, "listen", "a", "--count", "1", "--daemon",
                        first.address + "," + second.address)) {
            listener.awaitSaid("quorl: listening to a\n");
            first.close();
            listener.awaitSaid(" is there again, now at " + second.address);
        }
    }

    @Test
    void aReaderThatGoesAwayEndsTheListenerQuietly() throws Exception {
        try (ChildCommand listener = listening("ready.p", "listen p --count 100000 --timeout 60")) {
            Cli.run("send", "p", "--daemon", daemon.address);
            assertEquals("p {}", listener.line());
            listener.out.close();
            // The first write into the closed pipe may be the one that it notices.
            Cli.run("send", "p", "--count", "2", "--daemon", daemon.address);
            assertEquals(1, listener.code());
            assertEquals("", listener.said());
        }
    }

    @Test
    void aDaemonThatGoesAwayIsTold() throws Exception {
        try (ChildDaemon brief = new ChildDaemon(folder);
                ChildCommand listener = ChildCommand.listening(folder, brief.address, "ready.g", "listen g --count 100000 --timeout 60");
                ChildCommand sender = new ChildCommand(folder, Map.of(), List.of(),
                        List.of("send", "g", "n:i32={n}", "--csv", "-", "--daemon", brief.address))) {
            OutputStream typed = sender.process.getOutputStream();
            typed.write("m:i32\n1\n".getBytes(StandardCharsets.UTF_8));
            typed.flush();
            assertEquals("g {n=1, m=1}", listener.line());
            brief.close();
            typed.write("2\n".getBytes(StandardCharsets.UTF_8));
            typed.close();
            assertEquals(1, sender.code());
            assertTrue(sender.said().contains("quorl: the connection to " + brief.address + " is lost"), sender.said());
            assertTrue(sender.said().contains("quorl: the daemon did not confirm within 5 s that it has all 2 messages"),
                    sender.said());
        }
    }
}
