package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.QuorlMsg;
import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.function.UnaryOperator;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** What listen and reply write as a table or as JSON comes back as the same messages. */
class RecordingTest {
    /** Members of messages as JSON has them: every type, with the values that are hard to write. */
    private static final String[] VALUES = {"bool|true", "bool|false", "i8|-128", "u8|255", "i16|-32768", "u16|65535",
            "i32|-2147483648", "u32|4294967295", "i64|\"-9223372036854775808\"", "u64|\"18446744073709551615\"", "f32|1.0E-45",
            "f32|-0.0", "f32|3.4028235E38", "f32|\"NaN\"", "f32|\"NaN(7fc00001)\"", "f64|4.9E-324", "f64|-0.0", "f64|0.1",
            "f64|\"-Infinity\"", "f64|\"Infinity\"", "f64|\"NaN\"", "f64|\"NaN(fff8000000000000)\"", "string|\"\"",
            "string|\" \"", "string|\"subject\"", "string|\"a,b\"", "string|\"say \\\"hi\\\"\"", "string|\"two\\r\\nlines\\n\"",
            "string|\"\\r\"", "string|\"\uFEFFgröße 😀\"", "string|\"{n}\"", "string|\"\\t\"", "opaque|\"\"", "opaque|\"AMr+\"",
            "xml|\"\"", "xml|\"PGEvPg==\"", "xml|\"/wAB\"", "xml|\"YmFzZTY0Og==\"", "datetime|\"2026-01-31T12:00:00.000000001Z\"",
            "datetime|\"1969-12-31T23:59:59.999999999Z\"", "datetime|\"+1000000000-12-31T23:59:59.999999999Z\"",
            "datetime|\"-1000000000-01-01T00:00:00Z\"", "ipport16|65535", "ipaddr32|\"192.168.1.2\"", "user128|\"AA==\"",
            "user255|\"\"", "msg|{}", "msg|{\"a:string\":\"x,\\\"y\\\"\",\"b:msg\":{\"i32#5\":1}}", "i8[]|[]", "i8[]|[-128,127]",
            "u8[]|[255]", "i16[]|[-1]", "u16[]|[65535]", "i32[]|[1,2,3]", "u32[]|[4294967295]",
            "i64[]|[\"-9223372036854775808\"]", "u64[]|[\"18446744073709551615\"]", "f32[]|[0.1,\"NaN\"]",
            "f64[]|[0.1,\"-Infinity\"]", "string[]|[\"\",\"a,\\\"b\\\"\"]", "msg[]|[{},{\"a:i32\":1}]"};

    private static final String[] NAMES = {"a", "b", "c", "", null, "a=b", "x:y", "with,comma", "\"quoted\"", "größe", "subject"};

    @TempDir
    Path folder;

    private static List<QuorlMsg> messages(long seed, int count) {
        Random random = new Random(seed);
        List<QuorlMsg> messages = new ArrayList<>();
        for (int m = 0; m < count; m++) {
            StringBuilder json = new StringBuilder("{");
            int fields = random.nextInt(6);
            List<String> used = new ArrayList<>();
            for (int f = 0; f < fields; f++) {
                String name = NAMES[random.nextInt(NAMES.length)];
                String[] value = VALUES[random.nextInt(VALUES.length)].split("\\|", 2);
                long instance = 1 + used.stream().filter(other -> other.equals(String.valueOf(name))).count();
                used.add(String.valueOf(name));
                if (f > 0) json.append(',');
                Json.string(json, (name == null ? "" : name + ":") + value[0] + (random.nextInt(4) == 0 ? "#" + (f + 1) : "")
                        + (instance > 1 ? "~" + instance : ""));
                json.append(':').append(value[1]);
            }
            QuorlMsg message = QuorlMsg.fromJson(json.append('}').toString());
            message.setSendSubject(random.nextInt(3) == 0 ? "subject" : "plant.größe.\"" + random.nextInt(5) + ",\"");
            if (random.nextInt(10) == 0) message.setReplySubject("_INBOX.a,b");
            messages.add(message);
        }
        return messages;
    }

