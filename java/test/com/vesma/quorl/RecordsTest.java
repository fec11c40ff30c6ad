package com.vesma.quorl;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.vesma.quorl.internal.image.ImageValues;
import java.math.BigInteger;
import java.net.Inet4Address;
import java.net.InetAddress;
import java.time.Instant;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Optional;
import java.util.Random;
import java.util.function.Supplier;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** Records become messages and messages records. */
class RecordsTest {
    enum Mode { IDLE, RUNNING, FAILED }

    record Site(String country, int number) {}

    record Scalars(boolean bool, byte i8, short i16, int i32, long i64, float f32, double f64, Boolean boolBox, Byte i8Box,
            Short i16Box, Integer i32Box, Long i64Box, Float f32Box, Double f64Box, BigInteger big, String text, Mode mode,
            Instant time, Site site) {}

    record Lists(List<String> texts, List<Mode> modes, List<Byte> i8, List<Short> i16, List<Integer> i32, List<Long> i64,
            List<Float> f32, List<Double> f64, List<Site> sites) {}

    record Optionals(Optional<String> text, Optional<Integer> number, Optional<Site> site, Optional<List<String>> texts) {}

    record Node(int value, Node next, List<Node> children) {}

    record Unsigned(@FieldType(QuorlMsgField.U8) short u8, @FieldType(QuorlMsgField.U16) Integer u16,
            @FieldType(QuorlMsgField.U32) long u32, @FieldType(QuorlMsgField.U64) long u64,
            @FieldType(QuorlMsgField.IPPORT16) int port, @FieldType(QuorlMsgField.I8) int small,
            @FieldType(QuorlMsgField.U16ARRAY) List<Integer> list) {}

    private static Object roundTrip(Record record) {
        try (QuorlMsg message = QuorlMsg.of(record)) {
            assertEquals(message.to(record.getClass()), message.view().to(record.getClass()));
            return message.to(record.getClass());
        }
    }

    private static Scalars scalars(Random random) {
        Supplier<Boolean> there = () -> random.nextInt(4) != 0;
        return new Scalars(random.nextBoolean(), (byte) random.nextInt(), (short) random.nextInt(), random.nextInt(),
                random.nextLong(), random.nextFloat(), random.nextGaussian(), there.get() ? random.nextBoolean() : null,
                there.get() ? (byte) random.nextInt() : null, there.get() ? (short) random.nextInt() : null,
                there.get() ? random.nextInt() : null, there.get() ? random.nextLong() : null,
                there.get() ? random.nextFloat() : null, there.get() ? random.nextDouble() : null,
                there.get() ? new BigInteger(64, random) : null, there.get() ? "text 😀 " + random.nextInt() : null,
                there.get() ? Mode.values()[random.nextInt(3)] : null,
                there.get() ? Instant.ofEpochSecond(random.nextInt(), random.nextInt(1_000_000_000)) : null,
                there.get() ? new Site("country " + random.nextInt(), random.nextInt()) : null);
    }

    private static <T> List<T> list(Random random, Supplier<T> element) {
        return random.nextInt(5) == 0 ? null
                : IntStream.range(0, random.nextInt(4)).mapToObj(i -> element.get()).collect(Collectors.toList());
    }

    private static Node node(Random random, int depth) {
        return new Node(random.nextInt(), depth < 3 && random.nextBoolean() ? node(random, depth + 1) : null,
                depth < 3 ? list(random, () -> node(random, depth + 1)) : null);
    }

