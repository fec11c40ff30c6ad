package com.vesma.quorl;

import static com.vesma.quorl.QuorlMsgTest.assertStatus;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.math.BigInteger;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Every type of field: add, update, get, by name and by id, at the ends of its range. */
class MessageValuesTest {
    private final QuorlMsg m = new QuorlMsg();

    @AfterEach
    void close() {
        m.close();
    }

    private Object value(String name) {
        return m.getField(name).getValue();
    }

    @Test
    void bool() {
        m.addBool("a", true).addBool("b", 1, false).updateBool("c", true).updateBool("a", false).updateBool("b", 1, true);
        assertEquals(List.of(false, true, true), List.of(m.getBool("a"), m.getBool(1), m.getBool("c")));
        assertEquals(true, value("b"));
    }

    @Test
    void signedNumbers() {
        m.addI8("i8", Byte.MIN_VALUE).addI16("i16", Short.MIN_VALUE).addI32("i32", Integer.MIN_VALUE).addI64("i64", Long.MIN_VALUE);
        assertEquals(Byte.MIN_VALUE, m.getI8("i8"));
        assertEquals(Short.MIN_VALUE, m.getI16("i16"));
        assertEquals(Integer.MIN_VALUE, m.getI32("i32"));
        assertEquals(Long.MIN_VALUE, m.getI64("i64"));
        m.updateI8("i8", Byte.MAX_VALUE).updateI16("i16", Short.MAX_VALUE).updateI32("i32", Integer.MAX_VALUE)
                .updateI64("i64", Long.MAX_VALUE);
        assertEquals(Byte.MAX_VALUE, value("i8"));
        assertEquals(Short.MAX_VALUE, value("i16"));
        assertEquals(Integer.MAX_VALUE, value("i32"));
        assertEquals(Long.MAX_VALUE, value("i64"));
        m.addI8("x", 1, (byte) 1).addI16("x", 2, (short) 2).addI32("x", 3, 3).addI64("x", 4, 4);
        m.updateI8("x", 1, (byte) 10).updateI16("x", 2, (short) 20).updateI32("x", 3, 30).updateI64("x", 4, 40);
        assertEquals(10 + 20 + 30 + 40, m.getI8(1) + m.getI16(2) + m.getI32(3) + m.getI64(4));
    }

    @Test
    void unsignedNumbers() {
        m.addU8("u8", 255).addU16("u16", 65535).addU32("u32", 4294967295L).addU64("u64", -1);
        assertEquals(255, m.getU8("u8"));
        assertEquals(65535, m.getU16("u16"));
        assertEquals(4294967295L, m.getU32("u32"));
        assertEquals(-1, m.getU64("u64"));
        assertEquals((short) 255, value("u8"));
        assertEquals(65535, value("u16"));
        assertEquals(4294967295L, value("u32"));
        assertEquals(new BigInteger("18446744073709551615"), value("u64"));
        m.updateU8("u8", 0).updateU16("u16", 0).updateU32("u32", 0).updateU64("u64", 0);
        assertEquals(0, m.getU8("u8") + m.getU16("u16") + m.getU32("u32") + m.getU64("u64"));
        m.addU8("x", 1, 200).addU16("x", 2, 50000).addU32("x", 3, 3_000_000_000L).addU64("x", 4, 4);
        m.updateU8("x", 1, 201).updateU16("x", 2, 50001).updateU32("x", 3, 3_000_000_001L).updateU64("x", 4, 5);
        assertEquals(201, m.getU8(1));
        assertEquals(50001, m.getU16(2));
        assertEquals(3_000_000_001L, m.getU32(3));
        assertEquals(5, m.getU64(4));
        for (int bad : new int[] {-1, 256}) {
            assertThrows(IllegalArgumentException.class, () -> m.addU8("bad", bad));
            assertThrows(IllegalArgumentException.class, () -> m.updateU8("bad", bad));
        }
        assertThrows(IllegalArgumentException.class, () -> m.addU16("bad", 65536));
        assertThrows(IllegalArgumentException.class, () -> m.addU32("bad", 1L << 32));
        assertThrows(IllegalArgumentException.class, () -> m.addU32("bad", -1));
    }

    @Test
    void floatingPoint() {
        m.addF32("f32", Float.MIN_VALUE).addF64("f64", Double.MAX_VALUE).addF32("x", 1, 1.5f).addF64("x", 2, 2.5);
        assertEquals(Float.MIN_VALUE, m.getF32("f32"));
        assertEquals(Double.MAX_VALUE, m.getF64("f64"));
        m.updateF32("f32", Float.NaN).updateF64("f64", -0.0).updateF32("x", 1, 3.5f).updateF64("x", 2, 4.5);
        assertEquals(Float.NaN, value("f32"));
        assertEquals(-0.0, value("f64"));
        assertEquals(8.0, m.getF32(1) + m.getF64(2));
    }

