package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.charset.StandardCharsets;
import java.util.stream.IntStream;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Arrays of more strings than the machine gives a native references for: it warns of one that takes them unasked. */
class ManyStringsTest extends OpenLibrary {
    private static String[] texts(int count) {
        return IntStream.range(0, count).mapToObj(i -> "t" + i).toArray(String[]::new);
    }

    @ParameterizedTest
    @ValueSource(ints = {12, 13, 32, 33, 1000, 4096, 4097, 100_000})
    void areAddedUpdatedAndRead(int count) {
        String[] texts = texts(count);
        try (QuorlMsg message = new QuorlMsg()) {
            message.addStringArray("s", texts);
            assertArrayEquals(texts, message.getStringArray("s"));
        }
    }

    @ParameterizedTest
    @ValueSource(ints = {33, 1000, 100_000})
    void crossInBothFormsOfTheName(int count) {
        Object[] bytes = IntStream.range(0, count).mapToObj(i -> ("t" + i).getBytes(StandardCharsets.US_ASCII)).toArray();
        byte[] name = {'n'};
        long message = QuorlMsg.quorlMsg_Create();
        QuorlMsg.quorlMsg_AddStringArray(message, name, 1, bytes, count, (short) 0, null);
        QuorlMsg.quorlMsg_UpdateStringArray(message, name, 1, bytes, count, (short) 0, null);
        QuorlMsg.quorlMsg_AddStringArrayUTF(message, "u", bytes, count, (short) 0, null);
        QuorlMsg.quorlMsg_UpdateStringArrayUTF(message, "u", bytes, count, (short) 0, null);
        for (int index = 0; index < 2; index++) {
            Object[] read = QuorlMsg.quorlMsg_GetStringArray(message, index, null);
            assertEquals(count, read.length);
            assertArrayEquals((byte[]) bytes[count - 1], (byte[]) read[count - 1]);
        }
        QuorlMsg.quorlMsg_Destroy(message, null);
    }

    @ParameterizedTest
    @ValueSource(ints = {33, 1000, 100_000})
    void areTakenAsParameters(int count) {
        String[] parameters = texts(count);
        assertEquals(QuorlException.NOT_PERMITTED, Quorl.quorl_SetQRParameters(parameters, count));
    }
}