    @Test
    void recordsComeBackEqual() {
        for (int seed = 0; seed < 500; seed++) {
            Random random = new Random(seed);
            Supplier<Site> site = () -> new Site("c" + random.nextInt(), random.nextInt());
            Record[] records = {
                scalars(random),
                new Lists(list(random, () -> "t" + random.nextInt()), list(random, () -> Mode.values()[random.nextInt(3)]),
                        list(random, () -> (byte) random.nextInt()), list(random, () -> (short) random.nextInt()),
                        list(random, random::nextInt), list(random, random::nextLong), list(random, random::nextFloat),
                        list(random, random::nextGaussian), list(random, site)),
                new Optionals(Optional.ofNullable(random.nextBoolean() ? "text" : null),
                        Optional.ofNullable(random.nextBoolean() ? random.nextInt() : null),
                        Optional.ofNullable(random.nextBoolean() ? site.get() : null),
                        Optional.ofNullable(list(random, () -> "t" + random.nextInt()))),
                node(random, 0),
                new Unsigned((short) random.nextInt(256), random.nextInt(65536), random.nextInt() & 0xFFFF_FFFFL,
                        random.nextLong(), random.nextInt(65536), random.nextInt(256) - 128,
                        list(random, () -> random.nextInt(65536)))
            };
            for (Record record : records) {
                assertEquals(record, roundTrip(record), "seed " + seed);
            }
        }
    }

    record ArrayTypes(byte[] opaque, short[] i16, int[] i32, long[] i64, float[] f32, double[] f64, String[] texts,
            @FieldType(QuorlMsgField.U8ARRAY) short[] u8, @FieldType(QuorlMsgField.U16ARRAY) int[] u16,
            @FieldType(QuorlMsgField.U32ARRAY) long[] u32, @FieldType(QuorlMsgField.U64ARRAY) long[] u64,
            @FieldType(QuorlMsgField.I8ARRAY) byte[] i8, @FieldType(QuorlMsgField.XML) byte[] xml,
            @FieldType(200) byte[] user) {
        Object[] all() {
            return new Object[] {opaque, i16, i32, i64, f32, f64, texts, u8, u16, u32, u64, i8, xml, user};
        }
    }

    @Test
    void arraysComeBackEqual() {
        for (int length : new int[] {0, 1, 5, 32, 33, 1000}) {
            byte[] bytes = new byte[length];
            short[] shorts = new short[length];
            int[] ints = new int[length];
            long[] longs = new long[length];
            float[] floats = new float[length];
            double[] doubles = new double[length];
            String[] texts = new String[length];
            for (int i = 0; i < length; i++) {
                bytes[i] = (byte) (i * 7);
                shorts[i] = (short) (i & 0xFF);
                ints[i] = i * 64;
                longs[i] = i * 4_000_000L;
                floats[i] = i / 3f;
                doubles[i] = i / 7.0;
                texts[i] = "é" + i;
            }
            ArrayTypes record = new ArrayTypes(bytes, shorts, ints, longs, floats, doubles, texts, shorts, ints, longs, longs, bytes,
                    bytes, bytes);
            try (QuorlMsg message = QuorlMsg.of(record)) {
                assertArrayEquals(record.all(), message.to(ArrayTypes.class).all());
                assertEquals(List.of(17, 36, 38, 40, 42, 43, 47, 35, 37, 39, 41, 34, 18, 200),
                        IntStream.range(0, 14).mapToObj(i -> message.getFieldAt(i).getType()).collect(Collectors.toList()));
                assertArrayEquals(texts, message.view().getStringArray("texts"));
                assertArrayEquals(longs, message.getU32Array("u32"));
            }
        }
        try (QuorlMsg message = QuorlMsg.of(new ArrayTypes(null, null, null, null, null, null, null, null, null, null, null, null,
                null, null))) {
            assertEquals(0, message.getFieldCount());
            assertNull(message.to(ArrayTypes.class).opaque);
        }
    }