    @Test
    void numbersAreConvertedWhenTheyFit() {
        m.addI64("n", 200).addF64("half", 0.5).addU64("huge", -1).addI8("negative", (byte) -1);
        assertEquals(200, m.getU8("n"));
        assertEquals(200, m.getI16("n"));
        assertEquals(200.0, m.getF64("n"));
        assertEquals(200, m.getU64("n"));
        assertStatus(QuorlException.CONVERSION_FAILED, () -> m.getI8("n"));
        assertStatus(QuorlException.CONVERSION_FAILED, () -> m.getI32("half"));
        assertStatus(QuorlException.CONVERSION_FAILED, () -> m.getI64("huge"));
        for (org.junit.jupiter.api.function.Executable call : List.<org.junit.jupiter.api.function.Executable>of(
                () -> m.getU8("negative"), () -> m.getU16("negative"), () -> m.getU32("negative"),
                () -> m.getU64("negative"))) {
            assertStatus(QuorlException.CONVERSION_FAILED, call);
        }
    }

    @Test
    void updatesKeepTheType() {
        m.addI32("n", 1);
        assertStatus(QuorlException.INVALID_TYPE, () -> m.updateString("n", "text"));
        assertStatus(QuorlException.INVALID_TYPE, () -> m.updateF64Array("n", new double[1]));
        assertEquals(1, m.getI32("n"));
    }

    @Test
    void text() {
        String[] texts = {"", "ascii", "é", "日本語", "😀 emoji 👩‍👩‍👧", "?", "\u0001\uffff", "x".repeat(100_000)};
        for (String text : texts) {
            m.reset().addString("s", text).addString("t", 1, text);
            assertEquals(text, m.getString("s"));
            assertEquals(text, m.getString(1));
            assertEquals(text, value("s"));
            assertEquals("new" + text, m.updateString("s", "new" + text).getString("s"));
            assertEquals("new", m.updateString("t", 1, "new").getString("t"));
            if (!text.isEmpty() && text.getBytes(StandardCharsets.UTF_8).length <= 127) {
                assertEquals(5, m.reset().addI32(text, 5).getI32(text));
                assertEquals(text, m.getFieldAt(0).getName());
                assertTrue(m.has(text));
                assertTrue(m.remove(text));
            }
        }
    }

    @Test
    void textWithAZeroIsRefusedEverywhere() {
        m.addI32("a", 1);
        List<org.junit.jupiter.api.function.Executable> calls = List.of(
                () -> m.addString("s", "a\0b"), () -> m.updateString("s", "\0"), () -> m.addString("s\0", "a"),
                () -> m.addI32("a\0", 1), () -> m.updateI32("a\0", 1), () -> m.getI32("a\0"), () -> m.has("a\0"),
                () -> m.remove("a\0"), () -> m.getField("a\0"), () -> m.getFields("a\0"),
                () -> m.addStringArray("s", new String[] {"a", "b\0"}), () -> m.setSendSubject("a\0"),
                () -> m.setReplySubject("a\0"), () -> new QuorlMsg("a\0"), () -> m.addString("s", "half \ud83d"),
                () -> m.addString("s", "\ude00\ud83d"), () -> m.addStringArray("s", new String[] {"\ud83d?"}),
                () -> m.addOpaque("o\0", new byte[1]), () -> m.addMsg("m\0", m), () -> m.addI32Array("i\0", new int[1]));
        for (int i = 0; i < calls.size(); i++) {
            assertThrows(IllegalArgumentException.class, calls.get(i), "call " + i);
        }
        assertEquals(1, m.getFieldCount());
    }

    @Test
    void times() {
        Instant[] times = {Instant.EPOCH, Instant.MAX, Instant.MIN, Instant.parse("1969-12-31T23:59:59.999999999Z")};
        for (Instant time : times) {
            m.reset().addDateTime("t", time).addDateTime("x", 1, Instant.EPOCH).updateDateTime("x", 1, time);
            assertEquals(time, m.getDateTime("t"));
            assertEquals(time, m.getDateTime(1));
            assertEquals(time, value("t"));
            assertEquals(Instant.EPOCH, m.updateDateTime("t", Instant.EPOCH).getDateTime("t"));
        }
        QuorlMsg.quorlMsg_AddDateTime(m.ownHandle(), new byte[] {'z'}, 1, Long.MAX_VALUE, 0, (short) 0, m);
        assertStatus(QuorlException.CONVERSION_FAILED, () -> m.getDateTime("z"));
    }