    private static void comesBack(List<QuorlMsg> messages, String text, boolean csv) throws IOException {
        InputStream bytes = new ByteArrayInputStream(text.getBytes(StandardCharsets.UTF_8));
        TextSource source = new TextSource("-", bytes);
        try (MessageSource read = csv ? new CsvMessages(source, null, List.of()) : new JsonMessages(source, null, List.of())) {
            for (QuorlMsg message : messages) {
                try (QuorlMsg back = read.next()) {
                    assertArrayEquals(message.toBytes(), back.toBytes(), () -> message.toJson() + " came back as " + back.toJson());
                    assertEquals(message.getSendSubject(), back.getSendSubject());
                    assertEquals(message.getReplySubject(), back.getReplySubject());
                }
            }
            assertNull(read.next());
        }
        messages.forEach(QuorlMsg::close);
    }

    private static String lines(List<QuorlMsg> messages, UnaryOperator<String> end, boolean csv) {
        CsvTable table = new CsvTable();
        StringBuilder text = new StringBuilder();
        for (QuorlMsg message : messages) {
            text.append(end.apply(csv ? table.lines(message) : Messages.line(message, true)));
        }
        return text.toString();
    }

    @ParameterizedTest
    @ValueSource(longs = {1, 2, 3, 4, 5, 6, 7, 8})
    void aTableGivesTheSameMessages(long seed) throws IOException {
        List<QuorlMsg> messages = messages(seed, 200);
        comesBack(messages, lines(messages, line -> line + "\n", true), true);
    }

    @ParameterizedTest
    @ValueSource(longs = {1, 2, 3, 4})
    void jsonGivesTheSameMessages(long seed) throws IOException {
        List<QuorlMsg> messages = messages(seed, 200);
        comesBack(messages, lines(messages, line -> line + "\r\n", false), false);
    }

    @Test
    void everyValueComesBackAlone() throws IOException {
        for (String value : VALUES) {
            String[] parts = value.split("\\|", 2);
            for (boolean csv : new boolean[] {true, false}) {
                List<QuorlMsg> one = List.of(QuorlMsg.fromJson("{\"v:" + parts[0] + "\":" + parts[1] + "}").setSendSubject("a"));
                comesBack(one, lines(one, line -> line + "\n", csv), csv);
            }
        }
    }

    @Test
    void twoRecordingsInOneFileAreOne() throws IOException {
        List<QuorlMsg> first = messages(11, 20);
        List<QuorlMsg> second = messages(12, 20);
        String text = lines(first, line -> line + "\n", true) + lines(second, line -> line + "\n", true);
        first.addAll(second);
        comesBack(first, text, true);
    }

    @Test
    void columnsAreNamedAnewOnlyWhenTheyLackSomething() {
        assertEquals("subject,a:i32\na,1\n\nsubject,a:i32,b:string\na,,x\na,2,\na,3,y\na,,\n\nsubject,a:i32,b:string,a:i32\n"
                + "a,,z,4\n", lines(List.of(of("{\"a:i32\":1}"), of("{\"b:string\":\"x\"}"), of("{\"a:i32\":2}"),
                        of("{\"a:i32\":3,\"b:string\":\"y\"}"), of("{}"), of("{\"b:string\":\"z\",\"a:i32\":4}")),
                        line -> line + "\n", true));
    }

    private static QuorlMsg of(String json) {
        return QuorlMsg.fromJson(json).setSendSubject("a");
    }

    @Test
    void commandsRecordAndPlayBack() throws IOException {
        String table = folder.resolve("t.csv").toString();
        String script = "send a.1 n:i32=1 's:string='\nsend a.2 'l:i32[]=[1,2]' 'm:msg={\"x:u8\":1}'\nsend a.3\n";
        String printed = "a.1 {n=1, s=\"\"}\na.2 {l[2]={1, 2}, m={x=1}}\na.3 {}\n";
        Cli.expect(printed, ("listen 'a.>'\nlisten 'a.>' --csv '" + table + "'\n" + script).split("\n"));
        Cli.expect(printed, "listen 'a.>'", "send --csv '" + table + "'");
        Cli json = Cli.withInput("listen 'a.>' --json\n" + script, "run");
        String recorded = Files.writeString(folder.resolve("t.json"), json.out()).toString();
        Cli.expect(printed, "listen 'a.>'", "send --json-file '" + recorded + "'");
        Cli.expect("b {n=1, s=\"\", k=1}\n", "listen b", "send b 'k:i32={n}' --json-file '" + recorded + "' --count 1");
        Cli out = Cli.withInput("listen 'a.>' --csv -\n" + script, "run");
        assertEquals(Files.readString(Path.of(table)), out.out());
        Cli asked = Cli.withInput("reply q --csv -\nrequest q n:i32=5\n", "run");
        assertTrue(asked.out().matches("subject,reply,n:i32\nq,_INBOX\\.[^,]+,5\n\\{}\n"), asked.out());
    }

