package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.reflect.InvocationTargetException;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Path;
import java.time.Instant;
import java.util.List;
import java.util.Locale;
import org.junit.jupiter.api.Test;

/** Messages go to JSON and come back byte for byte: every form that JSON has for them, and what is refused. */
class JsonTest {
    private static void assertJson(String expected, QuorlMsg message) {
        try (QuorlMsg m = message; QuorlMsg again = QuorlMsg.fromJson(expected)) {
            assertEquals(expected, m.toJson());
            assertEquals(expected, m.view().toJson());
            assertArrayEquals(m.toBytes(), again.toBytes());
        }
    }

    @Test
    void digitsAreTheSameInEveryLocale() {
        Locale before = Locale.getDefault();
        Locale.setDefault(Locale.forLanguageTag("ar-EG-u-nu-arab"));
        try (QuorlMsg m = QuorlMsg.fromJson("{\"far:datetime\":\"@9223372036854775807.000000001\",\"\u0001:f64\":0.5}")) {
            assertEquals("{\"far:datetime\":\"@9223372036854775807.000000001\",\"\\u0001:f64\":0.5}", m.toJson());
        } finally {
            Locale.setDefault(before);
        }
    }

    @Test
    void everyTypeHasItsForm() throws Exception {
        assertJson("{}", new QuorlMsg());
        assertJson("{\"on:bool\":true,\"a:i8\":-1,\"b:u8\":255,\"c:i16\":-2,\"d:u16\":65535,\"e:i32\":-3,\"f:u32\":4294967295}",
                new QuorlMsg().addBool("on", true).addI8("a", (byte) -1).addU8("b", 255).addI16("c", (short) -2).addU16("d", 65535)
                        .addI32("e", -3).addU32("f", 4294967295L));
        assertJson("{\"a:i64\":\"-9223372036854775808\",\"b:u64\":\"18446744073709551615\"}",
                new QuorlMsg().addI64("a", Long.MIN_VALUE).addU64("b", -1));
        assertJson("{\"a:f32\":0.1,\"b:f64\":71.5,\"c:f64\":-0.0,\"d:f64\":1.0E22}",
                new QuorlMsg().addF32("a", 0.1f).addF64("b", 71.5).addF64("c", -0.0).addF64("d", 1e22));
        assertJson("{\"a:f32\":\"NaN\",\"b:f64\":\"-Infinity\",\"c:f64[]\":[\"NaN\",\"Infinity\",0.5]}", new QuorlMsg()
                .addF32("a", Float.NaN).addF64("b", Double.NEGATIVE_INFINITY)
                .addF64Array("c", new double[] {Double.NaN, Double.POSITIVE_INFINITY, 0.5}));
        assertJson("{\"a:f64\":\"NaN(7ff8000000000001)\",\"b:f32\":\"NaN(ffc00000)\"}",
                new QuorlMsg().addF64("a", Double.longBitsToDouble(0x7FF8_0000_0000_0001L))
                        .addF32("b", Float.intBitsToFloat(0xFFC0_0000)));
        assertJson("{\"s:string\":\"\\\"é 😀\\\\\\n\",\"t:datetime\":\"1969-12-31T23:59:59.999999999Z\",\"p:ipport16\":443,"
                + "\"a:ipaddr32\":\"192.168.1.2\"}",
                new QuorlMsg().addString("s", "\"é 😀\\\n").addDateTime("t", Instant.ofEpochSecond(-1, 999_999_999))
                        .addIPPort16("p", 443).addIPAddr32("a", (Inet4Address) InetAddress.getByName("192.168.1.2")));
        assertJson("{\"o:opaque\":\"AAH/\",\"x:xml\":\"PGEvPg==\",\"u:user200\":\"\"}", new QuorlMsg()
                .addOpaque("o", new byte[] {0, 1, -1}).addXml("x", "<a/>".getBytes()).addUser("u", 200, new byte[0]));
        assertJson("{\"a:i8[]\":[-1],\"b:u8[]\":[255],\"c:i16[]\":[],\"d:u16[]\":[65535,1],\"e:i32[]\":[-3],"
                + "\"f:u32[]\":[4294967295],\"g:i64[]\":[\"-1\"],\"h:u64[]\":[\"18446744073709551615\"],\"i:f32[]\":[0.1],"
                + "\"j:string[]\":[\"a\",\"\"]}",
                new QuorlMsg().addI8Array("a", new byte[] {-1}).addU8Array("b", new short[] {255}).addI16Array("c", new short[0])
                        .addU16Array("d", new int[] {65535, 1}).addI32Array("e", new int[] {-3})
                        .addU32Array("f", new long[] {4294967295L}).addI64Array("g", new long[] {-1})
                        .addU64Array("h", new long[] {-1}).addF32Array("i", new float[] {0.1f})
                        .addStringArray("j", new String[] {"a", ""}));
        try (QuorlMsg inner = new QuorlMsg().addI32("n", 1)) {
            assertJson("{\"m:msg\":{\"n:i32\":1},\"ms:msg[]\":[{\"n:i32\":1},{\"n:i32\":1}]}",
                    new QuorlMsg().addMsg("m", inner).addMsgArray("ms", List.of(inner, inner)));
        }
    }