    @Test
    void portsAndAddresses() throws Exception {
        Inet4Address address = (Inet4Address) InetAddress.getByName("192.168.1.2");
        Inet4Address other = (Inet4Address) InetAddress.getByName("255.0.0.1");
        m.addIPPort16("p", 0x1234).addIPAddr32("a", address).addIPPort16("x", 1, 65535).addIPAddr32("x", 2, other);
        assertEquals(0x1234, m.getIPPort16("p"));
        assertEquals(65535, m.getIPPort16(1));
        assertEquals(address, m.getIPAddr32("a"));
        assertEquals(other, m.getIPAddr32(2));
        m.updateIPPort16("p", 443).updateIPAddr32("a", other).updateIPPort16("x", 1, 80).updateIPAddr32("x", 2, address);
        assertEquals(443, value("p"));
        assertEquals(other, value("a"));
        assertEquals(80, m.getIPPort16(1));
        assertEquals(address, m.getIPAddr32(2));
        assertThrows(IllegalArgumentException.class, () -> m.addIPPort16("p", 65536));
        assertTrue(m.toString().contains("192.168.1.2"), m.toString());
    }

    @Test
    void messagesInside() {
        try (QuorlMsg inner = new QuorlMsg().addI32("n", 1); QuorlMsg other = new QuorlMsg().addI32("n", 2)) {
            m.addMsg("m", inner).addMsg("x", 1, inner).updateMsg("x", 1, other);
            inner.updateI32("n", 9);
        }
        QuorlMsg view = m.getMsg("m");
        assertEquals(1, view.getI32("n"));
        assertEquals(2, m.getMsg(1).getI32("n"));
        view.close();
        assertEquals(1, view.getI32("n"), "closing a view does nothing");
        try (QuorlMsg copy = view.copy()) {
            m.updateMsg("m", copy.updateI32("n", 3));
        }
        assertEquals(3, ((QuorlMsg) value("m")).getI32("n"));
        m.addMsg("self", m).addMsg("view", m.getMsg(1));
        assertEquals(3, m.getMsg("self").getMsg("m").getI32("n"));
        QuorlMsg last = m.getMsg("view");
        m.close();
        assertThrows(QuorlClosedException.class, () -> last.getI32("n"));
        assertTrue(last.isClosed());
    }

    @Test
    void staleViewsAreRefused() {
        try (QuorlMsg inner = new QuorlMsg().addI32("n", 1)) {
            m.addMsg("m", inner);
        }
        QuorlMsg view = m.getMsg("m");
        m.reset().addString("m", "not a message");
        assertStatus(QuorlException.INVALID_MSG, () -> view.getI32("n"));
        assertThrows(QuorlException.class, () -> view.addI32("k", 1));
        assertStatus(QuorlException.CONVERSION_FAILED, () -> m.getMsg("m"));
    }

    @Test
    void nestingHasABound() {
        QuorlException e = assertThrows(QuorlException.class, () -> {
            for (int i = 0; i < 100; i++) {
                try (QuorlMsg inner = m.copy()) {
                    m.reset().addMsg("m", inner);
                }
            }
        });
        assertEquals(QuorlException.INVALID_MSG, e.getStatus());
    }

    @Test
    void bytes() {
        byte[] bytes = {0, 1, -1, 127, -128};
        m.addOpaque("o", bytes).addXml("x", bytes).addUser("u", 200, bytes).addOpaque("i", 1, bytes).addXml("i", 2, bytes)
                .addUser("i", 3, 128, bytes).addOpaque("empty", new byte[0]);
        assertArrayEquals(bytes, m.getOpaque("o"));
        assertArrayEquals(bytes, m.getXml("x"));
        assertArrayEquals(bytes, m.getUser("u"));
        assertEquals(200, m.getField("u").getType());
        assertEquals(0, m.getOpaque("empty").length);
        byte[] big = new byte[300_000];
        m.updateOpaque("o", big).updateXml("x", big).updateUser("u", 200, big).updateOpaque("i", 1, big).updateXml("i", 2, big)
                .updateUser("i", 3, 128, big);
        assertArrayEquals(big, (byte[]) value("o"));
        assertArrayEquals(big, (byte[]) value("x"));
        assertArrayEquals(big, (byte[]) value("u"));
        assertEquals(3 * big.length, m.getOpaque(1).length + m.getXml(2).length + m.getUser(3).length);
        assertThrows(IllegalArgumentException.class, () -> m.addUser("u", 127, bytes));
        assertThrows(IllegalArgumentException.class, () -> m.addUser("u", 256, bytes));
        assertThrows(NullPointerException.class, () -> m.addOpaque("o", null));
        assertThrows(NullPointerException.class, () -> m.updateXml("o", null));
        assertStatus(QuorlException.CONVERSION_FAILED, () -> m.getOpaque("x"));
        assertStatus(QuorlException.CONVERSION_FAILED, () -> m.getUser("x"));
    }

