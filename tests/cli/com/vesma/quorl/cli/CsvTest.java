package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.io.StringReader;
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
        for (List<String> record = reader.read(); record != null; record = reader.read()) records.add(record);
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
        assertTrue(wrong.err().contains("standard input line 4: field \"n\": type i32 takes"), wrong.err());
        assertTrue(wrong.err().contains("2 messages were sent before it"), wrong.err());
        Cli script = Cli.run("run", "-e", "send a --csv -");
        assertEquals(2, script.code(), script.err());
    }

    @Test
    void aTableWithAMistakeIsNotBegun() throws IOException {
        String[][] tables = {{"n:i32\n1\nx\n", " line 3: field \"n\": type i32 takes"},
                {"n:i32\n1,2\n", " line 2: 2 cells, and 1 columns"}, {"n\n1\n", " line 1: field \"n\" has no type"},
                {"n:int\n1\n", " line 1: field \"n\": unknown type \"int\""}, {"", " line 1: there is no record"},
                {"n:i32\n\"1\n", " line 2: a quote that is not closed"}};
        for (String[] table : tables) {
            String name = file("wrong.csv", table[0]);
            Cli sent = Cli.run("send", "a", "--csv", name);
            assertEquals(2, sent.code(), sent.err());
            assertTrue(sent.err().contains(name + table[1]), sent.err());
        }
        Cli.expectUsage("there is no file \"" + folder.resolve("none") + "\"", "quorl send", "send", "a", "--csv",
                folder.resolve("none").toString());
    }
}
