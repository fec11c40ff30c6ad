package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.InputStream;
import java.io.PipedInputStream;
import java.io.PipedOutputStream;
import java.io.PrintWriter;
import java.io.StringWriter;
import java.io.Writer;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.FutureTask;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Each command on the bus of this process; several share it through scripts. */
class CommandsTest {
    @Test
    void listenPrintsSubjectAndFieldsOfWhatIsSent() {
        Cli.expect("plant.line3.temp {celsius=71.5}\nplant.door {}\n",
                "listen 'plant.>'",
                "send plant.line3.temp celsius:f64=71.5",
                "send other.subject x:i32=1",
                "send plant.door");
    }

    @Test
    void jsonKeepsTheTypes() {
        Cli.expect("""
                {"subject":"a","message":{"b:bool":true,"i8:i8":-128,"u8:u8":255,"i16:i16":-1,"u16:u16":65535,"i32:i32":-5,\
                "u32:u32":4294967295,"i64:i64":"-9223372036854775808","u64:u64":"18446744073709551615","f32:f32":0.1,\
                "f64:f64":0.1,"nan:f64":"NaN","s:string":"größe \\"😀\\"","o:opaque":"AMr+","x:xml":"PGEvPg==",\
                "t:datetime":"2026-07-01T12:30:00.250Z","ip:ipaddr32":"192.168.1.20","p:ipport16":4222}}
                """,
                "listen a --json",
                "send a b:bool=true i8:i8=-128 u8:u8=255 i16:i16=-1 u16:u16=65535 i32:i32=-5 u32:u32=4294967295 "
                        + "i64:i64=-9223372036854775808 u64:u64=18446744073709551615 f32:f32=0.1 f64:f64=0.1 nan:f64=NaN "
                        + "'s:string=größe \"😀\"' o:opaque=00cafe x:xml=<a/> t:datetime=2026-07-01T14:30:00.25+02:00 "
                        + "ip:ipaddr32=192.168.1.20 p:ipport16=4222");
    }

    @Test
    void countSendsNumberedMessagesInOrder() {
        Cli.expect("a {n=1, note=\"1 of 3\"}\na {n=2, note=\"2 of 3\"}\na {n=3, note=\"3 of 3\"}\n",
                "listen a --count 3", "send a 'n:i32={n}' 'note:string={n} of 3' --count 3");
    }

    @Test
    void rateSpreadsTheMessages() {
        Cli.expect("a {}\na {}\na {}\n", "listen a", "send a --count 3 --rate 1000");
    }

    @Test
    void aListenerWithACountTakesNoMore() {
        Cli.expect("a {n=1}\na {n=2}\n", "listen a --count 2", "send a 'n:i32={n}' --count 5");
    }

    @Test
    void severalSubjectsAndListenersEachHear() {
        Cli.expect("a.1 {}\na.1 {}\nb {}\n", "listen a.1 b", "listen 'a.*'", "send a.1", "send b");
    }

    @Test
    void aRequestIsAnsweredByReply() {
        Cli.expect("clock.time {zone=\"UTC\"}\n{answer=\"noon\", n=1}\nclock.date {}\n{answer=\"noon\", n=2}\n",
                "reply 'clock.*' answer:string=noon 'n:i32={n}'", "request clock.time zone:string=UTC", "request clock.date");
    }

    @Test
    void aReplyMayEchoTheRequestAndBeQuiet() {
        Cli.expect("{\"a:i32\":1,\"b:u64\":\"2\"}\n",
                "reply echo --echo b:u64=2 --quiet --count 1", "request echo a:i32=1 --json");
    }

    @Test
    void aMessageThatAsksForNoReplyGetsNone() {
        Cli.expect("echo {a=1}\n", "reply echo x:i32=1", "send echo a:i32=1");
    }

    @Test
    void thoseThatShareANameTakeTurns() {
        Cli.expect("w.x {n=1}\nw.x {n=2}\nw.x {n=3}\nw.x {n=4}\n", "listen 'w.*' --share crew --count 2",
                "listen w.x --share crew --count 2", "send w.x 'n:i32={n}' --count 4");
        Cli.expect("{answer=\"a\"}\n{answer=\"b\"}\n", "reply ask answer:string=a --share crew --quiet --count 1",
                "reply ask answer:string=b --share crew --quiet --count 1", "request ask", "request ask");
    }

    @Test
    void aNameToShareUnderIsChecked() {
        for (String bad : List.of("''", "'two words'", "a.b", "'*'", "x".repeat(64))) {
            Cli refused = Cli.run("run", "-e", "listen a --share " + bad);
            assertEquals(2, refused.code(), bad);
            assertTrue(refused.err().contains("--share"), refused.err());
        }
        assertEquals(2, Cli.run("reply", "_QUORL.x", "--share", "crew").code());
    }

    @Test
    void aRequestThatNobodyAnswersFails() {
        assertEquals(new Cli(1, "", "quorl: -e line 1: request nobody.home: no reply within 0.05 s\n"),
                Cli.run("run", "-e", "request nobody.home --timeout 0.05", "-e", "send never.sent"));
    }

    @Test
    void aListenerThatMissesItsCountFails() {
        Cli missed = Cli.run("run", "-e", "listen a --count 2 --timeout 0.05", "-e", "send a");
        assertEquals(new Cli(1, "a {}\n", "quorl: -e line 1: listen a: 1 of 2 messages came within 0.05 s\n"), missed);
    }

    @Test
    void linesOfOneServiceDoNotHearAnother() {
        Cli.expect("a {n=1}\n", "listen a --service one", "send a n:i32=1 --service one", "send a n:i32=2 --service two",
                "send a n:i32=3", "send a n:i32=4 --service one --network other");
    }

