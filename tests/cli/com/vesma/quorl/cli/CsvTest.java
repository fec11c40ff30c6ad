package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.StringReader;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Tables: their cells, their columns, and what is said of wrong ones. */
class CsvTest {
    @TempDir
    Path folder;

    private static List<List<String>> records(String text) throws IOException {
        CsvReader reader = new CsvReader(new StringReader(text));
        List<List<String>> records = new ArrayList<>();
        for (List<CsvReader.Cell> record = reader.read(); record != null; record = reader.read()) {
            records.add(record.stream().map(CsvReader.Cell::text).toList());
        }
        assertNull(reader.read());
        return records;
    }

    private String file(String name, String text) throws IOException {
        return Files.writeString(folder.resolve(name), text).toString();
    }

    @Test
    void cellsMayBeQuoted() throws IOException {
        assertEquals(List.of(), records(""));
        assertEquals(List.of(), records("\n\r\n"));
        assertEquals(List.of(List.of("a", "b"), List.of("1", "")), records("a,b\n1,"));
        assertEquals(List.of(List.of("a"), List.of("b")), records("\ufeffa\r\n\r\nb\r\n"));
        assertEquals(List.of(List.of("x, y", "say \"hi\"", "two\r\nlines", "")),
                records("\"x, y\",\"say \"\"hi\"\"\",\"two\r\nlines\",\"\"\n"));
        for (String wrong : List.of("\"open", "a\"b", "\"a\"b", "\"a\" ,b")) {
            assertThrows(IllegalArgumentException.class, () -> records(wrong), wrong);
        }
    }

    @Test
    void recordsBecomeTypedMessages() throws IOException {
        String table = file("t.csv", "line:u8,celsius:f64,note:string\n3,71.5,\"hot, \"\"very\"\"\"\n4,,{n}\n");
        Cli.expect("a {line=3, celsius=71.5, note=\"hot, \\\"very\\\"\"}\na {line=4, note=\"{n}\"}\n",
                "listen a", "send a --csv '" + table + "'");
        Cli.expect("a {n=1, line=3, celsius=71.5, note=\"hot, \\\"very\\\"\"}\n",
                "listen a", "send a 'n:i32={n}' --csv '" + table + "' --count 1 --rate 1000");
    }

    @Test
    void standardInputIsATableToo() {
        Cli sent = Cli.withInput("n:i32\n1\n2\n", "send", "a", "--csv", "-");
        assertEquals(0, sent.code(), sent.err());
        Cli wrong = Cli.withInput("n:i32\n1\n2\nx\n", "send", "a", "--csv", "-");
        assertEquals(1, wrong.code());
        assertTrue(wrong.err().contains("quorl: standard input line 4 column 1: field \"n\": type i32 takes"), wrong.err());
        assertTrue(wrong.err().contains("2 messages were sent before it"), wrong.err());
        Cli script = Cli.run("run", "-e", "send a --csv -");
        assertEquals(2, script.code(), script.err());
    }

    @Test
    void aTableWithAMistakeIsNotBegun() throws IOException {
        String[][] tables = {{"n:i32\n1\nx\n", " line 3 column 1: field \"n\": type i32 takes"},
                {"n:i32\n1,2\n", " line 2 column 3: 2 cells, and 1 columns"},
                {"a:i32,n\n1,2\n", " line 1 column 7: field \"n\" has no type; write n:type, with"},
                {"n:int\n1\n", " line 1 column 1: field \"n\": unknown type \"int\""},
                {"n:i32#x\n1\n", " line 1 column 1: field \"n\": an id is"},
                {"", " line 1 column 1: there is no record"},
                {"n:i32\n\"1\n", " line 2 column 1: a quote that is not closed"},
                {"n:i32,s:string\n1,b\"\n", " line 2 column 3: a quote inside"},
                {"s:string,n:i32\n\"two\nlines\",99999999999999999999\n", " line 3 column 8: field \"n\": type i32 takes"},
                {"a:i32[],b:i32[]\n\"[1,2]\",\"[1,\"\"x\"\"]\"\n", " line 2 column 9: field \"b\" > element 1: "},
                {"a:msg\n{\n", " line 2 column 1: field \"a\": type msg takes JSON"},
                {"a:i32[]\n\"[1],\"\"b:i32\"\":2\"\n", " line 2 column 1: field \"a\": type i32[] takes JSON"},
                {"a:i32#7,b:i32#7\n1,2\n", " line 2 column 3: "},
                {"reply,n:i32\n_INBOX.>,2\n", " line 2 column 1: reply subject \"_INBOX.>\": "},
                {"subject,subject\n", " line 1 column 9: a second column \"subject\""}};
        for (String[] table : tables) {
            String name = file("wrong.csv", table[0]);
            Cli sent = Cli.run("send", "a", "--csv", name);
            assertEquals(2, sent.code(), sent.err());
            assertTrue(sent.err().startsWith("quorl: " + name + table[1]), sent.err());
            assertTrue(sent.err().contains("; nothing was sent\n"), sent.err());
        }
    }