    @Test
    void fieldsAreWhatTheComponentsSay() throws Exception {
        record Plant(String line, double celsius, Inet4Address address, List<Site> sites) {}
        Inet4Address address = (Inet4Address) InetAddress.getByName("10.0.0.1");
        try (QuorlMsg message = QuorlMsg.of(new Plant("3", 71.5, address, List.of(new Site("FI", 1), new Site("NO", 2))))
                .setSendSubject("plant.line3")) {
            assertEquals(4, message.getFieldCount());
            assertEquals("3", message.getString("line"));
            assertEquals(71.5, message.getF64("celsius"));
            assertEquals(address, message.getIPAddr32("address"));
            assertEquals("FI", message.getMsgArray("sites").get(0).getString("country"));
            assertEquals("NO", message.getMsgArray("sites").get(1).getString("country"));
            assertEquals("plant.line3", message.getSendSubject());
        }
        // Made by hand, by another program: other types of numbers, further fields, another order.
        try (QuorlMsg message = new QuorlMsg(); QuorlMsg site = new QuorlMsg().addI64("number", 7)) {
            message.addBool("more", true).addMsgArray("sites", List.of(site, site)).addI32("celsius", 20)
                    .addIPAddr32("address", address).addString("line", 7, "4").addString("line", "5");
            Plant plant = message.to(Plant.class);
            assertEquals(new Plant("4", 20.0, address, List.of(new Site(null, 7), new Site(null, 7))), plant);
            assertThrows(UnsupportedOperationException.class, () -> plant.sites().clear());
        }
    }

    @Test
    void viewsAreComponentsToo() {
        record Envelope(String to, QuorlMsgView content, List<QuorlMsgView> more) {}
        try (QuorlMsg content = new QuorlMsg().addI32("n", 1);
                QuorlMsg message = QuorlMsg.of(new Envelope("x", content.view(), List.of(content.view(), content.view())))) {
            assertEquals(1, message.getMsg("content").getI32("n"));
            Envelope envelope = message.to(Envelope.class);
            assertArrayEquals(content.toBytes(), envelope.content().toBytes());
            assertEquals(1, envelope.more().get(1).getI32("n"));
        }
    }

    @Test
    void valuesAreReadAsJavaTypes() {
        try (QuorlMsg m = new QuorlMsg().addI32("n", 5, 42).addString("s", "RUNNING").addU64("big", -1)
                .addI32Array("a", new int[] {1, 2})) {
            assertEquals(42, m.get("n", int.class));
            assertEquals(42L, m.get("n", Long.class));
            assertEquals(42.0, m.view().get(5, double.class));
            assertEquals(Mode.RUNNING, m.get("s", Mode.class));
            assertEquals(ImageValues.unsigned(-1), m.get("big", BigInteger.class));
            assertEquals(BigInteger.valueOf(42), m.get("n", BigInteger.class));
            assertArrayEquals(new int[] {1, 2}, m.get("a", int[].class));
            assertEquals("RUNNING", m.view().getFieldAt(1).get(String.class));
            assertRefusal(QuorlException.NOT_FOUND, "field \"none\" of type int", () -> m.get("none", int.class));
            assertRefusal(QuorlException.CONVERSION_FAILED, "field \"s\": it is STRING, not I32", () -> m.get("s", int.class));
            assertRefusal(QuorlException.CONVERSION_FAILED, "field \"n\" id 5: it is I32, not MSG", () -> m.get("n", Site.class));
            assertRefusal(QuorlException.CONVERSION_FAILED, "field \"a\": it is I32ARRAY, not I64ARRAY",
                    () -> m.get("a", long[].class));
            assertRefusal(QuorlException.CONVERSION_FAILED, "field \"a\": it is I32ARRAY, not OPAQUE",
                    () -> m.get("a", byte[].class));
            assertEquals("no field holds java.lang.Thread",
                    assertThrows(IllegalArgumentException.class, () -> m.get("n", Thread.class)).getMessage());
        }
    }

    private static void assertRefusal(int status, String end, Executable call) {
        QuorlException e = assertThrows(QuorlException.class, call);
        assertEquals(status, e.getStatus());
        assertTrue(e.getMessage().endsWith(": " + end), e.getMessage());
    }

