package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.Quorl;
import com.vesma.quorl.QuorlException;
import com.vesma.quorl.QuorlQrdTransport;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Test;

/** Addresses of daemons mean to the command what they mean to the library. */
class DaemonAddressTest {
    private static final Pattern TIMES = Pattern.compile("(.)\\{([0-9]+)\\}");

    private record Row(String address, String meaning) {}

    private static List<Row> rows() throws IOException {
        List<Row> rows = Files.readAllLines(Path.of(System.getProperty("cli.vectors"), "daemon-addresses.txt")).stream()
                .filter(line -> !line.isEmpty() && !line.startsWith("#"))
                .map(line -> line.split(" => ", 2)).map(parts -> new Row(expanded(parts[0]), expanded(parts[1]))).toList();
        assertTrue(rows.size() > 60);
        return rows;
    }

    private static String expanded(String text) {
        Matcher times = TIMES.matcher(text);
        return times.replaceAll(found -> found.group(1).repeat(Integer.parseInt(found.group(2))));
    }

    @Test
    void addressesAreReadAsTheTableSays() throws IOException {
        for (Row row : rows()) {
            String meaning;
            try {
                meaning = DaemonAddress.parse(row.address).stream().map(DaemonAddress::url).collect(Collectors.joining(" "));
            } catch (Failure e) {
                meaning = "! " + e.getMessage();
            }
            assertEquals(row.meaning, meaning, row.address);
        }
    }

    @Test
    @SuppressWarnings("try")
    void theLibraryRefusesWithTheSameWords() throws IOException {
        try (Quorl quorl = Quorl.open()) {
            for (Row row : rows()) {
                // An empty address is the bus inside the process.
                if (!row.meaning.startsWith("! ") || row.address.isEmpty()) continue;
                String said = "accepted";
                try (QuorlQrdTransport transport = new QuorlQrdTransport(null, null, row.address)) {
                    said += " as " + transport;
                } catch (QuorlException e) {
                    said = e.getMessage();
                }
                assertTrue(said.contains(row.meaning.substring(2)), () -> row.address);
            }
        }
    }
}