    @Test
    void bytesThatAreNoUtf8AreShownWhereTheyAre() throws IOException {
        byte[] bytes = "s:string,t:string\n\u00e4,\ud83d\ude00\n\u00e4\ud83d\ude00,x?\n".getBytes(StandardCharsets.UTF_8);
        bytes[bytes.length - 2] = (byte) 0xFF;
        String name = folder.resolve("bytes.csv").toString();
        Files.write(Path.of(name), bytes);
        Cli sent = Cli.run("send", "a", "--csv", name);
        assertEquals(2, sent.code());
        assertTrue(sent.err().startsWith("quorl: " + name + " line 3 column 4: bytes that are no UTF-8"), sent.err());
    }

    @Test
    void aFileThatCannotBeReadIsNamedWithTheReason() {
        Cli.expectUsage("cannot read \"" + folder.resolve("none") + "\": there is no such file", "quorl send", "send", "a",
                "--csv", folder.resolve("none").toString());
        Cli.expectUsage("cannot read \"" + folder + "\": Is a directory", "quorl send", "send", "a", "--csv", folder.toString());
        Cli.expectUsage("cannot read \"" + folder + "\": Is a directory", "quorl send", "send", "a", "--json-file", folder.toString());
        Cli.expectUsage("messages come from a table or from JSON, not from both", "quorl send", "send", "a", "--csv", "-",
                "--json-file", "-");
    }

    @Test
    void aTableMayNameTheSubjects() throws IOException {
        String table = file("t.csv", "subject,n:i32\na.1,1\na.2,2\n\nsubject,s:string,reply\n\"subject\",x,\na.3,,b\n");
        Cli.expect("a.1 {n=1}\na.2 {n=2}\nsubject {s=\"x\"}\na.3 {}\n", "listen 'a.*' subject", "send --csv '" + table + "'");
        Cli.expect("b {n=1}\nb {n=2}\nb {s=\"x\"}\nb {}\n", "listen b", "send b --csv '" + table + "'");
        Cli.expect("{\"subject\":\"b\",\"reply\":\"b\",\"message\":{}}\n", "listen b --json",
                "send b --csv '" + file("r.csv", "reply,n:i32\nb,\n") + "'");
        Cli none = Cli.run("send", "--csv", file("none.csv", "n:i32\n1\n"));
        assertEquals(2, none.code());
        assertTrue(none.err().contains("the table has no column \"subject\""), none.err());
        Cli empty = Cli.run("send", "--csv", file("empty.csv", "n:i32,subject\n1,\n"));
        assertTrue(empty.err().contains(" line 2 column 3: subject \"\": it is empty"), empty.err());
    }

    @Test
    void requestsComeFromATableToo() throws IOException {
        String table = file("q.csv", "zone:string\nUTC\nEET\n");
        Cli.expect("{zone=\"UTC\", n=1}\n{zone=\"EET\", n=2}\n", "reply clock --echo 'n:i32={n}' --quiet",
                "request clock --csv '" + table + "'");
        Cli one = Cli.withInput("", "run", "-e", "reply clock --quiet --count 1", "-e", "request clock --timeout 0.05 --csv '"
                + table + "'");
        assertEquals(1, one.code());
        assertTrue(one.err().contains("request clock: no reply within 0.05 s; 1 message was sent before it"), one.err());
    }
}