    @Test
    void refusalsOnReadingNameTheComponent() {
        record Wanted(int count, Mode mode, Site site, List<Mode> modes, byte[] bytes) {}
        record Outer(Wanted inner) {}
        try (QuorlMsg m = new QuorlMsg()) {
            assertRefusal(QuorlException.NOT_FOUND, "Wanted.count: field \"count\" of type int", () -> m.to(Wanted.class));
            m.addF64("count", 0.5);
            assertRefusal(QuorlException.CONVERSION_FAILED, "Wanted.count: field \"count\": F64 0.5 does not fit I32",
                    () -> m.to(Wanted.class));
            m.reset().addString("count", "3");
            assertRefusal(QuorlException.CONVERSION_FAILED, "Wanted.count: field \"count\": it is STRING, not I32",
                    () -> m.to(Wanted.class));
            m.reset().addI32("count", 1);
            assertEquals(new Wanted(1, null, null, null, null), m.to(Wanted.class));
            m.addString("mode", "STOPPED");
            assertRefusal(QuorlException.CONVERSION_FAILED,
                    "Wanted.mode: field \"mode\": STRING \"STOPPED\" is not a constant of Mode", () -> m.to(Wanted.class));
            m.updateString("mode", "IDLE").addStringArray("modes", new String[] {"IDLE", "idle"});
            assertRefusal(QuorlException.CONVERSION_FAILED,
                    "Wanted.modes: field \"modes\": STRINGARRAY \"idle\" is not a constant of Mode", () -> m.to(Wanted.class));
            m.remove("modes");
            m.addI16Array("bytes", new short[1]);
            assertRefusal(QuorlException.CONVERSION_FAILED, "Wanted.bytes: field \"bytes\": it is I16ARRAY, not OPAQUE",
                    () -> m.to(Wanted.class));
            try (QuorlMsg outer = new QuorlMsg().addMsg("inner", m)) {
                assertRefusal(QuorlException.CONVERSION_FAILED,
                        "Outer.inner: Wanted.bytes: field \"bytes\": it is I16ARRAY, not OPAQUE", () -> outer.to(Outer.class));
            }
        }
    }

    @Test
    void refusalsOnWritingNameTheComponent() {
        record Texts(String text) {}
        record Tags(List<String> tags, List<Integer> numbers) {}
        assertArgument("Texts.text: the text has a zero character at index 1, where the library would end it",
                () -> QuorlMsg.of(new Texts("a\0")));
        assertArgument("Unsigned.u8: -1 does not fit U8, 0 to 255",
                () -> QuorlMsg.of(new Unsigned((short) -1, 1, 1, 1, 1, 1, null)));
        assertArgument("Unsigned.u16: 65536 does not fit U16, 0 to 65535",
                () -> QuorlMsg.of(new Unsigned((short) 1, 65536, 1, 1, 1, 1, null)));
        assertArgument("Unsigned.u32: 4294967296 does not fit U32, 0 to 4294967295",
                () -> QuorlMsg.of(new Unsigned((short) 1, 1, 1L << 32, 1, 1, 1, null)));
        assertArgument("Unsigned.port: 65536 does not fit IPPORT16, 0 to 65535",
                () -> QuorlMsg.of(new Unsigned((short) 1, 1, 1, 1, 65536, 1, null)));
        assertArgument("Unsigned.small: 128 does not fit I8, -128 to 127",
                () -> QuorlMsg.of(new Unsigned((short) 1, 1, 1, 1, 1, 128, null)));
        assertArgument("Unsigned.list: 65536 does not fit U16, 0 to 65535",
                () -> QuorlMsg.of(new Unsigned((short) 1, 1, 1, 1, 1, 1, List.of(65536))));
        NullPointerException e = assertThrows(NullPointerException.class,
                () -> QuorlMsg.of(new Tags(Arrays.asList("a", null), null)));
        assertEquals("Tags.tags: element 1 is null", e.getMessage());
        e = assertThrows(NullPointerException.class, () -> QuorlMsg.of(new Tags(null, Arrays.asList(1, 2, null))));
        assertEquals("Tags.numbers: element 2 is null", e.getMessage());
        assertThrows(NullPointerException.class, () -> QuorlMsg.of(null));
        record Big(BigInteger n) {}
        assertArgument("Big.n: 18446744073709551616 does not fit U64, 0 to 18446744073709551615",
                () -> QuorlMsg.of(new Big(BigInteger.ONE.shiftLeft(64))));
        assertArgument("Big.n: -1 does not fit U64, 0 to 18446744073709551615", () -> QuorlMsg.of(new Big(BigInteger.valueOf(-1))));
    }