    @Test
    void arraysOfNumbers() {
        byte[] i8 = {1, -1};
        short[] u8 = {0, 255};
        short[] i16 = {1, -1};
        int[] u16 = {0, 65535};
        int[] i32 = {1, -1};
        long[] u32 = {0, 4294967295L};
        long[] i64 = {1, Long.MIN_VALUE};
        long[] u64 = {1, -1};
        float[] f32 = {1, Float.MAX_VALUE};
        double[] f64 = {1, Double.MIN_VALUE};
        m.addI8Array("i8", i8).addU8Array("u8", u8).addI16Array("i16", i16).addU16Array("u16", u16).addI32Array("i32", i32)
                .addU32Array("u32", u32).addI64Array("i64", i64).addU64Array("u64", u64).addF32Array("f32", f32)
                .addF64Array("f64", f64);
        assertArrayEquals(i8, m.getI8Array("i8"));
        assertArrayEquals(u8, m.getU8Array("u8"));
        assertArrayEquals(i16, m.getI16Array("i16"));
        assertArrayEquals(u16, m.getU16Array("u16"));
        assertArrayEquals(i32, m.getI32Array("i32"));
        assertArrayEquals(u32, m.getU32Array("u32"));
        assertArrayEquals(i64, m.getI64Array("i64"));
        assertArrayEquals(u64, m.getU64Array("u64"));
        assertArrayEquals(f32, m.getF32Array("f32"));
        assertArrayEquals(f64, m.getF64Array("f64"));
        m.updateI8Array("i8", new byte[3]).updateU8Array("u8", new short[3]).updateI16Array("i16", new short[3])
                .updateU16Array("u16", new int[3]).updateI32Array("i32", new int[3]).updateU32Array("u32", new long[3])
                .updateI64Array("i64", new long[3]).updateU64Array("u64", new long[3]).updateF32Array("f32", new float[3])
                .updateF64Array("f64", new double[3]);
        assertEquals(10, m.getFieldCount());
        assertArrayEquals(new byte[3], (byte[]) value("i8"));
        assertArrayEquals(new short[3], (short[]) value("u8"));
        assertArrayEquals(new short[3], (short[]) value("i16"));
        assertArrayEquals(new int[3], (int[]) value("u16"));
        assertArrayEquals(new int[3], (int[]) value("i32"));
        assertArrayEquals(new long[3], (long[]) value("u32"));
        assertArrayEquals(new long[3], (long[]) value("i64"));
        assertArrayEquals(new long[3], (long[]) value("u64"));
        assertArrayEquals(new float[3], (float[]) value("f32"));
        assertArrayEquals(new double[3], (double[]) value("f64"));
    }

    @Test
    void arraysOfNumbersById() {
        m.addI8Array(null, 1, new byte[1]).addU8Array(null, 2, new short[1]).addI16Array(null, 3, new short[1])
                .addU16Array(null, 4, new int[1]).addI32Array(null, 5, new int[1]).addU32Array(null, 6, new long[1])
                .addI64Array(null, 7, new long[1]).addU64Array(null, 8, new long[1]).addF32Array(null, 9, new float[1])
                .addF64Array(null, 10, new double[1]).addF64Array("f", 11, new double[1]);
        m.updateI8Array(null, 1, new byte[2]).updateU8Array(null, 2, new short[2]).updateI16Array(null, 3, new short[2])
                .updateU16Array(null, 4, new int[2]).updateI32Array(null, 5, new int[2]).updateU32Array(null, 6, new long[2])
                .updateI64Array(null, 7, new long[2]).updateU64Array(null, 8, new long[2]).updateF32Array(null, 9, new float[2])
                .updateF64Array(null, 10, new double[2]).updateF64Array("f", new double[3]);
        assertEquals(20, m.getI8Array(1).length + m.getU8Array(2).length + m.getI16Array(3).length + m.getU16Array(4).length
                + m.getI32Array(5).length + m.getU32Array(6).length + m.getI64Array(7).length + m.getU64Array(8).length
                + m.getF32Array(9).length + m.getF64Array(10).length);
        assertEquals(3, m.getF64Array(11).length, "the update keeps name and id");
        assertEquals("f", m.getField(11).getName());
        assertEquals(11, m.getFieldCount());
        assertThrows(IllegalArgumentException.class, () -> m.addU8Array("bad", new short[] {0, 256}));
        assertThrows(IllegalArgumentException.class, () -> m.addU16Array("bad", new int[] {-1}));
        assertThrows(IllegalArgumentException.class, () -> m.addU32Array("bad", new long[] {1L << 32}));
        assertThrows(NullPointerException.class, () -> m.addF64Array("bad", null));
        assertEquals(0, m.addI32Array("empty", new int[0]).getI32Array("empty").length);
        assertStatus(QuorlException.CONVERSION_FAILED, () -> m.getI32Array("f"));
    }