    @Test
    void namesIdsAndInstances() {
        assertJson("{\"a:i32\":1,\"a:string~2\":\"x\",\"a:i32#7~3\":3,\"i32\":4,\"i32~2\":5,\":i32\":6,\"b:c:i32\":7,\"i32#9~3\":8}",
                new QuorlMsg().addI32("a", 1).addString("a", "x").addI32("a", 7, 3).addI32(null, 4).addI32(null, 5).addI32("", 6)
                        .addI32("b:c", 7).addI32(null, 9, 8));
    }

    @Test
    void arraysOfNothingComeBack() {
        try (QuorlMsg m = QuorlMsg.fromJson("{\"s:string[]\":[],\"m:msg[]\":[],\"f:f64[]\":[]}")) {
            assertEquals(0, m.view().getStringArray("s").length);
            assertEquals(0, m.getStringArray("s").length);
            assertTrue(m.getMsgArray("m").isEmpty());
            assertEquals("{\"s:string[]\":[],\"m:msg[]\":[],\"f:f64[]\":[]}", m.toJson());
        }
    }

    @Test
    void timesBeyondInstantComeBack() {
        try (QuorlMsg m = new QuorlMsg()) {
            QuorlMsg.quorlMsg_AddDateTime(m.ownHandle(), new byte[] {'z'}, 1, Long.MIN_VALUE, 5, (short) 0, m);
            assertEquals("{\"z:datetime\":\"@-9223372036854775808.000000005\"}", m.toJson());
            try (QuorlMsg again = QuorlMsg.fromJson(m.toJson())) {
                assertArrayEquals(m.toBytes(), again.toBytes());
            }
        }
    }

    @Test
    void writtenByHand() {
        try (QuorlMsg m = QuorlMsg.fromJson(" { \"a:i64\" : 5 , \"b:u32\":\"6\", \"c:f64\":7, \"d:f32\":1e3,\n\"e:u64\":18446744073709551615}")) {
            assertEquals(5, m.getI64("a"));
            assertEquals(6, m.getU32("b"));
            assertEquals(7.0, m.getF64("c"));
            assertEquals(1000f, m.getF32("d"));
            assertEquals(-1, m.getU64("e"));
        }
    }

    private static void assertRefusal(int status, String end, String json) {
        QuorlException e = assertThrows(QuorlException.class, () -> QuorlMsg.fromJson(json).close(), json);
        assertEquals(status, e.getStatus(), e.getMessage());
        assertTrue(e.getMessage().endsWith(": " + end), e.getMessage());
    }