    private static void assertArgument(String text, Executable call) {
        assertEquals(text, assertThrows(IllegalArgumentException.class, call).getMessage());
    }

    @Test
    void componentsThatNoFieldHoldsAreRefused() {
        record Letter(char letter) {}
        record Typeless(List<?> list) {}
        record Objects(Object any) {}
        record Lists(List<List<String>> lists) {}
        record Wrong(@FieldType(QuorlMsgField.U8) String text) {}
        record Reserved(@FieldType(99) int n) {}
        record Beyond(@FieldType(999) byte[] bytes) {}
        record None(@FieldType(0) int n) {}
        assertArgument("Letter.letter: no field holds char", () -> QuorlMsg.of(new Letter('a')));
        assertArgument("Typeless.list: no field holds ?", () -> QuorlMsg.of(new Typeless(List.of())));
        assertArgument("Objects.any: no field holds java.lang.Object", () -> QuorlMsg.of(new Objects(1)));
        assertArgument("Lists.lists: no field holds java.util.List<java.lang.String>", () -> QuorlMsg.of(new Lists(null)));
        assertArgument("Wrong.text: java.lang.String is not a value of U8", () -> QuorlMsg.of(new Wrong("")));
        assertArgument("Reserved.n: int is not a value of UNKNOWN99", () -> QuorlMsg.of(new Reserved(1)));
        assertArgument("None.n: int is not a value of NONE", () -> QuorlMsg.of(new None(1)));
        assertThrows(IllegalArgumentException.class, () -> QuorlMsg.of(new Beyond(null)));
        try (QuorlMsg m = new QuorlMsg()) {
            assertArgument("Letter.letter: no field holds char", () -> m.to(Letter.class));
        }
    }

    @Test
    void whatTheConstructorThrowsComesOut() {
        record Positive(int n) {
            Positive {
                if (n <= 0) {
                    throw new IllegalStateException("not positive");
                }
            }
        }
        try (QuorlMsg m = new QuorlMsg().addI32("n", -1)) {
            assertEquals("not positive", assertThrows(IllegalStateException.class, () -> m.to(Positive.class)).getMessage());
        }
    }

    @Test
    void nestingHasABound() {
        Node node = null;
        for (int i = 0; i < 65; i++) {
            node = new Node(i, node, null);
        }
        assertEquals(node, roundTrip(node));
        Node deeper = new Node(65, node, null);
        QuorlException e = assertThrows(QuorlException.class, () -> QuorlMsg.of(deeper));
        assertEquals(QuorlException.INVALID_MSG, e.getStatus());
        assertTrue(e.getMessage().endsWith("Node.next: messages are nested to more than 64 levels"), e.getMessage());
        record Around(QuorlMsgView view) {}
        try (QuorlMsg deep = QuorlMsg.of(node)) {
            QuorlException f = assertThrows(QuorlException.class, () -> QuorlMsg.of(new Around(deep.view())));
            assertTrue(f.getMessage().endsWith("Around.view: messages are nested to more than 64 levels"), f.getMessage());
        }
        List<Node> itself = new ArrayList<>();
        itself.add(new Node(1, null, itself));
        assertThrows(QuorlException.class, () -> QuorlMsg.of(itself.get(0)));
    }

    @Test
    void recordsOfManyAndOfNoComponents() {
        record Nothing() {}
        assertEquals(new Nothing(), roundTrip(new Nothing()));
        record Wide(int a, int b, int c, int d, int e, int f, int g, int h, int i, int j, int k, int l, int m, int n, int o,
                int p, int q, int r, int s, int t) {}
        Wide wide = new Wide(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20);
        assertEquals(wide, roundTrip(wide));
        assertFalse(wide.equals(new Wide(0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20)));
    }
}
