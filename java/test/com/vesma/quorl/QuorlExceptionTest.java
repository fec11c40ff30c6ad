package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.reflect.Field;
import java.lang.reflect.Modifier;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Map;
import java.util.TreeMap;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;

/** Statuses and their texts, held against the library's own. */
class QuorlExceptionTest {
    private static final Path SOURCE = Path.of(System.getProperty("quorl.source"));

    private static Map<String, String> rows(String file, String pattern) throws Exception {
        Map<String, String> rows = new TreeMap<>();
        Matcher matcher = Pattern.compile(pattern, Pattern.MULTILINE).matcher(Files.readString(SOURCE.resolve(file)));
        while (matcher.find()) {
            rows.put(matcher.group(1), matcher.group(2));
        }
        return rows;
    }

    @Test
    void numbersAndTextsAreTheLibrarys() throws Exception {
        Map<String, String> numbers = rows("include/quorl/quorl.h", "^\\s+QUORL_(\\w+) = (\\d+),?$");
        // Other enumerations of the header begin with other words.
        Map<String, String> texts = rows("engine/capi/quorl_status.cpp", "\\{QUORL_(\\w+), \"([^\"]*)\"\\}");
        numbers.keySet().retainAll(texts.keySet());
        assertEquals(62, texts.size());
        Map<String, String> ours = new TreeMap<>();
        Map<String, String> ourTexts = new TreeMap<>();
        for (Field field : QuorlException.class.getFields()) {
            if (Modifier.isStatic(field.getModifiers()) && field.getType() == int.class) {
                ours.put(field.getName(), String.valueOf(field.getInt(null)));
                ourTexts.put(field.getName(), QuorlException.text(field.getInt(null)));
            }
        }
        assertEquals(numbers, ours);
        assertEquals(texts, ourTexts);
    }

    @Test
    void messagesSayWhatIsKnown() {
        assertEquals("Not found (status 35)", new QuorlException(35, (String) null).getMessage());
        // The library is not open here.
        assertTrue(new QuorlException(35).getMessage().endsWith("only while it is open; call Quorl.open() first"));
        assertEquals(35, new QuorlException(35).getStatus());
        assertEquals("Not found (status 35): field \"a\"", new QuorlException(35).about("field \"a\"").getMessage());
        assertEquals("Not found (status 35): field \"a\": it is gone",
                new QuorlException(35, "it is gone").about("field \"a\"").getMessage());
        assertEquals("Unknown status", QuorlException.text(12));
        assertEquals("Unknown status (status 999)", new QuorlException(999, (String) null).getMessage());
        QuorlClosedException closed = new QuorlClosedException(QuorlException.INVALID_QUEUE, "the queue");
        assertEquals(QuorlException.INVALID_QUEUE, closed.getStatus());
        assertTrue(closed.getMessage().endsWith("the queue is closed"), closed.getMessage());
    }
}