    /** Beyond the references that the machine gives a native unasked, where a checking machine warns. */
    @ParameterizedTest
    @ValueSource(ints = {33, 1000, 100_000})
    void arraysOfManyElements(int count) {
        String[] texts = new String[count];
        Arrays.setAll(texts, i -> "t" + i);
        try (QuorlMsg inner = new QuorlMsg().addI32("n", 7)) {
            List<QuorlMsg> inside = Collections.nCopies(count, inner);
            m.addStringArray("s", texts).addStringArray(null, 1, texts).updateStringArray("s", texts).updateStringArray(null, 1, texts);
            m.addMsgArray("m", inside).addMsgArray(null, 2, inside).updateMsgArray("m", inside).updateMsgArray(null, 2, inside);
        }
        // By a view, since a checking machine looks through all of a native's references for each that it makes.
        QuorlMsgView view = m.view();
        assertArrayEquals(texts, view.getStringArray("s"));
        assertArrayEquals(texts, view.getStringArray(1));
        assertEquals(4, m.getFieldCount());
        for (List<QuorlMsg> read : List.of(m.getMsgArray("m"), m.getMsgArray(2))) {
            assertEquals(count, read.size());
            assertEquals(7, read.get(count - 1).getI32("n"));
        }
    }

    @Test
    void arraysOfTexts() {
        String[] texts = {"", "a", "😀", "x".repeat(1000)};
        m.addStringArray("s", texts).addStringArray("x", 1, new String[] {"1"}).updateStringArray("x", 1, texts);
        assertArrayEquals(texts, m.getStringArray("s"));
        assertArrayEquals(texts, m.getStringArray(1));
        assertArrayEquals(new String[] {"b"}, m.updateStringArray("s", new String[] {"b"}).getStringArray("s"));
        assertArrayEquals(new String[] {"b"}, (String[]) value("s"));
        assertThrows(NullPointerException.class, () -> m.addStringArray("s", new String[] {"a", null}));
        assertStatus(QuorlException.INVALID_ARG, () -> m.addStringArray("s", new String[0]));
    }

    @Test
    void arraysOfMessages() {
        try (QuorlMsg a = new QuorlMsg().addI32("n", 1); QuorlMsg b = new QuorlMsg().addI32("n", 2)) {
            m.addMsgArray("m", List.of(a, b, a)).addMsgArray("x", 1, List.of(a)).updateMsgArray("x", 1, List.of(b, b));
            assertEquals(2, m.getMsgArray("m").get(1).getI32("n"));
            assertEquals(3, m.getMsgArray("m").size());
            assertEquals(2, m.getMsgArray(1).get(1).getI32("n"));
            m.updateMsgArray("m", List.of(m, a, m.getMsgArray(1).get(0)));
            assertEquals(List.of(1, 2), List.of(m.getMsgArray("m").get(1).getI32("n"), m.getMsgArray("m").get(2).getI32("n")));
            assertEquals(3, ((List<?>) value("m")).size());
            b.close();
            assertThrows(QuorlClosedException.class, () -> m.addMsgArray("y", List.of(a, b)));
            assertEquals(1, a.getI32("n"), "a refused array leaves its messages free");
        }
        assertThrows(NullPointerException.class, () -> m.addMsgArray("y", java.util.Arrays.asList(m, null)));
        assertStatus(QuorlException.INVALID_ARG, () -> m.addMsgArray("y", List.of()));
        assertEquals(2, m.getFieldCount());
    }

    @Test
    void nullsAreRefused() {
        assertThrows(NullPointerException.class, () -> m.addString("s", null));
        assertThrows(NullPointerException.class, () -> m.addMsg("m", null));
        assertThrows(NullPointerException.class, () -> m.addDateTime("t", null));
        assertThrows(NullPointerException.class, () -> m.addIPAddr32("a", null));
        assertThrows(NullPointerException.class, () -> m.getI32((String) null));
        assertThrows(NullPointerException.class, () -> m.has(null));
        assertEquals(0, m.getFieldCount());
    }
}