    @Test
    void refusalsNameTheFieldAndBothTypes() {
        int conversion = QuorlException.CONVERSION_FAILED;
        assertRefusal(conversion, "field \"a\": it is a JSON string, not BOOL", "{\"a:bool\":\"true\"}");
        assertRefusal(conversion, "field \"a\": it is a JSON null, not I32", "{\"a:i32\":null}");
        assertRefusal(conversion, "field \"a\": it is the JSON number 1.5, not I32", "{\"a:i32\":1.5}");
        assertRefusal(conversion, "field \"a\": it is the JSON string x, not I32", "{\"a:i32\":\"x\"}");
        assertRefusal(conversion, "field \"a\": 256 does not fit U8, 0 to 255", "{\"a:u8\":256}");
        assertRefusal(conversion, "field \"a\": -1 does not fit U32, 0 to 4294967295", "{\"a:u32\":-1}");
        assertRefusal(conversion, "field \"a\": it is the JSON number -1, not U64", "{\"a:u64\":-1}");
        assertRefusal(conversion, "field \"a\": it is the JSON number 9223372036854775808, not I64", "{\"a:i64\":9223372036854775808}");
        assertRefusal(conversion, "field \"a\": it is the JSON number 1e999, beyond F64", "{\"a:f64\":1e999}");
        assertRefusal(conversion, "field \"a\": it is the JSON number 1e39, beyond F32", "{\"a:f32\":1e39}");
        assertRefusal(conversion, "field \"a\": it is the JSON string nan, not F64", "{\"a:f64\":\"nan\"}");
        assertRefusal(conversion, "field \"a\": it is the JSON string NaN(0), not F64", "{\"a:f64\":\"NaN(0)\"}");
        assertRefusal(conversion, "field \"a\": it is the JSON string NaN(7ff8000000000001), not F32",
                "{\"a:f32\":\"NaN(7ff8000000000001)\"}");
        assertRefusal(conversion, "field \"a\": it is the JSON string yesterday, not DATETIME", "{\"a:datetime\":\"yesterday\"}");
        assertRefusal(conversion, "field \"a\": it is the JSON string @99999999999999999999.000000000, not DATETIME",
                "{\"a:datetime\":\"@99999999999999999999.000000000\"}");
        assertRefusal(conversion, "field \"a\": it is the JSON string localhost, not IPADDR32", "{\"a:ipaddr32\":\"localhost\"}");
        assertRefusal(conversion, "field \"a\": 256 does not fit IPADDR32, 0 to 255", "{\"a:ipaddr32\":\"1.2.3.256\"}");
        assertRefusal(conversion, "field \"a\": 65536 does not fit IPPORT16, 0 to 65535", "{\"a:ipport16\":65536}");
        assertRefusal(conversion, "field \"a\": it is a JSON object, not I32ARRAY", "{\"a:i32[]\":{}}");
        assertRefusal(conversion, "field \"a\" > element 1: it is a JSON array, not I32", "{\"a:i32[]\":[1,[]]}");
        assertRefusal(conversion, "field \"a\" > element 1: 128 does not fit I8, -128 to 127", "{\"a:i8[]\":[1,128]}");
        assertRefusal(conversion, "field \"a\" > element 0: it is a JSON number, not STRING", "{\"a:string[]\":[1]}");
        assertRefusal(conversion, "field \"a\": it is a JSON number, not MSG", "{\"a:msg\":1}");
        assertRefusal(conversion, "field \"a\" > element 2 > \"b\" id 3: it is a JSON boolean, not STRING",
                "{\"a:msg[]\":[{},{},{\"b:string#3\":true}]}");
        assertRefusal(conversion, "field \"a\" > \"b\" > \"c\": it is a JSON number, not STRING",
                "{\"a:msg\":{\"b:msg\":{\"c:string\":1}}}");
        assertRefusal(conversion,
                "field \"a\": the text has a zero character at index 0, where the library would end it", "{\"a:string\":\"\\u0000\"}");
        assertRefusal(conversion, "field \"a\": the text has half a surrogate pair at index 0", "{\"a:string\":\"\\ud83d\"}");
        assertEquals(conversion, assertThrows(QuorlException.class, () -> QuorlMsg.fromJson("{\"a:opaque\":\"?\"}")).getStatus());
        assertRefusal(conversion, "it is a JSON array, not MSG", "[]");
        String notCalled = "it is not called name:type, with a type like i32, f64[] or string";
        for (String member : List.of("celsius", "celsius:", "a:i33", "a:user127", "a:i32#", "a:i32~", "a:i32#1#2", "a:bool[]", "a:none")) {
            assertRefusal(QuorlException.INVALID_TYPE, "member \"" + member + "\": " + notCalled, "{\"" + member + "\":1}");
        }
        assertRefusal(QuorlException.INVALID_ARG, "field \"a\" id 65536: a field's id is 1 to 65535, not 65536", "{\"a:i32#65536\":1}");
        assertRefusal(QuorlException.INVALID_ARG, "field \"a\": a field's id is 1 to 65535, not 0", "{\"a:i32#0\":1}");
        assertRefusal(QuorlException.ID_IN_USE, "field \"b\" id 7", "{\"a:i32#7\":1,\"b:i32#7\":1}");
        assertRefusal(QuorlException.INVALID_INSTANCE,
                "field \"a\": it is field number 2 of this name: call the member \"a:i32~2\"", "{\"a:i32\":1,\"a:i32\":2}");
        assertRefusal(QuorlException.INVALID_INSTANCE,
                "field \"a\": it is field number 1 of this name: call the member \"a:i32\"", "{\"a:i32~2\":1}");
        assertEquals(QuorlException.INVALID_NAME, assertThrows(QuorlException.class,
                () -> QuorlMsg.fromJson("{\"" + "n".repeat(128) + ":i32\":1}")).getStatus());
        assertThrows(NullPointerException.class, () -> QuorlMsg.fromJson(null));
    }