    @Test
    void aRecordingIsNotWrittenOver() throws IOException {
        String table = Files.writeString(folder.resolve("old.csv"), "subject\na\n").toString();
        Cli again = Cli.run("listen", "a", "--csv", table);
        assertEquals(2, again.code());
        assertTrue(again.err().startsWith("quorl: there is a file \"" + table + "\" already"), again.err());
        Cli both = Cli.run("listen", "a", "--csv", "-", "--json");
        assertEquals(2, both.code());
        Cli nowhere = Cli.run("listen", "a", "--csv", folder.resolve("none/t.csv").toString());
        assertEquals(1, nowhere.code());
        assertTrue(nowhere.err().endsWith("there is no such folder\n"), nowhere.err());
    }

    @Test
    void aFullDiskEndsTheRecording() {
        Cli full = Cli.run("run", "-e", "listen a --csv /dev/full --count 1", "-e", "send a");
        assertEquals(1, full.code());
        assertTrue(full.err().contains("cannot write \"/dev/full\": "), full.err());
    }

    @Test
    void jsonThatIsWrongIsShownWhereItIs() throws IOException {
        String[][] texts = {{"{\"a:i32\":1}\n{\"a:i32\":1,\"b:i32\":\"z\"}\n", " line 2 column 12: field \"b\": "},
                {"{\"a:i32\" 1}\n", " line 1 column 11: this is no JSON"}, {"[]\n", " line 1 column 1: "},
                {"hello\n", " line 1 column "}, {"{\"a\":1}\n", " line 1 column 2: member \"a\""},
                {"{\"a:i32\":1", " line 1 column "}, {"{\"a:i32\":1} x\n", " line 1 column "},
                {"{\"message\":{\"a:i32\":1,\"b:u8\":256}}\n", " line 1 column 23: field \"b\": "},
                {"{\"message\":{},\"more\":1}\n", " line 1 column 15: member \"more\": "},
                {"{\"message\":{},\"message\":{}}\n", " line 1 column 15: member \"message\": "},
                {"{\"message\":{},\"reply\":\"a..b\"}\n", " line 1 column 23: reply subject \"a..b\": "},
                {"{\"a:i32#7\":1,\"b:i32#7\":2}\n", " line 1 column "},
                {"{\"s:string\":\"\\ud800\"}\n", " line 1 column "}};
        for (String[] text : texts) {
            String name = Files.writeString(folder.resolve("wrong.json"), text[0]).toString();
            Cli sent = Cli.run("send", "a", "--json-file", name);
            assertEquals(2, sent.code(), sent.err());
            assertTrue(sent.err().startsWith("quorl: " + name + text[1]), sent.err());
            assertEquals(2, sent.err().lines().count(), sent.err());
        }
        Cli nowhere = Cli.withInput("{\"subject\":\"a\",\"message\":{}}\n{}\n", "send", "--json-file", "-");
        assertEquals(1, nowhere.code());
        assertTrue(nowhere.err().contains("standard input line 2 column 1: there is no \"subject\""), nowhere.err());
        assertTrue(nowhere.err().endsWith("; 1 message was sent before it\n"), nowhere.err());
    }

    @Test
    void anEndlessLineIsRefused() {
        InputStream endless = new InputStream() {
            @Override
            public int read() {
                return 'x';
            }

            @Override
            public int read(byte[] to, int offset, int length) {
                Arrays.fill(to, offset, offset + length, (byte) 'x');
                return length;
            }
        };
        for (String form : new String[] {"--csv", "--json-file"}) {
            Cli sent = Cli.withInput(endless, "send", "a", form, "-");
            assertEquals(1, sent.code());
            assertTrue(sent.err().contains(TextSource.TOO_LONG), sent.err());
        }
    }
}