    @Test
    void theOptionsOfRunAreThoseOfItsLines() {
        assertEquals(new Cli(0, "a {n=1}\n", ""), Cli.withInput("listen a --service one\nsend a n:i32=1\n", "run", "--service", "one"));
    }

    @Test
    void aLibraryFailureShowsWhatWasAskedForAndNumberAndText() {
        Cli failed = Cli.run("request", "a", "--service", "white space", "--network", "n");
        assertEquals(1, failed.code());
        assertTrue(failed.err().contains("quorl: transport --service 'white space' --network 'n': "
                + "The service is not known or malformed (status 16): "), failed.err());
        assertTrue(failed.err().lines().reduce((first, last) -> last).orElseThrow().contains("\"white space\""), failed.err());
    }

    @Test
    void aLoneCommandWarnsThatNobodyElseIsOnItsBus() {
        Cli sent = Cli.run("send", "a.b", "x:i32=1");
        assertEquals(0, sent.code());
        assertTrue(sent.err().contains("nobody in another process can hear this message"), sent.err());
        Cli heard = Cli.run("listen", "a.b", "--timeout", "0");
        assertEquals(0, heard.code());
        assertTrue(heard.err().contains("no message of another process can arrive here"), heard.err());
        Cli asked = Cli.run("request", "a.b", "--timeout", "0");
        assertEquals(1, asked.code());
        assertTrue(asked.err().endsWith("quorl: request a.b: no reply within 0 s\n"), asked.err());
        Cli answered = Cli.run("reply", "a.b", "--timeout", "0");
        assertEquals(0, answered.code());
    }

    @Test
    void aScriptIsCheckedBeforeItsFirstLineRuns() {
        assertEquals(
                new Cli(2, "", "quorl: -e line 3: field \"x\": type i8 takes a whole number from -128 to 127, not \"200\"\n"
                        + "quorl: try 'quorl run --help'\n"),
                Cli.run("run", "-e", "listen a", "-e", "send a", "-e", "send a x:i8=200"));
    }

    @Test
    void aScriptComesFromAFile(@TempDir Path folder) throws IOException {
        Path script = folder.resolve("greet.quorl");
        Files.writeString(script, "# a greeting\n\nquorl listen a\nsend a text:string='good morning'  # said\nwait 0\n");
        assertEquals(new Cli(0, "a {text=\"good morning\"}\n", ""), Cli.run("run", script.toString()));
        Files.writeString(script, "listen a\nsned a\n");
        Cli wrong = Cli.run("run", script.toString());
        assertEquals(2, wrong.code());
        assertTrue(wrong.err().startsWith("quorl: " + script + " line 2: there is no command 'sned'"), wrong.err());
        assertEquals(2, Cli.run("run", folder.resolve("missing").toString()).code());
        assertEquals(2, Cli.run("run", script.toString(), "-e", "send a").code());
    }

    @Test
    void aScriptMayNotNestOrAskForHelp() {
        assertEquals(2, Cli.run("run", "-e", "run x").code());
        assertEquals(2, Cli.run("run", "-e", "demo").code());
        assertEquals(2, Cli.run("run", "-e", "send --help").code());
    }

    @Test
    void standardInputRunsLineByLine() throws Exception {
        PipedOutputStream typed = new PipedOutputStream();
        PipedInputStream input = new PipedInputStream(typed);
        Lines printed = new Lines();
        FutureTask<Integer> run = new FutureTask<>(
                () -> Main.run(input, new PrintWriter(printed), new PrintWriter(new StringWriter()), "run", "-"));
        Thread thread = new Thread(run);
        thread.start();
        // The first line's effect is seen before the next is typed.
        typed.write("listen a\nsend a n:i32=1\n".getBytes(StandardCharsets.UTF_8));
        typed.flush();
        assertEquals("a {n=1}", printed.next());
        typed.write("send a n:i32=2\n".getBytes(StandardCharsets.UTF_8));
        typed.close();
        assertEquals("a {n=2}", printed.next());
        assertEquals(0, run.get(30, TimeUnit.SECONDS));
        thread.join();
    }

    @Test
    void aClosedOutputEndsTheCommandQuietly() {
        Writer closed = new Writer() {
            @Override
            public void write(char[] text, int offset, int length) throws IOException {
                throw new IOException("broken pipe");
            }

            @Override
            public void flush() {}

            @Override
            public void close() {}
        };
        StringWriter err = new StringWriter();
        int code = Main.run(InputStream.nullInputStream(), new PrintWriter(closed), new PrintWriter(err), "run", "-e",
                "listen a", "-e", "send a");
        assertEquals(1, code);
        assertEquals("", err.toString());
    }

    @Test
    void theVersionIsTheLibrarys() {
        Cli version = Cli.run("--version");
        assertEquals(0, version.code());
        assertTrue(version.out().matches("quorl [0-9]+\\.[0-9]+\\.[0-9]+\n"), version.out());
    }

    /** A writer that hands out whole lines to another thread. */
    private static final class Lines extends Writer {
        private final BlockingQueue<String> lines = new LinkedBlockingQueue<>();
        private final StringBuilder line = new StringBuilder();

        @Override
        public void write(char[] text, int offset, int length) {
            for (int i = offset; i < offset + length; i++) {
                if (text[i] == '\n') {
                    lines.add(line.toString());
                    line.setLength(0);
                } else {
                    line.append(text[i]);
                }
            }
        }

        String next() throws InterruptedException {
            return lines.poll(30, TimeUnit.SECONDS);
        }

        @Override
        public void flush() {}

        @Override
        public void close() {}
    }
}