    @Test
    void whatIsNoJsonIsRefused() throws Exception {
        for (String text : List.of("", "{", "{\"a:i32\":1", "{\"a:i32\"}", "{\"a:i32\":1}x", "{\"a:i32\":1}{}", "{a:1}", "{\"a:i32\":01}",
                "{'a:i32':1}", "{\"a:string\":\"", "{\"a:i32[]\":[1,}")) {
            QuorlException e = assertThrows(QuorlException.class, () -> QuorlMsg.fromJson(text).close(), text);
            assertTrue(e.getStatus() == QuorlException.DECODER_FAILED || e.getStatus() == QuorlException.CONVERSION_FAILED,
                    text + ": " + e.getMessage());
        }
        // Damaged text comes out as a refusal or as a message, and as nothing else.
        RandomMessages.forEach(2_000, (message, random) -> {
            StringBuilder json = new StringBuilder(message.toJson());
            for (int i = random.nextInt(4); i >= 0; i--) {
                json.setCharAt(random.nextInt(json.length()), "{}[]:\",#~0-x\u0000\ud83d".charAt(random.nextInt(14)));
            }
            try {
                QuorlMsg.fromJson(json.toString()).close();
            } catch (QuorlException e) {
                assertTrue(e.getStatus() != QuorlException.CORRUPT_MSG, e.getMessage());
            }
        });
    }

    @Test
    void nestingHasABound() {
        String json = "{\"m:msg\":".repeat(64) + "{}" + "}".repeat(64);
        QuorlMsg.fromJson(json).close();
        assertRefusal(QuorlException.INVALID_MSG, "field \"m\" > ... > \"m\": messages are nested to more than 64 levels",
                "{\"m:msg\":" + json + "}");
        assertRefusal(QuorlException.INVALID_MSG, "field \"ms\" > ... > \"m\": messages are nested to more than 64 levels",
                "{\"ms:msg[]\":[{}," + json + "]}");
        assertThrows(QuorlException.class, () -> QuorlMsg.fromJson("{\"m:msg\":".repeat(100_000)));
    }

    /** The classes alone, as in a program that has no Gson. */
    @Test
    void withoutTheLibraryTheTextSaysWhatIsMissing() throws Exception {
        Path classes = Path.of(QuorlMsg.class.getProtectionDomain().getCodeSource().getLocation().toURI());
        try (URLClassLoader loader = new URLClassLoader(new URL[] {classes.toUri().toURL()}, ClassLoader.getPlatformClassLoader())) {
            Class<?> type = loader.loadClass("com.vesma.quorl.QuorlMsg");
            Throwable cause = assertThrows(InvocationTargetException.class,
                    () -> type.getMethod("fromJson", String.class).invoke(null, "{}")).getCause();
            assertEquals(IllegalStateException.class, cause.getClass());
            assertTrue(cause.getMessage().contains("libgoogle-gson-java"), cause.getMessage());
        }
    }
}
