package com.vesma.quorl.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;

import org.junit.jupiter.api.Test;

class JsonTest {
    private static String string(String text) {
        StringBuilder out = new StringBuilder();
        Json.string(out, text);
        return out.toString();
    }

    @Test
    void textIsEscapedOnlyWhereItMustBe() {
        assertEquals("\"plain größe 😀 /\"", string("plain größe 😀 /"));
        assertEquals("\"\\\" \\\\ \\n\\r\\t \\u0000\\u001b\\u007f\\u2028\"", string("\" \\ \n\r\t \0\u001b\u007f\u2028"));
        assertEquals("\"\\ud83d!\"", string("\ud83d!"), "half a pair");
        assertEquals("\"\\ude00\"", string("\ude00"), "the other half");
    }
}
